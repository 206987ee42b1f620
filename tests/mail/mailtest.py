"""Installations, filters and private mail servers for tests: processes on loopback that end by their process ids."""

import os
import pathlib
import pwd
import re
import shutil
import signal
import smtplib
import socket
import sqlite3
import subprocess
import tempfile
import time
import unittest

ZAROCTL = os.environ["ZAROCTL_PATH"]
ZAROFILTERD = os.environ["ZAROFILTERD_PATH"]
MASTER = "/usr/lib/postfix/sbin/master"

# No test waits that long; a wait that does ends in a failure.
PATIENCE = float(os.environ.get("ZARO_PATIENCE", "60"))

# Positions of the action bitmap.
ACTIONS = {"Delete": 0, "Quarantine": 1, "Archive": 3, "Readdress": 5, "SubjectTagging": 8, "Postpone": 9, "Bcc": 12,
           "InsertXHeaderTag": 13}
BITMAP_LENGTH = 17


def wait_until(condition, what, patience=PATIENCE):
    deadline = time.monotonic() + patience
    while not condition():
        if time.monotonic() > deadline:
            raise AssertionError("waited in vain: " + what)
        time.sleep(0.02)


def free_port():
    with socket.socket() as one:
        one.bind(("127.0.0.1", 0))
        return one.getsockname()[1]


class Directory:
    """A directory that other users may pass, unlike what tempfile makes."""

    def __init__(self):
        self.path = pathlib.Path(tempfile.mkdtemp(prefix="zaro-mail-"))
        self.path.chmod(0o755)

    def remove(self):
        shutil.rmtree(self.path, ignore_errors=True)


class Gateway:
    """An installation with rules, on the embedded database."""

    def __init__(self, directory):
        self.home = directory / "gateway"
        self.make()
        self.set(socket_mode="0666", poll_secs="1")
        self.run_sql("INSERT INTO administrator (name, is_root) VALUES ('admin', 1)")

    def make(self):
        self.zaroctl("init", str(self.home))

    def run_sql(self, statement):
        with self.database() as db:
            db.execute(statement)

    def zaroctl(self, *arguments, status=0, given=""):
        environment = {key: value for key, value in os.environ.items() if not key.startswith("ZARO_")}
        done = subprocess.run([ZAROCTL, *arguments], env={**environment, "ZARO_HOME": str(self.home)}, input=given,
                              capture_output=True, text=True, timeout=PATIENCE, check=False)
        assert done.returncode == status, f"{arguments}: {done.returncode} {done.stderr}"
        return done.stdout

    def set(self, **settings):
        """In the file, which counts above the database."""
        path = self.home / "config" / "zaro.ini"
        before, _, own = path.read_text(encoding="utf-8").partition("[mail_filter]\n")
        for key, value in settings.items():
            own = re.sub(rf"(?m)^{key}=.*\n", "", own) + f"{key}={value}\n"
        path.write_text(f"{before}[mail_filter]\n{own}", encoding="utf-8")

    def database(self):
        """A connection that commits and closes as it is left."""
        return _Database(self.home / "data" / "zaro.db")

    def rule(self, name, members, kind=2, actions=(), scope=None, compares=1, **texts):
        """A rule whose list holds `members`, behind the rules that are there."""
        with self.database() as db:
            group = db.execute("INSERT INTO named_object (type, name, content) VALUES (5, ?, '')", (name + " list",)).lastrowid
            db.executemany("INSERT INTO address_group_member (group_id, position, address) VALUES (?, ?, ?)",
                           [(group, position, member) for position, member in enumerate(members)])
            entity = None
            if scope is not None:
                entity = db.execute("INSERT INTO entity (type, name) VALUES (6, ?)", (scope,)).lastrowid
            area = texts.pop("area", None)
            if area is not None:
                area = db.execute("INSERT INTO named_object (type, name, content) VALUES (3, ?, '')", (area,)).lastrowid
            positions = {ACTIONS[key] for key in actions}
            bitmap = "".join("1" if position in positions else "0" for position in range(BITMAP_LENGTH))
            position = db.execute("SELECT coalesce(max(position), 0) + 1 FROM policy_rule").fetchone()[0]
            rule = db.execute(
                "INSERT INTO policy_rule (name, position, enabled, scope_id, compares, actions, quarantine_id, reply, tag,"
                " header_value, address) VALUES (?, ?, 1, ?, ?, ?, ?, ?, ?, ?, ?)",
                (name, position, entity, compares, bitmap, area, texts.get("reply", ""), texts.get("tag", ""),
                 texts.get("header_value", ""), texts.get("address", ""))).lastrowid
            db.execute("INSERT INTO policy_rule_object (rule_id, object_id) VALUES (?, ?)", (rule, group))
            db.execute("INSERT INTO policy_rule_list (rule_id, position, group_id, kind) VALUES (?, 0, ?, ?)",
                       (rule, group, kind))

    def disable(self, name):
        with self.database() as db:
            db.execute("UPDATE policy_rule SET enabled = 0 WHERE name = ?", (name,))

    def version(self):
        with self.database() as db:
            return db.execute("SELECT version FROM policy_version").fetchone()[0]


class _Database:
    def __init__(self, path):
        self.connection = sqlite3.connect(path, timeout=PATIENCE)
        self.connection.execute("PRAGMA foreign_keys = ON")

    def __enter__(self):
        return self.connection

    def __exit__(self, kind, value, trace):
        if kind is None:
            self.connection.commit()
        self.connection.close()


class Filter:
    """A running zarofilterd."""

    def __init__(self, gateway, wrapper=(), environment=None):
        self.gateway = gateway
        self.socket = gateway.home / "run" / "zarofilterd.sock"
        self.wrapper = list(wrapper)
        self.environment = environment or {}
        self.process = None
        self.log_path = gateway.home / "filter.log"

    def start(self, patience=PATIENCE):
        inherited = {key: value for key, value in os.environ.items() if not key.startswith("ZARO_")}
        with open(self.log_path, "ab") as log:
            self.process = subprocess.Popen(
                [*self.wrapper, ZAROFILTERD, "--home", str(self.gateway.home), "--foreground"], stderr=log,
                env={**inherited, **self.environment})
        wait_until(self._is_ready, "the filter listens", patience)
        return self

    def _is_ready(self):
        assert self.process.poll() is None, f"the filter ended: {self.log()}"
        return f"zarofilterd[{self.process.pid}]: info: ready" in self.log()

    def log(self):
        return self.log_path.read_text(encoding="utf-8", errors="replace")

    def wait_for_log(self, text, count=1):
        wait_until(lambda: self.log().count(text) >= count, f"{text!r} in {self.log()}")

    def reload(self):
        self.process.send_signal(signal.SIGHUP)

    def wait_for_version(self, version):
        self.wait_for_log(f"policy {version} decides")

    def stop(self, number=signal.SIGTERM):
        """Answers the exit status."""
        if self.process is None:
            return None
        if self.process.poll() is None:
            self.process.send_signal(number)
        status = self.process.wait(PATIENCE)
        self.process = None
        return status


class Postfix:
    """A mail server of our own; it delivers example.com into one Maildir and asks a filter."""

    SERVICES = """
pickup unix n - n 60 1 pickup
cleanup unix n - n - 0 cleanup
qmgr unix n - n 300 1 qmgr
rewrite unix - - n - - trivial-rewrite
bounce unix - - n - 0 bounce
defer unix - - n - 0 bounce
trace unix - - n - 0 bounce
flush unix n - n 1000? 0 flush
proxymap unix - - n - - proxymap
smtp unix - - n - - smtp
relay unix - - n - - smtp
showq unix n - n - - showq
error unix - - n - - error
retry unix - - n - - error
discard unix - - n - - discard
virtual unix - n n - - virtual
anvil unix - - n - 1 anvil
postlog unix-dgram n - n - 1 postlogd
"""

    def __init__(self, directory, milter=None, **settings):
        self.directory = directory / "postfix"
        self.port = free_port()
        self.process = None
        for name in ("etc", "queue", "data", "log", "mail"):
            (self.directory / name).mkdir(parents=True)
        owner = pwd.getpwnam("postfix")
        os.chown(self.directory / "data", owner.pw_uid, owner.pw_gid)
        os.chown(self.directory / "mail", 65534, 65534)
        self._write_configuration({"smtpd_milters": milter or "", **settings})

    def _write_configuration(self, more):
        settings = {
            "compatibility_level": "3.6", "queue_directory": self.directory / "queue",
            "data_directory": self.directory / "data", "maillog_file": self.directory / "log" / "mail.log",
            "maillog_file_prefixes": self.directory, "command_directory": "/usr/sbin",
            "daemon_directory": "/usr/lib/postfix/sbin", "meta_directory": "/etc/postfix", "mail_owner": "postfix",
            "setgid_group": "postdrop", "myhostname": "mx.test", "mydestination": "", "alias_maps": "",
            "alias_database": "", "mynetworks": "127.0.0.0/8", "inet_interfaces": "127.0.0.1",
            "inet_protocols": "ipv4", "local_transport": "error:no local delivery", "smtpd_peername_lookup": "no",
            "smtp_dns_support_level": "disabled", "smtpd_relay_restrictions": "reject_unauth_destination",
            "in_flow_delay": "0", "milter_default_action": "tempfail", "milter_connect_timeout": "5s",
            "milter_command_timeout": "10s", "virtual_mailbox_domains": "example.com",
            "virtual_mailbox_base": self.directory / "mail", "virtual_mailbox_maps": "static:all/",
            "virtual_uid_maps": "static:65534", "virtual_gid_maps": "static:65534", "smtpd_client_connection_count_limit": "0",
            **more}
        (self.directory / "etc" / "main.cf").write_text("".join(f"{key} = {value}\n" for key, value in settings.items()))
        (self.directory / "etc" / "master.cf").write_text(f"127.0.0.1:{self.port} inet n - n - - smtpd\n" + self.SERVICES)

    def add_port(self, **settings):
        """Before the start: takes mail at one more port, with other settings. Answers the port."""
        port = free_port()
        with open(self.directory / "etc" / "master.cf", "a", encoding="ascii") as services:
            services.write(f"127.0.0.1:{port} inet n - n - - smtpd\n")
            services.writelines(f"  -o {key}={value}\n" for key, value in settings.items())
        return port

    def start(self):
        subprocess.run(["postfix", "-c", self.directory / "etc", "check"], check=True, capture_output=True, timeout=PATIENCE)
        # In a session of its own, as master wants it.
        self.process = subprocess.Popen([MASTER, "-d", "-c", self.directory / "etc"], start_new_session=True,
                                        stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        wait_until(self._answers, "the mail server answers")
        return self

    def _answers(self):
        try:
            with socket.create_connection(("127.0.0.1", self.port), 1) as one:
                return one.recv(4) == b"220 "
        except OSError:
            return False

    def stop(self):
        if self.process is not None:
            self.process.terminate()
            self.process.wait(PATIENCE)
            self.process = None

    def connect(self):
        return smtplib.SMTP("127.0.0.1", self.port, "client.test", PATIENCE)

    def send(self, sender, recipients, body="Subject: Hello\r\n\r\nText\r\n"):
        """Answers the replies to the recipients and to the message; the latter is None when none was taken."""
        with self.connect() as session:
            session.ehlo()
            session.mail(sender)
            replies = [session.rcpt(recipient) for recipient in recipients]
            taken = any(code == 250 for code, _ in replies)
            return [code for code, _ in replies], session.data(body) if taken else None

    def replies(self, *commands):
        """Answers the reply codes to commands as they stand here, none of which a client library spells otherwise."""
        with self.connect() as session:
            session.ehlo()
            return [session.docmd(command)[0] for command in commands]

    def delivered(self):
        """The messages in the Maildir, as texts."""
        mail = self.directory / "mail" / "all" / "new"
        return [path.read_text(encoding="latin-1") for path in mail.glob("*")] if mail.exists() else []

    def wait_for_mail(self, marker, count=1):
        found = []

        def is_there():
            found[:] = [text for text in self.delivered() if marker in text]
            return len(found) >= count

        wait_until(is_there, f"{count} of {marker!r} in the mailbox")
        return found

    def held(self):
        return sum(1 for path in (self.directory / "queue" / "hold").rglob("*") if path.is_file())

    def log(self):
        path = self.directory / "log" / "mail.log"
        return path.read_text(encoding="utf-8", errors="replace") if path.exists() else ""


def why_no_postfix():
    if not os.path.exists(MASTER):
        return "postfix is not installed"
    return "postfix is started by root only" if os.geteuid() != 0 else None


class MailTest(unittest.TestCase):
    """A gateway in a directory of its own."""

    def setUp(self):
        directory = Directory()
        self.addCleanup(directory.remove)
        self.directory = directory.path
        self.gateway = self.make_gateway()

    def make_gateway(self):
        return Gateway(self.directory)

    def start_filter(self, **arguments):
        started = Filter(self.gateway, **arguments)
        self.addCleanup(started.stop)
        return started.start()

    def start_postfix(self, **settings):
        if reason := why_no_postfix():
            self.skipTest(reason)
        milter = settings.pop("milter", f"unix:{self.gateway.home}/run/zarofilterd.sock")
        server = Postfix(self.directory, milter, **settings)
        self.addCleanup(server.stop)
        return server.start()
