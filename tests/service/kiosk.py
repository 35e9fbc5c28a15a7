"""A terminal with a kiosk, and what a person at its screen does. For the sandbox."""

import hashlib
import pathlib

from kioskd import wait_until
from logind import Session
from peers import call_as, launch_peer
from scripted_portal import answer
from terminal import CLIENT, KIOSK, KIOSK_UID

EXIT_PASSWORD = "Leave The-Kiosk 4711"
CHECK_IN = "/api/kiosk/check-in"
DEVICE_TOKEN = "device-token-of-this-terminal"
DEVICE_ID = hashlib.sha256(b"0123456789abcdef0123456789abcdef").hexdigest()
KIOSK_SESSION = Session("k1", KIOSK_UID, KIOSK)
ENROLLED = {"status": "enrolled", "name": "Lobby", "exitPassword": EXIT_PASSWORD}
SYSTEM_TOOLS = pathlib.Path("/usr/sbin")  # where the service looks first


class Kiosk:
    """The service of a terminal, not started yet, and the words of the user interface in its kiosk session."""

    def __init__(self, service, portal, bus):
        self.service = service
        self.portal = portal
        self.logind = bus.logind
        self.place = service.place
        self.etc = self.place / "etc"
        self.token = None  # of the latest unlock
        self._calls = self.place / "calls"

    # Before the start.

    def enrol(self):
        """Makes it a terminal that was paired and provisioned, with the kiosk session signed in."""
        self.logind.add(KIOSK_SESSION)
        self.portal_says()
        self.write_state()

    def write_state(self, **more):
        """The state of an enrolled terminal, and more."""
        self.service.write_state({"DeviceToken": DEVICE_TOKEN, "DeviceId": DEVICE_ID,
                                  "AccountUid": str(KIOSK_UID), "Provisioned": 1} | more)

    def portal_says(self, **members):
        """What each check-in gets from now on."""
        self.portal.checks_in(answer(200, ENROLLED | members))

    def start_unlocked(self):
        """Starts the service, and unlocks the settings after the check-in that comes with a start."""
        asked = len(self.portal.to(CHECK_IN))
        self.service.start()
        self.portal.wait_for(CHECK_IN, asked + 1)
        self.unlock()
        return self

    # Requests of the kiosk session.

    def send(self, request):
        """Bytes are sent as they are."""
        return call_as(self.service, request, uid=KIOSK_UID, session=KIOSK_SESSION.id, image=CLIENT)

    def launch(self, request):
        """Sends from a process that is left running."""
        return launch_peer(self.service, request, uid=KIOSK_UID, session=KIOSK_SESSION.id, image=CLIENT)

    def ask(self, command, **members):
        return self.send({"cmd": command} | members)

    def unlock(self, password=EXIT_PASSWORD):
        """The token of the settings unlock. It is a check-in, too, which applies nothing of what it brings."""
        reply = self.ask("unlock", password=password)
        assert (reply["ok"], reply["expiresInSeconds"]) == (True, 600), reply
        self.token = reply["unlockToken"]
        return self.token

    def settings_request(self, command, **members):
        return {"cmd": command, "unlockToken": self.token} | members

    def settings(self, command, **members):
        """A command of the unlocked settings."""
        return self.send(self.settings_request(command, **members))

    def launch_settings(self, command, **members):
        """The same, left running."""
        return self.launch(self.settings_request(command, **members))

    # Tools. All record into one file, since the order of the calls and the borders of the arguments count.

    def replace(self, name, lines="", body="#!/bin/sh"):
        """Puts a tool in front of the system's own: it records its arguments and goes on with these lines."""
        path = SYSTEM_TOOLS / name
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
        for directory in SYSTEM_TOOLS, pathlib.Path("/usr/bin"):
            (directory / name).unlink(missing_ok=True)

    def calls(self):
        """What the tools were called with since the last look, "NAME [ARGUMENT]..." each."""
        calls = self._calls.read_text().splitlines() if self._calls.exists() else []
        self._calls.unlink(missing_ok=True)
        return calls

    def wait_for_call(self, text):
        wait_until(lambda: self._calls.exists() and text in self._calls.read_text(), f"a call of {text}")

    # What the service has done.

    def lines_of(self, *words):
        """The lines of its log that begin with one of these subjects."""
        return [line for line in self.service.log.lines if line[3:].startswith(words)]

    def sees_sessions(self):
        """Waits until the service has looked at the sessions as they are now."""
        self.logind.wait_for_call("ListSessions", self.logind.calls_of("ListSessions") + 2)

    @property
    def marker(self):
        return self.service.run_dir / "kiosk-maintenance"

    def is_in_maintenance(self):
        return self.service.state().get("Maintenance") == 1
