"""Chapter 9: the package goes and comes back, the terminal is taken out by hand, and nothing is left."""

from tenant import ACTING, SLEEP_TIMER, TRACES, set_everything, traces, wait_for_everything
from terminal import KIOSK, LOGIN_PROMPT, SERVICE, STATE

PROXY_UNIT = "tarnvale-proxy.service"
OF_THE_PROXY = ("/etc/apt/apt.conf.d/95tarnvale-kiosk-proxy", "/etc/tarnvale-kiosk/proxy.env")

APT = "DEBIAN_FRONTEND=noninteractive apt-get --quiet --yes"
# The stand-ins of the image, which the package does not own.
NOT_THE_PACKAGES = {
    "/etc/pam.d/tarnvale-kiosk", "/usr/lib/systemd/system/tarnvale-kiosk.service", "/usr/lib/tarnvale-kiosk",
    "/usr/sbin/tarnvale-kiosk-setup"}


def failed_units(terminal):
    return terminal.run("systemctl --failed --plain --no-legend")


def left(terminal):
    """What still has the service's name, on the disk and in /run."""
    named = "'(' -name '*tarnvale-kiosk*' -o -path /run/tarnvale -o -path /usr/lib/tarnvale-stream ')' -print -prune"
    return set(terminal.run(f"find / /run -xdev -path /run/systemd -prune -o {named}").split())


def test_without_the_package_nothing_acts_any_more(terminal, saw):
    set_everything(terminal)
    terminal.run(f"systemctl start {PROXY_UNIT}")
    assert terminal.ask("proxy.set", mode="manual", server="127.0.0.1:8482", **terminal.unlock())["ok"]
    session = terminal.wait_for_kiosk()

    terminal.run(f"{APT} remove tarnvale-kioskd")

    assert not terminal.is_active(SERVICE)
    assert traces(terminal) == [path for path in TRACES if path not in ACTING]
    assert SLEEP_TIMER not in terminal.run("systemctl list-timers --all --no-legend --no-pager")
    terminal.until("logind ignores idleness", lambda: terminal.idle_action()[0] == 's "ignore"')
    assert failed_units(terminal) == ""
    assert terminal.exists(STATE)
    assert terminal.kiosk_session()["Id"] == session["Id"]
    saw("removed: no service, no sleep timer, no idle suspend, apt's own schedule; state and kiosk session stay")


def test_the_package_comes_back_and_knows_its_portal(terminal, saw):
    name = terminal.state()["TerminalName"]

    terminal.run(f"{APT} install tarnvale-kioskd")

    terminal.until("the service listens", terminal.service_answers)
    wait_for_everything(terminal)
    terminal.portal.wait_for_check_in()
    assert terminal.run(f"systemctl is-enabled {SERVICE}") == "enabled"
    assert terminal.ask("status")["terminalName"] == name
    saw("installed again, it starts, checks in with the token that it had, and writes all of it anew")


def test_a_terminal_can_be_taken_out_by_hand(terminal, saw):
    log = terminal.log()
    terminal.run(f"systemctl stop {SERVICE}")
    terminal.run(f"""sed -i 's/"DeviceId":"[^"]*"/"DeviceId":"taken out by hand"/' {STATE}""")
    terminal.run(f"systemctl start {SERVICE}")

    log.wait_for(f"deleted {KIOSK}")

    terminal.until("the login prompt", lambda: terminal.is_active(LOGIN_PROMPT))
    assert terminal.account() is None
    assert traces(terminal) == []
    saw("with another machine's identity in its state, the terminal takes itself down, without its portal")


def test_a_purged_package_leaves_nothing(terminal, saw):
    assert all(map(terminal.exists, OF_THE_PROXY))
    terminal.run(f"{APT} purge tarnvale-kioskd && apt-get clean")

    assert left(terminal) == NOT_THE_PACKAGES
    assert failed_units(terminal) == ""
    assert terminal.run("dpkg --audit") == ""
    terminal.run(f"systemctl stop {PROXY_UNIT}; apt-get update --error-on=any")
    saw("purged: no file, no directory, no unit of the service is left")
