"""A portal that keeps the exact bytes of each request and answers exactly what a test tells it to."""

import json
import socket
import struct
import threading

from kioskd import DEADLINE, compact, wait_until


class Exchange:
    """One request as it came."""

    def __init__(self, head, body):
        self.head = head
        self.body = body
        lines = head.decode("latin-1").split("\r\n")
        self.method, self.target, self.version = lines[0].split(" ", 2)
        self.headers = [tuple(line.split(": ", 1)) for line in lines[1:] if line]

    def header(self, name):
        return dict(self.headers).get(name)

    def json(self):
        return json.loads(self.body)


# Ways to answer. Each is a function of the connection and may end it as it likes.


def answer(status, body=b"", headers=()):
    """A whole HTTP answer; a body that is no bytes is sent as JSON."""
    payload = body if isinstance(body, bytes) else compact(body).encode()
    lines = [f"HTTP/1.1 {status} Told", f"Content-Length: {len(payload)}", *headers, "", ""]
    return raw_answer("\r\n".join(lines).encode() + payload)


def raw_answer(data):
    """These bytes and then the end, whatever they are."""
    def play(connection):
        try:
            connection.sendall(data)
        except OSError:
            pass  # the service may stop reading, for example at its size limit
    return play


def reset(connection):
    """The connection ends with a reset."""
    connection.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))


def cut_off(body, missing=100):
    """An answer whose body ends before its length."""
    return raw_answer(b"HTTP/1.1 200 Told\r\nContent-Length: %d\r\n\r\n" % (len(body) + missing) + body)


class Held:
    """An answer that waits until the test lets it go."""

    def __init__(self, then):
        self._then = then
        self._go = threading.Event()

    def __call__(self, connection):
        self._go.wait(DEADLINE)
        self._then(connection)

    def release(self):
        self._go.set()


NOT_SCRIPTED = answer(599, b"no answer was scripted for this")


class ScriptedPortal:
    """Listens on a loopback port of its own; one thread per connection."""

    def __init__(self):
        self._listener = socket.create_server(("127.0.0.1", 0), backlog=64)
        self.url = "http://127.0.0.1:%d" % self._listener.getsockname()[1]
        self._lock = threading.Lock()
        self._requests = []
        self._scripts = {}
        threading.Thread(target=self._accept, daemon=True).start()

    def script(self, method, target, *answers):
        """What the requests for a target get, one after the other; the last one stays."""
        with self._lock:
            self._scripts[method, target] = list(answers)
        return self

    def pairs(self, code="ABCD2345", *answers):
        """Scripts a pairing: the code, and what is answered to the questions about it."""
        self.script("POST", "/api/kiosk/pair", answer(201, {"pairingCode": code, "expiresInSeconds": 600}))
        return self.script("GET", f"/api/kiosk/pair/{code}", *(answers or [answer(202)]))

    def checks_in(self, *answers):
        return self.script("POST", "/api/kiosk/check-in", *answers)

    @property
    def requests(self):
        with self._lock:
            return list(self._requests)

    def to(self, target):
        return [exchange for exchange in self.requests if exchange.target == target]

    def wait_for(self, target, times=1):
        """Waits for that many requests for a target; answers the last of them."""
        return wait_until(lambda: self.to(target)[times - 1:times], f"request {times} for {target}")[0]

    def close(self):
        self._listener.close()

    def _accept(self):
        while True:
            try:
                connection, _ = self._listener.accept()
            except OSError:
                return
            threading.Thread(target=self._serve, args=(connection,), daemon=True).start()

    def _serve(self, connection):
        with connection:
            connection.settimeout(DEADLINE)
            exchange = read_request(connection)
            if exchange:
                self._choose(exchange)(connection)

    def _choose(self, exchange):
        with self._lock:
            self._requests.append(exchange)
            answers = self._scripts.get((exchange.method, exchange.target), [NOT_SCRIPTED])
            return answers.pop(0) if len(answers) > 1 else answers[0]


def read_request(connection):
    """The request, or None from a peer that went away in the middle of it."""
    data = b""
    try:
        while b"\r\n\r\n" not in data:
            data += receive(connection)
        head, body = data.split(b"\r\n\r\n", 1)
        exchange = Exchange(head, b"")
        length = int(exchange.header("Content-Length") or 0)
        while len(body) < length:
            body += receive(connection)
    except (OSError, EOFError):
        return None
    exchange.body = body
    return exchange


def receive(connection):
    chunk = connection.recv(65536)
    if not chunk:
        raise EOFError
    return chunk
