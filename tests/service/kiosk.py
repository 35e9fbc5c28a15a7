"""A terminal whose kiosk session runs, and what a person at its screen does. For the sandbox."""

import hashlib
import pathlib

from logind import Session
from peers import call_as
from scripted_portal import answer
from terminal import CLIENT, KIOSK, KIOSK_UID

EXIT_PASSWORD = "Leave-The-Kiosk-4711"
DEVICE_TOKEN = "device-token-of-this-terminal"
KIOSK_SESSION = Session("k1", KIOSK_UID, KIOSK)
ENROLLED = {"status": "enrolled", "name": "Lobby", "exitPassword": EXIT_PASSWORD}
SYSTEM_TOOLS = pathlib.Path("/usr/sbin")  # where the service looks first


class Kiosk:
    """The service of such a terminal and the words of its user interface."""

    def __init__(self, service, bus):
        self.service = service
        self.logind = bus.logind

    def ask(self, command, **members):
        return self.send({"cmd": command} | members)

    def send(self, request):
        """A request of the kiosk session; bytes are sent as they are."""
        return call_as(self.service, request, uid=KIOSK_UID, session=KIOSK_SESSION.id, image=CLIENT)

    def unlock(self, password=EXIT_PASSWORD):
        """The token of the settings unlock."""
        reply = self.ask("unlock", password=password)
        assert (reply["ok"], reply["expiresInSeconds"]) == (True, 600), reply
        return reply["unlockToken"]

    def sees_sessions(self):
        """Waits until the service has looked at the sessions as they are now."""
        self.logind.wait_for_call("ListSessions", self.logind.calls_of("ListSessions") + 2)

    @property
    def marker(self):
        return self.service.run_dir / "kiosk-maintenance"

    def is_in_maintenance(self):
        return self.service.state().get("Maintenance") == 1


def enrolled_state(machine_id="0123456789abcdef0123456789abcdef"):
    """The state of a terminal that was paired and provisioned."""
    return {"DeviceToken": DEVICE_TOKEN, "DeviceId": hashlib.sha256(machine_id.encode()).hexdigest(),
            "AccountUid": str(KIOSK_UID), "Provisioned": 1}


def make_kiosk(terminal, make_service, portal, bus):
    """Installs and starts the service on an enrolled terminal, with the kiosk session signed in."""
    terminal.add_account()
    bus.logind.add(KIOSK_SESSION)
    portal.checks_in(answer(200, ENROLLED))
    service = make_service("--client", str(CLIENT), "--auth-base", portal.url,
                           executable=terminal.install(), bus=bus.address)
    return Kiosk(service.write_state(enrolled_state()).start(), bus)
