"""What the long runs judge by: each wrong outcome is a finding, each right one is none."""

import random
import signal
import unittest
from unittest import mock

import crowd
import disk
import failing_calls
import kills
from installation import Result, Writer

BEFORE = {"admin\t1"}
AFTER = {"admin\t1", "admin\t2"}
HALF = {"admin\t1", "half of 2"}
FILES = {"config", "config/zaro.ini"}
LEFT = FILES | {"config/zaro.ini.new"}
DOUBT = "the change was being committed at a failure, and whether it is stored is not known; look before you repeat it"

# How the command ended, what is stored, which files there are, and what is found.
FAILING_CALLS = (
    (0, "added", "", AFTER, FILES, None),
    (0, "added", "", BEFORE, FILES, "the change is not what it should be"),
    (0, "added", "", HALF, FILES, "the change is not what it should be"),
    (0, "two", "", AFTER, FILES, "it answers wrong"),
    (75, "", "locked", BEFORE, FILES, None),
    (75, "", "", BEFORE, FILES, "it does not say why"),
    (75, "", "locked", AFTER, FILES, "the change is made, which it does not say"),
    (75, "", "locked", HALF, FILES, "half of the change is made"),
    (75, "", "locked", BEFORE, LEFT, "left behind"),
    (74, "", "the change is made, but its result is not written", AFTER, FILES, None),
    (74, "", "the change is made, but its result is not written", BEFORE, FILES, "although it says so"),
    (69, "", DOUBT, BEFORE, FILES, None),
    (69, "", DOUBT, AFTER, FILES, None),
    (69, "", DOUBT, HALF, FILES, "half of the change is made"),
    (3, "", "no such status", BEFORE, FILES, "not a status of a failure"),
    (None, "", "", BEFORE, FILES, "it hangs"),
    (-signal.SIGSEGV, "", "", BEFORE, FILES, "it crashes"),
)

# How the command ended that was to be killed, what it had told, what is stored, and what is found.
KILLED_COMMANDS = (
    (-signal.SIGKILL, "", BEFORE, FILES, None),
    (-signal.SIGKILL, "", AFTER, FILES, None),
    (-signal.SIGKILL, "added", AFTER, FILES, None),
    (-signal.SIGKILL, "added", BEFORE, FILES, "it has told of a change that is not there"),
    (-signal.SIGKILL, "", HALF, FILES, "half of it is there"),
    (-signal.SIGKILL, "", BEFORE, LEFT, "left behind"),
    (0, "added", BEFORE, FILES, "half of it is there"),
    (70, "", BEFORE, FILES, "status 70"),
)

# What became of a command among others, how many of its rows there are of one, and what is found.
CROWD = (
    (0, "added", "", 1, None),
    (0, "added", "", 0, "is acknowledged, and none"),
    (75, "", "locked", 0, None),
    (75, "", "locked", 1, "is refused, and whole"),
    (75, "", "", 0, "status 75"),
    (69, "", DOUBT, 0, None),
    (69, "", DOUBT, 1, None),
    (-signal.SIGKILL, "", "", 0, None),
    (-signal.SIGKILL, "", "", 1, None),
    (-signal.SIGKILL, "added", "", 0, "is acknowledged, and none"),
    (-signal.SIGKILL, "", "", 2, "and half of it"),
    (-signal.SIGSEGV, "", "", 0, "status -11"),
)


class FoundTest(unittest.TestCase):
    """`judge` gives a row's findings to what it is called with."""

    def expect_findings(self, rows, judge):
        for *outcome, wanted in rows:
            with self.subTest(outcome=outcome):
                found = []
                judge(lambda what, details="": found.append(what), *outcome)
                if wanted is None:
                    self.assertEqual(found, [])
                else:
                    self.assertIn(wanted, " ".join(found))

    def test_failing_calls(self):
        def judge(add, status, out, err, stored, names):
            commands = failing_calls.Commands.__new__(failing_calls.Commands)
            commands.findings = failing_calls.Findings()
            commands.findings.add = add
            commands.made = mock.Mock(before=BEFORE, names_before=FILES)
            commands.after, commands.names_after, commands.intact = AFTER, FILES, Result(0, "added", "")
            commands.is_repeatable = True
            commands.calls = mock.Mock(**{"name.return_value": "write", "blamed.return_value": ""})
            commands._judge("system call", "zaroctl", Result(status, out, err), stored, names)

        self.expect_findings(FAILING_CALLS, judge)

    def test_killed_commands(self):
        def judge(add, status, out, stored, names):
            killed = kills.KilledCommands.__new__(kills.KilledCommands)
            killed.report = mock.Mock(add=add)
            killed.sound, killed.names_before = Result(0, "", ""), FILES
            killed.made = mock.Mock(before=BEFORE, dialect="sqlite")
            killed.made.zaroctl.return_value = Result(0, "", "")
            killed.made.stored.side_effect = [stored, AFTER]
            killed.made.names.return_value = names
            writer = Writer(["admin", "add"], "", Result(0, "added", ""), AFTER, FILES, 1, 10)
            killed._judge(writer, status, out, "at some time", "")

        self.expect_findings(KILLED_COMMANDS, judge)

    def test_crowds(self):
        def judge(add, status, out, err, rows):
            made = mock.Mock(**{"zaroctl.return_value": Result(0, "", ""), "values.return_value": [rows]})
            people = crowd.Crowd(made)
            people.slots[0] = "begun"
            people._note(0, status, out, err)
            people.judge("among others", mock.Mock(add=add))

        self.expect_findings(CROWD, judge)


class PowerTest(unittest.TestCase):
    """Of a file that is written anew, its name and its content are on the disk once they were brought there."""

    def lost(self, *records):
        now = disk.Disk(mock.Mock(**{"rglob.return_value": []}))
        for call, path, other, data in records:
            inode = 1 if path == "/d" else 2
            now.follow(disk.Record(call, path, other, inode, 0, data))
        random.seed(1)
        return [now.copy().lose_power() for _ in range(50)]

    def test_what_is_synced_stays(self):
        made = ((disk.CREATE, "/d/new", "", b""), (disk.WRITE, "/d/new", "", b"text"), (disk.SYNC, "/d/new", "", b""),
                (disk.RENAME, "/d/new", "/d/file", b""))
        durable = self.lost(*made, (disk.SYNC, "/d", "", b""))
        self.assertEqual({text for content in durable for text in content.values()}, {b"text"})

    def test_what_is_not_synced_may_go(self):
        contents = self.lost((disk.CREATE, "/d/file", "", b""), (disk.WRITE, "/d/file", "", b"text"))
        self.assertEqual({content.get("/d/file") for content in contents}, {None, b"", b"text"})


if __name__ == "__main__":
    unittest.main()
