"""The first chapters: a terminal becomes a kiosk. Also the later one in which it becomes a kiosk again."""

import time

from stage import Failed

RESTART_SECONDS = 60  # 10 until it begins, and an exchange may be under way then.
BRANDING = {"displayName": "Tarn Valley Hotel", "signInSubtitle": "Ask at the desk", "photos": 3}


def ask_for_a_code(scene):
    """A person signed in at the terminal asks for a code."""
    status = scene.person.send("status")
    scene.require("the terminal is not enrolled", status.get("enrolled") is False, status)
    scene.code = request_code(scene)
    reply = check_pairing(scene)
    scene.require("the terminal is told to go on waiting", reply.get("paired") is False, reply)


def get_it_claimed(scene):
    """An administrator claims the code at the portal."""
    if scene.attended:
        scene.teller.say(f"That is you: open {scene.teller.strong(scene.portal.url)} and claim {scene.code}.")
    else:
        scene.portal.ask("POST", "/admin/claim", {"code": scene.code})
    seconds_left = _code_at_portal(scene)["expiresAtMs"] / 1000 - time.time()
    terminal_id = scene.stage.wait_for(
        "somebody claims the code", lambda: _code_at_portal(scene)["terminal"], round(seconds_left)
    )
    scene.note_claim(terminal_id)
    scene.teller.fact(f"the code belongs to the terminal {terminal_id} now")


def receive_the_token(scene):
    """The terminal asks after its code again, and receives its token."""
    reply = check_pairing(scene)
    scene.require("the service says that it restarts soon", reply.get("restarting") is True, reply)
    token = (scene.portal.terminal(scene.terminal_id) or {}).get("token")
    scene.require("it holds the token that the portal gave out", scene.terminal.state().get("DeviceToken") == token)


def look_at_the_first_check_in(scene):
    """It has checked in for the first time."""
    known = scene.look_at_portal()
    scene.require("the portal has heard from it", known.get("checkIns", 0) >= 1)
    name = scene.terminal.state().get("TerminalName")
    scene.require("it has taken its name from the portal", name == scene.terminal.name, name)


def look_at_the_account(scene):
    """It has made its kiosk account."""
    scene.wait_for("it is provisioned", lambda: scene.terminal.state().get("Provisioned") == 1)
    account = scene.terminal.account()
    recorded = scene.terminal.state().get("AccountUid")
    name, uid = account.get("name"), account.get("uid")
    scene.require(f"{name} exists, and its uid is recorded", recorded == str(uid), recorded)


def restart_into_the_kiosk(scene):
    """In ten seconds it restarts into kiosk mode."""
    scene.teller.say("Meanwhile the portal gives it a name of its tenant's, and three photos to show.")
    scene.heard_before_branding = scene.terminal.said_so_far()
    wait_for_restart(scene, lambda: scene.change_at_portal({"branding": BRANDING}))


def pair_again(scene):
    """The terminal is paired again."""
    scene.code = request_code(scene)
    scene.portal.ask("POST", "/admin/claim", {"code": scene.code})
    scene.note_claim(_code_at_portal(scene)["terminal"])
    reply = check_pairing(scene)
    scene.require("it receives another token, and is to restart", reply.get("restarting") is True, reply)
    scene.teller.say("Nobody has to wait ten seconds: it is restarted at its power button.")
    wait_for_restart(scene, lambda: scene.terminal.act_at_console("restart"))
    scene.look_at_portal()


def request_code(scene):
    reply = scene.ask(scene.person, "pair.begin")
    scene.require("the service answers with a code", reply["ok"], reply)
    code = reply["code"]
    scene.teller.say(f"The terminal shows {scene.teller.strong(code)}.")
    known = scene.portal.code(code)
    scene.require("the portal waits for somebody to claim it", known and known["state"] == "waiting", known)
    return code


def check_pairing(scene):
    reply = scene.ask(scene.person, "pair.check", f"code={scene.code}")
    if not reply["ok"] or "error" in reply:
        raise Failed(f"the pairing ended: {reply}")
    return reply


def wait_for_restart(scene, begin):
    """Calls begin() and waits until the terminal has restarted into the kiosk session."""
    booted_at_ms = scene.terminal.platform()["bootedAtMs"]
    heard = scene.terminal.said_so_far()
    begin()
    scene.wait_for("it restarts", lambda: scene.terminal.platform()["bootedAtMs"] > booted_at_ms, RESTART_SECONDS)
    scene.wait_for_line("it listens again", "listening on", heard)
    scene.require("the kiosk account has the console", scene.terminal.platform()["atConsole"] == "kiosk")


def _code_at_portal(scene):
    known = scene.portal.code(scene.code)
    if known is None:
        raise Failed(f"somebody has made the portal forget the code {scene.code}")
    if known["state"] == "expired":
        raise Failed(f"the code {scene.code} has expired at the portal before anybody claimed it")
    return known
