"""Chapter 8: SIGKILL at random moments, while the portal changes its mind."""

import json

from striker import strikes

KILLS = 8
# A start is over in less, and so is most of what a check-in changes.
WITHIN_S = 6
CHANGES = 6


def word_of_the_portal(number):
    """Settings of which each number has its own."""
    return {
        "name": f"Lobby {number}",
        "power": {"screenOffMinutes": 5 + number, "sleepMinutes": 60 + number,
                  "schedule": {"enabled": False, "sleepAt": "22:00", "wakeAt": "07:00", "days": [1]}},
        "updates": {"automatic": False, "window": {"start": f"02:{number:02}", "end": "05:00", "days": [1]}},
        "branding": {"displayName": f"Tarn {number}", "signInSubtitle": "Hello",
                     "photos": {"count": 2, "first": number}}}


def test_a_burst_of_kills_loses_nothing_that_was_known(terminal, saw):
    before = terminal.wait_for_kiosk()
    name = terminal.until("its name", lambda: terminal.state().get("TerminalName"))
    words = [word_of_the_portal(number) for number in range(1, CHANGES + 1)]
    names = [name, *(word["name"] for word in words)]

    with strikes(terminal, KILLS, within_s=WITHIN_S) as states:
        for word in words:
            terminal.portal.set(**word)
            terminal.portal.wait_for_check_in()

    came = [names.index(state["TerminalName"]) for state in states]
    assert came == sorted(came), states
    assert terminal.kiosk_session()["Id"] == before["Id"]
    saw(f"{KILLS} times killed and started again; each time the state was whole, and the kiosk session never noticed")


def test_in_the_end_the_portals_last_word_stands(terminal, saw):
    last = word_of_the_portal(CHANGES)

    terminal.until("the last name", lambda: terminal.state().get("TerminalName") == last["name"])
    terminal.portal.wait_for_check_in(2)  # what the first was given is on the disk when the second comes

    state = terminal.state()
    assert json.loads(state["PowerPolicy"]) == last["power"]
    assert json.loads(state["UpdatesPolicy"]) == last["updates"]
    assert f"SLEEP_SECONDS={last['power']['sleepMinutes'] * 60}" in terminal.read("/etc/tarnvale-kiosk/power.env")
    branding = json.loads(terminal.read("/var/cache/tarnvale-kiosk/branding/branding.json"))
    assert branding["displayName"] == last["branding"]["displayName"]
    kept = set(terminal.run("ls /var/cache/tarnvale-kiosk/branding").split())
    assert kept == {"branding.json", *(photo["sha256"] for photo in branding["photos"])}
    saw(f"name, policies and branding are the portal's last: {state['TerminalName']}, {branding['displayName']}")


def test_nothing_half_written_is_left(terminal, saw):
    directories = ("/var/lib/tarnvale-kiosk /run/tarnvale /var/cache/tarnvale-kiosk /etc/tarnvale-kiosk "
                   "/etc/systemd /etc/apt/apt.conf.d")

    assert terminal.run(f"find {directories} -name '*.tmp'") == ""

    saw("no half-written file is left where the service writes")
