"""An installation of the sample organisation that can be looked at without its programs, and be put back as it was made."""

import collections
import contextlib
import json
import os
import pathlib
import re
import shutil
import sqlite3
import subprocess
import time
import uuid

ZAROCTL = os.environ["ZAROCTL_PATH"]
COMMANDS = pathlib.Path(__file__).parent.parent / "integration" / "programs" / "commands.json"

# Left by a killed program for good, as the manual says: installations and backups that were being made, in directories of
# users, and the lock of the settings that was being made, which happens once.
STAYS = (".gateway.second.new-", ".backup-", "gateway/config/zaro.ini.lock.")

# Seconds. No command takes that long; one that does hangs.
PATIENCE = 100

Result = collections.namedtuple("Result", "status out err")

# A command that changes something, what it answers, and what there is afterwards.
Writer = collections.namedtuple("Writer", "arguments given intact after names took calls")

# Rows that tell of the time, or of transactions that were rolled back.
UNCOMPARED = {"audit", "sqlite_sequence"}


def clean_environment():
    return {key: value for key, value in os.environ.items() if not key.startswith("ZARO_")}


def run(arguments, home=None, given="", environment=None):
    """What zaroctl answers; None for the status of one that hung, and was ended."""
    variables = {**clean_environment(), **({"ZARO_HOME": str(home)} if home else {}), **(environment or {})}
    with subprocess.Popen([ZAROCTL, *arguments], env=variables, stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                          stderr=subprocess.PIPE) as process:
        try:
            out, err = process.communicate(given.encode(), PATIENCE)
            return Result(process.returncode, out.decode("utf-8", "replace"), err.decode("utf-8", "replace"))
        except subprocess.TimeoutExpired:
            process.kill()
            out, err = process.communicate()
            return Result(None, out.decode("utf-8", "replace"), err.decode("utf-8", "replace"))


def opened(path):
    return contextlib.closing(sqlite3.connect(path, timeout=PATIENCE, isolation_level=None))


def rows_of_file(path):
    """The rows of every table of a database of SQLite, as texts."""
    with opened(path) as database:
        tables = [name for name, in database.execute("SELECT name FROM sqlite_master WHERE type = 'table'")]
        rows = {f"{table}\t{row}" for table in tables if table not in UNCOMPARED
                for row in database.execute(f"SELECT * FROM {table}")}
    return rows


def names_below(directory):
    return {str(path.relative_to(directory)) for path in directory.rglob("*")}


class Installation:
    """On SQLite."""

    dialect = "sqlite"

    def __init__(self, directory, more=("--sample",)):
        self.directory = pathlib.Path(directory)
        self.home = self.directory / "gateway"
        self.saved = self.directory.parent / (self.directory.name + ".saved")
        self.directory.mkdir(exist_ok=True)
        made = self.init(self.home, more)
        assert made.status == 0, made
        self.save()

    def init(self, home, more=()):
        return run(["init", *more, str(home)])

    def remove(self):
        shutil.rmtree(self.directory, ignore_errors=True)
        shutil.rmtree(self.saved, ignore_errors=True)

    def save(self):
        """As it is now, it is put back by `restore`."""
        shutil.rmtree(self.saved, ignore_errors=True)
        shutil.copytree(self.directory, self.saved, symlinks=True)
        self.saved_files = self._files(self.saved)
        self.before = self.stored()

    def restore(self):
        there = self._files(self.directory)
        for name in there.keys() - self.saved_files.keys():
            path = self.directory / name
            shutil.rmtree(path) if path.is_dir() else path.unlink(missing_ok=True)
        for name, kept in self.saved_files.items():
            if name not in there and kept is None:
                (self.directory / name).mkdir(parents=True)
            elif there.get(name) != kept:
                shutil.copy2(self.saved / name, self.directory / name)

    @staticmethod
    def _files(directory):
        """What may change of an installation: all but the statement files and the display strings."""
        return {str(path.relative_to(directory)): None if path.is_dir() else path.read_bytes()
                for path in directory.rglob("*")
                if not str(path.relative_to(directory)).startswith(("gateway/sql", "gateway/resources"))}

    def zaroctl(self, *arguments, given="", environment=None):
        return run(arguments, self.home, given, environment)

    def rows(self):
        return rows_of_file(self.home / "data" / "zaro.db")

    def database(self):
        return opened(self.home / "data" / "zaro.db")

    def lines(self, query):
        """The rows that a query answers, as texts."""
        with self.database() as database:
            return ["|".join(map(str, row)) for row in database.execute(query)]

    def value(self, query):
        return next(iter(self.lines(query)), None)

    def values(self, queries):
        """The one value that each query answers."""
        with self.database() as database:
            return [str(database.execute(query).fetchone()[0]) for query in queries]

    def changes(self, statement):
        """Whether a statement that returns what it changes has changed anything."""
        return bool(self.lines(statement))

    def restore_numbers(self):
        """Those that a change which was rolled back has drawn."""

    def wait_for_killed(self):
        """What a killed program has begun is over when this returns."""

    def stored(self):
        """All that commands change: rows, configuration, a second installation, a backup."""
        stored = self.rows()
        for path in (self.home / "config").iterdir():
            if path.name in ("database.ini", "zaro.ini"):
                text = re.sub(r"(?m)^(Password=).+", r"\1*", path.read_text(encoding="utf-8"))
                stored.add(f"{path.name} {path.stat().st_mode:o}\n{text}")
        second = self.directory / "gateway.second"
        if second.exists():
            stored.add("second: " + " ".join(sorted(names_below(second))))
        backup = self.directory / "gateway.backup"
        if backup.exists():
            stored |= {"backup: " + row for row in rows_of_file(backup)}
        return stored

    def names(self):
        """Every file there is, but those that the database keeps beside itself while it is open."""
        return {name for name in names_below(self.directory) if not name.endswith(("-wal", "-shm", "-journal"))}

    def commands(self):
        """Words, arguments and input of every command, for this installation."""
        for row in json.loads(COMMANDS.read_text(encoding="utf-8")):
            arguments = [self._argument(text) for text in row["arguments"]]
            yield [*row["words"], *arguments], row.get("input", "")

    def writing_commands(self, environment=None, counted=lambda: 0):
        """Those that change something; `counted` says afterwards how many calls one has made in that environment."""
        writers = []
        for arguments, given in self.commands():
            began = time.monotonic()
            intact = self.zaroctl(*arguments, given=given, environment=environment)
            took = time.monotonic() - began
            writer = Writer(arguments, given, intact, self.stored(), self.names(), took, counted())
            if writer.after != self.before:
                writers.append(writer)
            self.restore()
        return writers

    def _argument(self, text):
        found = re.match(r"\{([^}]+)\}", text)
        if found is None:
            return text
        name = found.group(1)
        if name == "home":
            return str(self.home) + text[found.end():]
        quoted = name.replace("'", "''")
        return str(self.value(f"SELECT id FROM named_object WHERE name = '{quoted}'")) + text[found.end():]


SERVER = {key: os.environ.get(f"ZARO_TEST_PG_{key}", "") for key in ("HOST", "PORT", "USER", "PASSWORD", "DATABASE", "CTL")}


# The program itself: the system's command of that name looks for a server first, which takes longer than most statements.
PSQL = max((str(path) for path in pathlib.Path("/usr/lib/postgresql").glob("*/bin/psql")), default="psql")


def psql(statement, database=SERVER["DATABASE"], check=True):
    """The lines that a statement answers."""
    done = subprocess.run([PSQL, "-X", "-q", "-A", "-t", "-v", "ON_ERROR_STOP=1", "-h", SERVER["HOST"], "-p", SERVER["PORT"],
                           "-U", SERVER["USER"], "-d", database, "-f", "-"], input=statement, text=True, capture_output=True,
                          env={**os.environ, "PGPASSWORD": SERVER["PASSWORD"]}, timeout=PATIENCE, check=False)
    assert done.returncode == 0 or not check, f"{statement}: {done.stderr}"
    return done.stdout.splitlines()


class ServerInstallation(Installation):
    """On PostgreSQL: see scripts/with-postgres."""

    dialect = "postgresql"

    def __init__(self, directory, more=("--sample",), port=None, tablespace=""):
        self.name = "faults_" + uuid.uuid4().hex
        self.port = port or SERVER["PORT"]
        self.tablespace = tablespace
        psql(f"CREATE DATABASE {self.name} {tablespace}")
        super().__init__(directory, more)

    def init(self, home, more=()):
        return run(["init", "--db", "postgresql", "--host", SERVER["HOST"], "--port", str(self.port), "--user", SERVER["USER"],
                    "--database", self.name, *more, str(home)], given=SERVER["PASSWORD"] + "\n")

    def remove(self):
        psql(f"DROP DATABASE IF EXISTS {self.name} WITH (FORCE)")
        psql(f"DROP DATABASE IF EXISTS {self.name}_saved WITH (FORCE)")
        super().remove()

    def save(self):
        psql(f"DROP DATABASE IF EXISTS {self.name}_saved")
        psql(f"CREATE DATABASE {self.name}_saved TEMPLATE {self.name}")
        self.sequences = psql("SELECT format('SELECT setval(%L, %s, %s);', sequencename, coalesce(last_value, 1), "
                              "(last_value IS NOT NULL)::text) FROM pg_sequences", self.name)
        self.rows_before = self.rows()
        super().save()

    def restore(self):
        super().restore()
        if self.rows() != self.rows_before:
            psql(f"DROP DATABASE {self.name} WITH (FORCE)")
            psql(f"CREATE DATABASE {self.name} TEMPLATE {self.name}_saved {self.tablespace}")
        else:
            self.restore_numbers()

    def restore_numbers(self):
        psql("\n".join(self.sequences), self.name)

    def rows(self):
        left_out = ", ".join(f"'{table}'" for table in UNCOMPARED)
        return set(psql("SELECT format('SELECT %L || chr(9) || row_to_json(t)::text FROM %I t', tablename, tablename) "
                        f"FROM pg_tables WHERE schemaname = 'public' AND tablename NOT IN ({left_out}) \\gexec", self.name))

    def lines(self, query):
        return psql(query, self.name)

    def values(self, queries):
        return psql(";\n".join(queries), self.name)

    def changes(self, statement):
        return bool(psql(statement, self.name, check=False))

    def wait_for_killed(self):
        """The server finishes what a killed client has begun."""
        others = f"SELECT count(*) FROM pg_stat_activity WHERE datname = '{self.name}' AND pid <> pg_backend_pid()"
        for _ in range(1000):
            if psql(others, self.name) == ["0"]:
                return
            time.sleep(0.01)
        raise AssertionError("a session does not end")

    def commands(self):
        for arguments, given in super().commands():
            if arguments[0] == "init":
                continue  # makes an embedded database
            yield arguments, SERVER["PASSWORD"] + "\n" if arguments[0] == "password" else given
