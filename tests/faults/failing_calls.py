"""Every command, and the reloads of the services, with one call that fails: the allocation, the call of the driver manager,
the system call of every number, or so many of them as are asked for.

    failing_calls.py [HOW-MANY|all] [--seed N] [--only WORDS] [--every N]

A command that fails says so: by a documented status, with a message, and with everything as it was before; or it has made
its change and says that too. It never crashes, hangs, answers wrong, or leaves files behind, and its next call works."""

import argparse
import collections
import os
import pathlib
import random
import re
import sys
import tempfile
import time

import calls
import installation
from services import FilterUnderFaults, ServerUnderFaults

# The exit statuses of failures.
DOCUMENTED = {64, 65, 69, 73, 74, 75, 77, 78}

# What a command says that has made its change and failed afterwards, or does not know.
MADE = re.compile(r"the change is made, but | was [a-z ]+, but | were written, but |; it is done, but ")
IN_DOUBT = "whether it is stored is not known"

# Which calls, what becomes of them, the state that ODBC tells, and whether all that follow fail as well.
Fault = collections.namedtuple("Fault", "kinds action state forever", defaults=("HY000", False))
FAULTS = {
    "allocation": Fault(calls.ALLOCATION, calls.FAIL),
    "allocation of a driver": Fault(calls.DRIVER_ALLOCATION, calls.FAIL),
    "ODBC call refused": Fault(calls.ODBC, calls.FAIL),
    "ODBC connection lost": Fault(calls.ODBC, calls.FAIL, "08S01"),
    "ODBC connection lost for good": Fault(calls.ODBC, calls.FAIL, "08S01", True),
    "ODBC answer lost": Fault(calls.ODBC, calls.LOSE_ANSWER, "08S01"),
    "system call": Fault(calls.SYSTEM, calls.FAIL),
    "system calls for good": Fault(calls.SYSTEM, calls.FAIL, "", True),
}


class Findings:
    """What came of all calls that failed."""

    def __init__(self):
        self.tried = collections.Counter()
        self.unnoticed = collections.Counter()
        self.others_crashes = collections.Counter()
        self.found = 0

    def add(self, what, details):
        self.found += 1
        print(f"FOUND: {what}\n  {details}", flush=True)

    def summarise(self):
        for kind, count in self.tried.items():
            print(f"{kind}: {count} failed, {self.unnoticed[kind]} of them without an effect")
        for where, count in self.others_crashes.items():
            print(f"crashes within {where}: {count}")
        print(f"{sum(self.tried.values())} failing calls, {self.found} findings")


def chosen(count, how_many, first):
    """Numbers of calls. Those before `first` come in every command, to read what it is to do."""
    if how_many is None or count <= how_many:
        return range(1, count + 1)
    early = random.sample(range(1, first + 1), min(first, max(1, how_many // 8))) if count > first > 0 else []
    late = range(first + 1, count + 1) if count > first else range(1, count + 1)
    return sorted(early + random.sample(late, min(len(late), how_many - len(early))))


class Commands:
    def __init__(self, made, findings, how_many):
        self.made = made
        self.findings = findings
        self.how_many = how_many
        self.calls = calls.Calls(made.saved)

    def try_all(self, only, every):
        wanted = [row for row in self.made.commands() if " ".join(row[0]).startswith(only)]
        for arguments, given in wanted[random.randrange(every)::every]:
            self.try_command(arguments, given)

    def try_command(self, arguments, given):
        self.arguments, self.given = arguments, given
        self.intact, self.after, self.names_after = self._outcome()
        again, _, _ = self._outcome()
        self.is_repeatable = self.intact == again
        for kind, fault in FAULTS.items():
            self._try_fault(kind, fault)

    def _outcome(self, environment=None):
        result = self.made.zaroctl(*self.arguments, given=self.given, environment=environment)
        stored = self.made.stored()
        names = self.made.names()
        self._restore(stored)
        return result, stored, names

    def _restore(self, stored):
        """A reading command that left everything as it was leaves nothing to put back."""
        if stored != self.made.before or self.made.dialect == "postgresql" or self.made.names() != self.made.names_before:
            self.made.restore()

    def _try_fault(self, kind, fault):
        self.calls.arm(fault.kinds)
        installation.run(["--version"], environment=self.calls.environment)
        first = self.calls.count()
        self.calls.arm(fault.kinds)
        self._outcome(self.calls.environment)
        for number in chosen(self.calls.count(), self.how_many, first):
            self.calls.arm(fault.kinds, number, calls.FOREVER if fault.forever else number, fault.action, fault.state)
            result, stored, names = self._outcome(self.calls.environment)
            if self.calls.has_failed():
                self.findings.tried[kind] += 1
                what = (f"{self.made.dialect}: zaroctl {' '.join(self.arguments)}: {kind} {number}, {self.calls.name()}: "
                        f"status {result.status}")
                self._judge(kind, what, result, stored, names)

    def _judge(self, kind, what, result, stored, names):
        details = f"{result.err.strip()}\n  {result.out.strip()[:300]}"
        if result.status is None:
            self.findings.add(what + ": it hangs", details)
        elif result.status < 0:
            self._judge_crash(what, stored)
        elif result.status == self.intact.status:
            self._judge_unnoticed(kind, what, result, stored, details)
        elif result.status not in DOCUMENTED:
            self.findings.add(what + ": not a status of a failure", details)
        else:
            self._judge_failure(what, result, stored, details)
        leftovers = names - self.made.names_before - self.names_after
        # Where every call fails from now on, or the one that removes, nothing can be removed.
        cannot_remove = kind == "system calls for good" or self.calls.name() in ("unlink", "rmdir")
        # The end for want of memory within another library comes at once; the manual tells of what then stays.
        if "out of memory" in result.err:
            leftovers = {name for name in leftovers if not name.startswith(installation.STAYS)}
        if result.status is not None and result.status >= 0 and leftovers and not cannot_remove:
            self.findings.add(what + ": left behind: " + " ".join(sorted(leftovers)), details)

    def _judge_crash(self, what, stored):
        blamed = self.calls.blamed()
        if blamed:
            self.findings.others_crashes[blamed] += 1
        else:
            self.findings.add(what + ": it crashes", self.calls.culprit())
        if stored not in (self.made.before, self.after):
            self.findings.add(what + ": half of the change is there", self.calls.culprit())

    def _judge_unnoticed(self, kind, what, result, stored, details):
        self.findings.unnoticed[kind] += 1
        if stored != self.after:
            self.findings.add(what + ": the change is not what it should be", details + difference(self.after, stored))
        # What a check finds is told with the status of what it found.
        if self.is_repeatable and result.out != self.intact.out and result.err == self.intact.err:
            self.findings.add(what + ": it answers wrong", details)

    def _judge_failure(self, what, result, stored, details):
        if not result.err.strip() and not result.out.strip():
            self.findings.add(what + ": it does not say why", details)
        if stored == self.after and stored != self.made.before:
            if not MADE.search(result.err) and IN_DOUBT not in result.err:
                self.findings.add(what + ": the change is made, which it does not say", details)
        elif stored != self.made.before:
            self.findings.add(what + ": half of the change is made", details + difference(self.made.before, stored))
        elif MADE.search(result.err) and self.after != self.made.before:
            self.findings.add(what + ": the change is not made, although it says so", details)


def difference(wanted, found):
    return f"\n  missing: {sorted(wanted - found)[:5]}\n  too much: {sorted(found - wanted)[:5]}"


def try_commands(make, findings, how_many, only, every):
    shm = pathlib.Path("/dev/shm")
    with tempfile.TemporaryDirectory(prefix="zaro-faults-", dir=shm if os.access(shm, os.W_OK) else None) as directory:
        made = make(pathlib.Path(directory) / "site")
        try:
            made.names_before = made.names()
            Commands(made, findings, how_many).try_all(only, every)
        finally:
            made.remove()


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("how_many", nargs="?", default="4", help="calls of each kind of each command; or all")
    parser.add_argument("--seed", type=int, default=None)
    parser.add_argument("--only", default="", help="commands that begin so; of services, none")
    parser.add_argument("--every", type=int, default=1, help="of so many commands one; of services, fewer reloads alike")
    given = parser.parse_args()
    seed = given.seed if given.seed is not None else random.randrange(10**6)
    print(f"seed {seed}", flush=True)
    random.seed(seed)
    how_many = None if given.how_many == "all" else int(given.how_many)
    findings = Findings()
    began = time.monotonic()
    try_commands(installation.Installation, findings, how_many, given.only, given.every)
    if installation.SERVER["HOST"]:
        try_commands(installation.ServerInstallation, findings, max(1, how_many // 4) if how_many else 8, given.only,
                     given.every)
    else:
        print("PostgreSQL: left out, for there is no server; see scripts/with-postgres")
    if not given.only:
        reloads = 400 if how_many is None else max(1, 5 * how_many // given.every)
        for service in (FilterUnderFaults, ServerUnderFaults):
            service(findings).try_reloads(reloads)
    findings.summarise()
    print(f"{time.monotonic() - began:.0f} seconds")
    sys.exit(1 if findings.found else 0)


if __name__ == "__main__":
    main()
