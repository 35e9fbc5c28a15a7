"""The project's own portal stand-in as a process, and its interface for scripts."""

import json
import pathlib
import subprocess
import sys
import urllib.request

from kioskd import DEADLINE

PROGRAM = pathlib.Path(__file__).parents[2] / "tools/portal/portal"
TERMINAL_HEADERS = {"User-Agent": "TarnvaleKiosk/2026-10-05-1200", "Content-Type": "application/json",
                    "Accept": "application/json"}
REPORT = {"hostname": "lobby", "platform": "Linux", "osVersion": "Debian", "appVersion": "2026-10-05-1200",
          "screenCount": 1}


class StandIn:
    def __init__(self):
        self._process = subprocess.Popen([sys.executable, PROGRAM, "--port", "0", "--quiet"],
                                         stdout=subprocess.PIPE, text=True)
        self.url = self._process.stdout.readline().removeprefix("listening on ").strip()
        self._opener = urllib.request.build_opener(urllib.request.ProxyHandler({}))

    def close(self):
        self._process.terminate()
        self._process.wait()
        self._process.stdout.close()

    def get(self, path, headers=None):
        return self._ask(urllib.request.Request(self.url + path, headers=headers or {}))

    def post(self, path, body=None, headers=None):
        data = json.dumps(body or {}).encode()
        return self._ask(urllib.request.Request(self.url + path, data, headers or {}, method="POST"))

    def delete(self, path):
        return self._ask(urllib.request.Request(self.url + path, method="DELETE"))

    def enrol(self):
        """Pairs a terminal of which there is nothing else yet; answers its id and its token."""
        code = self.post("/api/kiosk/pair", REPORT, TERMINAL_HEADERS)["pairingCode"]
        terminal = self.post("/admin/claim", {"code": code})["terminal"]
        return terminal, self.get(f"/api/kiosk/pair/{code}", TERMINAL_HEADERS)["deviceToken"]

    def records(self):
        """Every exchange with a terminal since the reset, as /admin/requests tells it, with its secrets."""
        return self.get("/admin/requests?secrets=1")["requests"]

    def _ask(self, request):
        with self._opener.open(request, timeout=DEADLINE) as reply:
            return json.load(reply)
