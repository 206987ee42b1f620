"""Installations and policy servers for tests: processes on loopback that end by their process ids."""

import atexit
import collections
import contextlib
import functools
import json
import os
import pathlib
import re
import shutil
import signal
import socket
import sqlite3
import subprocess
import tempfile
import time
import unittest

ZAROCTL = os.environ["ZAROCTL_PATH"]
ZAROPOLICYD = os.environ["ZAROPOLICYD_PATH"]

# No test waits that long; a wait that does ends in a failure.
PATIENCE = float(os.environ.get("ZARO_PATIENCE", "60"))

# In the place of the policy's counter.
ENDLESS_VIEW = """
CREATE VIEW policy_version AS
WITH RECURSIVE number (i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM number) SELECT count(*) AS version FROM number
"""

Answer = collections.namedtuple("Answer", "status fields body")


def wait_until(condition, what):
    deadline = time.monotonic() + PATIENCE
    while not condition():
        if time.monotonic() > deadline:
            raise AssertionError("waited in vain: " + what)
        time.sleep(0.02)


def takes_signals(process):
    """Whether it has a handler for SIGTERM."""
    status = pathlib.Path(f"/proc/{process.pid}/status").read_text(encoding="ascii")
    return int(re.search(r"SigCgt:\s+(\w+)", status).group(1), 16) >> (signal.SIGTERM - 1) & 1


def free_port():
    with socket.socket() as one:
        one.bind(("127.0.0.1", 0))
        return one.getsockname()[1]


def environment():
    return {key: value for key, value in os.environ.items() if not key.startswith("ZARO_")}


@functools.lru_cache(maxsize=None)
def template():
    """An installation to copy: making one waits for the disk."""
    directory = tempfile.TemporaryDirectory(prefix="zaro-server-")
    atexit.register(directory.cleanup)
    home = pathlib.Path(directory.name) / "gateway"
    subprocess.run([ZAROCTL, "init", home], env=environment(), capture_output=True, timeout=PATIENCE, check=True)
    return home


class Installation:
    """An installation with a policy, on the embedded database."""

    def __init__(self, directory):
        self.home = directory / "gateway"
        shutil.copytree(template(), self.home)
        self._store(threads=2, max_threads=4)
        self.take_port()
        self.change("first")

    def take_port(self):
        """Another one each time."""
        self.port = free_port()
        self._store(PolicyServerPort=self.port)

    def _store(self, **settings):
        with self.database() as db:
            for key, value in settings.items():
                db.execute("UPDATE global_setting SET value = ? WHERE section = 'policy_server' AND name = ?", (value, key))
            db.commit()

    def zaroctl(self, *arguments, status=0):
        done = subprocess.run([ZAROCTL, *arguments], env={**environment(), "ZARO_HOME": str(self.home)},
                              capture_output=True, text=True, timeout=PATIENCE, check=False)
        assert done.returncode == status, f"{arguments}: {done.returncode} {done.stderr}"
        return done.stdout

    def _ini(self):
        return self.home / "config" / "zaro.ini"

    def set(self, **settings):
        """In the file, which counts above the database. The values may be any."""
        text = self._ini().read_text(encoding="utf-8")
        if "[policy_server]\n" not in text:
            text += "\n[policy_server]\n"
        for key, value in settings.items():
            text = re.sub(rf"(?m)^{key}=.*\n", "", text).replace("[policy_server]\n", f"[policy_server]\n{key}={value}\n")
        self._ini().write_text(text, encoding="utf-8")

    def write(self, name, text, mode=0o600):
        path = self.home / "config" / name
        path.write_text(text, encoding="ascii")
        path.chmod(mode)
        return path

    def database(self):
        return contextlib.closing(sqlite3.connect(self.home / "data" / "zaro.db", timeout=PATIENCE))

    def change(self, name, members=("spam@bad.test",)):
        """Adds an address group; answers the version afterwards."""
        with self.database() as db:
            group = db.execute("INSERT INTO named_object (type, name, content) VALUES (5, ?, '')", (name,)).lastrowid
            db.executemany("INSERT INTO address_group_member (group_id, position, address) VALUES (?, ?, ?)",
                           [(group, position, member) for position, member in enumerate(members)])
            version = db.execute("SELECT version FROM policy_version").fetchone()[0]
            db.commit()
        return version

    def grow(self):
        """Makes the policy larger than what the buffers of a connection take; answers the version afterwards."""
        with self.database() as db:
            db.execute("INSERT INTO named_object (type, name, content) VALUES (3, 'large', ?)", ("x" * 10_000_000,))
            version = db.execute("SELECT version FROM policy_version").fetchone()[0]
            db.commit()
        return version

    def break_database(self):
        """For a program that has it open already."""
        self.rename_table("policy_version", "away")

    def mend_database(self):
        self.rename_table("away", "policy_version")

    def rename_table(self, name, other):
        with self.database() as db:
            db.execute("PRAGMA legacy_alter_table = ON")
            db.execute(f"ALTER TABLE {name} RENAME TO {other}")
            db.commit()

    def take_database_away(self):
        (self.home / "data").rename(self.home / "away")

    def give_database_back(self):
        (self.home / "away").rename(self.home / "data")

    def hang_database(self):
        """The counter of the policy cannot be read to its end."""
        self.rename_table("policy_version", "away")
        with self.database() as db:
            db.execute(ENDLESS_VIEW)
            db.commit()


class Server:
    """A running zaropolicyd."""

    def __init__(self, installation, arguments=(), wrapper=(), more=None):
        self.installation = installation
        self.arguments = list(arguments)
        self.wrapper = list(wrapper)
        self.environment = {**environment(), **(more or {})}
        self.process = None
        self.log_path = installation.home / "server.log"

    def start(self):
        """On another port where a program has taken the installation's meanwhile."""
        while not self._listens():
            self.installation.take_port()
        return self

    def launch(self):
        """Starts it without waiting. Answers how long its log was."""
        with open(self.log_path, "ab") as log:
            self.process = subprocess.Popen(
                [*self.wrapper, ZAROPOLICYD, "--home", str(self.installation.home), "--foreground", *self.arguments],
                stderr=log, env=self.environment)
            return log.tell()

    def _listens(self):
        before = self.launch()
        wait_until(lambda: self.process.poll() is not None or self._is_ready(), "the server listens")
        if self.process.poll() is None:
            return True
        assert b"Address already in use" in self.log_path.read_bytes()[before:], f"the server ended: {self.log()}"
        return False

    def _is_ready(self):
        return f"zaropolicyd[{self.process.pid}]: info: ready" in self.log()

    def log(self):
        return self.log_path.read_text(encoding="utf-8", errors="replace")

    def wait_for_log(self, text, count=1):
        wait_until(lambda: self.log().count(text) >= count, f"{text!r} in {self.log()}")

    def reload(self):
        """Returns when the server has read its files, or has found that it cannot."""
        before = self.log().count("are read again")
        self.process.send_signal(signal.SIGHUP)
        self.wait_for_log("are read again", before + 1)

    def stop(self, number=signal.SIGTERM):
        """Answers the exit status."""
        if self.process is None:
            return None
        if self.process.poll() is None:
            self.process.send_signal(number)
        status = self.process.wait(PATIENCE)
        self.process = None
        return status

    def metric(self, name):
        for line in curl(self.url("/metrics")).body.decode().splitlines():
            if line.startswith(name + " "):
                return float(line.rpartition(" ")[2])
        raise AssertionError(f"no metric {name}")

    def url(self, path="/v1/policy", scheme="http", host="127.0.0.1"):
        return f"{scheme}://{host}:{self.installation.port}{path}"

    def connect(self, slow=False):
        """A connection; a slow one takes little at a time."""
        one = socket.socket()
        if slow:
            one.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 65536)
        one.settimeout(PATIENCE)
        one.connect(("127.0.0.1", self.installation.port))
        return one


def curl(url, *arguments):
    """The answer, as curl has it."""
    done = subprocess.run(["curl", "--silent", "--show-error", "--include", "--max-time", str(PATIENCE), *arguments, url],
                          capture_output=True, timeout=2 * PATIENCE, check=False)
    assert done.returncode == 0, f"curl: {done.returncode} {done.stderr.decode()}"
    head, _, body = done.stdout.partition(b"\r\n\r\n")
    lines = head.decode("ascii").split("\r\n")
    fields = {name.lower(): value for name, _, value in (line.partition(": ") for line in lines[1:])}
    return Answer(int(lines[0].split(" ")[1]), fields, body)


def read_all(connection):
    """What comes until the server closes."""
    pieces = []
    with contextlib.suppress(ConnectionResetError):
        while piece := connection.recv(65536):
            pieces.append(piece)
    return b"".join(pieces)


class ServerTest(unittest.TestCase):
    """An installation in a directory of its own."""

    def setUp(self):
        self.directory = pathlib.Path(tempfile.mkdtemp(prefix="zaro-server-"))
        self.addCleanup(shutil.rmtree, self.directory, ignore_errors=True)
        self.installation = Installation(self.directory)

    def start(self, **settings):
        """A server with these settings."""
        self.installation.set(**{key.replace("keep_alive", "keep-alive"): value for key, value in settings.items()})
        return self.start_with([])

    def start_with(self, arguments, **more):
        server = Server(self.installation, arguments, **more)
        self.addCleanup(server.stop)
        return server.start()

    def refused_start(self, *arguments):
        """The reason why a server does not start."""
        done = subprocess.run([ZAROPOLICYD, "--home", self.installation.home, "--foreground", *arguments],
                              env=environment(), capture_output=True, text=True, timeout=PATIENCE, check=False)
        self.assertNotEqual(done.returncode, 0)
        return done.stderr


def lines_of(answer):
    return [json.loads(line) for line in answer.body.splitlines()]


class Certificates:
    """An authority, and what it has signed; made by openssl."""

    def __init__(self, directory):
        self.directory = directory
        self._run("req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256", "-nodes", "-days", "2",
                  "-subj", "/CN=Test authority", "-keyout", "ca.key", "-out", "ca.pem")
        self.ca = directory / "ca.pem"

    def _run(self, *arguments):
        subprocess.run(["openssl", *arguments], cwd=self.directory, capture_output=True, timeout=PATIENCE, check=True)

    def make(self, name, key_of=("ec", "-pkeyopt", "ec_paramgen_curve:P-256"), signed=True, days=2):
        """A certificate for 127.0.0.1 and its key; signed by itself where the authority does not."""
        names = ["-addext", "subjectAltName=IP:127.0.0.1"]
        if signed:
            self._run("req", "-newkey", *key_of, "-nodes", "-subj", f"/CN={name}", *names, "-keyout", f"{name}.key", "-out",
                      f"{name}.csr")
            self._run("x509", "-req", "-in", f"{name}.csr", "-CA", "ca.pem", "-CAkey", "ca.key", "-CAcreateserial",
                      "-days", str(days), "-copy_extensions", "copy", "-out", f"{name}.pem")
        else:
            self._run("req", "-x509", "-newkey", *key_of, "-nodes", "-days", "2", "-subj", f"/CN={name}", *names,
                      "-keyout", f"{name}.key", "-out", f"{name}.pem")
        (self.directory / f"{name}.key").chmod(0o600)
        return self.directory / f"{name}.pem", self.directory / f"{name}.key"
