"""Every command, and the reloads of the services, with one call that fails: the allocation, the call of the driver manager,
the system call of every number, or so many of them as are asked for.

    failing_calls.py [HOW-MANY|all] [--seed N] [--only WORDS]... [--every N] [--part PART]...

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
import results
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


class Findings(results.Results):
    """What came of all calls that failed."""

    def __init__(self):
        super().__init__()
        self.tried = collections.Counter()
        self.told = collections.Counter()
        self.others_crashes = collections.Counter()
        self.commands = collections.Counter()

    def summary(self):
        for dialect, count in self.commands.items():
            yield f"{dialect}: {count} commands"
        for kind, count in self.tried.items():
            what = ", ".join(f"{number} {told}" for (of, told), number in sorted(self.told.items()) if of == kind)
            yield f"{kind}: {count} failed" + (f": {what}" if what else "")
        yield from (f"crashes within {where}: {count}" for where, count in self.others_crashes.items())
        yield f"{sum(self.tried.values())} failing calls"


def spread(numbers, how_many):
    """So many of a range, one out of each part of it."""
    parts = [numbers[len(numbers) * at // how_many:len(numbers) * (at + 1) // how_many] for at in range(how_many)]
    return [random.choice(part) for part in parts if part]


def chosen(count, how_many, first):
    """Numbers of calls. Those before `first` come in every command, to read what it is to do."""
    if how_many is None or count <= how_many:
        return range(1, count + 1)
    early = min(first, max(1, how_many // 8)) if count > first > 0 else 0
    return spread(range(1, first + 1), early) + spread(range(first + 1 if early else 1, count + 1), how_many - early)


Outcome = collections.namedtuple("Outcome", "result stored names")


class Commands:
    def __init__(self, made, findings, how_many):
        self.made = made
        self.findings = findings
        self.how_many = how_many
        self.calls = calls.Calls(made.saved)

    def try_all(self, only, every):
        wanted = [row for row in self.made.commands() if " ".join(row[0]).startswith(tuple(only or [""]))]
        wanted = wanted[random.randrange(every)::every]
        for number, (arguments, given) in enumerate(wanted, 1):
            self.try_command(arguments, given)
            self.findings.commands[self.made.dialect] += 1
            self.findings.tell(f"{self.made.dialect}: {number} of {len(wanted)} commands, "
                               f"{sum(self.findings.tried.values())} failing calls")

    def try_command(self, arguments, given):
        self.arguments, self.given = arguments, given
        self.intact, self.after, self.names_after = self._outcome()
        again, _, _ = self._outcome()
        self.is_repeatable = self.intact == again
        self.gone_on = set()
        for kind, fault in FAULTS.items():
            self._try_fault(kind, fault)

    def _outcome(self, environment=None):
        outcome = self._run(environment)
        self._restore(outcome)
        return outcome

    def _run(self, environment=None):
        result = self.made.zaroctl(*self.arguments, given=self.given, environment=environment)
        if result.status is None or result.status < 0:
            self.made.wait_for_killed()
        return Outcome(result, self.made.stored(), self.made.names())

    def _restore(self, outcome):
        """A reading command that left everything as it was leaves nothing to put back."""
        if outcome.stored != self.made.before or outcome.names != self.made.names_before:
            self.made.restore()
        else:
            self.made.restore_numbers()

    def _try_fault(self, kind, fault):
        self.calls.arm(fault.kinds)
        installation.run(["--version"], environment=self.calls.environment)
        first = self.calls.count()
        self.calls.arm(fault.kinds)
        self._outcome(self.calls.environment)
        for number in chosen(self.calls.count(), self.how_many, first):
            self.calls.arm(fault.kinds, number, calls.FOREVER if fault.forever else number, fault.action, fault.state)
            outcome = self._run(self.calls.environment)
            if self.calls.has_failed():
                self.findings.tried[kind] += 1
                what = (f"{self.made.dialect}: zaroctl {' '.join(self.arguments)}: {kind} {number}, {self.calls.name()}: "
                        f"status {outcome.result.status}")
                self._judge(kind, what, *outcome)
                outcome = self._go_on(kind, what, outcome)
            self._restore(outcome)

    def _go_on(self, kind, what, failed):
        """The command once more, on what a failure has left; once for each kind of failure and of its end."""
        way = (kind, self.calls.name(), failed.result.status)
        if failed.stored != self.made.before or failed.result.status == self.intact.status or way in self.gone_on:
            return failed
        self.gone_on.add(way)
        self.made.restore_numbers()
        again = self._run()
        if again.result.status != self.intact.status or again.stored != self.after:
            self.findings.add(f"{what}: it cannot be done afterwards: {again.result.status}",
                              again.result.err + difference(self.after, again.stored))
        return again

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
            self._judge_failure(kind, what, result, stored, details)
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
        self.findings.told[kind, "without an effect"] += 1
        if stored != self.after:
            self.findings.add(what + ": the change is not what it should be", details + difference(self.after, stored))
        # What a check finds is told with the status of what it found.
        if self.is_repeatable and result.out != self.intact.out and result.err == self.intact.err:
            self.findings.add(what + ": it answers wrong", details)

    def _judge_failure(self, kind, what, result, stored, details):
        if not result.err.strip() and not result.out.strip():
            self.findings.add(what + ": it does not say why", details)
        if IN_DOUBT in result.err:
            self.findings.told[kind, "in doubt"] += 1
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


# What there is to try, besides the services.
INSTALLATIONS = {"sqlite": installation.Installation, "postgresql": installation.ServerInstallation}
SERVICES = {"filter": FilterUnderFaults, "server": ServerUnderFaults}


def try_part(part, findings, how_many, given):
    if part in SERVICES:
        SERVICES[part](findings).try_reloads(400 if how_many is None else max(1, 5 * how_many // given.every))
    elif part == "sqlite":
        try_commands(INSTALLATIONS[part], findings, how_many, given.only, given.every)
    elif installation.SERVER["HOST"]:
        try_commands(INSTALLATIONS[part], findings, max(1, how_many // 4) if how_many else 8, given.only, given.every)
    else:
        print("PostgreSQL: left out, for there is no server; see scripts/with-postgres")


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("how_many", nargs="?", default="4", help="calls of each kind of each command; or all")
    parser.add_argument("--seed", type=int, default=None)
    parser.add_argument("--only", action="append", help="commands that begin so; of services, none")
    parser.add_argument("--every", type=int, default=1, help="of so many commands one; of services, fewer reloads alike")
    parser.add_argument("--part", choices=[*INSTALLATIONS, *SERVICES], action="append", help="all of them")
    given = parser.parse_args()
    seed = given.seed if given.seed is not None else random.randrange(10**6)
    print(f"seed {seed}", flush=True)
    random.seed(seed)
    how_many = None if given.how_many == "all" else int(given.how_many)
    findings = Findings()
    parts = given.part or [*INSTALLATIONS, *([] if given.only else SERVICES)]

    def work():
        for part in parts:
            try_part(part, findings, how_many, given)

    findings.finish(work)


if __name__ == "__main__":
    main()
