"""The service's log in the guest's journal, from a moment on, over restarts of service and machine."""

import json
import shlex

# By the name that systemd gives the output of the executable, so that the short-lived one of the sleep timer is in it too.
# The cursor is that of an entry which this matches, and priorities are told apart here: journalctl 252 skips one entry
# after a cursor, whether or not the cursor's own entry is among those asked for.
JOURNAL = "journalctl --quiet --no-pager --identifier tarnvale-kioskd"
PRIORITIES = ("emerg", "alert", "crit", "err", "warning", "notice", "info", "debug")


class Log:
    def __init__(self, terminal):
        self._terminal = terminal
        self._cursor = terminal.run(f"{JOURNAL} --lines 0 --show-cursor").rpartition("cursor: ")[2]

    def lines(self, least="debug"):
        """The lines so far, of this priority and above: "err", "warning", "info"."""
        # What was written before this moment is in the journal then.
        command = f"journalctl --sync; {JOURNAL} --output json --output-fields MESSAGE,PRIORITY --after-cursor {shlex.quote(self._cursor)}"
        entries = map(json.loads, self._terminal.run(command).splitlines())
        return [entry["MESSAGE"] for entry in entries if int(entry["PRIORITY"]) <= PRIORITIES.index(least)]

    def has(self, text, least="debug"):
        return next((line for line in self.lines(least) if text in line), None)

    def wait_for(self, text, timeout_s=300):
        return self._terminal.until(f"a line of the log with {text!r}", lambda: self.has(text), timeout_s)
