"""What a reader of the rules sees when they change while it reads. The PostgreSQL server is a test's own: see
scripts/with-postgres."""

import os
import pathlib
import subprocess
import sys
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "mail"))

from filter_postgresql import SERVER, ServerGateway  # noqa: E402
from mailtest import PATIENCE, ZAROCTL, Directory, wait_until  # noqa: E402


class Psql:
    """A session that stays open."""

    def __init__(self, database):
        self.process = subprocess.Popen(
            ["psql", "-X", "-q", "-At", "-v", "ON_ERROR_STOP=1", "-h", SERVER["HOST"], "-p", SERVER["PORT"], "-U", SERVER["USER"], "-d", database],
            env={**os.environ, "PGPASSWORD": SERVER["PASSWORD"]}, stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)

    def run(self, statement):
        """Answers the lines that it gives."""
        self.process.stdin.write(statement + ";\n\\echo done\n")
        self.process.stdin.flush()
        return list(iter(lambda: self.process.stdout.readline().strip(), "done"))

    def close(self):
        self.process.stdin.close()
        self.process.wait(PATIENCE)
        self.process.stdout.close()


@unittest.skipUnless(SERVER["HOST"], "there is no PostgreSQL server: run the tests through scripts/with-postgres")
class Readers(unittest.TestCase):
    def setUp(self):
        directory = Directory()
        self.addCleanup(directory.remove)
        self.gateway = ServerGateway(directory.path)
        self.addCleanup(self.gateway.remove)
        self.gateway.block("first", "first@bad.test")

    def session(self):
        made = Psql(self.gateway.name)
        self.addCleanup(made.close)
        return made

    def test_rules_and_their_lists_are_of_one_moment(self):
        for command in (["rule", "list", "--as", "admin"], ["rule", "show", "--as", "admin", "first"]):
            with self.subTest(command):
                writer, observer = self.session(), self.session()
                # The reader has the rules, and waits for their lists until there is one more of both.
                writer.run("BEGIN; LOCK TABLE policy_rule_list IN ACCESS EXCLUSIVE MODE")
                with subprocess.Popen([ZAROCTL, "--home", str(self.gateway.home), *command], stdout=subprocess.PIPE,
                                      stderr=subprocess.PIPE, text=True) as reader:
                    wait_until(lambda: observer.run("SELECT count(*) FROM pg_locks WHERE NOT granted AND relation = "
                                                    "'policy_rule_list'::regclass") == ["1"], "the reader waits")
                    writer.run("INSERT INTO policy_rule (name, position, enabled, compares, actions, reply, tag, header_value, "
                               "address) SELECT 'second' || count(*), count(*) + 1, enabled, compares, actions, 'x', '', '', '' "
                               "FROM policy_rule WHERE true GROUP BY enabled, compares, actions; "
                               "INSERT INTO policy_rule_object (rule_id, object_id) SELECT max(rule.id), max(list.group_id) "
                               "FROM policy_rule rule, policy_rule_list list; "
                               "INSERT INTO policy_rule_list (rule_id, position, group_id, kind) SELECT max(rule.id), 0, "
                               "max(list.group_id), 2 FROM policy_rule rule, policy_rule_list list; COMMIT")
                    out, errors = reader.communicate(timeout=PATIENCE)
                self.assertEqual((reader.returncode, errors), (0, ""), out)
                self.assertIn("first", out)


if __name__ == "__main__":
    unittest.main()
