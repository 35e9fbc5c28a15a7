"""A Unix socket that speaks JSON, one object a line: QEMU's monitor and the agent in the guest."""

import json
import select
import socket
import time


class Silent(Exception):
    """Nothing came in time."""


class Channel:
    def __init__(self, path):
        self._socket = socket.socket(socket.AF_UNIX)
        self._socket.connect(str(path))
        self._bytes = b""

    def close(self):
        self._socket.close()

    def send(self, message, prefix=b""):
        self._socket.sendall(prefix + json.dumps(message).encode() + b"\n")

    def receive(self, timeout_s):
        """The next object. What is no JSON is passed over: an agent that was cut off leaves halves behind."""
        deadline = time.monotonic() + timeout_s
        while True:
            line, found, rest = self._bytes.partition(b"\n")
            if found:
                self._bytes = rest
                try:
                    return json.loads(line.lstrip(b"\xff"))
                except ValueError:
                    continue
            if not select.select([self._socket], [], [], max(0, deadline - time.monotonic()))[0]:
                raise Silent(f"nothing within {timeout_s} s")
            received = self._socket.recv(65536)
            if not received:
                raise ConnectionError("the machine is gone")
            self._bytes += received
