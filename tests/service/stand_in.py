"""The project's own portal stand-in as a process, and its interface for scripts."""

import json
import pathlib
import subprocess
import sys
import urllib.request

from kioskd import DEADLINE

PROGRAM = pathlib.Path(__file__).parents[2] / "tools/portal/portal"


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

    def get(self, path):
        return self._ask(urllib.request.Request(self.url + path))

    def post(self, path, body=None):
        return self._ask(urllib.request.Request(self.url + path, json.dumps(body or {}).encode(), method="POST"))

    def delete(self, path):
        return self._ask(urllib.request.Request(self.url + path, method="DELETE"))

    def _ask(self, request):
        with self._opener.open(request, timeout=DEADLINE) as reply:
            return json.load(reply)
