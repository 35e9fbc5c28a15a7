"""The words in which the portal's tests are written: a portal on a free port, and who talks to it."""

import base64
import http.client
import json
import sys
import unittest
from pathlib import Path
from urllib.parse import urlencode, urlsplit

PORTAL_DIR = Path(__file__).resolve().parents[3] / "tools" / "portal"
sys.dont_write_bytecode = True
sys.path.insert(0, str(PORTAL_DIR))

import model  # noqa: E402
import server  # noqa: E402

PAIRING_REPORT = {
    "hostname": "lobby-01",
    "platform": "Linux",
    "osVersion": "Debian GNU/Linux 12 (bookworm)",
    "appVersion": "2026-10-11-2304",
    "screenCount": 1,
}
CHECK_IN_REPORT = {"appVersion": "2026-10-11-2304", "powerLocal": None, "powerError": None}
POWER = {
    "screenOffMinutes": 10,
    "sleepMinutes": 30,
    "schedule": {"enabled": True, "sleepAt": "22:00", "wakeAt": "07:00", "days": [1, 2]},
}
UPDATES = {"automatic": True, "window": {"start": "22:00", "end": "04:00", "days": [0, 6]}}
TERMINAL_HEADERS = {
    "Content-Type": "application/json",
    "Accept": "application/json",
    "User-Agent": "TarnvaleKiosk/2026-10-11-2304",
}


class Clock:
    """A wall clock that stands still until it is moved."""

    def __init__(self):
        self.seconds = 1_800_000_000.0

    def __call__(self):
        return self.seconds


class Reply:
    def __init__(self, status, headers, body):
        self.status = status
        self.headers = headers
        self.body = body

    def json(self):
        return json.loads(self.body)


class PortalTest(unittest.TestCase):
    """Each test has a portal of its own, listening on a free port."""

    def setUp(self):
        self.clock = Clock()
        self.start(model.Portal(clock=self.clock))

    def start(self, portal):
        self.portal = portal
        self.server = server.PortalServer(portal)
        self.server.listen()
        self.addCleanup(self.server.stop)
        self.address = urlsplit(self.server.url).netloc

    def send(self, method, path, body=b"", headers=None, timeout=90):
        connection = http.client.HTTPConnection(self.address, timeout=timeout)
        try:
            connection.request(method, path, body=body or None, headers=headers or {})
            response = connection.getresponse()
            return Reply(response.status, response.headers, response.read())
        finally:
            connection.close()

    # A terminal.

    def terminal_sends(self, method, path, report=None, token=None):
        headers = dict(TERMINAL_HEADERS)
        if token is not None:
            headers["Authorization"] = f"Bearer {token}"
        body = b"" if report is None else report if isinstance(report, bytes) else json.dumps(report).encode()
        return self.send(method, path, body, headers)

    def begin_pairing(self, **members):
        return self.terminal_sends("POST", "/api/kiosk/pair", {**PAIRING_REPORT, **members}).json()["pairingCode"]

    def ask_after(self, code):
        return self.terminal_sends("GET", f"/api/kiosk/pair/{code}")

    def check_in(self, token, report=None):
        return self.terminal_sends("POST", "/api/kiosk/check-in", CHECK_IN_REPORT if report is None else report, token)

    def fetch_photo(self, digest, token):
        headers = {**TERMINAL_HEADERS, "Accept": "image/*"}
        if token is not None:
            headers["Authorization"] = f"Bearer {token}"
        return self.send("GET", f"/api/kiosk/branding/photos/{digest}", headers=headers)

    def enrol(self, **members):
        """A paired terminal: its id and its token."""
        code = self.begin_pairing(**members)
        terminal = self.admin("POST", "/admin/claim", {"code": code})["terminal"]
        return terminal, self.ask_after(code).json()["deviceToken"]

    # A script.

    def admin_reply(self, method, path, wish=None):
        return self.send(method, path, b"" if wish is None else json.dumps(wish).encode())

    def admin(self, method, path, wish=None):
        reply = self.admin_reply(method, path, wish)
        self.assertEqual(reply.status, 200, reply.body)
        return reply.json()

    def change(self, terminal, **settings):
        return self.admin("POST", f"/admin/terminals/{terminal}/settings", settings)

    def fault(self, kind, **parameters):
        return self.admin("POST", "/admin/faults", {"kind": kind, **parameters})

    def state(self, query=""):
        return self.admin("GET", "/admin/state" + query)

    def requests(self, query=""):
        return self.admin("GET", "/admin/requests" + query)["requests"]

    # A person.

    def submit(self, form_path, headers=None, **fields):
        form = {"Content-Type": "application/x-www-form-urlencoded", **(headers or {})}
        return self.send("POST", form_path, urlencode(fields, doseq=True).encode(), form)

    def page(self):
        return self.send("GET", "/").body.decode()


def base64_of(data):
    return base64.b64encode(data).decode("ascii")
