"""Chapter 4: the person at the terminal changes its network, its proxy and its clock."""

import json

import pytest

from striker import strikes
from terminal import CLIENT, KIOSK_UNIT

ADAPTER = "enp0s2"
# Of the network that QEMU makes: its DHCP gives .15, and with no way out of it neither a gateway nor a name server.
LEASE = "10.0.2.15/24"
FIXED = {"adapter": ADAPTER, "mode": "static", "ip": "10.0.2.77", "prefix": 24, "gateway": "10.0.2.2", "dns": ["10.0.2.9"]}
AUTOMATIC = {"adapter": ADAPTER, "mode": "dhcp"}

PROXY = "127.0.0.1:8482"
PROXY_UNIT = "tarnvale-proxy.service"
REPOSITORY = "http://127.0.0.1:8481"
NOTICE = "notice-2.deb"
APT_PROXY = "/etc/apt/apt.conf.d/95tarnvale-kiosk-proxy"
PROXY_ENV = "/etc/tarnvale-kiosk/proxy.env"

TIME_SERVER = "127.0.0.2"
TIME_SERVER_UNIT = "tarnvale-time-server.service"
HOUR_S = 3600
# The RTC tells whole seconds, and between two looks at a clock an emulated machine may be slow.
CLOCKS_AGREE_S = 10


@pytest.fixture
def unlocked(terminal):
    """The unlock token, for one test: it counts for ten minutes."""
    return terminal.unlock()


@pytest.fixture(scope="module", autouse=True)
def network_and_world(terminal):
    """The network is up when the chapter begins; time client, time server and proxy are off when it ends."""
    terminal.run("nm-online --quiet --timeout 300", timeout_s=310)
    yield
    terminal.run(f"timedatectl set-ntp false; systemctl stop {PROXY_UNIT} {TIME_SERVER_UNIT}")


def address(terminal):
    """The adapter's IPv4 address, and whether it is a lease that runs out."""
    [found] = json.loads(terminal.run(f"ip -json -4 address show {ADAPTER}"))[0]["addr_info"]
    return f"{found['local']}/{found['prefixlen']}", found.get("dynamic", False)


def profile(terminal):
    """What NetworkManager keeps for the adapter: name, method, addresses, gateway, DNS, and whether it ignores others."""
    fields = "connection.id,ipv4.method,ipv4.addresses,ipv4.gateway,ipv4.dns,ipv4.ignore-auto-dns"
    active = f"nmcli --get-values GENERAL.CON-UUID device show {ADAPTER}"
    return terminal.run(f'nmcli --get-values {fields} connection show "$({active})"').splitlines()


def name_servers(terminal):
    return [line.split()[1] for line in terminal.read("/etc/resolv.conf").splitlines() if line.startswith("nameserver ")]


def update_packages(terminal):
    """Whether apt reaches the repository."""
    return terminal.try_run("apt-get update --error-on=any").status == 0


def updates_once_checked(terminal, unlocked):
    """What os.updates answers, or None while a check is under way."""
    status = terminal.ask("os.updates", **unlocked)
    return None if status["checking"] else status


def fetch(terminal, file):
    """Whether a program that takes its environment from proxy.env gets a file of the repository."""
    curl = f"curl --silent --fail --output /dev/null {REPOSITORY}/{file}"
    return terminal.try_run(f"systemd-run --quiet --wait --property EnvironmentFile={PROXY_ENV} {curl}").status == 0


def wait_until_proxy_passed(terminal, file, times=1):
    def passed():
        requests = terminal.run(f"journalctl --quiet --output cat --unit {PROXY_UNIT}").splitlines()
        return sum(f"/{file} " in line and " 200 " in line for line in requests) >= times

    terminal.until(f"the proxy passes {file} on for the {times}. time", passed)


def proxy_files(terminal):
    return terminal.read(PROXY_ENV), terminal.read(APT_PROXY)


def seconds_behind(terminal):
    """How far the clock is behind the RTC."""
    rtc, clock = terminal.run("cat /sys/class/rtc/rtc0/since_epoch; date +%s").split()
    return int(rtc) - int(clock)


def test_without_the_unlock_nothing_is_changed(terminal, saw):
    before = address(terminal), profile(terminal)

    for request, members in (("net.set", FIXED), ("proxy.set", {"mode": "manual", "server": PROXY}), ("time.sync", {})):
        assert terminal.ask(request, **members) == {"ok": False, "error": "not_unlocked"}

    assert (address(terminal), profile(terminal)) == before
    assert not terminal.exists(PROXY_ENV)
    assert not terminal.exists(APT_PROXY)
    assert terminal.try_run("systemctl is-active chrony").out.strip() == "inactive"
    saw(f"net.set, proxy.set and time.sync are refused (not_unlocked): {ADAPTER} keeps {LEASE}, no proxy, no NTP")


def test_net_set_gives_the_adapter_a_fixed_address(terminal, unlocked, saw):
    log = terminal.log()

    assert terminal.ask("net.set", **FIXED, **unlocked) == {"ok": True}

    assert log.lines() == [f"net: {ADAPTER}: setting fixed 10.0.2.77/24 gateway 10.0.2.2, DNS 10.0.2.9",
                           f"net: {ADAPTER} is now fixed 10.0.2.77/24 gateway 10.0.2.2, DNS 10.0.2.9"]
    assert address(terminal) == ("10.0.2.77/24", False)
    assert terminal.run("ip route show default").startswith(f"default via 10.0.2.2 dev {ADAPTER} ")
    assert profile(terminal)[1:] == ["manual", "10.0.2.77/24", "10.0.2.2", "10.0.2.9", "yes"]
    assert name_servers(terminal) == ["10.0.2.9"]
    saw(f"{ADAPTER} has 10.0.2.77/24 and the default route by 10.0.2.2, resolv.conf asks 10.0.2.9")


def test_sigkills_leave_the_fixed_address(terminal, saw):
    with strikes(terminal, 2, within_s=4):
        pass

    assert address(terminal) == ("10.0.2.77/24", False)
    assert profile(terminal)[1:] == ["manual", "10.0.2.77/24", "10.0.2.2", "10.0.2.9", "yes"]
    saw("killed and started again, the service has left the adapter as it was set")


def test_kills_around_a_net_set_leave_an_adapter_that_can_be_set(terminal, unlocked, saw):
    with strikes(terminal, 2, within_s=2):
        terminal.try_to_ask("net.set", **FIXED | {"ip": "10.0.2.78"}, **unlocked)

    terminal.until("one of the two addresses", lambda: any(
        ip in terminal.run(f"ip -4 -brief address show {ADAPTER}").split() for ip in ("10.0.2.77/24", "10.0.2.78/24")))
    assert terminal.ask("net.set", **FIXED, **terminal.unlock()) == {"ok": True}
    assert address(terminal) == ("10.0.2.77/24", False)
    saw("killed when it was asked for another address, the service left one of the two, and sets it when asked again")


def test_net_set_goes_back_to_the_lease(terminal, unlocked, saw):
    assert terminal.ask("net.set", **AUTOMATIC, **unlocked) == {"ok": True}

    assert address(terminal) == (LEASE, True)
    assert terminal.run("ip route show default") == ""
    assert profile(terminal)[1:] == ["auto", "", "", "", "no"]
    assert name_servers(terminal) == []
    saw(f"{ADAPTER} leases {LEASE} again, and nothing fixed is left in its profile")


def test_net_set_leaves_alone_what_networkmanager_does_not_manage(terminal, unlocked, saw):
    log = terminal.log()
    refused = {"ok": False, "error": "unknown_adapter"}
    terminal.run(f"nmcli device set {ADAPTER} managed no")

    assert terminal.ask("net.set", **FIXED, **unlocked) == refused
    assert terminal.ask("net.set", **FIXED | {"adapter": "lo"}, **unlocked) == refused
    assert terminal.ask("net.set", **FIXED | {"adapter": "eth9"}, **unlocked) == refused

    assert log.has(f"net: {ADAPTER} is not managed by NetworkManager", "warning")
    assert address(terminal)[0] == LEASE
    terminal.run(f"nmcli device set {ADAPTER} managed yes; nmcli device connect {ADAPTER}")
    saw("an unmanaged adapter, the loopback and one that is not there are refused (unknown_adapter)")


def test_net_set_gives_an_adapter_without_a_profile_one(terminal, unlocked, saw):
    terminal.run(f"nmcli connection delete '{profile(terminal)[0]}'")

    assert terminal.ask("net.set", **AUTOMATIC, **unlocked) == {"ok": True}

    assert profile(terminal)[:2] == [f"Tarnvale {ADAPTER}", "auto"]
    assert address(terminal) == (LEASE, True)
    saw(f"{ADAPTER}, its profile deleted, leases {LEASE} by a new one: Tarnvale {ADAPTER}")


def test_proxy_set_is_what_apt_then_uses(terminal, unlocked, saw):
    terminal.run(f"systemctl start {PROXY_UNIT}")

    reply = terminal.ask("proxy.set", mode="manual", server=PROXY, **unlocked)

    assert reply == {"ok": True, "mode": "manual", "pacUrl": "", "server": PROXY, "bypass": []}
    assert update_packages(terminal)
    wait_until_proxy_passed(terminal, "Packages")
    saw(f"apt-get update goes through the proxy {PROXY}")
    assert terminal.ask("os.updates", check=True, **unlocked)["checking"]
    status = terminal.until("the end of the check", lambda: updates_once_checked(terminal, unlocked))
    assert {update["id"] for update in status["updates"]} == {"tarnvale-kioskd", "terminal-notice"}, status
    wait_until_proxy_passed(terminal, "Packages", times=2)
    saw("the service's own check goes through it too, and finds both packages")


def test_proxy_env_is_what_other_programs_use(terminal, unlocked, saw):
    assert fetch(terminal, NOTICE)
    wait_until_proxy_passed(terminal, NOTICE)
    terminal.run(f"systemctl stop {PROXY_UNIT}")
    assert not fetch(terminal, NOTICE)

    assert terminal.ask("proxy.set", mode="manual", server=PROXY, bypass="<local>", **unlocked)["bypass"] == ["<local>"]

    assert fetch(terminal, NOTICE)
    saw("curl with proxy.env for its environment goes through the proxy too, and past it with <local> for a bypass")


def test_a_kiosk_session_that_begins_now_has_the_proxy(terminal, saw):
    terminal.run(f"systemctl restart {KIOSK_UNIT}")
    terminal.wait_for_kiosk()

    environment = terminal.run(f"tr '\\0' '\\n' </proc/$(pgrep --exact --full '{CLIENT} --kiosk')/environ").splitlines()

    assert f"http_proxy=http://{PROXY}" in environment, environment
    saw("the stream client of the next session has the proxy in its environment")


def test_kills_around_a_proxy_set_leave_whole_files(terminal, unlocked, saw):
    wanted = {"mode": "manual", "server": PROXY, "bypass": "<local>"}
    new = proxy_files(terminal)
    assert terminal.ask("proxy.set", mode="manual", server="proxy.example:3128", **unlocked)["ok"]
    old = proxy_files(terminal)
    assert not set(old) & set(new)

    with strikes(terminal, 2, within_s=2):
        terminal.try_to_ask("proxy.set", **wanted, **unlocked)

    for left, *either in zip(proxy_files(terminal), old, new):
        assert left in either
    assert terminal.ask("proxy.set", **wanted, **terminal.unlock())["ok"]
    assert proxy_files(terminal) == new
    saw("killed when it was asked for another proxy, the service left whole files, and sets it when asked again")


def test_without_a_proxy_apt_goes_direct_again(terminal, unlocked, saw):
    assert not update_packages(terminal)

    assert terminal.ask("proxy.set", mode="none", **unlocked)["ok"]

    assert update_packages(terminal)
    assert terminal.read(PROXY_ENV) == "TARNVALE_PROXY_MODE=none"
    assert not terminal.exists(APT_PROXY)
    saw("apt, which missed the stopped proxy, reaches the repository directly")


def test_time_sync_tells_of_a_time_server_that_is_gone(terminal, unlocked, saw):
    log = terminal.log()
    terminal.set_clock("1 hour ago")
    behind = seconds_behind(terminal)

    reply = terminal.ask("time.sync", **unlocked)

    assert reply == {"ok": False, "error": "unreachable", "server": TIME_SERVER}
    assert log.has(f"time: no SNTP answer from {TIME_SERVER}", "warning")
    assert abs(seconds_behind(terminal) - behind) <= CLOCKS_AGREE_S
    saw(f"time.sync says that the time server is unreachable; the clock stays {behind} s behind")


def test_time_sync_has_turned_the_time_client_on(terminal, saw):
    # timedated answers before the client that it starts is there.
    terminal.until("chrony runs", lambda: terminal.try_run("systemctl is-active --quiet chrony").status == 0)

    assert terminal.run("systemctl is-enabled chrony") == "enabled"
    saw("chrony, off until then, runs and is enabled")


def test_time_sync_moves_a_clock_that_is_wrong(terminal, unlocked, saw):
    log = terminal.log()
    terminal.run(f"systemctl start {TIME_SERVER_UNIT}")
    behind = seconds_behind(terminal)
    assert behind > HOUR_S / 2

    reply = terminal.ask("time.sync", **unlocked)

    assert (reply["ok"], reply["server"]) == (True, TIME_SERVER), reply
    assert abs(reply["offsetMs"] - behind * 1000) <= CLOCKS_AGREE_S * 1000, reply
    assert abs(seconds_behind(terminal)) <= CLOCKS_AGREE_S
    line = f"time: resynced with {TIME_SERVER}, the clock was {reply['offsetMs']} ms out"
    assert log.has(line), log.lines()
    saw(f"{line}; it now agrees with the RTC")
