"""The ways out of the kiosk: the exit password, the settings unlock, and maintenance from its entry to its end."""

import time

import pytest

from kiosk import CHECK_IN, ENROLLED, EXIT_PASSWORD, KIOSK_SESSION, SYSTEM_TOOLS
from kioskd import DEADLINE, compact, wait_until
from logind import Session
from peers import launch_peer
from scripted_portal import Held, answer
from terminal import CLIENT, KIOSK, KIOSK_UID, PASSWD, PERSON_UID

OK = {"ok": True}
ADMINISTRATOR = Session("a1", PERSON_UID, "ann")
OVER = "<6>maintenance over (the administrator signed out): kiosk sign-in restored\n"
HELD_OFF = ("<6>maintenance: the kiosk session is held off until the administrator signs out or the device restarts\n")


def error(code):
    return {"ok": False, "error": code}


@pytest.fixture
def tools(terminal):
    """The tools that maintenance calls, as scripts; answers what each was called with."""
    return {name: terminal.tool(SYSTEM_TOOLS / name, "exit 0") for name in ["systemctl", "loginctl"]}


@pytest.fixture
def kiosk(enrolled, tools):
    enrolled.service.start()
    return enrolled


def enter(kiosk, **members):
    """Maintenance begins, and the kiosk session has ended."""
    assert kiosk.ask("maintenance", **members) == OK
    kiosk.logind.remove(KIOSK_SESSION.id)
    kiosk.sees_sessions()


def sign_in(kiosk, session=ADMINISTRATOR):
    kiosk.logind.add(session)
    kiosk.sees_sessions()


def ends(kiosk):
    """Waits for the end of maintenance."""
    kiosk.service.log.wait_for(OVER)
    assert not kiosk.marker.exists()
    state = kiosk.service.state()
    assert (state["Maintenance"], state["MaintenanceAt"]) == (None, None)


# The play.


def test_an_administrator_unlocks_looks_at_settings_works_at_the_machine_and_signs_out(kiosk, tools):
    token = kiosk.unlock()
    assert kiosk.ask("power.get", unlockToken=token)["ok"]
    before = int(time.time() * 1000)

    assert kiosk.ask("maintenance", unlockToken=token) == OK

    state = kiosk.service.state()
    assert state["Maintenance"] == 1
    assert before <= state["MaintenanceAt"] <= int(time.time() * 1000)
    assert kiosk.marker.read_bytes() == b""
    wait_until(tools["loginctl"], "the kiosk session to be ended")
    assert tools["loginctl"]() == [f"terminate-user {KIOSK}"]
    assert "start --no-block getty@tty1.service" in tools["systemctl"]()
    assert kiosk.ask("power.get", unlockToken=token) == error("not_unlocked")
    assert kiosk.ask("status")["maintenance"] is True

    kiosk.logind.remove(KIOSK_SESSION.id)
    sign_in(kiosk)
    assert kiosk.is_in_maintenance()
    kiosk.logind.remove(ADMINISTRATOR.id)

    ends(kiosk)
    assert tools["systemctl"]()[-1] == "start --no-block tarnvale-kiosk.service"
    told = [line for line in kiosk.service.log.lines if "maintenance" in line or "settings" in line]
    assert told == [
        "<6>enrolled=1 provisioned=1 maintenance=0\n",
        f"<6>terminal settings unlocked for session {KIOSK_SESSION.id}, 600 s\n",
        "<6>maintenance: accepted with the terminal settings unlock\n",
        HELD_OFF,
        f"<4>power.get refused: terminal settings are not unlocked for session {KIOSK_SESSION.id}\n",
        OVER,
    ]


def test_the_password_alone_is_enough(kiosk):
    enter(kiosk, password=f"  {EXIT_PASSWORD.upper()}\n")
    sign_in(kiosk)

    kiosk.logind.remove(ADMINISTRATOR.id)

    ends(kiosk)
    assert kiosk.service.log.count("accepted with the terminal settings unlock") == 0


def test_an_unlock_lets_an_administrator_out_while_the_portal_is_away(kiosk, portal):
    token = kiosk.unlock()
    portal.checks_in(answer(503))

    assert kiosk.ask("maintenance", password=EXIT_PASSWORD) == error("unreachable")
    assert kiosk.ask("maintenance", unlockToken=token) == OK


def test_a_restarted_service_goes_on_waiting_for_the_administrator_at_the_machine(kiosk, tools):
    enter(kiosk, password=EXIT_PASSWORD)
    sign_in(kiosk)

    kiosk.service.stop()
    kiosk.service.start()
    assert "<6>enrolled=1 provisioned=1 maintenance=1\n" in kiosk.service.log.lines
    assert kiosk.marker.exists()
    kiosk.logind.remove(ADMINISTRATOR.id)

    ends(kiosk)
    assert tools["systemctl"]()[-1] == "start --no-block tarnvale-kiosk.service"


def test_a_restarted_service_sees_the_administrator_who_comes_later(kiosk):
    enter(kiosk, password=EXIT_PASSWORD)
    kiosk.service.kill()
    kiosk.service.start()

    sign_in(kiosk)
    kiosk.logind.remove(ADMINISTRATOR.id)

    ends(kiosk)


def test_only_an_administrator_at_the_machine_who_came_during_maintenance_ends_it(kiosk):
    already_there = Session("a0", PERSON_UID, "ann")
    sign_in(kiosk, already_there)
    enter(kiosk, password=EXIT_PASSWORD)
    others = [Session("s1", PERSON_UID, "ann", remote=True), Session("k2", KIOSK_UID, KIOSK),
              Session("g1", 112, "greeter", kind="greeter")]
    for session in others:
        kiosk.logind.add(session)
    kiosk.sees_sessions()

    for session in [already_there, *others]:
        kiosk.logind.remove(session.id)
    kiosk.sees_sessions()

    assert kiosk.is_in_maintenance()
    assert kiosk.marker.exists()
    assert kiosk.service.log.count("maintenance over") == 0


def test_maintenance_that_a_restart_of_the_machine_ended_is_over_at_the_start(kiosk, tools):
    enter(kiosk, password=EXIT_PASSWORD)
    kiosk.service.stop()
    kiosk.service.write_state(kiosk.service.state() | {"MaintenanceAt": 1})

    kiosk.service.start()

    assert "<6>maintenance over (the device restarted): kiosk sign-in restored\n" in kiosk.service.log.lines
    assert not kiosk.marker.exists()
    assert tools["systemctl"]()[-1] == "start --no-block tarnvale-kiosk.service"


def test_a_marker_that_cannot_be_made_keeps_nobody_from_maintenance(kiosk, place):
    (place / "precious").write_text("precious")
    kiosk.marker.symlink_to(place / "precious")

    enter(kiosk, password=EXIT_PASSWORD)

    assert kiosk.is_in_maintenance()
    assert f"<3>cannot create {kiosk.marker} (Too many levels of symbolic links)\n" in kiosk.service.log.lines
    assert (place / "precious").read_text() == "precious"


def test_the_marker_stays_when_the_account_was_removed_behind_the_services_back(kiosk, tools):
    enter(kiosk, password=EXIT_PASSWORD)
    PASSWD.write_text("".join(row for row in PASSWD.read_text().splitlines(True) if not row.startswith(KIOSK)))

    sign_in(kiosk)
    kiosk.logind.remove(ADMINISTRATOR.id)

    kiosk.service.log.wait_for(OVER)
    assert kiosk.marker.exists()
    assert "start --no-block tarnvale-kiosk.service" not in tools["systemctl"]()


def test_a_logind_that_goes_away_takes_the_administrators_session_with_it(kiosk):
    enter(kiosk, password=EXIT_PASSWORD)
    sign_in(kiosk)

    kiosk.logind.leave()

    ends(kiosk)


def test_the_unlock_ends_with_its_session(kiosk):
    token = kiosk.unlock()

    kiosk.sees_sessions()
    kiosk.logind.remove(KIOSK_SESSION.id)
    kiosk.service.log.wait_for(f"<6>terminal settings locked: session {KIOSK_SESSION.id} signed out\n")

    kiosk.logind.add(KIOSK_SESSION)
    assert kiosk.ask("power.get", unlockToken=token) == error("not_unlocked")


def test_a_restart_of_the_service_ends_the_unlock(kiosk):
    token = kiosk.unlock()

    kiosk.service.stop()
    kiosk.service.start()

    assert kiosk.ask("power.get", unlockToken=token) == error("not_unlocked")


# The password.


def test_a_lock_out_survives_a_restart_of_the_service(kiosk):
    for _ in range(5):
        assert kiosk.ask("unlock", password="wrong") == error("wrong_password")
    assert kiosk.ask("maintenance", password=EXIT_PASSWORD) == error("locked")
    ends_at = kiosk.service.state()["MaintenanceLockedUntil"]
    assert 0 < ends_at - int(time.time() * 1000) <= 300_000

    kiosk.service.kill()
    kiosk.service.start()

    assert kiosk.ask("unlock", password=EXIT_PASSWORD) == error("locked")
    assert kiosk.ask("maintenance", password=EXIT_PASSWORD) == error("locked")
    state = kiosk.service.state()
    assert (state["MaintenanceLockedUntil"], state["MaintenanceFailures"]) == (ends_at, 0)
    assert not kiosk.marker.exists()


def test_a_lock_out_that_is_over_lets_the_right_password_in(kiosk):
    kiosk.service.stop()
    kiosk.service.write_state(kiosk.service.state() | {"MaintenanceLockedUntil": int(time.time() * 1000) - 1})
    kiosk.service.start()

    kiosk.unlock()

    assert kiosk.service.state()["MaintenanceLockedUntil"] is None


def test_attempts_survive_a_restart_of_the_service(kiosk):
    for _ in range(4):
        assert kiosk.ask("unlock", password="wrong") == error("wrong_password")

    kiosk.service.kill()
    kiosk.service.start()

    assert kiosk.ask("unlock", password="wrong") == error("wrong_password")
    assert kiosk.ask("unlock", password=EXIT_PASSWORD) == error("locked")


def test_a_second_password_is_busy_at_once_while_the_portal_thinks_about_the_first(kiosk, portal):
    portal.wait_for(CHECK_IN)
    held = Held(answer(200, ENROLLED))
    portal.checks_in(held)
    request = {"cmd": "unlock", "password": EXIT_PASSWORD}
    asked = len(portal.to(CHECK_IN))

    first = kiosk.launch(request)
    portal.wait_for(CHECK_IN, asked + 1)
    assert kiosk.ask("unlock", password=EXIT_PASSWORD) == error("busy")
    assert kiosk.ask("maintenance", password=EXIT_PASSWORD) == error("busy")
    held.release()

    output, _ = first.communicate(timeout=DEADLINE)
    assert b'"unlockToken":"' in output
    assert not kiosk.is_in_maintenance()


def raw(password):
    """An unlock with these bytes as the password's value."""
    return b'{"cmd":"unlock","password":' + password + b"}\n"


PASSWORD = EXIT_PASSWORD.encode()
WRONG = {
    "empty": raw(b'""'),
    "missing": b'{"cmd":"unlock"}\n',
    "null": raw(b"null"),
    "number": raw(b"4711"),
    "bool": raw(b"true"),
    "array": raw(b'["%s"]' % PASSWORD),
    "object": raw(b'{"password":"%s"}' % PASSWORD),
    "only white space": raw(b'" \\t\\n "'),
    "other member": b'{"cmd":"unlock","Password":"%s"}\n' % PASSWORD,
    "a letter less": raw(b'"%s"' % PASSWORD[:-1]),
    "a letter more": raw(b'"%sx"' % PASSWORD),
    "twice": raw(b'"%s%s"' % (PASSWORD, PASSWORD)),
    "white space within": raw(b'"%s"' % PASSWORD.replace(b"-", b" -")),
    "an escaped NUL behind it": raw(b'"%s\\u0000"' % PASSWORD),
    "an escaped NUL in front": raw(b'"\\u0000%s"' % PASSWORD),
    "a NUL behind it": raw(b'"%s\0"' % PASSWORD),
    "invalid UTF-8 behind it": raw(b'"%s\xff\xfe"' % PASSWORD),
    "invalid UTF-8 alone": raw(b'"\xc3\x28\xf0\x28\x8c\xbc"'),
    "a lone surrogate behind it": raw(b'"%s\\ud800"' % PASSWORD),
    "as long as fits": raw(b'"%s"' % (PASSWORD * 500)[:8191 - len(raw(b'""'))]),
}


def test_a_password_typed_in_any_wrong_way_is_a_wrong_password(kiosk):
    for name, request in WRONG.items():
        assert kiosk.send(request) == error("wrong_password"), name
        assert kiosk.service.state()["MaintenanceFailures"] == 1, name
        kiosk.unlock()  # takes the count back

    assert kiosk.service.log.count("<4>terminal settings unlock refused: wrong_password\n") == len(WRONG)


@pytest.mark.parametrize("request_bytes", [
    raw(b'"%s"' % (b"x" * 8192)), raw(b'"%s' % PASSWORD), raw(b'"\\x"'), b'["unlock","%s"]\n' % PASSWORD,
], ids=["longer than fits", "unterminated", "bad escape", "no object"])
def test_what_is_no_request_is_no_attempt(kiosk, request_bytes):
    assert kiosk.send(request_bytes) == error("bad_request")

    assert "MaintenanceFailures" not in kiosk.service.state()


def test_nobody_but_the_kiosk_session_may_try_a_password(kiosk):
    request = {"cmd": "unlock", "password": EXIT_PASSWORD}
    kiosk.logind.add(ADMINISTRATOR)
    for uid, session in [(PERSON_UID, ADMINISTRATOR.id), (KIOSK_UID, ADMINISTRATOR.id), (KIOSK_UID, None), (0, None)]:
        process = launch_peer(kiosk.service, request, uid=uid, session=session, image=CLIENT)
        output, _ = process.communicate(timeout=DEADLINE)
        assert output == compact(error("not_permitted")).encode() + b"\n"

    assert "MaintenanceFailures" not in kiosk.service.state()
