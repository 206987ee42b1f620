"""What docs/security.md says of secrets: modes of files, process lists, core files, and who acts."""

import os
import pathlib
import re
import resource
import shutil
import signal
import stat
import subprocess
import sys
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).parent.parent / "mail"))

from filter_postgresql import SERVER, ServerGateway, sql  # noqa: E402
from servertest import PATIENCE, ZAROCTL, ServerTest, environment, free_port  # noqa: E402

EXAMPLE = pathlib.Path(__file__).parent.parent.parent / "examples" / "zaroctl-for-me"

MODES = {"config": 0o755, "config/database.ini": 0o640, "config/odbc.ini": 0o644, "config/secret.key": 0o600,
         "config/zaro.ini": 0o644, "data": 0o700, "data/zaro.db": 0o600, "sql": 0o755, "resources": 0o755}


def mode_of(path):
    return stat.S_IMODE(path.stat().st_mode)


def allow_core_files():
    hard = resource.getrlimit(resource.RLIMIT_CORE)[1]
    resource.setrlimit(resource.RLIMIT_CORE, (hard, hard))


class Files(ServerTest):
    def test_modes_are_the_same_whatever_the_umask(self):
        for umask in (0o000, 0o077, 0o027):
            home = self.directory / f"made-{umask:o}"
            subprocess.run([ZAROCTL, "init", home], env=environment(), umask=umask, capture_output=True, check=True,
                           timeout=PATIENCE)
            self.assertEqual({name: mode_of(home / name) for name in MODES}, MODES, f"umask {umask:o}")
            # What is written later, too.
            subprocess.run([ZAROCTL, "--home", home, "backup", home / "copy"], env=environment(), umask=umask, check=True,
                           capture_output=True, timeout=PATIENCE)
            subprocess.run([ZAROCTL, "--home", home, "admin", "id", "admin"], check=False, umask=umask, timeout=PATIENCE,
                           env={**environment(), "ZARO_LOG": str(home / "log"), "ZARO_LOG_LEVEL": "4"}, capture_output=True)
            for name in ("copy", "log", "data/zaro.db"):
                self.assertEqual(mode_of(home / name), 0o600, f"{name}, umask {umask:o}")

    def test_state_of_services_is_their_owners_alone(self):
        before = os.umask(0)
        self.addCleanup(os.umask, before)
        self.start().stop()
        found = list((self.installation.home / "state").rglob("*"))
        self.assertTrue(found)
        for path in found:
            self.assertEqual(mode_of(path) & 0o077, 0, str(path))


class CoreFiles(ServerTest):
    """A process that is aborted leaves no core, where another one does."""

    def aborted(self, command, ready):
        """How a process ended: with a core or without."""
        process = subprocess.Popen(command, env=environment(), preexec_fn=allow_core_files, cwd=self.directory,
                                   stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        ready(process)
        process.send_signal(signal.SIGABRT)
        ended = os.waitid(os.P_PID, process.pid, os.WEXITED)
        for stream in (process.stdin, process.stdout, process.stderr):
            stream.close()
        process.returncode = -signal.SIGABRT  # the process is gone
        return ended.si_code

    def test_no_program_leaves_one(self):
        other = self.aborted(["cat"], lambda process: (process.stdin.write(b"x"), process.stdin.flush(),
                                                       process.stdout.read(1)))
        if other != os.CLD_DUMPED:
            self.skipTest("this system dumps no core of any process")
        lists = self.directory / "list"
        lists.write_text("a@b.test\n", encoding="ascii")

        def answered(process):
            process.stdin.write(b"a@b.test\n")
            process.stdin.flush()
            process.stdout.readline()

        def is_ready(process):
            while b"info: ready" not in process.stderr.readline():
                self.assertIsNone(process.poll())

        home = str(self.installation.home)
        for command, ready in (([ZAROCTL, "match", "--tree", f"{lists}:1", "-"], answered),
                               ([os.environ["ZAROPOLICYD_PATH"], "--home", home, "--foreground"], is_ready),
                               ([os.environ["ZAROFILTERD_PATH"], "--home", home, "--foreground"], is_ready)):
            self.assertEqual(self.aborted(command, ready), os.CLD_KILLED, command[0])


@unittest.skipUnless(SERVER["HOST"], "needs a PostgreSQL server: run the tests through scripts/with-postgres")
class PasswordOfTheDatabase(ServerTest):
    def setUp(self):
        super().setUp()
        self.directory.joinpath("server").mkdir()
        self.gateway = ServerGateway(self.directory / "server")
        self.addCleanup(self.gateway.remove)

    def shown_of(self, pid):
        """What the process list has of a process, and of those that it started."""
        text = b""
        for process in pathlib.Path("/proc").glob("[0-9]*"):
            try:
                parent = re.search(r"(?m)^PPid:\t(\d+)", (process / "status").read_text(encoding="utf-8")).group(1)
                if str(pid) in (process.name, parent):
                    text += (process / "cmdline").read_bytes() + (process / "environ").read_bytes()
            except (FileNotFoundError, ProcessLookupError, PermissionError):
                pass  # gone meanwhile, or not to be looked at
        return text

    def test_is_in_no_process_list_log_or_file(self):
        secret = SERVER["PASSWORD"].encode()
        self.gateway.zaroctl("settings", "set", f"PolicyServerPort={free_port()}", "mail_filter.policy_socket=unix:run/p")
        # The environment of this test has it, so what it starts gets one without.
        started = subprocess.Popen([os.environ["ZAROPOLICYD_PATH"], "--home", self.gateway.home, "--foreground"],
                                   env={**environment(), "ZARO_LOG": "stderr", "ZARO_LOG_LEVEL": "4"},
                                   stderr=subprocess.PIPE)
        self.addCleanup(started.stderr.close)
        self.addCleanup(started.wait)
        self.addCleanup(started.kill)
        log = b""
        while b"info: ready" not in log:
            line = started.stderr.readline()
            self.assertTrue(line, log)
            log += line
        shown = self.shown_of(started.pid)
        self.assertIn(b"--foreground", shown)
        self.assertNotIn(secret, shown)
        started.terminate()
        log += started.stderr.read()
        self.assertNotIn(secret, log)
        for path in self.gateway.home.rglob("*"):
            if path.is_file():
                self.assertNotIn(secret, path.read_bytes(), str(path))

    def test_a_role_of_ones_own_is_told_and_cannot_change_the_trail(self):
        role = "alice_" + self.gateway.name
        page = (pathlib.Path(__file__).parent.parent.parent / "docs" / "security.md").read_text(encoding="utf-8")
        statements = re.findall(r"(?m)^ {8}((?:CREATE ROLE|GRANT|REVOKE) .*;)$", page)
        self.assertEqual(len(statements), 5)
        self.addCleanup(lambda: (self.gateway.run_sql(f"DROP OWNED BY {role}"), sql(f"DROP ROLE {role}")))
        for statement in statements:
            self.gateway.run_sql(re.sub(r"\balice\b", role, statement).replace("'...'", "'sesame'"))
        own = self.directory / "own"
        shutil.copytree(self.gateway.home, own)
        ini = own / "config" / "database.ini"
        ini.write_text(re.sub(r"(?m)^UserId=.*", f"UserId={role}", ini.read_text(encoding="utf-8")), encoding="utf-8")

        def zaroctl(*arguments, given=""):
            return subprocess.run([ZAROCTL, "--home", own, *arguments], env=environment(), input=given, text=True,
                                  capture_output=True, timeout=PATIENCE, check=False)

        self.assertEqual(zaroctl("password", given="sesame\n").returncode, 0)
        made = zaroctl("group", "add", "--as", "admin", "Friends", "a@friend.test")
        self.assertEqual(made.returncode, 0, made.stderr)
        self.assertIn(role, zaroctl("--query", "login", "audit").stdout.split())
        refused = zaroctl("audit-trim", "--before", "2100-01-01")
        self.assertEqual(refused.returncode, 77, refused.stderr)


class ThroughSudo(ServerTest):
    """The example, called as sudo calls it."""

    def setUp(self):
        super().setUp()
        self.script = self.directory / "zaroctl-for-me"
        text = EXAMPLE.read_text(encoding="utf-8")
        self.script.write_text(text.replace("home=/var/lib/zaro", f"home={self.installation.home}")
                               .replace("zaroctl=/usr/bin/zaroctl", f"zaroctl={ZAROCTL}"), encoding="utf-8")
        self.script.chmod(0o755)
        zaroctl = self.installation.zaroctl
        for name in ("alice", "bob"):
            zaroctl("admin", "add", name)
            zaroctl("entity", "add", f"*@{name}.test")
            zaroctl("admin", "assign", name, f"*@{name}.test")

    def run_as(self, user, *arguments, given=""):
        more = {"SUDO_USER": user} if user else {}
        return subprocess.run([self.script, *arguments], env={**environment(), **more}, input=given, text=True,
                              capture_output=True, timeout=PATIENCE, check=False)

    def test_the_user_is_the_administrator(self):
        made = self.run_as("alice", "group", "add", "Friends", "a@friend.test")
        self.assertEqual(made.returncode, 0, made.stderr)
        self.assertIn("Friends", self.run_as("alice", "group", "list").stdout)
        self.assertNotIn("Friends", self.run_as("bob", "group", "list").stdout)
        self.assertIn("alice", self.installation.zaroctl("--query", "administrator", "audit").split())

    def test_nothing_makes_the_user_another_one(self):
        self.assertEqual(self.run_as("alice", "group", "add", "Friends", "a@friend.test").returncode, 0)
        key = str(self.installation.home / "config" / "secret.key")
        for arguments in (["group", "list", "--as", "alice"], ["group", "list", "--as=alice"], ["group", "list", "--", "--as"],
                          ["admin", "list"], ["settings", "set", "threads=1"], ["--home", "/elsewhere", "group", "list"],
                          ["group", "list", "--home=/elsewhere"], ["group list", "--as"], [],
                          ["object", "add", "--type", "3", "--file", key, "taken"],
                          ["group", "import", "Friends", key], ["--json", "group", "list"]):
            done = self.run_as("bob", *arguments)
            self.assertIn(done.returncode, (64, 77), f"{arguments}: {done.stdout} {done.stderr}")
            self.assertNotIn("Friends", done.stdout)
        self.assertEqual(self.run_as("", "group", "list").returncode, 77)


if __name__ == "__main__":
    unittest.main()
