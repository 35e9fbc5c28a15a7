"""The command line, the start line and the exit statuses of a start that fails."""

import os
import re
import signal
import subprocess

import pytest

from kioskd import DEADLINE, EXECUTABLE


def run_to_the_end(*arguments, directory=None):
    return subprocess.run([os.path.abspath(EXECUTABLE), *map(str, arguments)], cwd=directory,
                          stdin=subprocess.DEVNULL, capture_output=True, timeout=DEADLINE, check=False)


@pytest.mark.parametrize("arguments, unknown", [
    (["--bogus"], b"--bogus"),
    (["bogus"], b"bogus"),
    ([""], b""),
    (["--help"], b"--help"),
    (["--version"], b"--version"),
    (["--state"], b"--state"),
    (["--state-dir"], b"--state-dir"),
    (["--state-dir=x"], b"--state-dir=x"),
    (["--no-local-session=1"], b"--no-local-session=1"),
    (["--no-local-session", "--setup-tool"], b"--setup-tool"),
    (["--state-dir", "x", "--run-dir", "y", "z"], b"z"),
    (["--machine-id-path", "x"], b"--machine-id-path"),
    (["--sleep-now", "--bogus"], b"--bogus"),
    (["--sleep-now", "--state-dir"], b"--state-dir"),
    (["caf\u00e9 \x01%s"], "caf\u00e9 \x01%s".encode()),
], ids=repr)
def test_an_unknown_argument_ends_with_status_2_before_anything_is_made(place, arguments, unknown):
    ended = run_to_the_end(*arguments, directory=place)

    assert ended.stderr == b"tarnvale-kioskd: unknown argument " + unknown + b"\n"
    assert ended.returncode == 2
    assert ended.stdout == b""
    assert os.listdir(place) == []


@pytest.mark.parametrize("option", [
    "--state-dir", "--run-dir", "--socket", "--branding-dir", "--etc-dir", "--auth-base", "--kiosk-user",
    "--client", "--setup-tool"])
def test_a_value_option_in_the_last_place_is_unknown(option):
    ended = run_to_the_end("--no-local-session", option)

    assert ended.stderr == f"tarnvale-kioskd: unknown argument {option}\n".encode()
    assert ended.returncode == 2


def test_the_start_line_comes_first_and_names_the_build(service):
    assert re.fullmatch(r"<6>tarnvale-kioskd \d{4}-\d{2}-\d{2}-\d{4} starting\n", service.log.lines[0])


def test_a_first_start_tells_its_way_to_the_socket(make_service):
    service = make_service().start()

    assert [re.sub(r"^(<3>no system bus) \(.*\)", r"\1 (WHY)", line) for line in service.log.lines[1:]] == [
        "<4>this service is not installed (a dev build): "
        "it admits non-root callers only while DevAllowAnyCaller=1\n",
        "<3>no system bus (WHY)\n",
        "<6>enrolled=0 provisioned=0 maintenance=0\n",
        f"<6>listening on {service.socket_path}\n",
    ]


def test_an_option_given_twice_keeps_the_last_value(make_service, place):
    service = make_service("--branding-dir", "/first", "--branding-dir", "/last")
    service.write_state({"DevAllowAnyCaller": 1}).start()

    assert service.send({"cmd": "status"})["brandingDir"] == "/last"


def test_an_option_takes_the_next_argument_whatever_it_looks_like(make_service):
    service = make_service("--branding-dir", "--client").write_state({"DevAllowAnyCaller": 1}).start()

    assert service.send({"cmd": "status"})["brandingDir"] == "--client"


def test_the_socket_path_may_look_like_an_option(place):
    process = subprocess.Popen(
        [os.path.abspath(EXECUTABLE), "--state-dir", place / "state", "--run-dir", place / "run",
         "--socket", "--run-dir"],
        cwd=place, env={"DBUS_SYSTEM_BUS_ADDRESS": "unix:path=/none"}, stderr=subprocess.PIPE)
    lines = iter(process.stderr.readline, b"")
    last = next((line for line in lines if b"listening" in line or b"cannot" in line), b"")
    listens = (place / "--run-dir").is_socket()
    process.send_signal(signal.SIGTERM)
    process.communicate(timeout=DEADLINE)

    assert last == b"<6>listening on --run-dir\n"
    assert listens


def test_an_empty_state_directory_fails_the_start(place):
    ended = run_to_the_end("--state-dir", "", "--run-dir", place / "run")

    assert ended.stderr.decode().splitlines()[1:] == [
        "<3>cannot create  (No such file or directory)", "<3>cannot prepare "]
    assert ended.returncode == 1


def test_a_state_directory_below_a_file_fails_the_start(place):
    (place / "file").write_text("")

    ended = run_to_the_end("--state-dir", place / "file/state", "--run-dir", place / "run")

    assert ended.stderr.decode().splitlines()[1:] == [
        f"<3>cannot create {place}/file/state (Not a directory)", f"<3>cannot prepare {place}/file/state"]
    assert ended.returncode == 1


def test_a_run_directory_that_cannot_be_made_names_the_state_directory(place):
    (place / "file").write_text("")

    ended = run_to_the_end("--state-dir", place / "state", "--run-dir", place / "file/run")

    assert ended.stderr.decode().splitlines()[1:] == [
        f"<3>cannot create {place}/file/run (Not a directory)", f"<3>cannot prepare {place}/state"]
    assert ended.returncode == 1
