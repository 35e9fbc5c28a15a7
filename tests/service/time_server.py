"""A time server on the loopback's port 123, in the sandbox's own network."""

import socket
import struct
import threading
import time

NTP_TO_UNIX_S = 2_208_988_800


class TimeServer:
    """Answers each packet at once, as a server whose clock is ahead by so much."""

    def __init__(self, address="127.0.0.1", ahead_s=0, stratum=2):
        self.requests = []
        self._ahead_s = ahead_s
        self._stratum = stratum
        family = socket.AF_INET6 if ":" in address else socket.AF_INET
        self._socket = socket.socket(family, socket.SOCK_DGRAM)
        self._socket.bind((address, 123))
        self._thread = threading.Thread(target=self._serve, daemon=True)
        self._thread.start()

    def _serve(self):
        while True:
            request, peer = self._socket.recvfrom(100)
            if request == b"end":
                return
            self.requests.append(request)
            now = struct.pack(">II", int(time.time()) + self._ahead_s + NTP_TO_UNIX_S, 0)
            self._socket.sendto(bytes([0x24, self._stratum]) + bytes(30) + now + now, peer)

    def close(self):
        self._socket.sendto(b"end", self._socket.getsockname())
        self._thread.join()
        self._socket.close()
