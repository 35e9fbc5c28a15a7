"""OS updates on a terminal: the package manager's runs, what is shown of them, and the report for the portal."""

import json
import pathlib
import re
import signal
import sys

import pytest

from kiosk import CHECK_IN
from kioskd import wait_until
from scripted_portal import answer

APT_GET = pathlib.Path("/usr/sbin/apt-get")
REAL_APT_GET = pathlib.Path("/usr/bin/apt-get")
MARKER = pathlib.Path("/run/reboot-required")
DROP_IN = pathlib.Path("/etc/apt/apt.conf.d/52tarnvale-kiosk-updates")

UPDATE = "update -q"
SIMULATE = "-s -q -o Debug::NoLocking=1 upgrade --with-new-pkgs"
UPGRADE = ("-y -q -o Dpkg::Options::=--force-confdef -o Dpkg::Options::=--force-confold -o APT::Status-Fd=3 "
           "upgrade --with-new-pkgs")

CHECK_REQUESTED = "<6>os updates: check requested at the terminal\n"
INSTALL_REQUESTED = "<6>os updates: install requested at the terminal\n"
NOTHING_KNOWN = {"ok": True, "checking": False, "installing": False, "progress": 0, "restartRequired": False,
                 "lastChecked": None, "error": None, "updates": []}
UTC = re.compile(r"\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ")
POLICY = {"automatic": False, "window": {"start": "22:00", "end": "04:00", "days": [1, 5]}}
REPORT = {"lastRunAt": None, "lastResult": None, "error": None, "pending": 0, "restartRequired": False}


class Apt:
    """The package tools. apt-get goes on with the lines that a test gave to a command of it."""

    def __init__(self, terminal, place):
        self._place = place
        self.calls = terminal.tool(APT_GET, f". {place}/apt$1")
        terminal.tool(pathlib.Path("/usr/sbin/apt-cache"), r"printf 'Package: curl\nSize: 315840\n'")
        self.update("")
        self.upgrade("")
        self.pending("")

    def update(self, body):
        (self._place / "aptupdate").write_text(body + "\n")

    def simulate(self, body):
        (self._place / "apt-s").write_text(body + "\n")

    def upgrade(self, body):
        (self._place / "apt-y").write_text(body + "\n")

    def pending(self, simulation):
        """What a simulation prints from now on."""
        (self._place / "simulation").write_text(simulation)
        self.simulate(f"cat {self._place}/simulation")

    def one_is_pending(self):
        self.pending("Inst curl [7.88.1-1] (7.88.1-2 Debian:12 [amd64])\n")
        self.upgrade(f": > {self._place}/simulation")


CURL = {"id": "curl", "title": "curl 7.88.1-2", "sizeBytes": 315840, "restartRequired": False}


@pytest.fixture
def apt(terminal, place):
    yield Apt(terminal, place)
    APT_GET.unlink(missing_ok=True)


@pytest.fixture
def start(enrolled, apt):
    """Starts an unlocked terminal with this state."""
    def start(**state):
        enrolled.write_state(**state)
        return enrolled.start_unlocked()
    return start


@pytest.fixture
def kiosk(start):
    return start()


def run(kiosk, command, **members):
    """Starts a run; answers what is shown when it has ended."""
    assert kiosk.settings(command, **members)["ok"]
    return wait_for_end(kiosk)


def wait_for_end(kiosk):
    def ended():
        shown = kiosk.settings("os.updates")
        return None if shown["checking"] or shown["installing"] else shown

    return wait_until(ended, "the end of the run")


def report_of(kiosk):
    """The report of the first run. It comes a moment after the end of the run is shown and told."""
    return json.loads(wait_until(lambda: kiosk.service.state().get("OsUpdatesReport"), "the report"))


def check_in_of(kiosk):
    """What the service tells the portal in the check-in of an unlock."""
    kiosk.unlock()
    return kiosk.portal.to(CHECK_IN)[-1].json()


def log_of(kiosk):
    return kiosk.lines_of("os updates: ")


def errors_of(kiosk):
    return [line for line in log_of(kiosk) if line.startswith("<3>")]


# What is shown.


def test_nothing_is_run_without_a_check(kiosk, apt):
    for members in {}, {"check": None}, {"check": False}:
        shown = kiosk.settings("os.updates", **members)
        assert list(shown.items()) == list(NOTHING_KNOWN.items()), members

    assert apt.calls() == []
    assert log_of(kiosk) == []


def test_a_check_of_another_kind_is_invalid(kiosk, apt):
    for check in 1, 0, "true", "", [], {}:
        assert kiosk.settings("os.updates", check=check) == {"ok": False, "error": "invalid"}, check

    assert kiosk.settings("os.updates") == NOTHING_KNOWN
    assert apt.calls() == []


def test_a_locked_terminal_shows_and_installs_nothing(kiosk, apt):
    for command in "os.updates", "os.install":
        assert kiosk.ask(command) == {"ok": False, "error": "not_unlocked"}
        assert kiosk.ask(command, unlockToken=7) == {"ok": False, "error": "not_unlocked"}

    assert apt.calls() == []


def test_the_portals_policy_is_shown(start):
    shown = start(UpdatesPolicy=json.dumps(POLICY)).settings("os.updates")

    assert list(shown)[-1] == "policy"
    assert shown["policy"] == POLICY


@pytest.mark.parametrize("marker, report, required", [
    (True, None, True), (False, REPORT | {"restartRequired": True}, True), (False, REPORT, False)],
    ids=["the marker", "the report", "neither"])
def test_a_restart_that_is_owed_is_known_after_a_start(start, marker, report, required):
    if marker:
        MARKER.touch()

    shown = start(OsUpdatesReport=report and json.dumps(report)).settings("os.updates")
    MARKER.unlink(missing_ok=True)

    assert shown["restartRequired"] == required
    assert shown["lastChecked"] is None


# Runs.


def test_a_check_tells_what_is_pending(kiosk, apt):
    apt.one_is_pending()

    begun = kiosk.settings("os.updates", check=True)
    shown = wait_for_end(kiosk)

    assert begun["ok"]
    assert UTC.fullmatch(shown["lastChecked"])
    assert shown == NOTHING_KNOWN | {"lastChecked": shown["lastChecked"], "updates": [CURL]}
    assert apt.calls() == [UPDATE, SIMULATE]
    assert report_of(kiosk) == {"lastRunAt": None, "lastResult": None, "error": None, "pending": 1,
                                "restartRequired": False}
    assert sorted(log_of(kiosk)) == [
        "<6>os updates: 1 pending\n", CHECK_REQUESTED, "<6>os updates: searching\n"]


def test_an_install_upgrades_and_the_portal_hears_of_it_with_the_next_check_in(kiosk, apt):
    apt.one_is_pending()
    assert "osUpdates" not in check_in_of(kiosk)

    shown = run(kiosk, "os.install")
    report = report_of(kiosk)

    assert apt.calls() == [UPDATE, SIMULATE, UPGRADE, SIMULATE]
    assert shown["updates"] == []
    assert UTC.fullmatch(report["lastRunAt"])
    assert report == {"lastRunAt": report["lastRunAt"], "lastResult": "ok", "error": None, "pending": 0,
                      "restartRequired": False}
    assert check_in_of(kiosk)["osUpdates"] == report
    assert sorted(log_of(kiosk)) == [
        "<6>os updates: 0 pending\n", INSTALL_REQUESTED, "<6>os updates: searching, then installing\n"]


def test_an_install_with_nothing_pending_upgrades_nothing(kiosk, apt):
    run(kiosk, "os.install")

    assert report_of(kiosk)["lastResult"] == "nothing"
    assert apt.calls() == [UPDATE, SIMULATE]


def test_a_run_finds_the_restart_marker_and_restarts_nothing(kiosk, apt, terminal):
    shutdown = terminal.tool(pathlib.Path("/usr/sbin/shutdown"), "exit 0")
    apt.one_is_pending()
    apt.upgrade(f"touch {MARKER}")

    shown = run(kiosk, "os.install")
    MARKER.unlink()

    assert shown["restartRequired"]
    assert report_of(kiosk)["restartRequired"]
    assert "<6>os updates: 1 pending, restart required\n" in log_of(kiosk)
    assert shutdown() == []


@pytest.mark.parametrize("step", ["update", "simulate", "upgrade"])
def test_a_run_is_shown_and_keeps_others_out_at_each_of_its_steps(kiosk, apt, place, make_gate, step):
    apt.one_is_pending()
    gate = make_gate("gate")
    getattr(apt, step)(gate.wait + (f"\ncat {place}/simulation" if step == "simulate" else ""))
    assert kiosk.settings("os.install")["checking"]
    last = {"update": UPDATE, "simulate": SIMULATE, "upgrade": UPGRADE}[step]
    wait_until(lambda: apt.calls()[-1:] == [last], "the run to be at the gate")

    shown = kiosk.settings("os.updates", check=True)

    assert shown == NOTHING_KNOWN | {"checking": True}
    assert kiosk.settings("os.install") == {"ok": False, "error": "busy"}
    assert kiosk.settings("power.get")["ok"]
    assert kiosk.ask("status")["ok"]
    gate.open(2)
    wait_for_end(kiosk)
    assert apt.calls().count(UPDATE) == 1
    assert kiosk.service.log.count(CHECK_REQUESTED) == 0
    assert kiosk.service.log.count(INSTALL_REQUESTED) == 1


def test_an_upgrade_shows_no_progress_of_its_own(kiosk, apt, make_gate):
    apt.one_is_pending()
    gate = make_gate("gate")
    apt.upgrade(f"echo pmstatus:curl:50.0000:x >&3; {gate.wait}")
    kiosk.settings("os.install")
    wait_until(lambda: apt.calls()[-1:] == [UPGRADE], "the upgrade")

    shown = kiosk.settings("os.updates")
    gate.open()

    assert (shown["checking"], shown["installing"], shown["progress"]) == (True, False, 0)


def test_a_run_can_follow_a_run(kiosk, apt):
    apt.one_is_pending()
    run(kiosk, "os.updates", check=True)
    wait_until(lambda: kiosk.settings("os.install")["ok"], "the ticket")  # given back after the end is shown

    assert wait_for_end(kiosk)["updates"] == []


# A program of its own, since a shell keeps descriptors for itself.
LOOK_AROUND = """
import json, os, sys
links = {}
for number in os.listdir("/proc/self/fd"):
    try:
        links[number] = os.readlink("/proc/self/fd/" + number)
    except OSError:
        pass  # that of the listing
environment = open("/proc/self/environ").read().split("\\0")
json.dump([links, environment], open(sys.argv[1], "w"))
print("Inst curl")
"""


def test_the_upgrade_alone_has_a_descriptor_more(kiosk, apt, place):
    (place / "look-around").write_text(LOOK_AROUND)
    for step in apt.update, apt.simulate, apt.upgrade:
        step(f"exec {sys.executable} -I {place}/look-around {place}/seen$1")

    run(kiosk, "os.install")

    for command, numbers in ("update", "012"), ("-s", "012"), ("-y", "0123"):
        links, environment = json.loads((place / f"seen{command}").read_text())
        assert "".join(sorted(links)) == numbers, command
        assert links["0"] == "/dev/null"
        assert links["1"] == links["2"]
        assert sum(link.startswith("pipe:") for link in set(links.values())) == len(numbers) - 2
        assert {"DEBIAN_FRONTEND=noninteractive", "APT_LISTCHANGES_FRONTEND=none", "LC_ALL=C"} <= set(environment)


# Failures.


def test_a_terminal_without_apt_says_so(kiosk, apt):
    APT_GET.unlink()
    hidden = REAL_APT_GET.with_name("apt-get-hidden")
    REAL_APT_GET.rename(hidden)

    shown = run(kiosk, "os.install")
    hidden.rename(REAL_APT_GET)

    assert shown == NOTHING_KNOWN | {"error": "apt_missing"}
    report = report_of(kiosk)
    assert (report["lastResult"], report["error"]) == ("failed", "apt_missing")
    assert errors_of(kiosk) == ["<3>os updates: apt_missing\n"]


def test_a_failed_run_keeps_what_is_known_and_the_next_forgets_its_error(kiosk, apt):
    apt.one_is_pending()
    before = run(kiosk, "os.updates", check=True)
    apt.update("echo; echo 'E: no route' >&2; exit 100")

    wait_until(lambda: kiosk.settings("os.install")["ok"], "the ticket")
    failed = wait_for_end(kiosk)

    assert failed == before | {"error": "search_failed"}
    kiosk.service.log.wait_for("<3>os updates: search_failed\n")
    assert errors_of(kiosk) == ["<3>os updates: apt-get update failed: E: no route\n",
                                "<3>os updates: search_failed\n"]
    apt.update("")
    wait_until(lambda: kiosk.settings("os.updates", check=True)["error"] is None, "the next run")
    assert wait_for_end(kiosk)["error"] is None


@pytest.mark.parametrize("body, error, told", [
    ("kill -9 $$", "install_failed -1", ""),
    ("echo half; kill -TERM $$", "install_failed -1", "half"),
    ("echo; echo E: broken; exit 100", "install_failed 100", "E: broken"),
], ids=["killed", "terminated", "fails"])
def test_an_upgrade_that_does_not_end_well_is_told_and_reported(kiosk, apt, body, error, told):
    apt.one_is_pending()
    apt.upgrade(body)

    shown = run(kiosk, "os.install")

    assert shown == NOTHING_KNOWN | {"error": error}
    report = report_of(kiosk)
    assert (report["lastResult"], report["error"], report["pending"]) == ("failed", error, 1)
    assert errors_of(kiosk) == [f"<3>os updates: apt-get upgrade failed: {told}\n",
                                f"<3>os updates: {error}\n"]


def test_tools_may_print_five_megabytes(kiosk, apt):
    apt.one_is_pending()
    apt.update("head -c 5000000 /dev/zero | tr '\\0' u")
    apt.upgrade("head -c 5000000 /dev/zero | tr '\\0' x; exit 1")

    shown = run(kiosk, "os.install")

    assert shown["error"] == "install_failed 1"
    assert shown["updates"] == []
    assert "<3>os updates: apt-get upgrade failed: " + "x" * 800 + "\n" in kiosk.service.log.lines


# The end of the service, and of the enrolment.


def test_a_stop_waits_for_the_run_and_leaves_apt_alone(kiosk, apt, place, make_gate):
    apt.one_is_pending()
    gate = make_gate("gate")
    apt.upgrade(f"trap 'touch {place}/signalled' TERM INT HUP PIPE\n{gate.wait}\ntouch {place}/finished")
    kiosk.settings("os.install")
    wait_until(lambda: apt.calls()[-1:] == [UPGRADE], "the upgrade")
    threads = kiosk.service.threads()

    kiosk.service.process.send_signal(signal.SIGTERM)

    wait_until(lambda: kiosk.service.threads() <= threads - 3, "the three loops to end")
    assert kiosk.service.is_running()
    assert kiosk.service.socket_path.is_socket()
    assert "OsUpdatesReport" not in kiosk.service.state()
    gate.open()
    assert kiosk.service.wait() == 0
    assert (place / "finished").exists()
    assert not (place / "signalled").exists()
    assert apt.calls()[-1] == SIMULATE
    assert json.loads(kiosk.service.state()["OsUpdatesReport"])["lastResult"] == "ok"
    assert kiosk.service.log.lines[-2:] == ["<6>os updates: 1 pending\n", "<6>tarnvale-kioskd stopped\n"]


def test_a_terminal_that_is_revoked_gives_the_schedule_back(terminal, make_service, portal, bus):
    DROP_IN.parent.mkdir(parents=True, exist_ok=True)
    DROP_IN.write_text('APT::Periodic::Unattended-Upgrade "0";\n')
    terminal.tool(pathlib.Path("/usr/sbin/systemctl"), "exit 0")
    portal.checks_in(answer(401, {"status": "revoked"}))
    service = make_service("--auth-base", portal.url, bus=bus.address).write_state({
        "DeviceToken": "secret", "OwnsWuPolicy": 1, "UpdatesPolicy": json.dumps(POLICY | {"automatic": True}),
        "UpdatesSource": "tenant", "OsUpdatesReport": json.dumps(REPORT), "OsUpdatesWindowDone": "2026-10-05"})

    service.start()
    service.log.wait_for("<4>removing kiosk mode: ")
    service.stop()  # which lets the removal end, long before the updates loop would look

    assert service.log.count("<6>os updates: the package manager's own schedule is back as it was\n") == 1
    assert not DROP_IN.exists()
    state = service.state()
    for key in "OwnsWuPolicy", "UpdatesPolicy", "UpdatesSource", "OsUpdatesReport", "OsUpdatesWindowDone":
        assert state[key] is None
