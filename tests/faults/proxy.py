"""A network that fails: connections go through it to a server, and it cuts, resets, delays or holds them."""

import random
import select
import socket
import struct
import threading
import time

# Bytes after which something becomes of a connection, at most: a command of zaroctl exchanges some 30,000.
FAR = 40000
# Seconds.
DELAY = 0.05
HOLD = 0.5

FATES = ("passed", "closed", "reset", "delayed", "held and reset")


class Proxy:
    """Listens on `port` until it is stopped; `counts` tells how many connections had which fate."""

    def __init__(self, host, port, fails=True):
        self.target = (host, int(port))
        self.fails = fails
        self.counts = {fate: 0 for fate in FATES}
        self.listening = socket.create_server(("127.0.0.1", 0))
        self.port = self.listening.getsockname()[1]
        self.ended = False
        self.thread = threading.Thread(target=self._accept, daemon=True)
        self.thread.start()

    def stop(self):
        self.ended = True
        self.listening.shutdown(socket.SHUT_RDWR)
        self.listening.close()
        self.thread.join()

    def _accept(self):
        while not self.ended:
            try:
                client, _ = self.listening.accept()
            except OSError:
                return
            fate = random.choice(FATES) if self.fails else "passed"
            self.counts[fate] += 1
            threading.Thread(target=self._carry, args=(client, fate), daemon=True).start()

    def _carry(self, client, fate):
        with client:
            try:
                with socket.create_connection(self.target) as server:
                    self._exchange(client, server, fate)
            except OSError:
                pass

    @staticmethod
    def _exchange(client, server, fate):
        left = random.randrange(1, FAR)
        while True:
            for one in select.select([client, server], [], [])[0]:
                data = one.recv(65536)
                if not data:
                    return
                other = server if one is client else client
                if fate == "delayed":
                    time.sleep(random.uniform(0, DELAY))
                elif fate != "passed" and len(data) >= left:
                    other.sendall(data[:left])
                    if fate == "held and reset":
                        time.sleep(HOLD)
                    if fate != "closed":
                        for end in (client, server):
                            end.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
                    return
                left -= len(data)
                other.sendall(data)
