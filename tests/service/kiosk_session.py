"""The kiosk session of an enrolled terminal, in front of settings that its person has unlocked."""

from logind import Session
from peers import call_as, launch_peer
from scripted_portal import answer
from terminal import CLIENT, KIOSK, KIOSK_UID

PASSWORD = "Leave-the-kiosk"
CHECK_IN = "/api/kiosk/check-in"


class KioskSession:
    def __init__(self, service, portal):
        self.service = service
        self.portal = portal
        self.token = None

    def ask(self, command, **members):
        return call_as(self.service, {"cmd": command} | members, uid=KIOSK_UID, session="kiosk", image=CLIENT)

    def unlock(self):
        """Unlocks the settings with the exit password, which the service learns by a check-in; answers
        what the service said in it."""
        self.token = self.ask("unlock", password=PASSWORD)["unlockToken"]
        return self.portal.to(CHECK_IN)[-1].json()

    def settings(self, command, **members):
        """A command of the unlocked settings."""
        return self.ask(command, unlockToken=self.token, **members)

    def launch_settings(self, command):
        """The same, left running."""
        request = {"cmd": command, "unlockToken": self.token}
        return launch_peer(self.service, request, uid=KIOSK_UID, session="kiosk", image=CLIENT)


def start_kiosk(terminal, make_service, portal, bus, **state):
    """Starts an installed service on an enrolled terminal that shows its kiosk, and unlocks the settings.
    The check-in that comes with the start is over then."""
    bus.logind.add(Session("kiosk", KIOSK_UID, KIOSK))
    portal.checks_in(answer(200, {"status": "enrolled", "exitPassword": PASSWORD}))
    service = make_service("--client", str(CLIENT), "--auth-base", portal.url,
                           executable=terminal.install(), bus=bus.address)
    terminal.add_account()
    service.write_state({"DeviceToken": "secret", "AccountUid": str(KIOSK_UID), "Provisioned": 1} | state)
    service.start()
    portal.wait_for(CHECK_IN)
    kiosk = KioskSession(service, portal)
    kiosk.unlock()
    return kiosk
