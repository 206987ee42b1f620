"""Filters on hosts without a database, and the policy servers that they ask."""

import gzip
import json
import os
import pathlib
import re
import shutil
import subprocess
import tempfile
import time
import unittest

from servertest import (PATIENCE, Certificates, Installation, Server, environment, free_port, takes_signals,
                        wait_until)
from sitetest import FILTER_SETTINGS, ZAROFILTERD, FakeServer, Filter, FilterHost, run_zaroctl, snapshot, with_digest

TOKEN = "a-token-that-no-log-shows"


class SiteTest(unittest.TestCase):
    def setUp(self):
        self.directory = pathlib.Path(tempfile.mkdtemp(prefix="zaro-site-"))
        self.addCleanup(shutil.rmtree, self.directory, ignore_errors=True)

    def filter_host(self, name, port, **settings):
        host = FilterHost(self.directory, name, port, **settings)
        self.addCleanup(host.stop)
        return host

    def fake_server(self, **arguments):
        server = FakeServer(**arguments)
        self.addCleanup(server.stop)
        return server

    def secret(self, name, text, mode=0o600):
        path = self.directory / name
        path.write_text(text, encoding="ascii")
        path.chmod(mode)
        return path


class WholeSite(SiteTest):
    """One database, one policy server, four filters."""

    def setUp(self):
        super().setUp()
        self.installation = Installation(self.directory)
        with self.installation.database() as db:
            db.execute("INSERT INTO administrator (name, is_root) VALUES ('admin', 1)")
            db.commit()
        self.installation.change("Spammers", ["refused@bad.test"])
        self.zaroctl("rule", "add", "--as", "admin", "--for-all", "--list", "Spammers:block", "--action", "Delete",
                     "--reply", "no", "refuse")

    def zaroctl(self, *arguments, **more):
        return run_zaroctl(self.installation.home, *arguments, **more)

    def start_server(self):
        server = Server(self.installation)
        self.addCleanup(server.stop)
        return server.start()

    def test_a_change_counts_everywhere_at_once_and_mail_goes_on_without_servers(self):
        server = self.start_server()
        filters = [self.filter_host(f"filter{number}", self.installation.port).start() for number in range(4)]
        for one in filters:
            wait_until(lambda one=one: one.refuses("refused@bad.test"), "the first policy counts")
            self.assertFalse(one.refuses("other@bad.test"))
        wait_until(lambda: server.metric("zaro_server_held_requests") == 4, "the server holds the filters' questions")
        self.zaroctl("group", "modify", "Spammers", "--add", "other@bad.test")
        began = time.monotonic()
        for one in filters:
            wait_until(lambda one=one: one.refuses("other@bad.test"), "the change counts")
        took = time.monotonic() - began
        print(f"a change counted on {len(filters)} filters after {took:.2f} s", flush=True)
        # The servers hold a question for 25 seconds, and the filters look each hour.
        self.assertLess(took, 20)

        self.installation.take_database_away()
        self.assertTrue(all(one.refuses("other@bad.test") for one in filters))
        self.assertEqual(server.stop(), 0)
        self.assertTrue(all(one.refuses("other@bad.test") for one in filters))
        began = time.monotonic()
        self.assertEqual(filters[0].stop(), 0)
        filters[0].start()
        self.assertTrue(filters[0].refuses("other@bad.test"))
        self.assertFalse(filters[0].refuses("third@bad.test"))

        # And all of it comes back.
        self.installation.give_database_back()
        self.start_server()
        self.zaroctl("group", "modify", "Spammers", "--add", "third@bad.test")
        for one in filters:
            one.reload()
            wait_until(lambda one=one: one.refuses("third@bad.test"), "the servers are found again")
            self.assertEqual(one.stop(), 0)

    def test_a_database_from_a_backup_counts_again_when_its_version_is_raised(self):
        server = self.start_server()
        host = self.filter_host("filter", self.installation.port).start()
        wait_until(lambda: host.refuses("refused@bad.test"), "the first policy counts")
        backup = self.directory / "backup"
        self.zaroctl("backup", str(backup))
        self.zaroctl("group", "modify", "Spammers", "--add", "other@bad.test")
        wait_until(lambda: host.refuses("other@bad.test"), "the change counts")
        server.stop()
        for name in ("zaro.db-wal", "zaro.db-shm"):
            (self.installation.home / "data" / name).unlink(missing_ok=True)
        shutil.copyfile(backup, self.installation.home / "data" / "zaro.db")
        self.start_server().wait_for_log("the database's counter went back from ")
        host.reload()
        host.wait_for_log("hands out version")
        self.assertTrue(host.refuses("other@bad.test"))
        self.zaroctl("policy", "raise", re.search(r"this host has (\d+) already", host.log()).group(1))
        wait_until(lambda: not host.refuses("other@bad.test"), "what came back counts")
        self.assertTrue(host.refuses("refused@bad.test"))

    def test_over_tls_with_a_token(self):
        authority = Certificates(self.directory)
        certificate, key = authority.make("server")
        self.installation.set(protocol="HTTPS", certificate=certificate, private_key=key,
                              token_file=self.installation.write("tokens", TOKEN + "\n"))
        server = self.start_server()
        given = self.secret("token", "another-token\n")
        host = self.filter_host("filter", self.installation.port, ca=authority.ca, token_file=given)
        host.set("protocol=HTTPS")
        self.assertIn("does not take this host for a client", run_zaroctl(host.home, "policy", "fetch", status=77)[1])
        host.start()
        host.wait_for_log("does not take this host for a client")
        given.write_text(TOKEN + "\n", encoding="ascii")
        host.reload()
        wait_until(lambda: host.refuses("refused@bad.test"), "the new token counts")
        self.zaroctl("group", "modify", "Spammers", "--add", "other@bad.test")
        wait_until(lambda: host.refuses("other@bad.test"), "the change counts")
        for token in (TOKEN, "another-token"):
            self.assertNotIn(token, server.log() + host.log())

    def test_fetch_show_and_diff(self):
        self.start_server()
        kept = self.directory / "policy.snapshot"
        out, _ = self.zaroctl("policy", "fetch", "--output", str(kept))
        self.assertIn(f"server\t127.0.0.1:{self.installation.port}\n", out)
        self.assertEqual(kept.stat().st_mode & 0o777, 0o600)
        out, _ = self.zaroctl("policy", "fetch")
        self.assertEqual(out, kept.read_text(encoding="utf-8"))
        shown, _ = self.zaroctl("policy", "show", str(kept))
        self.assertIn("lists Spammers:block; compare envelope; action Delete; reply no", shown)
        self.assertEqual(self.zaroctl("policy", "show", "-", given=out)[0], shown)
        self.assertEqual(self.zaroctl("policy", "diff", str(kept)), ("", ""))
        self.zaroctl("group", "modify", "Spammers", "--add", "new@bad.test")
        differences, _ = self.zaroctl("policy", "diff", str(kept), status=1)
        self.assertIn("added\tgroup\t", differences)
        self.assertIn("\tSpammers\tmember\t-\tnew@bad.test\n", differences)
        self.assertEqual(len(differences.splitlines()), 1)


class FilterOfADatabase(SiteTest):
    def test_check_tells_once_that_the_database_is_away(self):
        installation = Installation(self.directory)
        installation.take_database_away()
        done = subprocess.run([ZAROFILTERD, "--home", str(installation.home), "--check"], env=environment(),
                              capture_output=True, text=True, timeout=PATIENCE, check=False)
        self.assertEqual(done.returncode, 78)
        told = done.stderr.splitlines()
        self.assertEqual([line.partition(": ")[0] for line in told], ["zarofilterd"] * 2)
        self.assertIn("only the settings of this host count: ", told[0])

    def test_a_start_that_waits_for_the_database_ends_when_it_is_told_to(self):
        installation = Installation(self.directory)
        installation.hang_database()
        host = Filter(installation.home)
        self.addCleanup(host.stop)
        host.launch()
        wait_until(lambda: takes_signals(host.process), "the filter takes signals")
        self.assertEqual(host.stop(), 0)
        self.assertIn("info: ended", host.log())
        self.assertNotIn("info: ready", host.log())


class FilterOfAFake(SiteTest):
    """What a filter makes of servers that fail in some way."""

    def setUp(self):
        super().setUp()
        self.server = self.fake_server()
        self.server.answer(snapshot(7), ETag='"7-a"')

    def test_what_is_no_newer_whole_policy_is_refused(self):
        host = self.filter_host("filter", self.server.port).start()
        self.assertTrue(host.refuses("refused@bad.test"))
        self.assertIn("policy\t-\t", run_zaroctl(host.home, "policy", "show")[0])
        whole = snapshot(8, "other@bad.test")
        for name, body, why in (
                ("tampered", whole.replace(b"other@bad.test", b"othex@bad.test"), "it was changed"),
                ("truncated", whole[:whole.rindex(b'{"sha256"')], "it is cut"),
                ("cut in a line", whole[:200], "no whole snapshot"),
                ("older", snapshot(6, "other@bad.test"), "hands out version 6, and this host has 7 already")):
            with self.subTest(name):
                self.server.answer(body)
                host.reload()
                host.wait_for_log(why)
                self.assertTrue(host.refuses("refused@bad.test"))
                self.assertFalse(host.refuses("other@bad.test"))
        self.assertEqual(host.stop(), 0)

        # What is kept on disk is no older either.
        self.server.answer(snapshot(6, "other@bad.test"))
        host.start()
        host.wait_for_log("hands out version 6", 2)
        self.assertTrue(host.refuses("refused@bad.test"))

        # After a restore the administrator takes the older one.
        self.assertEqual(host.stop(), 0)
        run_zaroctl(host.home, "policy", "fetch", "--output", str(host.home / "state" / "policy.snapshot"))
        host.start()
        self.assertTrue(host.refuses("other@bad.test"))

        self.server.answer(gzip.compress(whole), Content_Encoding="gzip")
        host.reload()
        host.wait_for_log("policy 8 decides")

    def test_a_server_that_does_not_hold_questions_is_asked_by_the_clock(self):
        host = self.filter_host("filter", self.server.port)
        host.set("mail_filter.poll_secs=1")
        for name, body, status, headers in (
                ("nothing new", b"", 304, {}), ("the same again", snapshot(7), 200, {"ETag": '"7-a"'}),
                ("another tag each time", snapshot(7), 200, {"ETag": '"7-b"'}), ("no tag", snapshot(7), 200, {})):
            with self.subTest(name):
                self.server.answer(snapshot(7), ETag='"7-a"')
                host.start()
                self.server.answer(body, status, **headers)
                asked = len(self.server.requests)
                began = time.monotonic()
                wait_until(lambda: len(self.server.requests) >= asked + 3, "the server is asked again")
                # Three pauses of a second each, but for the one that may be over already and the first answer of another kind.
                self.assertGreater(time.monotonic() - began, 0.9)
                self.assertEqual(host.stop(), 0)
        self.assertIn(("/v1/policy?wait=25", '"7-a"'),
                      [(path, headers.get("If-None-Match")) for path, headers in self.server.requests])

    def test_the_next_server_is_asked_and_told_of(self):
        metrics = free_port()
        other = self.fake_server(port=self.server.port, address="127.0.0.2")
        other.answer(snapshot(7), ETag='"7-a"')
        self.server.answer(b"", 503)
        host = self.filter_host("filter", self.server.port, hosts="127.0.0.1,127.0.0.2")
        host.set(f"mail_filter.metrics=127.0.0.1:{metrics}")
        host.start()
        self.assertTrue(host.refuses("refused@bad.test"))
        text = subprocess.run(["curl", "--silent", f"http://127.0.0.1:{metrics}/metrics"], capture_output=True, check=True,
                              timeout=PATIENCE, text=True).stdout
        self.assertIn(f'zaro_filter_policy_server_answers_total{{server="127.0.0.2:{self.server.port}"}}', text)
        self.assertIn("zaro_filter_policy_server_answer_timestamp_seconds{", text)

    def test_a_server_is_left_alone_also_before_the_first_policy_came(self):
        host = self.filter_host("filter", self.server.port, hosts="127.0.0.1,127.0.0.2").start()
        self.assertEqual(host.stop(), 0)
        other = self.fake_server(port=self.server.port, address="127.0.0.2")
        self.server.answer(b"", 503, Retry_After="60")
        other.answer(b"", 503)
        asked = len(self.server.requests)
        host.start()
        wait_until(lambda: len(other.requests) >= 3, "the other server is asked again")
        self.assertEqual(len(self.server.requests), asked + 1)
        host.reload()
        wait_until(lambda: len(self.server.requests) == asked + 2, "a reload that was asked for does not wait")

    def test_the_settings_of_all_hosts_count_while_their_database_is_away(self):
        installation = Installation(self.directory)
        with installation.database() as db:
            db.execute("UPDATE global_setting SET value = ? WHERE section = 'policy_server' AND name = 'PolicyServerPort'",
                       (self.server.port,))
            db.executemany("INSERT INTO global_setting (section, name, value) VALUES ('mail_filter', ?, ?)",
                           {"source": "policy_server", **FILTER_SETTINGS}.items())
            db.commit()
        host = Filter(installation.home)
        self.addCleanup(host.stop)
        host.start()
        self.assertTrue(host.refuses("refused@bad.test"))
        self.assertEqual(host.stop(), 0)
        installation.take_database_away()
        self.server.answer(snapshot(8, "other@bad.test"), ETag='"8-a"')
        done = subprocess.run([ZAROFILTERD, "--home", str(host.home), "--check"], env=environment(), capture_output=True,
                              text=True, timeout=PATIENCE, check=False)
        self.assertEqual(done.returncode, 0, done.stderr)
        self.assertIn("are those that the database had last", done.stderr)
        self.assertIn("generation\t8\n", done.stdout)
        host.start()
        wait_until(lambda: host.refuses("other@bad.test"), "the server is asked without the database")
        self.assertIn("are those that the database had last", host.log())

    def test_check_needs_no_database(self):
        host = self.filter_host("filter", self.server.port)
        done = subprocess.run([ZAROFILTERD, "--home", str(host.home), "--check"], env=environment(), capture_output=True,
                              text=True, timeout=PATIENCE, check=False)
        self.assertEqual(done.returncode, 0)
        self.assertNotIn("zaroctl:", done.stderr)
        self.assertIn("generation\t7\n", done.stdout)
        self.server.answer(b"", 401)
        done = subprocess.run([ZAROFILTERD, "--home", str(host.home), "--check"], env=environment(), capture_output=True,
                              text=True, timeout=PATIENCE, check=False)
        self.assertEqual(done.returncode, 77)
        self.assertIn("does not take this host for a client", done.stderr)

    def test_a_silent_server_holds_up_neither_the_start_nor_the_end(self):
        host = self.filter_host("filter", self.server.port).start()
        self.assertEqual(host.stop(), 0)
        silent = self.fake_server()
        silent.server.RequestHandlerClass.do_GET = lambda handler: time.sleep(2 * PATIENCE)
        host.set(f"PolicyServerPort={silent.port}")
        began = time.monotonic()
        host.start()
        self.assertTrue(host.refuses("refused@bad.test"))
        self.assertEqual(host.stop(), 0)
        self.assertLess(time.monotonic() - began, 25)


class ExitStatus(SiteTest):
    """`zaroctl policy fetch` as a script sees it."""

    def setUp(self):
        super().setUp()
        self.server = self.fake_server()
        self.home = self.directory / "host"
        run_zaroctl(self.home, "init", "--filter-only", "--policy-server", "127.0.0.1")
        run_zaroctl(self.home, "settings", "set", "--host", f"PolicyServerPort={self.server.port}")

    def fetch(self, status, *arguments):
        return run_zaroctl(self.home, "policy", "fetch", *arguments, status=status)[1]

    def test_tells_what_a_script_can_do(self):
        for body, answered, status in ((snapshot(7), 200, 0), (snapshot(7)[:-9], 200, 65), (b"", 401, 77), (b"", 403, 77),
                                       (b"", 503, 75), (b"", 404, 69), (b"", 302, 69)):
            with self.subTest(answered):
                self.server.answer(body, answered)
                self.fetch(status)
        self.assertIn("cannot be reached", self.fetch(75, "--host", "127.0.0.9"))
        self.fetch(65, "--host", "user@127.0.0.9")

    def test_a_result_by_key_is_not_the_snapshot(self):
        self.server.answer(snapshot(7))
        fetched = json.loads(run_zaroctl(self.home, "policy", "fetch", "--json")[0])
        self.assertEqual((fetched["server"], fetched["file"], fetched["bytes"], fetched["version"]),
                         (f"127.0.0.1:{self.server.port}", None, len(snapshot(7)), 7))
        self.assertEqual(run_zaroctl(self.home, "policy", "fetch", "-q", "rules")[0], "1\n")
        self.assertEqual(run_zaroctl(self.home, "policy", "fetch", "-q", "file")[0], "\n")
        self.assertEqual(run_zaroctl(self.home, "policy", "fetch", "-q", "made_at", status=64)[0], "")

    def test_a_key_of_the_other_kind_of_installation_has_no_value(self):
        host = self.directory / "by-key"
        for key, value in (("schema", ""), ("sample", ""), ("policy_server", "a.test")):
            with self.subTest(key):
                self.assertEqual(run_zaroctl(host, "init", "--filter-only", "--policy-server", "a.test", "-q", key)[0], value + "\n")
                shutil.rmtree(host)

    def test_an_installation_for_a_filter_is_whole_or_refused(self):
        other = self.directory / "other"
        for arguments in (("--filter-only",), ("--policy-server", "a.test"), ("--filter-only", "--policy-server", "a b"),
                          ("--filter-only", "--policy-server", ""), ("--filter-only", "--policy-server", "a.test", "--sample"),
                          ("--filter-only", "--policy-server", "a.test", "--db", "postgresql")):
            with self.subTest(arguments):
                run_zaroctl(other, "init", *arguments, status=64)
                self.assertFalse(other.exists())
        self.assertEqual(sorted(path.name for path in (self.home / "config").iterdir() if not path.name.endswith("lock")),
                         ["zaro.ini"])
        self.assertIn("policy_client\thost\t127.0.0.1\t127.0.0.1\tzaro.ini\t-\n",
                      run_zaroctl(self.home, "settings", "client")[0])

    def test_check_knows_a_host_without_a_database(self):
        self.assertEqual({line.split("\t")[0] for line in run_zaroctl(self.home, "check")[0].splitlines()}, {"ok"})
        token = self.secret("token", TOKEN, 0o644)
        run_zaroctl(self.home, "settings", "set", "--host", f"policy_client.token_file={token}")
        self.assertIn("other users may read or write it", run_zaroctl(self.home, "check", status=78)[0])

    def test_a_failure_leaves_the_file_as_it_is(self):
        kept = self.directory / "kept"
        kept.write_text("before")
        self.server.answer(snapshot(7)[:-9])
        self.fetch(65, "--output", str(kept))
        self.assertEqual(kept.read_text(), "before")
        self.server.answer(snapshot(7))
        self.fetch(0, "--output", str(kept))
        self.assertEqual(kept.read_bytes(), snapshot(7))
        self.fetch(73, "--output", str(kept / "below"))
        self.assertEqual([name for name in os.listdir(self.directory) if name.startswith("kept")], ["kept"])

    def test_an_answer_that_drips_is_broken_off(self):
        run_zaroctl(self.home, "settings", "set", "--host", "policy_client.recv_timeout_secs=1", "policy_client.send_timeout_secs=1")
        self.server.drip(10_000_000)
        self.assertIn("does not answer in time", self.fetch(75))

    def test_a_token_is_sent_and_never_shown(self):
        token = self.secret("token", TOKEN + "\n")
        run_zaroctl(self.home, "settings", "set", "--host", f"policy_client.token_file={token}")
        self.server.answer(snapshot(7))
        self.fetch(0)
        self.assertEqual(self.server.requests[-1][1]["Authorization"], "Bearer " + TOKEN)
        for status in (401, 302, 500):
            self.server.answer(b"", status, Location=f"http://127.0.0.1:{self.server.port}/elsewhere")
            self.assertNotIn(TOKEN, self.fetch(77 if status == 401 else 69))
        self.assertNotIn("/elsewhere", [path for path, _ in self.server.requests])
        token.chmod(0o644)
        asked = len(self.server.requests)
        self.assertIn("other users may read or write it", self.fetch(78))
        self.assertEqual(len(self.server.requests), asked)


class Snapshots(SiteTest):
    """`zaroctl policy show` and `policy diff` on files, which need no installation."""

    def write(self, name, text):
        (self.directory / name).write_bytes(text)
        return str(self.directory / name)

    def zaroctl(self, *arguments, status=0, given=None):
        return run_zaroctl(self.directory / "none", "policy", *arguments, status=status, given=given)

    def test_differences_are_told_one_by_one(self):
        before = snapshot(7)
        old = self.write("old", before)
        lines = before.splitlines(keepends=True)[:-1]
        for part, by, told in (
                (b'"version":7', b'"version":8', None),
                (b'"members":["refused@bad.test"]', b'"members":["other@bad.test"]',
                 ["removed\tgroup\t2\tlist\tmember\trefused@bad.test\t-", "added\tgroup\t2\tlist\tmember\t-\tother@bad.test"]),
                (b'"name":"list"', b'"name":"renamed"',
                 ["changed\trule\t1\trefuse\tlists\tlist:block\trenamed:block", "changed\tgroup\t2\trenamed\tname\tlist\trenamed"]),
                (b'"reply":"no"', b'"reply":""', ["changed\trule\t1\trefuse\treply\tno\t-"]),
                (b'"enabled":true', b'"enabled":false', ["changed\trule\t1\trefuse\tenabled\tyes\tno"]),
                (b'"rule":1', b'"rule":9', ["removed\trule\t1\trefuse\t-\t-\t-", "added\trule\t9\trefuse\t-\t-\t-"]),
                (b'"manual":false', b'"manual":true', ["changed\torder\t0\torder of rule filters\tmanual\tno\tyes"])):
            with self.subTest(part):
                new = self.write("new", with_digest(b"".join(lines).replace(part, by)))
                out, _ = self.zaroctl("diff", old, new, status=1 if told else 0)
                self.assertEqual(sorted(out.splitlines()), sorted(told or []))
        found = json.loads(self.zaroctl("diff", "--json", old, new, status=1)[0])
        self.assertEqual((found["before"], found["after"], len(found["differences"])), (7, 7, 1))

    def test_actions_that_are_no_bitmap_are_shown_as_they_are(self):
        whole = snapshot(7)
        lines = whole.splitlines(keepends=True)[:-1]
        wrong = self.write("wrong", with_digest(b"".join(lines).replace(b'"1' + b"0" * 16 + b'"', b'"no bitmap"')))
        self.assertIn("action no bitmap;", self.zaroctl("show", wrong)[0])
        out, _ = self.zaroctl("diff", self.write("whole", whole), wrong, status=1)
        self.assertEqual(out, "changed\trule\t1\trefuse\taction\tDelete\tno bitmap\n")

    def test_what_is_no_snapshot_is_refused(self):
        whole = self.write("whole", snapshot(7))
        bad = self.write("bad", snapshot(7)[:-9])
        for arguments, status in ((("show", bad), 65), (("diff", bad, whole), 65), (("diff", whole, bad), 65),
                                  (("show", str(self.directory / "none")), 74), (("diff", "-", "-"), 64), (("show", whole), 0)):
            with self.subTest(arguments):
                self.zaroctl(*arguments, status=status)
        shown = json.loads(self.zaroctl("show", "--json", whole)[0])
        self.assertEqual((shown["version"], shown["made_at"], shown["rules"]), (7, "2026-01-01T00:00:00Z", 1))
        self.assertEqual([entry["members"] for entry in shown["entries"] if entry["kind"] == "group"], [["refused@bad.test"]])


class Tls(SiteTest):
    """Certificates of servers and clients."""

    def setUp(self):
        super().setUp()
        for name in ("right", "wrong"):
            (self.directory / name).mkdir()
        self.right = Certificates(self.directory / "right")
        self.wrong = Certificates(self.directory / "wrong")
        self.home = self.directory / "host"
        run_zaroctl(self.home, "init", "--filter-only", "--policy-server", "127.0.0.1")

    def serve(self, authority, **more):
        certificate, key = authority.make("server")
        server = self.fake_server(certificate=certificate, key=key, **more)
        server.answer(snapshot(7))
        self.set(f"PolicyServerPort={server.port}", "protocol=HTTPS", f"policy_client.ca={self.right.ca}")
        return server

    def set(self, *settings):
        run_zaroctl(self.home, "settings", "set", "--host", *settings)

    def fetch(self, status, *arguments):
        return run_zaroctl(self.home, "policy", "fetch", *arguments, status=status)[1]

    def test_only_servers_of_the_right_authority_and_name_count(self):
        server = self.serve(self.right)
        self.fetch(0)
        self.assertIn("localhost", self.fetch(69, "--host", "localhost"))
        self.set(f"policy_client.ca={self.wrong.ca}")
        self.assertIn("certificate", self.fetch(69))
        self.set("policy_client.ca=")
        self.assertIn("certificate", self.fetch(69))  # the system's authorities know none of these
        self.set("policy_client.ca=/nowhere.pem")
        self.fetch(78)
        self.assertEqual(len(server.requests), 1)

    def test_a_client_proves_itself_by_its_certificate(self):
        server = self.serve(self.right, client_ca=self.right.ca)
        self.fetch(75)
        self.assertEqual(server.requests, [])
        certificate, key = self.right.make("client")
        self.set(f"policy_client.certificate={certificate}", f"policy_client.private_key={key}")
        self.fetch(0)
        key.chmod(0o644)
        self.assertIn("other users may read or write it", self.fetch(78))

    def test_a_key_with_a_password_is_refused_and_none_asked_for(self):
        self.serve(self.right, client_ca=self.right.ca)
        certificate, key = self.right.make("client")
        for form in (["pkcs8", "-topk8"], ["ec", "-aes256"]):
            with self.subTest(form[0]):
                encrypted = self.directory / f"encrypted-{form[0]}.key"
                subprocess.run(["openssl", *form, "-in", key, "-out", encrypted, "-passout", "pass:secret"], check=True,
                               capture_output=True, timeout=PATIENCE)
                encrypted.chmod(0o600)
                self.set(f"policy_client.certificate={certificate}", f"policy_client.private_key={encrypted}")
                _, told = run_zaroctl(self.home, "policy", "fetch", status=78, given="secret\n")
                self.assertIn("have no password", told)
                self.assertNotIn("Enter", told)


if __name__ == "__main__":
    unittest.main()
