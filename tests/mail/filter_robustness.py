"""What happens to the filter, and to mail meanwhile, when things around it fail."""

import os
import pathlib
import shutil
import signal
import socket
import subprocess
import threading
import unittest

from mailtest import PATIENCE, ZAROFILTERD, Directory, MailTest, wait_until


class Reloading(MailTest):
    def test_a_change_of_the_database_counts_soon(self):
        started = self.start_filter()
        self.gateway.rule("refuse", ["refused@bad.test"], actions=["Delete"], reply="no")
        started.wait_for_version(self.gateway.version())

    def test_fifty_hangups_reload_and_none_ends_the_filter(self):
        started = self.start_filter()
        for _ in range(50):
            started.reload()
        for count in range(2, 7):
            started.reload()
            started.wait_for_log("decides", count)
        self.assertIsNone(started.process.poll())
        self.assertEqual(started.stop(), 0)

    def test_no_thread_but_the_first_takes_signals(self):
        started = self.start_filter()
        taking = []
        for task in pathlib.Path(f"/proc/{started.process.pid}/task").iterdir():
            blocked = next(line.split()[1] for line in (task / "status").read_text(encoding="ascii").splitlines()
                           if line.startswith("SigBlk:"))
            if any(not int(blocked, 16) >> number - 1 & 1 for number in (signal.SIGHUP, signal.SIGTERM, signal.SIGINT)):
                taking.append(int(task.name))
        self.assertEqual(taking, [started.process.pid])

    def test_a_policy_that_cannot_be_applied_leaves_the_old_one(self):
        self.gateway.rule("refuse", ["refused@bad.test"], actions=["Delete"], reply="no")
        started = self.start_filter()
        self.gateway.rule("broken", ["x@y.test"], actions=["Readdress"], address="")
        started.wait_for_log('the policy is not reloaded: rule 2 ("broken"): Readdress needs an address')
        self.assertIsNone(started.process.poll())
        self.assertIn('rule 2 ("broken"): Readdress needs an address', self.gateway.zaroctl("check", status=78))
        self.gateway.disable("broken")
        started.wait_for_version(self.gateway.version())


class LastGoodPolicy(MailTest):
    """The database is a file: without it the filter has what it kept."""

    def setUp(self):
        super().setUp()
        self.gateway.rule("refuse", ["refused@bad.test"], actions=["Delete"], reply="no")
        self.file = self.gateway.home / "data" / "zaro.db"

    def take_database_away(self):
        self.file.parent.rename(self.file.parent.with_name("away"))

    def give_database_back(self):
        self.file.parent.with_name("away").rename(self.file.parent)

    def test_counts_while_the_database_is_down(self):
        started = self.start_filter()
        version = self.gateway.version()
        started.stop()
        self.take_database_away()
        started.start()
        started.wait_for_log("the last good policy counts until")
        started.wait_for_log(f"policy {version} decides", 2)
        self.give_database_back()
        started.wait_for_log(f"policy {version} decides", 3)

    def test_a_running_filter_goes_on_without_its_database(self):
        started = self.start_filter()
        self.rename_table("policy_version", "away")
        started.wait_for_log("the policy is not reloaded")
        self.assertIsNone(started.process.poll())
        self.rename_table("away", "policy_version")
        self.gateway.rule("more", ["more@bad.test"], actions=["Delete"], reply="no")
        started.wait_for_version(self.gateway.version())

    def rename_table(self, name, other):
        with self.gateway.database() as db:
            db.execute("PRAGMA legacy_alter_table = ON")
            db.execute(f"ALTER TABLE {name} RENAME TO {other}")

    def test_a_full_disk_keeps_the_one_before_and_mail_is_decided(self):
        state = self.gateway.home / "state"
        state.mkdir()
        mounted = subprocess.run(["mount", "-t", "tmpfs", "-o", "size=32k", "tmpfs", state], capture_output=True, check=False)
        if mounted.returncode != 0:
            self.skipTest("small file systems are mounted by root only")
        self.addCleanup(subprocess.run, ["umount", "--lazy", state], check=True)
        started = self.start_filter()
        kept = (state / "policy.snapshot").read_bytes()
        self.gateway.rule("big", [f"user{number}@bad.test" for number in range(5000)], actions=["Delete"], reply="no")
        started.wait_for_log("the policy is not kept on disk")
        started.wait_for_version(self.gateway.version())
        self.assertEqual((state / "policy.snapshot").read_bytes(), kept)

    def test_one_that_was_damaged_is_refused(self):
        started = self.start_filter()
        started.stop()
        for path in (self.gateway.home / "state").iterdir():
            if path.is_file() and path.stat().st_size:
                path.write_bytes(path.read_bytes().replace(b"refused@bad.test", b"praised@bad.test"))
        self.take_database_away()
        started.start()
        started.wait_for_log("the last good policy cannot be used")
        started.wait_for_log("there is no policy")


class Ending(MailTest):
    def test_a_socket_that_is_removed_ends_the_filter_so_that_it_is_started_anew(self):
        started = self.start_filter()
        started.socket.unlink()
        wait_until(lambda: started.process.poll() is not None, "the filter ends")
        self.assertNotEqual(started.stop(), 0)
        started.start()
        self.assertEqual(started.stop(), 0)
        self.assertFalse(started.socket.exists())

    def test_a_killed_filter_leaves_nothing_in_the_way(self):
        started = self.start_filter()
        started.stop(signal.SIGKILL)
        started.start()
        self.assertEqual(started.stop(), 0)

    def test_a_second_filter_of_the_installation_is_refused(self):
        self.start_filter()
        done = subprocess.run([ZAROFILTERD, "--home", self.gateway.home, "--foreground"], capture_output=True, text=True,
                              timeout=PATIENCE, check=False)
        self.assertNotEqual(done.returncode, 0)

    def test_a_message_in_progress_is_finished(self):
        self.gateway.rule("refuse", ["refused@bad.test"], actions=["Delete"], reply="no")
        started = self.start_filter()
        server = self.start_postfix()
        with server.connect() as session:
            session.ehlo()
            session.mail("x@y.test")
            self.assertEqual(session.rcpt("a@example.com")[0], 250)
            stopping = threading.Thread(target=lambda: self.statuses.append(started.stop()))
            self.statuses = []
            stopping.start()
            wait_until(lambda: not started.socket.exists(), "the filter stops")
            self.assertEqual(session.data("Subject: x\r\n\r\nx\r\n")[0], 250, server.log() + started.log())
            stopping.join(PATIENCE)
        self.assertEqual(self.statuses, [0])

    def test_in_the_background_it_is_ready_when_its_parent_ends(self):
        log = self.gateway.home / "background.log"
        environment = {**os.environ, "ZARO_LOG": str(log)}
        done = subprocess.run([ZAROFILTERD, "--home", self.gateway.home], env=environment, timeout=PATIENCE, check=False)
        self.assertEqual(done.returncode, 0)
        with socket.socket(socket.AF_UNIX) as one:
            one.connect(str(self.gateway.home / "run" / "zarofilterd.sock"))
            # The process that listens at the socket is the filter; no file or output names it.
            one_peer = one.getsockopt(socket.SOL_SOCKET, socket.SO_PEERCRED, 12)
        pid = int.from_bytes(one_peer[:4], "little")
        os.kill(pid, signal.SIGTERM)
        status = pathlib.Path(f"/proc/{pid}/stat")
        wait_until(lambda: not status.exists() or status.read_text().split()[2] == "Z", "the filter ends")


class ServiceManager(MailTest):
    def test_is_told_of_readiness_reloads_and_the_end(self):
        with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as notices:
            address = str(self.directory / "notify")
            notices.bind(address)
            notices.settimeout(PATIENCE)
            started = self.start_filter(environment={"NOTIFY_SOCKET": address})
            self.assertIn(b"READY=1", notices.recv(4096))
            started.reload()
            self.assertIn(b"RELOADING=1", notices.recv(4096))
            self.assertIn(b"READY=1", notices.recv(4096))
            started.stop()
            self.assertIn(b"STOPPING=1", notices.recv(4096))


class WithoutAPolicy(MailTest):
    def start_without_database(self):
        (self.gateway.home / "data").rename(self.gateway.home / "away")
        return self.start_filter()

    def test_mail_is_postponed(self):
        self.start_without_database()
        self.assertEqual(self.start_postfix().send("x@y.test", ["a@example.com"])[0], [451])

    def test_mail_is_accepted_where_the_setting_says_so(self):
        self.gateway.set(on_failure="accept")
        self.start_without_database()
        self.assertEqual(self.start_postfix().send("x@y.test", ["a@example.com"])[0], [250])


class Load(MailTest):
    """Takes long."""

    @unittest.skipUnless(os.environ.get("ZARO_MAIL_LOAD"), "ZARO_MAIL_LOAD is not set")
    def test_fifty_reloads_under_load_lose_nothing(self):
        messages = 3000
        self.gateway.rule("tag", ["loaded@bad.test"], actions=["SubjectTagging"], tag="[X]")
        started = self.start_filter()
        server = self.start_postfix(virtual_transport="discard", anvil_rate_time_unit="1h")
        source = subprocess.Popen(["smtp-source", "-s", "50", "-m", str(messages), "-f", "loaded@bad.test", "-t",
                                   "a@example.com", f"inet:127.0.0.1:{server.port}"])
        for count in range(2, 52):
            started.reload()
            started.wait_for_log("decides", count)
        self.assertEqual(source.wait(600), 0)
        wait_until(lambda: started.log().count("rule=tag") == messages, "every message is decided once")
        self.assertNotIn("error", started.log())

    @unittest.skipUnless(os.environ.get("ZARO_MAIL_LOAD"), "ZARO_MAIL_LOAD is not set")
    def test_mail_is_postponed_while_the_filter_is_down_and_flows_again(self):
        started = self.start_filter()
        server = self.start_postfix()
        for _ in range(5):
            started.stop(signal.SIGKILL)
            with server.connect() as session:
                session.ehlo()
                self.assertEqual(session.mail("x@y.test")[0], 451)
            started.start()
            self.assertEqual(server.send("x@y.test", ["a@example.com"])[0], [250])


def calls_of(name):
    """The system calls of a set of systemd's, or the one of that name."""
    if not name.startswith("@"):
        return {name}
    done = subprocess.run(["systemd-analyze", "syscall-filter", name], capture_output=True, text=True, timeout=PATIENCE,
                          check=True)
    lines = [line.strip() for line in done.stdout.splitlines()[1:]]
    return set().union(*(calls_of(line) for line in lines if line and not line.startswith("#")))


class Unit(unittest.TestCase):
    @unittest.skipUnless(shutil.which("systemd-analyze"), "systemd-analyze is not installed")
    def test_allows_what_gives_sockets_their_group(self):
        allowed = set()
        for line in pathlib.Path(os.environ["ZAROFILTERD_UNIT"]).read_text(encoding="ascii").splitlines():
            if line.startswith("SystemCallFilter="):
                names = line.partition("=")[2]
                calls = set().union(*(calls_of(name) for name in names.lstrip("~").split()))
                allowed = allowed - calls if names.startswith("~") else allowed | calls
        self.assertLessEqual({"chown", "chmod", "socket", "accept4"}, allowed)
        self.assertNotIn("setuid", allowed)

    @unittest.skipUnless(shutil.which("systemd-analyze"), "systemd-analyze is not installed")
    def test_is_valid_and_hardened(self):
        text = pathlib.Path(os.environ["ZAROFILTERD_UNIT"]).read_text(encoding="ascii")
        # The program and its manual page are not installed here.
        text = "".join(line.replace(line.split(" ")[0], "ExecStart=/bin/true") if line.startswith("ExecStart=") else line
                       for line in text.splitlines(True) if not line.startswith("Documentation="))
        directory = Directory()
        self.addCleanup(directory.remove)
        unit = directory.path / "zarofilterd.service"
        unit.write_text(text)
        for command in (["verify", "--man=no"], ["security", "--offline=true", "--threshold=20"]):
            done = subprocess.run(["systemd-analyze", *command, unit], capture_output=True, text=True, timeout=PATIENCE,
                                  check=False)
            self.assertEqual((done.returncode, done.stderr), (0, ""), done.stdout)


if __name__ == "__main__":
    unittest.main()
