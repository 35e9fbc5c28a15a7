"""What the service makes of the state file that it finds, and what it puts in its place."""

import os
import stat

import pytest

from kioskd import wait_until
from scripted_portal import Held, answer

LIMIT = 4 * 1024 * 1024
NOT_AN_OBJECT = "<3>the state file is not a JSON object; starting unenrolled\n"
ENROLLED = "<6>enrolled=1 provisioned=0 maintenance=0\n"
UNENROLLED = "<6>enrolled=0 provisioned=0 maintenance=0\n"


def padded(size):
    """An enrolled state of exactly so many bytes."""
    head, tail = b'{"DeviceToken":"t","Padding":"', b'"}'
    return head + b"x" * (size - len(head) - len(tail)) + tail


@pytest.fixture
def enrolling(make_service, portal):
    """A service whose first check-in changes the state, and so saves it."""
    portal.checks_in(answer(200, {"status": "enrolled", "name": "Lobby"}))
    return make_service("--auth-base", portal.url)


def wait_for_save(service):
    """Waits for the last save of the first pass; answers the state."""
    return wait_until(lambda: service.state().get("LastError") and service.state(), "the first pass to end")


def test_an_absent_file_is_a_normal_first_start(service):
    assert UNENROLLED in service.log.lines
    assert NOT_AN_OBJECT not in service.log.lines


def test_a_state_is_saved_with_mode_0600_in_the_order_of_the_keys(enrolling):
    service = enrolling.write_state({"Kept": [1, None], "DeviceToken": "t"}).start()

    wait_for_save(service)

    assert service.state_file.read_text() == (
        '{"Kept":[1,null],"DeviceToken":"t",'
        '"SignIn":"{\\"microsoft\\":true,\\"email\\":false,\\"extraHosts\\":[]}",'
        '"TerminalName":"Lobby","LastError":"no_client"}')
    assert stat.S_IMODE(service.state_file.stat().st_mode) == 0o600
    assert os.listdir(service.state_dir) == ["state.json"]


@pytest.mark.parametrize("text", [
    b"", b"   ", b"[1]", b'"DeviceToken"', b"null", b"7", b'{"DeviceToken":"t"', b'{"DeviceToken":"t",', b"\0" * 64,
    b"\xff\xfe\xfd", b"not json"], ids=repr)
def test_what_is_no_object_starts_unenrolled_and_says_so(make_service, text):
    service = make_service().write_state(text).start()

    assert service.log.count(NOT_AN_OBJECT) == 1
    assert UNENROLLED in service.log.lines
    assert service.state_file.read_bytes() == text


def test_bytes_that_are_no_text_are_kept_as_they_are(enrolling):
    service = enrolling.write_state(b'{"Kept":"\xff\xc3\x28","DeviceToken":"t"}').start()

    wait_until(lambda: b"LastError" in service.state_file.read_bytes(), "the first pass to end")

    assert service.state_file.read_bytes().startswith(b'{"Kept":"\xff\xc3\x28","DeviceToken":"t","SignIn"')


def test_a_file_of_exactly_the_limit_is_read(make_service):
    service = make_service().write_state(padded(LIMIT)).start()

    assert service.state_file.stat().st_size == 4194304
    assert ENROLLED in service.log.lines


def test_a_file_of_one_byte_more_counts_as_absent(make_service):
    service = make_service().write_state(padded(LIMIT + 1)).start()

    assert UNENROLLED in service.log.lines
    assert NOT_AN_OBJECT not in service.log.lines


@pytest.mark.parametrize("value", ['"1"', "true", "[1]", "2", "null"])
def test_a_flag_that_is_not_the_number_1_is_not_set(make_service, value):
    service = make_service().write_state('{"Maintenance":%s}' % value).start()

    assert UNENROLLED in service.log.lines


def test_a_token_that_is_no_string_is_none(make_service):
    service = make_service().write_state({"DeviceToken": 12345678}).start()

    assert UNENROLLED in service.log.lines


def make_directory(path):
    (path / "inside").mkdir(parents=True)


@pytest.mark.parametrize("make", [os.mkfifo, make_directory], ids=["FIFO", "directory"])
def test_what_is_no_file_counts_as_absent(make_service, make):
    service = make_service()
    service.state_dir.mkdir()
    make(service.state_file)

    service.start()

    assert UNENROLLED in service.log.lines
    assert NOT_AN_OBJECT not in service.log.lines


def test_a_link_is_not_followed(make_service, place):
    (place / "elsewhere").write_text('{"DeviceToken":"t"}')
    service = make_service()
    service.state_dir.mkdir()
    service.state_file.symlink_to(place / "elsewhere")

    service.start()

    assert UNENROLLED in service.log.lines
    assert NOT_AN_OBJECT not in service.log.lines


@pytest.fixture
def about_to_save(make_service, portal):
    """A started service whose first check-in is answered when the test says so, and then saves."""
    service = make_service("--auth-base", portal.url).write_state({"DeviceToken": "t"})
    held = Held(answer(200, {"status": "enrolled"}))
    portal.checks_in(held)
    service.start()
    portal.wait_for("/api/kiosk/check-in")
    service.state_file.unlink()
    yield service, held
    held.release()


def test_a_save_replaces_a_link_and_leaves_its_target_alone(about_to_save, place):
    service, held = about_to_save
    (place / "elsewhere").write_text("mine")
    service.state_file.symlink_to(place / "elsewhere")

    held.release()
    wait_until(lambda: not service.state_file.is_symlink(), "the link to be replaced")

    assert service.state()["DeviceToken"] == "t"
    assert (place / "elsewhere").read_text() == "mine"


def test_a_save_that_cannot_replace_what_is_there_leaves_it_and_nothing_else(about_to_save):
    service, held = about_to_save
    service.state_file.mkdir()

    held.release()
    service.log.wait_for("provisioning failed: no_client")
    service.stop()

    assert f"<3>cannot write {service.state_file} (Is a directory)\n" in service.log.lines
    assert os.listdir(service.state_dir) == ["state.json"]


def test_a_leftover_temporary_file_does_not_block_a_save(enrolling, place):
    enrolling.write_state({"DeviceToken": "t"})
    temporary = enrolling.state_dir / "state.json.tmp"
    temporary.symlink_to(place / "elsewhere")

    state = wait_for_save(enrolling.start())

    assert state["TerminalName"] == "Lobby"
    assert not os.path.lexists(temporary)
    assert not (place / "elsewhere").exists()


def test_a_temporary_name_that_is_taken_by_a_directory_is_told(enrolling):
    enrolling.write_state({"DeviceToken": "t"})
    (enrolling.state_dir / "state.json.tmp").mkdir()
    service = enrolling.start()

    service.log.wait_for("provisioning failed: no_client")

    assert f"<3>cannot create {service.state_file}.tmp (File exists)\n" in service.log.lines
    assert service.state() == {"DeviceToken": "t"}
    assert '<6>terminal name now "Lobby"\n' in service.log.lines
