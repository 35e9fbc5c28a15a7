"""The words that every test here may use."""

import os
import pathlib
import shutil
import sys
import tempfile

import pytest

sys.path.insert(0, str(pathlib.Path(__file__).parents[1] / "support"))

from kiosk import Kiosk
from kioskd import Service
from logind import Bus
from portal_document import PortalDocument
from scripted_portal import ScriptedPortal
from small_disk import SmallDisk
from stand_in import StandIn
from terminal import CLIENT, Gate, Terminal


@pytest.fixture
def place():
    """A directory of the test's own. Its path is short, since the socket's has to be, and other users
    may enter it, since peers of other uids have to."""
    path = pathlib.Path(tempfile.mkdtemp(prefix="kioskd-"))
    path.chmod(0o755)
    yield path
    shutil.rmtree(path, ignore_errors=True)


@pytest.fixture
def make_service(place):
    """Makes services that end with the test. One that a test left running has to end cleanly, so the
    leak check of a sanitizer build counts for every test."""
    made = []

    def make(*options, **settings):
        service = Service(settings.pop("place", place), *options, **settings)
        made.append(service)
        return service

    yield make
    running = [service for service in made if service.process and service.is_running()]
    try:
        for service in running:
            assert service.stop() == 0, "".join(service.log.lines if service.log else [])
    finally:
        for service in made:
            service.kill()


@pytest.fixture
def service(make_service):
    """A started service that knows no portal, was never enrolled, and admits whoever runs the tests."""
    return make_service().write_state({"DevAllowAnyCaller": 1}).start()


@pytest.fixture(scope="session")
def portal_document():
    return PortalDocument()


@pytest.fixture
def portal(request, portal_document):
    """A portal that answers what the test tells it. Whatever a terminal has sent to it has to stand in the portal's
    description, unless the test is marked as one that makes the terminal send something else."""
    scripted = ScriptedPortal()
    yield scripted
    scripted.close()
    if not request.node.get_closest_marker("undescribed_requests"):
        expect_none([violation for sent in scripted.requests for violation in portal_document.violations_of_request(
            sent.method, sent.target, sent.headers, sent.body)])


@pytest.fixture(scope="session")
def shared_stand_in():
    made = StandIn()
    yield made
    made.close()


@pytest.fixture
def stand_in(shared_stand_in, portal_document):
    """The project's own portal, with no terminals yet. Whatever it was sent and has answered has to stand in the
    portal's description."""
    shared_stand_in.post("/admin/reset")
    yield shared_stand_in
    records = shared_stand_in.records()
    assert records, "no terminal came"
    expect_none(portal_document.violations_of_records(records))


@pytest.fixture(scope="session")
def shared_bus():
    path = pathlib.Path(tempfile.mkdtemp(prefix="kioskd-bus-"))
    path.chmod(0o755)
    private = Bus(path)
    yield private
    private.close()
    shutil.rmtree(path)


@pytest.fixture
def bus(shared_bus):
    """A private system bus with a logind that has no sessions yet."""
    shared_bus.logind.begin()
    return shared_bus


@pytest.fixture
def terminal(place):
    made = Terminal(place)
    yield made
    made.restore()


@pytest.fixture
def make_gate(place):
    """Makes gates that stand open when the test ends, so that no tool hangs behind one."""
    made = []

    def make(name):
        made.append(Gate(place / name))
        return made[-1]

    yield make
    for gate in made:
        gate.close()


@pytest.fixture
def installed(terminal, make_service, portal, bus):
    """A terminal that nobody has enrolled. The service of each of these is not started yet."""
    return Kiosk(make_service("--client", str(CLIENT), "--auth-base", portal.url, executable=terminal.install(),
                              bus=bus.address), portal, bus)


@pytest.fixture
def enrolled(installed, terminal):
    """An enrolled terminal with its kiosk session."""
    terminal.add_account()
    installed.enrol()
    return installed


@pytest.fixture
def kiosk(enrolled):
    """The same, with the tools of its settings recorded."""
    enrolled.replace("systemctl")
    enrolled.replace("nmcli")
    return enrolled


@pytest.fixture
def small_disk(place):  # whose removal comes after the disks'
    """Puts a small disk under a directory."""
    disks = []

    def mount(path):
        disks.append(SmallDisk(path))
        return disks[-1]

    yield mount
    for disk in disks:
        disk.unmount()


def pytest_configure(config):
    config.addinivalue_line("markers", "root: needs the rights of root")
    config.addinivalue_line("markers", "undescribed_requests(why): the portal's description leaves them out")


def expect_none(violations):
    assert not violations, "not as docs/portal-api.yaml says:\n" + "\n".join(violations)


def pytest_runtest_setup(item):
    if item.get_closest_marker("root") and os.geteuid() != 0:
        pytest.skip("needs root")
