"""Chapter 2: who is answered, and who is turned away."""

import json

import pytest

from striker import restarts, strikes
from terminal import CLIENT, KIOSK, PRESENCE, SERVICE

RESERVED = 16  # descriptors that the service keeps for itself
TOOL = "/usr/sbin/tarnvale-kioskctl"
NOT_THE_KIOSK = "session.report refused: the caller is not the kiosk account in its own session"


@pytest.fixture(scope="module", autouse=True)
def mira(terminal):
    terminal.console.sign_in("mira", "mira")
    yield
    terminal.console.sign_out()


@pytest.fixture
def group_writable_client(terminal):
    terminal.run(f"chmod g+w {CLIENT}")
    yield
    terminal.run(f"chmod g-w {CLIENT}")


def limit(terminal, name):
    return int(terminal.run(f"systemctl show --property {name} --value {SERVICE}"))


def asks(terminal, account, program, request):
    """What a process of the account hears: outside any session, with that program."""
    line = json.dumps({"cmd": request, "signedIn": True})
    as_account = f"setpriv --reuid {account} --regid {account} --clear-groups"
    return json.loads(terminal.run(f"{as_account} {program} --ask '{line}'"))


def presence(terminal):
    return json.loads(terminal.read(PRESENCE))


def test_status_tells_each_caller_what_it_is_to_the_terminal(terminal, saw):
    kiosk = terminal.ask("status")
    person = terminal.ask_as_person("status")
    root = json.loads(terminal.run(f"{TOOL} send status"))

    assert (kiosk["ok"], kiosk["enrolled"], kiosk["provisioned"], kiosk["maintenance"]) == (True, True, True, False), kiosk
    assert (kiosk["account"], kiosk["terminalName"]) == (KIOSK, terminal.portal.shown()["settings"]["name"]), kiosk
    assert kiosk["kioskSession"] is True
    assert person == root == {**kiosk, "kioskSession": False}
    saw("the kiosk session, mira at the console and root get the same status; only the first is the kiosk session")


def test_a_report_of_the_kiosk_session_is_in_the_presence_file(terminal, saw):
    log = terminal.log()
    before = int(terminal.run("date +%s%3N"))

    assert terminal.ask("session.report", signedIn=True, live=True) == {"ok": True}

    written = presence(terminal)
    assert (written["signedIn"], written["live"]) == (True, True), written
    assert before <= written["at"] <= int(terminal.run("date +%s%3N")), written
    assert terminal.run(f"stat --format '%a %U' {PRESENCE}") == "600 root"
    assert log.has("a Tarnvale user is signed in at the terminal")
    saw(f"a person signed in and a stream live: {written}, mode 0600, root's")


def test_a_report_that_makes_no_sense_leaves_the_file_as_it_is(terminal, saw):
    before = presence(terminal)

    assert terminal.ask("session.report", signedIn=False, live=1) == {"ok": False, "error": "invalid"}

    assert presence(terminal) == before
    saw("live as a number is invalid and changes nothing")


def test_another_person_may_not_report(terminal, saw):
    log = terminal.log()
    before = presence(terminal)

    assert terminal.ask_as_person("session.report", signedIn=False) == {"ok": False, "error": "not_permitted"}

    assert presence(terminal) == before
    assert log.has(NOT_THE_KIOSK, "warning")
    saw("mira with the right client is not permitted to report")


def test_the_kiosk_account_outside_its_session_may_not_report(terminal, saw):
    log = terminal.log()

    assert asks(terminal, KIOSK, CLIENT, "session.report") == {"ok": False, "error": "not_permitted"}

    assert log.has(NOT_THE_KIOSK, "warning")
    saw("nor is a process of the kiosk account that belongs to no session")


def test_the_report_ends_with_the_session_that_made_it(terminal, saw):
    reported = presence(terminal)
    session = terminal.kiosk_session()
    assert reported["live"]

    terminal.run("systemctl restart tarnvale-kiosk.service")

    cleared = terminal.until("the report is cleared", lambda: not (now := presence(terminal))["live"] and now)
    assert cleared["signedIn"] is False and cleared["at"] > reported["at"], cleared
    anew = terminal.wait_for_kiosk()
    assert anew["Id"] != session["Id"]
    saw(f"session {session['Id']} ended and its report with it: {cleared}; the kiosk is back in session {anew['Id']}")


def test_a_flood_of_silent_connections_meets_the_limit_of_descriptors(terminal, saw):
    starts = restarts(terminal)
    descriptors = limit(terminal, "LimitNOFILESoft")
    connections = 2 * descriptors  # as many threads would still be allowed

    def flood():
        met = json.loads(terminal.run(f"/usr/lib/tarnvale-world/flood {connections}"))
        assert met["threads"] <= descriptors - RESERVED, met
        # A silent connection ends after 15 s, and a host that is busy may not open enough of them at a time.
        return met if met["threads"] > 0.9 * descriptors else None

    met = terminal.until("a flood that meets the limit", flood)

    assert connections < limit(terminal, "TasksMax")
    assert terminal.ask("status")["kioskSession"]
    assert restarts(terminal) == starts
    saw(f"{connections} silent connections: {met['threads']} threads at most, {met['closed']} closed; then it answers again")


def test_sigkills_at_random_moments_leave_callers_what_they_are(terminal, saw):
    with strikes(terminal, 2, within_s=4):
        pass

    assert terminal.ask("session.report", signedIn=True, live=False) == {"ok": True}
    assert (presence(terminal)["signedIn"], presence(terminal)["live"]) == (True, False)
    assert terminal.ask_as_person("session.report", signedIn=False) == {"ok": False, "error": "not_permitted"}
    assert terminal.ask("session.report", signedIn=False)["ok"]
    saw("killed and started again, the service takes the report of the kiosk session, and none of mira's")


def test_another_program_is_refused(terminal, saw):
    log = terminal.log()

    reply = terminal.console.type(f"{TOOL} send status")

    assert json.loads(reply) == {"ok": False, "error": "caller_refused"}
    assert log.has(f"caller refused: {TOOL} is not {CLIENT}", "warning")
    saw(f"mira with {TOOL}: caller_refused")


@pytest.mark.parametrize("copy", ["/home/mira/tarnvale-stream", "/usr/local/bin/tarnvale-stream"])
def test_a_copy_of_the_client_is_refused(terminal, saw, copy):
    log = terminal.log()
    terminal.run(f"cp {CLIENT} {copy}")

    assert asks(terminal, "mira", copy, "status") == {"ok": False, "error": "caller_refused"}

    assert log.has(f"caller refused: {copy} is not {CLIENT}", "warning")
    terminal.run(f"rm {copy}")
    saw(f"the client's copy {copy}, root's own file: caller_refused")


def test_a_client_that_its_group_may_write_is_refused_even_to_the_kiosk(terminal, saw, group_writable_client):
    log = terminal.log()

    assert terminal.ask("status") == {"ok": False, "error": "caller_refused"}

    assert log.has(f"caller refused: {CLIENT} is writable by someone other than root", "warning")
    saw(f"with mode 0775 on {CLIENT} the kiosk session itself is refused")


def test_the_client_is_answered_again_once_its_mode_is_right(terminal, saw):
    assert terminal.run(f"stat --format %a {CLIENT}") == "755"

    assert terminal.ask("status")["kioskSession"]

    saw("with mode 0755 it is answered again")
