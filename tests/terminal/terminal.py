"""The words in which the chapters are told: what a person, the portal and an onlooker do at the booted terminal."""

import json
import shlex
import time

from log import JOURNAL, Log
from portal import Portal
from machine import Machine

KIOSK = "tarnvale-kiosk"
CLIENT = "/usr/bin/tarnvale-stream"
STATE = "/var/lib/tarnvale-kiosk/state.json"
PRESENCE = "/run/tarnvale/kiosk-presence.json"
SERVICE = "tarnvale-kioskd.service"
KIOSK_UNIT = "tarnvale-kiosk.service"
LOGIN_PROMPT = "getty@tty1.service"
EXIT_PASSWORD = "Heron-7"
# Much longer than anything takes: what is waited for here runs on an emulated processor beside other work.
PATIENCE_S = 300
POLL_S = 0.5


class Terminal:
    def __init__(self, image):
        self.machine = Machine(image)
        self.console = self.machine.console
        self.portal = Portal(self)

    def close(self):
        self.machine.close()

    # What an onlooker with root's rights sees and does.

    def try_run(self, command, stdin="", timeout_s=PATIENCE_S):
        """Runs a line of shell as root; answers with status, out and err."""
        return self.machine.agent.run(["/bin/sh", "-c", command], stdin, timeout_s)

    def run(self, command, stdin="", timeout_s=PATIENCE_S):
        """The same, for what has to work; answers with what it printed, without white space around it."""
        result = self.try_run(command, stdin, timeout_s)
        assert result.status == 0, f"{command}: status {result.status}\n{result.out}{result.err}"
        return result.out.strip()

    def read(self, path):
        return self.run(f"cat {path}")

    def exists(self, path):
        """Also a link that leads nowhere."""
        return self.try_run(f"test -e {path} -o -L {path}").status == 0

    def state(self):
        """What the service has stored; a key that was cleared is left out."""
        return {key: value for key, value in json.loads(self.read(STATE)).items() if value is not None}

    def log(self):
        """The service's log from here on."""
        return Log(self)

    def log_of_this_boot(self):
        return self.run(f"{JOURNAL} --boot --output cat")

    def until(self, event, probe, timeout_s=PATIENCE_S):
        """Waits for what is sure to come, and answers with what the probe found."""
        deadline = time.monotonic() + timeout_s
        while not (found := probe()):
            assert time.monotonic() < deadline, f"not within {timeout_s} s: {event}"
            time.sleep(POLL_S)
        return found

    def wait_for_restart(self):
        """Until the machine has restarted and the service listens again."""
        self.machine.wait_for_restart(PATIENCE_S)
        self.until("the service listens", self.service_answers)

    def restart(self):
        """Restarts the machine in good order."""
        self.machine.forget_events()
        # The agent answers before it is stopped.
        self.run("systemd-run --quiet --on-active=5 --timer-property=AccuracySec=100ms systemctl reboot")
        self.wait_for_restart()

    def service_answers(self):
        return self.try_run("tarnvale-kioskctl status").status == 0

    def pair(self):
        """A person pairs at the serial console and the portal's administrator claims; answers with the last reply.

        The machine restarts by itself 10 s later.
        """
        self.console.sign_in("mira", "mira")
        code = self.ask_as_person("pair.begin")["code"]
        self.portal.claim(code)
        self.portal.set(exitPassword=EXIT_PASSWORD)
        self.machine.forget_events()
        return self.ask_as_person("pair.check", code=code)

    def is_active(self, unit):
        return self.try_run(f"systemctl --quiet is-active {unit}").status == 0

    def set_clock(self, text):
        """Sets the system's clock, not the RTC; text as for date, in UTC."""
        self.run(f"timedatectl set-ntp false; date --utc --set {shlex.quote(text)}")

    # Sessions and accounts.

    def account(self):
        """The kiosk account's line of the password database, as a list; None when there is no such account."""
        result = self.try_run(f"getent passwd {KIOSK}")
        return result.out.strip().split(":") if result.status == 0 else None

    def groups(self, name=KIOSK):
        return set(self.run(f"id --groups --name {name}").split())

    def sessions(self):
        """logind's sessions, as a list of their properties."""
        ids = [line.split()[0] for line in self.run("loginctl list-sessions --no-legend --no-pager").splitlines()]
        return [properties(self.try_run(f"loginctl show-session {name}").out) for name in ids]

    def kiosk_session(self):
        """The kiosk account's own session, or None."""
        return next(iter(self.kiosk_sessions()), None)

    def kiosk_sessions(self):
        """One that ends may stand there beside the next."""
        return [session for session in self.sessions() if session.get("Name") == KIOSK and session["Class"] == "user"]

    def wait_for_kiosk(self):
        """Until the kiosk session stands and its client takes requests."""
        def find_live():
            return next((session for session in self.kiosk_sessions() if session["State"] != "closing"), None)

        session = self.until("the kiosk session", find_live)
        # An earlier client may have left its socket behind.
        self.until("the stream client listens", lambda: self.try_run(ask_through(session, "status")).status == 0)
        return session

    def idle_action(self):
        """logind's own view: what it does when nobody does anything, and after how many microseconds."""
        manager = "org.freedesktop.login1 /org/freedesktop/login1 org.freedesktop.login1.Manager"
        return self.run(f"busctl get-property {manager} IdleAction IdleActionUSec").splitlines()

    # The control protocol.

    def ask(self, request, **members):
        """Sends a request as the kiosk session's stream client, and answers with the reply."""
        return json.loads(self.run(ask_through(self.wait_for_kiosk(), request, **members)))

    def try_to_ask(self, request, **members):
        """The same, where the service may die before it replies."""
        self.try_run(ask_through(self.wait_for_kiosk(), request, **members))

    def unlock(self):
        """Unlocks the settings; answers with the token as the member that settings commands take."""
        reply = self.ask("unlock", password=EXIT_PASSWORD)
        assert reply["ok"], reply
        return {"unlockToken": reply["unlockToken"]}

    def begin_maintenance(self):
        """Begins maintenance, and waits until the kiosk session has made room for a login prompt."""
        reply = self.ask("maintenance", **self.unlock())
        assert reply["ok"], reply
        self.until("the end of the kiosk session", lambda: not self.kiosk_session())
        self.until("the login prompt", lambda: self.is_active(LOGIN_PROMPT))

    def ask_as_person(self, request, **members):
        """The same as the person who is signed in at the serial console."""
        line = json.dumps({"cmd": request, **members})
        return json.loads(self.console.type(f"{CLIENT} --ask {shlex.quote(line)}"))


def ask_through(session, request, **members):
    """The command that has the session's stream client send a request."""
    line = json.dumps({"cmd": request, **members})
    return f"{CLIENT} --ask {shlex.quote(line)} /run/user/{session['User']}/tarnvale-stream.sock"


def properties(text):
    return dict(line.split("=", 1) for line in text.splitlines() if "=" in line)
