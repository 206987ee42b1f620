"""What a long run has found so far. One that is interrupted has its summary too."""

import signal
import sys
import time
import traceback

# Seconds between two lines about how far a run has come.
PERIOD = 30


class Results:
    """Of a kind of run, whose lines `summary` yields."""

    def __init__(self):
        self.found = 0
        self.began = self.last_told = time.monotonic()

    def add(self, what, details=""):
        self.found += 1
        print(f"FOUND: {what}\n  {details}", flush=True)

    def tell(self, how_far):
        """Now and then."""
        now = time.monotonic()
        if now - self.last_told > PERIOD:
            self.last_told = now
            print(f"[{now - self.began:.0f} s] {how_far}; {self.found} findings", flush=True)

    def finish(self, work):
        """Does the work, and ends the program with its summary."""
        for number in (signal.SIGINT, signal.SIGTERM):
            signal.signal(number, self._interrupt)
        interrupted = ""
        try:
            work()
        except KeyboardInterrupt:
            interrupted = ", interrupted"
        except Exception:  # what was found before counts all the same
            self.add("the run itself failed", traceback.format_exc())
        for line in self.summary():
            print(line)
        print(f"{self.found} findings in {time.monotonic() - self.began:.0f} seconds{interrupted}", flush=True)
        sys.exit(1 if self.found else 130 if interrupted else 0)

    @staticmethod
    def _interrupt(number, frame):
        raise KeyboardInterrupt
