"""The exact requests that the portal sees, and where they go."""

import re
import socket

import pytest

from kioskd import compact, wait_until
from peers import call_as, launch_peer
from scripted_portal import Held, answer

CODE = "ABCD2345"
CHECK_IN = "/api/kiosk/check-in"
PAIR = "/api/kiosk/pair"
# In an order that no run leaves behind: it is sent as it stands.
UPDATES_REPORT = '{"restartRequired":true,"error":null,"pending":2,"lastResult":null,"lastRunAt":null}'

below_a_folder = pytest.mark.undescribed_requests("the description begins below the base URL")


@pytest.fixture
def pairing(make_service, portal):
    """A service that anybody may pair; nothing can be provisioned, so it never restarts anything."""
    def start(*options):
        service = make_service("--auth-base", portal.url, "--no-local-session", *options)
        return service.write_state({"DevAllowAnyCaller": 1}).start()
    return start


def stamp_of(service):
    return re.fullmatch(r"<6>tarnvale-kioskd (\S+) starting\n", service.log.lines[0])[1]


def headers_of(portal, service, *more):
    """What every request carries, in order, after the host."""
    return [("Host", portal.url.removeprefix("http://")), ("User-Agent", f"TarnvaleKiosk/{stamp_of(service)}"),
            ("Content-Type", "application/json"), ("Accept", "application/json"), *more]


def os_name():
    for line in open("/etc/os-release", encoding="utf-8"):
        if line.startswith("PRETTY_NAME="):
            return line.strip().removeprefix("PRETTY_NAME=").strip('"')
    return "Linux"


def test_pair_begin_describes_the_terminal(pairing, portal):
    portal.pairs(CODE)
    service = pairing()

    assert call_as(service, {"cmd": "pair.begin"}) == {"ok": True, "code": CODE, "expiresInSeconds": 600}

    exchange = portal.requests[0]
    body = exchange.json()
    assert (exchange.method, exchange.target, exchange.version) == ("POST", PAIR, "HTTP/1.1")
    assert exchange.headers == headers_of(portal, service, ("Content-Length", str(len(exchange.body))))
    assert exchange.body.decode() == compact({
        "hostname": socket.gethostname(), "platform": "Linux", "osVersion": os_name(),
        "appVersion": stamp_of(service), "screenCount": body["screenCount"]})
    assert body["screenCount"] >= 1


def test_pair_check_asks_without_a_body_but_with_its_type(pairing, portal):
    portal.pairs(CODE)
    service = pairing()
    call_as(service, {"cmd": "pair.begin"})

    assert call_as(service, {"cmd": "pair.check", "code": f" {CODE}\n"}) == {"ok": True, "paired": False}

    exchange = portal.requests[1]
    assert (exchange.method, exchange.target, exchange.body) == ("GET", f"{PAIR}/{CODE}", b"")
    assert exchange.headers == headers_of(portal, service)


def test_a_check_in_carries_the_token_and_the_report(make_service, portal):
    portal.checks_in(answer(500))
    service = make_service("--auth-base", portal.url).write_state({
        "DeviceToken": "t0k=en/+", "PowerError": "wake_unavailable", "OsUpdatesReport": UPDATES_REPORT,
        "PowerLocal": '{"schedule":{"days":[5,1],"enabled":true,"wakeAt":"07:00","sleepAt":"22:00"},'
                      '"sleepMinutes":0,"screenOffMinutes":5,"more":1}'}).start()

    exchange = portal.wait_for(CHECK_IN)

    assert (exchange.method, exchange.version) == ("POST", "HTTP/1.1")
    assert exchange.headers == headers_of(portal, service, ("Authorization", "Bearer t0k=en/+"),
                                          ("Content-Length", str(len(exchange.body))))
    assert exchange.body.decode() == (
        '{"appVersion":"%s","powerLocal":{"screenOffMinutes":5,"sleepMinutes":0,'
        '"schedule":{"enabled":true,"sleepAt":"22:00","wakeAt":"07:00","days":[1,5]}},'
        '"powerError":"wake_unavailable","osUpdates":%s}' % (stamp_of(service), UPDATES_REPORT))


def test_a_check_in_without_anything_to_tell_sends_nulls_and_no_report(make_service, portal):
    portal.checks_in(answer(500))
    service = make_service("--auth-base", portal.url)
    service.write_state({"DeviceToken": "t", "OsUpdatesReport": "[1]", "PowerLocal": "{}"}).start()

    body = portal.wait_for(CHECK_IN).body

    assert body.decode() == '{"appVersion":"%s","powerLocal":null,"powerError":null}' % stamp_of(service)


def test_an_unenrolled_terminal_asks_nothing(service, portal):
    assert service.send({"cmd": "status"})["enrolled"] is False
    assert service.stop() == 0
    assert portal.requests == []


def test_a_token_of_this_run_is_used_at_once_by_both_check_ins(pairing, portal):
    portal.pairs(CODE, answer(200, {"deviceToken": "fresh"})).checks_in(answer(503))
    service = pairing()
    call_as(service, {"cmd": "pair.begin"})

    reply = call_as(service, {"cmd": "pair.check", "code": CODE})

    assert reply == {"ok": True, "paired": True, "provisioned": False, "error": "unreachable"}
    portal.wait_for(CHECK_IN, 2)  # the loop's, which the pairing woke, and the command's own
    assert {exchange.header("Authorization") for exchange in portal.to(CHECK_IN)} == {"Bearer fresh"}
    assert service.log.count("<6>paired: device token held\n") == 1


def test_a_provisioning_that_fails_is_the_reply_and_then_the_status(pairing, portal):
    portal.pairs(CODE, answer(200, {"deviceToken": "fresh"})).checks_in(answer(200, {"status": "enrolled"}))
    service = pairing()
    call_as(service, {"cmd": "pair.begin"})

    assert call_as(service, {"cmd": "pair.check", "code": CODE}) == {"ok": False, "error": "no_client"}

    status = service.send({"cmd": "status"})
    assert (status["enrolled"], status["provisioned"], status["error"]) == (True, False, "no_client")
    assert list(status)[-1] == "error"
    assert call_as(service, {"cmd": "pair.begin"}) == {"ok": False, "error": "already_enrolled"}


def test_of_two_checks_at_once_the_second_waits_and_finds_no_code(pairing, portal):
    held = Held(answer(200, {"deviceToken": "fresh"}))
    portal.pairs(CODE, held, answer(200, {"deviceToken": "second"})).checks_in(answer(503))
    service = pairing()
    call_as(service, {"cmd": "pair.begin"})
    first = launch_peer(service, {"cmd": "pair.check", "code": CODE})
    portal.wait_for(f"{PAIR}/{CODE}")

    threads = service.threads()
    second = launch_peer(service, {"cmd": "pair.check", "code": CODE})
    wait_until(lambda: service.threads() > threads, "the second check to be taken up")
    held.release()

    assert b'"paired":true' in first.communicate()[0]
    assert second.communicate()[0] == b'{"ok":false,"error":"unknown_code"}\n'
    assert len(portal.to(f"{PAIR}/{CODE}")) == 1
    assert service.state()["DeviceToken"] == "fresh"


@pytest.mark.parametrize("tail", ["", "/", "///", pytest.param("/base", marks=below_a_folder),
                                  pytest.param("/base//", marks=below_a_folder)])
def test_trailing_slashes_of_the_base_url_do_not_count(make_service, portal, tail):
    service = make_service("--auth-base", portal.url + tail).write_state({"DeviceToken": "t"}).start()

    assert portal.wait_for("/base" * ("base" in tail) + CHECK_IN)
    service.log.wait_for("(HTTP 599)")


def test_the_base_url_may_stand_in_the_state(make_service, portal):
    service = make_service("--auth-base", "")
    service.write_state({"DeviceToken": "t", "AuthBaseUrl": portal.url + "//"}).start()

    assert portal.wait_for(CHECK_IN)


def test_the_base_url_of_the_command_line_wins(make_service, portal):
    service = make_service("--auth-base", portal.url)
    service.write_state({"DeviceToken": "t", "AuthBaseUrl": "http://127.0.0.1:1"}).start()

    assert portal.wait_for(CHECK_IN)


@pytest.mark.parametrize("base", ["///", "file:///etc", "not a url", "ftp://127.0.0.1:1"])
def test_a_base_url_that_leads_nowhere_is_a_portal_out_of_reach(make_service, base):
    service = make_service("--auth-base", base).write_state({"DeviceToken": "t"}).start()

    line = service.log.wait_for("no usable answer from AuthSystem")
    assert re.fullmatch(r"<4>check-in: no usable answer from AuthSystem \([^)]+\); still enrolled\n", line)
