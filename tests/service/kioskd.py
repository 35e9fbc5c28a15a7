"""The real executable as a child process: start it, talk to its socket, read its log, stop it.

Nothing here waits for time to pass. Every wait is for a condition, with a deadline that only a broken
service reaches; it is long because the sanitizer builds are slow.
"""

import fcntl
import json
import os
import re
import resource
import select
import signal
import socket
import struct
import subprocess
import termios
import threading
import time

EXECUTABLE = os.environ.get("KIOSKD", "build/tarnvale-kioskd")
DEADLINE = 90.0
# What the libraries do is not for ThreadSanitizer to judge; and it would sleep for a second at each of some
# hundred ends.
TSAN_OPTIONS = f" atexit_sleep_ms=0 suppressions={os.path.dirname(os.path.abspath(__file__))}/tsan_suppressions.txt"


def wait_until(condition, what, deadline=DEADLINE):
    """The condition's first true answer; fails with `what` when the deadline passes first."""
    end = time.monotonic() + deadline
    while True:
        answer = condition()
        if answer:
            return answer
        assert time.monotonic() < end, f"waited {deadline:.0f} s for {what}"
        time.sleep(0.005)


class Log:
    """What a service writes to standard error, line by line, while it runs.

    Whoever looks at the lines sees all that was written before: what is still in the pipe is waited for.
    So a line that the service writes before its reply is there when the reply is.
    """

    def __init__(self, stream):
        self._stream = stream
        self._text = b""
        self._ended = False
        self._changed = threading.Condition()
        self._thread = threading.Thread(target=self._read, daemon=True)
        self._thread.start()

    def _read(self):
        entries = select.poll()
        entries.register(self._stream, select.POLLIN)
        while not self._ended:
            entries.poll()
            # Under the lock, so that nothing is on its way between the pipe and the text.
            with self._changed:
                chunk = os.read(self._stream.fileno(), 65536)
                self._text += chunk
                self._ended = not chunk
                self._changed.notify_all()

    def _is_drained(self):
        return self._ended or fcntl.ioctl(self._stream, termios.FIONREAD, b"\0" * 4) == b"\0" * 4

    def _lines(self):
        return [line.decode("utf-8", "surrogateescape") for line in self._text.splitlines(keepends=True)]

    @property
    def lines(self):
        with self._changed:
            assert self._changed.wait_for(self._is_drained, DEADLINE)
            return self._lines()

    def count(self, text):
        return sum(text in line for line in self.lines)

    def wait_for(self, text, times=1, deadline=DEADLINE):
        """Waits until `text` stood in that many lines; answers the last of them."""
        def found():
            lines = [line for line in self._lines() if text in line]
            return lines if len(lines) >= times or self._ended else None

        with self._changed:
            lines = self._changed.wait_for(found, deadline) or []
            told = "".join(self._lines())
        assert len(lines) >= times, f"not in the log: {text!r}\n{told}"
        return lines[times - 1]

    def wait_for_end(self):
        self._thread.join(DEADLINE)
        assert not self._thread.is_alive(), "standard error is still open"
        self._stream.close()


class Service:
    """One service with directories of its own below `place`; nothing is started before start().

    Options are command line arguments after the usual ones, so they win. Without a system bus address
    of its own it sees no logind, so no test can restart the machine that it runs on.
    """

    def __init__(self, place, *options, executable=EXECUTABLE, bus=None, umask=-1, limits=(), user=None):
        self.place = place
        self.state_dir = place / "state"
        self.run_dir = place / "run"
        self.socket_path = place / "run" / "kiosk.sock"
        self.options = list(options)
        self.executable = str(executable)
        self.bus = bus or f"unix:path={place}/no-bus"
        self.umask = umask
        self.limits = limits
        self.user = user
        self.process = None
        self.log = None

    def arguments(self):
        return [
            self.executable,
            "--state-dir", str(self.state_dir),
            "--run-dir", str(self.run_dir),
            "--socket", str(self.socket_path),
            "--branding-dir", str(self.place / "branding"),
            "--etc-dir", str(self.place / "etc"),
            "--client", str(self.place / "client"),
            "--setup-tool", str(self.place / "setup"),
            "--auth-base", "http://127.0.0.1:1",
            *self.options,
        ]

    def launch(self, stderr=subprocess.PIPE, closed=()):
        """Starts the process, without the standard descriptors that are `closed`, and does not wait for
        anything."""
        def prepare():
            for which, number in self.limits:
                resource.setrlimit(which, (number, number))
            for number in closed:
                os.close(number)

        self.process = subprocess.Popen(
            self.arguments(),
            stdin=subprocess.DEVNULL,
            stdout=subprocess.DEVNULL,
            stderr=stderr,
            env=self._environment(),
            umask=self.umask,
            user=self.user,
            group=self.user,
            extra_groups=None if self.user is None else [],
            preexec_fn=prepare if self.limits or closed else None,
        )
        if stderr == subprocess.PIPE:
            self.log = Log(self.process.stderr)
        return self

    def _environment(self):
        return os.environ | {
            "DBUS_SYSTEM_BUS_ADDRESS": self.bus,
            # A proxy of the machine's must not come between the service and a portal on the loopback.
            "no_proxy": "*",
            "TSAN_OPTIONS": os.environ.get("TSAN_OPTIONS", "") + TSAN_OPTIONS,
        }

    def start(self):
        """Starts the process and waits until it listens."""
        self.launch()
        self.log.wait_for("<6>listening on ")
        return self

    # The socket.

    def connect(self):
        """A connection that stays open; the caller closes it."""
        peer = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        # Python's own time-out makes the socket non-blocking, and connect then fails while the backlog
        # is full instead of waiting.
        peer.setsockopt(socket.SOL_SOCKET, socket.SO_SNDTIMEO, struct.pack("ll", int(DEADLINE), 0))
        peer.connect(str(self.socket_path))
        peer.settimeout(DEADLINE)
        return peer

    def raw(self, data, shut=False):
        """Sends bytes, keeps the connection open unless told to shut the writing side, and answers
        all that comes back."""
        with self.connect() as peer:
            peer.sendall(data)
            if shut:
                peer.shutdown(socket.SHUT_WR)
            return read_all(peer)

    def send(self, request):
        return json.loads(self.raw(json.dumps(request).encode() + b"\n"))

    # Its files.

    @property
    def state_file(self):
        return self.state_dir / "state.json"

    def write_state(self, document):
        """Puts a state file in place, as text or as a document, before the start."""
        self.state_dir.mkdir(mode=0o700, parents=True, exist_ok=True)
        text = document if isinstance(document, (str, bytes)) else compact(document)
        self.state_file.write_bytes(text if isinstance(text, bytes) else text.encode())
        return self

    def state(self):
        return json.loads(self.state_file.read_text())

    # The process.

    @property
    def pid(self):
        return self.process.pid

    def is_running(self):
        return self.process.poll() is None

    def descriptors(self):
        return sorted(int(name) for name in os.listdir(f"/proc/{self.pid}/fd"))

    def threads(self):
        status = open(f"/proc/{self.pid}/status", encoding="ascii").read()
        return int(re.search(r"^Threads:\s+(\d+)$", status, re.MULTILINE)[1])

    def connections(self):
        """How many requests it has not answered yet. It closes a connection before the peer sees the end."""
        rows = [row.split() for row in open("/proc/net/unix", encoding="utf-8")]
        return sum(row[5] == "03" and row[7:] == [str(self.socket_path)] for row in rows)

    def wait(self):
        """The exit status, as subprocess tells it; the log is complete afterwards."""
        status = self.process.wait(DEADLINE)
        if self.log:
            self.log.wait_for_end()
        return status

    def stop(self, number=signal.SIGTERM):
        self.process.send_signal(number)
        return self.wait()

    def kill(self):
        if self.process and self.is_running():
            self.process.kill()
            self.wait()


def compact(document):
    """JSON text as the service writes it."""
    return json.dumps(document, separators=(",", ":"), ensure_ascii=False)


def read_all(peer):
    """What comes until the other side closes. A reset is a close like any other."""
    received = b""
    while True:
        try:
            chunk = peer.recv(65536)
        except ConnectionResetError:
            return received
        if not chunk:
            return received
        received += chunk
