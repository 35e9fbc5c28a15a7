"""The records of the portal's memory, and how they look from outside. Data only; model.py holds and changes them."""

import copy
import secrets
from dataclasses import asdict, dataclass, field

DEFAULT_TENANT = "tenant-1"
# Without I, L, O, 0 and 1: the code is read from a screen and typed by a person.
CODE_ALPHABET = "ABCDEFGHJKMNPQRSTUVWXYZ23456789"
CODE_LENGTH = 8

WAITING, CLAIMED, COLLECTED, EXPIRED = "waiting", "claimed", "collected", "expired"
ENROLLED, REVOKED, UNKNOWN = "enrolled", "revoked", "unknown"
# What an administrator can do to a terminal, and what its check-ins are told from then on.
STATUS_AFTER = {"bring-back": ENROLLED, "revoke": REVOKED, "forget": UNKNOWN}


@dataclass
class PairingCode:
    code: str
    report: dict  # what the terminal said about itself
    madeAtMs: int
    expiresAtMs: int
    state: str = WAITING
    terminal: str = ""  # id of the terminal, once claimed


@dataclass
class Terminal:
    id: str
    token: str
    report: dict  # what it said about itself when it paired
    settings: dict  # the members of its check-in replies, by name; what is not in here is not sent
    enrolledAtMs: int
    status: str = ENROLLED
    checkIns: int = 0
    lastCheckInAtMs: int = 0  # 0: never
    lastReport: dict = field(default_factory=dict)  # the last check-in's body
    lastBody: str = ""  # the same as it came over the wire


def default_settings(name):
    return {
        "signIn": {"microsoft": True, "email": False, "extraHosts": []},
        "name": name,
        "power": {
            "screenOffMinutes": 15,
            "sleepMinutes": 0,
            "schedule": {"enabled": False, "sleepAt": "22:00", "wakeAt": "07:00", "days": [1, 2, 3, 4, 5]},
        },
        "powerSource": "default",
        "updates": {"automatic": False, "window": {"start": "02:00", "end": "05:00", "days": [0, 1, 2, 3, 4, 5, 6]}},
        "updatesSource": "default",
        "exitPassword": "",
        "tenantId": DEFAULT_TENANT,
    }


def new_code():
    return "".join(secrets.choice(CODE_ALPHABET) for _ in range(CODE_LENGTH))


def typed_code(text):
    """A code as a person types it, in the form in which it was made: " abcd-efgh " -> "ABCDEFGH"."""
    return "".join(character for character in text.upper() if character.isalnum())


def name_from_host(hostname):
    return "".join(character for character in hostname if character.isprintable())[:80] or "terminal"


def view_of_terminal(terminal, secrets_too):
    """The terminal as a dict for JSON; token and exit password only on request."""
    view = copy.deepcopy(asdict(terminal))
    view["hostname"] = terminal.report["hostname"]
    view["exitPasswordSet"] = bool(terminal.settings.get("exitPassword"))
    if not secrets_too:
        del view["token"]
        view["settings"].pop("exitPassword", None)
    return view
