"""Who plays in the demo: the portal, the simulated terminal, and the people and programs in front of it."""

import http.client
import json
import os
import shlex
import subprocess
import threading
from urllib.parse import urlsplit

from stage import Failed

EXCHANGE_SECONDS = 20  # The service gives the portal 15.
START_SECONDS = 30
# Somebody who is neither root nor the kiosk account: Debian's nobody.
PERSON_UID = 65534
KIOSK_UID_FOR_ROOT = 60000  # The simulator's own choice.


class Portal:
    """The portal stand-in, started here on a free port."""

    def __init__(self, stage, program):
        with open(os.path.join(stage.directory, "portal.out"), "w+", encoding="utf-8") as output:
            stage.start("the portal", program, "--port", "0", "--quiet", stdout=output)
        self._stage = stage
        self.url = stage.wait_for("the portal listens", self._read_url, START_SECONDS)

    def code(self, code):
        """What the portal knows of a pairing code; None for nothing."""
        return next((found for found in self.ask("GET", "/admin/state")["codes"] if found["code"] == code), None)

    def terminal(self, terminal_id):
        return self.ask("GET", f"/admin/terminals/{terminal_id}?secrets=1")

    def ask(self, method, path, wish=None):
        connection = http.client.HTTPConnection(urlsplit(self.url).netloc, timeout=EXCHANGE_SECONDS)
        try:
            connection.request(method, path, body=None if wish is None else json.dumps(wish))
            response = connection.getresponse()
            body = response.read()
        except OSError as problem:
            raise Failed(f"the portal does not answer {method} {path}: {problem}") from None
        finally:
            connection.close()
        if response.status != 200:
            raise Failed(f"the portal refuses {method} {path}: {body.decode(errors='replace')}")
        return json.loads(body)

    def _read_url(self):
        with open(os.path.join(self._stage.directory, "portal.out"), encoding="utf-8") as output:
            line = output.readline()
        return line.removeprefix("listening on ").strip() if line.endswith("\n") else None


class Terminal:
    """The simulator. Its log is told as it comes, and kept."""

    def __init__(self, stage, teller, build_dir, portal_url):
        self._stage = stage
        self._teller = teller
        self._lines = []
        self._program = os.path.join(build_dir, "tarnvale-kioskctl")
        self.name = "lobby-01"
        self.directory = os.path.join(stage.directory, self.name)
        self.socket = os.path.join(self.directory, "kiosk.sock")
        simulator = os.path.join(build_dir, "tarnvale-kiosk-simulator")
        process = stage.start(
            "the simulator", simulator, "--dir", self.directory, "--auth-base", portal_url, stderr=subprocess.PIPE
        )
        threading.Thread(target=self._listen, args=(process.stderr,), daemon=True).start()
        stage.wait_for("the terminal listens", lambda: self.has_said("listening on"), START_SECONDS)

    def has_said(self, text, after=0):
        return any(text in line for line in self._lines[after:])

    def said_so_far(self):
        return len(self._lines)

    def state(self):
        """The service's own document."""
        return self.read("state", "state.json")

    def platform(self):
        """The simulated terminal around the service."""
        return self.read("terminal.json")

    def read(self, *name):
        """A JSON file of the terminal's directory; empty while it is not there. Files are replaced as a whole."""
        try:
            with open(os.path.join(self.directory, *name), encoding="utf-8") as file:
                return json.load(file)
        except FileNotFoundError:
            return {}

    def command_line(self, uid, *words):
        as_user = [] if uid is None else ["--uid", str(uid)]
        return [self._program, "--socket", self.socket, *as_user, *words]

    def _listen(self, stream):
        for line in stream:
            repeated = self._lines[-1:] == [line]
            self._lines.append(line)
            if not repeated:
                self._teller.overhear("terminal", line.rstrip("\n"))


class Peer:
    """Somebody who talks to the service over its control socket."""

    def __init__(self, stage, terminal, uid_for_root):
        self._stage = stage
        self._terminal = terminal
        # Without root everybody here is the one who started the demo.
        self._uid = uid_for_root if os.getuid() == 0 else None

    def send(self, command, *members):
        """The service's reply, whatever it says."""
        result = self._run("--timeout", str(EXCHANGE_SECONDS), "send", command, *members)
        if result.returncode not in (0, 1):
            raise Failed(f"{command}: {result.stderr.strip()}")
        return json.loads(result.stdout)

    def status_text(self):
        return self._run("status").stdout

    def shown_command(self, *words):
        """The same as a person would type it."""
        return shlex.join(self._terminal.command_line(self._uid, *words))

    def _run(self, *words):
        command = self._terminal.command_line(self._uid, *words)
        return self._stage.run(*command, timeout_seconds=EXCHANGE_SECONDS + 5)
