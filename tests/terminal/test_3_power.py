"""Chapter 3: the terminal sleeps and wakes when its policy says so, and not under a person who uses it."""

from datetime import datetime, timedelta, timezone

from terminal import KIOSK

POWER_ENV = "/etc/tarnvale-kiosk/power.env"
DROP_IN = "/etc/systemd/logind.conf.d/60-tarnvale-kiosk.conf"
TIMER = "tarnvale-kiosk-sleep.timer"
EVERY_DAY = [0, 1, 2, 3, 4, 5, 6]
QUIET = {"screenOffMinutes": 15, "sleepMinutes": 0,
         "schedule": {"enabled": False, "sleepAt": "22:00", "wakeAt": "07:00", "days": [1, 2, 3, 4, 5]}}
ASLEEP = timedelta(minutes=2)
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
    assert idle_action(terminal) == ['s "suspend"', "t 3600000000"]
    assert next_sleep(terminal) == sleep_at
    saw(f"logind would suspend after an hour of idleness; systemd lists {TIMER} for {sleep_at}")
    anew = terminal.until("a new idle watcher", lambda: (now := idle_watcher(terminal)) not in ("", watcher) and now)
    terminal.until("its first line", lambda: terminal.try_run(
        f"journalctl --quiet _PID={anew} --output cat | grep -Fx 'idle watcher: screen off after 300 s, sleep after 3600 s'"
    ).status == 0)
    saw(f"swayidle {watcher} was ended; {anew} has the new times")


def test_logind_holds_the_terminal_for_idle_only_while_no_key_comes(terminal, saw):
    terminal.until("idle", lambda: idle_hint(terminal) == "yes")

    terminal.machine.press_key()

    terminal.until("in use", lambda: idle_hint(terminal) == "no")
    terminal.until("idle again", lambda: idle_hint(terminal) == "yes")
    saw("logind's idle hint of the kiosk session: yes, no after a key, yes again without one")


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
    terminal.machine.wait_until_it_answers()

    log.wait_for(f"power: scheduled sleep, waking at {wake_at.timestamp():.0f}")
    assert sleep_at - CLOCKS_AGREE <= slept < wake_at, slept
    assert abs(woke - wake_at) <= CLOCKS_AGREE, woke
    assert now(terminal) >= woke - CLOCKS_AGREE
    saw(f"the machine suspended to memory at {slept:%H:%M:%S} and its RTC woke it at {woke:%H:%M:%S}, for {wake_at:%H:%M}")


def test_the_terminal_goes_on_after_the_sleep_and_the_schedule_can_be_taken_back(terminal, saw):
    log = terminal.log()
    assert terminal.ask("status")["kioskSession"]
    terminal.portal.set(power=QUIET)

    terminal.portal.wait_for_check_in()
    log.wait_for("power: removed the sleep schedule")

    assert TIMER not in terminal.run("systemctl list-timers --all --no-legend --no-pager")
    assert terminal.run(f"systemctl show --property LoadState --value {TIMER}") == "not-found"
    assert not terminal.exists(DROP_IN)
    assert idle_action(terminal)[0] == 's "ignore"'
    assert terminal.read(POWER_ENV) == "SCREEN_OFF_SECONDS=900\nSLEEP_SECONDS=0"
    terminal.run("hwclock --hctosys --utc")
    saw("it answers, checks in and follows: no timer, no drop-in, logind ignores idleness")


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
    """The process id of the kiosk session's swayidle."""
    return terminal.try_run(f"pgrep --uid {KIOSK} --exact swayidle").out.strip()


def idle_hint(terminal):
    return terminal.kiosk_session()["IdleHint"]


def idle_action(terminal):
    """logind's own view: what it does when nobody does anything, and after how many microseconds."""
    manager = "org.freedesktop.login1 /org/freedesktop/login1 org.freedesktop.login1.Manager"
    return terminal.run(f"busctl get-property {manager} IdleAction IdleActionUSec").splitlines()
