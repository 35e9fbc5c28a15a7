"""What all chapters of the demo share: the actors, the ways to tell and to prove a thing, and an eye on the portal.

The portal's page is open to everybody who watches. A terminal that somebody takes away there in the middle of the
story raises Lost, in a chapter that waits as well as in one whose next step then fails.
"""

import json
import time

from stage import Failed

FACT_SECONDS = 20
LOOK_AT_PORTAL_EVERY_SECONDS = 1
READER_SECONDS = 15
TOKEN_CHARACTERS_SHOWN = 4
REMOVED_LINE = "removing kiosk mode:"


class Lost(Failed):
    """The terminal of the story is no longer the portal's. `removed`: nor will it be again, and it knows or learns."""

    def __init__(self, text, removed):
        super().__init__(text)
        self.removed = removed


class Scene:
    def __init__(self, stage, teller, attended):
        self.stage = stage
        self.teller = teller
        self.attended = attended
        self.portal = None
        self.terminal = None
        self.person = None
        self.kiosk = None
        self.terminal_id = None  # At the portal, once it is claimed.
        self._claimed_at_line = 0
        self._may_be_removed = False

    # Telling.

    def begin_chapter(self, chapter):
        """With the title that is the first line of the chapter's own description."""
        self.teller.chapter(chapter.__doc__.splitlines()[0].rstrip("."))

    def wait_for_reader(self):
        if self.attended:
            self.teller.say(f"(Enter for the next chapter, which begins by itself in {READER_SECONDS} s.)")
            self.stage.pause_for_reader(READER_SECONDS)

    def ask(self, peer, command, *members, typed=""):
        """Sends a command where everybody can see it. `typed` is for a member NAME=-, and is not shown."""
        self.teller.overhear(peer.name, " ".join(["->", command, *members]))
        reply = peer.send(command, *members, typed=typed)
        self.teller.overhear(peer.name, f"<- {compact(_without_secrets(reply))}")
        return reply

    def change_at_portal(self, settings):
        self.teller.overhear("portal", f"settings of {self.terminal_id}: {compact(settings)}")
        self.portal.change(self.terminal_id, settings)

    def look_at_portal(self):
        """The portal's view of the terminal, told and returned."""
        known = self.portal.terminal(self.terminal_id) or {}
        report = known.get("lastReport", {})
        self.teller.overhear(
            "portal",
            f"{self.terminal_id}: {known.get('status')}, {known.get('checkIns')} check-ins, the last says "
            f"{compact(report)}",
        )
        return known

    # Proving.

    def require(self, fact, holds, seen=None):
        if not holds:
            raise Failed(f"this is not so: {fact}" + ("" if seen is None else f" ({seen})"))
        self.teller.fact(fact)

    def wait_for(self, fact, condition, seconds=FACT_SECONDS):
        next_look = time.monotonic() + LOOK_AT_PORTAL_EVERY_SECONDS

        def condition_or_loss():
            nonlocal next_look
            found = condition()
            if not found and time.monotonic() > next_look:
                self.look_for_loss()
                next_look = time.monotonic() + LOOK_AT_PORTAL_EVERY_SECONDS
            return found

        found = self.stage.wait_for(fact, condition_or_loss, seconds)
        self.teller.fact(fact)
        return found

    def wait_for_line(self, fact, line, after, seconds=FACT_SECONDS):
        self.wait_for(fact, lambda: self.terminal.has_said(line, after), seconds)

    # Whose the terminal is.

    def note_claim(self, terminal_id):
        self.terminal_id = terminal_id
        self._claimed_at_line = self.terminal.said_so_far()
        self._may_be_removed = False

    def let_go(self):
        """From here on its removal is part of the story."""
        self._may_be_removed = True

    def was_removed(self):
        return self.terminal.has_said(REMOVED_LINE, self._claimed_at_line)

    def look_for_loss(self):
        """Raises Lost when somebody has taken the terminal away from the story."""
        if self.terminal_id is None or self._may_be_removed:
            return
        known = self.portal.terminal(self.terminal_id)
        if known is None:
            raise Lost("Somebody has reset the portal, and it has forgotten its terminals.", removed=False)
        if known["status"] == "revoked":
            raise Lost(f"Somebody has revoked the terminal {self.terminal_id} at the portal.", removed=True)
        if self.was_removed():
            raise Lost(f"Somebody had revoked the terminal {self.terminal_id} at the portal.", removed=True)
        if known["status"] != "enrolled":
            raise Lost(f"Somebody has made the portal forget the terminal {self.terminal_id}.", removed=False)


def _without_secrets(reply):
    if "unlockToken" not in reply:
        return reply
    return {**reply, "unlockToken": reply["unlockToken"][:TOKEN_CHARACTERS_SHOWN] + "..."}


def compact(value):
    """JSON as it goes over the wire."""
    return json.dumps(value, separators=(",", ":"))
