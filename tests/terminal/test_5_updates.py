"""Chapter 5: updates come in their window, the service's own among them, and apt survives the service."""

import datetime
import json

import pytest

from striker import strike, strikes
from terminal import SERVICE

SCHEDULE = "/etc/apt/apt.conf.d/52tarnvale-kiosk-updates"
EXECUTABLE = "/usr/lib/tarnvale-stream/tarnvale-kioskd"
HOUR = datetime.timedelta(hours=1)
WAITING = "os updates: waiting, a stream session is live; trying again every 15 min in this window"
QUIET = {"automatic": False, "window": {"start": "02:00", "end": "05:00", "days": [0, 1, 2, 3, 4, 5, 6]}}


@pytest.fixture(scope="module")
def log(terminal):
    """The service's log of this chapter."""
    return terminal.log()


@pytest.fixture(scope="module")
def opened(terminal):
    """When the window opened in which updates come here: an hour ago. It lasts for two hours."""
    return now(terminal) - HOUR


def now(terminal):
    """By the terminal's clock, to the minute."""
    return datetime.datetime.fromisoformat(terminal.run("date +%Y-%m-%dT%H:%M"))


def window_from(opens):
    return {"start": f"{opens:%H:%M}", "end": f"{opens + 2 * HOUR:%H:%M}", "days": [0, 1, 2, 3, 4, 5, 6]}


def report_a_live_stream(terminal):
    assert terminal.ask("session.report", signedIn=True, live=True)["ok"]


def until_under_a_live_stream(terminal, event, probe):
    """Waits like until(); meanwhile the stream client goes on reporting, as each report counts for 150 seconds only."""
    def report_and_probe():
        report_a_live_stream(terminal)
        return probe()
    terminal.until(event, report_and_probe)


def wait_for_report(terminal, result):
    """Until the portal has been told of this result; answers with the report."""
    def told():
        report = terminal.portal.shown()["lastReport"].get("osUpdates", {})
        return report if report.get("lastResult") == result else None
    return terminal.until(f"the report {result!r} at the portal", told)


def versions(terminal):
    return dict(line.split() for line in terminal.run("dpkg-query --show tarnvale-kioskd 'terminal-*'").splitlines())


def notice_status(terminal):
    return terminal.run("dpkg-query --show --showformat '${db:Status-Status}' terminal-notice")


def journal_of_unit(terminal, since):
    """What the service and systemd said of it, from the line that contains `since` on: message, process, executable."""
    fields = "MESSAGE,_PID,_EXE"
    command = f"journalctl --quiet --no-pager --output json --output-fields {fields} --unit {SERVICE}"
    entries = [json.loads(line) for line in terminal.run(command).splitlines()]
    begin = next(i for i, entry in enumerate(entries) if since in entry["MESSAGE"])
    return entries[begin:]


def test_automatic_updates_take_apts_own_schedule(terminal, log, saw):
    window = window_from(now(terminal) + 2 * HOUR)
    terminal.portal.set(updates={"automatic": True, "window": window})

    log.wait_for(f"os updates: automatic updates wait for the {window['start']}-{window['end']} window")

    terminal.until("the drop-in", lambda: terminal.exists(SCHEDULE))
    assert terminal.run("apt-config dump APT::Periodic::Unattended-Upgrade") == 'APT::Periodic::Unattended-Upgrade "0";'
    assert terminal.run("apt-config dump Unattended-Upgrade::Automatic-Reboot") == 'Unattended-Upgrade::Automatic-Reboot "false";'
    saw("the portal sent a window that opens in two hours; apt reads the drop-in and leaves its own unattended upgrades")


def test_a_closed_window_installs_nothing(terminal, log, saw):
    before = versions(terminal)
    with strikes(terminal, 2, within_s=5):
        pass

    # The service looks at the window each minute, just after it has seen to this file.
    terminal.run(f"rm {SCHEDULE}")
    terminal.until("the service has looked", lambda: terminal.exists(SCHEDULE))
    terminal.portal.wait_for_check_in()

    assert not log.has("window is open"), log.lines()
    assert versions(terminal) == before
    assert "OsUpdatesWindowDone" not in terminal.state()
    saw(f"killed twice and then left alone, the service waits for its window: {before}")


def test_a_live_stream_defers_the_run(terminal, log, opened, saw):
    report_a_live_stream(terminal)
    terminal.portal.set(updates={"automatic": True, "window": window_from(opened)})

    until_under_a_live_stream(terminal, "the waiting line", lambda: log.has(WAITING))

    report = wait_for_report(terminal, "deferred")

    assert report["error"] is None, report
    assert not log.has("searching"), log.lines()
    saw("a stream is live: the run waits, and the portal knows that it is deferred")


def test_a_service_that_was_killed_has_not_lost_the_window(terminal, log, opened, saw):
    terminal.machine.forget_events()

    strike(terminal)

    log.wait_for(f"os updates: the {opened:%Y-%m-%d} window is open")

    saw("the service was killed and systemd started it again: it knows of no stream any more, and the run begins")


def test_a_marker_of_the_system_restarts_the_machine_after_the_run(terminal, log, saw):
    log.wait_for("os updates: restarting in 60 s to finish installing")
    terminal.wait_for_restart()

    assert log.has("os updates: 0 pending, restart required")
    installed = versions(terminal)
    assert installed["tarnvale-kioskd"].endswith("+next"), installed
    assert installed["terminal-notice"] == "2", installed
    saw(f"installed tarnvale-kioskd {installed['tarnvale-kioskd']} and terminal-notice 2, which asked for a restart: it came")


def test_the_service_ended_only_after_the_run_that_upgraded_it(terminal, saw):
    entries = journal_of_unit(terminal, "window is open")
    messages = [entry["MESSAGE"] for entry in entries]

    def place(text):
        return next(i for i, message in enumerate(messages) if text in message)

    steps = ("searching, then installing", f"Stopping {SERVICE}", "0 pending", "restarting in 60 s", "kioskd stopped",
             f"Started {SERVICE}", " starting", "listening on")
    places = [place(step) for step in steps]
    assert places == sorted(places), messages
    old, new = entries[place("kioskd stopped")], entries[place("listening on")]
    assert old["_PID"] == entries[0]["_PID"], old
    # Of a process that still had the replaced file, the journal would say that it is deleted.
    assert (new["_PID"] != old["_PID"], new["_EXE"]) == (True, EXECUTABLE), new
    saw(f"asked to stop in the middle, process {old['_PID']} saw its run through to the report; the new file is {new['_PID']}")


def test_the_report_of_that_run_reaches_the_portal(terminal, opened, saw):
    report = wait_for_report(terminal, "ok")

    assert (report["error"], report["pending"], report["restartRequired"]) == (None, 0, True), report
    state = terminal.state()
    assert json.loads(state["OsUpdatesReport"]) == report
    assert state["OsUpdatesWindowDone"] == f"{opened:%Y-%m-%d}"
    saw(f"the portal has the report of {report['lastRunAt']}: ok, nothing pending; this window is done")


def test_needrestart_leaves_the_restart_of_the_service_to_its_package(terminal, saw):
    starts = terminal.run(f"systemctl show --property InvocationID {SERVICE}")
    # As an upgrade of the library does it: another file under the name of the one that the process has mapped.
    terminal.run("library=$(realpath $(ldconfig -p | grep -o '/.*/libcurl.so.4$')); "
                 "cp --preserve $library $library.new && mv $library.new $library")

    said = terminal.run("needrestart -r a")

    assert f"Service restarts being deferred:\n systemctl restart {SERVICE}" in said, said
    assert terminal.run(f"systemctl show --property InvocationID {SERVICE}") == starts
    saw("needrestart, told to restart what uses an upgraded library, sees that the service does and leaves it alone")


def test_without_automatic_updates_apt_has_its_own_schedule_again(terminal, log, saw):
    terminal.portal.set(updates=QUIET)

    log.wait_for("os updates: the package manager's own schedule is back as it was")

    assert not terminal.exists(SCHEDULE)
    assert "OwnsWuPolicy" not in terminal.state()
    saw("the portal switched automatic updates off: the drop-in is gone")


def test_an_installation_survives_the_death_of_the_service(terminal, saw):
    terminal.run("cp /srv/packages/Packages.later /srv/packages/Packages")
    assert terminal.ask("os.install", **terminal.unlock())["ok"]
    terminal.until("dpkg configures the package", lambda: notice_status(terminal) == "half-configured")

    strike(terminal)

    assert notice_status(terminal) == "half-configured"
    terminal.run("pgrep --exact apt-get && touch /run/notice-may-end")
    terminal.until("apt ends", lambda: terminal.try_run("pgrep --exact apt-get").status == 1)
    installed = versions(terminal)
    assert notice_status(terminal) == "installed"
    assert (installed["terminal-notice"], installed["terminal-behind"]) == ("3", "2"), installed
    saw("killed while dpkg configured a package: apt went on without the service, through all that was said and still to come")


def test_nothing_is_left_half_done(terminal, saw):
    assert terminal.run("dpkg --audit") == ""
    assert terminal.run("systemctl --failed --plain --no-legend") == ""
    terminal.wait_for_kiosk()
    saw("dpkg finds nothing to mend and systemd no failed unit")
