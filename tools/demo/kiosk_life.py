"""The middle chapters: what happens to a terminal that is a kiosk, and how that ends."""

import hashlib
import json

from enrolment import BRANDING, wait_for_restart
from scene import compact

IN_STEP_SECONDS = 90  # The terminal checks in every 30.
RUN_SECONDS = 60
INSTALL_SECONDS = 3  # A real install takes longer; this one is to be watched.
EXIT_PASSWORD = "swordfish"
NEW_NAME = "Lobby"
NEW_POWER = {
    "screenOffMinutes": 5,
    "sleepMinutes": 30,
    "schedule": {"enabled": True, "sleepAt": "22:30", "wakeAt": "06:45", "days": [1, 2, 3, 4, 5]},
}


def look_at_the_branding(scene):
    """Its branding has come with the first check-in."""
    scene.wait_for_line("its log tells of three photos", "with 3 photo(s)", scene.heard_before_branding)
    manifest = scene.terminal.read("branding", "branding.json")
    scene.teller.overhear("terminal", f"branding.json: {compact(manifest)}")
    scene.require("the kiosk's screen finds the tenant's name", manifest.get("displayName") == BRANDING["displayName"])
    intact = [_is_intact_photo(scene, digest) for digest in _photos(scene)]
    scene.require("and each photo under its digest", intact == [True] * 3, intact)


def use_the_kiosk_session(scene):
    """The kiosk session talks to the service."""
    status = scene.ask(scene.kiosk, "status")
    for line in scene.kiosk.status_text().splitlines():
        scene.teller.overhear("status", line)
    for member in ("enrolled", "provisioned", "kioskSession"):
        scene.require(f"{member} is true", status.get(member) is True, status)
    report_stream(scene, live=False)
    presence = scene.terminal.read("run", "kiosk-presence.json")
    scene.require("which stands in the presence file", presence.get("signedIn") is True, presence)


def unlock_the_settings(scene):
    """Somebody with the exit password unlocks the settings."""
    scene.change_at_portal({"exitPassword": EXIT_PASSWORD})
    scene.teller.say("The service does not keep the password: it asks the portal for it at each attempt.")
    reply = scene.ask(scene.kiosk, "unlock", "password=-", typed="sardine")
    scene.require("a wrong password opens nothing", reply.get("error") == "wrong_password", reply)
    scene.unlock_token = unlock(scene)


def change_the_settings(scene):
    """The network and the power settings are changed at the terminal."""
    members = ("adapter=eth0", "mode=static", "ip=192.0.2.5", "prefix:=24", "gateway=192.0.2.1")
    reply = _ask_unlocked(scene, "net.set", *members)
    scene.require("the network is set", reply == {"ok": True}, reply)
    address = scene.terminal.adapter("eth0").get("address")
    scene.require("the adapter has the address", address == "192.0.2.5/24", address)
    reply = _ask_unlocked(scene, "power.set", "screenOffMinutes:=1", "sleepMinutes:=0")
    scene.require("power settings of its own count before the portal's", reply.get("effective") == reply.get("local"))
    env = scene.terminal.read_bytes("etc", "power.env")
    scene.require("and stand where the kiosk session looks", env == b"SCREEN_OFF_SECONDS=60\nSLEEP_SECONDS=0\n", env)
    reply = _ask_unlocked(scene, "power.set", "useOrganisation:=true")
    scene.require("until the portal's are wanted again", reply.get("local", 0) is None, reply)


def enter_maintenance(scene):
    """An administrator works at the machine itself."""
    heard = scene.terminal.said_so_far()
    reply = scene.ask(scene.kiosk, "maintenance", "unlockToken=-", typed=scene.unlock_token)
    scene.require("the service lets go of the kiosk", reply == {"ok": True}, reply)
    scene.wait_for_line("the console shows a login prompt", "nobody is signed in at the console", heard)
    scene.require("a marker holds the kiosk session off", "kiosk-maintenance" in (scene.terminal.files("run") or []))
    signed_in = scene.terminal.act_at_console("sign-in")
    scene.wait_for_line("an administrator has signed in", f"simulator: {signed_in}", heard)
    status = scene.ask(scene.person, "status")
    scene.require("the service says that it is in maintenance", status.get("maintenance") is True, status)


def leave_maintenance(scene):
    """The administrator signs out, and the kiosk is back."""
    heard = scene.terminal.said_so_far()
    scene.terminal.act_at_console("sign-out")
    scene.wait_for_line("maintenance is over", "maintenance over (the administrator signed out)", heard)
    scene.require("the kiosk account has the console", scene.terminal.platform()["atConsole"] == "kiosk")
    reply = _ask_unlocked(scene, "power.get")
    scene.require("the settings are locked again", reply.get("error") == "not_unlocked", reply)


def install_updates(scene):
    """OS updates are found and installed."""
    scene.unlock_token = unlock(scene)
    scene.terminal.change_packages({"installSeconds": INSTALL_SECONDS})
    _ask_unlocked(scene, "os.updates", "check:=true")
    found = _wait_for_run(scene, "the package manager has looked")
    titles = [update["title"] for update in found["updates"]]
    scene.require(f"there is something to install: {', '.join(titles)}", len(titles) > 0)
    scene.teller.overhear(scene.kiosk.name, "-> os.install unlockToken=-")
    scene.wait_for("the install has begun", lambda: _send_unlocked(scene, "os.install")["ok"])
    installed = _wait_for_run(scene, "the install has ended")
    scene.require("nothing is pending any more", installed["updates"] == [], installed)
    scene.require("the system wants a restart", installed["restartRequired"] is True, installed)


def restart_with_changes(scene):
    """The portal changes name, power policy and photos while the terminal restarts."""
    dropped = _photos(scene)[-1:]
    heard = scene.terminal.said_so_far()
    scene.change_at_portal(
        {"name": NEW_NAME, "power": NEW_POWER, "powerSource": "device", "branding": {**BRANDING, "photos": 2}}
    )
    scene.teller.say("It would hear of it within half a minute. The restart that the updates want comes first.")
    wait_for_restart(scene, lambda: scene.terminal.act_at_console("restart"))
    scene.wait_for_line("its log tells of the policy", "power: the portal's policy is now", heard, IN_STEP_SECONDS)
    policy = json.loads(scene.terminal.state().get("PowerPolicy") or "null")
    scene.require("the policy stands in its state", policy == NEW_POWER, policy)
    status = scene.kiosk.send("status")
    scene.require(f"its status says {NEW_NAME}", status.get("terminalName") == NEW_NAME, status)
    scene.wait_for_line("its branding has two photos", "with 2 photo(s)", heard, IN_STEP_SECONDS)
    left = scene.terminal.files("branding") or []
    scene.require("the file of the third is gone", not set(dropped) & set(left), left)
    scene.wait_for("the portal knows how the install went", lambda: _install_result(scene) == "ok", IN_STEP_SECONDS)
    scene.look_at_portal()


def sleep_on_schedule(scene):
    """It is time to sleep, and somebody is watching a stream."""
    scene.teller.say("The policy has a schedule. The job of its timer can be had here and now.")
    report_stream(scene, live=True)
    said = _run_sleep_job(scene)
    scene.require("the sleep is skipped", "scheduled sleep skipped, a stream session is live" in said, said)
    report_stream(scene, live=False)
    said = _run_sleep_job(scene)
    scene.require("without a stream it sleeps", "scheduled sleep, waking at" in said, said)
    scene.require("and wakes at the time of the schedule", "the terminal sleeps and wakes at" in said, said)


def be_revoked(scene):
    """The terminal is revoked at the portal, and becomes a plain machine."""
    if not scene.was_removed() and not scene.terminal.state().get("DeviceToken"):
        scene.teller.say("It had not received its token yet, so there is nothing to take down.")
        return
    if not scene.was_removed():
        scene.portal.ask("POST", f"/admin/terminals/{scene.terminal_id}/revoke")
        scene.teller.overhear("portal", f"{scene.terminal_id} is revoked")
        scene.teller.say("The terminal hears of it at its next check-in, within half a minute.")
    scene.wait_for("its log tells of the end of kiosk mode", scene.was_removed, IN_STEP_SECONDS)
    scene.wait_for("it holds no token", lambda: not scene.terminal.state().get("DeviceToken"))
    scene.wait_for("the kiosk account is gone", lambda: scene.terminal.account() == {})
    scene.require("so is the branding", scene.terminal.files("branding") is None)
    status = scene.ask(scene.person, "status")
    scene.require("it is not enrolled", status.get("enrolled") is False, status)
    if scene.terminal.platform()["atConsole"] == "nobody":
        scene.terminal.act_at_console("sign-in")
        scene.teller.say("The console has a login prompt, and a person signs in.")


def report_stream(scene, live):
    reply = scene.ask(scene.kiosk, "session.report", "signedIn:=true", f"live:={'true' if live else 'false'}")
    stream = "a stream is live" if live else "no stream is live"
    scene.require(f"the kiosk reports that somebody has signed in and {stream}", reply["ok"], reply)


def unlock(scene):
    """The token that the settings commands want."""
    reply = scene.ask(scene.kiosk, "unlock", "password=-", typed=EXIT_PASSWORD)
    scene.require("the right one unlocks them for ten minutes", reply.get("expiresInSeconds") == 600, reply)
    return reply["unlockToken"]


def _ask_unlocked(scene, command, *members):
    return scene.ask(scene.kiosk, command, "unlockToken=-", *members, typed=scene.unlock_token)


def _send_unlocked(scene, command):
    return scene.kiosk.send(command, "unlockToken=-", typed=scene.unlock_token)


def _wait_for_run(scene, fact):
    """The status of the updates once no run is under way. Each new one is told."""
    told = None

    def status_after_run():
        nonlocal told
        status = _send_unlocked(scene, "os.updates")
        if status != told:
            scene.teller.overhear(scene.kiosk.name, f"<- {compact(status)}")
        told = status
        return status if status["ok"] and not status["checking"] and not status["installing"] else None

    return scene.wait_for(fact, status_after_run, RUN_SECONDS)


def _run_sleep_job(scene):
    """What the job says."""
    lines = scene.terminal.run_sleep_job()
    for line in lines:
        scene.teller.overhear("timer", line)
    return "\n".join(lines)


def _install_result(scene):
    known = scene.portal.terminal(scene.terminal_id) or {}
    return known.get("lastReport", {}).get("osUpdates", {}).get("lastResult")


def _photos(scene):
    """The digests of the photos that the kiosk's screen is to show."""
    return [photo["sha256"] for photo in scene.terminal.read("branding", "branding.json").get("photos", [])]


def _is_intact_photo(scene, digest):
    return hashlib.sha256(scene.terminal.read_bytes("branding", digest) or b"").hexdigest() == digest
