"""The gate of the seven settings commands: who gets through, and with what."""

import os

import pytest

from kiosk import EXIT_PASSWORD, KIOSK_SESSION
from kioskd import wait_until
from logind import Session
from peers import call_as
from terminal import CLIENT, KIOSK, KIOSK_UID, PERSON_UID

COMMANDS = ["net.set", "time.sync", "power.get", "power.set", "proxy.set", "os.updates", "os.install"]
NOT_UNLOCKED = {"ok": False, "error": "not_unlocked"}
NOT_PERMITTED = {"ok": False, "error": "not_permitted"}
UNKNOWN = {"ok": False, "error": "unknown_command"}


@pytest.fixture
def unlocked(kiosk, bus):
    bus.logind.add(Session("k2", KIOSK_UID, KIOSK))
    bus.logind.add(Session("p1", PERSON_UID, "ann"))
    return kiosk.start_unlocked()


def call(kiosk, request, uid=KIOSK_UID, session=KIOSK_SESSION.id):
    return call_as(kiosk.service, request, uid=uid, session=session, image=CLIENT)


def refusal(command, session=KIOSK_SESSION.id):
    return f"<4>{command} refused: terminal settings are not unlocked for session {session}\n"


def test_every_command_needs_the_token_of_the_unlock_in_its_own_session(unlocked):
    token = unlocked.token
    wrong = [None, 7, [token], "", token[:-1], token + "0", "0" * 32, "\0" * 32]
    for command in COMMANDS:
        right = unlocked.settings_request(command)

        assert [call(unlocked, right | {"unlockToken": value}) for value in wrong] == [NOT_UNLOCKED] * len(wrong)
        assert call(unlocked, {"cmd": command, "password": EXIT_PASSWORD}) == NOT_UNLOCKED
        assert call(unlocked, right, session="k2") == NOT_UNLOCKED

        assert unlocked.lines_of(command) == [refusal(command)] * (len(wrong) + 1) + [refusal(command, "k2")]
    assert unlocked.calls() == []
    assert unlocked.settings("power.get")["ok"]  # the unlock is still in force
    assert unlocked.service.log.count(token) == 0


def test_nobody_else_gets_as_far_as_the_token(unlocked):
    for uid, session in [(PERSON_UID, "p1"), (0, None), (KIOSK_UID, None), (KIOSK_UID, "p1"),
                         (PERSON_UID, KIOSK_SESSION.id)]:
        assert call(unlocked, unlocked.settings_request("power.get"), uid, session) == NOT_PERMITTED

    assert unlocked.lines_of("power.get") == [
        "<4>power.get refused: the caller is not the kiosk account in its own session\n"] * 5


def test_a_name_that_only_resembles_a_command_is_unknown_to_everybody_and_told_nowhere(unlocked):
    names = [*(name + "s" for name in COMMANDS), *(name.upper() for name in COMMANDS), "net.se", " net.set",
             "net.set\0", "net", "net.get", "proxy.get", ""]
    told = len(unlocked.service.log.lines)

    for name in names:
        request = unlocked.settings_request(name)
        assert call(unlocked, request) == call(unlocked, request, PERSON_UID, None) == UNKNOWN, name

    assert len(unlocked.service.log.lines) == told


def test_a_newer_unlock_of_another_session_takes_the_place_of_the_first(unlocked):
    reply = call(unlocked, {"cmd": "unlock", "password": f" {EXIT_PASSWORD.swapcase()} "}, session="k2")

    assert unlocked.settings("power.get") == NOT_UNLOCKED
    assert call(unlocked, {"cmd": "power.get", "unlockToken": reply["unlockToken"]}, session="k2")["ok"]


def test_an_update_run_refuses_an_install_and_holds_up_no_other_command(unlocked):
    os.mkfifo(unlocked.place / "go")
    unlocked.replace_nmcli()
    for tool in "apt-get", "apt-cache":
        unlocked.replace(tool, "read -r word < $here/go; exit 1")

    assert unlocked.settings("os.updates", check=True)["checking"]
    unlocked.wait_for_call("apt-get")

    assert unlocked.settings("os.install") == {"ok": False, "error": "busy"}
    assert unlocked.settings("os.updates")["checking"]
    assert unlocked.settings("os.updates", check=True)["checking"]
    assert unlocked.settings("power.set", screenOffMinutes=1, sleepMinutes=0)["ok"]
    assert unlocked.settings("proxy.set", mode="none")["ok"]
    assert unlocked.settings("net.set", adapter="eth0", mode="dhcp")["ok"]
    (unlocked.place / "go").write_text("go\n")
    wait_until(lambda: not unlocked.settings("os.updates")["checking"], "the run to end")
    assert unlocked.settings("os.updates")["error"] == "search_failed"
