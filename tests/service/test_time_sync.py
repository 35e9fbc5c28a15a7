"""`time.sync` on a terminal: whom it asks the time, and how chrony or timesyncd corrects the clock."""

import calendar
import pathlib
import shutil
import time

import pytest

from kiosk import KIOSK_SESSION
from kioskd import DEADLINE, wait_until
from time_server import TimeServer

AHEAD_S = 1_000_000
CHRONY_CONF = pathlib.Path("/etc/chrony/chrony.conf")
TIMESYNCD_CONF = pathlib.Path("/etc/systemd/timesyncd.conf")
TIMESYNCD = pathlib.Path("/usr/lib/systemd/systemd-timesyncd")
IF_INET6 = pathlib.Path("/proc/net/if_inet6")
NO_ROUTE = "192.0.2.1"  # in a network of nobody, so that a packet to it fails at once
CHRONY_CALLS = ["-a burst 4/4", "waitsync 20 0 0 1", "-a makestep"]
NO_TIMEDATED = "<4>time: SetNTP failed ("


@pytest.fixture
def time_server():
    made = []

    def make(*arguments, **settings):
        made.append(TimeServer(*arguments, **settings))
        return made[-1]

    yield make
    for server in made:
        server.close()


@pytest.fixture
def chronyc(terminal):
    """chrony, which runs and corrects the clock at once; answers a reader of chronyc's calls."""
    terminal.tool(pathlib.Path("/usr/sbin/systemctl"), '[ "$*" = "is-active --quiet chrony.service" ]')
    return terminal.tool(pathlib.Path("/usr/sbin/chronyc"), "exit 0")


@pytest.fixture
def timesyncd(terminal):
    """timesyncd without chrony; answers a reader of systemctl's calls."""
    TIMESYNCD.write_bytes(b"")
    yield terminal.tool(pathlib.Path("/usr/sbin/systemctl"), "[ $1 = restart ]")
    TIMESYNCD.unlink()


@pytest.fixture
def kiosk(enrolled, bus):
    """An unlocked terminal whose clients name no server yet, and where names resolve by a file alone."""
    for path in CHRONY_CONF.parent, TIMESYNCD_CONF.with_name("timesyncd.conf.d"):
        shutil.rmtree(path, ignore_errors=True)
    CHRONY_CONF.parent.mkdir()
    TIMESYNCD_CONF.parent.mkdir(exist_ok=True)
    TIMESYNCD_CONF.write_text("")
    pathlib.Path("/etc/nsswitch.conf").write_text("hosts: files\n")
    pathlib.Path("/etc/hosts").write_text("127.0.0.1 four.example\n::1 six.example\n")
    TIMESYNCD.unlink(missing_ok=True)
    yield enrolled.start_unlocked()
    bus.timedated.leave()


def log_of(kiosk):
    return kiosk.lines_of("time: ")


def assert_is_now(text):
    assert abs(calendar.timegm(time.strptime(text, "%Y-%m-%dT%H:%M:%SZ")) - time.time()) < DEADLINE


def test_chrony_corrects_a_clock_whose_error_was_measured(kiosk, chronyc, time_server):
    server = time_server(ahead_s=AHEAD_S)
    CHRONY_CONF.write_text("# the house's own\nserver 127.0.0.1 iburst\n")

    reply = kiosk.settings("time.sync")

    assert list(reply) == ["ok", "server", "offsetMs", "at"]
    assert (reply["ok"], reply["server"]) == (True, "127.0.0.1")
    assert abs(reply["offsetMs"] - AHEAD_S * 1000) < DEADLINE * 1000
    assert_is_now(reply["at"])
    assert server.requests == [b"\x1b" + bytes(47)]
    assert chronyc() == CHRONY_CALLS
    told = log_of(kiosk)
    assert told[0].startswith(NO_TIMEDATED)
    assert told[1:] == [
        f"<6>time: resynced with 127.0.0.1, the clock was {reply['offsetMs']} ms out\n"]


def test_a_clock_that_is_ahead_has_a_negative_error(kiosk, chronyc, time_server):
    time_server(ahead_s=-AHEAD_S)
    CHRONY_CONF.write_text("pool four.example\n")

    reply = kiosk.settings("time.sync")

    assert reply["server"] == "four.example"
    assert abs(reply["offsetMs"] + AHEAD_S * 1000) < DEADLINE * 1000


@pytest.mark.skipif(not IF_INET6.exists(), reason="this kernel has no IPv6")
def test_a_server_may_have_an_address_of_ipv6(kiosk, chronyc, time_server):
    time_server("::1", ahead_s=AHEAD_S)
    CHRONY_CONF.write_text("server six.example\n")

    reply = kiosk.settings("time.sync")

    assert reply["server"] == "six.example"
    assert abs(reply["offsetMs"] - AHEAD_S * 1000) < DEADLINE * 1000


def test_chrony_may_succeed_where_the_measurement_did_not(kiosk, chronyc):
    CHRONY_CONF.write_text(f"server {NO_ROUTE}\n")

    reply = kiosk.settings("time.sync")

    assert reply == {"ok": True, "server": NO_ROUTE, "offsetMs": None, "at": reply["at"]}
    told = log_of(kiosk)
    assert told[0] == f"<4>time: no SNTP answer from {NO_ROUTE}\n"
    assert told[2:] == [f"<6>time: resynced with {NO_ROUTE}, the clock was 0 ms out\n"]


def test_a_client_that_fails_is_told_with_the_server(kiosk, chronyc, terminal, time_server):
    time_server()
    CHRONY_CONF.write_text("server 127.0.0.1\n")
    chronyc = terminal.tool(pathlib.Path("/usr/sbin/chronyc"), "[ $1 != waitsync ] || { echo ' try: 20 '; exit 1; }")

    reply = kiosk.settings("time.sync")

    assert list(reply.items()) == [("ok", False), ("error", "sync_failed"), ("server", "127.0.0.1")]
    assert chronyc() == CHRONY_CALLS
    assert log_of(kiosk)[1:] == ["<4>time: chrony did not report sync: try: 20\n"]


def test_a_terminal_that_nobody_answers_is_unreachable(kiosk, chronyc, terminal, time_server):
    time_server(stratum=0)  # a server that sends its askers away
    CHRONY_CONF.write_text("server 127.0.0.1\n")
    terminal.tool(pathlib.Path("/usr/sbin/chronyc"), "exit 1")

    reply = kiosk.settings("time.sync")

    assert list(reply.items()) == [("ok", False), ("error", "unreachable"), ("server", "127.0.0.1")]
    assert log_of(kiosk)[0] == "<4>time: no SNTP answer from 127.0.0.1\n"


def test_timesyncd_corrects_the_clock_where_chrony_is_not_active(kiosk, timesyncd, terminal, bus, time_server):
    time_server()
    chronyc = terminal.tool(pathlib.Path("/usr/sbin/chronyc"), "exit 0")
    TIMESYNCD_CONF.write_text("[Time]\nNTP=nowhere.example four.example\n")
    bus.timedated.begin(synchronised=True)

    reply = kiosk.settings("time.sync")

    assert (reply["ok"], reply["server"]) == (True, "four.example")
    assert bus.timedated.arguments_of("SetNTP") == [[True, False]]
    assert timesyncd()[-1] == "restart systemd-timesyncd.service"
    assert chronyc() == []
    assert log_of(kiosk) == [
        f"<6>time: resynced with four.example, the clock was {reply['offsetMs']} ms out\n"]


def test_a_terminal_without_a_client_cannot_correct_its_clock(kiosk, terminal):
    systemctl = terminal.tool(pathlib.Path("/usr/sbin/systemctl"), "exit 1")
    CHRONY_CONF.write_text(f"server {NO_ROUTE}\n")

    assert kiosk.settings("time.sync")["error"] == "unreachable"

    assert log_of(kiosk)[-1] == "<3>time: no NTP client (chrony or systemd-timesyncd) is installed\n"
    assert not any("timesyncd" in call for call in systemctl())


def test_two_at_once_both_run(kiosk, chronyc, terminal, place, make_gate):
    CHRONY_CONF.write_text(f"server {NO_ROUTE}\n")
    gate = make_gate("gate")
    calls = terminal.tool(pathlib.Path("/usr/sbin/chronyc"), f"[ $2 != burst ] || {gate.wait}")

    peers = [kiosk.launch_settings("time.sync") for _ in range(2)]
    wait_until(lambda: calls() == CHRONY_CALLS[:1] * 2, "both to be with chrony")
    gate.open(2)

    for peer in peers:
        assert b'"ok":true' in peer.communicate(timeout=DEADLINE)[0]
    assert sorted(calls()) == sorted(CHRONY_CALLS * 2)


def test_a_locked_terminal_corrects_nothing(kiosk, chronyc):
    kiosk.token = "0" * 32

    assert kiosk.settings("time.sync") == {"ok": False, "error": "not_unlocked"}

    assert chronyc() == []
    assert kiosk.service.log.lines[-1] == (
        f"<4>time.sync refused: terminal settings are not unlocked for session {KIOSK_SESSION.id}\n")
