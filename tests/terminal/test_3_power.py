"""Chapter 3: the terminal sleeps and wakes when its policy says so, and not under a person who uses it."""

import time
from datetime import datetime, timedelta, timezone

from striker import strikes
from terminal import KIOSK

POWER_ENV = "/etc/tarnvale-kiosk/power.env"
DROP_IN = "/etc/systemd/logind.conf.d/60-tarnvale-kiosk.conf"
TIMER = "tarnvale-kiosk-sleep.timer"
EVERY_DAY = [0, 1, 2, 3, 4, 5, 6]
QUIET = {"screenOffMinutes": 15, "sleepMinutes": 0,
         "schedule": {"enabled": False, "sleepAt": "22:00", "wakeAt": "07:00", "days": [1, 2, 3, 4, 5]}}
ASLEEP = timedelta(minutes=2)
IDLE_FOR = timedelta(minutes=1)
BETWEEN_KEYS_S = 2
# Between two looks at two clocks, a guest that is busy may take a while.
CLOCKS_AGREE = timedelta(seconds=20)


def test_a_policy_reaches_the_idle_watcher_logind_and_the_timers(terminal, saw):
    log = terminal.log()
    watcher = idle_watcher(terminal)
    sleep_at = far_from_now(terminal)
    wake_at = sleep_at + ASLEEP
    schedule = {"enabled": True, "sleepAt": f"{sleep_at:%H:%M}", "wakeAt": f"{wake_at:%H:%M}", "days": EVERY_DAY}
    terminal.portal.set(power={"screenOffMinutes": 5, "sleepMinutes": 60, "schedule": schedule})

    log.wait_for(f"power: sleep at Sun,Mon,Tue,Wed,Thu,Fri,Sat {sleep_at:%H:%M}:00, wake at {wake_at:%H:%M}")

    assert terminal.read(POWER_ENV) == "SCREEN_OFF_SECONDS=300\nSLEEP_SECONDS=3600"
    assert terminal.idle_action() == ['s "suspend"', "t 3600000000"]
    assert next_sleep(terminal) == sleep_at
    saw(f"logind would suspend after an hour of idleness; systemd lists {TIMER} for {sleep_at}")
    anew = terminal.until("a new idle watcher", lambda: (now := idle_watcher(terminal)) not in ("", watcher) and now)
    terminal.until("its first line", lambda: terminal.try_run(
        f"journalctl --quiet _PID={anew} --output cat | grep -Fx 'idle watcher: screen off after 300 s, sleep after 3600 s'"
    ).status == 0)
    saw(f"swayidle {watcher} was ended; {anew} has the new times")


def test_logind_holds_the_terminal_for_idle_only_while_no_key_comes(terminal, saw):
    terminal.until("idle", lambda: idle_hint(terminal) == "yes")

    until_in_use(terminal, "in use", lambda: idle_hint(terminal) == "no")

    terminal.until("idle again", lambda: idle_hint(terminal) == "yes")
    saw("logind's idle hint of the kiosk session: yes, no after a key, yes again without one")


def test_a_logind_that_is_started_anew_is_told_again(terminal, saw):
    terminal.until("idle", lambda: idle_hint(terminal) == "yes")
    before = idle_since(terminal)

    restart_logind(terminal)

    terminal.until("idle anew", lambda: idle_hint(terminal) == "yes" and idle_since(terminal) > before)
    assert terminal.ask("status")["kioskSession"]
    saw("a new logind knows the kiosk session and not that it is idle, and is told; the service knows the session too")


def test_sigkills_at_random_moments_leave_the_schedule_as_it_is(terminal, saw):
    sleep_at, watcher = next_sleep(terminal), idle_watcher(terminal)

    with strikes(terminal, 3, within_s=5):
        terminal.portal.wait_for_check_in(2)

    assert next_sleep(terminal) == sleep_at
    assert idle_watcher(terminal) == watcher
    assert terminal.idle_action() == ['s "suspend"', "t 3600000000"]
    saw(f"killed and started again, the service has nothing to change: systemd still lists {sleep_at}")


def test_a_live_stream_holds_the_scheduled_sleep_off(terminal, saw):
    log = terminal.log()
    sleep_at = next_sleep(terminal)
    terminal.machine.forget_events()
    # Early enough for the report, and late enough for it to be fresh when the timer fires.
    set_clock(terminal, sleep_at - timedelta(seconds=130))
    assert terminal.ask("session.report", signedIn=True, live=True)["ok"]

    set_clock(terminal, sleep_at - timedelta(seconds=2))

    log.wait_for("power: scheduled sleep skipped, a stream session is live")
    next_at = terminal.until("the next day's", lambda: (listed := next_sleep(terminal)) != sleep_at and listed)
    assert next_at == sleep_at + timedelta(days=1)
    assert "SUSPEND" not in terminal.machine.events()
    assert not log.has("power: scheduled sleep, waking")
    saw(f"at {sleep_at} a live stream held the sleep off; the next is {next_at}")


def test_a_scheduled_sleep_suspends_the_machine_until_the_rtc_wakes_it(terminal, saw):
    log = terminal.log()
    sleep_at = next_sleep(terminal)
    wake_at = sleep_at + ASLEEP
    assert terminal.ask("session.report", signedIn=False)["ok"]
    terminal.machine.forget_events()

    set_clock(terminal, sleep_at - timedelta(seconds=20))  # time for the guest's agent to answer before it sleeps
    ahead = now(terminal) - datetime.now(timezone.utc)
    slept = terminal.machine.wait_for_event("SUSPEND", 300) + ahead
    woke = terminal.machine.wait_for_event("WAKEUP", 300) + ahead
    terminal.machine.wait_until_awake()

    log.wait_for(f"power: scheduled sleep, waking at {wake_at.timestamp():.0f}")
    assert sleep_at - CLOCKS_AGREE <= slept < wake_at, slept
    assert abs(woke - wake_at) <= CLOCKS_AGREE, woke
    assert now(terminal) >= woke - CLOCKS_AGREE
    saw(f"the machine suspended to memory at {slept:%H:%M:%S} and its RTC woke it at {woke:%H:%M:%S}, for {wake_at:%H:%M}")


def test_the_schedule_outlives_a_restart_of_the_machine(terminal, saw):
    assert terminal.ask("status")["kioskSession"]
    sleep_at = next_sleep(terminal)

    terminal.restart()

    terminal.wait_for_kiosk()
    anew = next_sleep(terminal)
    assert anew.time() == sleep_at.time() and anew - now(terminal) <= timedelta(days=1), anew
    assert terminal.idle_action() == ['s "suspend"', "t 3600000000"]
    saw(f"awake, the terminal went on; restarted, with the RTC's time again, it lists {anew} and has its idle time")


def test_logind_does_not_suspend_a_terminal_in_use(terminal, saw):
    policy = terminal.portal.shown()["settings"]["power"]
    terminal.portal.set(power={**policy, "sleepMinutes": 1})
    terminal.until("logind's new idle time", lambda: terminal.idle_action() == ['s "suspend"', "t 60000000"])
    # It counts by the idle time that it began to count with. A machine that was started with this one might go to sleep
    # on its way up; a logind that is started anew stands for it.
    restart_logind(terminal)
    terminal.machine.forget_events()

    use_for(terminal, 2 * IDLE_FOR)

    assert "SUSPEND" not in terminal.machine.events()
    assert terminal.ask("status")["kioskSession"]
    saw(f"{2 * IDLE_FOR} with a key now and then: awake, though logind suspends after {IDLE_FOR} of idleness")


def test_logind_suspends_a_terminal_that_nobody_uses(terminal, saw):
    terminal.machine.wait_for_event("SUSPEND", 300)

    terminal.machine.wake()

    terminal.machine.wait_for_event("WAKEUP", 300)
    terminal.machine.press_key()  # it could not go to sleep a second time, and its idle time is a minute
    terminal.machine.wait_until_awake()
    saw("without keys it went to sleep, and a button woke it")


def test_the_policy_can_be_taken_back(terminal, saw):
    log = terminal.log()
    terminal.portal.set(power=QUIET)

    until_in_use(terminal, "logind ignores idleness", lambda: terminal.idle_action()[0] == 's "ignore"')
    until_in_use(terminal, "the schedule is gone", lambda: log.has("power: removed the sleep schedule"))

    assert TIMER not in terminal.run("systemctl list-timers --all --no-legend --no-pager")
    assert terminal.run(f"systemctl show --property LoadState --value {TIMER}") == "not-found"
    assert not terminal.exists(DROP_IN)
    assert terminal.read(POWER_ENV) == "SCREEN_OFF_SECONDS=900\nSLEEP_SECONDS=0"
    saw("it answers, checks in and follows: no timer, no drop-in, logind ignores idleness")


def restart_logind(terminal):
    terminal.run("systemctl restart systemd-logind.service")


def use_for(terminal, duration):
    """Presses a key now and then for so long."""
    end = time.monotonic() + duration.total_seconds()
    while time.monotonic() < end:
        terminal.machine.press_key()
        time.sleep(BETWEEN_KEYS_S)


def until_in_use(terminal, event, probe):
    """Waits like until(), while somebody presses keys."""
    def press_and_probe():
        terminal.machine.press_key()
        return probe()
    return terminal.until(event, press_and_probe)


def far_from_now(terminal):
    """A full hour of today or tomorrow in the guest's time, which nobody's clock reaches during the test."""
    return next_full_hour(now(terminal) + timedelta(hours=6))


def next_full_hour(moment):
    return moment.replace(minute=0, second=0) + timedelta(hours=1)


def now(terminal):
    return moment_of(terminal.run("date +@%s"))


def moment_of(text):
    """Of systemd's "@SECONDS"."""
    return datetime.fromtimestamp(int(text.lstrip("@")), timezone.utc)


def set_clock(terminal, moment):
    terminal.set_clock(f"@{moment.timestamp():.0f}")


def next_sleep(terminal):
    """What systemd lists; the property of a timer is no number in any format."""
    listed = terminal.run(f"systemctl show --property NextElapseUSecRealtime --value {TIMER}")
    return moment_of(terminal.run(f"date --date '{listed}' +@%s"))


def idle_watcher(terminal):
    """The process id of the kiosk session's swayidle; the programs that it starts have its name for a moment."""
    return terminal.try_run(f"pgrep --oldest --uid {KIOSK} --exact swayidle").out.strip()


def idle_hint(terminal):
    return terminal.kiosk_session()["IdleHint"]


def idle_since(terminal):
    """When logind was told that the kiosk session is idle, in microseconds since the machine started."""
    return int(terminal.kiosk_session()["IdleSinceHintMonotonic"])
