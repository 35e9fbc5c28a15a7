"""The list of faults that were asked for: which request gets which, and how often. fault_play.py acts them out.

A fault belongs to the terminals' requests whose path begins with its `path` and, when given, whose method is `method`.
The oldest that fits is taken; one with a `count` is gone after so many requests, one without stays until it is cleared.

Limits: 100 faults; a fault lasts 600 seconds at most for one request; a body it makes up has at most 64 MiB.
"""

import base64
import binascii
import itertools
import threading
from dataclasses import dataclass, field

from exchange import Refused

MAX_FAULTS = 100
MAX_MADE_UP_BYTES = 64 * 1024 * 1024
MAX_MS = 600 * 1000

# What each kind takes beside path, method, kind and count: the parameter's name, its kind and its default.
KINDS = {
    "slow": {"delayMs": ("ms", 5000)},
    "silent": {"forMs": ("ms", 60000)},
    "cutOff": {},
    "reset": {},
    "status": {"status": ("status", 500), "location": ("headerText", "")},
    "garbage": {"bytes": ("size", 1024)},
    "tooLong": {"bytes": ("size", 65537)},
    "drip": {"everyMs": ("ms", 20)},
    "answer": {
        "status": ("status", 200),
        "headers": ("headers", {}),
        "body": ("text", ""),
        "bodyBase64": ("base64", None),
    },
}
# The terminal's request is carried out under these, and its answer goes out in another way than usual. Under all other
# kinds the portal behaves as though the request had never reached it.
KINDS_THAT_HANDLE = ("slow", "cutOff", "tooLong", "drip")

_COMMON = ("path", "method", "kind", "count")


@dataclass
class Fault:
    number: int
    path: str
    method: str  # empty: any
    kind: str
    remaining: int | None  # None: no end
    parameters: dict
    cleared: threading.Event = field(default_factory=threading.Event)

    def made_up_status(self):
        """The status of the answer that it makes up; None when it gives none or sends the usual one."""
        return 200 if self.kind == "garbage" else self.parameters.get("status")

    def view(self):
        return {
            "number": self.number,
            "path": self.path,
            "method": self.method or None,
            "kind": self.kind,
            "count": self.remaining,
            **{name: value for name, value in self.parameters.items() if not isinstance(value, bytes)},
        }


class FaultList:
    """Any thread may call any method. Whoever acts a fault out watches its `cleared`, which ends it early. `on_change`
    is called after the list has changed, with no lock held."""

    def __init__(self, on_change=lambda: None):
        self._on_change = on_change
        self._lock = threading.Lock()
        self._numbers = itertools.count(1)
        self._waiting = []
        self._playing = []

    def add(self, wish):
        """Adds the fault that a JSON object asks for and returns its view. Raises Refused."""
        fault = read_fault(wish)
        with self._lock:
            if len(self._waiting) >= MAX_FAULTS:
                raise Refused(409, f"there are {MAX_FAULTS} faults already")
            fault.number = next(self._numbers)
            self._waiting.append(fault)
            view = fault.view()
        self._on_change()
        return view

    def take(self, method, path):
        """The fault for this request, counted down; None when there is none. Pair it with done()."""
        with self._lock:
            fault = next((f for f in self._waiting if path.startswith(f.path) and f.method in ("", method)), None)
            if fault is None:
                return None
            if fault.remaining is not None:
                fault.remaining -= 1
                if fault.remaining == 0:
                    self._waiting.remove(fault)
            self._playing.append(fault)
            return fault

    def done(self, fault):
        with self._lock:
            self._playing.remove(fault)

    def clear(self):
        """Drops all faults and ends those that are being acted out."""
        with self._lock:
            for fault in self._waiting + self._playing:
                fault.cleared.set()
            self._waiting.clear()
        self._on_change()

    def view(self):
        with self._lock:
            return [fault.view() for fault in self._waiting]


def read_fault(wish):
    """A Fault without its number, out of a JSON object. Raises Refused.

    {"kind":"status","status":503,"count":2} and {"path":"/api/kiosk/check-in","kind":"silent"} are faults;
    {"kind":"fire"} and {"kind":"slow","delayMs":-1} are not.
    """
    kind = wish.get("kind")
    if kind not in list(KINDS):  # a list also takes a kind that cannot be hashed
        raise Refused(400, f"kind must be one of {', '.join(KINDS)}")
    for name in wish:
        if name not in _COMMON and name not in KINDS[kind]:
            raise Refused(400, f"{kind} does not take {name:.80}; it takes {', '.join(KINDS[kind]) or 'nothing'}")
    parameters = {
        name: _READERS[what](name, wish.get(name, default)) for name, (what, default) in KINDS[kind].items()
    }
    return Fault(0, _read_path(wish), _read_method(wish), kind, _read_count(wish), parameters)


def _read_path(wish):
    path = wish.get("path", "/api/")
    if not isinstance(path, str) or not path.startswith("/api/") or len(path) > 1000:
        raise Refused(400, "path must begin with /api/: only the terminals' requests can be given a fault")
    return path


def _read_method(wish):
    method = wish.get("method")
    if method not in (None, "GET", "POST"):
        raise Refused(400, "method must be GET or POST, or be left out")
    return method or ""


def _read_count(wish):
    count = wish.get("count")
    if count is not None and not _is_whole(count, 1, 1000000):
        raise Refused(400, "count must be a whole number from 1 to 1000000, or null for no end")
    return count


def _read_ms(name, value):
    if not _is_whole(value, 0, MAX_MS):
        raise Refused(400, f"{name} must be a whole number of milliseconds up to {MAX_MS}")
    return value


def _read_status(name, value):
    if not _is_whole(value, 200, 999):
        raise Refused(400, f"{name} must be a whole number from 200 to 999")
    return value


def _read_size(name, value):
    if not _is_whole(value, 0, MAX_MADE_UP_BYTES):
        raise Refused(400, f"{name} must be a whole number up to {MAX_MADE_UP_BYTES}")
    return value


def _read_text(name, value):
    if not isinstance(value, str):
        raise Refused(400, f"{name} must be a text")
    return value


def _read_header_text(name, value):
    if not _is_header(name, value):
        raise Refused(400, f"{name} must be a text of plain characters on one line")
    return value


def _read_base64(name, value):
    if value is None:
        return None
    try:
        return base64.b64decode(value, validate=True)
    except (TypeError, ValueError, binascii.Error):
        raise Refused(400, f"{name} must be a text in base64") from None


def _read_headers(name, value):
    if not isinstance(value, dict) or not all(_is_header(key, text) for key, text in value.items()):
        raise Refused(400, f"{name} must be an object of texts, without line ends")
    return value


def _is_header(name, value):
    if not isinstance(value, str) or not name or ":" in name:
        return False
    return (name + value).isascii() and (name + value).isprintable()


def _is_whole(value, least, most):
    return isinstance(value, int) and not isinstance(value, bool) and least <= value <= most


_READERS = {
    "ms": _read_ms,
    "status": _read_status,
    "size": _read_size,
    "text": _read_text,
    "headerText": _read_header_text,
    "base64": _read_base64,
    "headers": _read_headers,
}
