"""The machine: QEMU with the terminal's disk, its monitor, its consoles and the way into the guest."""

import subprocess
import tempfile
import time
from datetime import datetime, timezone
from pathlib import Path

import hardware
from agent import Agent
from channel import Channel, Silent
from console import Console

BOOT_S = 300
MONITOR_S = 60


class DidNotWake(Exception):
    """The hardware woke and the system on it did not, as now and then with an emulated machine on a busy host."""


class Machine:
    """Lives until close(). What it writes to its disk is gone with it; a restart keeps it."""

    def __init__(self, image):
        self._place = tempfile.TemporaryDirectory(prefix="terminal")
        place = Path(self._place.name)
        self._events = []
        self._process = subprocess.Popen(hardware.command(image, devices=devices(place)), stdin=subprocess.DEVNULL)
        try:
            self._connect(place)
            self.agent.wait(BOOT_S)
        except BaseException:
            self._end()
            raise

    def close(self):
        self._end()
        self.console.close()
        self.agent.close()
        self._monitor.close()
        self._place.cleanup()

    def _connect(self, place):
        for name in ("monitor", "agent", "console"):
            wait_for_file(place / name, self._process)
        self._monitor = Channel(place / "monitor")
        self._monitor.receive(MONITOR_S)  # the greeting
        self._tell("qmp_capabilities")
        self.agent = Agent(place / "agent")
        self.console = Console(place / "console")

    def _end(self):
        self._process.terminate()
        self._process.wait()

    def wait_for_event(self, name, timeout_s):
        """What the hardware did, such as SUSPEND, WAKEUP and RESET; events that came before count once.

        Answers with the moment by the host's clock, which the machine's RTC follows.
        """
        deadline = time.monotonic() + timeout_s
        while True:
            message = self._events.pop(0) if self._events else self._receive_event(deadline - time.monotonic())
            if message.get("event") == name:
                return datetime.fromtimestamp(message["timestamp"]["seconds"], timezone.utc)

    def forget_events(self):
        self.events()

    def events(self):
        """The names of the events that came and were not waited for yet."""
        try:
            while True:
                self._events.append(self._receive_event(0))
        except Silent:
            came, self._events = self._events, []
            return [message.get("event") for message in came]

    def press_key(self):
        """The Enter key, which ends a line for whoever reads the first console."""
        self._tell("send-key", keys=[{"type": "qcode", "data": "ret"}])

    def wake(self):
        """Ends a sleep, as the power button does."""
        self._tell("system_wakeup")

    def wait_until_awake(self):
        """After a WAKEUP, until the machine runs again."""
        try:
            self.agent.wait(BOOT_S)
        except Silent as silence:
            raise DidNotWake from silence

    def wait_for_restart(self, timeout_s):
        """Until the machine has restarted and runs again."""
        self.wait_for_event("RESET", timeout_s)
        self.agent.wait(BOOT_S)

    def _receive_event(self, timeout_s):
        return self._monitor.receive(max(0, timeout_s))

    def _tell(self, order, **arguments):
        self._monitor.send({"execute": order, "arguments": arguments})
        while "return" not in (message := self._monitor.receive(MONITOR_S)):
            self._events.append(message)


def devices(place):
    return ["-qmp", f"unix:{place}/monitor,server=on,wait=off",
            *hardware.line("console", place / "console"), "-serial", "chardev:console",
            *hardware.line("agent", place / "agent"),
            "-device", "virtserialport,chardev=agent,name=org.qemu.guest_agent.0"]


def wait_for_file(path, process):
    deadline = time.monotonic() + 60
    while not path.exists():
        if process.poll() is not None or time.monotonic() > deadline:
            raise RuntimeError("QEMU did not start")
        time.sleep(0.05)
