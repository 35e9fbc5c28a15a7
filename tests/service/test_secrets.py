"""What is secret stays so: a whole life of a terminal, and then a look at everything that it left behind.

Secret are the exit password, whatever was typed in its place, the unlock token, the device token and the pairing
code. None may reach the log, a file, or a child's arguments or environment; the state file alone keeps the device
token, while the terminal is enrolled.
"""

import os
import pathlib
import re

import pytest

from kiosk import DEVICE_TOKEN, EXIT_PASSWORD, KIOSK_SESSION, SYSTEM_TOOLS
from kioskd import wait_until
from logind import Session
from peers import call_as
from scripted_portal import answer
from terminal import CLIENT, KIOSK, KIOSK_UID, PASSWD, PERSON_UID

CODE = "QX7RT2LM"
TYPED = "Typed-By-Mistake-0815"
UNTIDY = f" {EXIT_PASSWORD.swapcase()} "  # right all the same
POWER = {"screenOffMinutes": 5, "sleepMinutes": 30,
         "schedule": {"enabled": True, "sleepAt": "22:00", "wakeAt": "06:30", "days": [1, 2]}}
SETTINGS = [
    ("net.set", {"adapter": "eth0", "mode": "static", "ip": "192.0.2.7", "prefix": 24, "gateway": "192.0.2.1"}),
    ("net.set", {"adapter": "eth0", "mode": "dhcp"}),
    ("proxy.set", {"mode": "manual", "server": "proxy.example:3128", "bypass": "*.example.org"}),
    ("power.set", POWER),
    ("power.get", {}),
    ("time.sync", {}),
    ("os.updates", {}),
    ("os.install", {}),
]
# What a run may write to, the sandbox's own layers over the system's directories included.
WRITABLE = [*(f"/mnt/{name}" for name in ["etc", "bin", "sbin", "lib"]), "/run", "/var/lib", "/var/cache", "/var/log"]

# A tool that tells what it was started with, and then does something.
RECORDER = """#!/bin/sh
{{ printf '%s\\n' "$0" "$@"; tr '\\0' '\\n' < /proc/$$/environ; }} >> {notes}
{body}
"""
TOOLS = {
    "systemctl": "exit 0", "loginctl": "exit 0", "gpasswd": "exit 0", "shutdown": "exit 0", "rtcwake": "exit 0",
    "apt-get": "exit 0", "apt-cache": "exit 0", "chronyc": "exit 0",
    "nmcli": "case \"$*\" in *'device show'*) "
             "printf 'GENERAL.TYPE:ethernet\\nGENERAL.STATE:100 (connected)\\nGENERAL.CON-UUID:4f1c\\n';; esac",
    "userdel": f"sed -i /^{KIOSK}:/d {PASSWD}",
}
MAKE_ACCOUNT = f"[ $1 = disable ] || grep -q ^{KIOSK}: {PASSWD} || echo '{KIOSK}:x:{KIOSK_UID}:{KIOSK_UID}:Tarnvale kiosk:/home/k:/bin/sh' >> {PASSWD}"


class Children:
    """All that the service starts, recorded."""

    def __init__(self, place):
        self._notes = place / "children"
        for name, body in TOOLS.items():
            self._install(SYSTEM_TOOLS / name, body)
        self._install(place / "setup", MAKE_ACCOUNT)

    def _install(self, path, body):
        path.unlink(missing_ok=True)
        path.write_text(RECORDER.format(notes=self._notes, body=body))
        path.chmod(0o755)

    def text(self):
        return self._notes.read_text()

    def names(self):
        return {pathlib.Path(line).name for line in self.text().splitlines() if re.fullmatch(r"/[-\w/]+", line)}


@pytest.fixture
def children(terminal, place):
    return Children(place)


@pytest.fixture
def newcomer(installed, children, portal):
    """A terminal that nobody has enrolled, with a person signed in."""
    installed.logind.add(Session("c1", PERSON_UID, "ann"))
    portal.pairs(CODE, answer(202), answer(200, {"deviceToken": DEVICE_TOKEN}))
    installed.portal_says(power=POWER, powerSource="device")
    installed.service.start()
    return installed


def pair(kiosk):
    def ask(command, **members):
        return call_as(kiosk.service, {"cmd": command} | members, uid=PERSON_UID, session="c1", image=CLIENT)

    assert ask("pair.begin")["code"] == CODE
    assert ask("pair.check", code=CODE) == {"ok": True, "paired": False}
    assert ask("pair.check", code=CODE)["restarting"]
    # As the restart of the terminal would.
    kiosk.service.stop()
    kiosk.logind.add(KIOSK_SESSION)


def change_settings(kiosk, token):
    for command, members in SETTINGS:
        reply = kiosk.ask(command, unlockToken=token, **members)
        assert reply.get("error") != "not_unlocked", reply
        assert command == "time.sync" or reply["ok"], (command, reply)
    for wrong in [token[::-1], token[:-1], token.upper() + "x"]:
        assert kiosk.ask("net.set", unlockToken=wrong)["error"] == "not_unlocked"


def be_removed(kiosk, portal):
    portal.checks_in(answer(401, {"status": "revoked"}))
    assert kiosk.ask("unlock", password=TYPED)["error"] == "not_enrolled"
    kiosk.service.log.wait_for(f"<6>deleted {KIOSK}\n")
    wait_until(lambda: kiosk.service.state()["AccountUid"] is None, "the removal to end")


# The looks.


def files_below(*roots):
    for root in roots:
        for folder, _, names in os.walk(root):
            yield from (pathlib.Path(folder) / name for name in names)


def bytes_of(path):
    try:
        return path.read_bytes() if path.is_file() and not path.is_symlink() else b""
    except OSError:
        return b""  # gone meanwhile, or none that can be read


class Witness:
    """Looks for secrets in everything that the run has written so far."""

    def __init__(self, kiosk, place):
        self._kiosk = kiosk
        self._place = place
        self.secrets = {EXIT_PASSWORD, TYPED, CODE}

    def expect_silence(self, enrolled=True):
        state_file = self._kiosk.service.state_file
        for path in files_below(self._place, *WRITABLE):
            # The next state file may be on its way.
            is_state = path in (state_file, state_file.with_suffix(".json.tmp"))
            allowed = {DEVICE_TOKEN} if enrolled and is_state else set()
            self._expect_none_of(self.secrets | {DEVICE_TOKEN} - allowed, bytes_of(path), path)
            self._expect_none_of(self.secrets | {DEVICE_TOKEN}, os.fsencode(path), "a file's name")
        log = "".join(self._kiosk.service.log.lines).encode("utf-8", "surrogateescape")
        self._expect_none_of(self.secrets | {DEVICE_TOKEN}, log, "the log")

    @staticmethod
    def _expect_none_of(secrets, text, where):
        text = text.lower()  # an exit password is one in any case
        found = [secret for secret in secrets if secret.lower().encode() in text]
        assert not found, f"{found} in {where}"


def copies_in_memory(pid, text):
    """How often a text stands in what a process may write to."""
    count = 0
    with open(f"/proc/{pid}/maps", encoding="ascii") as maps, open(f"/proc/{pid}/mem", "rb") as memory:
        for line in maps:
            begin, end = (int(number, 16) for number in line.split()[0].split("-"))
            # A sanitizer's shadow is huge, and holds no bytes of the program.
            if " rw" not in line or end - begin > 1 << 28:
                continue
            memory.seek(begin)
            try:
                count += memory.read(end - begin).count(text.encode())
            except OSError:
                continue  # gone meanwhile
    return count


def test_a_whole_life_leaves_no_secret_anywhere(newcomer, portal, place, children):
    kiosk = newcomer
    witness = Witness(kiosk, place)
    pair(kiosk)
    assert kiosk.service.state()["DeviceToken"] == DEVICE_TOKEN
    witness.expect_silence()
    kiosk.service.start()

    assert kiosk.ask("unlock", password=TYPED)["error"] == "wrong_password"
    assert kiosk.ask("maintenance", password=TYPED)["error"] == "wrong_password"
    token = kiosk.unlock(UNTIDY)
    witness.secrets |= {token, token[::-1]}
    witness.expect_silence()
    change_settings(kiosk, token)
    witness.expect_silence()

    assert kiosk.ask("maintenance", unlockToken=token, password=TYPED) == {"ok": True}
    assert kiosk.ask("maintenance", unlockToken=token, password=UNTIDY) == {"ok": True}
    assert kiosk.ask("maintenance", unlockToken=token)["error"] == "not_unlocked"
    witness.expect_silence()

    be_removed(kiosk, portal)
    kiosk.service.stop()
    witness.expect_silence(enrolled=False)
    # The looks are worth something: the run did come this way.
    assert children.names() >= {"setup", "systemctl", "loginctl", "nmcli", "apt-get", "userdel"}
    assert "LC_ALL=C" in children.text()
    assert all(exchange.header("Authorization") in (None, f"Bearer {DEVICE_TOKEN}") for exchange in portal.requests)


def test_what_was_typed_and_an_unlock_that_has_ended_are_gone_from_memory(enrolled, children):
    kiosk = enrolled
    kiosk.service.start()

    def copies(text):
        # A text that is emptied and not wiped loses its first byte alone.
        return copies_in_memory(kiosk.service.pid, text[1:])

    assert copies(DEVICE_TOKEN) > 0, "the state document keeps it"
    assert kiosk.ask("unlock", password=TYPED)["error"] == "wrong_password"
    assert copies(TYPED) == 0
    token = kiosk.unlock(UNTIDY)
    assert kiosk.ask("power.get", unlockToken=token)["ok"]
    assert copies(UNTIDY.strip()) == 0
    assert copies(token) == 1, "the record of the unlock that is in force"

    assert kiosk.ask("maintenance", unlockToken=token, password=TYPED) == {"ok": True}

    assert (copies(token), copies(TYPED)) == (0, 0)
