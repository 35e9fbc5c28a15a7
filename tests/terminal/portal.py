"""The portal stand-in that runs in the guest, and what its administrator does there."""

import json
import shlex

URL = "http://127.0.0.1:8480"
# After a boot the portal may not listen yet.
CURL = "curl --silent --show-error --retry 300 --retry-delay 1 --retry-connrefused"


class Portal:
    def __init__(self, terminal):
        self._terminal = terminal
        self._id = None

    def get(self, path):
        return self._answer(f"{CURL} {URL}{path}")

    def post(self, path, body=None):
        """JSON in, JSON out; see the portal's README."""
        return self._answer(f"{CURL} --data {shlex.quote(json.dumps(body or {}))} {URL}{path}")

    def claim(self, code):
        self._id = self.post("/admin/claim", {"code": code})["terminal"]

    def set(self, **settings):
        """Changes settings of the terminal: power, updates, exitPassword, branding, name and so on."""
        self.post(f"/admin/terminals/{self._id}/settings", settings)

    def revoke(self):
        self.post(f"/admin/terminals/{self._id}/revoke")

    def shown(self):
        """What the portal knows about the terminal."""
        return self.get(f"/admin/terminals/{self._id}")

    def check_ins(self):
        return self.shown()["checkIns"]

    def wait_for_check_in(self, count=1):
        """Until the terminal has checked in so many times more."""
        after = self.check_ins() + count - 1
        body = {"terminal": self._id, "afterCheckIns": after, "timeoutSeconds": 300}
        assert self.post("/admin/wait", body)["reached"], "no check-in within 300 s"

    def _answer(self, command):
        answer = json.loads(self._terminal.run(command, timeout_s=330))
        assert "error" not in answer, answer
        return answer
