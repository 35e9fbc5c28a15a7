"""Chapter 6: maintenance, and the ways back from it."""

from striker import strike, strikes
from terminal import KIOSK_UNIT, LOGIN_PROMPT

MARKER = "/run/tarnvale/kiosk-maintenance"


def is_in_maintenance(terminal):
    return "Maintenance" in terminal.state() and terminal.exists(MARKER) and not terminal.kiosk_session()


def visit_until(terminal, ended):
    """Signs in and out. The service looks every two seconds, so a short visit may have gone unseen, and is made again."""
    def visit():
        terminal.console.sign_in("mira", "mira")
        terminal.console.sign_out()
        return ended()

    terminal.until("a visit that was seen", visit)


def test_maintenance_ends_the_kiosk_session_and_brings_a_login_prompt(terminal, saw):
    before = terminal.wait_for_kiosk()

    terminal.begin_maintenance()

    assert is_in_maintenance(terminal)
    assert not terminal.is_active(KIOSK_UNIT)
    saw(f"session {before['Id']} of the kiosk has ended; the first console has a login prompt")


def test_the_kiosk_cannot_be_started_meanwhile(terminal, saw):
    terminal.run(f"systemctl start {KIOSK_UNIT}")

    assert terminal.run(f"systemctl show --property ConditionResult --value {KIOSK_UNIT}") == "no"
    assert is_in_maintenance(terminal)
    # systemd ends the prompt, which excludes the kiosk, before it looks at the marker.
    terminal.run(f"systemctl start {LOGIN_PROMPT}")
    saw("started by hand, the kiosk's unit is held off by the marker")


def test_kiosk_sign_in_returns_when_the_administrator_signs_out(terminal, saw):
    log = terminal.log()

    visit_until(terminal, lambda: log.has("maintenance over (the administrator signed out): kiosk sign-in restored"))

    session = terminal.wait_for_kiosk()
    assert not terminal.exists(MARKER)
    assert not {"Maintenance", "MaintenanceAt"} & terminal.state().keys()
    assert not terminal.is_active(LOGIN_PROMPT)
    saw(f"mira signed in and out; the kiosk is back as session {session['Id']}, without the login prompt")


def test_sigkills_do_not_end_maintenance(terminal, saw):
    terminal.begin_maintenance()

    with strikes(terminal, 3, within_s=4):
        pass

    assert is_in_maintenance(terminal)
    saw("killed and started again, the service goes on with maintenance")


def test_a_service_started_anew_still_knows_the_administrators_session(terminal, saw):
    terminal.console.sign_in("mira", "mira")
    strike(terminal)
    assert is_in_maintenance(terminal)
    log = terminal.log()
    terminal.console.sign_out()

    log.wait_for("maintenance over (the administrator signed out)")

    terminal.wait_for_kiosk()
    saw("killed while mira was signed in, the service saw her sign out all the same")


def test_a_restart_of_the_machine_ends_maintenance_too(terminal, saw):
    log = terminal.log()
    terminal.begin_maintenance()

    terminal.restart()

    log.wait_for("maintenance over (the device restarted): kiosk sign-in restored")
    session = terminal.wait_for_kiosk()
    assert not terminal.exists(MARKER)
    assert "Maintenance" not in terminal.state()
    saw(f"maintenance is over with the restart; the kiosk is session {session['Id']}")
