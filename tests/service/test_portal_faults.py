"""A portal that misbehaves: the terminal stays as it is, says so once, and lives."""

import re

import pytest

from kioskd import compact
from peers import call_as
from scripted_portal import Held, answer, cut_off, raw_answer, reset

CHECK_IN = "/api/kiosk/check-in"
CODE = "ABCD2345"
LIMIT = 65536

GOOD = {"status": "enrolled", "name": "Lobby"}


def closed(connection):
    """The connection ends without a word."""


def padded(size, body=None):
    """A good reply of exactly so many bytes."""
    head = compact(body or GOOD)[:-1].encode() + b',"pad":"'
    return head + b"x" * (size - len(head) - 2) + b'"}'


@pytest.fixture
def check_in(make_service, portal):
    """Starts an enrolled service whose first check-in gets this answer."""
    def start(reply):
        portal.checks_in(reply)
        service = make_service("--auth-base", portal.url)
        return service.write_state({"DeviceToken": "t", "TerminalName": "Before", "DevAllowAnyCaller": 1}).start()
    return start


def reason(service):
    line = service.log.wait_for("no usable answer from AuthSystem")
    return re.fullmatch(r"<4>check-in: no usable answer from AuthSystem \((.+)\); still enrolled\n", line)[1]


def is_unchanged(service):
    status = service.send({"cmd": "status"})
    return status["enrolled"] and status["terminalName"] == "Before" and "error" not in status


@pytest.mark.parametrize("reply", [reset, closed, raw_answer(b"not http\r\n\r\n")], ids=["reset", "closed", "no http"])
def test_a_portal_without_a_status_is_told_in_the_library_s_words(check_in, reply):
    service = check_in(reply)

    assert reason(service)
    assert is_unchanged(service)


def test_a_portal_that_refuses_the_connection_is_told(make_service):
    service = make_service().write_state({"DeviceToken": "t", "TerminalName": "Before", "DevAllowAnyCaller": 1})

    assert reason(service.start())
    assert is_unchanged(service)


@pytest.mark.parametrize("status", [201, 204, 301, 302, 400, 403, 404, 500, 503])
def test_another_status_is_told_by_its_number(check_in, status):
    service = check_in(answer(status, GOOD))

    assert reason(service) == f"HTTP {status}"
    assert is_unchanged(service)


def test_a_redirect_is_not_followed(check_in, portal):
    service = check_in(answer(302, GOOD, [f"Location: {portal.url}/elsewhere"]))

    assert reason(service) == "HTTP 302"
    service.stop()
    assert [exchange.target for exchange in portal.requests] == [CHECK_IN]


@pytest.mark.parametrize("body, told", [
    (b"", "HTTP 401 without a device status"),
    (b"<html>", "HTTP 401 without a device status"),
    (b"[]", "HTTP 401 without a device status"),
    (b"{}", "HTTP 401 without a device status"),
    (b'{"status":""}', "HTTP 401 without a device status"),
    (b'{"status":"enrolled"}', "HTTP 401, status enrolled"),
    (b'{"status":"Revoked"}', "HTTP 401, status Revoked"),
    (b'{"status":7}', "HTTP 401, status 7"),
], ids=repr)
def test_a_401_that_does_not_end_the_identity_is_told(check_in, body, told):
    service = check_in(answer(401, body))

    assert reason(service) == told
    assert is_unchanged(service)


def test_a_401_unknown_is_remembered_with_its_time_and_told_once(check_in):
    service = check_in(answer(401, {"status": "unknown"}))

    assert reason(service) == "HTTP 401, status unknown"
    assert service.log.count("<4>check-in: AuthSystem does not recognise this terminal's token; "
                             "kiosk mode stays unless that lasts 24 hours\n") == 1
    assert service.state()["UnknownSince"] > 1_600_000_000_000
    assert is_unchanged(service)


def test_a_200_that_says_revoked_ends_nothing(check_in):
    service = check_in(answer(200, {"status": "revoked"}))

    assert reason(service) == "unexpected check-in reply"
    assert is_unchanged(service)


@pytest.mark.parametrize("reply", [
    answer(200, b""),
    answer(200, b"\xff" * (1 << 20)),
    answer(200, b"[" + compact(GOOD).encode() + b"]"),
    cut_off(compact(GOOD).encode()[:-1]),
    raw_answer(b"HTTP/1.1 200 Told\r\nTransfer-Encoding: chunked\r\n\r\n5\r\n{\"sta\r\nzz"),
    answer(200, (b"[" * 65537)),
    answer(200, (b'{"a":' * 65537)[:65537]),
    answer(200, padded(LIMIT + 2)),
    answer(200, padded(70_000)),
    answer(200, padded(1 << 20)),
], ids=["empty", "a megabyte of garbage", "an array", "cut off", "bad chunks", "65537 arrays", "65537 objects",
        "2 bytes too long", "70000 bytes", "1 MiB"])
def test_a_body_that_cannot_be_read_is_an_unexpected_reply(check_in, reply):
    service = check_in(reply)

    assert reason(service) == "unexpected check-in reply"
    assert is_unchanged(service)


@pytest.mark.parametrize("reply", [
    answer(200, padded(LIMIT)),
    # What is kept is one byte more than what is allowed, and nobody asks for the size of what parses.
    answer(200, padded(LIMIT + 1)),
    # The length promises more, but what came is a whole document.
    cut_off(compact(GOOD).encode()),
    answer(200, padded(LIMIT, GOOD | {"branding": {"deep": 1}})),
    answer(200, b'{"status":"enrolled","name":"Lobby","branding":' + b"[" * 32700 + b"]" * 32700 + b"}"),
    answer(200, b'{"status":"enrolled","name":"Lobby","branding":' + b'{"a":' * 10800 + b"1" + b"}" * 10800 + b"}"),
], ids=["65536 bytes", "65537 bytes", "whole but short", "branding", "deep arrays", "deep objects"])
def test_a_reply_within_the_limit_is_applied(check_in, reply):
    service = check_in(reply)

    service.log.wait_for('<6>terminal name now "Lobby"\n')
    assert service.send({"cmd": "status"})["terminalName"] == "Lobby"
    assert service.log.count("no usable answer") == 0


def test_a_portal_that_hangs_and_then_answers_is_waited_for(check_in, portal):
    held = Held(answer(200, GOOD))
    service = check_in(held)
    portal.wait_for(CHECK_IN)

    assert is_unchanged(service)  # served all the while

    held.release()
    service.log.wait_for('<6>terminal name now "Lobby"\n')


# The same faults met by a person who pairs.


@pytest.fixture
def pairing(make_service, portal):
    service = make_service("--auth-base", portal.url, "--no-local-session")
    return service.write_state({"DevAllowAnyCaller": 1}).start()


@pytest.mark.parametrize("reply", [reset, closed], ids=["reset", "closed"])
def test_pair_begin_tells_a_portal_out_of_reach(pairing, portal, reply):
    portal.script("POST", "/api/kiosk/pair", reply)

    assert call_as(pairing, {"cmd": "pair.begin"}) == {"ok": False, "error": "unreachable"}
    assert re.search(r"<4>pairing: AuthSystem unreachable \(.+\)\n", pairing.log.wait_for("pairing:"))


@pytest.mark.parametrize("reply, told", [
    (answer(500, {"pairingCode": CODE}), ["<4>pairing: HTTP 500\n"]),
    (answer(302, {"pairingCode": CODE}), ["<4>pairing: HTTP 302\n"]),
    (answer(202, {"pairingCode": CODE}), ["<4>pairing: HTTP 202\n"]),
    (answer(201, {"pairingCode": 12345678}), []),
    (answer(200, {"pairingCode": ""}), []),
    (answer(200, b"\xff" * (1 << 20)), []),
    (answer(200, b"[" * 65537), []),
], ids=["500", "302", "202", "a number", "empty", "garbage", "deep"])
def test_pair_begin_without_a_code_is_a_server_error(pairing, portal, reply, told):
    portal.script("POST", "/api/kiosk/pair", reply)

    assert call_as(pairing, {"cmd": "pair.begin"}) == {"ok": False, "error": "server_error"}
    assert [line for line in pairing.log.lines if "pairing:" in line] == told


NOT_YET = {"ok": True, "paired": False, "error": "unreachable"}


@pytest.mark.parametrize("reply, told, kept", [
    (answer(202), {"ok": True, "paired": False}, True),
    (reset, NOT_YET, True),
    (answer(500), NOT_YET, True),
    (answer(599), NOT_YET, True),
    (answer(404), {"ok": False, "error": "expired"}, False),
    (answer(410), {"ok": False, "error": "expired"}, False),
    (answer(409), {"ok": False, "error": "claimed"}, False),
    (answer(302, headers=["Location: /"]), {"ok": False, "error": "server_error"}, True),
    (answer(403), {"ok": False, "error": "server_error"}, True),
    (answer(200, {"deviceToken": 7}), {"ok": False, "error": "server_error"}, False),
    (answer(200, b"\xff" * (1 << 20)), {"ok": False, "error": "server_error"}, False),
], ids=["202", "reset", "500", "599", "404", "410", "409", "302", "403", "no token", "garbage"])
def test_pair_check_keeps_the_code_or_gives_it_up(pairing, portal, reply, told, kept):
    portal.pairs(CODE, reply, answer(202))
    call_as(pairing, {"cmd": "pair.begin"})

    assert call_as(pairing, {"cmd": "pair.check", "code": CODE}) == told

    again = call_as(pairing, {"cmd": "pair.check", "code": CODE})
    assert again == ({"ok": True, "paired": False} if kept else {"ok": False, "error": "unknown_code"})
