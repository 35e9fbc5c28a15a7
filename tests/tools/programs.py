"""The words that the tests of the tools share: where the programs are, short-lived directories, and waiting."""

import json
import os
import pathlib
import shutil
import socket
import subprocess
import tempfile
import time

BUILD_DIR = pathlib.Path(os.environ.get("KIOSK_BUILD_DIR", "build")).absolute()
TOOLS_DIR = pathlib.Path(__file__).resolve().parents[2] / "tools"
KIOSKCTL = BUILD_DIR / "tarnvale-kioskctl"
SIMULATOR = BUILD_DIR / "tarnvale-kiosk-simulator"
# Only a broken program reaches it; the sanitizer builds are slow.
DEADLINE_SECONDS = 90
IS_ROOT = os.geteuid() == 0
NOBODY_UID = 65534


class Place:
    """A directory that ends with the test. Its path is short, as the socket's has to be, and others may enter it."""

    def __init__(self):
        self.path = pathlib.Path(tempfile.mkdtemp(prefix="kiosk-tools-"))
        self.path.chmod(0o755)

    def close(self):
        shutil.rmtree(self.path, ignore_errors=True)


def wait_until(condition, what):
    """The condition's first true answer; fails with `what` when the deadline passes first."""
    deadline = time.monotonic() + DEADLINE_SECONDS
    while True:
        answer = condition()
        if answer:
            return answer
        assert time.monotonic() < deadline, f"waited {DEADLINE_SECONDS} s for {what}"
        time.sleep(0.01)


def run(*command, **settings):
    """A program's exit status, output and errors."""
    return subprocess.run(
        [str(word) for word in command], capture_output=True, text=True, timeout=DEADLINE_SECONDS, **settings
    )


def read_json(path):
    return json.loads(path.read_text())


def connect(path):
    connection = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
    connection.settimeout(DEADLINE_SECONDS)
    connection.connect(str(path))
    return connection
