"""The clients of a soak run. Each asks without a pause what it knows the answers to."""

import hashlib
import http.client
import json
import random
import re
import smtplib
import socket
import struct
import subprocess
import threading
import time

from mailtest import PATIENCE, ZAROCTL

# Senders and what the policy has for them at all times, or in every other generation.
ALWAYS, NEVER, EVEN, ODD = "always@bad.test", "never@good.test", "even@turn.test", "odd@turn.test"
SENDERS = (ALWAYS, NEVER, EVEN, ODD)
RECIPIENT = "a@example.com"


def refusal(generation):
    return f"generation {generation}"


class Generations:
    """Which generations of the turning rule were in force, and which are in force now. Refusals name theirs.

    An answer must be of a generation that was in force between question and answer: of none older than one that the same
    program answered by before the question, and of none whose making had not begun.
    """

    def __init__(self):
        self.lock = threading.Lock()
        self.begun = 0
        self.seen = {}

    def at_least(self, where):
        """To be asked before the question: the oldest generation that the answer may be of."""
        with self.lock:
            return self.seen.get(where, 0)

    def note(self, where, generation):
        with self.lock:
            self.seen[where] = max(self.seen.get(where, 0), generation)

    def wrong(self, where, oldest, sender, answer):
        """What is wrong with an answer: the text of a refusal, or None when the mail may pass."""
        newest = self.begun
        told = re.search(r"generation (\d+)", answer) if answer is not None else None
        generation = int(told[1]) if told else None
        if answer is not None and generation is None:
            return f"{where} refuses {sender} with {answer}"
        if generation is not None:
            self.note(where, generation)
            if not oldest <= generation <= newest:
                return f"{where} refuses {sender} by generation {generation}, not {oldest} to {newest}"
            if sender == NEVER or (sender == EVEN and generation % 2) or (sender == ODD and generation % 2 == 0):
                return f"{where} refuses {sender} by generation {generation}"
            return None
        if sender == ALWAYS or (oldest == newest and sender == (ODD if newest % 2 else EVEN)):
            return f"{where} lets {sender} pass in generations {oldest} to {newest}"
        return None


class Client(threading.Thread):
    """Works until the end. What it raises is a finding, and it begins anew."""

    def __init__(self, soak, channel):
        super().__init__(name=channel.name)
        self.soak = soak
        self.channel = channel

    def run(self):
        while not self.soak.ended.is_set():
            try:
                self.work()
            except (OSError, AssertionError, ValueError, KeyError, http.client.HTTPException, smtplib.SMTPException,
                    subprocess.SubprocessError) as failure:
                self.fail(f"{type(failure).__name__}: {failure}")
                time.sleep(0.1)
        self.close()

    def work(self):
        """A few questions."""
        raise NotImplementedError

    def close(self):
        pass

    def fail(self, text):
        self.channel.note_error()
        self.soak.findings.add(f"{self.channel.name} failed", text)

    def ask(self, where, sender, question):
        """Times a question, which returns the text of the refusal or None, and looks whether the answer is right."""
        oldest = self.soak.generations.at_least(where)
        began = time.monotonic()
        answer = question()
        self.channel.note(time.monotonic() - began)
        if wrong := self.soak.generations.wrong(where, oldest, sender, answer):
            self.channel.note_error()
            self.soak.findings.add("wrong decision", wrong)


class Milter(Client):
    """A mail server's side of the mail filter protocol, up to the recipient."""

    CONNECTION_MESSAGES = 50
    # Connection, HELO, body, end of the header, DATA and unknown commands may be left out.
    STEPS_LEFT_OUT = 0x1 | 0x2 | 0x10 | 0x40 | 0x100 | 0x200
    ACTIONS = 0x1FF

    def __init__(self, soak, channel, path):
        super().__init__(soak, channel)
        self.path = str(path)
        self.stream = None

    def send(self, command, data=b""):
        self.stream.write(struct.pack(">I", len(data) + 1) + command + data)
        self.stream.flush()

    def receive(self):
        size = self.stream.read(4)
        assert len(size) == 4, "the filter has closed the connection"
        answer = self.stream.read(struct.unpack(">I", size)[0])
        return answer[:1], answer[1:]

    def work(self):
        with socket.socket(socket.AF_UNIX) as connection:
            connection.settimeout(PATIENCE)
            connection.connect(self.path)
            with connection.makefile("rwb") as self.stream:
                self.send(b"O", struct.pack(">III", 6, self.ACTIONS, self.STEPS_LEFT_OUT))
                command, options = self.receive()
                assert command == b"O" and struct.unpack(">III", options[:12])[2] == self.STEPS_LEFT_OUT, "negotiates otherwise"
                for _ in range(self.CONNECTION_MESSAGES):
                    if self.soak.ended.is_set():
                        break
                    sender = random.choice(SENDERS)
                    self.ask("filter", sender, lambda sender=sender: self.message(sender))
                self.send(b"Q")

    def message(self, sender):
        self.send(b"M", f"<{sender}>\0".encode())
        assert self.receive()[0] == b"c", "MAIL is not taken"
        self.send(b"R", f"<{RECIPIENT}>\0".encode())
        command, text = self.receive()
        self.send(b"A")
        assert command in (b"c", b"y"), f"RCPT is answered with {command} {text}"
        return text.decode() if command == b"y" else None


class Smtp(Client):
    """Mail through the mail server, a few messages in a session."""

    SESSION_MESSAGES = 10

    def __init__(self, soak, channel, server):
        super().__init__(soak, channel)
        self.server = server

    def work(self):
        with self.server.connect() as session:
            session.ehlo()
            for _ in range(self.SESSION_MESSAGES):
                if self.soak.ended.is_set():
                    return
                sender = random.choice(SENDERS)
                self.ask("filter", sender, lambda sender=sender: self.message(session, sender))

    @staticmethod
    def message(session, sender):
        assert session.mail(sender)[0] == 250, "MAIL is not taken"
        code, text = session.rcpt(RECIPIENT)
        if code == 550:
            session.rset()
            return text.decode()
        assert code == 250, f"RCPT is answered with {code} {text}"
        assert session.data("Subject: x\r\n\r\nText\r\n")[0] == 250, "the message is not taken"
        return None


class Bulk(Client):
    """smtp-source, which sends as fast as the mail server takes it."""

    MESSAGES = 100

    def __init__(self, soak, channel, server):
        super().__init__(soak, channel)
        self.server = server

    def work(self):
        began = time.monotonic()
        done = subprocess.run(["smtp-source", "-s", "4", "-m", str(self.MESSAGES), "-l", "4096", "-f", NEVER, "-t", RECIPIENT,
                               f"inet:127.0.0.1:{self.server.port}"], capture_output=True, text=True, timeout=PATIENCE, check=False)
        assert done.returncode == 0, f"smtp-source: {done.returncode} {done.stderr}"
        each = (time.monotonic() - began) / self.MESSAGES
        self.channel.note_many(self.MESSAGES, each, each, each)


class Delegation(Client):
    """Asks by policy delegation, over one connection."""

    def __init__(self, soak, channel, where, path):
        super().__init__(soak, channel)
        self.where = where
        self.path = str(path)

    def work(self):
        with socket.socket(socket.AF_UNIX) as connection:
            connection.settimeout(PATIENCE)
            connection.connect(self.path)
            while not self.soak.ended.is_set():
                sender = random.choice(SENDERS)
                self.ask(self.where, sender, lambda sender=sender: self.question(connection, sender))

    @staticmethod
    def question(connection, sender):
        connection.sendall(f"request=smtpd_access_policy\nprotocol_state=RCPT\nsender={sender}\nrecipient={RECIPIENT}\n\n".encode())
        answer = b""
        while not answer.endswith(b"\n\n"):
            piece = connection.recv(4096)
            assert piece, "the filter has closed the connection"
            answer += piece
        text = answer.decode().strip()
        assert text.startswith(("action=550", "action=DUNNO", "action=dunno")), text
        return text if text.startswith("action=550") else None


class PolicyReader(Client):
    """Asks the policy server for what is new, and looks whether it is whole, newer, and of a generation in force."""

    def __init__(self, soak, channel, port):
        super().__init__(soak, channel)
        self.port = port
        self.version = 0

    def work(self):
        connection = http.client.HTTPConnection("127.0.0.1", self.port, timeout=PATIENCE)
        tag = ""
        try:
            while not self.soak.ended.is_set():
                oldest = self.soak.generations.at_least("server")
                began = time.monotonic()
                connection.request("GET", "/v1/policy", headers={"If-None-Match": tag} if tag else {})
                answer = connection.getresponse()
                body = answer.read()
                self.channel.note(time.monotonic() - began)
                assert answer.status in (200, 304), f"status {answer.status}"
                if answer.status == 200:
                    tag = answer.headers["ETag"]
                    self.look(body, oldest)
                time.sleep(0.005)  # the other clients ask as fast as they can
        finally:
            connection.close()

    def look(self, body, oldest):
        lines = body.splitlines(keepends=True)
        digest = hashlib.sha256(b"".join(lines[:-1])).hexdigest()
        assert json.loads(lines[-1])["sha256"] == digest, "the snapshot is not whole"
        version = json.loads(lines[0])["version"]
        assert version >= self.version, f"version {version} after {self.version}"
        self.version = version
        rule = next(rule for rule in map(json.loads, lines[1:]) if rule.get("name") == "turning")
        generation = int(rule["reply"].split()[-1])
        self.soak.generations.note("server", generation)
        newest = self.soak.generations.begun
        if not oldest <= generation <= newest:
            self.channel.note_error()
            self.soak.findings.add("wrong policy", f"the server serves generation {generation}, not {oldest} to {newest}")


class ApacheBench(Client):
    """ab, which asks as fast as the policy server answers."""

    REQUESTS = 500

    def __init__(self, soak, channel, port):
        super().__init__(soak, channel)
        self.port = port

    def work(self):
        done = subprocess.run(["ab", "-q", "-k", "-l", "-c", "4", "-n", str(self.REQUESTS), "-H", "Accept-Encoding: gzip",
                               f"http://127.0.0.1:{self.port}/v1/policy"], capture_output=True, text=True, timeout=PATIENCE,
                              check=False)
        assert done.returncode == 0, f"ab: {done.returncode} {done.stderr}"
        failed = int(re.search(r"Failed requests:\s+(\d+)", done.stdout)[1])
        assert failed == 0 and "Non-2xx" not in done.stdout, done.stdout
        percentiles = {int(share): int(took) / 1000 for share, took in re.findall(r"^\s+(\d+)%\s+(\d+)", done.stdout, re.M)}
        self.channel.note_many(self.REQUESTS, percentiles[50], percentiles[99], percentiles[100])


class Console(Client):
    """Runs zaroctl, a process for each command."""

    def zaroctl(self, *arguments, status=0, timed=True):
        began = time.monotonic()
        done = subprocess.run([ZAROCTL, "--home", self.soak.home, *arguments], env=self.soak.environment, capture_output=True,
                              text=True, timeout=PATIENCE, check=False)
        if timed:
            self.channel.note(time.monotonic() - began)
        assert done.returncode == status, f"{' '.join(arguments)}: {done.returncode} {done.stdout} {done.stderr}"
        return done.stdout


class Turner(Console):
    """Makes one generation of the turning rule after the other, each when all have seen the one before."""

    def __init__(self, soak, channel, arrivals):
        super().__init__(soak, channel)
        self.arrivals = arrivals  # {where: channel of how long a change takes until it counts there}

    def work(self):
        generations = self.soak.generations
        generation = generations.begun + 1
        generations.begun = generation
        self.zaroctl("rule", "modify", "--as", "admin", "turning", "--list", f"{'Odd' if generation % 2 else 'Even'}:block",
                     "--reply", refusal(generation))
        generations.note("console", generation)
        began = time.monotonic()
        missing = dict(self.arrivals)
        while missing and not self.soak.ended.is_set():
            for where in [where for where in missing if generations.at_least(where) >= generation]:
                missing.pop(where).note(time.monotonic() - began)
            if time.monotonic() - began > PATIENCE:
                raise AssertionError(f"generation {generation} does not count at {', '.join(missing)}")
            time.sleep(0.01)


class Lister(Console):
    """Changes the scanner's list, and reads it back."""

    def __init__(self, soak, channel):
        super().__init__(soak, channel)
        self.generation = 0

    def work(self):
        new = self.generation + 1
        self.soak.scanned = new  # may be read from now on
        self.zaroctl("group", "modify", "Scanned", "--add", f"generation-{new}@marker.test", "--remove",
                     f"generation-{self.generation}@marker.test")
        self.generation = new
        members = self.zaroctl("group", "export", "Scanned").split()
        markers = [member for member in members if member.startswith("generation-")]
        assert markers == [f"generation-{self.generation}@marker.test"], f"the list has {markers}"


class Keeper(Console):
    """Makes, shows, changes and removes objects and rules."""

    def work(self):
        number = random.randrange(1 << 30)
        name = f"object {number}"
        added = self.zaroctl("object", "add", "--as", "admin", "--type", "quarantine", "--content", "x", name, "-q", "id").strip()
        self.zaroctl("object", "modify", "--as", "admin", added, "--content", f"content {number}")
        assert f"content {number}" in self.zaroctl("object", "show", "--as", "admin", added), "the content is not there"
        self.zaroctl("object", "remove", "--as", "admin", added)
        rule = f"rule {number}"
        self.zaroctl("rule", "add", "--as", "admin", "--for-all", "--list", "Bulk:block", "--action", "InsertXHeaderTag",
                     "--header-value", "x", "--disabled", rule)
        self.zaroctl("rule", "remove", "--as", "admin", rule)


class Looker(Console):
    """Asks the console what the rules decide, and for lists."""

    def work(self):
        sender = random.choice(SENDERS)
        oldest = self.soak.generations.at_least("console")
        done = subprocess.run([ZAROCTL, "--home", self.soak.home, "--json", "rule", "why", sender, RECIPIENT],
                              env=self.soak.environment, capture_output=True, text=True, timeout=PATIENCE, check=False)
        assert done.returncode in (0, 1), f"rule why: {done.returncode} {done.stderr}"
        refused = re.search(r"generation \d+", done.stdout)
        # Of the generation whose command has ended before, or of a later one.
        if wrong := self.soak.generations.wrong("console, read", oldest, sender, refused[0] if refused else None):
            self.channel.note_error()
            self.soak.findings.add("wrong decision", wrong)
        self.zaroctl("rule", "list", "--as", "admin")
        self.zaroctl("group", "list")
        shown = self.zaroctl("--json", "group", "show", "Odd")
        assert ALWAYS in shown and ODD in shown, f"group show: {shown}"


class Scanning(Client):
    """Reads what the scanner tells each second."""

    def __init__(self, soak, channel, process):
        super().__init__(soak, channel)
        self.process = process
        self.generation = 0
        self.reloads = 0

    def work(self):
        for line in self.process.stdout:
            told = json.loads(line)
            if told["answers"]:
                self.channel.note_many(told["answers"], *(told[key] / 1e9 for key in ("p50", "p99", "max")))
            newest = self.soak.scanned
            if not self.generation <= told["generation"] <= newest:
                self.soak.findings.add("wrong list", f"the scanner has list {told['generation']}, not {self.generation} to {newest}")
            self.generation, self.reloads = told["generation"], told["reloads"]
            if told["wrong"] or told["failed"]:
                self.fail(f"{told['wrong']} wrong answers, {told['failed']} failures")
        assert self.soak.ended.is_set(), "the scanner has ended"

