"""What a disk holds after the power failed: everything that was brought to it, and by chance some of what was not.

The log of library/DiskLog.h has what programs did to files, in order. Of the time after the last sync of a file, each sector of
each write is there or not; of what was done to the names in a directory, a part from the beginning."""

import collections
import os
import random
import struct

RECORD = struct.Struct("=IIIIQQ")
WRITE, TRUNCATE, SYNC, RENAME, UNLINK, LINK, CREATE, MARK = range(1, 9)
SECTOR = 512

Record = collections.namedtuple("Record", "call path other inode offset data")


class Log:
    """Of the programs that are started with `environment`."""

    def __init__(self, path, root):
        self.path = path
        path.write_bytes(b"")
        self.environment = {"ZARO_DISK_LOG": str(path), "ZARO_DISK_ROOT": str(root)}
        self.file = os.open(path, os.O_WRONLY | os.O_APPEND)

    def mark(self, text):
        """Of the test, among the calls."""
        data = text.encode()
        os.write(self.file, RECORD.pack(MARK, 0, 0, len(data), 0, 0) + data)

    def records(self):
        os.close(self.file)
        text = self.path.read_bytes()
        at = 0
        while at < len(text):
            call, path, other, data, inode, offset = RECORD.unpack_from(text, at)
            at += RECORD.size
            parts = []
            for length in (path, other, data):
                parts.append(text[at:at + length])
                at += length
            yield Record(call, parts[0].decode(), parts[1].decode(), inode, offset, parts[2])


class File:
    def __init__(self, content=b""):
        self.content = bytearray(content)
        self.pending = []

    def copy(self):
        copy = File(self.content)
        copy.pending = list(self.pending)
        return copy

    def sync(self):
        for record in self.pending:
            self._apply(record.call, record.offset, record.data)
        self.pending.clear()

    def lose_power(self):
        for record in self.pending:
            if record.call == TRUNCATE:
                if random.random() < 0.5:
                    self._apply(TRUNCATE, record.offset, b"")
                continue
            for begin in range(0, len(record.data), SECTOR):
                if random.random() < 0.5:
                    self._apply(WRITE, record.offset + begin, record.data[begin:begin + SECTOR])
        self.pending.clear()

    def _apply(self, call, offset, data):
        if call == TRUNCATE:
            del self.content[offset:]
        end = offset + len(data)
        if len(self.content) < end:
            self.content.extend(bytes(end - len(self.content)))
        self.content[offset:end] = data


class Disk:
    """Follows the calls, from what is below a directory now."""

    def __init__(self, root):
        self.files = {}
        self.names = {}    # as programs see them
        self.durable = {}  # as the disk has them
        self.pending = []  # changes of names, in order
        for path in root.rglob("*"):
            if path.is_file() and not path.name.endswith("-shm"):
                inode = path.stat().st_ino
                self.files[inode] = File(path.read_bytes())
                self.names[str(path)] = inode
        self.durable.update(self.names)

    def copy(self):
        copy = Disk.__new__(Disk)
        copy.files = {inode: file.copy() for inode, file in self.files.items()}
        copy.names, copy.durable, copy.pending = dict(self.names), dict(self.durable), list(self.pending)
        return copy

    def follow(self, record):
        path = record.path
        if record.call in (WRITE, TRUNCATE):
            self.files.setdefault(record.inode, File()).pending.append(record)
        elif record.call == SYNC:
            if record.inode in self.files:
                self.files[record.inode].sync()
            else:
                self._sync_names(path)
        elif record.call == CREATE and self.names.get(path) != record.inode:
            self.files[record.inode] = File()
            self._rename(path, record.inode)
        elif record.call in (RENAME, LINK):
            self._rename(record.other, self.names.get(path))
            if record.call == RENAME:
                self._rename(path, None)
        elif record.call == UNLINK:
            self._rename(path, None)

    def _rename(self, path, inode):
        if inode is None:
            self.names.pop(path, None)
        else:
            self.names[path] = inode
        self.pending.append((path, inode))

    def _sync_names(self, directory):
        """One that is renamed has both of its names in the one directory."""
        left = []
        for path, inode in self.pending:
            if os.path.dirname(path) == directory.rstrip("/"):
                self._settle(path, inode)
            else:
                left.append((path, inode))
        self.pending = left

    def _settle(self, path, inode):
        if inode is None:
            self.durable.pop(path, None)
        else:
            self.durable[path] = inode

    def lose_power(self):
        """What is there afterwards: paths and contents."""
        for path, inode in self.pending[:random.randrange(len(self.pending) + 1)]:
            self._settle(path, inode)
        for file in self.files.values():
            file.lose_power()
        return {path: bytes(self.files[inode].content) for path, inode in self.durable.items()
                if not path.endswith("-shm")}
