"""The branding cache of a real service: photos from a slow portal, traps in the directory, a full disk."""

import contextlib
import hashlib
import json
import os
import pathlib
import socket
import stat

import pytest

from kioskd import DEADLINE, wait_until
from logind import Session
from peers import call_as, launch_peer
from scripted_portal import answer
from terminal import CLIENT, KIOSK, KIOSK_UID

PHOTOS = "/api/kiosk/branding/photos/"
LARGEST = 16_777_216
MACHINE = hashlib.sha256(b"0123456789abcdef0123456789abcdef").hexdigest()
UNENROLLED = "<6>enrolled=0 provisioned=0 maintenance=0\n"


def digest_of(data):
    return hashlib.sha256(data).hexdigest()


def names_in(directory):
    return sorted(os.listdir(directory))


def branding_line(photos):
    return f'<6>branding: "Lobby" with {photos} photo(s)\n'


def cannot_remove(path):
    return f"<4>cannot remove {path} (Directory not empty)\n"


# Photos from the project's own portal.


class Tenant:
    """A terminal as the stand-in knows it, with photos."""

    def __init__(self, stand_in):
        self._stand_in = stand_in
        name, self.token = stand_in.enrol()
        self._path = f"/admin/terminals/{name}"
        self.digests = []

    def has(self, *wishes):
        """Gives it photos; a wish is a count, the number of the first one, and the size of each."""
        entries = []
        for count, first, size in wishes:
            photos = {"count": count, "first": first, "size": size}
            view = self._settings({"branding": {"displayName": "Lobby", "photos": photos}})
            entries += view["settings"]["branding"]["photos"]
        self._settings({"exitPassword": "swordfish", "branding": {"displayName": "Lobby", "photos": entries}})
        self.digests = [entry["sha256"] for entry in entries]

    def revoke(self):
        self._stand_in.post(self._path + "/revoke")

    def _settings(self, settings):
        return self._stand_in.post(self._path + "/settings", settings)


@pytest.fixture
def tenant(stand_in):
    return Tenant(stand_in)


@pytest.fixture
def service(terminal, make_service, stand_in, tenant, bus):
    """A service that is not started yet, on a provisioned terminal of that tenant with a kiosk session."""
    terminal.add_account()
    bus.logind.add(Session("k1", KIOSK_UID, KIOSK))
    service = make_service("--client", str(CLIENT), "--auth-base", stand_in.url,
                           executable=terminal.install(), bus=bus.address)
    return service.write_state({"DeviceToken": tenant.token, "DeviceId": MACHINE, "Provisioned": 1,
                                "AccountUid": str(KIOSK_UID)})


def photo_requests(stand_in):
    return [request["path"] for request in stand_in.get("/admin/requests")["requests"]
            if request["path"].startswith(PHOTOS)]


def slow_photos(stand_in):
    """The next photo comes when the fault is dropped, or after nearly as long as the service waits."""
    stand_in.post("/admin/faults", {"path": PHOTOS, "kind": "slow", "delayMs": 14000, "count": 1})


def start_into_a_slow_photo(service, stand_in):
    slow_photos(stand_in)
    service.start()
    wait_until(lambda: photo_requests(stand_in), "the first photo to be asked for")


def unlock(service):
    return call_as(service, {"cmd": "unlock", "password": "swordfish"}, uid=KIOSK_UID, session="k1", image=CLIENT)


def test_requests_are_answered_while_sixteen_photos_come_slowly(service, stand_in, tenant, place):
    tenant.has((1, 1, LARGEST), (15, 2, 65536))
    start_into_a_slow_photo(service, stand_in)

    status = service.send({"cmd": "status"})
    unlocked = unlock(service)

    assert (status["enrolled"], status["brandingDir"]) == (True, str(place / "branding"))
    assert unlocked["ok"] and len(unlocked["unlockToken"]) == 32
    assert names_in(place / "branding") == []
    stand_in.delete("/admin/faults")
    stand_in.post("/admin/faults", {"path": PHOTOS, "kind": "slow", "delayMs": 100})
    while service.log.count(branding_line(16)) == 0:
        assert service.send({"cmd": "status"})["ok"]
    assert names_in(place / "branding") == sorted([*tenant.digests, "branding.json"])
    for digest in tenant.digests:
        assert digest_of((place / "branding" / digest).read_bytes()) == digest
    assert photo_requests(stand_in) == [PHOTOS + digest for digest in tenant.digests]
    assert service.log.count(f"<6>branding photo {tenant.digests[0]} cached ({LARGEST} bytes)\n") == 1


def test_what_is_cached_costs_no_exchange_at_the_next_start(service, stand_in, tenant, place):
    tenant.has((1, 1, LARGEST), (2, 2, 0))
    service.start().log.wait_for(branding_line(3))
    service.stop()
    (place / "branding" / tenant.digests[1]).write_bytes(b"damaged")

    service.start()
    service.log.wait_for(f"<6>branding photo {tenant.digests[1]} cached (")

    service.stop()
    assert photo_requests(stand_in)[3:] == [PHOTOS + tenant.digests[1]]
    assert service.log.count("<6>branding: ") == 0


def test_a_photo_of_one_byte_too_many_is_refused_and_holds_up_no_other(service, tenant, place):
    tenant.has((1, 1, LARGEST + 1), (1, 2, 0))

    service.start().log.wait_for(branding_line(2))

    assert names_in(place / "branding") == sorted([tenant.digests[1], "branding.json"])
    refused = service.log.wait_for(f"<4>branding photo {tenant.digests[0]} not cached: ")
    assert refused.endswith((": empty or too large\n", ": the bytes do not match the digest\n"))


def test_a_terminal_that_is_removed_during_a_download_gets_nothing_back(
        service, stand_in, tenant, place, bus, terminal):
    ended = terminal.tool(pathlib.Path("/usr/bin/loginctl"), "exit 0")
    for path in ("/usr/bin/systemctl", "/usr/sbin/userdel"):
        terminal.tool(pathlib.Path(path), "exit 0")
    tenant.has((2, 1, 65536))
    start_into_a_slow_photo(service, stand_in)
    tenant.revoke()

    peer = launch_peer(service, {"cmd": "unlock", "password": "x"}, uid=KIOSK_UID, session="k1", image=CLIENT)
    wait_until(ended, "the kiosk session to be ended")
    bus.logind.remove("k1")
    reply, _ = peer.communicate(timeout=DEADLINE)

    assert json.loads(reply) == {"ok": False, "error": "not_enrolled"}
    assert not (place / "branding").exists()
    stand_in.delete("/admin/faults")
    assert service.stop() == 0
    assert not (place / "branding").exists()
    assert photo_requests(stand_in) == [PHOTOS + tenant.digests[0]]
    assert service.log.count("branding photo") == 0


def test_a_kill_during_a_download_leaves_nothing_that_hinders_the_next_start(service, stand_in, tenant, place):
    tenant.has((2, 1, 65536))
    start_into_a_slow_photo(service, stand_in)
    service.process.kill()
    service.wait()
    stand_in.delete("/admin/faults")
    (place / "branding" / (tenant.digests[0] + ".tmp")).write_bytes(b"half a photo")

    service.start().log.wait_for(branding_line(2))

    assert names_in(place / "branding") == sorted([*tenant.digests, "branding.json"])


# Traps in the directory, and a portal that sends exactly what a test tells it to.

WANTED = [b"photo %d" % number for number in range(6)]
DIGESTS = [digest_of(photo) for photo in WANTED]


@pytest.fixture
def checking_in(make_service, portal, place):
    """A service that is not started yet, whose portal has branding with a few photos."""
    branding = {"displayName": "Lobby", "photos": [{"sha256": digest} for digest in DIGESTS]}
    portal.checks_in(answer(200, {"status": "enrolled", "branding": branding}))
    for digest, photo in zip(DIGESTS, WANTED):
        portal.script("GET", PHOTOS + digest, answer(200, photo))
    return make_service("--auth-base", portal.url).write_state({"DeviceToken": "secret"})


@pytest.fixture
def outside(place):
    """What no update and no removal may touch."""
    directory = place / "outside"
    directory.mkdir(mode=0o700)
    (directory / "photo").write_bytes(WANTED[0])
    yield directory
    assert names_in(directory) == ["photo"]
    assert (directory / "photo").read_bytes() == WANTED[0]
    assert directory.stat().st_mode & 0o7777 == 0o700


def make_huge(path):
    """A file of 8 GiB that takes no room."""
    with path.open("wb") as file:
        file.truncate(8 << 30)


def set_traps(directory, outside):
    """Everything but the right file under each wanted name, and leftovers of every kind beside them."""
    directory.mkdir(parents=True, exist_ok=True)
    (directory / DIGESTS[0]).symlink_to(outside / "photo")
    os.mkfifo(directory / DIGESTS[1])
    (directory / DIGESTS[2]).write_bytes(b"damaged")
    make_huge(directory / DIGESTS[3])
    (directory / (DIGESTS[4] + ".tmp")).symlink_to(outside / "photo")
    (directory / DIGESTS[5]).mkdir()
    (directory / "branding.json").symlink_to(outside / "photo")
    (directory / "branding.json.tmp").write_bytes(b"{")
    (directory / ".hidden").write_bytes(b"")
    (directory / "link to a directory").symlink_to(outside)
    (directory / "dangling").symlink_to("nowhere")
    os.mkfifo(directory / "fifo")
    make_huge(directory / "huge")
    with contextlib.closing(socket.socket(socket.AF_UNIX)) as listener:
        listener.bind(str(directory / "socket"))
    (directory / "full").mkdir()
    (directory / "full" / "file").write_bytes(b"")


def test_an_update_follows_nothing_waits_for_nothing_and_leaves_its_own_files_alone(checking_in, place, outside):
    directory = place / "branding"
    set_traps(directory, outside)

    checking_in.start().log.wait_for(branding_line(6))

    assert names_in(directory) == sorted([*DIGESTS[:5], "branding.json", "full"])
    for digest, photo in zip(DIGESTS[:5], WANTED):
        assert (directory / digest).read_bytes() == photo
        assert (directory / digest).lstat().st_mode == stat.S_IFREG | 0o644
    assert checking_in.log.count(cannot_remove(directory / "full")) == 1
    # A directory of a photo's name gives way; the photo comes at the next update.
    assert checking_in.log.count(f"<3>cannot write {directory / DIGESTS[5]} (Is a directory)\n") == 1
    checking_in.stop()
    checking_in.start().log.wait_for(f"<6>branding photo {DIGESTS[5]} cached (7 bytes)\n")


def test_a_tenant_without_branding_leaves_nothing_of_it(checking_in, portal, place, outside):
    portal.checks_in(answer(200, {"status": "enrolled"}))
    set_traps(place / "branding", outside)

    checking_in.start().log.wait_for("<6>branding: the tenant has none; the cached branding is removed\n")

    assert checking_in.stop() == 0
    assert names_in(place / "branding") == ["full"]


def test_a_start_without_an_identity_removes_whatever_is_there(checking_in, portal, place, outside):
    directory = place / "branding"
    set_traps(directory, outside)
    checking_in.write_state({}).start()

    assert names_in(directory) == ["full"]
    assert checking_in.log.count(cannot_remove(directory / "full")) == 1
    assert checking_in.log.count(cannot_remove(directory)) == 1
    assert checking_in.log.lines.index(cannot_remove(directory)) < checking_in.log.lines.index(UNENROLLED)
    assert portal.requests == []


def test_a_removal_goes_on_past_what_it_cannot_remove(checking_in, portal, place, outside):
    set_traps(place / "branding", outside)
    portal.checks_in(answer(401, {"status": "revoked"}))

    checking_in.start()
    wait_until(lambda: not checking_in.send({"cmd": "status"})["enrolled"], "the removal")

    assert names_in(place / "branding") == ["full"]
    assert checking_in.log.count(cannot_remove(place / "branding")) == 1


def make_link(path, outside):
    path.symlink_to(outside)


def make_file(path, outside):
    path.write_bytes(b"")


def make_fifo(path, outside):
    os.mkfifo(path)


STAND_INS = pytest.mark.parametrize("make", [make_link, make_file, make_fifo], ids=["link", "file", "FIFO"])


@STAND_INS
@pytest.mark.parametrize("name", ["cache", "cache/branding"], ids=["parent", "directory"])
def test_an_update_makes_its_directory_where_something_else_stands(checking_in, place, outside, make, name):
    directory = place / "cache/branding"
    (place / name).parent.mkdir(exist_ok=True)
    make(place / name, outside)
    checking_in.options += ["--branding-dir", str(directory)]

    checking_in.start().log.wait_for(branding_line(6))

    assert checking_in.log.count(f"<4>removing {place / name}: not a plain directory\n") == 1
    assert names_in(directory) == sorted([*DIGESTS, "branding.json"])
    assert [path.lstat().st_mode for path in (place / "cache", directory)] == [stat.S_IFDIR | 0o755] * 2


@STAND_INS
def test_a_start_without_an_identity_removes_what_stands_for_the_directory(checking_in, place, outside, make):
    make(place / "branding", outside)

    checking_in.write_state({}).start()

    assert not os.path.lexists(place / "branding")
    assert checking_in.log.count("cannot remove") == 0


# A disk that takes no more.


@pytest.fixture
def disk(small_disk, place):
    """That of the branding directory."""
    return small_disk(place / "branding")


def test_a_photo_that_does_not_fit_leaves_room_for_the_others(checking_in, portal, disk):
    large = b"x" * 100_000
    branding = {"displayName": "Lobby", "photos": [{"sha256": digest} for digest in (digest_of(large), DIGESTS[0])]}
    portal.checks_in(answer(200, {"status": "enrolled", "branding": branding}))
    portal.script("GET", PHOTOS + digest_of(large), answer(200, large))

    checking_in.start().log.wait_for(branding_line(2))

    assert names_in(disk.path) == sorted([DIGESTS[0], "branding.json"])
    assert checking_in.log.count(f"<3>cannot write {disk.path / digest_of(large)} (No space left on device)\n") == 1
    checking_in.stop()
    disk.remount("size=1m")
    checking_in.start().log.wait_for(f"<6>branding photo {digest_of(large)} cached (100000 bytes)\n")


def test_a_full_disk_costs_the_files_and_nothing_else(checking_in, portal, disk):
    disk.fill("branding.json")

    checking_in.start().log.wait_for(f"<3>cannot write {disk.path}/branding.json (No space left on device)\n")

    assert checking_in.send({"cmd": "status"})["enrolled"]
    assert checking_in.stop() == 0
    assert [checking_in.log.count(f"<3>cannot write {disk.path / digest} (No space") for digest in DIGESTS] == [1] * 6
    assert names_in(disk.path) == ["branding.json"]


def test_a_removal_goes_on_past_a_directory_that_is_a_disk(checking_in, portal, disk):
    portal.checks_in(answer(401, {"status": "revoked"}))
    (disk.path / "branding.json").write_bytes(b"{}")

    checking_in.start()
    wait_until(lambda: not checking_in.send({"cmd": "status"})["enrolled"], "the removal")

    assert names_in(disk.path) == []
    assert checking_in.log.count(f"<4>cannot remove {disk.path} (Device or resource busy)\n") == 1
