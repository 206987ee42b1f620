"""The mail filter and the policy server while their calls fail."""

import json
import os
import pathlib
import random
import signal
import sys
import tempfile
import time

TESTS = pathlib.Path(__file__).parent.parent
sys.path += [str(TESTS / "mail"), str(TESTS / "policyserver")]

import mailtest  # noqa: E402
import servertest  # noqa: E402
import sitetest  # noqa: E402

import calls  # noqa: E402

# Seconds in which a reload shows in the log, if the line about it was not the one that failed.
SOON = 3

# Seconds without a further call, after which a service is done.
QUIET = 0.05

# Descriptors and threads that a service at rest may hold more than at its start: a connection that is kept.
SPARE = 4

FAULTS = {"allocation": calls.ALLOCATION, "system call": calls.SYSTEM, "ODBC call refused": calls.ODBC}


class ServiceUnderFaults:
    """A service whose reloads, and whose answers, meet a failing call each: it goes on, by the old policy or the new one."""

    name = ""

    def __init__(self, findings):
        self.findings = findings

    def try_reloads(self, how_many):
        with tempfile.TemporaryDirectory(prefix="zaro-faults-") as directory:
            path = pathlib.Path(directory)
            path.chmod(0o755)
            self.calls = calls.Calls(path)
            self.make(path)
            self._launch()
            try:
                for kind, kinds in FAULTS.items():
                    self._try(kind + " in a reload", kinds, how_many, self.reload)
                for kind, kinds in FAULTS.items():
                    self._try(kind + " in an answer", kinds, how_many, self.ask)
                self._expect_no_leak()
            finally:
                self.running.stop(signal.SIGKILL)

    def reload(self):
        """Returns when the log has told what came of it, or has said nothing for a while, and what follows is done as well."""
        version = self.change()
        before = self.running.log().count("not reloaded")
        self.running.process.send_signal(signal.SIGHUP)
        end = time.monotonic() + SOON
        while time.monotonic() < end and self.running.process.poll() is None:
            log = self.running.log()
            if self.told.format(version) in log or log.count("not reloaded") > before:
                break
            time.sleep(0.01)
        before = -1
        while before != self.calls.count():
            before = self.calls.count()
            time.sleep(QUIET)
        return ""

    def _expect_no_leak(self):
        """Descriptors and threads, which each of the failures could have left behind. Connections take a moment to end."""
        try:
            servertest.wait_until(lambda: self._held() <= self.held, "descriptors and threads are closed")
        except AssertionError:
            self.findings.add(f"{self.name}: it holds {self._held()} descriptors and threads, after {self.held}")

    def _held(self):
        return sum(len(os.listdir(f"/proc/{self.running.process.pid}/{what}")) for what in ("fd", "task"))

    def _launch(self):
        """Starts it, and has it do once what it is to do."""
        self.calls.disarm()
        self.start()
        self.reload()
        self.expect_answer()
        self.held = self._held() + SPARE

    def _try(self, kind, kinds, how_many, action):
        self.calls.arm(kinds)
        action()
        count = self.calls.count()
        self.calls.disarm()
        for number in sorted(random.sample(range(1, count + 1), min(count, how_many))):
            self.calls.arm(kinds, number)
            wrong = action()
            failed = self.calls.has_failed()
            self.calls.disarm()
            if failed:
                self.findings.tried[f"{self.name}: {kind}"] += 1
                what = f"{self.name}: {kind} {number}, {self.calls.name()}"
                if wrong:
                    self.findings.add(f"{what}: it answers wrong", wrong)
                self._expect_service(what)
            self.findings.tell(f"{self.name}: {kind}: {number} of {count}, "
                               f"{self.findings.tried[f'{self.name}: {kind}']} failed")

    def _expect_service(self, what):
        try:
            self.expect_answer()
            self.change()
            self.running.process.send_signal(signal.SIGHUP)
            self.expect_last_change()
        except (AssertionError, OSError) as failure:
            time.sleep(1)  # one that is ending has ended
            ended = self.running.process.poll()
            fate = f"it does not go on: {failure!r:.300}" if ended is None else f"it ended with {ended}"
            self.findings.add(f"{what}: {fate}", f"{self.calls.culprit()}\n{self.running.log()[-600:]}")
            self.running.stop(signal.SIGKILL)
            self._launch()


class AskedFilter(mailtest.Filter):
    """Is asked by policy delegation."""

    @property
    def delegation(self):
        return self.gateway.home / "run" / "policy.sock"

    decide = sitetest.Filter.decide
    refuses = sitetest.Filter.refuses


class FilterUnderFaults(ServiceUnderFaults):
    name = "zarofilterd"
    told = "policy {} decides"

    def make(self, directory):
        self.gateway = mailtest.Gateway(directory)
        self.gateway.set(**sitetest.FILTER_SETTINGS)
        self.gateway.rule("first", ["first@bad.test"], actions=["Delete"], reply="no")
        self.changes = 0

    def start(self):
        self.running = AskedFilter(self.gateway, environment=self.calls.environment).start()

    def change(self):
        """One member more in a list that is there."""
        self.changes += 1
        self.gateway.run_sql(f"INSERT INTO address_group_member (group_id, position, address) SELECT group_id, "
                             f"max(position) + 1, 'sender{self.changes}@bad.test' FROM address_group_member GROUP BY group_id")
        return self.gateway.version()

    def ask(self):
        """What is wrong with the answer. None, or a postponement, is right."""
        try:
            answer = self.running.decide("first@bad.test")
        except OSError:
            return ""
        return "" if answer.startswith(("action=550", "action=451", "action=defer", "action=DEFER")) else answer

    def expect_answer(self):
        assert self.running.refuses("first@bad.test"), "the first policy does not count any more"
        assert not self.running.refuses("good@good.test"), "what no policy says counts"

    def expect_last_change(self):
        sender = f"sender{self.changes}@bad.test"
        mailtest.wait_until(lambda: self.running.refuses(sender), f"{sender} is refused", 20)


class ServerUnderFaults(ServiceUnderFaults):
    name = "zaropolicyd"
    told = "policy {} is served"

    def make(self, directory):
        self.site = servertest.Installation(directory)
        self.changes = 0
        self.version = 0

    def start(self):
        self.running = servertest.Server(self.site, more=self.calls.environment).start()

    def change(self):
        self.changes += 1
        self.version = self.site.change(f"group {self.changes}")
        return self.version

    def served(self):
        return servertest.curl(self.running.url(), "--max-time", "20")

    def ask(self):
        """What is wrong with the answer. None, or one about a failure, is right."""
        try:
            answer = self.served()
        except (AssertionError, OSError, IndexError):
            return ""
        is_right = answer.status >= 500 or (answer.status == 200 and answer.body == self.right_body)
        return "" if is_right else f"{answer.status} {answer.body[:300]}"

    def expect_answer(self):
        answer = self.served()
        assert answer.status == 200, f"status {answer.status}"
        assert json.loads(answer.body.splitlines()[0])["format"] == 1, "no policy"
        self.right_body = answer.body

    def expect_last_change(self):
        servertest.wait_until(self._serves_last_change, f"policy {self.version} is served")

    def _serves_last_change(self):
        self.right_body = self.served().body
        return json.loads(self.right_body.splitlines()[0])["version"] >= self.version
