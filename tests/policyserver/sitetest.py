"""Hosts that run only a mail filter, and policy servers that answer as a test says."""

import hashlib
import http.server
import os
import signal
import socket
import ssl
import subprocess
import threading
import time

from servertest import PATIENCE, ZAROCTL, environment, wait_until

ZAROFILTERD = os.environ["ZAROFILTERD_PATH"]


def run_zaroctl(home, *arguments, status=0, given=None):
    """What the command prints, on standard output and on standard error."""
    done = subprocess.run([ZAROCTL, *arguments], env={**environment(), "ZARO_HOME": str(home)}, input=given,
                          capture_output=True, text=True, timeout=PATIENCE, check=False)
    assert done.returncode == status, f"{arguments}: {done.returncode} {done.stdout} {done.stderr}"
    return done.stdout, done.stderr


# A look by the clock would come too late for any of the tests.
FILTER_SETTINGS = {"policy_socket": "unix:run/policy.sock", "poll_secs": "3600"}


class Filter:
    """The mail filter of an installation that is there; mail servers ask it by policy delegation."""

    def __init__(self, home):
        self.home = home
        self.delegation = self.home / "run" / "policy.sock"
        self.log_path = self.home / "filter.log"
        self.process = None

    def set(self, *settings):
        run_zaroctl(self.home, "settings", "set", "--host", *settings)

    def launch(self):
        """Starts it without waiting."""
        with open(self.log_path, "ab") as log:
            self.process = subprocess.Popen([ZAROFILTERD, "--home", str(self.home), "--foreground"], stderr=log,
                                            env=environment())

    def start(self):
        self.launch()
        wait_until(self._is_ready, f"the filter listens: {self.log()}")
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

    def stop(self):
        """Answers the exit status."""
        if self.process is None:
            return None
        if self.process.poll() is None:
            self.process.terminate()
        status = self.process.wait(PATIENCE)
        self.process = None
        return status

    def decide(self, sender, recipient="user@example.com"):
        """What a mail server is told."""
        with socket.socket(socket.AF_UNIX) as asking:
            asking.settimeout(PATIENCE)
            asking.connect(str(self.delegation))
            asking.sendall(f"request=smtpd_access_policy\nprotocol_state=RCPT\nsender={sender}\nrecipient={recipient}\n\n"
                           .encode())
            answer = b""
            while not answer.endswith(b"\n\n"):
                piece = asking.recv(4096)
                if not piece:
                    raise ConnectionError(f"the filter closes after {answer!r}")
                answer += piece
        return answer.decode().strip()

    def refuses(self, sender):
        return self.decide(sender).startswith("action=550")


class FilterHost(Filter):
    """An installation without a database, whose filter asks policy servers."""

    def __init__(self, directory, name, port, hosts="127.0.0.1", **client):
        super().__init__(directory / name)
        run_zaroctl(self.home, "init", "--filter-only", "--policy-server", hosts)
        self.set(f"PolicyServerPort={port}", *(f"mail_filter.{key}={value}" for key, value in FILTER_SETTINGS.items()),
                 *(f"policy_client.{key}={value}" for key, value in client.items()))


class FakeServer:
    """Answers each GET with a status, headers and a body that can be changed meanwhile."""

    def __init__(self, port=0, address="127.0.0.1", certificate=None, key=None, client_ca=None):
        self.status = 503
        self.headers = {}
        self.body = b""
        self.requests = []
        fake = self

        class Handler(http.server.BaseHTTPRequestHandler):
            protocol_version = "HTTP/1.1"

            def do_GET(self):  # pylint: disable=invalid-name
                fake.requests.append((self.path, dict(self.headers)))
                self.send_response(fake.status)
                for name, value in {"Content-Length": str(len(fake.body)), **fake.headers}.items():
                    self.send_header(name, value)
                self.end_headers()
                self.wfile.write(fake.body)

            def log_message(self, *_):  # pylint: disable=arguments-differ
                pass

        class Server(http.server.ThreadingHTTPServer):
            daemon_threads = True

            def handle_error(self, *_):
                pass

        self.server = Server((address, port), Handler)
        self.port = self.server.server_address[1]
        if certificate:
            context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
            context.load_cert_chain(certificate, key)
            if client_ca:
                context.load_verify_locations(client_ca)
                context.verify_mode = ssl.CERT_REQUIRED
            self.server.socket = context.wrap_socket(self.server.socket, server_side=True, do_handshake_on_connect=False)
        self.thread = threading.Thread(target=self.server.serve_forever, kwargs={"poll_interval": 0.02}, daemon=True)
        self.thread.start()

    def drip(self, size):
        """From now on answers with a body of that size, 2000 bytes a second."""
        def do_get(handler):
            handler.send_response(200)
            handler.send_header("Content-Length", str(size))
            handler.end_headers()
            for _ in range(size // 200):
                handler.wfile.write(b" " * 200)
                time.sleep(0.1)
        self.server.RequestHandlerClass.do_GET = do_get

    def answer(self, body, status=200, **headers):
        self.status, self.body, self.headers = status, body, {name.replace("_", "-"): value
                                                              for name, value in headers.items()}

    def stop(self):
        self.server.shutdown()
        self.server.server_close()


def snapshot(version, blocked="refused@bad.test"):
    """A policy with one rule, which refuses one sender."""
    delete = "1" + "0" * 16
    lines = [
        f'{{"format":1,"version":{version},"made_at":"2026-01-01T00:00:00Z","rules":1,"entities":0,"groups":1,'
        '"members":1,"objects":0}',
        f'{{"rule":1,"name":"refuse","position":1,"enabled":true,"scope":null,"recipients":null,"lists":[[2,2]],"compare":1,'
        f'"actions":"{delete}","quarantine":null,"reply":"no","tag":"","header_value":"","address":""}}',
        '{"group":2,"name":"list"}',
        f'{{"members":["{blocked}"]}}',
        '{"order":{"manual":false,"groups":[]}}']
    return with_digest("".join(line + "\n" for line in lines).encode())


def with_digest(text):
    """The snapshot whose lines but the last these are."""
    return text + f'{{"sha256":"{hashlib.sha256(text).hexdigest()}"}}\n'.encode()
