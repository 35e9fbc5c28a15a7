"""The file of the control socket: its mode, its path, and what stood there before."""

import os
import socket
import stat

import pytest


def path_of_length(place, length):
    return place / ("s" * (length - len(str(place)) - 1))


@pytest.mark.parametrize("umask", [0o000, 0o022, 0o077], ids=oct)
def test_the_socket_is_open_to_all_whatever_the_umask(make_service, umask):
    service = make_service(umask=umask).start()

    assert stat.S_IMODE(os.stat(service.socket_path).st_mode) == 0o666


def test_the_umask_is_restored_after_the_socket_is_made(make_service):
    service = make_service(umask=0o057).start()

    with open(f"/proc/{service.pid}/status", encoding="ascii") as status:
        assert "Umask:\t0057\n" in status


def test_a_socket_that_a_crashed_run_left_is_replaced(make_service):
    service = make_service().write_state({"DevAllowAnyCaller": 1}).start()
    service.kill()
    assert service.socket_path.is_socket()

    service.start()

    assert service.raw(b'{"cmd":"status"}\n').startswith(b'{"ok":true,')


def in_the_way(path, kind):
    if kind == "file":
        path.write_text("mine")
    elif kind == "directory":
        path.mkdir()
    elif kind == "FIFO":
        os.mkfifo(path)
    else:
        path.symlink_to("elsewhere")


@pytest.mark.parametrize("kind", ["file", "directory", "FIFO", "link"])
def test_anything_else_at_the_path_is_left_alone_and_fails_the_start(make_service, kind):
    service = make_service()
    service.run_dir.mkdir()
    in_the_way(service.socket_path, kind)
    before = os.lstat(service.socket_path)

    assert service.launch().wait() == 1
    assert service.log.lines[-1] == f"<3>cannot listen on {service.socket_path} (Address already in use)\n"
    assert os.lstat(service.socket_path) == before


def test_a_link_to_a_socket_is_not_followed(make_service, place):
    service = make_service()
    service.run_dir.mkdir()
    with socket.socket(socket.AF_UNIX) as other:
        other.bind(str(place / "other"))
        service.socket_path.symlink_to(place / "other")

        assert service.launch().wait() == 1
        assert (place / "other").is_socket()


def test_a_socket_in_a_directory_that_is_not_there_fails_the_start(make_service, place):
    service = make_service("--socket", str(place / "none/sock"))

    assert service.launch().wait() == 1
    assert service.log.lines[-1] == f"<3>cannot listen on {place}/none/sock (No such file or directory)\n"


def test_a_path_of_107_bytes_works(make_service, place):
    path = path_of_length(place, 107)
    service = make_service("--socket", str(path)).start()

    assert len(str(path)) == 107
    assert path.is_socket()
    assert service.stop() == 0
    assert not path.exists()


@pytest.mark.parametrize("length", [108, 300])
def test_a_longer_path_fails_without_a_line_of_its_own(make_service, place, length):
    service = make_service("--socket", str(path_of_length(place, length)))

    assert service.launch().wait() == 1
    assert service.log.lines[-1] == "<6>enrolled=0 provisioned=0 maintenance=0\n"


def test_a_stop_is_content_with_a_socket_that_is_gone(service):
    service.socket_path.unlink()

    assert service.stop() == 0
