"""A terminal enrols, from the code to the restart into kiosk mode, with a logind and accounts."""

import pathlib
import signal
import time

import pytest

from logind import Session
from peers import call_as
from scripted_portal import answer
from terminal import CLIENT, GROUP, KIOSK, KIOSK_UID, PERSON_UID

CODE = "ABCD2345"
RESTARTING = {"ok": True, "paired": True, "provisioned": True, "restarting": True, "restartInSeconds": 10}
MAKE_ACCOUNT = (f"grep -q ^{KIOSK}: /etc/passwd || "
                f"echo '{KIOSK}:x:{KIOSK_UID}:{KIOSK_UID}:Tarnvale kiosk:/home/k:/bin/sh' >> /etc/passwd")
REBOOT_ASKED = "<6>restarting into kiosk mode ("


@pytest.fixture
def tools(terminal, place):
    """The setup tool, gpasswd and systemctl as scripts; answers what each was called with."""
    return {
        "setup": terminal.tool(place / "setup", MAKE_ACCOUNT),
        "gpasswd": terminal.tool(pathlib.Path("/usr/bin/gpasswd"), 'sed -i "s/^\\($3:.*:\\)$2$/\\1/" /etc/group'),
        "systemctl": terminal.tool(pathlib.Path("/usr/bin/systemctl"), "exit 0"),
    }


@pytest.fixture
def service(terminal, tools, make_service, portal, bus):
    """An installed service on a terminal where a person is signed in."""
    bus.logind.add(Session("c1", PERSON_UID, "ann"))
    portal.pairs(CODE, answer(202), answer(200, {"deviceToken": "secret"}))
    portal.checks_in(answer(200, {"status": "enrolled", "name": "Lobby"}))
    return make_service("--client", str(CLIENT), "--auth-base", portal.url,
                        executable=terminal.install(), bus=bus.address).start()


def ask(service, command, **members):
    return call_as(service, {"cmd": command} | members, uid=PERSON_UID, session="c1", image=CLIENT)


def pair(service):
    assert ask(service, "pair.begin")["code"] == CODE
    assert ask(service, "pair.check", code=CODE) == {"ok": True, "paired": False}
    assert ask(service, "pair.check", code=CODE) == RESTARTING


def test_a_terminal_enrols_and_restarts_ten_seconds_later(service, portal, bus, tools):
    begin = time.monotonic()
    pair(service)
    bus.logind.wait_for_call("Reboot")

    assert time.monotonic() - begin >= 10
    service.stop()
    state = service.state()
    assert (state["DeviceToken"], state["AccountUid"], state["Provisioned"]) == ("secret", str(KIOSK_UID), 1)
    assert set(tools["setup"]()) == {"enable --from-kioskd"}
    assert "<6>pairing started\n" in service.log.lines
    assert f"<6>kiosk account {KIOSK} (uid {KIOSK_UID})\n" in service.log.lines
    assert f"<6>provisioned: {KIOSK} signs in at startup into {CLIENT} --kiosk\n" in service.log.lines
    assert service.log.count("<6>enrolled: restarting into kiosk mode in 10 s\n") == 1
    assert service.log.count("<6>restarting into kiosk mode (enrolled)\n") == 1
    assert bus.logind.calls_of("Reboot") == 1
    assert tools["systemctl"]() == []
    assert all(b"secret" not in exchange.body for exchange in portal.requests)
    assert service.log.count("secret") == 0


def test_the_kiosk_session_after_the_restart_finds_its_terminal(service, bus):
    pair(service)
    service.stop()
    bus.logind.add(Session("k1", KIOSK_UID, KIOSK))

    service.start()

    assert "<6>enrolled=1 provisioned=1 maintenance=0\n" in service.log.lines
    status = call_as(service, {"cmd": "status"}, uid=KIOSK_UID, session="k1", image=CLIENT)
    assert (status["enrolled"], status["provisioned"], status["kioskSession"]) == (True, True, True)
    assert status["terminalName"] == "Lobby"


def test_restart_now_restarts_at_once_and_only_once(service, bus):
    pair(service)

    assert ask(service, "restart.now") == {"ok": True}

    bus.logind.wait_for_call("Reboot")
    assert ask(service, "restart.now") == {"ok": False, "error": "not_pending"}
    service.stop()
    assert [line for line in service.log.lines if REBOOT_ASKED in line] == [REBOOT_ASKED + "Restart now)\n"]
    assert bus.logind.calls_of("Reboot") == 1


def test_a_kiosk_account_may_not_restart_while_a_restart_is_pending(service, bus):
    pair(service)
    bus.logind.add(Session("k1", KIOSK_UID, KIOSK))

    reply = call_as(service, {"cmd": "restart.now"}, uid=KIOSK_UID, session="k1", image=CLIENT)

    assert reply == {"ok": False, "error": "not_permitted"}
    assert bus.logind.calls_of("Reboot") == 0


@pytest.mark.parametrize("number", [signal.SIGTERM, signal.SIGINT], ids=["SIGTERM", "SIGINT"])
def test_a_stop_forgets_a_pending_restart(service, bus, tools, number):
    pair(service)

    assert service.stop(number) == 0

    assert bus.logind.calls_of("Reboot") == 0
    assert service.log.count(REBOOT_ASKED) == 0
    assert service.log.lines[-1] == "<6>tarnvale-kioskd stopped\n"
    assert tools["systemctl"]() == []


def test_systemctl_restarts_a_terminal_whose_logind_will_not(service, bus, tools):
    bus.logind.refuse_reboot()
    pair(service)

    ask(service, "restart.now")
    service.log.wait_for("<4>logind Reboot failed (")
    service.stop()

    assert tools["systemctl"]() == ["reboot"]
    assert service.log.count("using systemctl\n") == 1


def test_the_new_account_loses_its_administrative_groups(service, terminal, tools):
    terminal.add_to_group("sudo")

    pair(service)

    assert tools["gpasswd"]()[0] == f"-d {KIOSK} sudo"
    assert service.log.count(f"<4>removed {KIOSK} from sudo\n") >= 1
    assert KIOSK not in GROUP.read_text()


def test_a_foreign_account_of_the_name_is_left_alone(service, terminal, tools):
    terminal.add_account(comment="Somebody else")
    ask(service, "pair.begin")
    ask(service, "pair.check", code=CODE)

    assert ask(service, "pair.check", code=CODE) == {"ok": False, "error": "account_exists"}

    assert tools["setup"]() == []
    assert service.state()["LastError"] == "account_exists"


@pytest.mark.parametrize("body, error, told", [
    ("echo; echo no space; echo left >&2; exit 3", "setup_failed", ": no space\nleft\n"),
    ("true", "account_create_failed", "\n"),
    ("head -c 5000 /dev/zero | tr '\\0' x; exit 1", "setup_failed", ": " + "x" * 800 + "\n"),
], ids=["fails", "makes nothing", "talks much"])
def test_a_setup_tool_that_does_not_do_its_work_is_told(service, terminal, place, body, error, told):
    terminal.tool(place / "setup", body)
    ask(service, "pair.begin")
    ask(service, "pair.check", code=CODE)

    assert ask(service, "pair.check", code=CODE) == {"ok": False, "error": error}

    service.stop()
    assert f"<3>provisioning failed: {error}{told}" in "".join(service.log.lines)
    assert service.state()["DeviceToken"] == "secret"
