"""Chapter 1: from the first boot into the kiosk session."""

from striker import strikes
from terminal import KIOSK, SERVICE, STATE


def test_the_first_boot_finds_an_unenrolled_terminal(terminal, saw):
    terminal.until("the service listens", terminal.service_answers)

    assert terminal.run(f"systemctl is-enabled {SERVICE}") == "enabled"
    assert terminal.run("systemctl is-system-running --wait") == "running"
    assert "enrolled=0 provisioned=0 maintenance=0" in terminal.log_of_this_boot()
    assert terminal.account() is None
    assert not terminal.exists("/var/cache/tarnvale-kiosk/branding/branding.json")
    assert "DeviceToken" not in terminal.state()
    saw("the machine runs, the service is enabled and listens: unenrolled, no account, no branding")


def test_a_local_person_pairs_and_the_machine_restarts_into_the_kiosk(terminal, saw):
    log = terminal.log()
    reply = terminal.pair()
    assert (reply["ok"], reply["provisioned"], reply["restartInSeconds"]) == (True, True, 10), reply
    saw("mira got a code at the console, the portal's administrator claimed it; the terminal says that it restarts")

    terminal.wait_for_restart()

    log.wait_for(f"provisioned: {KIOSK} signs in at startup into /usr/bin/tarnvale-stream --kiosk")
    session = terminal.wait_for_kiosk()
    assert (session["Class"], session["Remote"], session["Type"], session["TTY"]) == ("user", "no", "wayland", "tty1"), session
    saw(f"the machine restarted; logind has session {session['Id']} of {KIOSK} on {session['TTY']}, class {session['Class']}")


def test_the_account_is_the_kiosks_own_and_in_no_administrative_group(terminal, saw):
    account = terminal.account()

    assert account[4].startswith("Tarnvale"), account
    assert account[2] == terminal.state()["AccountUid"]
    assert terminal.groups() == {KIOSK}, terminal.groups()
    assert terminal.run(f"getent shadow {KIOSK}").split(":")[1].startswith("!")
    saw(f"the account has the uid {account[2]}, which the state holds, a locked password and one group, its own")


def test_the_state_is_roots_alone(terminal, saw):
    assert terminal.run(f"stat --format '%a %U' {STATE}") == "600 root"
    assert terminal.run("stat --format '%a %U' /var/lib/tarnvale-kiosk") == "700 root"
    terminal.portal.wait_for_check_in()
    saw("state directory 0700, state file 0600; the terminal checks in")


def test_sigkills_at_random_moments_leave_it_enrolled(terminal, saw):
    before = terminal.wait_for_kiosk()

    with strikes(terminal, 3, within_s=5):
        terminal.portal.wait_for_check_in(2)

    assert terminal.kiosk_session()["Id"] == before["Id"]
    saw("killed while it checked in, the service has lost nothing, and the kiosk session did not notice")


def test_a_group_gained_behind_the_services_back_is_gone_by_the_next_check_in(terminal, saw):
    log = terminal.log()
    terminal.run(f"gpasswd --add {KIOSK} sudo")

    terminal.portal.wait_for_check_in(2)  # the first may have been on its way

    assert log.has(f"removed {KIOSK} from sudo")
    assert terminal.groups() == {KIOSK}
    saw("put into the group sudo by hand, the account is out of it at the next check-in")
