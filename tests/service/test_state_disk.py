"""A disk that does not take the state: memory goes ahead, and the next save that works has it all."""

import os
import subprocess

import pytest

from peers import call_as
from scripted_portal import answer


@pytest.fixture
def disk(place):
    """A state directory on a disk of its own, of 64 KiB."""
    path = place / "state"
    path.mkdir()
    subprocess.run(["mount", "-t", "tmpfs", "-o", "size=64k", "tmpfs", path], check=True)
    yield path
    subprocess.run(["umount", path], check=True)


@pytest.fixture
def pairing(disk, make_service, portal):
    """An unenrolled service that has told an error; beginning to pair clears it, which saves."""
    portal.pairs("ABCD2345", answer(200, {"deviceToken": "secret"})).checks_in(answer(500))
    service = make_service("--auth-base", portal.url, "--no-local-session")
    return service.write_state({"DevAllowAnyCaller": 1, "LastError": "no_client"}).start()


@pytest.fixture(autouse=True)
def ends_before_its_disk(pairing):
    yield
    pairing.stop()


def fill(disk):
    with open(disk / "filler", "wb", buffering=0) as filler:
        try:
            while True:
                filler.write(b"x" * 4096)
        except OSError:
            return


def remount(disk, how):
    subprocess.run(["mount", "-o", f"remount,{how}", disk], check=True)


def test_a_full_disk_keeps_the_old_file_while_memory_goes_ahead(pairing, disk):
    fill(disk)

    assert call_as(pairing, {"cmd": "pair.begin"})["ok"]

    assert "error" not in pairing.send({"cmd": "status"})
    assert pairing.state() == {"DevAllowAnyCaller": 1, "LastError": "no_client"}
    assert f"<3>cannot write {disk}/state.json (No space left on device)\n" in pairing.log.lines
    assert sorted(os.listdir(disk)) == ["filler", "state.json"]


def test_the_next_save_after_a_full_disk_has_everything(pairing, disk):
    fill(disk)
    call_as(pairing, {"cmd": "pair.begin"})
    (disk / "filler").unlink()

    call_as(pairing, {"cmd": "pair.check", "code": "ABCD2345"})

    assert pairing.state()["LastError"] is None
    assert pairing.state()["DeviceToken"] == "secret"


def test_a_disk_that_is_read_only_is_told_and_recovers(pairing, disk):
    remount(disk, "ro")
    call_as(pairing, {"cmd": "pair.begin"})

    assert f"<3>cannot create {disk}/state.json.tmp (Read-only file system)\n" in pairing.log.lines
    assert "error" not in pairing.send({"cmd": "status"})

    remount(disk, "rw")
    call_as(pairing, {"cmd": "pair.check", "code": "ABCD2345"})
    assert pairing.state()["LastError"] is None


def test_a_token_that_cannot_be_saved_is_held_all_the_same(pairing, disk):
    call_as(pairing, {"cmd": "pair.begin"})
    fill(disk)

    assert call_as(pairing, {"cmd": "pair.check", "code": "ABCD2345"})["paired"]

    assert pairing.send({"cmd": "status"})["enrolled"]
    assert "DeviceToken" not in pairing.state()
