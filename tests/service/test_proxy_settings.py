"""`proxy.set` from the kiosk session to its two files, and the one request that ends the service."""

import json
import pathlib
import re
import resource
import signal
import stat

import pytest

from kioskd import DEADLINE
from settings import INVALID, check_rows, policy, stamps

APT_DIRECTORY = pathlib.Path("/etc/apt/apt.conf.d")
APT = APT_DIRECTORY / "95tarnvale-kiosk-proxy"
FAILED = {"ok": False, "error": "failed"}
MANUAL = {"mode": "manual", "server": "proxy.example:3128"}
AUTO = {"mode": "auto", "pacUrl": "http://pac.example/p"}


@pytest.fixture(autouse=True)
def clean():
    yield
    APT.unlink(missing_ok=True)


@pytest.fixture
def env(kiosk):
    return kiosk.etc / "proxy.env"


def applied(mode, pac_url="", server="", bypass=()):
    return {"ok": True, "mode": mode, "pacUrl": pac_url, "server": server, "bypass": list(bypass)}


# Requests.

NAME_253 = ".".join(["a" * 63] * 3 + ["a" * 61])
TAKEN = [
    ({"mode": "none", "pacUrl": "http", "server": 7, "bypass": 7}, applied("none")),
    ({"mode": "auto", "pacUrl": " HTTPS://Pac.Example:8080/A?b=c@d#e\t", "server": 7, "bypass": 7},
     applied("auto", "HTTPS://Pac.Example:8080/A?b=c@d#e")),
    ({"mode": "auto", "pacUrl": "http://h:/"}, applied("auto", "http://h:/")),
    ({"mode": "auto", "pacUrl": "http://[::1]:1?q"}, applied("auto", "http://[::1]:1?q")),
    ({"mode": "auto", "pacUrl": "http://h/" + "a" * 2039}, applied("auto", "http://h/" + "a" * 2039)),
    ({"mode": "manual", "server": " Proxy.Example:65535\n", "pacUrl": "http"},
     applied("manual", server="proxy.example:65535")),
    ({"mode": "manual", "server": "[2001:DB8::1]:1"}, applied("manual", server="[2001:db8::1]:1")),
    ({"mode": "manual", "server": NAME_253 + ":3128"}, applied("manual", server=NAME_253 + ":3128")),
    (MANUAL | {"bypass": None}, applied("manual", server="proxy.example:3128")),
    (MANUAL | {"bypass": "*.Example;;<Local>, 10.* \t a"},
     applied("manual", server="proxy.example:3128", bypass=["*.example", "<local>", "10.*", "a"])),
    (MANUAL | {"bypass": ["", " A ", "a", "*"]}, applied("manual", server="proxy.example:3128", bypass=["a", "*"])),
    (MANUAL | {"bypass": ["a" * 253]}, applied("manual", server="proxy.example:3128", bypass=["a" * 253])),
    (MANUAL | {"bypass": "a;" * 1024}, applied("manual", server="proxy.example:3128", bypass=["a"])),
    (MANUAL | {"bypass": [f"h{i % 64}" for i in range(100)]},
     applied("manual", server="proxy.example:3128", bypass=[f"h{i}" for i in range(64)])),
]
OTHER_KINDS = [None, 7, True, [], {}, ["http://h/"]]
REFUSED = [
    *(("mode", {"mode": value} if value != "absent" else {})
      for value in ["absent", None, 0, True, [], {}, "", "NONE", "Auto", "manual ", "direct"]),
    ("pacUrl", {"mode": "auto"}), ("server", {"mode": "manual"}),
    *(("pacUrl", {"mode": "auto", "pacUrl": value}) for value in [
        *OTHER_KINDS, "", " ", "http://", "http:///p", "ftp://h/", "http://u@h/", "http://u:p@h/", "http://h:0/",
        "http://h:65536/", "http://h:08/", "http://h h/", "http://h\u00e9/", "http://h/\x7f", "http://h\0/",
        "http://[::1/",
        "http://[::1]x/", "http://[name]/", "http://10.0.0.256/", "http://1.2.3/", "http://-h/", "http://h-/",
        "http://a..b/", "http://h/" + "a" * 2040]),
    *(("server", {"mode": "manual", "server": value}) for value in [
        *OTHER_KINDS, "", "proxy.example", "proxy.example:", ":3128", "proxy.example:0", "proxy.example:65536",
        "proxy.example:03128", "proxy.example:123456", "proxy.example:+1", "http://proxy.example:3128", "[::1]",
        "[::1]:",
        "[::1]3128", "[proxy]:3128", "::1:3128", "10.0.0.256:3128", "1.2.3:3128", "a b:3128", "a\nb:3128",
        'a";:3128', "a_b:3128", NAME_253 + "a:3128", "a" * 64 + ":1", "a" * 296 + ":3128"]),
    *(("bypass", MANUAL | {"bypass": value}) for value in [
        7, True, False, {}, ["a", 7], ["a", None], [["a"]], "a..b", ".a", "-a", "a/b", "a:1", "[::1]", "<locals>",
        ["a b"], ["a;b"], 'a"b', "\u00e9", "a\0", ["a" * 254], "a;" * 1024 + "a", [f"h{i}" for i in range(65)]]),
]


def test_proxy_set_takes_every_member_at_its_limits_and_repeats_what_it_understood(kiosk):
    kiosk.start_unlocked()

    check_rows(TAKEN, lambda request: kiosk.settings("proxy.set", **request))

    assert kiosk.lines_of("proxy.set") == []
    assert len(kiosk.lines_of("proxy:")) == len(TAKEN)
    assert kiosk.calls() == []


def test_proxy_set_refuses_every_member_that_is_not_right_and_names_it_in_the_log(kiosk, env):
    kiosk.start_unlocked()
    assert kiosk.settings("proxy.set", **MANUAL)["ok"]
    before = stamps(env, APT)

    check_rows([(request, INVALID) for _, request in REFUSED], lambda request: kiosk.settings("proxy.set", **request))

    assert kiosk.lines_of("proxy.set") == [f"<4>proxy.set refused: invalid {name}\n" for name, _ in REFUSED]
    assert stamps(env, APT) == before


def test_each_mode_writes_its_files_and_the_same_again_touches_neither(kiosk, env):
    kiosk.start_unlocked()
    url = "http://proxy.example:3128"

    for _ in range(2):
        kiosk.settings("proxy.set", **MANUAL, bypass="<local>;10.*")
        before = stamps(env, APT)
        kiosk.settings("proxy.set", **MANUAL, bypass=["<LOCAL>", "10.*"])
        assert stamps(env, APT) == before
        assert env.read_text() == (
            f"TARNVALE_PROXY_MODE=manual\nhttp_proxy={url}\nhttps_proxy={url}\nHTTP_PROXY={url}\nHTTPS_PROXY={url}\n"
            "no_proxy=localhost,127.0.0.1,::1,10.*\nNO_PROXY=localhost,127.0.0.1,::1,10.*\n"
            "TARNVALE_PROXY_SERVER=proxy.example:3128\nTARNVALE_PROXY_BYPASS=<local>;10.*\n")
        assert APT.read_text() == f'Acquire::http::Proxy "{url}";\nAcquire::https::Proxy "{url}";\n'
        assert [stat.S_IMODE(path.stat().st_mode) for path in (env, APT)] == [0o644, 0o644]

        kiosk.settings("proxy.set", **AUTO)
        assert env.read_text() == ("TARNVALE_PROXY_MODE=auto\nTARNVALE_PAC_URL=http://pac.example/p\n"
                                   "http_proxy=pac+http://pac.example/p\nhttps_proxy=pac+http://pac.example/p\n")
        assert not APT.exists()

        kiosk.settings("proxy.set", mode="none")
        assert env.read_text() == "TARNVALE_PROXY_MODE=none\n"

    assert kiosk.lines_of("proxy:") == 2 * [
        *2 * ['<6>proxy: proxy.example:3128, bypass "<local>;10.*"\n'],
        "<6>proxy: automatic from http://pac.example/p\n",
        "<6>proxy: direct\n"]


def test_the_setting_outlives_the_service_and_nothing_applies_it_again(kiosk, env):
    kiosk.start_unlocked()
    kiosk.settings("proxy.set", **MANUAL)
    before = stamps(env, APT)
    kiosk.service.stop()
    assert stamps(env, APT) == before

    APT.unlink()
    kiosk.portal_says(power=policy())
    kiosk.service.start()
    kiosk.service.log.wait_for("power: screen off")
    kiosk.service.stop()

    assert stamps(env) == before[:1]
    assert not APT.exists()
    assert "proxy" not in kiosk.service.state_file.read_text().lower()


def test_of_several_requests_at_once_the_last_rename_of_each_file_stands(kiosk, env):
    kiosk.start_unlocked()
    kiosk.settings("proxy.set", **MANUAL)

    # Names of one length, because the requests share the temporary files.
    peers = [kiosk.launch_settings("proxy.set", mode="manual", server=f"proxy{number}:3128")
             for number in range(10, 20)]
    replies = [json.loads(peer.communicate(timeout=DEADLINE)[0]) for peer in peers]

    assert replies == [applied("manual", server=f"proxy{number}:3128") for number in range(10, 20)]
    for path in env, APT:
        server = re.search(r"proxy1\d:3128", path.read_text())[0]
        assert set(re.findall(r"proxy\w*:3128", path.read_text())) == {server}
    assert kiosk.settings("proxy.set", **MANUAL)["ok"]
    assert "proxy.example" in env.read_text() and "proxy.example" in APT.read_text()


# What goes wrong.


@pytest.mark.parametrize("file", ["proxy.env", APT.name])
def test_a_full_disk_keeps_the_old_file_and_the_next_request_writes_it(kiosk, small_disk, file):
    where = APT_DIRECTORY if file == APT.name else kiosk.etc
    disk = small_disk(where)
    kiosk.start_unlocked()
    kiosk.settings("proxy.set", **MANUAL)
    old = (where / file).read_text()
    disk.fill()
    other = MANUAL | {"server": "other.example:1"}

    assert kiosk.settings("proxy.set", **other) == applied("manual", server="other.example:1")

    assert kiosk.service.log.count(f"<3>cannot write {where}/{file}.tmp\n") == 1
    assert (where / file).read_text() == old
    disk.clear()
    assert kiosk.settings("proxy.set", **other)["ok"]
    assert "other.example:1" in (where / file).read_text()
    assert not (where / f"{file}.tmp").exists()


def test_a_full_disk_without_an_old_file_fails_until_there_is_room(kiosk, small_disk, env):
    disk = small_disk(kiosk.etc)
    disk.fill()
    kiosk.start_unlocked()

    assert kiosk.settings("proxy.set", **MANUAL) == FAILED

    assert kiosk.lines_of("cannot", "proxy") == [f"<3>cannot write {env}.tmp\n",
                                                 "<3>proxy: cannot write the system proxy\n"]
    assert APT.exists()  # there is no way back between the two files
    disk.clear()
    assert kiosk.settings("proxy.set", **MANUAL)["ok"]
    assert env.exists()


# The request that ends the service.


@pytest.mark.parametrize("word", ["http", "HTTPS", " \thTTp\r\n"], ids=repr)
def test_a_bare_scheme_ends_the_service_which_then_starts_as_it_was(kiosk, env, word):
    kiosk.service.limits = [(resource.RLIMIT_CORE, 0)]
    kiosk.start_unlocked()
    kiosk.settings("proxy.set", **MANUAL)
    before = stamps(env, APT, kiosk.service.state_file)

    peer = kiosk.launch_settings("proxy.set", mode="auto", pacUrl=word)

    assert peer.communicate(timeout=DEADLINE)[0] == b""
    assert kiosk.service.wait() == -signal.SIGABRT
    assert any("std::out_of_range" in line for line in kiosk.service.log.lines)
    assert kiosk.lines_of("proxy") == ['<6>proxy: proxy.example:3128, bypass ""\n']
    assert stamps(env, APT, kiosk.service.state_file) == before
    assert kiosk.service.socket_path.exists()  # nobody was left to remove it
    kiosk.start_unlocked()
    assert kiosk.settings("proxy.set", **AUTO)["ok"]


def test_the_service_lives_through_everything_that_resembles_a_bare_scheme(kiosk):
    kiosk.start_unlocked()
    near = ["http:", "https:", ":http", "http:/", "http://", "http:x", "http//", "http/", "http?", "http#", "http.",
            "http@", "[http]", "httpss", "xhttp", "htt", "ttp", "httpsx", "ftp", "file", "pac", "h", "ht tp",
            "http https",
            "http\0", "\0http", "http\x7f", "http\u00a0", "http\u200b", "\ufeffhttp", "\uff48ttp", "http;", "http,",
            "'http'", "HTTP:", "HTTPS://", "https:///", "https://:", "https://[", "https://]", "https://[]",
            "https://[]:",
            "https://?", "https://#", "http" * 512, "http " * 409 + "x", "::", ":", "://", "://h", "h:", "http:::"]
    rows = [({"mode": "auto", "pacUrl": text}, INVALID) for text in near]
    rows += [({"mode": "auto", "pacUrl": value}, INVALID) for value in (["http"], {"http": "http"}, None, True, 7)]
    rows += [({"mode": "auto", "server": "http"}, INVALID), ({"mode": "http"}, INVALID),
             ({"pacUrl": "http"}, INVALID), ({"mode": "AUTO", "pacUrl": "http"}, INVALID),
             ({"mode": ["auto"], "pacUrl": "http"}, INVALID),
             ({"mode": "manual", "server": "http"}, INVALID), ({"mode": "manual", "server": "https:"}, INVALID),
             ({"mode": "manual", "pacUrl": "http", "server": "http:1"}, applied("manual", server="http:1")),
             (MANUAL | {"bypass": ["http", "https"]},
              applied("manual", server="proxy.example:3128", bypass=["http", "https"])),
             ({"mode": "none", "pacUrl": "http"}, applied("none")),
             ({"mode": "auto", "pacUrl": "http://http"}, applied("auto", "http://http"))]

    check_rows(rows, lambda request: kiosk.settings("proxy.set", **request))

    assert kiosk.send({"cmd": "proxy.set", "mode": "auto", "pacUrl": "http"})["error"] == "not_unlocked"
    assert kiosk.service.is_running()
