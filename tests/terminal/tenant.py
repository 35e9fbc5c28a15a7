"""What a terminal carries that belongs to somebody, outside the service's state."""

SLEEP_TIMER = "tarnvale-kiosk-sleep.timer"
# What acts by itself, with or without the service.
ACTING = (
    "/etc/systemd/logind.conf.d/60-tarnvale-kiosk.conf", f"/etc/systemd/system/{SLEEP_TIMER}",
    "/etc/systemd/system/tarnvale-kiosk-sleep.service", f"/etc/systemd/system/timers.target.wants/{SLEEP_TIMER}",
    "/etc/apt/apt.conf.d/52tarnvale-kiosk-updates")
TRACES = ("/var/cache/tarnvale-kiosk/branding/branding.json", "/etc/tarnvale-kiosk/power.env", *ACTING)


def traces(terminal):
    return [path for path in TRACES if terminal.exists(path)]


def set_everything(terminal):
    """Has the portal's administrator set all that leaves a trace, and waits until the terminal carries it."""
    other_day = [(int(terminal.run("date +%w")) + 3) % 7]  # nothing of this is to happen during a chapter
    terminal.portal.set(
        name="Lobby", branding={"displayName": "Tarn", "signInSubtitle": "Hello", "photos": 1},
        power={"screenOffMinutes": 7, "sleepMinutes": 20,
               "schedule": {"enabled": True, "sleepAt": "23:00", "wakeAt": "05:00", "days": other_day}},
        updates={"automatic": True, "window": {"start": "02:00", "end": "02:30", "days": other_day}})
    wait_for_everything(terminal)


def wait_for_everything(terminal):
    terminal.until("all that a policy leaves on the disk", lambda: traces(terminal) == list(TRACES))
    terminal.until("the sleep timer", lambda: terminal.is_active(SLEEP_TIMER))
