"""Programs that are killed, power that fails, servers and connections that go, disks that are full, and upgrades meanwhile:
everything that was acknowledged is there, and nothing else.

    kills.py [HOW-MANY|SCENE] [--seed N] [--only SCENE]

HOW-MANY is how many times the programs are killed (40); the other scenes go by it. A scene alone is that one. PostgreSQL takes part where there is a server:
see scripts/with-postgres."""

import argparse
import collections
import os
import pathlib
import random
import signal
import sqlite3
import subprocess
import tempfile
import threading
import time

import calls
import crowd
import disk
import installation
import proxy
import results
import upgrades

class Report(results.Results):
    def __init__(self):
        super().__init__()
        self.counts = collections.Counter()

    def count(self, what, number=1):
        self.counts[what] += number
        self.tell(f"{what}: {self.counts[what]}")

    def summary(self):
        yield from (f"{what}: {count}" for what, count in self.counts.items())


class KilledCommands:
    """Each writing command in turn."""

    def __init__(self, made, report):
        self.made = made
        self.report = report
        self.calls = calls.Calls(made.saved)
        self.sound = made.zaroctl("check")
        self.names_before = made.names()
        self.calls.arm(calls.SYSTEM)
        self.writers = made.writing_commands(self.calls.environment, self._calls_of_the_last)
        report.count(f"{made.dialect}: commands that write", len(self.writers))

    def _calls_of_the_last(self):
        count = self.calls.count()
        self.calls.arm(calls.SYSTEM)
        return count

    def kill(self, how_many):
        for number in range(how_many):
            kill = self._kill_at_call if number % 2 else self._kill_at_some_time
            kill(random.choice(self.writers))
            self.made.restore()

    def _kill_at_some_time(self, writer):
        process = subprocess.Popen([installation.ZAROCTL, *writer.arguments], stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                   stderr=subprocess.DEVNULL,
                                   env={**installation.clean_environment(), "ZARO_HOME": str(self.made.home)})
        killer = threading.Timer(random.uniform(0, writer.took), process.kill)
        killer.start()
        out, _ = process.communicate(writer.given.encode())
        killer.cancel()
        self._judge(writer, process.returncode, out, "at some time", "")

    def _kill_at_call(self, writer):
        # What a process does to files comes late in its life.
        self.calls.arm(calls.SYSTEM, int(writer.calls * random.random() ** 0.5) + 1, action=calls.KILL)
        result = self.made.zaroctl(*writer.arguments, given=writer.given, environment=self.calls.environment)
        self._judge(writer, result.status, result.out, "at a system call", self.calls.name())

    def _judge(self, writer, status, out, when, call):
        what = f"{self.made.dialect}: zaroctl {' '.join(writer.arguments)}, killed {when} {call}"
        if status not in (writer.intact.status, -signal.SIGKILL):
            self.report.add(f"{what}: status {status}")
        self.report.count(f"{self.made.dialect}: commands killed {when}", status == -signal.SIGKILL)
        self.made.wait_for_killed()
        stored = self.made.stored()
        if stored not in (self.made.before, writer.after) or (status == writer.intact.status and stored != writer.after):
            self.report.add(f"{what}: status {status}, but half of it is there", f"{sorted(stored ^ self.made.before)[:6]}")
            return
        if out and stored == self.made.before:
            self.report.add(f"{what}: it has told of a change that is not there", out)
        check = self.made.zaroctl("check")
        if check.status != self.sound.status:
            self.report.add(f"{what}: check ends with {check.status}", check.out + check.err)
        if stored != self.made.before:
            return
        self.made.restore_numbers()
        again = self.made.zaroctl(*writer.arguments, given=writer.given)
        if again.status != writer.intact.status or self.made.stored() != writer.after:
            self.report.add(f"{what}: it cannot be done afterwards: {again.status}", again.err)
        left = [name for name in self.made.names() - self.names_before - writer.names if not name.startswith(installation.STAYS)]
        if left:
            self.report.add(f"{what}: left behind: {' '.join(sorted(left))}")


def lose_power(directory, report, how_many):
    """SQLite's file, its log, and the settings, as a disk has them when the power fails."""
    made = installation.Installation(directory / "power")
    library = calls.Calls(made.saved)
    log = disk.Log(made.saved / "disk.log", made.home)
    environment = {**library.environment, **log.environment}
    begin = disk.Disk(made.home)
    people = crowd.Crowd(made, environment=environment, told=log.mark)
    people.work(max(12, how_many // 8), workers=3, kill=0)
    settings = threading.Thread(target=crowd.change_settings, args=(made, 6, environment, log.mark))
    settings.start()
    people.work(max(12, how_many // 8), workers=2, kill=0)
    settings.join()
    records = list(log.records())
    points = sorted(random.choices(range(len(records) + 1), k=how_many))
    report.count("SQLite: calls on files among which the power failed", len(records))
    now, at = begin, 0
    acknowledged, began, setting = set(), set(), (None, None)
    place = directory / "recovered"
    for point in points:
        for record in records[at:point]:
            if record.call != disk.MARK:
                now.follow(record)
                continue
            word, _, key = record.data.decode().partition(" ")
            if word == "setting":
                setting = (setting[1], key) if setting[1] != key else setting
            elif word == "set":
                setting = (key, key)
            else:
                {"begins": began, "done": acknowledged}[word].add(key)
        at = point
        report.count("SQLite: power failures")
        expect_recovery(made, now.copy().lose_power(), place, people, acknowledged, began, setting, report)
    made.remove()


def expect_recovery(made, content, place, people, acknowledged, began, setting, report):
    subprocess.run(["rm", "-rf", place], check=True)
    for path, text in content.items():
        if "/gateway/data/" not in path and not path.endswith("/zaro.ini"):
            continue
        target = place / pathlib.Path(path).relative_to(made.home)
        target.parent.mkdir(parents=True, exist_ok=True)
        target.write_bytes(text)
    with installation.opened(place / "data" / "zaro.db") as database:
        try:
            sound = database.execute("PRAGMA integrity_check").fetchone()[0]
        except sqlite3.DatabaseError as failure:
            sound = str(failure)
        if sound != "ok":
            report.add(f"after a power failure: {sound}")
            return
        stored = people.stored(lambda query: database.execute(query).fetchone()[0])
    for key, state in stored.items():
        if state == "half" or (state == "none" and key in acknowledged) or (state == "whole" and key not in began):
            report.add(f"after a power failure: {key} is stored {state}, acknowledged: {key in acknowledged}")
    text = (place / "config" / "zaro.ini").read_text(encoding="utf-8")
    if setting[1] is not None and not any(value is None or f"recv_timeout_secs={value}\n" in text for value in setting):
        report.add(f"after a power failure: the settings have neither of {setting}", text)


def crash_server(directory, report, how_many):
    """PostgreSQL's processes are killed and started anew while commands write."""
    made = installation.ServerInstallation(directory / "crash")
    people = crowd.Crowd(made)
    over = threading.Event()

    def crash():
        while not over.wait(random.uniform(0.2, 1.0)):
            kind = random.choice(("backend", "all"))
            report.count(f"PostgreSQL: {'one process' if kind == 'backend' else 'all processes'} killed",
                         crowd.kill_server(kind))

    crashing = threading.Thread(target=crash)
    crashing.start()
    people.work(how_many, workers=4, kill=0.1)
    over.set()
    crashing.join()
    crowd.wait_for_server()
    people.judge("PostgreSQL is killed", report)
    made.remove()


def break_network(directory, report, how_many):
    """Connections go through a network that cuts, resets, delays and holds them."""
    network = proxy.Proxy(installation.SERVER["HOST"], installation.SERVER["PORT"], fails=False)
    made = installation.ServerInstallation(directory / "network", port=network.port)
    people = crowd.Crowd(made)
    network.fails = True
    people.work(how_many, workers=4, kill=0)
    network.fails = False
    made.wait_for_killed()
    people.judge("the network fails", report)
    for fate, count in network.counts.items():
        report.count(f"PostgreSQL: connections {fate}", count)
    network.stop()
    made.remove()


def take_all_connections(directory, report, _):
    """The server has no connection left; then it has one again."""
    made = installation.ServerInstallation(directory / "connections")
    taken = crowd.take_connections()
    for arguments in (["admin", "list"], ["admin", "add", "late"], ["settings", "set", "threads=8"], ["check"]):
        result = made.zaroctl(*arguments)
        report.count("PostgreSQL: commands without a connection left")
        if (result.status != 75 and arguments != ["check"]) or result.status in (0, None) or "too many" not in result.err + result.out:
            report.add(f"no connection left: zaroctl {' '.join(arguments)}: {result.status}", result.err + result.out)
    for one in taken:
        one.close()
    crowd.wait_for_server()
    if made.stored() != made.before or made.zaroctl("admin", "add", "late").status != 0:
        report.add("after all connections were taken, commands do not work")
    made.remove()


def fill_disk(directory, report, how_many):
    """On a file system of a few megabytes, with some kilobytes left: SQLite with the installation, and PostgreSQL's tables."""
    small = directory / "small"
    small.mkdir()
    if not crowd.mount(small, "6m"):
        print("disk: left out, since only root mounts file systems")
        return
    try:
        made = installation.Installation(small / "site")
        crowd.write_on_full_disk(made, small, report, max(4, how_many // 2))
        made.remove()
    finally:
        crowd.unmount(small)
    if not installation.SERVER["HOST"]:
        return
    if not crowd.mount(small, "40m", owner="postgres"):
        return
    try:
        installation.psql(f"CREATE TABLESPACE small LOCATION '{small}'")
        made = installation.ServerInstallation(directory / "full", tablespace="TABLESPACE small")
        crowd.write_on_full_disk(made, small, report, max(4, how_many // 4))
        made.remove()
        installation.psql("DROP TABLESPACE small")
    finally:
        crowd.unmount(small)


def kill_commands(directory, report, how_many):
    made = installation.Installation(directory / "killed")
    KilledCommands(made, report).kill(how_many)
    made.remove()
    if installation.SERVER["HOST"]:
        made = installation.ServerInstallation(directory / "killed-on-server")
        KilledCommands(made, report).kill(max(8, how_many // 4))
        made.remove()


def kill_crowds(directory, report, how_many):
    """Many commands at once, of which every second one is killed."""
    makers = [installation.Installation] + ([installation.ServerInstallation] if installation.SERVER["HOST"] else [])
    for make in makers:
        made = make(directory / f"crowd-{make.dialect}")
        people = crowd.Crowd(made)
        people.work(how_many, workers=4, kill=0.5)
        made.wait_for_killed()
        people.judge(f"{make.dialect}: commands are killed among others", report)
        report.count(f"{make.dialect}: commands killed among others", people.killed)
        made.remove()


def upgrade(directory, report, how_many):
    for make in [installation.Installation] + ([installation.ServerInstallation] if installation.SERVER["HOST"] else []):
        upgrades.kill_upgrades(make, directory / f"upgrade-{make.dialect}", report, max(4, how_many // 4))
        upgrades.upgrade_under_load(make, directory / f"load-{make.dialect}", report, max(1, how_many // 40))


SCENES = {"commands": kill_commands, "crowds": kill_crowds, "power": lose_power, "server": crash_server,
          "network": break_network, "connections": take_all_connections, "disk": fill_disk, "upgrade": upgrade}
ON_SERVER = ("server", "network", "connections")


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("how_many", nargs="?", default="40")
    parser.add_argument("--seed", type=int, default=None)
    parser.add_argument("--only", choices=SCENES, action="append")
    given = parser.parse_args()
    if given.how_many in SCENES:
        given.how_many, given.only = "40", [given.how_many]
    seed = given.seed if given.seed is not None else random.randrange(10**6)
    print(f"seed {seed}", flush=True)
    random.seed(seed)
    report = Report()
    report.finish(lambda: play(given.only or list(SCENES), report, int(given.how_many)))


def play(names, report, how_many):
    for name in names:
        if name in ON_SERVER and not installation.SERVER["CTL"]:
            print(f"{name}: left out, for there is no server of ours; see scripts/with-postgres")
            continue
        began = time.monotonic()
        with tempfile.TemporaryDirectory(prefix="zaro-kills-") as directory:
            os.chmod(directory, 0o755)
            SCENES[name](pathlib.Path(directory), report, how_many)
        print(f"{name}: {time.monotonic() - began:.0f} seconds", flush=True)


if __name__ == "__main__":
    main()
