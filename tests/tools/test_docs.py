"""The examples in docs/, tried out: no document shows what the service and the stand-in do not do."""

import json
import os
import re
import sys

import yaml

from programs import IS_ROOT, NOBODY_UID, TOOLS_DIR, wait_until
from simulated import EXIT_PASSWORD, KIOSK_UID, ask, tell

DOCS_DIR = TOOLS_DIR.parent / "docs"
PERSON_COMMANDS = ("status", "pair.begin", "pair.check", "restart.now")
REMEMBERED = ("code", "unlockToken")  # Another one each time.
# Members whose values are those of a run, a machine or a build: only their types are compared. `installing` is true until
# the run has begun, which may be before the reply is made.
VARYING = {*REMEMBERED, "appVersion", "at", "brandingDir", "hostname", "installing", "lastChecked", "lastRunAt", "osVersion"}


def examples_of(page):
    """The requests and replies of the page, in its order."""
    text = (DOCS_DIR / page).read_text()
    pairs = re.findall(r"^-> (.*)\n<- (.*)$", text, re.MULTILINE)
    return [(json.loads(request), json.loads(reply)) for request, reply in pairs]


def portal_example(path, name, *, status=None):
    """An example of the portal's description: of what terminals post to a path, or of the answer of that status."""
    operation = yaml.safe_load((DOCS_DIR / "portal-api.yaml").read_text())["paths"][path]["post"]
    message = operation["responses"][status] if status else operation["requestBody"]
    return message["content"]["application/json"]["examples"][name]["value"]


def constant_of(value, name=None):
    """What an example and a real message have in common: all but the values that vary, in their order."""
    if isinstance(value, dict):
        return [(member, constant_of(value[member], member)) for member in value]
    if isinstance(value, list):
        return [constant_of(element, name) for element in value]
    is_number = isinstance(value, (int, float)) and not isinstance(value, bool)
    kind = "number" if is_number else type(value).__name__
    return kind if name in VARYING else (kind, value)


def sent_by(kiosk, member):
    """The last body with this member that the terminal has sent; None before there is one."""
    requests = ask(kiosk.portal, "/admin/requests")["requests"]
    bodies = [json.loads(request["body"]) for request in requests if request["body"]]
    return next((body for body in reversed(bodies) if member in body), None)


class Reader:
    """Somebody who tries the examples on a terminal, one after the other."""

    def __init__(self, simulator, portal):
        self._simulator = simulator
        self._portal = portal
        self._remembered = {}

    def follow(self, request, reply):
        if request["cmd"] == "restart.now" and not IS_ROOT:
            return self._be_in_kiosk_mode(self._simulator.restart_at_console)
        fresh = {**request, **{name: self._remembered[name] for name in REMEMBERED if name in request}}
        # The page has no wait between the look for updates and the install.
        answer = wait_until(lambda: self._answer_unless_busy(fresh), "the end of the run before")
        assert constant_of(answer) == constant_of(reply), request
        self._remembered.update((name, answer[name]) for name in REMEMBERED if name in answer)
        if request["cmd"] == "restart.now":
            self._be_in_kiosk_mode(lambda: self._simulator.wait_for_line("listening on", 2))

    def _answer_unless_busy(self, request):
        answer = self._send(request)
        return None if answer.get("error") == "busy" else answer

    def _send(self, request):
        words = [f"{name}:={json.dumps(value)}" for name, value in request.items() if name != "cmd"]
        uid = NOBODY_UID if request["cmd"] in PERSON_COMMANDS else KIOSK_UID
        return self._simulator.send(request["cmd"], *words, uid=uid if IS_ROOT else None)

    def _be_in_kiosk_mode(self, restart):
        restart()
        terminal = ask(self._portal, "/admin/state")["terminals"][0]["id"]
        tell(self._portal, f"/admin/terminals/{terminal}/settings", {"exitPassword": EXIT_PASSWORD})


def test_every_command_of_the_control_protocol_is_known(switch_on):
    simulator = switch_on()
    headings = re.findall(r"^### `([a-z.]+)`$", (DOCS_DIR / "control-protocol.md").read_text(), re.MULTILINE)

    unknown = [name for name in headings if simulator.send(name).get("error") == "unknown_command"]

    assert (len(headings), unknown) == (14, [])


def test_every_example_of_the_control_protocol_is_what_happens(portal, switch_on):
    kiosk_uid = KIOSK_UID if IS_ROOT else os.getuid()
    reader = Reader(switch_on("--kiosk-uid", str(kiosk_uid)), portal)

    for request, reply in examples_of("control-protocol.md"):
        reader.follow(request, reply)


def test_every_command_has_an_example():
    page = (DOCS_DIR / "control-protocol.md").read_text()
    headings = set(re.findall(r"^### `([a-z.]+)`$", page, re.MULTILINE))

    assert {request["cmd"] for request, _ in examples_of("control-protocol.md")} == headings


def test_the_settings_of_the_portal_api_pass_the_portals_own_rules():
    sys.path.insert(0, str(TOOLS_DIR / "portal"))
    import validate

    reply = portal_example("/api/kiosk/check-in", "all", status="200")

    assert reply.pop("status") == "enrolled"
    assert set(reply) == set(validate.SETTING_CHECKS)
    validate.check_settings(reply)


def test_terminals_send_the_requests_of_the_portal_api(kiosk):
    unlocked = kiosk.unlock()
    kiosk.change_terminal(packages={"checkSeconds": 0, "installSeconds": 0})
    assert kiosk.send_as_kiosk("os.install", unlocked)["ok"]
    kiosk.wait_for_line("os updates: 0 pending")
    kiosk.restart_at_console()

    pair = wait_until(lambda: sent_by(kiosk, "hostname"), "the terminal to pair")
    check_in = wait_until(lambda: sent_by(kiosk, "osUpdates"), "a check-in with a report")

    assert constant_of(pair) == constant_of(portal_example("/api/kiosk/pair", "lobby"))
    assert constant_of(check_in) == constant_of(portal_example("/api/kiosk/check-in", "updated"))
