"""The unit of the policy server."""

import os
import pathlib
import shutil
import subprocess
import tempfile
import unittest

PATIENCE = 60


class Unit(unittest.TestCase):
    @unittest.skipUnless(shutil.which("systemd-analyze"), "systemd-analyze is not installed")
    def test_is_valid_and_hardened(self):
        text = pathlib.Path(os.environ["ZAROPOLICYD_UNIT"]).read_text(encoding="ascii")
        # The program and its manual page are not installed here.
        text = "".join(line.replace(line.split(" ")[0], "ExecStart=/bin/true") if line.startswith("ExecStart=") else line
                       for line in text.splitlines(True) if not line.startswith("Documentation="))
        with tempfile.TemporaryDirectory() as directory:
            unit = pathlib.Path(directory) / "zaropolicyd.service"
            unit.write_text(text)
            for command in (["verify", "--man=no"], ["security", "--offline=true", "--threshold=20"]):
                done = subprocess.run(["systemd-analyze", *command, unit], capture_output=True, text=True,
                                      timeout=PATIENCE, check=False)
                self.assertEqual((done.returncode, done.stderr), (0, ""), done.stdout)


if __name__ == "__main__":
    unittest.main()
