"""Values of the terminal's settings, and checks over many requests for them and over the files they change."""

from kioskd import compact

INVALID = {"ok": False, "error": "invalid"}


def policy(screen=15, sleep=0, enabled=False, sleep_at="22:00", wake_at="07:00", days=(1, 2, 3, 4, 5)):
    """A power policy as the portal sends it and the service writes it."""
    return {"screenOffMinutes": screen, "sleepMinutes": sleep,
            "schedule": {"enabled": enabled, "sleepAt": sleep_at, "wakeAt": wake_at, "days": list(days)}}


def stamps(*paths):
    """What changes when anybody touches the files."""
    return [(str(path), path.stat().st_ino, path.stat().st_mtime_ns, path.stat().st_ctime_ns) for path in paths]


def check_rows(rows, ask):
    """Asks for each row's reply; fails with all rows that got another one."""
    wrong = []
    for request, expected in rows:
        reply = ask(request)
        if reply != expected:
            wrong.append(f"{compact(request)}\n  got      {compact(reply)}\n  expected {compact(expected)}")
    assert not wrong, "\n".join(wrong)
