"""The filter on a PostgreSQL server that goes away and comes back. The server is a test's own: see scripts/with-postgres."""

import os
import subprocess
import threading
import unittest
import uuid

from mailtest import PATIENCE, Gateway, MailTest, wait_until

SERVER = {key: os.environ.get(f"ZARO_TEST_PG_{key}", "") for key in ("HOST", "PORT", "USER", "PASSWORD", "DATABASE", "CTL",
                                                                  "REPLICA")}


def control(action):
    """Stops and starts the server."""
    subprocess.run(["sh", "-c", f"{SERVER['CTL']} {action}"], check=True, stdout=subprocess.DEVNULL, timeout=PATIENCE)


def sql(statement, database=SERVER["DATABASE"]):
    subprocess.run(["psql", "-X", "-q", "-h", SERVER["HOST"], "-p", SERVER["PORT"], "-U", SERVER["USER"], "-d", database,
                    "-c", statement], env={**os.environ, "PGPASSWORD": SERVER["PASSWORD"]}, check=True, timeout=PATIENCE)


class ServerGateway(Gateway):
    """An installation on a database of its own, whose rules zaroctl makes."""

    database_port = SERVER["PORT"]

    def __init__(self, directory, hosts=SERVER["HOST"]):
        self.name = "mail_" + uuid.uuid4().hex
        self.hosts = hosts
        sql(f"CREATE DATABASE {self.name}")
        super().__init__(directory)
        self.run_sql("INSERT INTO entity (type, name) VALUES (6, '*@*')")  # what the administrator makes belongs to it
        self.run_sql("INSERT INTO administrator_entity (administrator_id, entity_id) SELECT a.id, e.id FROM administrator a, "
                     "entity e")

    def make(self):
        self.zaroctl("init", "--db", "postgresql", "--host", self.hosts, "--port", self.database_port, "--user",
                     SERVER["USER"], "--database", self.name, str(self.home), given=SERVER["PASSWORD"] + "\n")

    def run_sql(self, statement):
        sql(statement, self.name)

    def block(self, name, sender):
        self.zaroctl("group", "add", "--as", "admin", name + " list", sender)
        self.zaroctl("rule", "add", "--as", "admin", "--for-all", "--list", name + " list:block", "--action", "Delete",
                     "--reply", "no", name)

    def remove(self):
        sql(f"DROP DATABASE {self.name} WITH (FORCE)")


@unittest.skipUnless(SERVER["CTL"], "the PostgreSQL server is not ours to stop: run the tests through scripts/with-postgres")
class ServerGoesAway(MailTest):
    def make_gateway(self):
        gateway = ServerGateway(self.directory)
        self.addCleanup(gateway.remove)
        return gateway

    def setUp(self):
        super().setUp()
        self.addCleanup(subprocess.run, ["sh", "-c", f"{SERVER['CTL']} start"], stdout=subprocess.DEVNULL,
                        stderr=subprocess.DEVNULL, check=False)  # a test that failed may have left it stopped
        self.gateway.block("refuse", "refused@bad.test")

    def expect_decisions(self, server):
        self.assertEqual(server.send("refused@bad.test", ["a@example.com"])[0], [550])
        self.assertEqual(server.send("x@good.test", ["a@example.com"])[0], [250])

    def expect_change_to_count(self, server, name):
        self.gateway.block(name, f"{name}@bad.test")
        wait_until(lambda: server.send(f"{name}@bad.test", ["a@example.com"])[0] == [550], "the change counts")

    def test_mail_is_decided_all_the_while(self):
        started = self.start_filter()
        server = self.start_postfix()
        wrong = []
        ended = threading.Event()

        def send():
            while not ended.is_set():
                for sender, code in (("refused@bad.test", 550), ("x@good.test", 250)):
                    codes = server.send(sender, ["a@example.com"])[0]
                    wrong.extend([codes] if codes != [code] else [])

        sender = threading.Thread(target=send)
        sender.start()
        try:
            for number in (1, 2):
                control("stop")
                started.wait_for_log("the policy is not reloaded", number)
                control("start")
                self.expect_change_to_count(server, f"more{number}")
        finally:
            ended.set()
            sender.join(PATIENCE)
        self.assertEqual(wrong, [])
        self.assertIsNone(started.process.poll())

    def test_a_filter_that_starts_meanwhile_keeps_the_settings_of_all_hosts(self):
        self.gateway.zaroctl("settings", "set", "mail_filter.shadow=yes")
        started = self.start_filter()
        started.stop()
        control("stop")
        started.start()
        started.wait_for_log("the settings of all hosts are those that the database had last")
        server = self.start_postfix()
        self.assertEqual(server.send("refused@bad.test", ["a@example.com"])[0], [250])
        started.wait_for_log("done=shadow")

    def test_a_filter_that_starts_meanwhile_decides_by_the_last_good_policy(self):
        started = self.start_filter()
        started.stop()
        control("stop")
        started.start()
        server = self.start_postfix()
        self.expect_decisions(server)
        started.wait_for_log("the last good policy counts until")
        started.wait_for_log("the policy is not reloaded")
        control("start")
        self.expect_change_to_count(server, "more")
        self.expect_decisions(server)


if __name__ == "__main__":
    unittest.main()
