"""The policy server on a PostgreSQL server that goes away and comes back. The latter is a test's own: see
scripts/with-postgres."""

import concurrent.futures
import pathlib
import shutil
import subprocess
import sys
import tempfile
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).parent.parent / "mail"))

from filter_postgresql import SERVER, ServerGateway, control  # noqa: E402
from servertest import Server, curl, free_port, lines_of, wait_until  # noqa: E402


class Gateway(ServerGateway):
    def take_port(self):
        self.port = free_port()
        self.zaroctl("settings", "set", f"PolicyServerPort={self.port}")


@unittest.skipUnless(SERVER["CTL"], "the PostgreSQL server is not ours to stop: run the tests through scripts/with-postgres")
class DatabaseGoesAway(unittest.TestCase):
    def setUp(self):
        self.directory = pathlib.Path(tempfile.mkdtemp(prefix="zaro-server-"))
        self.addCleanup(shutil.rmtree, self.directory, ignore_errors=True)
        self.gateway = Gateway(self.directory, "127.0.0.2,127.0.0.1")  # the first one is where a replica may be
        self.addCleanup(self.gateway.remove)
        self.addCleanup(subprocess.run, ["sh", "-c", f"{SERVER['CTL']} start"], stdout=subprocess.DEVNULL,
                        stderr=subprocess.DEVNULL, check=False)  # a test that failed may have left it stopped
        self.gateway.take_port()

    def test_the_policy_is_served_all_the_while_and_changes_count_again(self):
        server = Server(self.gateway, ["--register", "127.0.0.1"])
        self.addCleanup(server.stop)
        server.start()
        server.wait_for_log("registered as policy server 1")
        tag = curl(server.url()).fields["etag"]
        with concurrent.futures.ThreadPoolExecutor() as threads:
            held = threads.submit(curl, server.url("/v1/policy?wait=60"), "-H", f"If-None-Match: {tag}")
            wait_until(lambda: server.metric("zaro_server_held_requests") == 1, "a request is held")
            self.gateway.block("first", "first@bad.test")
            self.assertIn("first@bad.test", held.result().body.decode())
        control("stop")
        server.wait_for_log("the policy is not reloaded")
        before = curl(server.url())
        self.assertEqual(before.status, 200)
        server.stop()
        server.start()
        self.assertEqual(curl(server.url()).fields["etag"], before.fields["etag"])
        control("start")
        self.gateway.block("second", "second@bad.test")
        wait_until(lambda: "second@bad.test" in curl(server.url()).body.decode(), "the change is served")
        self.assertGreater(lines_of(curl(server.url()))[0]["version"], lines_of(before)[0]["version"])
        self.assertEqual(self.gateway.zaroctl("servers", "list"), f"1\t127.0.0.1\t{self.gateway.port}\n")

    def test_a_promoted_replica_is_followed_without_a_restart(self):
        server = Server(self.gateway)
        self.addCleanup(server.stop)
        server.start()
        self.replica("make")
        self.addCleanup(self.replica, "remove")
        self.gateway.block("first", "first@bad.test")
        wait_until(lambda: "first@bad.test" in curl(server.url()).body.decode(), "the primary's change is served")
        control("stop")
        server.wait_for_log("the policy is not reloaded")
        self.replica("promote")
        self.gateway.block("second", "second@bad.test")
        wait_until(lambda: "second@bad.test" in curl(server.url()).body.decode(), "the replica's change is served")

    @staticmethod
    def replica(action):
        subprocess.run([SERVER["REPLICA"], action], check=True, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)


if __name__ == "__main__":
    unittest.main()
