"""Chapter 7: the terminal leaves its tenant, is somebody's copied image, and is paired anew."""

import pathlib
import re

from striker import strike, strikes
from tenant import SLEEP_TIMER, TRACES, set_everything, traces
from terminal import KIOSK, KIOSK_UNIT, LOGIN_PROMPT, STATE

# The first survives on purpose, so that pairing anew is no way round a lock-out; the last is put there by hand.
KEPT = {"MaintenanceFailures", "MaintenanceLockedUntil", "AuthBaseUrl"}
PENDING = {"AccountUid", "TeardownPending"}
OPERATIONS = pathlib.Path(__file__).parents[2] / "docs/operations.md"
MODE_ROW = re.compile(r"^\| `(/[^`]+)`[^|]*\| (0\d{3}) \|", re.MULTILINE)
# A process of the account outside all its sessions: what logind ends does not include it.
STRAY = "terminal-stray.service"


def test_the_terminal_carries_what_its_portal_set(terminal, saw):
    set_everything(terminal)

    assert terminal.state()["TerminalName"] == "Lobby"
    saw("branding, idle times, a sleep timer and an updates drop-in are there")


def test_its_files_have_the_modes_that_operators_are_told(terminal, saw):
    told = {path.rstrip("/"): mode.lstrip("0") for path, mode in MODE_ROW.findall(OPERATIONS.read_text())}

    # Not all of them are there at any one time.
    looks = terminal.try_run(f"stat --format '%n %a %U' {' '.join(told)}").out.splitlines()

    found = {path: look for path, *look in map(str.split, looks)}
    assert found.keys() >= told.keys() & {STATE, *TRACES}, found
    assert found == {path: [told[path], "root"] for path in found}
    saw(f"{len(found)} files and directories, all of them root's, with the modes that docs/operations.md tells")


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
    assert SLEEP_TIMER not in terminal.run("systemctl list-timers --all --no-legend --no-pager")
    begun = sum("removing kiosk mode" in line for line in log.lines())
    saw(f"the service was killed after the removal had begun; it began {begun} times, and undid all but the account")


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
    saw("killed and started again, it tries again, and userdel refuses: a process of the account still runs")


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
    set_everything(terminal)
    terminal.run("tr --delete - </proc/sys/kernel/random/uuid >/etc/machine-id")
    terminal.restart()

    log = terminal.log_of_this_boot()
    assert "removing kiosk mode: the state belongs to another machine-id (a copied image)" in log, log
    assert "enrolled=0 provisioned=0" in log, log
    terminal.until("the account is gone", lambda: terminal.account() is None)
    assert set(terminal.state()) <= KEPT, terminal.state()
    assert not terminal.kiosk_session()
    terminal.until("the login prompt", lambda: terminal.is_active(LOGIN_PROMPT))
    assert traces(terminal) == []
    saw("paired and then started with another machine-id, the machine comes up unenrolled, with a login prompt")


def test_what_an_earlier_account_left_is_not_handed_to_the_next(terminal, saw):
    terminal.run(f"mkdir /home/{KIOSK}")

    refused = terminal.try_run("tarnvale-kiosk-setup enable --from-kioskd")

    assert (refused.status, terminal.account()) == (1, None), refused
    assert f"/home/{KIOSK} is left of an earlier account; remove it" in refused.err
    terminal.run(f"rmdir /home/{KIOSK}")
    saw("where a home of that name is left, the setup tool makes no account and says why")


def test_it_can_be_paired_anew(terminal, saw):
    assert terminal.pair()["provisioned"]

    terminal.wait_for_restart()

    session = terminal.wait_for_kiosk()
    # Debian 12's logind keeps the idle time of the former tenant until the machine restarts, and no longer.
    assert terminal.idle_action()[0] == 's "ignore"'
    saw(f"paired anew under the new machine-id, the terminal is a kiosk again, session {session['Id']}")
