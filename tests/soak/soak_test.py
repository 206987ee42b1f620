"""What a soak run takes for a finding."""

import os
import pathlib
import sys
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path[1:1] = [str(ROOT / folder) for folder in ("tests/mail", "bench")]
for name in ("ZAROCTL_PATH", "ZAROFILTERD_PATH"):
    os.environ.setdefault(name, "")

from clients import ALWAYS, EVEN, NEVER, ODD, Generations, refusal  # noqa: E402
from record import LEAST_SECONDS, Findings, Recorder, Second, State, slope  # noqa: E402

# Oldest generation that an answer may be of, the newest that was begun, the sender, the refusal, whether that is wrong.
ANSWERS = (
    (4, 5, ALWAYS, refusal(4), False),
    (4, 5, ALWAYS, refusal(5), False),
    (4, 5, ALWAYS, refusal(3), True),
    (4, 5, ALWAYS, refusal(6), True),
    (4, 5, ALWAYS, None, True),
    (4, 5, ALWAYS, "550 for another reason", True),
    (4, 5, NEVER, None, False),
    (4, 5, NEVER, refusal(4), True),
    (4, 4, EVEN, refusal(4), False),
    (4, 4, EVEN, None, True),
    (4, 5, EVEN, None, False),
    (4, 5, EVEN, refusal(5), True),
    (4, 4, ODD, None, False),
    (5, 5, ODD, None, True),
    (5, 5, ODD, refusal(5), False),
)


def recorder(memory, descriptors=20, threads=5, errors=0):
    """Of one process, with what it holds each second, and one client."""
    made = Recorder(Findings())
    made.channel("client").seconds = [Second(10, 0.001, 0.002, 0.003, errors)] * len(memory)
    made.watch("process", 1)
    at = [value if isinstance(value, list) else [value] * len(memory) for value in (descriptors, threads)]
    made.processes[0].states = [State(*state) for state in zip(memory, *at)]
    made.judge()
    return made


class Soaking(unittest.TestCase):
    def test_answers_are_of_a_generation_that_was_in_force(self):
        for oldest, newest, sender, refused, is_wrong in ANSWERS:
            with self.subTest(f"{oldest} to {newest}: {sender} {refused}"):
                generations = Generations()
                generations.begun = newest
                self.assertEqual(generations.wrong("filter", oldest, sender, refused) is not None, is_wrong)

    def test_what_was_seen_is_the_least_for_the_next_question(self):
        generations = Generations()
        generations.begun = 7
        generations.wrong("filter", 0, ALWAYS, refusal(5))
        generations.wrong("filter", 0, ALWAYS, refusal(4))
        self.assertEqual((generations.at_least("filter"), generations.at_least("server")), (5, 0))

    def test_memory_descriptors_and_threads_stay(self):
        seconds = 3 * LEAST_SECONDS
        growing = [20 + second // 10 for second in range(seconds)]
        cases = (
            ("flat", recorder([100.0] * seconds), None),
            ("grows at first", recorder([50.0] * (seconds // 3) + [100.0] * (2 * seconds // 3)), None),
            ("grows a little", recorder([100 + 3 * second / seconds for second in range(seconds)]), None),
            ("grows", recorder([100 + 60 * second / seconds for second in range(seconds)]), "memory grows"),
            ("too short", recorder([100 + second for second in range(10)]), None),
            ("descriptors", recorder([100.0] * seconds, descriptors=growing), "descriptors grow"),
            ("threads", recorder([100.0] * seconds, threads=growing), "threads grow"),
        )
        for label, made, finding in cases:
            with self.subTest(label):
                self.assertEqual(list(made.findings.counts), [finding] if finding else [])

    def test_a_process_that_ends_and_a_client_that_stands_still_are_findings(self):
        made = Recorder(Findings())
        made.channel("client").seconds = [Second(0, None, None, None, 0)]
        made.watch("process", 1)
        made.processes[0].states = [State(1.0, 1, 1), None]
        made.judge()
        self.assertEqual(set(made.findings.counts), {"a process has ended", "a client has done nothing"})

    def test_channels_are_summed_up_each_second(self):
        channel = Recorder(Findings()).channel("client")
        for took in range(1, 101):
            channel.note(took / 1000)
        channel.note_error()
        channel.sample()
        channel.note_many(500, 0.001, 0.004, 0.009)
        channel.sample()
        channel.sample()
        self.assertEqual(channel.seconds, [Second(100, 0.05, 0.099, 0.1, 1), Second(500, 0.001, 0.004, 0.009, 0),
                                           Second(0, None, None, None, 0)])

    def test_slope_is_that_of_the_line(self):
        self.assertAlmostEqual(slope([1.0, 3.0, 5.0, 7.0]), 2.0)

    def test_the_plot_has_every_client_and_process(self):
        drawn = recorder([100.0] * 30, errors=1).plot()
        self.assertEqual((drawn.count("<svg"), drawn.count(">client<"), drawn.count(">process<")), (1, 3, 1))


if __name__ == "__main__":
    unittest.main()
