"""Recorded tools of the system that can be held in the middle of a call, so that a test may meet the service there.

A held call never goes on: when it is let go it fails, and what it had not done by then stays undone, as though the
whole control group had been killed.
"""

from kioskd import wait_until

# Ends by itself after a minute, when a test could not let it go.
HOLD = """
hold() {{
  [ "$(cat {place}/hold 2>/dev/null)" = "$1" ] || return 0
  touch {place}/held
  for _ in $(seq 600); do [ -e {place}/hold ] || exit 1; sleep 0.1; done
  exit 1
}}
"""


class Gates:
    def __init__(self, terminal, place):
        self._terminal = terminal
        self._place = place

    def tool(self, path, body="true"):
        """A tool of the terminal whose calls can be held, before they do anything or after all is done."""
        hold = HOLD.format(place=self._place)
        return self._terminal.tool(
            path, f'{hold}\nhold "before {path.name} $*"\n{body}\nhold "after {path.name} $*"\nexit 0')

    def close(self, moment, call):
        """From now on a call such as "userdel -r NAME" is held; `moment` is "before" or "after"."""
        (self._place / "held").unlink(missing_ok=True)
        (self._place / "hold").write_text(f"{moment} {call}\n")

    def wait_for_call(self):
        wait_until((self._place / "held").exists, "the call that is held")

    def open(self):
        (self._place / "hold").unlink(missing_ok=True)
