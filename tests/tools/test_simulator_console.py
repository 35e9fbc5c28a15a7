"""A person at the console of a simulated terminal."""

from programs import SIMULATOR, run
from simulated import FAILED, OK, USAGE


def test_signs_a_person_out_and_in_again(switch_on):
    simulator = switch_on()

    assert simulator.console("sign-out") == (OK, "nobody is signed in at the console")
    simulator.wait_for_line("simulator: nobody is signed in at the console")
    assert simulator.send("status")["ok"]
    assert simulator.console("sign-in") == (OK, "a person is signed in at the console, session 2")

    simulator.wait_for_line("simulator: a person is signed in at the console, session 2")


def test_has_nobody_enrol_at_a_login_prompt(switch_on):
    simulator = switch_on()
    simulator.console("sign-out")

    assert simulator.send("pair.begin")["ok"] is False


def test_refuses_what_a_person_cannot_do(kiosk):
    at_console = "tarnvale-kiosk-simulator: the kiosk session is at the console"

    assert kiosk.console("sign-in") == (FAILED, at_console)
    assert kiosk.console("sign-out") == (FAILED, at_console)


def test_restarts_the_terminal(switch_on):
    simulator = switch_on()
    before = simulator.terminal()

    simulator.restart_at_console()

    after = simulator.terminal()
    assert after["bootedAtMs"] > before["bootedAtMs"]
    assert (after["restarting"], after["restartAtMs"]) == (False, 0)
    assert simulator.process.poll() is None


def test_restarts_a_terminal_whose_simulator_is_not_running(switch_on):
    first = switch_on()
    before = first.terminal()
    first.end()

    assert first.console("restart")[0] == OK

    assert switch_on().terminal()["bootedAtMs"] > before["bootedAtMs"]


def test_begins_a_startup_with_an_empty_run_directory(switch_on):
    simulator = switch_on()
    simulator.marker.touch()
    (simulator.marker.parent / "kiosk-presence.json").write_text("{}")

    simulator.restart_at_console()

    assert list(simulator.marker.parent.iterdir()) == []


def test_leaves_the_run_directory_alone_without_a_startup(switch_on):
    first = switch_on()
    first.marker.touch()
    first.end()

    assert switch_on().marker.exists()


def test_does_nothing_where_there_is_no_terminal(place):
    for options in (["--console", "sign-in"], ["--sleep-now"]):
        result = run(SIMULATOR, "--dir", place / "t1", *options)

        assert result.returncode == FAILED
        assert result.stderr == f"tarnvale-kiosk-simulator: there is no terminal in {place / 't1'}\n"
    assert list(place.iterdir()) == []


def test_takes_known_actions_only(place):
    assert run(SIMULATOR, "--dir", place / "t1", "--console", "login").returncode == USAGE
