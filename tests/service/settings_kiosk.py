"""An enrolled terminal whose kiosk session has unlocked its settings, with tools that record their calls."""

import hashlib
import pathlib
import subprocess

from kioskd import compact, wait_until
from logind import Session
from peers import call_as, launch_peer
from scripted_portal import answer
from terminal import CLIENT, KIOSK, KIOSK_UID

PASSWORD = "let me out"
INVALID = {"ok": False, "error": "invalid"}
TOOLS = pathlib.Path("/usr/sbin")  # where the service looks first
HERE = "0123456789abcdef0123456789abcdef"


def policy(screen=15, sleep=0, enabled=False, sleep_at="22:00", wake_at="07:00", days=(1, 2, 3, 4, 5)):
    """A power policy as the portal sends it and the service writes it."""
    return {"screenOffMinutes": screen, "sleepMinutes": sleep,
            "schedule": {"enabled": enabled, "sleepAt": sleep_at, "wakeAt": wake_at, "days": list(days)}}


class Kiosk:
    def __init__(self, terminal, service, portal, bus, place):
        self.service = service
        self.portal = portal
        self.place = place
        self.etc = place / "etc"
        self._calls = place / "calls"
        self._token = None
        terminal.add_account()
        bus.logind.add(Session("k1", KIOSK_UID, KIOSK))
        self.replace("systemctl")
        self.replace("nmcli")
        self.portal_says()
        self.write_state()

    def write_state(self, **more):
        self.service.write_state({
            "DeviceToken": "t", "DeviceId": hashlib.sha256(HERE.encode()).hexdigest(),
            "AccountUid": str(KIOSK_UID), "Provisioned": 1} | more)

    def portal_says(self, **members):
        """What each check-in gets from now on."""
        self.portal.checks_in(answer(200, {"status": "enrolled", "exitPassword": PASSWORD} | members))

    def start(self):
        """Starts the service anew, and unlocks the settings when the first pass has been answered."""
        self.service.start()
        self.unlock()
        return self

    def unlock(self):
        """A check-in, too: it brings what the portal has to say, and applies nothing."""
        reply = self.call({"cmd": "unlock", "password": PASSWORD})
        self._token = reply["unlockToken"]

    def call(self, request):
        return call_as(self.service, request, uid=KIOSK_UID, session="k1", image=CLIENT)

    def request(self, command, **members):
        return {"cmd": command, "unlockToken": self._token} | members

    def ask(self, command, **members):
        return self.call(self.request(command, **members))

    def begin(self, command, **members):
        """Sends a request from a process of its own and does not wait for the reply."""
        return launch_peer(self.service, self.request(command, **members), uid=KIOSK_UID, session="k1", image=CLIENT)

    # Tools.

    def replace(self, name, lines="", body="#!/bin/sh"):
        """Puts a tool in front of the system's own: it records its arguments and goes on with these lines."""
        path = TOOLS / name
        path.unlink(missing_ok=True)
        path.write_text(f"""{body}
here={self.place}
echo "{name}$(printf ' [%s]' "$@")" >> {self._calls}
{lines}
""")
        path.chmod(0o755)

    def replace_nmcli(self, *, query="ethernet", add="", lookup="echo new-id", modify="", up="", first=""):
        """An nmcli that knows one adapter of each name, with a profile of the id `id-ADAPTER`."""
        if query in ("ethernet", "wifi"):
            query = f'echo GENERAL.TYPE:{query}; echo "GENERAL.STATE:100 (connected)"; echo "GENERAL.CON-UUID:id-$6"'
        self.replace("nmcli", f"""{first}
case "$*" in
*"device show"*) {query or ":"} ;;
*"connection add"*) {add or ":"} ;;
*"connection show"*) {lookup or ":"} ;;
*"connection modify"*) {modify or ":"} ;;
*"connection up"*) {up or ":"} ;;
esac""")

    def remove_tool(self, name):
        for directory in TOOLS, pathlib.Path("/usr/bin"):
            (directory / name).unlink(missing_ok=True)

    def calls(self):
        """What the tools were called with since the last look, "NAME [ARGUMENT]..." each."""
        calls = self._calls.read_text().splitlines() if self._calls.exists() else []
        self._calls.unlink(missing_ok=True)
        return calls

    def wait_for_call(self, text):
        wait_until(lambda: self._calls.exists() and text in self._calls.read_text(), f"a call of {text}")

    # Its log.

    def lines_of(self, *words):
        """The lines of these subjects."""
        return [line for line in self.service.log.lines if line[3:].startswith(words)]


class SmallDisk:
    """A directory on a disk of its own, of 64 KiB."""

    def __init__(self, path):
        self.path = path
        path.mkdir(parents=True, exist_ok=True)
        subprocess.run(["mount", "-t", "tmpfs", "-o", "size=64k", "tmpfs", path], check=True)

    def fill(self):
        with open(self.path / "filler", "wb", buffering=0) as filler:
            try:
                while True:
                    filler.write(b"x" * 4096)
            except OSError:
                return

    def clear(self):
        (self.path / "filler").unlink()

    def unmount(self):
        subprocess.run(["umount", self.path], check=True)


def stamps(*paths):
    """What changes when anybody touches the files."""
    return [(str(path), path.stat().st_ino, path.stat().st_mtime_ns, path.stat().st_ctime_ns) for path in paths]


def check_rows(rows, ask):
    """Asks for each row's reply; fails with all rows that got another one."""
    wrong = []
    for request, expected in rows:
        reply = ask(request)
        if reply != expected:
            wrong.append(f"{compact(request)}\n  got      {compact(reply)}\n  expected {compact(expected)}")
    assert not wrong, "\n".join(wrong)
