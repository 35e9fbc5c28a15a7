"""A terminal inside the sandbox: the installed service and client, accounts, and the tools it calls."""

import os
import pathlib
import shutil
import socket

import pytest

from kioskd import EXECUTABLE
from peers import PEER

SERVICE = pathlib.Path("/usr/lib/tarnvale-stream/tarnvale-kioskd")
CLIENT = pathlib.Path("/usr/bin/tarnvale-stream")
PASSWD = pathlib.Path("/etc/passwd")
GROUP = pathlib.Path("/etc/group")
MACHINE_ID = pathlib.Path("/etc/machine-id")

KIOSK = "tarnvale-kiosk"
KIOSK_UID = 47990
PERSON_UID = 47100


class Terminal:
    """Changes system files, so it exists in the sandbox only; what it changed ends with its test."""

    def __init__(self, place):
        if socket.gethostname() != "sandbox":
            pytest.fail("run this through tests/support/sandbox: it writes to /etc and /usr")
        self._place = place
        self._before = {path: path.read_bytes() for path in (PASSWD, GROUP)}
        self.machine_id("0123456789abcdef0123456789abcdef\n")

    def restore(self):
        for path, text in self._before.items():
            path.write_bytes(text)
        for path in (SERVICE, CLIENT):
            path.unlink(missing_ok=True)

    def machine_id(self, text):
        MACHINE_ID.unlink(missing_ok=True)
        if text is not None:
            MACHINE_ID.write_text(text)

    def install(self, mode=0o755):
        """Puts the service and the client where the system has them; answers the service's path."""
        SERVICE.parent.mkdir(parents=True, exist_ok=True)
        copy_program(EXECUTABLE, SERVICE, 0o755)
        copy_program(PEER, CLIENT, mode)
        return SERVICE

    def add_account(self, name=KIOSK, uid=KIOSK_UID, comment="Tarnvale kiosk"):
        with PASSWD.open("a") as file:
            file.write(f"{name}:x:{uid}:{uid}:{comment}:/nonexistent:/usr/sbin/nologin\n")

    def add_to_group(self, group, member=KIOSK):
        rows = [row.split(":") for row in GROUP.read_text().splitlines()]
        for row in rows:
            if row[0] == group:
                row[3] = ",".join(filter(None, [row[3], member]))
        GROUP.write_text("".join(":".join(row) + "\n" for row in rows))

    def tool(self, path, body):
        """A tool of the system, as a script that first notes its arguments; answers a reader of the notes."""
        notes = self._place / f"calls-{path.name}"
        path.unlink(missing_ok=True)
        path.write_text(f'#!/bin/sh\necho "$@" >> {notes}\n{body}\n')
        path.chmod(0o755)
        return lambda: notes.read_text().splitlines() if notes.exists() else []


class Gate:
    """A named pipe that holds tools up until the test opens it."""

    def __init__(self, path):
        self.wait = f"read _ < {path}"
        os.mkfifo(path)
        # Open for both directions, so that neither side waits for the other to open its end.
        self._pipe = os.open(path, os.O_RDWR | os.O_CLOEXEC)

    def open(self, times=1):
        """Lets that many tools through."""
        os.write(self._pipe, b"\n" * times)

    def close(self):
        """Lets all through that are there."""
        os.close(self._pipe)


def copy_program(source, target, mode):
    # A program that still runs cannot be written to; a new file takes its name.
    target.unlink(missing_ok=True)
    shutil.copyfile(source, target)
    target.chmod(mode)
