"""Calls of programs that fail: what the library of library/Control.h is told, and what it tells."""

import mmap
import os
import pathlib
import struct

LIBRARY = os.environ["ZARO_FAULTS_LIBRARY"]

# As in library/Control.h.
ALLOCATION, DRIVER_ALLOCATION, ODBC, SYSTEM = 1, 2, 4, 8
FAIL, LOSE_ANSWER, KILL = 0, 1, 2
LAYOUT = struct.Struct("=IIQQQQ8s64s512s")
COUNTS = struct.Struct("=QQ")
AT_COUNTS = struct.calcsize("=IIQQ")
AT_NAME = struct.calcsize("=IIQQQQ8s")
FOREVER = 2**64 - 1

# What stands above the code that is to blame for a crash.
INNERMOST = ("libc.so", "libstdc++", "libgcc_s", "libZaroFaults", "ld-linux", "linux-vdso")
OURS = ("zaroctl", "zarofilterd", "zaropolicyd", "libZaro")


class Calls:
    """The calls of the programs that are started with `environment`."""

    def __init__(self, directory):
        path = pathlib.Path(directory) / "calls"
        path.write_bytes(bytes(mmap.PAGESIZE))
        with open(path, "r+b") as file:
            self.page = mmap.mmap(file.fileno(), mmap.PAGESIZE)
        self.environment = {"LD_PRELOAD": LIBRARY, "ZARO_FAULTS": str(path)}

    def arm(self, kinds, first=0, last=None, action=FAIL, state="HY000"):
        """Counts from now on, and has the calls from `first` to `last` fail."""
        self.page[:LAYOUT.size] = LAYOUT.pack(0, action, first, first if last is None else last, 0, 0, state.encode(), b"", b"")
        self.page[:4] = struct.pack("=I", kinds)

    def disarm(self):
        self.page[:4] = struct.pack("=I", 0)

    def count(self):
        return COUNTS.unpack_from(self.page, AT_COUNTS)[0]

    def has_failed(self):
        return COUNTS.unpack_from(self.page, AT_COUNTS)[1] != 0

    def name(self):
        """The first call that failed."""
        return self._text(AT_NAME, 64)

    def culprit(self):
        """The functions in which a process crashed, the innermost first."""
        return self._text(AT_NAME + 64, 512)

    def blamed(self):
        """The function of another library in which a process crashed; empty for one of ours."""
        frames = self.culprit().split()
        if any("__libc_fatal" in frame for frame in frames):
            return "the C library, which gives up"  # without memory for what ends a thread
        frame = next((frame for frame in frames if not frame.startswith(INNERMOST)), "")
        return "" if frame.startswith(OURS) else frame.partition("+")[0]

    def _text(self, at, length):
        return self.page[at:at + length].split(b"\0")[0].decode("ascii", "replace")
