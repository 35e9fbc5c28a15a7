"""Chapter 7: the terminal leaves its tenant, is somebody's copied image, and is paired anew."""

from log import JOURNAL
from striker import strike, strikes
from terminal import KIOSK, KIOSK_UNIT, LOGIN_PROMPT

SLEEP_TIMER = "tarnvale-kiosk-sleep.timer"
# What stands outside the state while the terminal belongs to somebody.
TRACES = (
    "/var/cache/tarnvale-kiosk/branding/branding.json", "/etc/tarnvale-kiosk/power.env",
    "/etc/systemd/logind.conf.d/60-tarnvale-kiosk.conf", f"/etc/systemd/system/{SLEEP_TIMER}",
    "/etc/systemd/system/tarnvale-kiosk-sleep.service", "/etc/apt/apt.conf.d/52tarnvale-kiosk-updates")
# The first survives on purpose, so that pairing anew is no way round a lock-out; the last is put there by hand.
KEPT = {"MaintenanceFailures", "MaintenanceLockedUntil", "AuthBaseUrl"}
PENDING = {"AccountUid", "TeardownPending"}
# A process of the account outside all its sessions: what logind ends does not include it.
STRAY = "terminal-stray.service"


def traces(terminal):
    return [path for path in TRACES if terminal.exists(path)]


def test_the_terminal_carries_what_its_portal_set(terminal, saw):
    other_day = [(int(terminal.run("date +%w")) + 3) % 7]  # nothing of this is to happen during the chapter
    terminal.portal.set(
        name="Lobby", branding={"displayName": "Tarn", "signInSubtitle": "Hello", "photos": 1},
        power={"screenOffMinutes": 7, "sleepMinutes": 20,
               "schedule": {"enabled": True, "sleepAt": "23:00", "wakeAt": "05:00", "days": other_day}},
        updates={"automatic": True, "window": {"start": "02:00", "end": "02:30", "days": other_day}})

    terminal.until("all that a policy leaves on the disk", lambda: traces(terminal) == list(TRACES))

    terminal.until("the sleep timer", lambda: terminal.is_active(SLEEP_TIMER))
    saw("branding, idle times, a sleep timer and an updates drop-in are there")


def test_a_revocation_undoes_everything_but_an_account_in_use(terminal, saw):
    log = terminal.log()
    terminal.run(f"systemd-run --quiet --uid={KIOSK} --unit={STRAY} sleep infinity")
    terminal.portal.revoke()
    log.wait_for("removing kiosk mode: removed in the portal (401, status revoked)")
    strike(terminal, changes=terminal.state().keys() - KEPT)

    log.wait_for("the kiosk account could not be removed yet; retrying at every start and check-in")

    assert log.has(f"cannot delete {KIOSK}", least="err")
    assert set(terminal.state()) - KEPT == PENDING, terminal.state()
    assert traces(terminal) == []
    assert not terminal.exists("/var/cache/tarnvale-kiosk/branding")
    assert terminal.try_run(f"systemctl is-enabled {KIOSK_UNIT}").out.strip() == "disabled"
    assert not terminal.is_active(SLEEP_TIMER)
    begun = sum("removing kiosk mode" in line for line in log.lines())
    saw(f"killed on the way, the removal began {begun} times and undid everything that the account does not keep")


def test_the_console_has_its_login_prompt_back(terminal, saw):
    assert terminal.is_active(LOGIN_PROMPT)
    assert not terminal.is_active(KIOSK_UNIT)
    assert KIOSK not in [session.get("Name") for session in terminal.sessions()]
    saw("the account has no session any more; the first console has a login prompt")


def test_the_account_stays_while_a_process_uses_it(terminal, saw):
    log = terminal.log()
    with strikes(terminal, 3, within_s=3):
        log.wait_for(f"cannot delete {KIOSK}")

    assert terminal.is_active(STRAY)
    assert terminal.account() and terminal.exists(f"/home/{KIOSK}")
    assert set(terminal.state()) - KEPT == PENDING, terminal.state()
    saw("each new start tries again, and userdel refuses: a process of the account, in no session, still runs")


def test_a_pending_removal_is_finished_once_nothing_uses_the_account(terminal, saw):
    log = terminal.log()
    terminal.run(f"systemctl stop {STRAY}")

    log.wait_for(f"the pending removal of {KIOSK} finished")

    assert terminal.account() is None
    assert not terminal.exists(f"/home/{KIOSK}")
    assert set(terminal.state()) <= KEPT, terminal.state()
    saw("that process ended, and the account and its home are gone")


def test_a_copied_image_comes_up_unenrolled(terminal, saw):
    assert terminal.pair()["provisioned"]
    terminal.wait_for_restart()
    terminal.run("tr --delete - </proc/sys/kernel/random/uuid >/etc/machine-id")
    terminal.restart()

    log = terminal.run(f"{JOURNAL} --boot --output cat")
    assert "removing kiosk mode: the state belongs to another machine-id (a copied image)" in log, log
    assert "enrolled=0 provisioned=0" in log, log
    terminal.until("the account is gone", lambda: terminal.account() is None)
    assert set(terminal.state()) <= KEPT, terminal.state()
    assert not terminal.kiosk_session() and terminal.is_active(LOGIN_PROMPT)
    saw("paired and then started with another machine-id, the machine comes up unenrolled, with a login prompt")


def test_it_can_be_paired_anew(terminal, saw):
    assert terminal.pair()["provisioned"]

    terminal.wait_for_restart()

    session = terminal.wait_for_kiosk()
    saw(f"paired anew under the new machine-id, the terminal is a kiosk again, session {session['Id']}")
