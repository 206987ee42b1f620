"""The mail filter protocol, spoken by miltertest."""

import pathlib
import shutil
import subprocess
import unittest
import urllib.error
import urllib.request

from mailtest import PATIENCE, MailTest, free_port


class Protocol(MailTest):
    @unittest.skipUnless(shutil.which("miltertest"), "miltertest is not installed")
    def test_what_the_filter_does_in_each_stage(self):
        rule = self.gateway.rule
        rule("refuse", ["refused@bad.test"], actions=["Delete"], reply="go away")
        rule("hold", ["held@bad.test"], actions=["Quarantine"], area="Spam area")
        rule("tag", ["tagged@bad.test"], actions=["SubjectTagging"], tag="[X]")
        rule("drop", ["dropped@bad.test"], actions=["Delete"])
        rule("move", ["moved@bad.test"], actions=["Readdress"], address="other@example.com")
        started = self.start_filter()
        script = pathlib.Path(__file__).parent / "protocol" / "matrix.lua"
        done = subprocess.run(["miltertest", "-s", script, "-D", f"socket=unix:{started.socket}"], capture_output=True,
                              text=True, timeout=PATIENCE, check=False)
        self.assertEqual((done.returncode, done.stdout + done.stderr), (0, ""), started.log())
        self.assertIn("queue=Q1 sender=<held@bad.test>", started.log())
        self.assertEqual(started.stop(), 0)

    def test_metrics_are_served_on_the_loopback_interface(self):
        port = free_port()
        self.gateway.set(metrics=f"127.0.0.1:{port}")
        self.start_filter()
        with urllib.request.urlopen(f"http://127.0.0.1:{port}/metrics", timeout=PATIENCE) as answer:
            self.assertIn("application/openmetrics-text", answer.headers["Content-Type"])
            self.assertIn(f"zaro_filter_generation {self.gateway.version()}\n", answer.read().decode())
        for url, method, status in (("/", "GET", 404), ("/metrics", "POST", 405)):
            with self.assertRaises(urllib.error.HTTPError) as refused:
                urllib.request.urlopen(
                    urllib.request.Request(f"http://127.0.0.1:{port}{url}", method=method), timeout=PATIENCE)
            self.assertEqual(refused.exception.code, status)


if __name__ == "__main__":
    unittest.main()
