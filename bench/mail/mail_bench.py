"""What the mail filter costs behind a real mail server, and what a reload costs while mail flows.

    mail_bench.py [--patterns N] [--messages N] [--rounds N] [--questions N]

One Postfix takes mail at two ports of the loopback interface, one of which asks the filter. Each round sends the same number of
messages to both, one after the other, in an order drawn anew, so that the two times of a round belong together. A message
comes over a connection of its own and is discarded behind the queue. Questions of policy delegation show what decisions cost
for senders at random, which smtp-source cannot send. scripts/bench-mail sets ZAROCTL_PATH and ZAROFILTERD_PATH.
"""

import argparse
import os
import pathlib
import random
import re
import socket
import statistics
import subprocess
import sys
import threading
import time
import urllib.request

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "tests" / "mail"))
from mailtest import Directory, Filter, Gateway, Postfix, free_port, wait_until  # noqa: E402

SESSIONS = (1, 10, 50)


def pattern(number):
    """Of ten patterns six are addresses, three domains, one the sub-domains of one."""
    domain = f"d{number // 4}.example{number % 7}.test"
    return (f"*@*.{domain}" if number % 10 == 9 else f"*@{domain}" if number % 10 >= 6 else f"user{number}@{domain}")


def sender(patterns):
    """A sender, which about every other time a pattern contains."""
    number = random.randrange(patterns)
    return pattern(number).replace("*@*.", "a@b.").replace("*", "anyone") if random.random() < 0.5 else f"x{number}@good.test"


class Metrics:
    """What the filter counts, at one moment."""

    def __init__(self, address):
        with urllib.request.urlopen(f"http://{address}/metrics", timeout=60) as answer:
            self.samples = dict(line.rsplit(" ", 1) for line in answer.read().decode().splitlines() if line[0] != "#")

    def value(self, name):
        return float(self.samples[name])

    def buckets(self, name):
        found = ((re.fullmatch(rf'{name}_bucket{{le="([^"]+)"}}', key), value) for key, value in self.samples.items())
        return sorted((float(match[1]), float(value)) for match, value in found if match)


class Histogram:
    """What came into a histogram between two moments."""

    def __init__(self, name, before, after):
        self.buckets = [(limit, late - early)
                        for (limit, late), (_, early) in zip(after.buckets(name), before.buckets(name))]
        self.count = self.buckets[-1][1]

    def below(self, share):
        """The limit of the bucket in which that share of all is reached."""
        return next(limit for limit, count in self.buckets if count >= share * self.count)

    def share_within(self, limit):
        return next(count for bucket, count in self.buckets if bucket >= limit * 0.999) / self.count


def memory(process):
    status = pathlib.Path(f"/proc/{process.pid}/status").read_text(encoding="ascii")
    return {key: int(re.search(rf"{key}:\s+(\d+)", status)[1]) / 1024 for key in ("VmRSS", "VmHWM")}


def cpu_seconds_in(stat):
    fields = stat.read_text(encoding="ascii").rpartition(")")[2].split()
    return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")


def cpu_seconds(process):
    return cpu_seconds_in(pathlib.Path(f"/proc/{process.pid}/stat"))


def cpu_of_threads(process):
    """Of those that do not end meanwhile."""
    threads = {}
    for task in pathlib.Path(f"/proc/{process.pid}/task").iterdir():
        try:
            threads[task.name] = cpu_seconds_in(task / "stat")
        except FileNotFoundError:
            pass
    return threads


def send(port, sessions, messages):
    """Seconds for so many messages."""
    began = time.monotonic()
    subprocess.run(["smtp-source", "-s", str(sessions), "-m", str(messages), "-l", "4096", "-f", "user3@d0.example3.test", "-t",
                    "a@example.com", f"inet:127.0.0.1:{port}"], check=True)
    return time.monotonic() - began


def compare(started, ports, sessions, messages, rounds):
    """Prints a line of the table of what the filter adds."""
    times = {port: [] for port in ports}
    cpu = 0
    for _ in range(rounds):
        for port in random.sample(ports, len(ports)):
            before = cpu_seconds(started.process)
            times[port].append(send(port, sessions, messages) / messages * 1e3)
            cpu += cpu_seconds(started.process) - before
    plain, filtered = ports
    added = [with_filter - without for without, with_filter in zip(times[plain], times[filtered])]
    print(f"| {sessions} | {statistics.median(times[plain]):.2f} | {statistics.median(times[filtered]):.2f} | "
          f"{statistics.median(added):.2f} | {min(added):.2f} to {max(added):.2f} | "
          f"{cpu / rounds / messages * 1e3:.3f} |", flush=True)


class Asker:
    """Asks for decisions by policy delegation: one question at a time, from other senders each."""

    def __init__(self, path, patterns):
        self.patterns = patterns
        self.connection = socket.socket(socket.AF_UNIX)
        self.connection.connect(path)
        self.slowest = 0.0
        self.count = 0

    def ask(self):
        request = (f"request=smtpd_access_policy\nprotocol_state=RCPT\nsender={sender(self.patterns)}\n"
                   "recipient=a@example.com\n\n").encode()
        began = time.monotonic()
        self.connection.sendall(request)
        answer = b""
        while not answer.endswith(b"\n\n"):
            answer += self.connection.recv(4096)
        self.slowest = max(self.slowest, time.monotonic() - began)
        self.count += 1


def tell_decisions(title, histogram):
    print(f"| {title} | {histogram.count:.0f} | {histogram.below(0.5) * 1e6:g} | {histogram.below(0.99) * 1e6:g} | "
          f"{histogram.below(0.999) * 1e6:g} | {histogram.below(1) * 1e6:g} | "
          f"{100 * histogram.share_within(2e-5):.2f} % |", flush=True)


def reload_while_mail_flows(started, gateway, address, port, asker):
    """A change is stored while mail flows and decisions are asked for; answers what was decided until it counted.

    The load leaves processors free, as a mail server's does: 50 sessions of a message a second, and 500 questions.
    """
    flowing = subprocess.Popen(["smtp-source", "-s", "50", "-w", "1", "-m", "1000000", "-l", "4096", "-f", "x@good.test", "-t",
                                "a@example.com", f"inet:127.0.0.1:{port}"])
    ended = threading.Event()

    def ask():
        while not ended.wait(0.002):
            asker.ask()

    asking = threading.Thread(target=ask)
    asking.start()
    time.sleep(2)
    try:
        before = Metrics(address)
        asker.slowest = 0.0
        used = memory(started.process)["VmRSS"]
        cpu_before = cpu_of_threads(started.process)
        gateway.run_sql("UPDATE policy_rule SET reply = reply || '.'")
        started.wait_for_version(gateway.version())
        wait_until(lambda: Metrics(address).value("zaro_filter_reload_seconds_count") >
                   before.value("zaro_filter_reload_seconds_count"), "the reload is counted")
        after = Metrics(address)
        # The loader's thread is the busiest by far.
        cpu = max(spent - cpu_before.get(thread, 0) for thread, spent in cpu_of_threads(started.process).items())
    finally:
        ended.set()
        asking.join()
        flowing.terminate()
        flowing.wait()
    took = after.value("zaro_filter_reload_seconds_sum") - before.value("zaro_filter_reload_seconds_sum")
    peak = memory(started.process)["VmHWM"]
    time.sleep(2)
    print(f"| {took:.2f} | {cpu:.2f} | {asker.slowest * 1e3:.2f} | {used:.0f} | {peak:.0f} | {memory(started.process)['VmRSS']:.0f} |",
          flush=True)
    return Histogram("zaro_filter_decision_seconds", before, after)


def load():
    return f"{os.getloadavg()[0]:.1f}"


def main():
    parser = argparse.ArgumentParser(description="What the mail filter costs behind a mail server")
    parser.add_argument("--patterns", type=int, default=2000000)
    parser.add_argument("--messages", type=int, default=1000, help="of each round")
    parser.add_argument("--rounds", type=int, default=7)
    parser.add_argument("--questions", type=int, default=200000)
    chosen = parser.parse_args()
    directory = Directory()
    cleaning = [directory.remove]
    try:
        gateway = Gateway(directory.path)
        address = f"127.0.0.1:{free_port()}"
        gateway.set(metrics=address, policy_socket="unix:run/policy.sock", poll_secs="1")
        print(f"{chosen.patterns} patterns; load average {load()} before\n", flush=True)
        half = chosen.patterns // 2
        gateway.rule("first half", [pattern(number) for number in range(half)], kind=2, actions=["InsertXHeaderTag"],
                     header_value="seen")
        gateway.rule("second half", [pattern(number) for number in range(half, chosen.patterns)], kind=2,
                     actions=["InsertXHeaderTag"], header_value="seen")
        started = Filter(gateway)
        cleaning.append(started.stop)
        began = time.monotonic()
        started.start(patience=600)
        print(f"Started and ready after {time.monotonic() - began:.1f} s, {memory(started.process)['VmRSS']:.0f} MB, at most "
              f"{memory(started.process)['VmHWM']:.0f} MB\n", flush=True)
        server = Postfix(directory.path, "", virtual_transport="discard", default_transport="discard")
        filtered = server.add_port(smtpd_milters=f"unix:{started.socket}")
        cleaning.append(server.stop)
        server.start()
        ports = (server.port, filtered)
        for port in ports:
            send(port, 10, chosen.messages)  # warm

        print("| sessions | without, ms a message | with, ms | added, ms | added, all rounds | CPU of the filter, ms |")
        print("|---|---|---|---|---|---|")
        behind_postfix = {}
        for sessions in SESSIONS:
            before = Metrics(address)
            compare(started, ports, sessions, chosen.messages, chosen.rounds)
            behind_postfix[sessions] = Histogram("zaro_filter_decision_seconds", before, Metrics(address))

        asker = Asker(str(gateway.home / "run" / "policy.sock"), chosen.patterns)
        before = Metrics(address)
        for _ in range(chosen.questions):
            asker.ask()
        asked = Histogram("zaro_filter_decision_seconds", before, Metrics(address))

        print("\n| reload, s | CPU of the loader, s | slowest answer, ms | memory before, MB | at most, MB | after, MB |")
        print("|---|---|---|---|---|---|")
        # The first one takes memory that the filter keeps for the others.
        reloading = [reload_while_mail_flows(started, gateway, address, filtered, asker) for _ in range(5)]

        print("\n| decisions | how many | half within, us | 99 % | 99.9 % | all | within 20 us |")
        print("|---|---|---|---|---|---|---|")
        for sessions, histogram in behind_postfix.items():
            tell_decisions(f"of the messages above, {sessions} at a time, one sender", histogram)
        tell_decisions("of senders at random", asked)
        for histogram in reloading:
            tell_decisions("during a reload", histogram)
        print(f"\nload average {load()} after")
    finally:
        for clean in reversed(cleaning):
            clean()


if __name__ == "__main__":
    main()
