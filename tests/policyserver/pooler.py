"""Policy server, filter and zaroctl on a PostgreSQL server behind PgBouncer, which pools sessions or transactions."""

import concurrent.futures
import os
import pathlib
import pwd
import shutil
import subprocess
import sys
import tempfile
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).parent.parent / "mail"))

from filter_postgresql import SERVER, ServerGateway  # noqa: E402
from servertest import PATIENCE, Server, curl, free_port, wait_until  # noqa: E402
from sitetest import FILTER_SETTINGS, Filter  # noqa: E402

PGBOUNCER = shutil.which("pgbouncer", path=os.environ["PATH"] + ":/usr/sbin")


class Pooler:
    """A PgBouncer of our own before the server for tests."""

    def __init__(self, directory, mode):
        self.directory = directory / "pooler"
        self.directory.mkdir()
        self.port = free_port()
        self.process = None
        users = self.directory / "users"
        users.write_text(f'"{SERVER["USER"]}" "{SERVER["PASSWORD"]}"\n', encoding="ascii")
        (self.directory / "pgbouncer.ini").write_text(
            f"[databases]\n* = host={SERVER['HOST']} port={SERVER['PORT']}\n[pgbouncer]\npool_mode = {mode}\n"
            f"listen_addr = 127.0.0.1\nlisten_port = {self.port}\nunix_socket_dir =\nauth_type = scram-sha-256\n"
            f"auth_file = {users}\nlogfile = {self.directory / 'log'}\n", encoding="ascii")
        self.arguments = []
        if os.geteuid() == 0:  # as which it does not run
            owner = pwd.getpwnam("postgres")
            for path in (self.directory, *self.directory.iterdir()):
                os.chown(path, owner.pw_uid, owner.pw_gid)
            directory.chmod(0o711)
            self.arguments = ["--user", "postgres"]

    def start(self):
        self.process = subprocess.Popen([PGBOUNCER, "--quiet", *self.arguments, self.directory / "pgbouncer.ini"],
                                        stderr=subprocess.DEVNULL)
        log = self.directory / "log"
        wait_until(lambda: log.exists() and f"[{self.process.pid}] LOG process up" in log.read_text(), "the pooler is there")

    def stop(self):
        """At once: what its clients and servers are doing is broken off."""
        if self.process is not None:
            self.process.terminate()
            self.process.wait(PATIENCE)
            self.process = None


class Gateway(ServerGateway):
    def __init__(self, directory, pooler):
        self.database_port = str(pooler.port)
        super().__init__(directory)

    def take_port(self):
        self.port = free_port()
        self.zaroctl("settings", "set", f"PolicyServerPort={self.port}")


@unittest.skipUnless(SERVER["HOST"], "no PostgreSQL server: run the tests through scripts/with-postgres")
@unittest.skipUnless(PGBOUNCER, "PgBouncer is not installed")
class BehindAPooler(unittest.TestCase):
    def try_mode(self, mode):
        directory = pathlib.Path(tempfile.mkdtemp(prefix="zaro-pooler-"))
        self.addCleanup(shutil.rmtree, directory, ignore_errors=True)
        pooler = Pooler(directory, mode)
        self.addCleanup(pooler.stop)
        pooler.start()
        gateway = Gateway(directory, pooler)
        self.addCleanup(gateway.remove)
        gateway.take_port()
        gateway.set(policy_socket=FILTER_SETTINGS["policy_socket"], socket_mode="0660")
        gateway.block("first", "first@bad.test")
        server = Server(gateway, ["--register", "127.0.0.1"])
        self.addCleanup(server.stop)
        server.start()
        server.wait_for_log("registered as policy server 1")
        host = Filter(gateway.home)
        self.addCleanup(host.stop)
        host.start()
        self.assertTrue(host.refuses("first@bad.test"))

        # Changes at the same time wait for each other as they do without a pooler.
        added = [f"user{number}@bad.test" for number in range(8)]
        with concurrent.futures.ThreadPoolExecutor(len(added)) as threads:
            list(threads.map(lambda one: gateway.zaroctl("group", "modify", "first list", "--add", one), added))
        self.assertEqual(set(gateway.zaroctl("group", "show", "first list").split()), {"first@bad.test", *added})
        self.expect_counts(added[-1], server, host)

        pooler.stop()
        server.wait_for_log("the policy is not reloaded")
        host.wait_for_log("the policy is not reloaded")
        gateway.zaroctl("group", "modify", "first list", "--add", "lost@bad.test", status=75)
        self.assertIn("first@bad.test", curl(server.url()).body.decode())
        self.assertTrue(host.refuses("first@bad.test"))
        pooler.start()
        gateway.block("second", "second@bad.test")
        self.expect_counts("second@bad.test", server, host)
        gateway.zaroctl("check")

    def expect_counts(self, sender, server, host):
        wait_until(lambda: sender in curl(server.url()).body.decode(), "the server hands out the change")
        wait_until(lambda: host.refuses(sender), "the filter decides by the change")

    def test_that_pools_sessions(self):
        self.try_mode("session")

    def test_that_pools_transactions(self):
        self.try_mode("transaction")


if __name__ == "__main__":
    unittest.main()
