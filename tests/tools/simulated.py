"""A simulated terminal in front of the portal stand-in, and who acts on them: the words of the simulator's tests."""

import http.client
import json
import os
import signal
import subprocess
import threading

from programs import DEADLINE_SECONDS, IS_ROOT, KIOSKCTL, NOBODY_UID, SIMULATOR, read_json, run, wait_until

OK, FAILED, USAGE = 0, 1, 2
# Nobody here has it, so that the one who runs the tests stays a person to the service.
KIOSK_UID = 60000
EXIT_PASSWORD = "swordfish"


class Simulator:
    """The process, and what can be seen of it and sent to it."""

    def __init__(self, directory, *options, kiosk_uid=KIOSK_UID):
        self.directory = directory
        self.socket = directory / "kiosk.sock"
        self.marker = directory / "run" / "kiosk-maintenance"
        self.lines = []
        self.process = subprocess.Popen(
            [SIMULATOR, "--dir", directory, "--kiosk-uid", str(kiosk_uid), *options],
            stdin=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True,
        )
        self._reader = threading.Thread(target=self._read, daemon=True)
        self._reader.start()
        self.wait_for_line("listening on")

    def _read(self):
        with self.process.stderr as stream:
            for line in stream:
                self.lines.append(line)

    def count(self, text):
        return sum(text in line for line in self.lines)

    def wait_for_line(self, text, times=1):
        wait_until(lambda: self.count(text) >= times, f"{text!r} in the log")

    def send(self, *words, uid=None):
        as_user = [] if uid is None else ["--uid", uid]
        return json.loads(run(KIOSKCTL, "--socket", self.socket, *as_user, "send", *words).stdout)

    def send_as_kiosk(self, *words):
        """Without root the kiosk account has the uid of the one who runs the tests."""
        return self.send(*words, uid=KIOSK_UID if IS_ROOT else None)

    def enrol(self):
        uid = NOBODY_UID if IS_ROOT else None
        code = self.send("pair.begin", uid=uid)["code"]
        assert self.send("pair.check", f"code={code}", uid=uid)["restarting"]

    def ask_to_restart(self):
        assert self.send("restart.now") == {"ok": True}

    def console(self, action):
        """What the person at the console gets: the exit status and the sentence."""
        result = run(SIMULATOR, "--dir", self.directory, "--console", action)
        return result.returncode, (result.stdout + result.stderr).strip()

    def restart_at_console(self):
        """Until the terminal is on again."""
        times = self.count("listening on") + 1
        assert self.console("restart") == (OK, "the terminal restarts")
        self.wait_for_line("listening on", times)

    def terminal(self):
        return read_json(self.directory / "terminal.json")

    def change_terminal(self, **members):
        """With an editor, as it were: replaced as a whole, so that nobody reads half of it."""
        text = json.dumps({**self.terminal(), **members})
        (self.directory / "edited").write_text(text)
        (self.directory / "edited").rename(self.directory / "terminal.json")

    def end(self, number=signal.SIGTERM):
        self.process.send_signal(number)
        return self.wait()

    def wait(self):
        status = self.process.wait(DEADLINE_SECONDS)
        self._reader.join(DEADLINE_SECONDS)
        return status


class Kiosk(Simulator):
    """A terminal in kiosk mode, with the kiosk account in its session and an exit password at the portal."""

    def __init__(self, portal, directory, *options):
        self.portal = portal
        self._kiosk_uid = KIOSK_UID if IS_ROOT else os.getuid()
        super().__init__(directory, "--auth-base", portal, *options, kiosk_uid=self._kiosk_uid)
        self.enrol()
        self.id = ask(portal, "/admin/state")["terminals"][0]["id"]
        tell(portal, f"/admin/terminals/{self.id}/settings", {"exitPassword": EXIT_PASSWORD})
        self.restart_at_console()

    def start_again(self):
        """The service alone, by a new process; the result has the process."""
        assert self.end() == OK
        return Simulator(self.directory, "--auth-base", self.portal, kiosk_uid=self._kiosk_uid)

    def unlock(self):
        reply = self.send_as_kiosk("unlock", f"password={EXIT_PASSWORD}")
        assert reply["ok"], reply
        return f"unlockToken={reply['unlockToken']}"

    def begin_maintenance(self):
        assert self.send_as_kiosk("maintenance", f"password={EXIT_PASSWORD}") == {"ok": True}
        self.wait_for_line("simulator: nobody is signed in at the console")


def ask(portal, path):
    return _exchange(portal, "GET", path, None)


def tell(portal, path, wish):
    return _exchange(portal, "POST", path, json.dumps(wish))


def _exchange(portal, method, path, body):
    connection = http.client.HTTPConnection(portal.removeprefix("http://"), timeout=DEADLINE_SECONDS)
    try:
        connection.request(method, path, body)
        response = connection.getresponse()
        answer = response.read()
        assert response.status == 200, answer
        return json.loads(answer)
    finally:
        connection.close()
