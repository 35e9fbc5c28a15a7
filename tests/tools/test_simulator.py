"""The simulator from outside, with the portal stand-in that claims every code at once."""

import json
import signal

import pytest

from programs import IS_ROOT, NOBODY_UID, SIMULATOR, connect, read_json, run
from simulated import FAILED, KIOSK_UID, OK, USAGE, ask


def test_keeps_all_its_files_in_its_directory(switch_on, place):
    simulator = switch_on()

    assert [entry.name for entry in place.iterdir()] == ["t1"]
    names = sorted(entry.name for entry in simulator.directory.iterdir())
    assert names == ["client", "kiosk.sock", "machine-id", "run", "state", "terminal.json", "terminal.lock"]


def test_admits_callers_by_a_first_state(switch_on):
    simulator = switch_on()

    assert read_json(simulator.directory / "state" / "state.json") == {"DevAllowAnyCaller": 1}


def test_leaves_a_state_that_is_there_alone(switch_on, place):
    (place / "t1" / "state").mkdir(parents=True)
    (place / "t1" / "state" / "state.json").write_text('{"TerminalName":"mine"}')

    simulator = switch_on()

    assert read_json(simulator.directory / "state" / "state.json") == {"TerminalName": "mine"}


def test_gives_each_terminal_a_machine_id_once(switch_on):
    first, second = switch_on(), switch_on(name="t2")
    text = (first.directory / "machine-id").read_text()
    first.end()

    again = switch_on()

    assert len(text) == 33 and int(text, 16) > 0
    assert (again.directory / "machine-id").read_text() == text
    assert (second.directory / "machine-id").read_text() != text


def test_tells_the_portal_of_host_name_and_screens(switch_on, portal):
    switch_on("--screens", "3", "--host-name", "lobby").enrol()

    report = ask(portal, "/admin/state")["terminals"][0]["report"]

    assert (report["hostname"], report["screenCount"]) == ("lobby", 3)


def test_restarts_into_the_kiosk_session_as_a_new_program(switch_on):
    simulator = switch_on()
    simulator.enrol()
    before = simulator.terminal()

    simulator.ask_to_restart()
    simulator.wait_for_line("listening on", times=2)

    after = simulator.terminal()
    assert after["bootedAtMs"] > before["bootedAtMs"]
    assert (before["atConsole"], after["atConsole"]) == ("person", "kiosk")
    assert any("enrolled=1 provisioned=1" in line for line in simulator.lines)
    assert simulator.process.poll() is None
    assert simulator.end() == OK


@pytest.mark.skipif(not IS_ROOT, reason="needs another uid than its own")
def test_gives_the_kiosk_session_to_the_kiosk_account_alone(switch_on):
    simulator = switch_on()
    simulator.enrol()
    simulator.ask_to_restart()
    simulator.wait_for_line("listening on", times=2)

    sessions = {uid: simulator.send("status", uid=uid)["kioskSession"] for uid in (KIOSK_UID, NOBODY_UID, 0)}

    assert sessions == {KIOSK_UID: True, NOBODY_UID: False, 0: False}


def test_goes_on_where_it_was_after_a_stop(switch_on):
    first = switch_on()
    before = first.terminal()

    assert first.end(signal.SIGINT) == OK
    assert not first.socket.exists()

    assert switch_on().terminal() == before


def test_boots_when_asked_to(switch_on):
    first = switch_on()
    before = first.terminal()
    first.end()

    after = switch_on("--boot").terminal()

    assert after["bootedAtMs"] > before["bootedAtMs"]
    assert after["sessionNumber"] == before["sessionNumber"] + 1


def test_ends_when_a_stop_comes_into_a_restart(switch_on):
    simulator = switch_on()
    simulator.enrol()
    with connect(simulator.socket):  # Keeps the service waiting for its request, and so from stopping.
        wait_until_accepted(simulator)
        simulator.ask_to_restart()
        simulator.wait_for_line("a restart of the terminal was asked for")
        simulator.process.send_signal(signal.SIGTERM)

    assert simulator.wait() == OK
    assert simulator.terminal()["restarting"] is True


def test_makes_up_for_a_restart_that_was_cut_off(switch_on):
    simulator = switch_on()
    before = simulator.terminal()
    simulator.end()
    (simulator.directory / "terminal.json").write_text(json.dumps({**before, "restarting": True}))

    after = switch_on().terminal()

    assert after["restarting"] is False
    assert after["bootedAtMs"] > before["bootedAtMs"]


def test_shares_its_directory_with_nobody(switch_on):
    simulator = switch_on()

    second = run(SIMULATOR, "--dir", simulator.directory)

    assert second.returncode == FAILED
    assert "another simulator does" in second.stderr
    assert simulator.send("status")["ok"]


def test_begins_anew_with_a_terminal_file_that_is_not_readable(switch_on, place):
    (place / "t1").mkdir()
    (place / "t1" / "terminal.json").write_text("garbage")

    simulator = switch_on()

    simulator.wait_for_line("terminal.json is not readable; starting a new terminal")
    assert simulator.terminal()["atConsole"] == "person"


def test_exits_with_2_for_wrong_arguments(place):
    result = run(SIMULATOR, "--dir", place / "t1", "--screens", "0")

    assert (result.returncode, result.stdout) == (USAGE, "")
    assert not (place / "t1").exists()


def test_tells_about_itself():
    result = run(SIMULATOR, "--help")

    assert result.returncode == OK
    assert result.stdout.startswith("usage: tarnvale-kiosk-simulator ")


def wait_until_accepted(simulator):
    """Connections are accepted in their order, so one that is answered came after the ones before it."""
    assert simulator.send("status")["ok"]
