"""How one request becomes one reply: what ends a request, what is too long, what gets no answer."""

import fcntl
import json
import socket
import struct
import termios

import pytest

from kioskd import compact, read_all, wait_until
from peers import call_as

BAD_REQUEST = b'{"ok":false,"error":"bad_request"}\n'
UNKNOWN_COMMAND = b'{"ok":false,"error":"unknown_command"}\n'
CALLER_REFUSED = b'{"ok":false,"error":"caller_refused"}\n'


@pytest.fixture
def status(service):
    """The bytes that answer `status` here."""
    return compact({
        "ok": True, "enrolled": False, "provisioned": False, "kioskSession": False, "maintenance": False,
        "account": "tarnvale-kiosk", "terminalName": "",
        "signIn": {"microsoft": True, "email": False, "extraHosts": []},
        "brandingDir": str(service.place / "branding"),
    }).encode() + b"\n"


def wait_until_read(peer):
    """Waits until the service has taken all that was sent out of the socket."""
    wait_until(lambda: struct.unpack("i", fcntl.ioctl(peer, termios.TIOCOUTQ, b"\0" * 4))[0] == 0,
               "the service to read")


def send_in_pieces(service, *pieces):
    """Sends the pieces so that each arrives alone; answers the reply."""
    with service.connect() as peer:
        for piece in pieces[:-1]:
            peer.sendall(piece)
            wait_until_read(peer)
        peer.sendall(pieces[-1])
        return read_all(peer)


def test_status_is_answered_byte_for_byte(service, status):
    assert service.raw(b'{"cmd":"status"}\n') == status


def test_a_request_without_a_line_feed_is_answered_while_the_connection_stays_open(service, status):
    assert service.raw(b'{"cmd":"status"}') == status


def test_white_space_around_a_request_is_passed_over(service, status):
    assert service.raw(b' \t\r{"cmd" : "status"} \v\f\n') == status


def test_of_two_objects_in_one_write_the_first_counts(service, status):
    assert service.raw(b'{"cmd":"status"}{"cmd":"nothing"}\n') == status
    assert service.raw(b'{"cmd":"nothing"}\n{"cmd":"status"}\n') == UNKNOWN_COMMAND


def test_a_line_feed_inside_a_request_ends_the_reading_but_not_the_line(service):
    assert service.raw(b'{"cmd":\n') == BAD_REQUEST
    assert service.raw(b'{"cmd":\n"nothing"}') == UNKNOWN_COMMAND


@pytest.mark.parametrize("blank", [b"\n", b" \n", b" \t\r\v\f\n\n"])
def test_white_space_alone_gets_no_reply(service, blank):
    assert service.raw(blank) == b""


def test_spaces_without_a_line_feed_get_no_reply_when_the_peer_shuts_its_side(service):
    assert service.raw(b"    ", shut=True) == b""


def test_a_peer_that_closes_at_once_is_not_examined(make_service):
    service = make_service().start()
    before = service.log.lines

    service.connect().close()

    assert service.raw(b"", shut=True) == b""
    assert service.log.lines == before


def test_half_an_object_is_a_bad_request_once_the_peer_shuts_its_side(service):
    assert service.raw(b'{"cmd":"stat', shut=True) == BAD_REQUEST


@pytest.mark.parametrize("text", [b"[1,2]", b'"status"', b"12", b"null", b"not json", b"\xff\xfe", b"{", b"\0"])
def test_what_is_no_object_is_a_bad_request(service, text):
    assert service.raw(text + b"\n") == BAD_REQUEST


@pytest.mark.parametrize("text", [b"{}", b'{"cmd":7}', b'{"cmd":null}', b'{"cmd":["status"]}', b'{"cmd":"Status"}',
                                  b'{"cmd":"status "}', b'{"CMD":"status"}'])
def test_a_name_that_is_no_command_is_unknown(service, text):
    assert service.raw(text + b"\n") == UNKNOWN_COMMAND


def test_a_request_may_come_a_byte_at_a_time(service, status):
    assert send_in_pieces(service, *(bytes([byte]) for byte in b'{"cmd":"status"}')) == status


def test_a_request_may_fill_the_buffer_to_its_last_byte(service, status):
    head, tail = b'{"cmd":"status","pad":"', b'"}'
    first = head + b"x" * (8191 - len(head))

    assert send_in_pieces(service, first, b"x" * (1024 - len(tail)) + tail) == status


def test_an_object_that_is_complete_after_9215_bytes_is_cut_and_bad(service):
    head, tail = b'{"cmd":"status","pad":"', b'"}'
    first = head + b"x" * (8191 - len(head))

    assert send_in_pieces(service, first, b"x" * (1025 - len(tail)) + tail) == BAD_REQUEST


def test_8191_incomplete_bytes_are_not_yet_too_long(service, status):
    head = b'{"cmd":"status","pad":"'

    assert send_in_pieces(service, head + b"x" * (8191 - len(head)), b'"}') == status


@pytest.mark.parametrize("size", [8192, 9215, 9216, 100_000])
def test_8192_incomplete_bytes_are_a_bad_request_and_no_silent_close(service, size):
    head = b'{"cmd":"status","pad":"'

    assert service.raw(head + b"x" * (size - len(head))) == BAD_REQUEST


@pytest.mark.parametrize("unit", [b"[", b'{"a":'], ids=["arrays", "objects"])
def test_the_deepest_request_is_answered_and_the_service_lives(service, status, unit):
    text = (unit * 9215)[:9215]

    assert send_in_pieces(service, text[:8191], text[8191:]) == BAD_REQUEST
    assert service.raw(b'{"cmd":"status"}\n') == status


@pytest.mark.parametrize("inner", [b"[" * 4500 + b"]" * 4500, b'{"a":' * 1500 + b"1" + b"}" * 1500],
                         ids=["arrays", "objects"])
def test_a_deep_request_that_is_complete_is_served(service, status, inner):
    text = b'{"cmd":"status","deep":' + inner + b"}"

    assert send_in_pieces(service, text[:8191], text[8191:]) == status


def test_a_refused_peer_learns_so_also_from_a_request_that_is_no_object(make_service):
    service = make_service().start()
    refused = json.loads(CALLER_REFUSED)

    assert call_as(service, "x" * 9000) == refused
    assert call_as(service, "{") == refused
    assert call_as(service, {"cmd": "status"}) == refused
    assert service.log.count("<4>caller refused: this service is not installed "
                             "and DevAllowAnyCaller is not set\n") == 3


def test_a_peer_that_is_gone_before_its_reply_changes_nothing(service, status):
    for _ in range(50):
        with service.connect() as peer:
            peer.sendall(b'{"cmd":"status"}\n')

    assert service.raw(b'{"cmd":"status"}\n') == status


def test_a_peer_that_never_reads_does_not_hold_up_others(service, status):
    with service.connect() as idle:
        idle.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 1)
        idle.sendall(b'{"cmd":"status"}\n')

        assert service.raw(b'{"cmd":"status"}\n') == status
