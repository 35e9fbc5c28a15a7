"""What a peer may do, by its logind session and its account."""

import json
import re
import stat

import pytest

from kioskd import wait_until
from logind import Session
from peers import call_as
from terminal import CLIENT, KIOSK, KIOSK_UID, PERSON_UID

NOT_PERMITTED = {"ok": False, "error": "not_permitted"}
NOT_PENDING = {"ok": False, "error": "not_pending"}
UNREACHABLE = {"ok": False, "error": "unreachable"}  # what the pairing answers once the caller has passed
REPORT = {"cmd": "session.report", "signedIn": True}
NOT_AN_INTERACTIVE_USER = "refused: the caller is not an interactive user other than the kiosk account\n"
NOT_THE_KIOSK_SESSION = "<4>session.report refused: the caller is not the kiosk account in its own session\n"


@pytest.fixture
def sessions(bus):
    """The sessions of a terminal on which everybody is signed in."""
    for session in [
        Session("person", PERSON_UID, "ann"),
        Session("greeter", PERSON_UID, "ann", kind="greeter"),
        Session("ssh", PERSON_UID, "ann", remote=True),
        Session("admin", 0, "root"),
        Session("kiosk", KIOSK_UID, KIOSK),
        Session("kiosk_ssh", KIOSK_UID, KIOSK, remote=True),
    ]:
        bus.logind.add(session)
    return bus


@pytest.fixture
def start(terminal, make_service, sessions):
    """Starts an installed service on an unenrolled terminal that has its kiosk account."""
    def start(*options):
        service = make_service("--client", str(CLIENT), *options, executable=terminal.install(), bus=sessions.address)
        terminal.add_account()
        return service.write_state({"AccountUid": str(KIOSK_UID), "Provisioned": 1}).start()
    return start


def ask(service, request, uid, session):
    request = {"cmd": request} if isinstance(request, str) else request
    return call_as(service, request, uid=uid, session=session, image=CLIENT)


# Enrolling.


def test_a_person_in_a_local_session_may_pair(start):
    assert ask(start(), "pair.begin", PERSON_UID, "person") == UNREACHABLE


@pytest.mark.parametrize("uid, session", [
    (PERSON_UID, None), (PERSON_UID, "ssh"), (PERSON_UID, "greeter"), (PERSON_UID, "gone"), (0, "admin"),
    (KIOSK_UID, "kiosk"), (KIOSK_UID, "person")])
@pytest.mark.parametrize("command", ["pair.begin", "pair.check"])
def test_nobody_else_may_pair(start, command, uid, session):
    service = start()

    assert ask(service, command, uid, session) == NOT_PERMITTED
    assert service.log.count(f"<4>{command} {NOT_AN_INTERACTIVE_USER}") == 1


def test_relaxed_sessions_let_a_person_without_one_pair_but_neither_root_nor_the_kiosk(start):
    service = start("--no-local-session")

    assert ask(service, "pair.begin", PERSON_UID, None) == UNREACHABLE
    assert ask(service, "pair.begin", 0, None) == NOT_PERMITTED
    assert ask(service, "pair.begin", KIOSK_UID, "kiosk") == NOT_PERMITTED


# Restarting.


@pytest.mark.parametrize("uid, session, told", [
    (PERSON_UID, "person", NOT_PENDING), (0, "admin", NOT_PENDING), (0, None, NOT_PERMITTED),
    (PERSON_UID, "ssh", NOT_PERMITTED), (KIOSK_UID, "kiosk", NOT_PERMITTED)])
def test_restart_now_is_for_interactive_users_and_a_refusal_is_silent(start, uid, session, told):
    service = start()

    assert ask(service, "restart.now", uid, session) == told
    assert service.log.count("restart") == 0


# The kiosk session.


def test_a_report_of_the_kiosk_session_writes_the_presence_file(start):
    service = start()

    assert ask(service, REPORT | {"live": True}, KIOSK_UID, "kiosk") == {"ok": True}

    file = service.run_dir / "kiosk-presence.json"
    assert re.fullmatch(r'\{"signedIn":true,"live":true,"at":1\d{12}\}', file.read_text())
    assert stat.S_IMODE(file.stat().st_mode) == 0o600
    assert service.log.count("<6>a Tarnvale user is signed in at the terminal\n") == 1


@pytest.mark.parametrize("uid, session", [
    (KIOSK_UID, None), (KIOSK_UID, "person"), (KIOSK_UID, "kiosk_ssh"), (PERSON_UID, "kiosk"), (0, "admin")])
def test_nobody_but_the_kiosk_account_in_its_own_session_may_report(start, uid, session):
    service = start()

    assert ask(service, REPORT, uid, session) == NOT_PERMITTED
    assert service.log.count(NOT_THE_KIOSK_SESSION) == 1
    assert not (service.run_dir / "kiosk-presence.json").exists()


def test_a_remote_session_of_the_kiosk_account_counts_when_sessions_are_relaxed(start):
    assert ask(start("--no-local-session"), REPORT, KIOSK_UID, "kiosk_ssh") == {"ok": True}


@pytest.mark.parametrize("members", [
    {}, {"signedIn": "true"}, {"signedIn": 1}, {"signedIn": True, "live": 1}, {"signedIn": None}], ids=repr)
def test_a_report_of_other_types_is_invalid_and_changes_nothing(start, members):
    service = start()

    reply = ask(service, {"cmd": "session.report"} | members, KIOSK_UID, "kiosk")

    assert reply == {"ok": False, "error": "invalid"}
    assert not (service.run_dir / "kiosk-presence.json").exists()


def test_the_end_of_the_reporting_session_clears_the_report(start, sessions):
    service = start()
    ask(service, REPORT | {"live": True}, KIOSK_UID, "kiosk")
    looks = sessions.logind.calls_of("ListSessions")
    sessions.logind.wait_for_call("ListSessions", looks + 1)  # a look that has seen the session
    presence = service.run_dir / "kiosk-presence.json"

    sessions.logind.remove("kiosk")

    wait_until(lambda: json.loads(presence.read_text())["signedIn"] is False, "the report to be cleared")
    assert json.loads(presence.read_text())["live"] is False


def test_status_tells_the_kiosk_account_in_its_session_from_all_others(start):
    service = start()

    assert ask(service, "status", KIOSK_UID, "kiosk")["kioskSession"]
    assert not ask(service, "status", KIOSK_UID, "person")["kioskSession"]
    assert not ask(service, "status", KIOSK_UID, None)["kioskSession"]
    assert not ask(service, "status", PERSON_UID, "person")["kioskSession"]
    assert ask(service, "status", PERSON_UID, None)["provisioned"]


def test_a_kiosk_account_with_another_uid_is_nobody(terminal, make_service, sessions):
    service = make_service("--client", str(CLIENT), executable=terminal.install(), bus=sessions.address)
    terminal.add_account(uid=KIOSK_UID)
    service.write_state({"AccountUid": "12345", "Provisioned": 1}).start()

    assert ask(service, REPORT, KIOSK_UID, "kiosk") == NOT_PERMITTED
    assert not ask(service, "status", KIOSK_UID, "kiosk")["provisioned"]


# logind.


def test_without_logind_status_works_and_everything_else_is_refused(start, sessions):
    service = start()

    sessions.logind.leave()

    assert ask(service, "status", PERSON_UID, "person")["provisioned"]
    assert not ask(service, "status", KIOSK_UID, "kiosk")["kioskSession"]
    assert ask(service, "pair.begin", PERSON_UID, "person") == NOT_PERMITTED
    assert ask(service, "restart.now", PERSON_UID, "person") == NOT_PERMITTED
    assert ask(service, REPORT, KIOSK_UID, "kiosk") == NOT_PERMITTED
