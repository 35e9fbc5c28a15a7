"""`--sleep-now`, as the sleep timer starts it: a process of its own, on a terminal whose tools only record."""

import json
import os
import pathlib
import re
import subprocess
import time

import pytest

from kioskd import DEADLINE, EXECUTABLE

WAKE_ALARM = pathlib.Path("/sys/class/rtc/rtc0/wakealarm")


def policy(enabled):
    return json.dumps({
        "screenOffMinutes": 15, "sleepMinutes": 0,
        "schedule": {"enabled": enabled, "sleepAt": "22:00", "wakeAt": "07:00", "days": [0, 1, 2, 3, 4, 5, 6]}})


class Terminal:
    """Without tools that would put the machine of the test to sleep."""

    def __init__(self, place):
        self.place = place
        self.calls = place / "calls"
        for tool in "rtcwake", "systemctl":
            self.replace(tool, 0)
        WAKE_ALARM.parent.mkdir(parents=True)
        WAKE_ALARM.touch()
        (place / "state").mkdir()
        (place / "run").mkdir()

    def replace(self, tool, status):
        path = pathlib.Path("/usr/sbin", tool)
        path.write_text(f"#!/bin/sh\necho {tool} \"$@\" >>{self.calls}\nexit {status}\n")
        path.chmod(0o755)

    def write_state(self, **state):
        (self.place / "state/state.json").write_text(json.dumps(state))

    def sleep_now(self):
        return subprocess.run(
            [os.path.abspath(EXECUTABLE), "--state-dir", self.place / "state", "--sleep-now",
             "--run-dir", self.place / "run", "--socket", self.place / "socket"],
            stdin=subprocess.DEVNULL, capture_output=True, timeout=DEADLINE, check=False)

    def what_it_called(self):
        return self.calls.read_text() if self.calls.exists() else ""


@pytest.fixture
def terminal(place):
    made = Terminal(place)
    yield made
    WAKE_ALARM.unlink()
    WAKE_ALARM.parent.rmdir()


def test_the_terminal_sleeps_until_the_schedule_wakes_it(terminal):
    terminal.write_state(PowerPolicy=policy(True))

    ended = terminal.sleep_now()

    line = re.fullmatch(rb"<6>power: scheduled sleep, waking at (\d+)\n", ended.stderr)
    assert line
    wake_at = int(line[1])
    assert 60 < wake_at - time.time() + DEADLINE < 25 * 3600 + DEADLINE
    assert time.localtime(wake_at)[3:6] == (7, 0, 0)
    assert terminal.what_it_called() == f"rtcwake -m mem -t {wake_at}\n"
    assert ended.returncode == 0


def test_it_leaves_files_and_socket_alone(terminal):
    terminal.write_state(PowerPolicy=policy(True))
    before = (terminal.place / "state/state.json").stat()

    terminal.sleep_now()

    after = (terminal.place / "state/state.json").stat()
    assert (after.st_ino, after.st_mtime_ns) == (before.st_ino, before.st_mtime_ns)
    assert sorted(os.listdir(terminal.place)) == ["calls", "run", "state"]
    assert os.listdir(terminal.place / "state") == ["state.json"]
    assert os.listdir(terminal.place / "run") == []


def test_a_suspend_that_fails_is_the_status(terminal):
    terminal.write_state(PowerPolicy=policy(True))
    terminal.replace("rtcwake", 1)
    terminal.replace("systemctl", 1)

    ended = terminal.sleep_now()

    assert ended.returncode == 1
    assert ended.stderr.endswith(b"<3>power: rtcwake failed: \n")
    assert terminal.what_it_called().endswith("systemctl suspend\n")


def test_a_terminal_without_a_schedule_stays_awake(terminal):
    terminal.write_state(PowerLocal=policy(False), PowerPolicy=policy(True))

    ended = terminal.sleep_now()

    assert ended.stderr == b"<4>power: scheduled sleep with no schedule in force; skipped\n"
    assert ended.returncode == 0
    assert terminal.what_it_called() == ""


def test_a_live_stream_holds_off_the_sleep(terminal):
    terminal.write_state(PowerPolicy=policy(True))
    (terminal.place / "run/kiosk-presence.json").write_text(
        json.dumps({"live": True, "at": int(time.time() * 1000)}))

    ended = terminal.sleep_now()

    assert ended.stderr == b"<4>power: scheduled sleep skipped, a stream session is live\n"
    assert ended.returncode == 0
    assert terminal.what_it_called() == ""


def test_an_unknown_argument_ends_it_before_any_sleep(terminal):
    terminal.write_state(PowerPolicy=policy(True))

    ended = subprocess.run(
        [os.path.abspath(EXECUTABLE), "--state-dir", terminal.place / "state", "--sleep-now", "--bogus"],
        stdin=subprocess.DEVNULL, capture_output=True, timeout=DEADLINE, check=False)

    assert ended.stderr == b"tarnvale-kioskd: unknown argument --bogus\n"
    assert ended.returncode == 2
    assert terminal.what_it_called() == ""
