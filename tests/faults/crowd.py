"""Commands that write at the same time, each something of its own, so that of each can be told whether it is stored."""

import contextlib
import os
import pathlib
import random
import shutil
import signal
import socket
import struct
import subprocess
import threading
import time

import installation
from installation import SERVER, psql

# A command, its input, and a query whose value is the last where all of it is stored; {N} is the number of the slot.
WRITERS = (
    (["entity", "add", "*@new{N}.test"], "", "SELECT count(*) FROM entity WHERE name = '*@new{N}.test'", 1),
    (["admin", "add", "new{N}"], "", "SELECT count(*) FROM administrator WHERE name = 'new{N}'", 1),
    (["group", "modify", "Board", "--add", "new{N}@b.test"], "",
     "SELECT count(*) FROM address_group_member WHERE address = 'new{N}@b.test'", 1),
    (["group", "import", "--append", "Board", "-"], "one{N}@b.test\ntwo{N}@b.test\n",
     "SELECT count(*) FROM address_group_member WHERE address IN ('one{N}@b.test', 'two{N}@b.test')", 2),
    (["group", "add", "--as", "sales-admin", "group {N}", "a@b.test", "b@b.test"], "",
     "SELECT count(*) FROM address_group_member WHERE group_id IN (SELECT id FROM named_object WHERE name = 'group {N}')", 2),
    (["object", "add", "--as", "sales-admin", "--type", "2", "--content", "text", "object {N}"], "",
     "SELECT count(*) FROM named_object_owner WHERE object_id IN (SELECT id FROM named_object WHERE name = 'object {N}')", 3),
)

DOCUMENTED = {69, 74, 75, 77}
IN_DOUBT = "whether it is stored is not known"


class Crowd:
    def __init__(self, made, environment=None, told=lambda text: None):
        self.made = made
        self.environment = environment or {}
        self.told = told
        self.slots = {}  # what became of each
        self.wrong = []
        self.killed = 0
        self.lock = threading.Lock()
        self.took = 0.05

    def work(self, count, workers, kill):
        """So many commands more, of which that share is killed."""
        first = len(self.slots)
        slots = iter(range(first, first + count))
        for slot in range(first, first + count):
            self.slots[slot] = "not begun"

        def run():
            for slot in iter(lambda: self._next(slots), None):
                try:
                    self._run(slot, random.random() < kill)
                except (OSError, ValueError) as failure:
                    self.wrong.append(f"{slot}: the test itself failed: {failure!r}")

        threads = [threading.Thread(target=run) for _ in range(workers)]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()

    def _next(self, slots):
        with self.lock:
            return next(slots, None)

    def _run(self, slot, is_killed):
        words, given, _, _ = WRITERS[slot % len(WRITERS)]
        self.told(f"begins {slot}")
        self.slots[slot] = "begun"
        began = time.monotonic()
        environment = {**installation.clean_environment(), "ZARO_HOME": str(self.made.home), **self.environment}
        process = subprocess.Popen([installation.ZAROCTL, *(word.format(N=slot) for word in words)], env=environment,
                                   stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        killer = threading.Timer(random.uniform(0, self.took), process.kill) if is_killed else None
        if killer is not None:
            killer.start()
        try:
            out, err = process.communicate(given.format(N=slot).encode(), installation.PATIENCE)
        except subprocess.TimeoutExpired:
            process.kill()
            process.communicate()
            self.wrong.append(f"{words}: hangs")
            return
        if killer is not None:
            killer.cancel()
        self._note(slot, process.returncode, out, err.decode("utf-8", "replace"))
        if process.returncode == 0:
            self.took += (time.monotonic() - began - self.took) / 8

    def _note(self, slot, status, out, err):
        if status == -signal.SIGKILL:
            self.killed += 1
        # One that was killed may have told of its change before.
        if status == 0 or (status == -signal.SIGKILL and out):
            self.told(f"done {slot}")
            self.slots[slot] = "acknowledged"
        elif status == -signal.SIGKILL:
            self.slots[slot] = "killed"
        elif IN_DOUBT in err:
            self.slots[slot] = "in doubt"
        elif status in DOCUMENTED and err.strip():
            self.slots[slot] = "refused"
        else:
            self.wrong.append(f"{WRITERS[slot % len(WRITERS)][0]} {slot}: status {status}: {err}")

    def stored(self, value):
        """How much of each slot there is, by a function that answers queries."""
        stored = {}
        for slot in self.slots:
            _, _, query, whole = WRITERS[slot % len(WRITERS)]
            found = int(value(query.format(N=slot)))
            stored[str(slot)] = "none" if found == 0 else "whole" if found == whole else "half"
        return stored

    def judge(self, what, report):
        """On the database as it is now, with no command running."""
        queries = [WRITERS[slot % len(WRITERS)][2].format(N=slot) for slot in self.slots]
        stored = self.stored(dict(zip(queries, self.made.values(queries))).get)
        for slot, state in stored.items():
            became = self.slots[int(slot)]
            if state == "half" or (became == "acknowledged" and state != "whole") or (became == "refused" and state != "none"):
                report.add(f"{what}: command {slot} is {became}, and {state} of it is stored")
        for wrong in self.wrong:
            report.add(f"{what}: {wrong}")
        for became in ("acknowledged", "refused", "in doubt"):
            report.count(f"{what}: commands {became}", list(self.slots.values()).count(became))
        check = self.made.zaroctl("check")
        after = self.made.zaroctl("admin", "add", "afterwards")
        if check.status != 0 or after.status != 0:
            report.add(f"{what}: afterwards check ends with {check.status}, and a command with {after.status}",
                       check.out + after.err)


def change_settings(made, count, environment, told):
    """One value after the other, in the file of the host."""
    for value in range(20, 20 + count):
        told(f"setting {value}")
        if made.zaroctl("settings", "set", "--host", f"policy_client.recv_timeout_secs={value}",
                        environment=environment).status == 0:
            told(f"set {value}")


def wait_for_server():
    for _ in range(600):
        if psql("SELECT 1", check=False) == ["1"]:
            return
        time.sleep(0.1)
    raise AssertionError("the server does not come back")


def kill_server(kind):
    """One of its processes, or all of them with a restart; how many times that was done."""
    if kind == "backend":
        pids = psql("SELECT pid FROM pg_stat_activity WHERE backend_type = 'client backend' AND pid <> pg_backend_pid()",
                    check=False)
        if not pids:
            return 0
        with contextlib.suppress(ProcessLookupError):
            os.kill(int(random.choice(pids)), signal.SIGKILL)
        return 1
    found = psql("SELECT pid FROM pg_stat_activity WHERE backend_type = 'checkpointer'", check=False)
    if not found:
        return 0
    parent = parent_of(found[0])
    for pid in [parent, *(int(path.name) for path in pathlib.Path("/proc").iterdir()
                          if path.name.isdigit() and parent_of(path.name) == parent)]:
        with contextlib.suppress(ProcessLookupError):
            os.kill(pid, signal.SIGKILL)
    for _ in range(100):
        if subprocess.run(["sh", "-c", f"{SERVER['CTL']} start"], stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                          check=False).returncode == 0:
            break
        time.sleep(0.1)
    wait_for_server()
    return 1


def parent_of(pid):
    try:
        for line in pathlib.Path(f"/proc/{pid}/status").read_text(encoding="ascii", errors="replace").splitlines():
            if line.startswith("PPid:"):
                return int(line.split()[1])
    except OSError:
        pass
    return None


def take_connections():
    """Connections that have told whom they are of, and not yet the password, until the server has no more."""
    taken = []
    options = b"".join(word.encode() + b"\0" for word in ("user", SERVER["USER"], "database", SERVER["DATABASE"])) + b"\0"
    for _ in range(2000):
        one = socket.create_connection((SERVER["HOST"], int(SERVER["PORT"])))
        one.sendall(struct.pack("!ii", 8 + len(options), 196608) + options)
        if one.recv(1) != b"R":
            one.close()
            return taken
        taken.append(one)
    raise AssertionError("the server takes any number of connections")


def mount(directory, size, owner=None):
    done = subprocess.run(["mount", "-t", "tmpfs", "-o", f"size={size}", "tmpfs", directory], capture_output=True, check=False)
    if done.returncode == 0 and owner is not None:
        shutil.chown(directory, owner)
    return done.returncode == 0


def unmount(directory):
    subprocess.run(["umount", "--lazy", directory], check=True)


def write_on_full_disk(made, disk, report, how_many):
    """Commands that write, with so little room that some of them fail."""
    members = "".join(f"member{number}@b.test\n" for number in range(4000))
    large = (["group", "import", "Board", "-"], members)
    writers = [(writer.arguments, writer.given) for writer in made.writing_commands()]
    ballast = disk / "ballast"
    names_before = made.names()
    for number in range(how_many):
        arguments, given = large if number % 2 else writers[number // 2 % len(writers)]
        free = os.statvfs(disk)
        room = random.choice((0, 4096, 16384, 65536, 262144))
        with open(ballast, "wb") as file:
            file.write(bytes(max(0, free.f_bavail * free.f_bsize - room)))
        result = made.zaroctl(*arguments, given=given)
        ballast.unlink()
        stored = made.stored()
        what = f"{made.dialect}: zaroctl {' '.join(arguments)} with {room} bytes left: status {result.status}"
        if result.status == 0:
            report.count(f"{made.dialect}: commands that a disk had just enough room for")
        else:
            report.count(f"{made.dialect}: commands that a full disk refused")
            if result.status not in DOCUMENTED | {73} or not result.err.strip():
                report.add(what, result.err)
            if stored != made.before:
                report.add(f"{what}, and something is changed", f"{result.err}{sorted(stored ^ made.before)[:5]}")
            left = made.names() - names_before
            if left - {"gateway/config/zaro.ini.lock", "gateway/config/zaro.ini.set.lock"}:
                report.add(f"{what}: left behind: {left}", result.err)
            made.restore()
            again = made.zaroctl(*arguments, given=given)
            if again.status != 0:
                report.add(f"{what}: afterwards {again.status}", again.err)
        made.restore()
