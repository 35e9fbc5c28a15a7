"""The fixtures of the simulator's tests."""

import pathlib
import subprocess
import sys

import pytest

sys.path.insert(0, str(pathlib.Path(__file__).parents[1] / "support"))

from portal_document import PortalDocument
from programs import TOOLS_DIR, Place
from simulated import Kiosk, Simulator, ask


@pytest.fixture
def place():
    directory = Place()
    yield directory.path
    directory.close()


@pytest.fixture
def portal():
    """The stand-in, which claims every code at once. What it was sent and has answered has to stand in the portal's
    description."""
    process = subprocess.Popen(
        [TOOLS_DIR / "portal" / "portal", "--port", "0", "--quiet", "--auto-claim", "0"],
        stdout=subprocess.PIPE, text=True,
    )
    url = process.stdout.readline().removeprefix("listening on ").strip()
    try:
        yield url
        assert PortalDocument().violations_of_records(ask(url, "/admin/requests?secrets=1")["requests"]) == []
    finally:
        process.terminate()
        process.wait()
        process.stdout.close()


@pytest.fixture
def keep():
    """Takes simulators that the test has started, and ends them with it."""
    started = []

    def take(simulator):
        started.append(simulator)
        return simulator

    yield take
    for simulator in started:
        simulator.process.kill()
        simulator.wait()


@pytest.fixture
def switch_on(place, portal, keep):
    """Starts simulators in a directory of the test's own, "t1" unless told otherwise."""
    return lambda *options, name="t1": keep(Simulator(place / name, "--auth-base", portal, *options))


@pytest.fixture
def kiosk(place, portal, keep):
    return keep(Kiosk(portal, place / "t1"))
