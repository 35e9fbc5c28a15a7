"""A disk that does not take the state: memory goes ahead, and the next save that works has it all."""

import os

import pytest

from peers import call_as
from scripted_portal import answer


@pytest.fixture
def disk(small_disk, place):
    """That of the state directory."""
    return small_disk(place / "state")


@pytest.fixture
def pairing(disk, make_service, portal):
    """An unenrolled service that has told an error; beginning to pair clears it, which saves."""
    portal.pairs("ABCD2345", answer(200, {"deviceToken": "secret"})).checks_in(answer(500))
    service = make_service("--auth-base", portal.url, "--no-local-session")
    return service.write_state({"DevAllowAnyCaller": 1, "LastError": "no_client"}).start()


def test_a_full_disk_keeps_the_old_file_while_memory_goes_ahead(pairing, disk):
    disk.fill()

    assert call_as(pairing, {"cmd": "pair.begin"})["ok"]

    assert "error" not in pairing.send({"cmd": "status"})
    assert pairing.state() == {"DevAllowAnyCaller": 1, "LastError": "no_client"}
    assert f"<3>cannot write {disk.path}/state.json (No space left on device)\n" in pairing.log.lines
    assert sorted(os.listdir(disk.path)) == ["filler", "state.json"]


def test_the_next_save_after_a_full_disk_has_everything(pairing, disk):
    disk.fill()
    call_as(pairing, {"cmd": "pair.begin"})
    disk.clear()

    call_as(pairing, {"cmd": "pair.check", "code": "ABCD2345"})

    assert pairing.state()["LastError"] is None
    assert pairing.state()["DeviceToken"] == "secret"


def test_a_disk_that_is_read_only_is_told_and_recovers(pairing, disk):
    disk.remount("ro")
    call_as(pairing, {"cmd": "pair.begin"})

    assert f"<3>cannot create {disk.path}/state.json.tmp (Read-only file system)\n" in pairing.log.lines
    assert "error" not in pairing.send({"cmd": "status"})

    disk.remount("rw")
    call_as(pairing, {"cmd": "pair.check", "code": "ABCD2345"})
    assert pairing.state()["LastError"] is None


def test_a_token_that_cannot_be_saved_is_held_all_the_same(pairing, disk):
    call_as(pairing, {"cmd": "pair.begin"})
    disk.fill()

    assert call_as(pairing, {"cmd": "pair.check", "code": "ABCD2345"})["paired"]

    assert pairing.send({"cmd": "status"})["enrolled"]
    assert "DeviceToken" not in pairing.state()
