"""HTTPS in front of the portal stand-in, counting what goes over the wire. For the sandbox: it makes the system trust it.

The certificate is one of its own authority, on an elliptic curve: about the shortest that there is.
"""

import dataclasses
import pathlib
import select
import socket
import ssl
import struct
import subprocess
import threading

SYSTEM_AUTHORITIES = pathlib.Path("/etc/ssl/certs/ca-certificates.crt")
# struct tcp_info: bytes that the peer has acknowledged and those that it has sent, then segments out and in.
TCP_INFO_AT = 120
TCP_INFO_FORMAT = "=QQII"
DEADLINE = 60


@dataclasses.dataclass
class Traffic:
    """Seen from the terminal, TLS included, IP and TCP headers not."""

    exchanges: int = 0
    sent: int = 0
    received: int = 0
    segments: int = 0

    def __sub__(self, earlier):
        return Traffic(self.exchanges - earlier.exchanges, self.sent - earlier.sent,
                       self.received - earlier.received, self.segments - earlier.segments)


class TlsFront:
    def __init__(self, place, portal_port):
        self._portal_port = portal_port
        self._context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
        self._context.load_cert_chain(*make_certificate(place))
        self._listener = socket.create_server(("127.0.0.1", 0))
        self._total = Traffic()
        self._changed = threading.Condition()
        self.url = f"https://127.0.0.1:{self._listener.getsockname()[1]}"
        threading.Thread(target=self._accept, daemon=True).start()

    @property
    def total(self):
        with self._changed:
            return dataclasses.replace(self._total)

    def wait_for(self, exchanges, deadline=DEADLINE):
        """The traffic once so many exchanges have ended."""
        with self._changed:
            assert self._changed.wait_for(lambda: self._total.exchanges >= exchanges, deadline), "the portal was not asked"
            return dataclasses.replace(self._total)

    def _accept(self):
        while True:
            connection, _ = self._listener.accept()
            threading.Thread(target=self._serve, args=(connection,), daemon=True).start()

    def _serve(self, connection):
        # The duplicate outlives the TLS side's close, so that the kernel's counts can still be read.
        with connection.dup() as counted:
            try:
                with self._context.wrap_socket(connection, server_side=True) as terminal, \
                        socket.create_connection(("127.0.0.1", self._portal_port)) as portal:
                    pass_on(terminal, portal)
                    terminal.shutdown(socket.SHUT_WR)
                    while counted.recv(4096):  # until the terminal has closed, and so acknowledged all
                        pass
            except OSError:
                pass  # the terminal is gone; what there was counts
            self._count(counted)

    def _count(self, connection):
        info = connection.getsockopt(socket.IPPROTO_TCP, socket.TCP_INFO, TCP_INFO_AT + struct.calcsize(TCP_INFO_FORMAT))
        received, sent, segments_out, segments_in = struct.unpack_from(TCP_INFO_FORMAT, info, TCP_INFO_AT)
        with self._changed:
            self._total = Traffic(self._total.exchanges + 1, self._total.sent + sent, self._total.received + received,
                                  self._total.segments + segments_out + segments_in)
            self._changed.notify_all()


def pass_on(terminal, portal):
    """Both ways, until one side has closed."""
    while True:
        ready = [terminal] if terminal.pending() else select.select([terminal, portal], [], [], DEADLINE)[0]
        if terminal in ready:
            request = terminal.recv(65536)
            if not request:
                return
            portal.sendall(request)
        if portal in ready:
            answer = portal.recv(65536)
            if not answer:
                return
            terminal.sendall(answer)


def make_certificate(place):
    certificate, key = place / "certificate.pem", place / "key.pem"
    subprocess.run(
        ["openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1", "-nodes", "-days", "2",
         "-subj", "/CN=portal", "-addext", "subjectAltName=IP:127.0.0.1", "-keyout", key, "-out", certificate],
        check=True, capture_output=True)
    # Beside all the others, because reading them is a part of each exchange.
    with SYSTEM_AUTHORITIES.open("ab") as authorities:
        authorities.write(certificate.read_bytes())
    return certificate, key
