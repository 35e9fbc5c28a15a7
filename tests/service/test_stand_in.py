"""The service and the project's own portal stand-in agree with each other."""

import json

import pytest

from kioskd import wait_until
from peers import call_as


@pytest.fixture
def service(make_service, stand_in):
    """An unenrolled terminal that anybody may pair; it has no client, so it never restarts anything."""
    service = make_service("--auth-base", stand_in.url, "--no-local-session")
    return service.write_state({"DevAllowAnyCaller": 1}).start()


def pair(service, stand_in, settings=None):
    code = call_as(service, {"cmd": "pair.begin"})["code"]
    terminal = stand_in.post("/admin/claim", {"code": code})["terminal"]
    if settings:
        stand_in.post(f"/admin/terminals/{terminal}/settings", settings)
    assert call_as(service, {"cmd": "pair.check", "code": code}) == {"ok": False, "error": "no_client"}
    return terminal


def doubts(stand_in):
    """What the stand-in found wrong with the terminal's requests."""
    return [doubt for request in stand_in.get("/admin/requests")["requests"] for doubt in request["doubts"]]


def test_a_terminal_waits_until_its_code_is_claimed(service, stand_in):
    code = call_as(service, {"cmd": "pair.begin"})["code"]

    assert call_as(service, {"cmd": "pair.check", "code": code}) == {"ok": True, "paired": False}
    stand_in.post(f"/admin/codes/{code}/expire")
    assert call_as(service, {"cmd": "pair.check", "code": code}) == {"ok": False, "error": "expired"}
    assert doubts(stand_in) == []


def test_a_claimed_terminal_takes_its_settings_from_the_first_check_in(service, stand_in):
    power = {"screenOffMinutes": 5, "sleepMinutes": 30,
             "schedule": {"enabled": True, "sleepAt": "22:30", "wakeAt": "06:30", "days": [1, 5]}}
    pair(service, stand_in, {
        "name": "Lobby", "power": power, "powerSource": "device",
        "signIn": {"microsoft": False, "email": True, "extraHosts": ["login.example.org"]}})

    status = service.send({"cmd": "status"})
    assert (status["enrolled"], status["terminalName"]) == (True, "Lobby")
    assert status["signIn"] == {"microsoft": False, "email": True, "extraHosts": ["login.example.org"]}
    assert json.loads(service.state()["PowerPolicy"]) == power
    assert service.state()["PowerSource"] == "device"
    assert doubts(stand_in) == []


def test_an_enrolled_terminal_checks_in_at_its_start(service, stand_in):
    terminal = pair(service, stand_in)
    service.stop()
    stand_in.post(f"/admin/terminals/{terminal}/settings", {"name": "Renamed"})

    service.start()

    service.log.wait_for('<6>terminal name now "Renamed"\n')
    assert doubts(stand_in) == []


def test_a_forgotten_terminal_notes_since_when(service, stand_in):
    terminal = pair(service, stand_in)
    service.stop()
    stand_in.post(f"/admin/terminals/{terminal}/forget")

    service.start()

    service.log.wait_for("(HTTP 401, status unknown); still enrolled\n")
    assert service.state()["UnknownSince"] > 0


@pytest.mark.parametrize("fault, told", [
    ({"kind": "status", "status": 503}, "HTTP 503"),
    ({"kind": "garbage", "bytes": 1048576}, "unexpected check-in reply"),
    ({"kind": "cutOff"}, "unexpected check-in reply"),
    ({"kind": "tooLong", "bytes": 65538}, "unexpected check-in reply"),
    ({"kind": "reset"}, ""),
], ids=lambda value: value["kind"] if isinstance(value, dict) else "")
def test_a_fault_of_the_stand_in_is_told(service, stand_in, fault, told):
    pair(service, stand_in)
    service.stop()
    stand_in.post("/admin/faults", {"path": "/api/kiosk/check-in", "count": None} | fault)

    service.start()

    line = service.log.wait_for("<4>check-in: no usable answer from AuthSystem (")
    assert told in line


def test_a_silent_stand_in_is_waited_for_until_it_speaks_again(service, stand_in):
    pair(service, stand_in)
    service.stop()
    stand_in.post("/admin/faults", {"path": "/api/kiosk/check-in", "kind": "silent", "forMs": 300000})
    before = len(stand_in.get("/admin/requests")["requests"])
    service.start()
    wait_until(lambda: len(stand_in.get("/admin/requests")["requests"]) > before, "the check-in")

    assert service.send({"cmd": "status"})["enrolled"]

    stand_in.delete("/admin/faults")
    service.log.wait_for("<4>check-in: no usable answer from AuthSystem (")
