"""A private system bus with stand-ins for logind and timedated on it, each a process of its own.

A process belongs to the session that its environment names in XDG_SESSION_ID, as on a real terminal;
logind itself goes by control groups, which a test cannot give to its peers.
"""

import dataclasses
import os
import subprocess
import sys

import gi

gi.require_version("Gio", "2.0")
from gi.repository import Gio, GLib  # noqa: E402

from kioskd import wait_until  # noqa: E402

NAME = "org.freedesktop.login1"
PATH = "/org/freedesktop/login1"
MANAGER = "org.freedesktop.login1.Manager"
SESSION = "org.freedesktop.login1.Session"
MOCK = "org.freedesktop.DBus.Mock"
TIMEDATE_NAME = "org.freedesktop.timedate1"
TIMEDATE_PATH = "/org/freedesktop/timedate1"

CONFIG = """<busconfig>
  <type>system</type>
  <listen>unix:path={place}/bus</listen>
  <auth>EXTERNAL</auth>
  <policy context="default">
    <allow user="*"/>
    <allow own="*"/>
    <allow send_destination="*" eavesdrop="true"/>
    <allow receive_sender="*"/>
  </policy>
</busconfig>
"""

# What the stand-in runs for a call; `objects` are what it has on the bus, by path.
LIST_SESSIONS = """
rows = [(one.props["org.freedesktop.login1.Session"], path) for path, one in sorted(objects.items())
        if "/session/" in path]
ret = dbus.Array([(props["Id"], props["User"][0], props["Name"], "seat0", dbus.ObjectPath(path))
                  for props, path in rows], signature="(susso)")
"""
GET_SESSION_BY_PID = """
entries = open(f"/proc/{args[0]}/environ", "rb").read().split(b"\\0")
named = [entry[15:].decode() for entry in entries if entry.startswith(b"XDG_SESSION_ID=")]
ret = "/org/freedesktop/login1/session/" + "".join(named)
if ret not in objects:
    raise dbus.exceptions.DBusException("PID does not belong to any known session",
                                        name="org.freedesktop.login1.NoSessionForPID")
"""
REBOOT = ""
REFUSE_REBOOT = """
raise dbus.exceptions.DBusException("Not now", name="org.freedesktop.DBus.Error.AccessDenied")
"""


@dataclasses.dataclass
class Session:
    id: str
    uid: int
    name: str
    remote: bool = False
    kind: str = "user"

    @property
    def path(self):
        return f"{PATH}/session/{self.id}"

    def properties(self):
        """logind has many more than the service reads, as Timestamp stands for here."""
        return {
            "Id": GLib.Variant("s", self.id),
            "Name": GLib.Variant("s", self.name),
            "User": GLib.Variant("(uo)", (self.uid, f"{PATH}/user/_{self.uid}")),
            "Timestamp": GLib.Variant("t", 1),
            "Remote": GLib.Variant("b", self.remote),
            "Active": GLib.Variant("b", True),
            "Class": GLib.Variant("s", self.kind),
            "TTY": GLib.Variant("s", "tty1"),
        }


class Bus:
    """The bus daemon, and logind on it as long as it is not taken away."""

    def __init__(self, place):
        config = place / "bus.conf"
        config.write_text(CONFIG.format(place=place))
        self.address = f"unix:path={place}/bus"
        self._daemon = subprocess.Popen(
            ["dbus-daemon", "--nofork", f"--config-file={config}", "--print-address"],
            stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)
        assert self._daemon.stdout.readline(), "the bus did not start"
        flags = Gio.DBusConnectionFlags.AUTHENTICATION_CLIENT | Gio.DBusConnectionFlags.MESSAGE_BUS_CONNECTION
        connection = Gio.DBusConnection.new_for_address_sync(self.address, flags, None, None)
        self.logind = Logind(self.address, connection)
        self.timedated = Timedated(self.address, connection)

    @property
    def pid(self):
        return self._daemon.pid

    def close(self):
        self.logind.leave()
        self.timedated.leave()
        self._daemon.terminate()
        self._daemon.wait()
        self._daemon.stdout.close()


class BusStandIn:
    """A service of the system as a process of its own, which answers as it is told and keeps the calls."""

    def __init__(self, address, connection, name, path, interface):
        self._address = address
        self._connection = connection
        self._name = name
        self._path = path
        self._interface = interface
        self._process = None

    def _launch(self):
        self._process = subprocess.Popen(
            [sys.executable, "-m", "dbusmock", "--system", self._name, self._path, self._interface],
            env=os.environ | {"DBUS_SYSTEM_BUS_ADDRESS": self._address}, stdout=subprocess.DEVNULL)
        wait_until(self.is_on_the_bus, f"{self._name} to be on the bus")

    def leave(self):
        """It goes away; calls to it fail from now on."""
        if self._process:
            self._process.terminate()
            self._process.wait()
        self._process = None

    def calls_of(self, name):
        """How often it was asked for that."""
        return len(self.arguments_of(name))

    def arguments_of(self, name):
        """What it was asked for that with, call by call."""
        return [list(arguments) for _, arguments in self._mock("GetMethodCalls", "(s)", (name,))[0]]

    def wait_for_call(self, name, times=1):
        wait_until(lambda: self.calls_of(name) >= times, f"{self._name} to be asked for {name}")

    def is_on_the_bus(self):
        return self._call("org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
                          "NameHasOwner", GLib.Variant("(s)", (self._name,)))[0]

    def _add_method(self, name, takes, gives, code):
        self._mock("AddMethod", "(sssss)", (self._interface, name, takes, gives, code))

    def _mock(self, method, kind=None, arguments=()):
        return self._call(self._name, self._path, MOCK, method, kind and GLib.Variant(kind, arguments))

    def _call(self, name, path, interface, method, parameters):
        reply = self._connection.call_sync(name, path, interface, method, parameters, None,
                                           Gio.DBusCallFlags.NONE, -1, None)
        return reply.unpack()


class Timedated(BusStandIn):
    """Knows whether the clock is synchronised. Not on the bus before it begins."""

    def __init__(self, address, connection):
        super().__init__(address, connection, TIMEDATE_NAME, TIMEDATE_PATH, TIMEDATE_NAME)

    def begin(self, synchronised):
        self._launch()
        self._add_method("SetNTP", "bb", "", "")
        self._mock("AddProperty", "(ssv)",
                   (TIMEDATE_NAME, "NTPSynchronized", GLib.Variant("b", synchronised)))


class Logind(BusStandIn):
    """Answers for the sessions that a test makes, and keeps the calls."""

    def __init__(self, address, connection):
        super().__init__(address, connection, NAME, PATH, MANAGER)
        self._sessions = {}

    def begin(self):
        """Makes it as new: running, with no sessions and no calls."""
        if self._process is None:
            self._launch()
        for session_id in list(self._sessions):
            self.remove(session_id)
        self.allow_reboot()
        self._mock("ClearCalls")

    def _launch(self):
        super()._launch()
        self._add_method("ListSessions", "", "a(susso)", LIST_SESSIONS)
        self._add_method("GetSessionByPID", "u", "o", GET_SESSION_BY_PID)

    def leave(self):
        super().leave()
        self._sessions = {}

    def add(self, session):
        self._mock("AddObject", "(ssa{sv}a(ssss))", (session.path, SESSION, session.properties(), []))
        self._sessions[session.id] = session

    def remove(self, session_id):
        self._mock("RemoveObject", "(s)", (self._sessions.pop(session_id).path,))

    def allow_reboot(self):
        self._add_method("Reboot", "b", "", REBOOT)

    def refuse_reboot(self):
        self._add_method("Reboot", "b", "", REFUSE_REBOOT)
