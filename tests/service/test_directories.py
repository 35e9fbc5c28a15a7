"""The state and the run directory: how they are made, and what is put right at a start."""

import os
import stat

import pytest


def mode_of(path):
    return stat.S_IMODE(os.lstat(path).st_mode)


@pytest.mark.parametrize("umask", [0o022, 0o027], ids=oct)
def test_both_directories_are_made_with_their_modes(make_service, umask):
    service = make_service(umask=umask).start()

    assert mode_of(service.state_dir) == 0o700
    assert mode_of(service.run_dir) == 0o755


def test_the_parents_of_the_state_directory_are_made(make_service, place):
    make_service("--state-dir", str(place / "a/b//c")).start()

    assert mode_of(place / "a") == 0o755
    assert mode_of(place / "a/b") == 0o755
    assert mode_of(place / "a/b/c") == 0o700


def test_the_parents_of_the_run_directory_are_not_made(make_service, place):
    service = make_service("--run-dir", str(place / "a/b"))

    assert service.launch().wait() == 1
    assert f"<3>cannot create {place}/a/b (No such file or directory)\n" in service.log.lines


def test_a_state_directory_that_all_may_read_is_closed_again(make_service):
    service = make_service()
    service.state_dir.mkdir()
    service.state_dir.chmod(0o777)

    service.start()

    assert mode_of(service.state_dir) == 0o700


@pytest.mark.root
def test_a_state_directory_of_somebody_else_is_given_to_root(make_service):
    service = make_service()
    service.state_dir.mkdir()
    os.chown(service.state_dir, 47110, 47110)

    service.start()

    assert (os.stat(service.state_dir).st_uid, os.stat(service.state_dir).st_gid) == (0, 0)


@pytest.mark.root
def test_an_existing_run_directory_keeps_owner_and_mode(make_service):
    service = make_service()
    service.run_dir.mkdir()
    service.run_dir.chmod(0o777)
    os.chown(service.run_dir, 47110, 47110)

    service.start()

    assert mode_of(service.run_dir) == 0o777
    assert os.stat(service.run_dir).st_uid == 47110


@pytest.mark.parametrize("which", ["state_dir", "run_dir"])
def test_a_file_in_the_place_of_a_directory_is_removed_with_a_warning(make_service, which):
    service = make_service()
    path = getattr(service, which)
    path.write_text("in the way")

    service.start()

    assert path.is_dir()
    assert service.log.count(f"<4>removing {path}: not a plain directory\n") == 1


@pytest.mark.parametrize("which", ["state_dir", "run_dir"])
def test_a_link_in_the_place_of_a_directory_is_removed_and_not_followed(make_service, place, which):
    (place / "elsewhere").mkdir(mode=0o755)
    service = make_service()
    path = getattr(service, which)
    path.symlink_to(place / "elsewhere")

    service.start()

    assert path.is_dir() and not path.is_symlink()
    assert mode_of(place / "elsewhere") == 0o755
    assert service.log.count(f"<4>removing {path}: not a plain directory\n") == 1
