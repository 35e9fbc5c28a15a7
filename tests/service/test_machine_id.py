"""The token's binding to the machine, whose identity is read anew each time."""

import hashlib
import os

import pytest

from peers import call_as
from scripted_portal import answer
from terminal import MACHINE_ID

HERE = "0123456789abcdef0123456789abcdef"
WARNING = "<4>the device token was issued to another machine-id; ignoring it\n"


def hash_of(text):
    return hashlib.sha256(text.encode()).hexdigest()


@pytest.fixture
def bound(terminal, make_service):
    """A started service whose token belongs to this machine."""
    return make_service().write_state({"DeviceToken": "t", "DeviceId": hash_of(HERE)}).start()


def is_enrolled(service):
    return service.send({"cmd": "status"})["enrolled"]


def test_a_token_of_this_machine_counts(bound):
    assert is_enrolled(bound)
    assert bound.log.count(WARNING) == 0


def test_another_machine_id_unenrols_at_once_with_one_warning_and_the_old_one_enrols_again(bound, terminal):
    terminal.machine_id("another\n")
    assert not is_enrolled(bound)
    assert not is_enrolled(bound)
    assert bound.log.count(WARNING) == 1

    terminal.machine_id(f"  {HERE}\n\n")
    assert is_enrolled(bound)

    terminal.machine_id(None)
    assert not is_enrolled(bound)
    assert bound.log.count(WARNING) == 1
    assert bound.state()["DeviceToken"] == "t"


@pytest.mark.parametrize("text, counts", [
    (HERE + " " * 224, True), (HERE + " " * 225, False), ("", False), (" \n", False)],
    ids=["256 bytes", "257 bytes", "empty", "blank"])
def test_a_machine_id_counts_up_to_256_bytes(bound, terminal, text, counts):
    terminal.machine_id(text)

    assert is_enrolled(bound) == counts


@pytest.mark.parametrize("make", [
    lambda path: path.symlink_to("/etc/hostname"), os.mkfifo, os.mkdir], ids=["link", "FIFO", "directory"])
def test_a_machine_id_that_is_no_file_counts_as_none(bound, terminal, make):
    terminal.machine_id(None)
    make(MACHINE_ID)

    enrolled = is_enrolled(bound)
    os.rmdir(MACHINE_ID) if MACHINE_ID.is_dir() else MACHINE_ID.unlink()

    assert not enrolled


def test_a_cloned_image_comes_up_unenrolled_and_asks_the_portal_nothing(terminal, make_service, portal):
    service = make_service("--auth-base", portal.url)
    service.write_state({"DeviceToken": "t", "DeviceId": hash_of("the first machine")}).start()

    assert "<6>enrolled=0 provisioned=0 maintenance=0\n" in service.log.lines
    assert service.log.count(WARNING) == 1
    assert service.stop() == 0
    assert portal.requests == []


def test_a_token_without_a_machine_is_used_and_nothing_is_told(terminal, make_service):
    service = make_service().write_state({"DeviceToken": "t"}).start()

    assert is_enrolled(service)
    assert service.log.count(WARNING) == 0


def test_a_pairing_binds_the_token_to_the_machine(terminal, make_service, portal):
    portal.pairs("ABCD2345", answer(200, {"deviceToken": "fresh"})).checks_in(answer(500))
    service = make_service("--auth-base", portal.url, "--no-local-session")
    service.write_state({"DevAllowAnyCaller": 1}).start()
    call_as(service, {"cmd": "pair.begin"})

    call_as(service, {"cmd": "pair.check", "code": "ABCD2345"})

    assert service.state()["DeviceId"] == hash_of(HERE)
