"""Power settings of a whole terminal: from the portal and from the kiosk session to the system's files."""

import pathlib
import shutil
import subprocess

import pytest

from kiosk import CHECK_IN
from kioskd import DEADLINE, compact
from settings import INVALID, check_rows, policy, stamps
from terminal import KIOSK_UID

DROP_IN = pathlib.Path("/etc/systemd/logind.conf.d/60-tarnvale-kiosk.conf")
UNITS = pathlib.Path("/etc/systemd/system")
SLEEP_SERVICE = UNITS / "tarnvale-kiosk-sleep.service"
SLEEP_TIMER = UNITS / "tarnvale-kiosk-sleep.timer"
FILES = (DROP_IN, SLEEP_SERVICE, SLEEP_TIMER)

RELOAD = "systemctl [reload] [systemd-logind.service]"
HANG_UP = "systemctl [kill] [-s] [HUP] [systemd-logind.service]"
DAEMON_RELOAD = "systemctl [daemon-reload]"
ENABLE = "systemctl [enable] [--now] [tarnvale-kiosk-sleep.timer]"
RESTART = "systemctl [restart] [tarnvale-kiosk-sleep.timer]"
DISABLE = "systemctl [disable] [--now] [tarnvale-kiosk-sleep.timer]"
NO_ALARM = "<4>power: this device has no RTC wake alarm\n"

# Everything that a policy can put in place.
FULL = policy(screen=5, sleep=10, enabled=True)
FULL_LINES = [f"<6>power: the portal's policy is now {compact(FULL)}\n",
              "<6>power: screen off 5 min, sleep 10 min (0 = never)\n",
              "<6>power: sleep at Mon,Tue,Wed,Thu,Fri 22:00:00, wake at 07:00\n",
              NO_ALARM,
              "<4>power: wake_unavailable\n"]
NOTHING = policy(screen=0)


@pytest.fixture(autouse=True)
def clean():
    yield
    for path in FILES:
        path.unlink(missing_ok=True)


@pytest.fixture
def env(kiosk):
    return kiosk.etc / "power.env"


def document(portals=None, source="default", local=None, error=None):
    portals = portals or policy()
    return {"ok": True, "policy": portals, "source": source, "local": local, "effective": local or portals,
            "error": error}


# From the portal.


def test_the_portals_policy_reaches_the_files_at_the_end_of_its_pass(kiosk, env):
    kiosk.portal_says(power=FULL, powerSource="tenant")

    kiosk.service.start()
    kiosk.service.log.wait_for("power: wake_unavailable")

    assert len(kiosk.portal.to(CHECK_IN)) == 1
    assert env.read_text() == "SCREEN_OFF_SECONDS=300\nSLEEP_SECONDS=600\n"
    assert DROP_IN.read_text() == "[Login]\nIdleAction=suspend\nIdleActionSec=10min\n"
    assert "\nOnCalendar=Mon,Tue,Wed,Thu,Fri 22:00:00\n" in SLEEP_TIMER.read_text()
    assert SLEEP_SERVICE.read_text().endswith("/tarnvale-kioskd --sleep-now\n")
    assert kiosk.calls() == [RELOAD, DAEMON_RELOAD, ENABLE, RESTART]
    assert kiosk.lines_of("power:") == FULL_LINES
    kiosk.unlock()
    assert kiosk.settings("power.get") == document(FULL, "tenant", error="wake_unavailable")


def test_the_next_pass_with_the_same_policy_starts_nothing_and_touches_nothing(kiosk, env):
    kiosk.portal_says(power=FULL)
    kiosk.service.start()
    kiosk.service.log.wait_for("power: wake_unavailable")
    kiosk.service.stop()
    kiosk.calls()
    before = stamps(env, *FILES, kiosk.service.state_file)

    kiosk.service.start()
    kiosk.service.log.wait_for(NO_ALARM)
    kiosk.service.stop()

    assert kiosk.calls() == []
    assert stamps(env, *FILES, kiosk.service.state_file) == before
    assert kiosk.lines_of("power:") == [NO_ALARM]


def test_a_policy_that_changes_at_every_check_in_is_followed_every_time(kiosk, env):
    kiosk.start_unlocked()
    kiosk.calls()
    for _ in range(3):
        kiosk.portal_says(power=FULL)
        kiosk.unlock()
        assert kiosk.settings("power.set", useOrganisation=True) == document(FULL, error="wake_unavailable")
        assert kiosk.calls() == [RELOAD, DAEMON_RELOAD, ENABLE, RESTART]
        assert env.read_text() == "SCREEN_OFF_SECONDS=300\nSLEEP_SECONDS=600\n"

        kiosk.portal_says(power=NOTHING)
        kiosk.unlock()
        assert kiosk.settings("power.set", useOrganisation=True) == document(NOTHING)
        assert kiosk.calls() == [RELOAD, DISABLE, DAEMON_RELOAD]
        assert env.read_text() == "SCREEN_OFF_SECONDS=0\nSLEEP_SECONDS=0\n"
        assert not any(path.exists() for path in FILES)

    assert kiosk.service.log.count("<6>power: removed the sleep schedule\n") == 3
    assert kiosk.service.log.count("<4>power: wake_unavailable\n") == 3


def test_a_policy_that_is_not_whole_leaves_the_one_before_it_in_force(kiosk, env):
    kiosk.portal_says(power=FULL, powerSource="device")
    kiosk.start_unlocked()
    kiosk.settings("power.set", useOrganisation=True)
    schedule = FULL["schedule"]
    for wrong in (FULL | {"sleepMinutes": 241}, FULL | {"screenOffMinutes": "15"}, change(FULL, "schedule", absent),
                  FULL | {"schedule": schedule | {"days": []}}, FULL | {"schedule": schedule | {"days": [1, 1]}},
                  FULL | {"schedule": schedule | {"wakeAt": "22:00"}}, [], "off", None):
        kiosk.portal_says(power=wrong, powerSource="tenant")
        kiosk.unlock()

        assert kiosk.settings("power.set", useOrganisation=True) == document(FULL, "device", error="wake_unavailable")

    assert env.read_text() == "SCREEN_OFF_SECONDS=300\nSLEEP_SECONDS=600\n"
    assert kiosk.service.log.count("power: the portal's policy is now") == 1


def test_the_idle_watchers_of_the_kiosk_account_end_whenever_the_times_change(kiosk):
    watcher = pathlib.Path("/usr/bin/swayidle")
    shutil.copyfile("/usr/bin/sleep", watcher)
    watcher.chmod(0o755)
    kiosk.start_unlocked()
    for minutes in 1, 2:
        own = subprocess.Popen([watcher, str(DEADLINE)], user=KIOSK_UID)
        another = subprocess.Popen([watcher, str(DEADLINE)])

        kiosk.settings("power.set", screenOffMinutes=minutes, sleepMinutes=0)

        assert own.wait(DEADLINE) == -15
        kiosk.settings("power.set", screenOffMinutes=minutes, sleepMinutes=0)
        assert another.poll() is None
        another.kill()
        another.wait()


# Over the control socket.


def test_power_get_on_a_terminal_without_a_policy_shows_the_defaults(kiosk):
    kiosk.start_unlocked()

    assert kiosk.settings("power.get", anything=[1]) == document()
    assert kiosk.calls() == []
    assert not kiosk.etc.exists()


def test_power_set_refuses_every_member_that_is_not_right(kiosk):
    kiosk.start_unlocked()
    right = policy(screen=7, sleep=8, enabled=True)
    schedule = right["schedule"]
    minutes = [absent, None, "15", True, [], {}, -1, 241, 0.5, -0.5, 1e308]
    clocks = [absent, None, 7, True, "", "7:00", "24:00", "07:60", "07.00", "07:00 ", "-7:00", "ab:cd"]
    requests = [
        *({"useOrganisation": value} for value in ("true", 1, 0, [], {})),
        *(right | {"local": value} for value in (False, "true", 1, 0, [], {})),
        *(change(right, name, value) for name in ("screenOffMinutes", "sleepMinutes") for value in minutes),
        *(right | {"schedule": value} for value in ("22:00", 1, True, [], {})),
        *(right | {"schedule": change(schedule, name, value)} for name in ("sleepAt", "wakeAt") for value in clocks),
        *(right | {"schedule": change(schedule, "enabled", value)} for value in (absent, None, 1, "true")),
        *(right | {"schedule": change(schedule, "days", value)}
          for value in (absent, None, 1, {}, [], [7], [-1], [1.5], ["1"], [None], [1, 1], [0, 1, 2, 3, 4, 5, 6, 0])),
        right | {"schedule": schedule | {"wakeAt": "22:00"}},
    ]

    check_rows([(request, INVALID) for request in requests], lambda request: kiosk.settings("power.set", **request))

    assert kiosk.settings("power.get") == document()
    assert kiosk.calls() == []
    assert "PowerLocal" not in kiosk.service.state()
    assert len(kiosk.lines_of("power:")) == 0
    assert kiosk.service.log.count(
        "<4>power.set refused: minutes must be whole numbers from 0 to 240\n") == 2 * len(minutes)
    assert kiosk.service.log.count("<4>power.set refused: invalid schedule\n") == 5 + 2 * len(clocks) + 4 + 12 + 1


absent = object()


def change(request, name, value):
    return {key: one for key, one in (request | {name: value}).items() if one is not absent}


@pytest.mark.parametrize("screen, sleep", [(0, 0), (240, 240), (0, 240), (240, 0)])
def test_power_set_takes_the_minutes_up_to_both_limits(kiosk, env, screen, sleep):
    kiosk.start_unlocked()
    local = policy(screen, sleep)

    assert kiosk.settings("power.set", screenOffMinutes=screen, sleepMinutes=sleep) == document(local=local)

    assert env.read_text() == f"SCREEN_OFF_SECONDS={60 * screen}\nSLEEP_SECONDS={60 * sleep}\n"
    assert DROP_IN.exists() == (sleep > 0)
    assert kiosk.calls() == ([RELOAD] if sleep else [])


def test_power_set_takes_a_schedule_at_its_limits_and_keeps_it_when_none_comes(kiosk):
    kiosk.start_unlocked()
    local = policy(1, 0, True, "00:00", "23:59", range(7))
    request = local | {"local": True, "useOrganisation": False}
    request["schedule"] = request["schedule"] | {"days": [6, 5, 4, 3, 2, 1, 0]}

    assert kiosk.settings("power.set", **request)["local"] == local
    assert kiosk.settings("power.set", screenOffMinutes=2, sleepMinutes=0, schedule=None)["local"] == local | {
        "screenOffMinutes": 2}
    assert "OnCalendar=Sun,Mon,Tue,Wed,Thu,Fri,Sat 00:00:00\n" in SLEEP_TIMER.read_text()


def test_an_override_lives_through_a_restart_and_ends_with_use_organisation(kiosk, env):
    kiosk.portal_says(power=NOTHING, powerSource="device")
    kiosk.start_unlocked()
    local = policy(3, 4)
    kiosk.settings("power.set", screenOffMinutes=3, sleepMinutes=4)
    kiosk.service.stop()

    kiosk.start_unlocked()

    assert kiosk.settings("power.get") == document(NOTHING, "device", local)
    assert kiosk.portal.requests[-1].json()["powerLocal"] == local
    assert kiosk.settings("power.set", useOrganisation=True, screenOffMinutes="no") == document(NOTHING, "device")
    assert env.read_text() == "SCREEN_OFF_SECONDS=0\nSLEEP_SECONDS=0\n"
    assert not DROP_IN.exists()


# What goes wrong.


@pytest.mark.parametrize("lines", ["kill -9 $$", "exit 1", "head -c 5000000 /dev/zero; exit 1"],
                         ids=["dies", "fails", "talks much"])
def test_a_systemctl_that_does_not_do_its_work_holds_up_nothing(kiosk, env, lines):
    kiosk.replace("systemctl", lines)
    kiosk.start_unlocked()

    reply = kiosk.settings("power.set", **FULL)

    assert reply == document(local=FULL, error="wake_unavailable")
    assert kiosk.calls() == [RELOAD, HANG_UP, DAEMON_RELOAD, ENABLE, RESTART]
    assert env.exists() and all(path.exists() for path in FILES)
    kiosk.settings("power.set", **FULL)
    assert kiosk.calls() == []


def test_a_terminal_without_systemctl_has_its_files_all_the_same(kiosk, env):
    kiosk.remove_tool("systemctl")
    kiosk.start_unlocked()

    assert kiosk.settings("power.set", **FULL)["ok"]

    assert env.exists() and all(path.exists() for path in FILES)


OTHER = policy(screen=6, sleep=11, enabled=True, sleep_at="21:00")


@pytest.mark.parametrize("where, file, skipped", [
    (None, "power.env", []),
    (DROP_IN.parent, DROP_IN.name, [RELOAD]),
    (UNITS, SLEEP_TIMER.name, [DAEMON_RELOAD, ENABLE, RESTART]),
], ids=["power.env", "drop-in", "timer"])
def test_a_full_disk_keeps_the_old_file_and_the_next_application_writes_it(kiosk, small_disk, where, file, skipped):
    where = where or kiosk.etc
    disk = small_disk(where)
    kiosk.start_unlocked()
    kiosk.settings("power.set", **FULL)
    old = (where / file).read_text()
    kiosk.calls()
    disk.fill()

    assert kiosk.settings("power.set", **OTHER) == document(local=OTHER, error="wake_unavailable")

    every = [RELOAD, DAEMON_RELOAD, ENABLE, RESTART]
    assert kiosk.service.log.count(f"<3>cannot write {where}/{file}.tmp\n") == 1
    assert (where / file).read_text() == old
    assert kiosk.calls() == [call for call in every if call not in skipped]

    disk.clear()
    kiosk.settings("power.set", **OTHER)

    assert (where / file).read_text() != old
    assert not (where / f"{file}.tmp").exists()
    assert kiosk.calls() == skipped


def test_a_full_disk_without_old_units_starts_no_timer_until_they_are_written(kiosk, small_disk):
    disk = small_disk(UNITS)
    disk.fill()
    kiosk.start_unlocked()

    assert kiosk.settings("power.set", **policy(enabled=True))["ok"]

    assert kiosk.calls() == []
    assert [line for line in kiosk.service.log.lines if "cannot write" in line] == [
        f"<3>cannot write {SLEEP_SERVICE}.tmp\n", f"<3>cannot write {SLEEP_TIMER}.tmp\n"]
    assert kiosk.service.log.count("power: sleep at") == 0

    disk.clear()
    kiosk.settings("power.set", useOrganisation=False, **policy(enabled=True))

    assert kiosk.calls() == [DAEMON_RELOAD, ENABLE, RESTART]
    assert SLEEP_SERVICE.exists() and SLEEP_TIMER.exists()
