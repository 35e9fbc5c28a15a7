"""The words that every test here may use."""

import os
import pathlib
import shutil
import tempfile

import pytest

from kioskd import Service
from logind import Bus
from scripted_portal import ScriptedPortal
from terminal import Terminal


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


@pytest.fixture
def portal():
    scripted = ScriptedPortal()
    yield scripted
    scripted.close()


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


def pytest_configure(config):
    config.addinivalue_line("markers", "root: needs the rights of root")


def pytest_runtest_setup(item):
    if item.get_closest_marker("root") and os.geteuid() != 0:
        pytest.skip("needs root")
