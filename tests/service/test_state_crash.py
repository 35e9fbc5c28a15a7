"""A crash at any moment leaves the old state or the new one, whole, and the next start reads it."""

import json
import random
import time

from scripted_portal import answer

ROUNDS = 60
# Large, so that a save takes long enough to be met in the middle.
PADDING = "x" * 500_000


def policy(number):
    return {"screenOffMinutes": number % 241, "sleepMinutes": 0,
            "schedule": {"enabled": False, "sleepAt": "22:00", "wakeAt": "07:00", "days": []}}


def replies():
    """Check-in answers, each of which changes four keys, with a save for each."""
    return [answer(200, {"status": "enrolled", "name": f"Name {number}", "signIn": {"email": number % 2 == 0},
                         "power": policy(number), "powerSource": ["device", "tenant"][number % 2]})
            for number in range(ROUNDS + 1)]


def test_a_kill_in_the_middle_of_saves_leaves_a_whole_state(make_service, portal):
    source = random.Random(20260)
    portal.checks_in(*replies())
    service = make_service("--auth-base", portal.url)
    service.write_state({"DeviceToken": "secret", "Padding": PADDING})

    for number in range(ROUNDS):
        service.start()
        portal.wait_for("/api/kiosk/check-in", number + 1)
        # The moment is the point of this test: anywhere between the first save and the last.
        time.sleep(source.uniform(0, 0.04))
        service.process.kill()
        service.wait()

        assert "<6>enrolled=1 provisioned=0 maintenance=0\n" in service.log.lines, number
        state = json.loads(service.state_file.read_text())
        assert (state["DeviceToken"], state["Padding"]) == ("secret", PADDING), number

    assert "<6>enrolled=1 provisioned=0 maintenance=0\n" in service.start().log.lines
