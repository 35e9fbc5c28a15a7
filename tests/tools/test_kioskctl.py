"""tarnvale-kioskctl from outside, before a service that says what the test wants."""

import os
import pty
import shutil
import signal
import socket
import struct
import subprocess
import termios
import threading

import pytest

from programs import DEADLINE_SECONDS, IS_ROOT, KIOSKCTL, NOBODY_UID, run, wait_until

OK, REFUSED, USAGE, NO_SERVICE = 0, 1, 2, 3
MIB = 1024 * 1024


class ScriptedService:
    """Answers each connection with the same bytes, None for never, and remembers the last request and peer."""

    def __init__(self, path):
        self.path = path
        self.answer = b'{"ok":true}\n'
        self.request = None
        self.peer_uid = None
        self._kept = []
        self._listener = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        self._listener.bind(str(path))
        path.chmod(0o666)
        self._listener.listen()
        threading.Thread(target=self._serve, daemon=True).start()

    def close(self):
        self._listener.shutdown(socket.SHUT_RDWR)
        self._listener.close()
        for connection in self._kept:
            connection.close()

    def _serve(self):
        while True:
            try:
                connection, _ = self._listener.accept()
            except OSError:
                return
            credentials = connection.getsockopt(socket.SOL_SOCKET, socket.SO_PEERCRED, struct.calcsize("3i"))
            self.peer_uid = struct.unpack("3i", credentials)[1]
            self.request = connection.makefile("rb").readline()
            if self.answer is None:
                self._kept.append(connection)
                continue
            try:
                connection.sendall(self.answer)
            except BrokenPipeError:
                pass
            connection.shutdown(socket.SHUT_RDWR)
            connection.close()


@pytest.fixture
def service(place):
    scripted = ScriptedService(place / "s")
    yield scripted
    scripted.close()


def ctl(service, *words, **settings):
    return run(KIOSKCTL, "--socket", service.path, *words, **settings)


def test_sends_one_line_and_prints_the_answer(service):
    service.answer = b'{"ok":true,"n":1}\n'

    result = ctl(service, "send", "session.report", "signedIn:=true", "live:=null")

    assert service.request == b'{"cmd":"session.report","signedIn":true,"live":null}\n'
    assert (result.returncode, result.stdout, result.stderr) == (OK, '{"ok":true,"n":1}\n', "")


def test_exits_with_1_when_the_service_refuses(service):
    service.answer = b'{"ok":false,"error":"not_permitted"}\n'

    result = ctl(service, "send", "pair.begin")

    assert (result.returncode, result.stdout) == (REFUSED, '{"ok":false,"error":"not_permitted"}\n')


def test_shows_the_status_in_words(service):
    service.answer = b'{"ok":true,"enrolled":true}\n'

    result = ctl(service, "status")

    assert service.request == b'{"cmd":"status"}\n'
    assert result.stdout.startswith("enrolled       yes\n")


def test_shows_the_status_as_json_when_asked(service):
    service.answer = b'{"ok":true,"enrolled":true}\n'

    assert ctl(service, "status", "--json").stdout == '{"ok":true,"enrolled":true}\n'


def test_shows_a_refused_status_as_it_came(service):
    service.answer = b'{"ok":false,"error":"caller_refused"}\n'

    result = ctl(service, "status")

    assert (result.returncode, result.stdout) == (REFUSED, '{"ok":false,"error":"caller_refused"}\n')


@pytest.mark.parametrize(
    "answer, problem",
    [
        pytest.param(b"", "closed the connection without an answer", id="none"),
        pytest.param(b'{"ok":tr', "broke off", id="half"),
        pytest.param(b"hello\n", "no JSON object", id="text"),
        pytest.param(b"[]\n", "no JSON object", id="array"),
        pytest.param(b'{"ok":true,"x":"' + b"x" * (MIB - 17) + b'"}\n', "longer than 1 MiB", id="a byte too long"),
        pytest.param(b"x" * (2 * MIB), "longer than 1 MiB", id="endless"),
    ],
)
def test_exits_with_3_without_a_whole_answer(service, answer, problem):
    service.answer = answer

    result = ctl(service, "status")

    assert (result.returncode, result.stdout) == (NO_SERVICE, "")
    assert problem in result.stderr


def test_takes_an_answer_of_1_mib(service):
    service.answer = b'{"ok":true,"x":"' + b"x" * (MIB - 18) + b'"}\n'

    result = ctl(service, "send", "status")

    assert (result.returncode, len(result.stdout)) == (OK, MIB + 1)


def test_exits_with_3_without_a_service(place):
    result = run(KIOSKCTL, "--socket", place / "none", "status")

    assert result.returncode == NO_SERVICE
    assert f"cannot connect to {place}/none (No such file or directory)" in result.stderr


@pytest.mark.parametrize("length, problem", [(107, "cannot connect to"), (108, "at most 107 bytes")])
def test_refuses_a_socket_path_that_is_too_long(length, problem):
    result = run(KIOSKCTL, "--socket", "/" + "s" * (length - 1), "status")

    assert result.returncode == NO_SERVICE
    assert problem in result.stderr


def test_gives_up_when_the_time_is_up(service):
    service.answer = None

    result = ctl(service, "--timeout", "1", "status")

    assert (result.returncode, result.stdout) == (NO_SERVICE, "")
    assert result.stderr == "tarnvale-kioskctl: the service did not answer in time\n"


@pytest.mark.parametrize("words", [(), ("hello",), ("send",), ("send", "x", "member"), ("--uid", "me", "status")])
def test_exits_with_2_for_wrong_arguments(service, words):
    result = ctl(service, *words)

    assert (result.returncode, result.stdout) == (USAGE, "")
    assert service.request is None


@pytest.mark.parametrize("word, beginning", [("--help", "usage: tarnvale-kioskctl "), ("--version", "tarnvale-kioskctl 2")])
def test_tells_about_itself(word, beginning):
    result = run(KIOSKCTL, word)

    assert result.returncode == OK
    assert result.stdout.startswith(beginning)


def test_takes_a_line_of_the_input_for_each_dash(service):
    ctl(service, "send", "x", "a=-", "b=-", input="first\nsecond\nthird\n")

    assert service.request == b'{"cmd":"x","a":"first","b":"second"}\n'


@pytest.mark.parametrize("length, status", [(4096, OK), (4097, USAGE)])
def test_takes_a_line_of_4096_bytes_at_most(service, length, status):
    assert ctl(service, "send", "x", "a=-", input="s" * length + "\n").returncode == status


def test_sends_nothing_when_the_input_breaks_off(service):
    result = ctl(service, "send", "x", "a=-", input="swordfish")

    assert (result.returncode, service.request) == (USAGE, None)
    assert "swordfish" not in result.stderr


class Typist:
    """Runs tarnvale-kioskctl at a terminal of its own, up to the question for `password`."""

    def __init__(self, service):
        self.keyboard, screen = pty.openpty()
        self.process = subprocess.Popen(
            [KIOSKCTL, "--socket", service.path, "send", "unlock", "password=-"],
            stdin=screen, stdout=subprocess.PIPE, stderr=screen, preexec_fn=_take_terminal,
        )
        os.close(screen)
        shown = b""
        while not shown.endswith(b"password: "):
            shown += os.read(self.keyboard, 100)
        wait_until(lambda: not self.shows_typing(), "a silent terminal")

    def shows_typing(self):
        return bool(termios.tcgetattr(self.keyboard)[3] & termios.ECHO)

    def type(self, keys):
        os.write(self.keyboard, keys)

    def close(self):
        self.process.kill()
        self.process.wait()
        self.process.stdout.close()
        os.close(self.keyboard)


def _take_terminal():
    os.setsid()
    os.close(os.open(os.ttyname(0), os.O_RDWR))  # Makes it the controlling one, so that Ctrl-C is a signal.


@pytest.fixture
def typist(service):
    person = Typist(service)
    yield person
    person.close()


def test_shows_nothing_of_a_typed_password(typist, service):
    typist.type(b"swordfish\n")

    assert typist.process.wait(DEADLINE_SECONDS) == OK
    assert os.read(typist.keyboard, 100) == b"\r\n"
    assert service.request == b'{"cmd":"unlock","password":"swordfish"}\n'
    assert typist.shows_typing()


def test_leaves_the_terminal_as_it_was_after_ctrl_c(typist, service):
    typist.type(b"\x03")

    assert typist.process.wait(DEADLINE_SECONDS) == -signal.SIGINT
    assert typist.shows_typing()
    assert service.request is None


@pytest.mark.skipif(not IS_ROOT, reason="needs root")
def test_becomes_another_user_before_connecting(service):
    result = ctl(service, "--uid", NOBODY_UID, "status")

    assert (result.returncode, service.peer_uid) == (OK, NOBODY_UID)


@pytest.mark.skipif(not IS_ROOT, reason="needs root")
def test_does_not_ask_when_it_cannot_become_that_user(service, place):
    own_copy = shutil.copy(KIOSKCTL, place)

    result = run(own_copy, "--socket", service.path, "--uid", "0", "status", user=NOBODY_UID)

    assert (result.returncode, service.request) == (NO_SERVICE, None)
    assert "cannot become user 0" in result.stderr
