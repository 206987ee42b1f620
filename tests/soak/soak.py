"""Everything at once, for as long as wanted: console, scanner, mail filters, policy server, and their real clients.

    soak.py [SECONDS] [--patterns N] [--plot FILE]

One installation: on PostgreSQL inside scripts/with-postgres, otherwise on the embedded database. Its policy changes all the time:
a rule turns from one generation to the next, a list is written anew, objects and rules come and go. A mail filter reads the
database, behind a Postfix of its own where that can be started; a second one, on a host without a database, asks the policy
server. What is known of every answer is checked; see `Generations` in clients.py.

Prints a table of what was done, how long it took, and what the processes held; fails at an error, a wrong answer, and when memory,
descriptors or threads of a process grow. scripts/soak sets the paths of the programs.
"""

import argparse
import contextlib
import os
import pathlib
import re
import subprocess
import sys
import threading
import time
import urllib.request

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path[1:1] = [str(ROOT / folder) for folder in ("tests/mail", "tests/policyserver", "bench")]

from filter_postgresql import SERVER, ServerGateway  # noqa: E402
from mailtest import Directory, Filter, Gateway, Postfix, free_port, why_no_postfix  # noqa: E402
from servertest import Server, environment  # noqa: E402
from sitetest import FilterHost  # noqa: E402

from clients import (ApacheBench, Bulk, Delegation, Generations, Keeper, Lister, Looker, Milter, PolicyReader, Scanning, Smtp,  # noqa: E402
                     Turner, refusal)
from record import Findings, Recorder  # noqa: E402

SCANNER = os.environ["ZARO_SCANNER"]
SCANNER_PATTERNS, SCANNER_THREADS = 1000, 2
# Logs of daemons have a line for each decision; they are emptied when they are this long.
LOG_BYTES = 16 << 20
# Mail that is refused is no sign of a client gone wrong.
POSTFIX = {"virtual_transport": "discard", "default_transport": "discard", "smtpd_error_sleep_time": "0",
           "smtpd_soft_error_limit": "10000", "smtpd_hard_error_limit": "20000"}
# What daemons count of their own failures.
FAILURES = ("zaro_filter_undecided_total", "zaro_filter_failed_messages_total", "zaro_filter_reload_failures_total",
            "zaro_filter_unsaved_policies_total", "zaro_filter_policy_server_failures_total", "zaro_server_turned_away_total",
            "zaro_server_look_failures_total", "zaro_server_unsaved_policies_total", "zaro_server_timeouts_total")


class Served:
    """A gateway whose policy a server hands out."""

    def take_port(self):
        self.port = free_port()
        self.zaroctl("settings", "set", f"PolicyServerPort={self.port}", "threads=2", "max_threads=8")


class EmbeddedSite(Served, Gateway):
    def __init__(self, directory):
        super().__init__(directory)
        self.run_sql("INSERT INTO entity (type, name) VALUES (6, '*@*')")
        self.run_sql("INSERT INTO administrator_entity (administrator_id, entity_id) SELECT a.id, e.id FROM administrator a, "
                     "entity e")
        self.take_port()

    def remove(self):
        """With its directory."""


class ServerSite(Served, ServerGateway):
    def __init__(self, directory):
        super().__init__(directory)
        self.take_port()


def write_policy(site, patterns):
    def group(name, members):
        site.zaroctl("group", "add", "--as", "admin", name)
        path = site.home / "members"
        path.write_text("\n".join(members) + "\n", encoding="ascii")
        site.zaroctl("group", "import", name, str(path))
        path.unlink()

    group("Even", ["always@bad.test", "even@turn.test"])
    group("Odd", ["always@bad.test", "odd@turn.test"])
    group("Bulk", [f"user{number}@d{number // 8}.bulk.test" for number in range(patterns)])
    group("Scanned", ["generation-0@marker.test", "*@*.wild.blocked.test"] +
          [f"user{number}@d{number}.blocked.test" for number in range(SCANNER_PATTERNS)])
    site.zaroctl("rule", "add", "--as", "admin", "--for-all", "--list", "Even:block", "--action", "Delete", "--reply",
                 refusal(0), "turning")
    site.zaroctl("rule", "add", "--as", "admin", "--for-all", "--list", "Bulk:block", "--action", "InsertXHeaderTag",
                 "--header-value", "bulk", "tag")


class LogReader:
    """Looks for warnings and errors in the log of a daemon, and keeps it short."""

    def __init__(self, name, path, findings):
        self.name, self.path, self.findings = name, path, findings
        self.read = self.path.stat().st_size

    def look(self):
        with open(self.path, "rb") as log:
            log.seek(self.read)
            text = log.read()
        self.read += len(text)
        for line in re.findall(rb"^.*\]: (?:error|warning): .*$", text, re.M):
            self.findings.add(f"{self.name} logs", line.decode(errors="replace"))
        if self.read > LOG_BYTES:
            os.truncate(self.path, 0)
            self.read = 0


def metrics(address):
    with urllib.request.urlopen(f"http://{address}/metrics", timeout=60) as answer:
        lines = [line for line in answer.read().decode().splitlines() if not line.startswith("#")]
    return {name: float(value) for name, value in (line.rsplit(" ", 1) for line in lines)}


class Soak:
    def __init__(self, chosen):
        self.chosen = chosen
        self.findings = Findings()
        self.recorder = Recorder(self.findings)
        self.generations = Generations()
        self.ended = threading.Event()
        self.environment = environment()
        self.scanned = 0
        self.clients = []
        self.logs = []

    def run(self):
        with contextlib.ExitStack() as ending:
            self.set_up(ending)
            self.recorder.start()
            ending.callback(self.recorder.stop)
            ending.callback(self.stop_clients)
            for client in self.clients:
                client.start()
            end = time.monotonic() + self.chosen.seconds
            while time.monotonic() < end:
                time.sleep(min(1.0, max(0.0, end - time.monotonic())))
                for log in self.logs:
                    log.look()
            self.recorder.stop()
            self.stop_clients()
            self.look_at_metrics()
            self.stop_daemons()
            for log in self.logs:
                log.look()
        self.recorder.judge()
        self.tell()
        return not self.findings.counts

    def set_up(self, ending):
        directory = Directory()
        ending.callback(directory.remove)
        self.site = site = (ServerSite if SERVER["HOST"] else EmbeddedSite)(directory.path)
        ending.callback(site.remove)
        self.home = str(site.home)
        write_policy(site, self.chosen.patterns)
        self.metrics_addresses = [f"127.0.0.1:{free_port()}" for _ in range(2)]
        site.set(metrics=self.metrics_addresses[0], policy_socket="unix:run/policy.sock")
        self.filter = Filter(site)
        self.server = Server(site)
        self.host = FilterHost(directory.path, "host", site.port)
        self.host.set(f"mail_filter.metrics={self.metrics_addresses[1]}")
        for name, daemon in (("policy server", self.server), ("filter", self.filter), ("filter without database", self.host)):
            ending.callback(daemon.stop)
            if daemon is self.host:
                daemon.set(f"PolicyServerPort={site.port}")  # the server may have taken another one
            daemon.start()
            self.recorder.watch(name, daemon.process.pid)
            self.logs.append(LogReader(name, daemon.log_path, self.findings))
        self.start_scanner(ending)
        self.add_clients(self.start_postfix(directory.path, ending))

    def start_scanner(self, ending):
        number = self.site.zaroctl("group", "list", "-q", "id").split()[
            self.site.zaroctl("group", "list", "-q", "name").split().index("Scanned")]
        self.scanner = subprocess.Popen([SCANNER, number, str(SCANNER_THREADS)], env={**self.environment, "ZARO_HOME": self.home},
                                        stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)
        ending.callback(self.scanner.kill)
        self.recorder.watch("scanner", self.scanner.pid)

    def start_postfix(self, directory, ending):
        if reason := why_no_postfix():
            print(f"Without mail: {reason}")
            return None
        server = Postfix(directory, f"unix:{self.filter.socket}", **POSTFIX)
        ending.callback(server.stop)
        return server.start()

    def add_clients(self, postfix):
        channel = self.recorder.channel
        milter, reads, ab = channel("milter"), channel("console, reads"), channel("HTTP, ab")
        self.clients = [Milter(self, milter, self.filter.socket) for _ in range(2)]
        if postfix is not None:
            smtp = channel("SMTP")
            self.clients += [Smtp(self, smtp, postfix) for _ in range(2)]
            self.clients.append(Bulk(self, channel("SMTP, smtp-source"), postfix))
        self.clients += [
            Delegation(self, channel("delegation"), "filter", self.site.home / "run" / "policy.sock"),
            Delegation(self, channel("delegation, filter without database"), "filter without database", self.host.delegation),
            PolicyReader(self, channel("HTTP, checked"), self.site.port), ApacheBench(self, ab, self.site.port),
            Lister(self, channel("console, list")), Keeper(self, channel("console, objects and rules")),
            *(Looker(self, reads) for _ in range(2)), Scanning(self, channel("scanner"), self.scanner),
            Turner(self, channel("console, rule"), {where: channel(f"until a change counts: {where}")
                                                    for where in ("filter", "filter without database", "server")})]

    def stop_clients(self):
        if self.ended.is_set():
            return
        self.ended.set()
        self.scanner.stdin.close()
        for client in self.clients:
            if client.ident is not None:
                client.join()
        if self.scanner.wait(60) != 0:
            self.findings.add("exit status", f"scanner: {self.scanner.returncode}")

    def look_at_metrics(self):
        for address in (*self.metrics_addresses, f"127.0.0.1:{self.site.port}"):
            for name, value in metrics(address).items():
                if name.startswith(FAILURES) and value != 0:
                    self.findings.add("metrics", f"{name} is {value:g}")

    def stop_daemons(self):
        for name, daemon in (("filter without database", self.host), ("filter", self.filter), ("policy server", self.server)):
            if (status := daemon.stop()) != 0:
                self.findings.add("exit status", f"{name}: {status}")

    def tell(self):
        database = "PostgreSQL" if SERVER["HOST"] else "SQLite"
        print(f"{self.recorder.seconds()} seconds on {database}, {self.chosen.patterns} patterns, {self.generations.begun} generations "
              f"of the rule, {self.scanned} of the scanner's list; load average {os.getloadavg()[0]:.1f} on {os.cpu_count()} processors")
        self.recorder.print()
        if self.chosen.plot:
            self.chosen.plot.write_text(self.recorder.plot(), encoding="utf-8")
        print()
        self.findings.print()
        print("No finding." if not self.findings.counts else f"{sum(self.findings.counts.values())} findings.")


def main():
    parser = argparse.ArgumentParser(description="Console, scanner, filters, policy server and their clients at once")
    parser.add_argument("seconds", nargs="?", type=int, default=60)
    parser.add_argument("--patterns", type=int, default=5000)
    parser.add_argument("--plot", type=pathlib.Path, help="where the curves go, as SVG")
    sys.exit(0 if Soak(parser.parse_args()).run() else 1)


if __name__ == "__main__":
    main()
