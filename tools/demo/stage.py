"""The stage of the demo: a temporary directory, the programs that run in it, and the end of it all.

Whatever ends the demo, nothing is left running and the directory is gone. Signals only raise a flag, which every wait
looks at; so none of them can come between the start of a program and the note that it runs.
"""

import os
import select
import shutil
import signal
import subprocess
import sys
import tempfile
import time

STOP_SIGNALS = (signal.SIGINT, signal.SIGTERM, signal.SIGHUP)
LOOK_EVERY_SECONDS = 0.1
SECONDS_TO_END = 10  # A terminal finishes the exchange that is under way.


class Failed(Exception):
    """A step of the story did not happen."""


class Stopped(Exception):
    """Somebody wants the demo to end. `number` is the signal."""

    def __init__(self, number):
        super().__init__(number)
        self.number = number


class Stage:
    """A context manager: on leaving, ends every program that was started here, the latest first."""

    def __init__(self):
        self._signal = None
        self._programs = []
        self.directory = None

    def __enter__(self):
        for number in STOP_SIGNALS:
            signal.signal(number, self._note_signal)
        os.umask(0o022)  # Other users than root reach the socket.
        self.directory = tempfile.mkdtemp(prefix="kiosk-demo-")
        os.chmod(self.directory, 0o755)
        return self

    def __exit__(self, *_):
        for number in STOP_SIGNALS:
            signal.signal(number, signal.SIG_IGN)
        for program in reversed(self._programs):
            _end(program)
        shutil.rmtree(self.directory, ignore_errors=True)

    def start(self, name, *command, **streams):
        """Starts a program in a process group of its own, so that Ctrl-C reaches it through here alone."""
        if not os.access(command[0], os.X_OK):
            raise Failed(f"{command[0]} is not there; was it built?")
        program = subprocess.Popen(
            command, stdin=subprocess.DEVNULL, start_new_session=True, env=_environment(), text=True, **streams
        )
        program.name = name
        self._programs.append(program)
        return program

    def run(self, *command, timeout_seconds, typed=""):
        """Runs a short program to its end, with the line `typed` as its input. Raises Failed when the end does not come."""
        self.look()
        try:
            return subprocess.run(
                command, input=typed + "\n", capture_output=True, text=True, env=_environment(),
                timeout=timeout_seconds,
            )
        except subprocess.TimeoutExpired:
            raise Failed(f"{os.path.basename(command[0])} did not end within {timeout_seconds} s") from None

    def wait_for(self, fact, condition, seconds):
        """Waits until condition() is true and returns what it gave. Raises Failed with the fact when it does not."""
        deadline = time.monotonic() + seconds
        while True:
            self.look()
            found = condition()
            if found:
                return found
            if time.monotonic() > deadline:
                raise Failed(f"this did not happen within {seconds} s: {fact}")
            time.sleep(LOOK_EVERY_SECONDS)

    def pause(self, seconds):
        deadline = time.monotonic() + seconds
        while time.monotonic() < deadline:
            self.look()
            time.sleep(LOOK_EVERY_SECONDS)

    def pause_for_reader(self, seconds):
        """A pause that the reader ends with Enter."""
        deadline = time.monotonic() + seconds
        while time.monotonic() < deadline:
            self.look()
            if select.select([sys.stdin], [], [], LOOK_EVERY_SECONDS)[0]:
                if sys.stdin.readline():
                    return
                self.pause(deadline - time.monotonic())  # No reader can answer: the input is at its end.

    def look(self):
        """Raises Stopped after a signal and Failed when one of the programs has ended."""
        if self._signal is not None:
            raise Stopped(self._signal)
        for program in self._programs:
            if program.poll() is not None:
                raise Failed(f"{program.name} ended by itself, with status {program.returncode}")

    def _note_signal(self, number, _):
        self._signal = number


def _environment():
    """Without proxies: everything here is on this machine, and they would be asked for it."""
    return {name: value for name, value in os.environ.items() if not name.lower().endswith("_proxy")}


def _end(program):
    """Ends the program's whole group, and not by asking alone."""
    _signal_group(program, signal.SIGTERM)
    try:
        program.wait(SECONDS_TO_END)
    except subprocess.TimeoutExpired:
        pass
    _signal_group(program, signal.SIGKILL)
    program.wait()


def _signal_group(program, number):
    try:
        os.killpg(program.pid, number)
    except ProcessLookupError:
        pass
