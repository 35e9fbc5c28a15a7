"""How the service ends: cleanly on SIGTERM and SIGINT whatever is under way, and not on SIGPIPE."""

import os
import signal
import threading

import pytest

from kioskd import wait_until
from peers import call_as, launch_peer
from scripted_portal import Held, answer

STOPPED = "<6>tarnvale-kioskd stopped\n"


@pytest.mark.parametrize("number", [signal.SIGTERM, signal.SIGINT], ids=["SIGTERM", "SIGINT"])
def test_a_stop_while_idle_removes_the_socket_and_ends_with_status_0(service, number):
    assert service.stop(number) == 0
    assert service.log.lines[-1] == STOPPED
    assert not service.socket_path.exists()


def test_a_stop_with_a_reply_under_way_lets_it_out(make_service, portal):
    held = Held(answer(503))
    portal.script("POST", "/api/kiosk/pair", held)
    service = make_service("--auth-base", portal.url, "--no-local-session")
    service.write_state({"DevAllowAnyCaller": 1}).start()
    replies = []
    caller = threading.Thread(target=lambda: replies.append(call_as(service, {"cmd": "pair.begin"})))
    caller.start()
    portal.wait_for("/api/kiosk/pair")

    service.process.send_signal(signal.SIGTERM)
    held.release()
    status = service.wait()
    caller.join()

    assert status == 0
    assert replies == [{"ok": False, "error": "server_error"}]
    assert service.log.lines[-2:] == ["<4>pairing: HTTP 503\n", STOPPED]
    assert not service.socket_path.exists()


def test_a_stop_during_a_check_in_ends_when_the_portal_has_answered(make_service, portal):
    held = Held(answer(200, {"status": "enrolled", "name": "Answered"}))
    portal.checks_in(held)
    service = make_service("--auth-base", portal.url).write_state({"DeviceToken": "t"}).start()
    portal.wait_for("/api/kiosk/check-in")

    service.process.send_signal(signal.SIGTERM)
    held.release()

    assert service.wait() == 0
    assert '<6>terminal name now "Answered"\n' in service.log.lines
    assert service.log.lines[-1] == STOPPED


def test_repeated_stop_signals_change_nothing(make_service, portal):
    held = Held(answer(500))
    portal.checks_in(held)
    service = make_service("--auth-base", portal.url).write_state({"DeviceToken": "t"}).start()
    portal.wait_for("/api/kiosk/check-in")

    for number in [signal.SIGTERM, signal.SIGINT] * 20:
        service.process.send_signal(number)
    held.release()

    assert service.wait() == 0
    assert service.log.count(STOPPED) == 1


def test_a_hangup_ends_the_process_without_a_clean_stop(service):
    assert service.stop(signal.SIGHUP) == -signal.SIGHUP
    assert STOPPED not in service.log.lines
    assert service.socket_path.is_socket()


def test_a_broken_pipe_signal_is_ignored(service):
    service.process.send_signal(signal.SIGPIPE)

    assert service.raw(b'{"cmd":"status"}\n').startswith(b'{"ok":true,')


def test_a_peer_that_is_gone_before_a_slow_reply_is_no_harm(make_service, portal):
    held = Held(answer(202))
    portal.pairs("ABCD2345", held, answer(202))
    service = make_service("--auth-base", portal.url, "--no-local-session")
    service.write_state({"DevAllowAnyCaller": 1}).start()
    call_as(service, {"cmd": "pair.begin"})
    peer = launch_peer(service, {"cmd": "pair.check", "code": "ABCD2345"})
    portal.wait_for("/api/kiosk/pair/ABCD2345")

    peer.kill()
    peer.communicate()
    held.release()

    assert call_as(service, {"cmd": "pair.check", "code": "ABCD2345"}) == {"ok": True, "paired": False}


def test_a_service_whose_log_nobody_reads_any_more_still_serves(make_service):
    reader, writer = os.pipe()
    service = make_service().write_state({"DevAllowAnyCaller": 1}).launch(stderr=writer)
    os.close(writer)
    wait_until(service.socket_path.is_socket, "the socket")
    os.close(reader)

    assert call_as(service, {"cmd": "pair.begin"})["error"] == "not_permitted"  # told in the log, or not
    assert service.send({"cmd": "status"})["ok"]
