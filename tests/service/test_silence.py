"""Peers that fall silent have 15 seconds to ask, and a stop gives each connection 30 seconds to end.

The tests here take real time, since the limits are the kernel's clock's and not the portal's to shorten.
All that needs one of the waits shares it.
"""

import select
import signal
import time

from kioskd import read_all, wait_until


def test_silent_peers_are_let_go_after_15_seconds_also_during_a_stop(service):
    begin = time.monotonic()
    silent, half, fed = [service.connect() for _ in range(3)]
    half.sendall(b'{"cmd":"stat')
    fed.sendall(b'{"cmd":')
    assert service.send({"cmd": "status"})["ok"]

    service.process.send_signal(signal.SIGTERM)
    replies = []
    with silent, half, fed:
        fed.sendall(b'"status"')
        replies += [read_all(half), read_all(silent), read_all(fed)]
    took = time.monotonic() - begin

    assert replies == [b'{"ok":false,"error":"bad_request"}\n', b"", b'{"ok":false,"error":"bad_request"}\n']
    assert took >= 15
    assert service.wait() == 0
    assert service.log.lines[-1] == "<6>tarnvale-kioskd stopped\n"
    assert not service.socket_path.exists()


def test_a_stop_abandons_a_peer_that_takes_no_reply_after_30_seconds(make_service):
    # Longer than what a socket holds for a peer that does not read.
    state = {"DevAllowAnyCaller": 1, "TerminalName": "x" * 2_000_000}
    service = make_service().write_state(state).start()
    with service.connect() as deaf:
        deaf.sendall(b'{"cmd":"status"}\n')
        wait_until(lambda: select.select([deaf], [], [], 0)[0], "the reply to begin")

        begin = time.monotonic()
        status = service.stop()
        took = time.monotonic() - begin

    assert status == 0
    assert took >= 30
    assert service.log.lines[-1] == "<6>tarnvale-kioskd stopped\n"
    assert not service.socket_path.exists()
