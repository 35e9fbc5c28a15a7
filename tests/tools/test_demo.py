"""The demo with somebody at the portal's page who takes the terminal away in the middle of a chapter."""

import re
import subprocess
import threading

from programs import BUILD_DIR, DEADLINE_SECONDS, TOOLS_DIR
from simulated import ask, tell

DEMO = TOOLS_DIR.parent / "script" / "demo"
DEMO_SECONDS = 200
FAILED = 1


class Spoilt:
    """A demo whose terminal gets `action` when a chapter of this title begins. It runs in a thread of its own."""

    def __init__(self, title, action):
        self.output = []
        self._title = title
        self._action = action
        self._portal = None
        self._demo = subprocess.Popen(
            [DEMO, "--no-build", "--unattended", "--build-dir", BUILD_DIR],
            stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
        )
        self._watcher = threading.Thread(target=self._watch, daemon=True)
        self._watcher.start()

    def wait(self):
        """The exit status and all that was told."""
        try:
            status = self._demo.wait(DEMO_SECONDS)
        finally:
            self._demo.terminate()
        self._watcher.join(DEADLINE_SECONDS)
        return status, "".join(self.output)

    def _watch(self):
        with self._demo.stdout as stream:
            for line in stream:
                self.output.append(line)
                portal = re.search(r"The portal is at (http://[0-9.:]*[0-9])", line)
                self._portal = portal.group(1) if portal else self._portal
                if re.match(rf"[0-9]+\. .*{self._title}", line):
                    self._spoil()

    def _spoil(self):
        terminal = ask(self._portal, "/admin/state")["terminals"][0]["id"]
        tell(self._portal, f"/admin/terminals/{terminal}/{self._action}", {})


def assert_goes_on_with_the_removal(status, output):
    assert status == FAILED, output
    assert "This chapter cannot go on" in output, output
    assert "The terminal is paired again" in output, output
    assert "That was the story, without the chapters that were skipped." in output, output


def test_says_what_happened_when_the_terminal_is_taken_away():
    early = Spoilt("receives its token", "revoke")
    waiting = Spoilt("In ten seconds it restarts", "revoke")
    settings = Spoilt("unlocks the settings", "revoke")
    updates = Spoilt("OS updates", "revoke")
    forgotten = Spoilt("OS updates", "forget")

    told = [demo.wait() for demo in (early, waiting, settings, updates)]
    forgotten_status, forgotten_output = forgotten.wait()

    for status, output in told:
        assert_goes_on_with_the_removal(status, output)
    assert forgotten_status == FAILED
    assert "Somebody has made the portal forget the terminal" in forgotten_output
    assert "Traceback" not in "".join(output for _, output in told) + forgotten_output
