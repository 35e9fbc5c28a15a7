"""One line of the log is one write, however many threads write at once."""

import os
import re
import threading

from kioskd import DEADLINE, compact, wait_until
from scripted_portal import answer

LINE = re.compile(rb"<[346]>[^\n]+\n")


class Packets:
    """What each single write brought: a pipe in packet mode keeps their boundaries."""

    def __init__(self):
        self._reader, self.writer = os.pipe2(os.O_DIRECT | os.O_CLOEXEC)
        self.seen = []
        self._thread = threading.Thread(target=self._read, daemon=True)
        self._thread.start()

    def _read(self):
        while packet := os.read(self._reader, 65536):
            self.seen.append(packet)
        os.close(self._reader)

    def wait_for_end(self):
        os.close(self.writer)
        self._thread.join(DEADLINE)
        assert not self._thread.is_alive(), "standard error is still open"


def test_each_line_of_many_threads_is_a_write_of_its_own(make_service):
    packets = Packets()
    service = make_service().write_state({"DevAllowAnyCaller": 1}).launch(stderr=packets.writer)
    wait_until(service.socket_path.is_socket, "the socket")
    refused = compact({"cmd": "pair.begin"}).encode()

    callers = [threading.Thread(target=lambda: [service.raw(refused) for _ in range(50)]) for _ in range(8)]
    for caller in callers:
        caller.start()
    for caller in callers:
        caller.join()
    assert service.stop() == 0, b"".join(packets.seen).decode()
    packets.wait_for_end()

    assert [packet for packet in packets.seen if not LINE.fullmatch(packet)] == []
    assert packets.seen.count(b"<4>pair.begin refused: the caller is not an interactive user "
                              b"other than the kiosk account\n") == 400


def test_a_value_with_line_feeds_goes_out_in_one_write_as_it_is(make_service, portal):
    portal.checks_in(answer(401, {"status": "two\nlines"}))
    packets = Packets()
    service = make_service("--auth-base", portal.url).write_state({"DeviceToken": "t"})
    service.launch(stderr=packets.writer)
    told = b"<4>check-in: no usable answer from AuthSystem (HTTP 401, status two\nlines); still enrolled\n"

    wait_until(lambda: told in packets.seen, "the line")

    assert service.stop() == 0, b"".join(packets.seen).decode()
    packets.wait_for_end()


def test_no_secret_of_the_exchange_is_in_the_log(make_service, portal):
    portal.checks_in(answer(200, {"status": "enrolled", "exitPassword": "pa55word-of-the-exit"}))
    service = make_service("--auth-base", portal.url).write_state({"DeviceToken": "t0ken-of-the-device"}).start()

    service.log.wait_for("provisioning failed: no_client")
    service.stop()

    assert service.log.count("pa55word-of-the-exit") == 0
    assert service.log.count("t0ken-of-the-device") == 0
    assert "pa55word-of-the-exit" not in service.state_file.read_text()
