"""What a soak run measures: seconds of clients, seconds of processes, and what is made of them at the end."""

import collections
import math
import os
import pathlib
import statistics
import threading
import time

import curves

# Of a client: how many, and how long they took in seconds. Of a process: megabytes.
Second = collections.namedtuple("Second", "count median high longest errors")
State = collections.namedtuple("State", "memory descriptors threads")

# A process may keep a little more at the end than in the middle: pages that it touched at last, and what the allocator rounds.
MORE_MEMORY_SHARE, MORE_MEMORY_MB = 0.05, 4
MORE_DESCRIPTORS = MORE_THREADS = 3
# Below, thirds are too short for memory to be flat.
LEAST_SECONDS = 90


class Findings:
    """What was wrong, with the first few texts of each kind."""

    SHOWN = 5

    def __init__(self):
        self.lock = threading.Lock()
        self.texts = collections.defaultdict(list)
        self.counts = collections.Counter()

    def add(self, kind, text):
        with self.lock:
            self.counts[kind] += 1
            if len(self.texts[kind]) < self.SHOWN:
                self.texts[kind].append(text)

    def print(self):
        for kind, count in self.counts.items():
            print(f"FINDING: {kind}: {count}")
            for text in self.texts[kind]:
                print(f"    {text}")


def ranked(values, share):
    """The value that a share of sorted ones does not exceed."""
    return values[min(len(values) - 1, math.ceil(share * len(values)) - 1)]


class Channel:
    """What one kind of client does. Any of its threads notes."""

    def __init__(self, name):
        self.name = name
        self.lock = threading.Lock()
        self.waiting = []
        self.summaries = []
        self.errors = 0
        self.seconds = []

    def note(self, took):
        with self.lock:
            self.waiting.append(took)

    def note_many(self, count, median, high, longest):
        """What another program has measured."""
        with self.lock:
            self.summaries.append((count, median, high, longest))

    def note_error(self):
        with self.lock:
            self.errors += 1

    def sample(self):
        with self.lock:
            times, self.waiting = self.waiting, []
            summaries, self.summaries = self.summaries, []
            errors, self.errors = self.errors, 0
        times.sort()
        if times:
            summaries.append((len(times), ranked(times, 0.5), ranked(times, 0.99), times[-1]))
        count = sum(summary[0] for summary in summaries)
        if count == 0:
            self.seconds.append(Second(0, None, None, None, errors))
            return
        # Mostly there is one.
        self.seconds.append(Second(count, statistics.median(summary[1] for summary in summaries),
                                   max(summary[2] for summary in summaries), max(summary[3] for summary in summaries), errors))


class Watched:
    """A process, looked at from outside."""

    def __init__(self, name, pid):
        self.name = name
        self.path = pathlib.Path(f"/proc/{pid}")
        self.states = []

    def sample(self):
        try:
            status = dict(line.split(":", 1) for line in (self.path / "status").read_text(encoding="ascii").splitlines())
            self.states.append(State(int(status["VmRSS"].split()[0]) / 1024, len(os.listdir(self.path / "fd")),
                                     int(status["Threads"])))
        except (OSError, KeyError):
            self.states.append(None)


def third(values, number):
    """The first (0), second or last one."""
    return values[number * len(values) // 3:(number + 1) * len(values) // 3]


def median_of(values, field):
    there = [getattr(value, field) for value in values if value is not None and getattr(value, field) is not None]
    return statistics.median(there) if there else math.nan


def slope(values):
    """Of the line of least squares, for each step."""
    middle, mean = (len(values) - 1) / 2, statistics.fmean(values)
    below = sum((at - middle) ** 2 for at in range(len(values)))
    return sum((at - middle) * (value - mean) for at, value in enumerate(values)) / below if below else 0.0


class Recorder:
    """Takes a sample of everything each second, on a thread of its own."""

    def __init__(self, findings):
        self.findings = findings
        self.channels = []
        self.processes = []
        self.ended = threading.Event()
        self.thread = threading.Thread(target=self._run)

    def channel(self, name):
        self.channels.append(Channel(name))
        return self.channels[-1]

    def watch(self, name, pid):
        self.processes.append(Watched(name, pid))

    def start(self):
        for channel in self.channels:
            channel.sample()
            channel.seconds.clear()
        self.thread.start()

    def stop(self):
        self.ended.set()
        self.thread.join()

    def _run(self):
        at = time.monotonic()
        while True:
            at += 1
            if self.ended.wait(max(0.0, at - time.monotonic())):
                return
            for one in self.channels + self.processes:
                one.sample()

    def seconds(self):
        return len(self.channels[0].seconds)

    def judge(self):
        """Adds what does not stay as it is."""
        for process in self.processes:
            if None in process.states:
                self.findings.add("a process has ended", process.name)
            elif self.seconds() >= LEAST_SECONDS:
                self._judge_growth(process)
        for channel in self.channels:
            if not any(second.count for second in channel.seconds):
                self.findings.add("a client has done nothing", channel.name)

    def _judge_growth(self, process):
        middle, last = third(process.states, 1), third(process.states, 2)
        before, after = median_of(middle, "memory"), median_of(last, "memory")
        if after > before * (1 + MORE_MEMORY_SHARE) + MORE_MEMORY_MB:
            self.findings.add("memory grows", f"{process.name}: {before:.1f} MB, then {after:.1f} MB")
        for field, more in (("descriptors", MORE_DESCRIPTORS), ("threads", MORE_THREADS)):
            before, after = median_of(middle, field), median_of(last, field)
            if after > before + more:
                self.findings.add(f"{field} grow", f"{process.name}: {before:g}, then {after:g}")

    def print(self):
        print("\n| client | done | a second, first third | last third | half within, ms: first, last third | 99 %, ms: first, last third "
              "| longest, ms | errors |\n|---|---|---|---|---|---|---|---|")
        for channel in self.channels:
            first, last = third(channel.seconds, 0), third(channel.seconds, 2)
            print(f"| {channel.name} | {sum(second.count for second in channel.seconds)} | {rate(first)} | {rate(last)} | "
                  f"{shown(first, 'median')}, {shown(last, 'median')} | {shown(first, 'high')}, {shown(last, 'high')} | "
                  f"{longest(channel.seconds)} | {sum(second.errors for second in channel.seconds)} |")
        print("\n| process | MB in the first third | second | last | slope of the last two, MB a minute | descriptors, second and last "
              "| threads |\n|---|---|---|---|---|---|---|")
        for process in self.processes:
            states = [state for state in process.states if state is not None]
            thirds = [median_of(third(states, number), "memory") for number in range(3)]
            late = [state.memory for state in states[len(states) // 3:]]
            print(f"| {process.name} | " + " | ".join(f"{megabytes:.1f}" for megabytes in thirds) +
                  f" | {60 * slope(late) if late else math.nan:+.2f} | " +
                  " | ".join(f"{median_of(third(states, 1), field):g}, {median_of(third(states, 2), field):g}"
                             for field in ("descriptors", "threads")) + " |")
        print("\nEach figure of a third is the median of its seconds, but for those done a second, which are an average.")

    def plot(self):
        """An SVG of throughput, latency, errors and memory over time."""
        end = self.seconds()
        def plot(title, axis, height=300):
            return curves.Plot(title, curves.linear(end, "s"), axis, "time", height)
        step = max(1, end // 150)
        def line(name, values, summary):
            """One point for several seconds, so that the curve can be read."""
            points = {}
            for begin in range(0, end, step):
                there = [value for value in values[begin:begin + step] if value is not None]
                if there:
                    points[begin + min(step, end - begin) / 2] = summary(there)
            return curves.Line(name, points)
        done = [line(channel.name, [second.count for second in channel.seconds], statistics.fmean) for channel in self.channels]
        high = [line(channel.name, [second.high and 1000 * second.high for second in channel.seconds], statistics.median)
                for channel in self.channels]
        sums = []
        for channel in self.channels:
            total, points = 0, []
            for second in channel.seconds:
                total += second.errors
                points.append(total)
            sums.append(line(channel.name, points, max))
        memory = [line(process.name, [state and state.memory for state in process.states], statistics.median)
                  for process in self.processes]
        plots = []
        for title, unit, lines, is_linear in (("Done a second", "", done, False), ("99 % take at most", "ms", high, False),
                                              ("Errors so far", "", sums, True), ("Resident memory", "MB", memory, True)):
            values = [value for one in lines for value in one.points.values() if is_linear or value > 0]
            if is_linear:
                axis = curves.linear(max([1, *values]), unit)
            else:
                axis = curves.powers_of_ten(values or [1, 10], unit)
                lines = [curves.Line(one.name, {at: value for at, value in one.points.items() if value > 0}) for one in lines]
            plots.append(plot(title, axis, max(260, 100 + 18 * len(lines))))
            for one in lines:
                plots[-1].add(one)
        return curves.sheet(plots, dots=False)


def rate(seconds):
    return f"{sum(second.count for second in seconds) / len(seconds):.1f}" if seconds else "–"


def shown(seconds, field):
    value = 1000 * median_of(seconds, field)
    return "–" if math.isnan(value) else f"{value:.3g}" if value < 1000 else f"{value:.0f}"


def longest(seconds):
    there = [second.longest for second in seconds if second.longest is not None]
    return f"{1000 * max(there):.3g}" if there and max(there) < 1 else f"{1000 * max(there):.0f}" if there else "–"
