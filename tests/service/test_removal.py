"""A terminal is taken down: revoked or long unknown at the portal, or started from another machine's image."""

import hashlib
import pathlib
import random
import time

import pytest

from gates import Gates
from kioskd import wait_until
from logind import Session
from peers import call_as, launch_peer
from scripted_portal import answer
from terminal import CLIENT, KIOSK, KIOSK_UID, PASSWD, PERSON_UID

MACHINE = hashlib.sha256(b"0123456789abcdef0123456789abcdef").hexdigest()
ENROLLED = {"DeviceToken": "secret", "DeviceId": MACHINE, "Provisioned": 1, "AccountUid": str(KIOSK_UID),
            "OwnsWuPolicy": 1}
HOLDS_EVERYTHING = ENROLLED | {
    "Maintenance": 1, "MaintenanceAt": int(time.time() * 1000), "LastError": "e", "UnknownSince": 6, "SignIn": "{}", "TerminalName": "n",
    "UpdatesPolicy": "u", "UpdatesSource": "t", "OsUpdatesReport": "r", "OsUpdatesWindowDone": "w",
    "PowerPolicy": "p", "PowerSource": "t", "PowerLocal": "l", "PowerError": "wake_unavailable"}
KEPT = {"MaintenanceFailures": 3, "MaintenanceLockedUntil": 7, "AuthBaseUrl": "http://by.hand", "DevAllowAnyCaller": 1}

TIMER = pathlib.Path("/etc/systemd/system/tarnvale-kiosk-sleep.timer")
IDLE_DROP_IN = pathlib.Path("/etc/systemd/logind.conf.d/60-tarnvale-kiosk.conf")
SYSTEM_FILES = (TIMER, TIMER.with_suffix(".service"), IDLE_DROP_IN,
                pathlib.Path("/etc/apt/apt.conf.d/52tarnvale-kiosk-updates"))

GETTY = "start --no-block getty@tty1.service"
POWER_CALLS = ["disable --now tarnvale-kiosk-sleep.timer", "daemon-reload", "reload systemd-logind.service"]

REVOKED = answer(401, {"status": "revoked"})
UNKNOWN = answer(401, {"status": "unknown"})
REMOVING = "<4>removing kiosk mode: "
BY_PORTAL = REMOVING + "removed in the portal (401, status revoked)\n"
COPIED = REMOVING + "the state belongs to another machine-id (a copied image)\n"
FOR_A_DAY = REMOVING + "the portal has not known this terminal for 24 hours (401, status unknown)\n"
DELETED = f"<6>deleted {KIOSK}\n"
NOT_DELETED = f"<3>cannot delete {KIOSK}\n"
STILL_PENDING = "<4>the kiosk account could not be removed yet; retrying at every start and check-in\n"
FINISHED = f"<6>the pending removal of {KIOSK} finished\n"
LEFT_ALONE = (f"<4>the local {KIOSK} is not the account tarnvale-kiosk-setup made ({KIOSK_UID}); left alone\n")

POLICY = {"screenOffMinutes": 5, "sleepMinutes": 30,
          "schedule": {"enabled": True, "sleepAt": "22:30", "wakeAt": "06:30", "days": [1]}}
PHOTO = b"a photo"
BRANDING = {"displayName": "Lobby", "photos": [{"sha256": hashlib.sha256(PHOTO).hexdigest()}]}


@pytest.fixture
def gates(terminal, place):
    made = Gates(terminal, place)
    yield made
    made.open()


@pytest.fixture
def tools(gates, place):
    """What a removal calls, as scripts; answers what each was called with."""
    return {
        "setup": gates.tool(place / "setup"),
        "systemctl": gates.tool(pathlib.Path("/usr/bin/systemctl")),
        "loginctl": gates.tool(pathlib.Path("/usr/bin/loginctl")),
        "userdel": gates.tool(pathlib.Path("/usr/sbin/userdel"), 'sed -i "/^$2:/d" /etc/passwd'),
    }


@pytest.fixture
def terminal_files(place, tools):
    """What the service has written for the system on an enrolled terminal. It ends with the test."""
    files = [*SYSTEM_FILES, place / "etc/power.env", place / "branding/branding.json", place / "branding/photo"]
    for path in files:
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text("of the terminal\n")
    yield files
    for path in files:
        path.unlink(missing_ok=True)


@pytest.fixture
def service(terminal, tools, terminal_files, make_service, portal, bus):
    """An installed service that is not started yet, on a terminal with an account that the setup tool made."""
    terminal.add_account()
    return make_service("--client", str(CLIENT), "--auth-base", portal.url,
                        executable=terminal.install(), bus=bus.address)


def has_account():
    return any(line.startswith(KIOSK + ":") for line in PASSWD.read_text().splitlines())


def remove_account():
    PASSWD.write_text("".join(line for line in PASSWD.read_text().splitlines(True) if not line.startswith(KIOSK)))


def is_removed(service):
    return not service.send({"cmd": "status"})["enrolled"]


def what_is_left(service):
    return {key: value for key, value in service.state().items() if value is not None}


def account_lines(service):
    return [line for line in service.log.lines if line in (DELETED, NOT_DELETED, LEFT_ALONE, FINISHED)]


def wait_until_removed(service):
    wait_until(lambda: is_removed(service), "the removal")
    # The rest of the keys is cleared behind the token, before the thread does anything else.
    wait_until(lambda: not what_is_left(service).keys() - KEPT.keys(), "the last key to go")


def assert_is_plain_machine(service, place, terminal_files, kept):
    assert what_is_left(service) == kept
    assert not has_account()
    assert [str(path) for path in terminal_files if path.exists()] == []
    assert not (place / "branding").exists()
    status = service.send({"cmd": "status"})
    assert (status["enrolled"], status["provisioned"], status["maintenance"]) == (False, False, False)
    assert status["terminalName"] == ""


def test_a_revoked_terminal_comes_back_as_an_unenrolled_machine(service, place, tools, terminal_files, portal):
    portal.checks_in(REVOKED)
    service.write_state(HOLDS_EVERYTHING | KEPT).start()

    wait_until_removed(service)

    assert_is_plain_machine(service, place, terminal_files, KEPT)
    assert tools["setup"]() == ["disable --from-kioskd"]
    assert tools["systemctl"]() == [*POWER_CALLS, GETTY]
    assert tools["loginctl"]() == [f"terminate-user {KIOSK}"]
    assert tools["userdel"]() == [f"-r {KIOSK}"]
    told = [line for line in service.log.lines if line.startswith(("<4>", "<3>")) or line == DELETED]
    assert told == ["<4>check-in: the portal says this terminal was removed (HTTP 401, status revoked)\n",
                    BY_PORTAL, DELETED]
    assert len(portal.requests) == 1


def test_a_verdict_that_an_unlock_brings_takes_the_terminal_down(service, place, tools, terminal_files, portal, bus):
    portal.checks_in(answer(200, {"status": "enrolled", "name": "Lobby", "power": POLICY, "branding": BRANDING}))
    portal.script("GET", "/api/kiosk/branding/photos/" + BRANDING["photos"][0]["sha256"], answer(200, PHOTO))
    bus.logind.add(Session("k1", KIOSK_UID, KIOSK))
    service.write_state(ENROLLED | {"MaintenanceFailures": 3}).start()
    service.log.wait_for("<6>branding: ")
    wait_until(lambda: "OnCalendar" in TIMER.read_text() and "IdleAction" in IDLE_DROP_IN.read_text(), "the power")
    portal.checks_in(REVOKED)
    request = {"cmd": "unlock", "password": "a guess"}

    peer = launch_peer(service, request, uid=KIOSK_UID, session="k1", image=CLIENT)
    wait_until(tools["loginctl"], "the kiosk session to be ended")
    bus.logind.remove("k1")
    reply, _ = peer.communicate(timeout=60)

    assert b"not_enrolled" in reply
    assert_is_plain_machine(service, place, terminal_files, {"MaintenanceFailures": 4})
    assert tools["setup"]() == ["disable --from-kioskd"]
    assert tools["systemctl"]()[-4:] == [*POWER_CALLS, GETTY]
    assert tools["userdel"]() == [f"-r {KIOSK}"]
    assert service.log.count(BY_PORTAL) == 1


def test_a_lock_out_still_holds_after_the_terminal_was_paired_again(service, tools, portal, bus, terminal):
    until = int(time.time() * 1000) + 3_600_000
    portal.checks_in(REVOKED)
    service.write_state(ENROLLED | {"MaintenanceLockedUntil": until}).start()
    wait_until_removed(service)
    portal.pairs("ABCD2345", answer(200, {"deviceToken": "another"}))
    portal.checks_in(answer(200, {"status": "enrolled", "exitPassword": "swordfish"}))
    terminal.add_account()
    bus.logind.add(Session("c1", PERSON_UID, "ann"))
    for request in ({"cmd": "pair.begin"}, {"cmd": "pair.check", "code": "ABCD2345"}):
        assert call_as(service, request, uid=PERSON_UID, session="c1", image=CLIENT)["ok"]
    bus.logind.add(Session("k1", KIOSK_UID, KIOSK))

    reply = call_as(service, {"cmd": "unlock", "password": "swordfish"}, uid=KIOSK_UID, session="k1", image=CLIENT)

    assert reply["error"] == "locked"
    assert service.state()["MaintenanceLockedUntil"] == until


@pytest.mark.parametrize("uid, comment", [(KIOSK_UID, "Somebody else"), (KIOSK_UID + 1, "Tarnvale kiosk")],
                         ids=["another comment", "another uid"])
def test_a_foreign_account_of_the_name_survives(service, place, tools, terminal_files, portal, terminal, uid, comment):
    remove_account()
    terminal.add_account(uid=uid, comment=comment)
    portal.checks_in(REVOKED)
    service.write_state(ENROLLED | KEPT).start()

    wait_until_removed(service)

    assert has_account()
    assert what_is_left(service) == KEPT
    assert service.log.count(LEFT_ALONE) == 1
    assert (tools["userdel"](), tools["loginctl"](), GETTY in tools["systemctl"]()) == ([], [], False)
    assert not (place / "branding").exists()


def test_a_setup_tool_that_fails_keeps_nothing_else(service, place, terminal, terminal_files, portal):
    terminal.tool(place / "setup", "echo no such unit; exit 3")
    portal.checks_in(REVOKED)
    service.write_state(ENROLLED | KEPT).start()

    wait_until_removed(service)

    assert_is_plain_machine(service, place, terminal_files, KEPT)
    assert f"<3>{place}/setup disable exited 3: no such unit\n" in service.log.lines
    assert "<3>tarnvale-kiosk-setup disable failed: no such unit\n" in service.log.lines


def test_the_socket_answers_while_a_removal_waits_for_a_tool(service, gates, portal):
    portal.checks_in(REVOKED)
    gates.close("before", f"userdel -r {KIOSK}")
    service.write_state(HOLDS_EVERYTHING).start()
    gates.wait_for_call()

    status = service.send({"cmd": "status"})

    assert status["ok"] and status["enrolled"]
    assert service.log.count(NOT_DELETED) == 0
    gates.open()
    service.log.wait_for(STILL_PENDING)


def test_an_account_in_use_is_deleted_at_the_next_start(service, tools, terminal, portal):
    terminal.tool(pathlib.Path("/usr/sbin/userdel"), "echo in use; exit 8")
    portal.checks_in(REVOKED)
    service.write_state(ENROLLED | KEPT).start()
    service.log.wait_for(STILL_PENDING)
    assert what_is_left(service) == KEPT | {"AccountUid": str(KIOSK_UID), "TeardownPending": 1}
    assert service.stop() == 0
    terminal.tool(pathlib.Path("/usr/sbin/userdel"), 'sed -i "/^$2:/d" /etc/passwd; exit 12')

    service.start()

    assert account_lines(service) == [DELETED, FINISHED]
    assert not has_account()
    assert what_is_left(service) == KEPT
    assert tools["loginctl"]() == [f"terminate-user {KIOSK}"] * 2
    assert tools["setup"]() == ["disable --from-kioskd"]


def test_an_account_that_has_gone_meanwhile_needs_no_userdel(service, terminal, tools):
    remove_account()
    service.write_state(KEPT | {"AccountUid": str(KIOSK_UID), "TeardownPending": 1}).start()

    assert account_lines(service) == [FINISHED]
    assert what_is_left(service) == KEPT
    assert (tools["userdel"](), tools["loginctl"]()) == ([], [])


def test_a_copied_image_is_taken_down_before_the_socket_is_there(service, place, tools, terminal_files, portal):
    service.write_state(HOLDS_EVERYTHING | KEPT | {"DeviceId": "of another machine"}).start()

    assert_is_plain_machine(service, place, terminal_files, KEPT)
    told = [line for line in service.log.lines if line in (COPIED, DELETED) or "enrolled=" in line]
    assert told == [COPIED, DELETED, "<6>enrolled=0 provisioned=0 maintenance=0\n"]
    assert tools["userdel"]() == [f"-r {KIOSK}"]
    assert portal.requests == []


# A service that is killed in the middle.

ROUNDS = 15

# The calls of a removal in their order. A call that only follows a file's deletion is not made again, since the file
# is gone by then.
CALLS = [
    ("setup", "disable --from-kioskd", True),
    ("systemctl", POWER_CALLS[0], True),
    ("systemctl", POWER_CALLS[1], False),
    ("systemctl", POWER_CALLS[2], False),
    ("systemctl", GETTY, True),
    ("loginctl", f"terminate-user {KIOSK}", True),
    ("userdel", f"-r {KIOSK}", True),
]
CALL_IDS = [f"{name} {arguments}" for name, arguments, _ in CALLS]


def kill_at(service, gates, moment, call):
    gates.close(moment, call)
    service.launch()
    gates.wait_for_call()
    service.process.kill()
    service.wait()
    gates.open()


@pytest.mark.parametrize("moment", ["before", "after"])
@pytest.mark.parametrize("name, arguments, again", CALLS, ids=CALL_IDS)
@pytest.mark.parametrize("device, removing", [(MACHINE, BY_PORTAL), ("of another machine", COPIED)],
                         ids=["revoked", "copied image"])
def test_a_kill_at_any_call_of_a_removal_is_made_good_at_the_next_start(
        service, place, gates, tools, terminal_files, portal, name, arguments, again, moment, device, removing):
    portal.checks_in(REVOKED)
    service.write_state(HOLDS_EVERYTHING | KEPT | {"DeviceId": device})
    kill_at(service, gates, moment, f"{name} {arguments}")
    assert what_is_left(service)["DeviceToken"] == "secret"
    gone = name == "userdel" and moment == "after"
    assert has_account() == (not gone)

    service.start()
    wait_until_removed(service)

    assert_is_plain_machine(service, place, terminal_files, KEPT)
    assert service.log.count(removing) == 1
    assert service.log.count(DELETED) == (0 if gone else 1)
    assert tools[name]().count(arguments) == (2 if again and not gone else 1)
    assert tools["setup"]().count("disable --from-kioskd") == 2


@pytest.mark.parametrize("moment", ["before", "after"])
@pytest.mark.parametrize("name, arguments", [row[:2] for row in CALLS[4:]], ids=CALL_IDS[4:])
def test_a_kill_while_a_pending_removal_is_finished_leaves_it_pending(
        service, place, gates, tools, terminal_files, name, arguments, moment):
    service.write_state(KEPT | {"AccountUid": str(KIOSK_UID), "TeardownPending": 1})
    kill_at(service, gates, moment, f"{name} {arguments}")
    assert what_is_left(service)["TeardownPending"] == 1

    service.start()

    assert not has_account()
    assert what_is_left(service) == KEPT
    assert service.log.count(FINISHED) == 1
    assert tools["setup"]() == []


def test_a_kill_at_any_moment_leaves_the_token_until_the_rest_is_gone(service, terminal, terminal_files, portal):
    source = random.Random(20261)
    portal.checks_in(REVOKED)
    for number in range(ROUNDS):
        remove_account()
        terminal.add_account()
        for path in terminal_files:
            path.parent.mkdir(exist_ok=True)
            path.write_text("of the terminal\n")
        service.write_state(HOLDS_EVERYTHING | KEPT).start()
        portal.wait_for("/api/kiosk/check-in", number + 1)
        # The moment is the point of this test: anywhere between the verdict and the last key.
        time.sleep(source.uniform(0, 0.1))
        service.process.kill()
        service.wait()

        left = what_is_left(service)
        gone = not has_account() and not any(path.exists() for path in terminal_files)
        assert "DeviceToken" in left or gone, (number, left)
        assert left.items() >= KEPT.items()


def test_a_stop_waits_for_the_tool_and_the_next_start_goes_on(service, place, gates, terminal_files, portal):
    portal.checks_in(REVOKED)
    gates.close("before", f"userdel -r {KIOSK}")
    service.write_state(HOLDS_EVERYTHING | KEPT).start()
    gates.wait_for_call()

    service.process.terminate()
    gates.open()

    assert service.wait() == 0
    assert service.log.lines[-2:] == [STILL_PENDING, "<6>tarnvale-kioskd stopped\n"]
    assert what_is_left(service) == KEPT | {"AccountUid": str(KIOSK_UID), "TeardownPending": 1}
    service.start()

    assert_is_plain_machine(service, place, terminal_files, KEPT)
    assert service.log.count(FINISHED) == 1


# A portal that does not know the terminal.


def hours_ago(hours):
    return int(time.time() * 1000 - hours * 3_600_000)


def test_a_terminal_that_is_unknown_for_a_day_is_taken_down(service, place, terminal_files, portal):
    portal.checks_in(UNKNOWN)
    service.write_state(ENROLLED | KEPT | {"UnknownSince": hours_ago(24)}).start()

    wait_until_removed(service)

    assert_is_plain_machine(service, place, terminal_files, KEPT)
    assert "<4>check-in: the token has been unknown to AuthSystem for over 24 hours\n" in service.log.lines
    assert service.log.count(FOR_A_DAY) == 1


def test_a_terminal_that_is_unknown_for_less_than_a_day_stays(service, portal, tools):
    since = hours_ago(23.9)
    portal.checks_in(UNKNOWN)
    service.write_state(ENROLLED | {"UnknownSince": since}).start()

    service.log.wait_for("<4>check-in: no usable answer from AuthSystem (HTTP 401, status unknown); still enrolled\n")

    assert service.send({"cmd": "status"})["enrolled"]
    assert service.state()["UnknownSince"] == since
    assert service.log.count(REMOVING) == 0
    assert (has_account(), tools["setup"]()) == (True, [])


@pytest.mark.parametrize("since", [None, "5", hours_ago(-1)], ids=["none", "no number", "in the future"])
def test_the_day_begins_now_without_a_usable_time(service, portal, since):
    portal.checks_in(UNKNOWN)
    before = hours_ago(0)
    service.write_state(ENROLLED | {"UnknownSince": since}).start()

    service.log.wait_for("does not recognise this terminal's token; kiosk mode stays unless that lasts 24 hours\n")

    service.stop()
    assert before <= service.state()["UnknownSince"] <= hours_ago(0)
    assert has_account()


def test_a_good_check_in_ends_the_count_of_the_day(service, portal):
    portal.checks_in(answer(200, {"status": "enrolled"}))
    service.write_state(ENROLLED | {"UnknownSince": hours_ago(100)}).start()
    service.log.wait_for("<6>kiosk sign-in methods now ")
    service.stop()
    portal.checks_in(UNKNOWN)

    service.start()

    service.log.wait_for("kiosk mode stays unless that lasts 24 hours\n")
    assert has_account()
