"""Peers that fall silent have 15 seconds, and a stop waits for them.

The one test here that takes real time, since the limit is the kernel's clock's and not the portal's to
shorten. All that needs the wait shares it.
"""

import signal
import time

from kioskd import read_all


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
