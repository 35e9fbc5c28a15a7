"""`net.set` from the kiosk session to nmcli, and what nmcli may do to it."""

import os

import pytest

from kioskd import DEADLINE, wait_until
from settings import INVALID, check_rows

OK = {"ok": True}
UNKNOWN_ADAPTER = {"ok": False, "error": "unknown_adapter"}
FAILED = {"ok": False, "error": "failed"}

FIXED = {"adapter": "eth0", "mode": "static", "ip": "10.0.0.7", "prefix": 24, "gateway": "10.0.0.1",
         "dns": ["9.9.9.9", "1.1.1.1"]}
AUTOMATIC = {"adapter": "eth0", "mode": "dhcp"}

ASK = "systemctl [is-active] [--quiet] [NetworkManager.service]"


def query(adapter):
    return f"nmcli [-t] [-f] [GENERAL.TYPE,GENERAL.STATE,GENERAL.CON-UUID] [device] [show] [{adapter}]"


def modify(connection, settings="[ipv4.method] [auto] [ipv4.addresses] [] [ipv4.gateway] [] [ipv4.dns] [] "
                                "[ipv4.ignore-auto-dns] [no]"):
    return f"nmcli [connection] [modify] [{connection}] {settings}"


def up(connection, adapter):
    return f"nmcli [connection] [up] [{connection}] [ifname] [{adapter}]"


def automatic_change(adapter):
    return [ASK, query(adapter), modify(f"id-{adapter}"), up(f"id-{adapter}", adapter)]


@pytest.fixture
def unlocked(kiosk):
    kiosk.replace_nmcli()
    return kiosk.start_unlocked()


# Requests.

absent = object()
NOT_PLAIN = [7, True, {}, ["10.0.0.7"], "10.0.0", "10.0.0.7.1", "10.0.0.256", "10.0.010.7", "10.0.0.7 ", "10.0.0.7/24",
             "0.1.2.3", "127.0.0.1", "224.0.0.1", "255.255.255.255", "1000.0.0.7", "::1", "010.0.0.7", "10..0.7"]
REFUSED = {
    "adapter": [absent, None, 7, True, [], {}, "", ".", "..", "a" * 16, "a/b", "a b", "a:b", "\u00e9", "a\0", "eth0\n"],
    "mode": [absent, None, 1, True, [], "", "DHCP", "Static", "static ", "auto"],
    "dns": [7, True, {}, "9.9.9.9", "", ["9.9.9.9", "9.9.9.9"], ["9.9.9.9", None], ["9.9.9.9", 1], [""], [[]],
            ["9.9.9.1", "9.9.9.2", "9.9.9.3", "9.9.9.4", "9.9.9.5"], *([text] for text in NOT_PLAIN)],
    "ip": [absent, None, "", *NOT_PLAIN, "10.0.0.0", "10.0.0.255"],
    "prefix": [absent, None, "24", True, [], {}, 0, 33, -1, 24.5, 1e300],
    "gateway": [*NOT_PLAIN, "10.0.0.7", "10.0.1.1", "10.0.0.0", "10.0.0.255"],
}
TAKEN = [
    AUTOMATIC | {"adapter": "a" * 15}, AUTOMATIC | {"adapter": "..."}, AUTOMATIC | {"adapter": "Az09-.@_"},
    AUTOMATIC | {"adapter": "-"}, AUTOMATIC | {"adapter": "--help"},
    AUTOMATIC | {"ip": "rubbish", "prefix": "no", "gateway": 1}, AUTOMATIC | {"dns": None}, AUTOMATIC | {"dns": []},
    AUTOMATIC | {"dns": ["9.9.9.1", "9.9.9.2", "9.9.9.3", "9.9.9.4"]},
    FIXED | {"ip": "1.0.0.1", "gateway": "1.0.0.2"}, FIXED | {"ip": "223.255.255.254", "gateway": None},
    FIXED | {"gateway": ""}, FIXED | {"ip": "10.0.0.0", "prefix": 31, "gateway": "10.0.0.1"},
    FIXED | {"ip": "10.0.0.1", "prefix": 31, "gateway": "10.0.0.0"},
    FIXED | {"ip": "10.0.0.255", "prefix": 32, "gateway": None}, FIXED | {"prefix": 1, "gateway": "126.255.255.254"},
    FIXED | {"ip": "10.0.0.5", "prefix": 30, "gateway": "10.0.0.6"},
]
REFUSED_TOGETHER = [
    ("gateway", FIXED | {"prefix": 32}), ("gateway", FIXED | {"prefix": 31}),
    ("ip", FIXED | {"ip": "10.0.0.4", "prefix": 30, "gateway": None}), ("dns", AUTOMATIC | {"dns": ["9.9.9.9"] * 5}),
    ("ip", FIXED | {"ip": "10.0.0.7", "prefix": 30, "gateway": None}), ("adapter", {}),
    ("mode", {"adapter": "eth0", "dns": 7}), ("dns", FIXED | {"dns": 7, "ip": 7}),
    ("ip", FIXED | {"ip": 7, "prefix": 0}),
    ("prefix", FIXED | {"ip": "10.0.0.0", "prefix": 0}), ("ip", FIXED | {"ip": "10.0.0.0", "gateway": 7}),
]


def change(request, name, value):
    return {key: one for key, one in (request | {name: value}).items() if one is not absent}


def test_net_set_refuses_every_member_that_is_not_right_and_names_it_in_the_log(unlocked):
    refused = [(name, change(FIXED, name, value)) for name, values in REFUSED.items() for value in values]
    refused += REFUSED_TOGETHER

    check_rows([(request, INVALID) for _, request in refused], lambda request: unlocked.settings("net.set", **request))

    assert unlocked.lines_of("net.set") == [f"<4>net.set refused: invalid {name}\n" for name, _ in refused]
    assert unlocked.lines_of("net:") == []
    assert unlocked.calls() == []


def test_net_set_takes_every_member_at_its_limits(unlocked):
    check_rows([(request, OK) for request in TAKEN], lambda request: unlocked.settings("net.set", **request))

    assert unlocked.lines_of("net.set") == []
    assert len(unlocked.lines_of("net:")) == 2 * len(TAKEN)
    assert [call for call in unlocked.calls() if "[device]" in call] == [
        query(request["adapter"]) for request in TAKEN]


def test_net_set_works_on_a_terminal_that_has_lost_its_token(unlocked):
    os.unlink("/etc/machine-id")  # the token is bound to it

    assert unlocked.settings("power.set", screenOffMinutes=1, sleepMinutes=1) == {"ok": False, "error": "not_enrolled"}
    assert unlocked.settings("net.set", **AUTOMATIC) == OK


# What the tools get.


def test_every_child_gets_its_arguments_and_nothing_else(unlocked):
    assert unlocked.settings("net.set", **FIXED) == OK

    assert unlocked.calls() == [
        ASK, query("eth0"),
        modify("id-eth0", "[ipv4.method] [manual] [ipv4.addresses] [10.0.0.7/24] [ipv4.gateway] [10.0.0.1] "
                          "[ipv4.dns] [9.9.9.9 1.1.1.1] [ipv4.ignore-auto-dns] [yes]"),
        up("id-eth0", "eth0")]
    told = "eth0{} fixed 10.0.0.7/24 gateway 10.0.0.1, DNS 9.9.9.9,1.1.1.1\n"
    assert unlocked.lines_of("net:") == ["<6>net: " + told.format(": setting"), "<6>net: " + told.format(" is now")]


def test_an_adapter_without_a_profile_gets_one(unlocked):
    unlocked.replace_nmcli(query="echo GENERAL.TYPE:ethernet", lookup="echo; echo ' new-id '; exit 1")

    assert unlocked.settings("net.set", **AUTOMATIC) == OK

    assert unlocked.calls() == [
        ASK, query("eth0"),
        "nmcli [-t] [-g] [connection.uuid] [connection] [add] [type] [ethernet] [ifname] [eth0] [con-name] "
        "[Tarnvale eth0]",
        "nmcli [-t] [-g] [connection.uuid] [connection] [show] [Tarnvale eth0]", modify("new-id"),
        up("new-id", "eth0")]


def test_a_child_inherits_three_descriptors_the_environment_and_nothing_more(unlocked):
    # Several connections and a listening socket are open in the service meanwhile.
    unlocked.replace_nmcli(first="""
ls /proc/self/fd > $here/descriptors
working=$(readlink /proc/$$/fd/0 /proc/$$/fd/1 /proc/$$/fd/2)
echo "$working" > $here/working
tr '\\0' '\\n' < /proc/$$/environ > $here/environment
read -r pid name state parent group rest < /proc/$$/stat
echo $pid $group $parent > $here/group
""")

    with unlocked.service.connect(), unlocked.service.connect():
        assert unlocked.settings("net.set", **AUTOMATIC) == OK

    def noted(name):
        return (unlocked.place / name).read_text().splitlines()

    assert noted("descriptors") == ["0", "1", "2", "3"]  # 3 is the directory that ls reads
    null, output, error = noted("working")
    assert null == "/dev/null" and output.startswith("pipe:") and error == output
    with open(f"/proc/{unlocked.service.pid}/environ", encoding="utf-8", errors="surrogateescape") as environ:
        own = environ.read().split("\0")[:-1]
    assert noted("environment") == own + ["LC_ALL=C"]
    pid, group, parent = noted("group")[0].split()
    assert group == pid and parent == str(unlocked.service.pid)


# Several at once.


def test_a_second_change_waits_for_the_first_and_other_commands_do_not(unlocked):
    os.mkfifo(unlocked.place / "go")
    unlocked.replace_nmcli(first='case "$*" in *"show eth0") read -r word < $here/go ;; esac')
    first = unlocked.launch_settings("net.set", **AUTOMATIC)
    unlocked.wait_for_call("[show] [eth0]")
    second = unlocked.launch_settings("net.set", adapter="eth1", mode="dhcp")
    wait_until(lambda: unlocked.service.connections() == 2, "the second change to be taken up")

    assert unlocked.settings("power.set", screenOffMinutes=1, sleepMinutes=1)["ok"]
    assert unlocked.settings("proxy.set", mode="none")["ok"]
    assert unlocked.settings("net.set") == INVALID
    assert first.poll() is None and second.poll() is None
    meanwhile = unlocked.calls()
    (unlocked.place / "go").write_text("go\n")
    assert [peer.communicate(timeout=DEADLINE)[0].strip() for peer in (first, second)] == [b'{"ok":true}'] * 2

    assert meanwhile == automatic_change("eth0")[:2] + ["systemctl [reload] [systemd-logind.service]"]
    assert unlocked.calls() == automatic_change("eth0")[2:] + automatic_change("eth1")
    assert [line.split()[1:3] for line in unlocked.lines_of("net:")] == [
        ["eth0:", "setting"], ["eth0", "is"], ["eth1:", "setting"], ["eth1", "is"]]


def test_a_change_under_way_outlives_the_unlock_that_it_began_with(unlocked):
    os.mkfifo(unlocked.place / "go")
    unlocked.replace_nmcli(first='case "$*" in *"show eth0") read -r word < $here/go ;; esac')
    change_under_way = unlocked.launch_settings("net.set", **AUTOMATIC)
    unlocked.wait_for_call("[show] [eth0]")
    stale = unlocked.settings_request("net.set", **AUTOMATIC)
    unlocked.unlock()  # a new unlock takes the place of the old one

    assert unlocked.send(stale) == {"ok": False, "error": "not_unlocked"}
    (unlocked.place / "go").write_text("go\n")

    assert change_under_way.communicate(timeout=DEADLINE)[0].strip() == b'{"ok":true}'


# What goes wrong.

MUCH = "head -c 5000000 /dev/zero | tr '\\0' x"
DESCRIBED = "automatic (DHCP), DNS automatic"
FAULTS = [
    ({"query": "exit 10"}, UNKNOWN_ADAPTER, 2, ""),
    ({"query": "kill -9 $$"}, UNKNOWN_ADAPTER, 2, ""),
    ({"query": "echo GENERAL.TYPE:bridge"}, UNKNOWN_ADAPTER, 2, ""),
    ({"query": ""}, UNKNOWN_ADAPTER, 2, ""),
    ({"query": "echo GENERAL.TYPE:wifi; echo GENERAL.CON-UUID:"}, FAILED, 2, ""),
    ({"query": "echo GENERAL.TYPE:ethernet; echo 'GENERAL.STATE:10 (unmanaged)'"}, UNKNOWN_ADAPTER, 2,
     "<4>net: eth0 is not managed by NetworkManager\n"),
    ({"query": "echo GENERAL.TYPE:ethernet", "add": "echo; echo no room >&2; exit 1"}, FAILED, 3,
     "<3>net: cannot create a connection for eth0: no room\n"),
    ({"query": "echo GENERAL.TYPE:ethernet", "add": "kill -11 $$"}, FAILED, 3,
     "<3>net: cannot create a connection for eth0: \n"),
    ({"query": "echo GENERAL.TYPE:ethernet", "lookup": ""}, FAILED, 4, ""),
    ({"modify": "echo bad value; exit 2"}, FAILED, 3, "<3>net: nmcli modify failed: bad value\n"),
    ({"modify": "kill -9 $$"}, FAILED, 3, "<3>net: nmcli modify failed: \n"),
    ({"up": "echo no link; exit 4"}, FAILED, 4, "<3>net: nmcli up failed: no link\n"),
    ({"up": "kill -15 $$"}, FAILED, 4, "<3>net: nmcli up failed: \n"),
    # The fields come after more than is kept of the output.
    ({"query": f"{MUCH}; echo; echo GENERAL.TYPE:ethernet"}, UNKNOWN_ADAPTER, 2, ""),
]


def test_each_fault_of_nmcli_ends_the_change_with_its_code_and_its_line(unlocked):
    for steps, reply, calls, told in FAULTS:
        before = len(unlocked.lines_of("net:"))
        unlocked.replace_nmcli(**steps)

        assert unlocked.settings("net.set", **AUTOMATIC) == reply, steps

        lines = [f"<6>net: eth0: setting {DESCRIBED}\n", *([told] if told else []),
                 f"<3>net: eth0: the change to {DESCRIBED} did not apply ({reply['error']})\n"]
        assert unlocked.lines_of("net:")[before:] == lines, steps
        assert len(unlocked.calls()) == calls, steps

    unlocked.replace_nmcli()
    assert unlocked.settings("net.set", **AUTOMATIC) == OK


def test_five_megabytes_of_output_are_cut_in_the_log_and_block_nobody(unlocked):
    unlocked.replace_nmcli(query=f"echo GENERAL.TYPE:ethernet; echo GENERAL.CON-UUID:id; {MUCH}",
                           modify=f"{MUCH}; exit 1")

    assert unlocked.settings("net.set", **AUTOMATIC) == FAILED

    line, = (line for line in unlocked.lines_of("net:") if "modify failed" in line)
    kept = line.removeprefix("<3>net: nmcli modify failed: ").removesuffix("\n")
    assert set(kept) == {"x"} and 4 << 20 <= len(kept) < (4 << 20) + 4096


@pytest.mark.parametrize("break_it", [
    lambda kiosk: kiosk.remove_tool("nmcli"),
    lambda kiosk: kiosk.remove_tool("systemctl"),
    lambda kiosk: kiosk.replace("systemctl", "exit 3"),
    lambda kiosk: kiosk.replace("systemctl", "kill -9 $$"),
], ids=["no nmcli", "no systemctl", "inactive", "systemctl dies"])
def test_without_a_network_manager_no_adapter_is_known(unlocked, break_it):
    break_it(unlocked)

    assert unlocked.settings("net.set", **AUTOMATIC) == UNKNOWN_ADAPTER

    assert unlocked.service.log.count(
        "<4>net: NetworkManager is not running; eth0 cannot be changed from the terminal\n") == 1
    assert not any(call.startswith("nmcli") for call in unlocked.calls())


def test_a_tool_that_cannot_be_executed_counts_as_one_that_fails(unlocked):
    unlocked.replace("nmcli", body="#!/nonexistent")

    assert unlocked.settings("net.set", **AUTOMATIC) == UNKNOWN_ADAPTER
