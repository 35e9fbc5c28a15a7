"""Very many connections, a lack of descriptors, and what is left of either: nothing."""

import errno
import os
import resource
import socket
import subprocess

import pytest

from kioskd import read_all, wait_until
from peers import call_as


STATUS = b'{"cmd":"status"}\n'


@pytest.fixture(autouse=True)
def many_descriptors():
    """This process holds the other end of each connection."""
    soft, hard = resource.getrlimit(resource.RLIMIT_NOFILE)
    resource.setrlimit(resource.RLIMIT_NOFILE, (hard, hard))
    yield
    resource.setrlimit(resource.RLIMIT_NOFILE, (soft, hard))


def connect_without_waiting(service, most):
    """Up to so many connections; fewer when the service does not accept any more."""
    peers = []
    while len(peers) < most:
        peer = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        peer.setblocking(False)
        try:
            peer.connect(str(service.socket_path))
        except BlockingIOError:
            peer.close()
            return peers
        peers.append(peer)
    return peers


def close_all(peers):
    for peer in peers:
        peer.close()


LIMIT = 48
# What the service keeps for its own work when peers take all that they can get.
RESERVE = 16


def exhaust(service):
    """Connects until the service has no descriptors left but its reserve."""
    peers = []
    wait_until(lambda: peers.extend(connect_without_waiting(service, 2 * LIMIT))
               or len(service.descriptors()) >= LIMIT - RESERVE, "the service to run out of descriptors")
    return peers


def wait_for_descriptors(service):
    """Until the service has closed the connections whose peers have gone."""
    wait_until(lambda: len(service.descriptors()) < LIMIT - RESERVE - 4, "the descriptors to be back")


@pytest.fixture
def short_of_descriptors(make_service, bus):
    service = make_service(bus=bus.address, limits=[(resource.RLIMIT_NOFILE, LIMIT)])
    return service.write_state({"DevAllowAnyCaller": 1}).start()


def test_a_thousand_silent_connections_do_not_keep_the_service_from_serving(make_service):
    service = make_service(limits=[(resource.RLIMIT_NOFILE, 2048)])
    service.write_state({"DevAllowAnyCaller": 1}).start()
    threads = service.threads()

    peers = [service.connect() for _ in range(1000)]
    wait_until(lambda: service.threads() >= threads + 1000, "a thread for each connection")

    assert service.send({"cmd": "status"})["ok"]
    close_all(peers)
    wait_until(lambda: service.threads() == threads, "the threads to end")
    assert service.send({"cmd": "status"})["ok"]


def test_the_service_serves_again_when_descriptors_are_back(short_of_descriptors):
    close_all(exhaust(short_of_descriptors))
    wait_for_descriptors(short_of_descriptors)

    assert short_of_descriptors.send({"cmd": "status"})["ok"]


def test_a_lack_of_descriptors_does_not_end_the_service_in_its_talk_with_logind(short_of_descriptors):
    # The D-Bus library ends the process when it finds no descriptor for a call that waits, so a local
    # user could end the service with nothing but open connections.
    with short_of_descriptors.connect() as first:
        idle = exhaust(short_of_descriptors)

        first.sendall(STATUS)

        assert read_all(first).startswith(b'{"ok":true,')
        close_all(idle)
    wait_for_descriptors(short_of_descriptors)
    assert short_of_descriptors.send({"cmd": "status"})["ok"]


def test_all_who_hold_the_last_descriptors_may_ask_at_once(short_of_descriptors):
    # Each of them makes the service wait for logind, and each such wait takes a descriptor of its own.
    peers = exhaust(short_of_descriptors)

    for peer in peers:
        ask_unless_closed(peer)
    close_all(peers)
    wait_for_descriptors(short_of_descriptors)

    assert short_of_descriptors.send({"cmd": "status"})["ok"]


def ask_unless_closed(peer):
    try:
        peer.sendall(STATUS)
    except OSError:
        pass  # one of those that the service had no room for


@pytest.mark.root
def test_a_lack_of_threads_does_not_end_the_service(make_service, place):
    # For root the limit of processes does not count, so this service runs as somebody else.
    place.chmod(0o777)
    service = make_service(user=47111, limits=[(resource.RLIMIT_NPROC, 20)]).start()

    peers = connect_without_waiting(service, 40)
    wait_until(lambda: not service.is_running() or service.threads() >= 20, "the service to run out of threads")
    peers.extend(connect_without_waiting(service, 1))
    close_all(peers)
    wait_until(lambda: service.threads() < 10, "the threads to end")

    assert service.raw(STATUS).startswith(b'{"ok":true,')


def test_no_descriptor_is_left_of_requests_and_exchanges(make_service, portal, bus):
    portal.pairs()
    service = make_service("--auth-base", portal.url, "--no-local-session", bus=bus.address)
    service.write_state({"DevAllowAnyCaller": 1}).start()
    before = len(service.descriptors())

    for _ in range(25):
        assert call_as(service, {"cmd": "pair.begin"})["ok"]
        assert service.send({"cmd": "status"})["ok"]
        service.raw(b"[" * 9000)
        service.connect().close()

    wait_until(lambda: len(service.descriptors()) <= before, "no more descriptors than before")


def test_every_descriptor_but_the_standard_ones_is_closed_in_children(make_service, bus):
    service = make_service(bus=bus.address).write_state({"DevAllowAnyCaller": 1}).start()
    with service.connect():
        wait_until(lambda: service.threads() >= 4, "the connection's thread")
        kept = [number for number in service.descriptors() if number > 2 and not closes_on_exec(service, number)]

        assert kept == []


@pytest.mark.parametrize("closed", [[0], [1], [2], [0, 1, 2]], ids=str)
def test_nothing_takes_the_place_of_a_closed_standard_descriptor(make_service, closed):
    service = make_service().write_state({"DevAllowAnyCaller": 1})
    service.launch(stderr=subprocess.DEVNULL, closed=closed)
    wait_until(service.socket_path.is_socket, "the socket")

    standard = [os.readlink(f"/proc/{service.pid}/fd/{number}") for number in range(3)]

    assert standard == ["/dev/null"] * 3
    assert service.send({"cmd": "status"})["ok"]


def closes_on_exec(service, number):
    try:
        with open(f"/proc/{service.pid}/fdinfo/{number}", encoding="ascii") as file:
            flags = next(line for line in file if line.startswith("flags:"))
    except OSError as error:
        assert error.errno == errno.ENOENT  # one that was open for a moment only
        return True
    return int(flags.split()[1], 8) & os.O_CLOEXEC != 0
