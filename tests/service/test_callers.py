"""Who may talk to the service at all: root, and the one installed client program."""

import json
import os
import shlex
import socket

import pytest

from kioskd import DEADLINE, EXECUTABLE, read_all
from peers import PEER, STRANGER, call_as, launch_peer
from terminal import CLIENT, copy_program

STATUS = {"cmd": "status"}
REFUSED = {"ok": False, "error": "caller_refused"}
DEV_BUILD = "<4>this service is not installed (a dev build)"


@pytest.fixture
def installed(terminal, make_service):
    """The service in its place in the system, with DevAllowAnyCaller set: it must not matter."""
    service = make_service("--client", str(CLIENT), executable=terminal.install())
    return service.write_state({"DevAllowAnyCaller": 1}).start()


def test_an_installed_service_does_not_call_itself_a_dev_build(installed):
    assert installed.log.count(DEV_BUILD) == 0


@pytest.mark.parametrize("uid", [1, STRANGER])
def test_the_installed_client_is_admitted_whoever_runs_it(installed, uid):
    assert call_as(installed, STATUS, uid=uid, image=CLIENT)["ok"]


def test_root_is_admitted_with_any_program(installed):
    assert call_as(installed, STATUS, uid=0)["ok"]


def test_another_program_is_refused_and_told_in_the_log_alone(installed):
    assert call_as(installed, STATUS) == REFUSED
    assert installed.log.count(f"<4>caller refused: {PEER} is not {CLIENT}\n") == 1


def test_a_copy_of_the_client_elsewhere_is_refused(installed):
    copy = CLIENT.with_name("tarnvale-stream2")
    copy_program(CLIENT, copy, 0o755)

    assert call_as(installed, STATUS, image=copy) == REFUSED
    assert installed.log.count(f"<4>caller refused: {copy} is not {CLIENT}\n") == 1


@pytest.mark.parametrize("mode", [0o775, 0o757, 0o777], ids=oct)
def test_a_client_that_others_may_write_is_refused(installed, mode):
    CLIENT.chmod(mode)

    assert call_as(installed, STATUS, image=CLIENT) == REFUSED
    assert installed.log.count(f"<4>caller refused: {CLIENT} is writable by someone other than root\n") == 1


def test_a_client_of_another_owner_is_refused(installed):
    os.chown(CLIENT, STRANGER, 0)

    assert call_as(installed, STATUS, image=CLIENT) == REFUSED
    assert installed.log.count(f"<4>caller refused: {CLIENT} is writable by someone other than root\n") == 1


def test_a_client_that_was_replaced_while_it_runs_is_refused(installed):
    running = launch_peer(installed, STATUS, image=CLIENT, waits=True)
    copy_program(PEER, CLIENT, 0o755)

    output, _ = running.communicate(b"go\n")

    assert json.loads(output) == REFUSED
    assert installed.log.count(f"<4>caller refused: {CLIENT} (deleted) is not {CLIENT}\n") == 1


def hand_over_a_connection(service, channel):
    """The body of a child process: connects as somebody else, passes the connection on, and is gone."""
    try:
        os.setresgid(STRANGER, STRANGER, STRANGER)
        os.setresuid(STRANGER, STRANGER, STRANGER)
        with service.connect() as peer:
            socket.send_fds(channel, [b"x"], [peer.fileno()])
    finally:
        os._exit(0)


def connect_from_a_process_that_ends(service):
    """A connection whose other end, for the kernel, is a process that does not exist any more."""
    ours, theirs = socket.socketpair()
    with ours, theirs:
        child = os.fork()
        if child == 0:
            hand_over_a_connection(service, theirs)
        os.waitpid(child, 0)
        theirs.close()
        _, descriptors, _, _ = socket.recv_fds(ours, 1, 1)
    peer = socket.socket(fileno=descriptors[0])
    peer.settimeout(DEADLINE)
    return peer


def test_a_peer_whose_process_is_gone_is_refused(installed):
    with connect_from_a_process_that_ends(installed) as peer:
        peer.sendall(b'{"cmd":"status"}')

        assert json.loads(read_all(peer)) == REFUSED
    assert installed.log.count("<4>caller refused: caller image unknown\n") == 1


def test_a_peer_that_the_kernel_cannot_name_is_refused_even_as_root(terminal, make_service, place):
    # Seen from a process namespace of its own, a peer outside of it has the number 0.
    wrapper = place / "apart"
    wrapper.write_text(f'#!/bin/sh\nexec unshare --pid --fork --kill-child {shlex.quote(EXECUTABLE)} "$@"\n')
    wrapper.chmod(0o755)
    service = make_service(executable=wrapper).start()

    reply = service.send(STATUS)
    service.kill()

    assert reply == REFUSED
    assert service.log.count("<4>caller refused: no peer credentials\n") == 1


@pytest.mark.parametrize("mode, owner, installs", [
    (0o755, 0, True), (0o775, 0, False), (0o757, 0, False), (0o755, STRANGER, False)], ids=str)
def test_a_service_that_others_may_write_is_a_dev_build_also_in_its_place(
        terminal, make_service, mode, owner, installs):
    path = terminal.install()
    os.chown(path, owner, 0)
    path.chmod(mode)

    service = make_service(executable=path).start()

    assert service.log.count(DEV_BUILD) == (0 if installs else 1)


# A dev build.


def test_a_dev_build_refuses_all_but_root_until_it_is_allowed_by_hand(terminal, make_service):
    service = make_service().start()

    assert call_as(service, STATUS) == REFUSED
    assert call_as(service, STATUS, uid=0)["ok"]
    assert service.log.count("<4>caller refused: this service is not installed "
                             "and DevAllowAnyCaller is not set\n") == 1


@pytest.mark.parametrize("flag, admits", [(1, True), (2, False), (True, False), ("1", False)], ids=repr)
def test_only_the_number_1_allows_any_caller(terminal, make_service, flag, admits):
    service = make_service().write_state({"DevAllowAnyCaller": flag}).start()

    assert call_as(service, STATUS)["ok"] == admits
