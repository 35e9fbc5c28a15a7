"""Who plays in the demo: the portal, the simulated terminal, and the people and programs in front of it."""

import contextlib
import fcntl
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
CONSOLE_SECONDS = 20
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
        """What the portal knows of a terminal, with its token; None for nothing."""
        terminals = self.ask("GET", "/admin/state?secrets=1")["terminals"]
        return next((found for found in terminals if found["id"] == terminal_id), None)

    def change(self, terminal_id, settings):
        self.ask("POST", f"/admin/terminals/{terminal_id}/settings", settings)

    def ask(self, method, path, wish=None):
        connection = http.client.HTTPConnection(urlsplit(self.url).netloc, timeout=EXCHANGE_SECONDS)
        try:
            connection.request(method, path, body=None if wish is None else json.dumps(wish))
            response = connection.getresponse()
            body = response.read()
        except (OSError, http.client.HTTPException) as problem:
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
        self._kioskctl = os.path.join(build_dir, "tarnvale-kioskctl")
        self._simulator = os.path.join(build_dir, "tarnvale-kiosk-simulator")
        self.name = "lobby-01"
        self.directory = os.path.join(stage.directory, self.name)
        self.socket = os.path.join(self.directory, "kiosk.sock")
        process = stage.start(
            "the simulator", self._simulator, "--dir", self.directory, "--auth-base", portal_url, stderr=subprocess.PIPE
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

    def account(self):
        """The kiosk account; empty while there is none."""
        return self.platform().get("account") or {}

    def adapter(self, name):
        """What an adapter is set to; empty for one that there is not."""
        return next((found for found in self.platform().get("adapters", []) if found["name"] == name), {})

    def change_packages(self, changes):
        """What the package manager of the terminal has to do. The simulator writes to the file too, hence the lock."""
        with open(os.path.join(self.directory, "terminal.lock"), "a", encoding="utf-8") as lock:
            fcntl.flock(lock, fcntl.LOCK_EX)
            platform = self.platform()
            platform["packages"] = {**platform["packages"], **changes}
            edited = os.path.join(self.directory, "edited")
            with open(edited, "w", encoding="utf-8") as file:
                json.dump(platform, file)
            os.rename(edited, os.path.join(self.directory, "terminal.json"))

    def files(self, *name):
        """The names in a folder of the terminal's directory; None when it is not there."""
        with contextlib.suppress(FileNotFoundError):
            return sorted(os.listdir(os.path.join(self.directory, *name)))
        return None

    def read_bytes(self, *name):
        """A file of the terminal's directory; None while it is not there."""
        with contextlib.suppress(FileNotFoundError):
            with open(os.path.join(self.directory, *name), "rb") as file:
                return file.read()
        return None

    def read(self, *name):
        """A JSON file of the terminal's directory; empty while it is not there. Files are replaced as a whole."""
        return json.loads(self.read_bytes(*name) or "{}")

    def act_at_console(self, action):
        """A person at the terminal: signs in, signs out, or restarts it. What there is at the console then."""
        return self._run_job("--console", action).stdout.strip()

    def run_sleep_job(self):
        """What the sleep timer of a real terminal starts. The lines of its log."""
        return self._run_job("--sleep-now").stderr.splitlines()

    def command_line(self, uid, *words):
        as_user = [] if uid is None else ["--uid", str(uid)]
        return [self._kioskctl, "--socket", self.socket, *as_user, *words]

    def _run_job(self, *words):
        command = [self._simulator, "--dir", self.directory, *words]
        result = self._stage.run(*command, timeout_seconds=CONSOLE_SECONDS)
        if result.returncode != 0:
            raise Failed(f"{' '.join(words)}: {result.stderr.strip()}")
        return result

    def _listen(self, stream):
        for line in stream:
            repeated = self._lines[-1:] == [line]
            self._lines.append(line)
            if not repeated:
                self._teller.overhear("terminal", line.rstrip("\n"))


class Peer:
    """Somebody who talks to the service over its control socket. `name` is for the margin of the story."""

    def __init__(self, name, stage, terminal, uid_for_root):
        self.name = name
        self._stage = stage
        self._terminal = terminal
        # Without root everybody here is the one who started the demo.
        self._uid = uid_for_root if os.getuid() == 0 else None

    def send(self, command, *members, typed=""):
        """The service's reply, whatever it says. `typed` is the value of the member that is written as NAME=-."""
        result = self._run("--timeout", str(EXCHANGE_SECONDS), "send", command, *members, typed=typed)
        if result.returncode not in (0, 1):
            raise Failed(f"{command}: {result.stderr.strip()}")
        return json.loads(result.stdout)

    def status_text(self):
        return self._run("status").stdout

    def shown_command(self, *words):
        """The same as a person would type it."""
        return shlex.join(self._terminal.command_line(self._uid, *words))

    def _run(self, *words, typed=""):
        command = self._terminal.command_line(self._uid, *words)
        return self._stage.run(*command, timeout_seconds=EXCHANGE_SECONDS + 5, typed=typed)
