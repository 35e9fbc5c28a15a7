"""The story of script/demo: how a terminal becomes a kiosk, told while it happens.

Every step is checked by facts: the portal's own data, the service's replies, the files and the log of the terminal.
Exits with 0 when all of them happened, with 1 when one did not, and with 128 and the signal's number when a signal
came before the end.
"""

import argparse
import json
import os
import sys
import time

sys.dont_write_bytecode = True  # The source tree stays as it is.

from actors import KIOSK_UID_FOR_ROOT, PERSON_UID, Peer, Portal, Terminal  # noqa: E402
from stage import Failed, Stage, Stopped  # noqa: E402
from teller import Teller  # noqa: E402

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
ASK_AGAIN_SECONDS = 1
FACT_SECONDS = 20
RESTART_SECONDS = 60  # 10 until it begins, and an exchange may be under way then.
IN_STEP_SECONDS = 90  # The terminal checks in every 30.
NEW_NAME = "Lobby"
NEW_POWER = {
    "screenOffMinutes": 5,
    "sleepMinutes": 30,
    "schedule": {"enabled": True, "sleepAt": "22:30", "wakeAt": "06:45", "days": [1, 2, 3, 4, 5]},
}


class Story:
    def __init__(self, stage, teller, build_dir, attended):
        self.stage = stage
        self.teller = teller
        self.build_dir = build_dir
        self.attended = attended

    def tell(self):
        self.open_the_stage()
        code = self.ask_for_a_code()
        terminal_id = self.get_it_claimed(code)
        self.receive_the_token(code, terminal_id)
        self.look_at_the_first_check_in(terminal_id)
        self.look_at_the_account()
        self.wait_for_the_restart()
        self.use_the_kiosk_session()
        self.change_the_policy(terminal_id)
        self.teller.end()

    def open_the_stage(self):
        self.teller.chapter("A portal and a terminal")
        self.portal = Portal(self.stage, os.path.join(ROOT, "tools", "portal", "portal"))
        self.teller.say(f"The portal is at {self.teller.strong(self.portal.url)}. Now a terminal is switched on.")
        self.terminal = Terminal(self.stage, self.teller, self.build_dir, self.portal.url)
        self.person = Peer(self.stage, self.terminal, PERSON_UID)
        self.kiosk = Peer(self.stage, self.terminal, KIOSK_UID_FOR_ROOT)
        status = self.person.send("status")
        self.require("the terminal is not enrolled", status.get("enrolled") is False, status)

    def ask_for_a_code(self):
        self.teller.chapter("A person signed in at the terminal asks for a code")
        reply = self.person.send("pair.begin")
        self.require("the service answers with a code", reply["ok"], reply)
        code = reply["code"]
        self.teller.say(f"The terminal shows {self.teller.strong(code)}.")
        known = self.portal.code(code)
        self.require("the portal waits for somebody to claim it", known and known["state"] == "waiting", known)
        reply = self.check_pairing(code)
        self.require("the terminal is told to go on waiting", reply.get("paired") is False, reply)
        return code

    def get_it_claimed(self, code):
        """The id of the terminal that the portal makes of it."""
        self.teller.chapter("An administrator claims the code at the portal")
        if self.attended:
            self.teller.say(f"That is you: open {self.teller.strong(self.portal.url)} and claim {code}.")
        else:
            self.portal.ask("POST", "/admin/claim", {"code": code})
        seconds_left = self.portal.code(code)["expiresAtMs"] / 1000 - time.time()
        terminal_id = self.stage.wait_for(
            "somebody claims the code", lambda: self.portal.code(code)["terminal"], round(seconds_left)
        )
        self.teller.fact(f"the code belongs to the terminal {terminal_id} now")
        return terminal_id

    def receive_the_token(self, code, terminal_id):
        self.teller.chapter("The terminal asks after its code again, and receives its token")
        reply = self.check_pairing(code)
        self.require("the service says that it restarts soon", reply.get("restarting") is True, reply)
        token = self.portal.terminal(terminal_id)["token"]
        self.require("it holds the token that the portal gave out", self.terminal.state().get("DeviceToken") == token)

    def look_at_the_first_check_in(self, terminal_id):
        self.teller.chapter("It has checked in for the first time")
        check_ins = self.portal.terminal(terminal_id)["checkIns"]
        self.require("the portal has heard from it", check_ins >= 1)
        name = self.terminal.state().get("TerminalName")
        self.require("it has taken its name from the portal", name == self.terminal.name, name)

    def look_at_the_account(self):
        self.teller.chapter("It has made its kiosk account")
        self.wait_for("it is provisioned", lambda: self.terminal.state().get("Provisioned") == 1)
        account = self.terminal.platform()["account"]
        recorded = self.terminal.state().get("AccountUid")
        self.require(f"{account['name']} exists, and its uid is recorded", recorded == str(account["uid"]), recorded)

    def wait_for_the_restart(self):
        self.teller.chapter("In ten seconds it restarts into kiosk mode")
        bootedAtMs = self.terminal.platform()["bootedAtMs"]
        heard = self.terminal.said_so_far()
        self.wait_for("it restarts", lambda: self.terminal.platform()["bootedAtMs"] > bootedAtMs, RESTART_SECONDS)
        self.wait_for("it listens again", lambda: self.terminal.has_said("listening on", heard))
        self.require("the kiosk account has the console", self.terminal.platform()["atConsole"] == "kiosk")

    def use_the_kiosk_session(self):
        self.teller.chapter("The kiosk session talks to the service")
        status = self.kiosk.send("status")
        for line in self.kiosk.status_text().splitlines():
            self.teller.overhear("status", line)
        for member in ("enrolled", "provisioned", "kioskSession"):
            self.require(f"{member} is true", status.get(member) is True, status)
        reply = self.kiosk.send("session.report", "signedIn:=true", "live:=false")
        self.require("it reports that somebody has signed in", reply["ok"], reply)
        presence = self.terminal.read("run", "kiosk-presence.json")
        self.require("which stands in the presence file", presence.get("signedIn") is True, presence)

    def change_the_policy(self, terminal_id):
        self.teller.chapter("The portal changes the terminal's name and its power policy")
        self.teller.say("The terminal hears of it at its next check-in, within half a minute.")
        heard = self.terminal.said_so_far()
        settings = {"name": NEW_NAME, "power": NEW_POWER, "powerSource": "device"}
        self.portal.ask("POST", f"/admin/terminals/{terminal_id}/settings", settings)
        self.wait_for(
            "its log tells of the policy",
            lambda: self.terminal.has_said("power: the portal's policy is now", heard),
            IN_STEP_SECONDS,
        )
        policy = json.loads(self.terminal.state().get("PowerPolicy") or "null")
        self.require("the policy stands in its state", policy == NEW_POWER, policy)
        status = self.kiosk.send("status")
        self.require(f"its status says {NEW_NAME}", status.get("terminalName") == NEW_NAME, status)

    def go_on(self):
        """Until a signal comes."""
        self.teller.say("It goes on until you press Ctrl-C. Change what you like at")
        self.teller.say(f"  {self.teller.strong(self.portal.url)}")
        self.teller.say("and talk to the terminal from another window:")
        self.teller.say("  " + self.kiosk.shown_command("status"))
        self.teller.say("  " + self.kiosk.shown_command("send", "session.report", "signedIn:=false"))
        while True:
            self.stage.pause(ASK_AGAIN_SECONDS)

    def check_pairing(self, code):
        reply = self.person.send("pair.check", f"code={code}")
        if not reply["ok"] or "error" in reply:
            raise Failed(f"the pairing ended: {reply}")
        return reply

    def wait_for(self, fact, condition, seconds=FACT_SECONDS):
        self.stage.wait_for(fact, condition, seconds)
        self.teller.fact(fact)

    def require(self, fact, holds, seen=None):
        if not holds:
            raise Failed(f"this is not so: {fact}" + ("" if seen is None else f" ({seen})"))
        self.teller.fact(fact)


def main():
    options = read_options()
    attended = sys.stdin.isatty() and sys.stdout.isatty() and not options.unattended
    teller = Teller()
    told = False
    try:
        with Stage() as stage:
            story = Story(stage, teller, os.path.abspath(options.build_dir), attended)
            story.tell()
            told = True
            if attended:
                story.go_on()
    except Failed as problem:
        teller.failure(str(problem))
        return 1
    except Stopped as stopped:
        return 0 if told else 128 + stopped.number
    return 0


def read_options():
    parser = argparse.ArgumentParser(description="Tells how a terminal becomes a kiosk. Called by script/demo.")
    parser.add_argument("--build-dir", required=True, help="where the simulator and tarnvale-kioskctl are")
    parser.add_argument("--unattended", action="store_true", help="to the end of the story and out")
    return parser.parse_args()


if __name__ == "__main__":
    sys.exit(main())
