"""SIGKILL for the service, at one moment or at many random ones, and what it must not lose by it.

    strike(terminal)                        one, now: between two steps of a story
    with strikes(terminal, 6, within_s=5):  six, each at a random moment after a start, while something happens

Systemd starts the service again each time. While strikes run, nobody answers at the control socket for seconds at a
time, so what happens meanwhile is what the portal and the terminal do by themselves.
"""

import contextlib
import itertools
import json
import os
import random

from terminal import SERVICE, STATE

STRIKER = "/usr/lib/tarnvale-world/striker"
UNIT = "terminal-striker.service"
FOUND = "/run/terminal-strikes"

# What a check-in, an automatic updates run and what follows on them may change at any time. All other keys change when
# somebody does something at the terminal or at the portal, and stay as they are over a SIGKILL.
BY_CHECK_IN = frozenset({
    "UnknownSince", "SignIn", "TerminalName", "PowerPolicy", "PowerSource", "PowerError", "UpdatesPolicy",
    "UpdatesSource", "OsUpdatesReport", "OsUpdatesWindowDone", "OwnsWuPolicy"})
# Those of them that only ever change into something else, and are never taken back.
NEVER_GONE = BY_CHECK_IN - {"UnknownSince", "PowerError", "OwnsWuPolicy"}
POLICIES = ("PowerPolicy", "UpdatesPolicy")

SEED = os.environ.get("KIOSK_STRIKE_SEED") or str(random.randrange(10**6))
bursts = itertools.count(1)


def strike(terminal, changes=()):
    """Kills the service once, as soon as may be; `changes` as for strikes."""
    with strikes(terminal, 1, within_s=0, changes=changes):
        pass


@contextlib.contextmanager
def strikes(terminal, count, within_s, changes=()):
    """Kills the service so often, while the body runs and to the end after it; then the service listens again.

    `changes` names the keys of the state that steps of the story change meanwhile, beside those of a check-in.
    The states that the kills left are in the list that the body gets, once it has ended.
    KIOSK_STRIKE_SEED repeats the moments of an earlier run.
    """
    before, starts, states = terminal.state(), restarts(terminal), []
    start_striker(terminal, choose_moments(count), count, within_s)
    yield states
    kills = wait_for_end(terminal)
    terminal.until("the service listens", terminal.service_answers)
    assert len(kills) == count, kills
    assert restarts(terminal) == starts + count
    for kill in [*kills, {"after": "some", "state": terminal.read(STATE)}]:
        states.append(check_state(before, kill, frozenset(changes)))


def choose_moments(count):
    """The seed of one burst; they differ, and repeat in each run with the same KIOSK_STRIKE_SEED."""
    if count > 1:
        print(f"  {count} SIGKILLs at random moments, KIOSK_STRIKE_SEED={SEED}", flush=True)
    return f"{SEED}-{next(bursts)}"


def start_striker(terminal, *arguments):
    line = " ".join(map(str, (STRIKER, *arguments)))
    terminal.run(f"rm -f {FOUND}; "
                 f"systemd-run --quiet --collect --unit={UNIT} --property=StandardOutput=file:{FOUND} {line}")


def wait_for_end(terminal):
    """Until the last kill is done and the service runs again; answers with what each kill left."""
    terminal.until("the end of the strikes", lambda: not terminal.is_active(UNIT))
    return [json.loads(line) for line in terminal.read(FOUND).splitlines()]


def restarts(terminal):
    """How often systemd has started the service again by itself."""
    return int(terminal.run(f"systemctl show --property NRestarts --value {SERVICE}"))


def check_state(before, kill, changes):
    """The dead service left a whole state, and in it everything that nobody changed. Answers with it."""
    left = json.loads(kill["state"])
    lost = {key for key in before.keys() - BY_CHECK_IN - changes if left.get(key) != before[key]}
    lost |= {key for key in before.keys() & NEVER_GONE - changes if before[key] and not left.get(key)}
    assert not lost, f"killed {kill['after']} s after a start, the service lost {lost}: {left}"
    for policy in POLICIES:
        assert left.get(policy) is None or isinstance(json.loads(left[policy]), dict), left
    return left
