"""Upgrades of the schema that are killed, and upgrades while programs of the old version and of the new one work."""

import pathlib
import random
import shutil
import signal
import subprocess
import sys
import threading
import time

import calls
import installation

TESTS = pathlib.Path(__file__).parent.parent
sys.path += [str(TESTS / "mail"), str(TESTS / "policyserver")]

import mailtest  # noqa: E402
import servertest  # noqa: E402

VERSION_1 = TESTS / "integration" / "programs" / "version-1"

# Of the tables that version 1 has.
OLD_ROWS = (
    "SELECT id, name, is_root FROM administrator", "SELECT id, name, type FROM entity",
    "SELECT administrator_id, entity_id FROM administrator_entity", "SELECT id, type, name, content FROM named_object",
    "SELECT entity_id, object_id, object_type FROM named_object_owner", "SELECT id, name, quarantine_id FROM policy_rule",
    "SELECT rule_id, object_id FROM policy_rule_object",
    "SELECT group_id, group_type, position, address FROM address_group_member",
    "SELECT section, name, value FROM global_setting", "SELECT scanner_id, type, ip_addr, agent_port FROM component",
    "SELECT rule_order, filter_id, filter_type FROM manual_rule_order")


def skeleton(directory, dialect):
    """That of an installation of version 1, with data, and with the scripts that upgrade it."""
    share = pathlib.Path(installation.ZAROCTL).parent.parent / "share" / "zaropolicy" / "home"
    shutil.copytree(share, directory)
    shutil.copy(VERSION_1 / f"schema.{dialect}.sql", directory / "sql" / dialect / "schema.sql")
    shutil.copy(VERSION_1 / "data.sql", directory / "sample" / "sample.sql")
    return directory


def make_old(make, directory):
    old = skeleton(directory.parent / (directory.name + "-skeleton"), make.dialect)
    return make(directory, ("--sample", "--skeleton", str(old)))


def old_rows(made):
    return {f"{number} {line}" for number, query in enumerate(OLD_ROWS) for line in made.lines(query)}


def version_of(made):
    return int(made.value("SELECT max(version) FROM schema_version"))


def schema_of(made):
    if made.dialect == "postgresql":
        return sorted(made.lines(
            "SELECT table_name || '.' || column_name || ' ' || data_type FROM information_schema.columns WHERE "
            "table_schema = 'public'; SELECT indexdef FROM pg_indexes WHERE schemaname = 'public'; "
            "SELECT pg_get_triggerdef(oid) FROM pg_trigger WHERE NOT tgisinternal; "
            "SELECT pg_get_constraintdef(oid) FROM pg_constraint WHERE connamespace = 'public'::regnamespace"))
    return sorted(made.lines("SELECT type, name, tbl_name, sql FROM sqlite_master"))


def kill_upgrades(make, directory, report, how_many):
    """At a call of the driver manager, at a system call, or at some time. The version is one of those on the way; the status tells it; the
    next upgrade goes on from there."""
    made = make_old(make, directory)
    library = calls.Calls(made.saved)
    rows = old_rows(made)
    counts = {}
    for kind in (calls.ODBC, calls.SYSTEM):
        library.arm(kind)
        began = time.monotonic()
        done = made.zaroctl("schema", "upgrade", environment=library.environment)
        assert done.status == 0, done
        took = time.monotonic() - began
        counts[kind] = library.count()
        schema, last = schema_of(made), version_of(made)
        made.restore()
    for number in range(how_many):
        kind = (calls.ODBC, calls.SYSTEM, None)[number % 3]
        if kind is None:
            process = subprocess.Popen([installation.ZAROCTL, "schema", "upgrade"], stdout=subprocess.DEVNULL,
                                       stderr=subprocess.DEVNULL,
                                       env={**installation.clean_environment(), "ZARO_HOME": str(made.home)})
            time.sleep(random.uniform(0, took))
            process.kill()
            status = process.wait()
        else:
            library.arm(kind, random.randrange(1, counts[kind] + 1), action=calls.KILL)
            status = made.zaroctl("schema", "upgrade", environment=library.environment).status
        what = f"{made.dialect}: upgrade killed {'at some time' if kind is None else 'at ' + library.name()}"
        report.count(f"{made.dialect}: upgrades killed", status == -signal.SIGKILL)
        made.wait_for_killed()
        version = version_of(made)
        told = made.zaroctl("schema", "status")
        if f"version\t{version}\n" not in told.out or told.status != (0 if version == last else 1):
            report.add(f"{what}: version {version}, but status tells {told.out}")
        if old_rows(made) != rows:
            report.add(f"{what}: rows are lost or new")
        again = made.zaroctl("schema", "upgrade")
        if again.status != 0 or schema_of(made) != schema or old_rows(made) != rows:
            report.add(f"{what}: it cannot be finished: {again.status}", again.err)
        made.restore()
    made.remove()


class Load:
    """Programs at work on the database, until they are told to end."""

    def __init__(self, made, report):
        self.made = made
        self.report = report
        self.over = threading.Event()
        self.acknowledged = set()
        self.tried = set()
        self.reads = {"old": 0, "new": 0}
        self.threads = [threading.Thread(target=work) for work in (
            self._write_as_old, self._write_as_new, self._write_as_new, self._read_as_old, self._read_as_new)]
        self.number = 0
        self.lock = threading.Lock()

    def start(self):
        for thread in self.threads:
            thread.start()

    def end(self):
        self.over.set()
        for thread in self.threads:
            thread.join()

    def _name(self, kind):
        with self.lock:
            self.number += 1
            name = f"*@{kind}{self.number}.test"
            self.tried.add(name)
            return name

    def _write_as_old(self):
        """As a program of the old version does it: on no other version."""
        while not self.over.is_set():
            name = self._name("old")
            statement = (f"INSERT INTO entity (type, name) SELECT 6, '{name}' WHERE (SELECT max(version) FROM schema_version) = 1 "
                         "RETURNING name")
            if self.made.changes(statement):
                self.acknowledged.add(name)

    def _write_as_new(self):
        while not self.over.is_set():
            name = self._name("new")
            done = self.made.zaroctl("entity", "add", name)
            if done.status == 0:
                self.acknowledged.add(name)
            elif done.status not in (75, 78):
                self.report.add(f"{self.made.dialect}: a new program wrote meanwhile: {done.status}", done.err)

    def _read_as_old(self):
        while not self.over.is_set():
            if self.made.value("SELECT count(*) FROM address_group_member") == "0":
                self.report.add(f"{self.made.dialect}: an old program read no members meanwhile")
            self.reads["old"] += 1

    def _read_as_new(self):
        while not self.over.is_set():
            done = self.made.zaroctl("group", "show", "Board")
            right = "chair@example.test\ntreasurer@example.test\nsecretary@example.test\n"
            if done.status not in (0, 75, 78) or (done.status == 0 and done.out != right):
                self.report.add(f"{self.made.dialect}: a new program read meanwhile: {done.status}", done.out + done.err)
            self.reads["new"] += 1


class RunningServices:
    """A filter and a policy server of the new version, started on the old database."""

    def __init__(self, made):
        self.home = made.home
        path = made.home / "config" / "zaro.ini"
        port = servertest.free_port()
        path.write_text(path.read_text(encoding="utf-8") + f"\n[mail_filter]\npoll_secs=1\n\n[policy_server]\nPolicyServerPort={port}\n",
                        encoding="utf-8")
        self.port = port
        self.filter = mailtest.Filter(self)
        self.server = None
        self.server_log = made.home / "server.log"

    def start(self):
        self.filter.start()
        with open(self.server_log, "ab") as log:
            self.server = subprocess.Popen([servertest.ZAROPOLICYD, "--home", str(self.home), "--foreground"], stderr=log,
                                           env=installation.clean_environment())

    def wait_for_policy(self):
        self.filter.wait_for_log(" decides: ")
        mailtest.wait_until(lambda: " is served: " in self.server_log.read_text(encoding="utf-8", errors="replace"),
                            "the policy is served")
        answer = servertest.curl(f"http://127.0.0.1:{self.port}/v1/policy")
        assert answer.status == 200, answer

    def stop(self):
        self.filter.stop()
        if self.server is not None:
            self.server.terminate()
            self.server.wait(mailtest.PATIENCE)


def upgrade_under_load(make, directory, report, times):
    made = make_old(make, directory)
    rows = old_rows(made)
    made.zaroctl("schema", "upgrade")
    sound = made.zaroctl("check").status  # the data of version 1 hold what check tells of
    made.restore()
    services = RunningServices(made)
    made.save()
    for _ in range(times):
        load = Load(made, report)
        services.start()
        load.start()
        try:
            time.sleep(random.uniform(0.3, 1))
            before = len(load.acknowledged)
            done = made.zaroctl("schema", "upgrade")
            while done.status == 75:  # writers kept it from beginning
                report.count(f"{made.dialect}: upgrades that had to be tried again")
                done = made.zaroctl("schema", "upgrade")
            if done.status != 0:
                report.add(f"{made.dialect}: the upgrade under load ends with {done.status}", done.err)
            time.sleep(1)
            try:
                services.wait_for_policy()
            except AssertionError as failure:
                report.add(f"{made.dialect}: the services have no policy after the upgrade: {failure}",
                           services.filter.log()[-500:])
        finally:
            load.end()
            services.stop()
        stored = set(made.lines("SELECT name FROM entity"))
        if stored & load.tried != load.acknowledged:
            report.add(f"{made.dialect}: the upgrade lost writers' rows, or has some that were refused",
                       f"{sorted((stored & load.tried) ^ load.acknowledged)[:10]}")
        gone = {row for row in rows if row not in old_rows(made)}
        if gone:
            report.add(f"{made.dialect}: the upgrade under load lost rows", f"{sorted(gone)[:5]}")
        check = made.zaroctl("check")
        if check.status != sound:
            report.add(f"{made.dialect}: check ends with {check.status} after an upgrade under load", check.out)
        report.count(f"{made.dialect}: upgrades under load")
        report.count(f"{made.dialect}: writes acknowledged meanwhile", len(load.acknowledged))
        report.count(f"{made.dialect}: of them before the upgrade", before)
        report.count(f"{made.dialect}: reads meanwhile", sum(load.reads.values()))
        shutil.rmtree(made.home / "state", ignore_errors=True)
        made.restore()
    made.remove()

