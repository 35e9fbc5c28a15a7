"""What the portal knows: pairing codes, terminals and their settings, photos, and the terminals' last requests.

Pure data behind one lock, which is also the condition that waiting callers sleep on; no HTTP and no files in here
(storage.py keeps a copy of it on disk). Every public method may be called on any thread.

Limits: 200 pairing codes (a new one pushes the oldest out), 500 terminals (a new one pushes out the oldest of those
that were forgotten), 500 photos (a new one pushes the oldest out), 200 recorded requests.
"""

import copy
import secrets
import threading
import time
from collections import deque
from dataclasses import asdict

from exchange import Refused
from photos import Photo
from records import CLAIMED, COLLECTED, ENROLLED, EXPIRED, UNKNOWN, WAITING, PairingCode, Terminal
from records import default_settings, name_from_host, new_code, typed_code, view_of_terminal

CODE_LIFETIME_SECONDS = 900
MAX_CODES = 200
MAX_TERMINALS = 500
MAX_REQUESTS = 200
MAX_PHOTOS_KEPT = 500


class Portal:
    """The whole of it. `save` gets a snapshot, under the lock, after each change that should outlive a restart."""

    def __init__(self, auto_claim_seconds=None, save=None, clock=time.time):
        self.changed = threading.Condition()
        self._auto_claim_seconds = auto_claim_seconds
        self._save = save
        self._clock = clock
        self._stopped = False
        self._revision = 0
        self._codes_made = 0
        self._codes = {}
        self._terminals = {}
        self._photos = {}
        self._requests = deque(maxlen=MAX_REQUESTS)
        self._last_request = 0

    # What the terminal does.

    def make_code(self, report):
        with self.changed:
            now = self._now_ms()
            code = self._unused_code_locked()
            while len(self._codes) >= MAX_CODES:
                del self._codes[next(iter(self._codes))]
            self._codes[code] = PairingCode(code, report, now, now + CODE_LIFETIME_SECONDS * 1000)
            self._codes_made += 1
            self._note_change_locked()
            return code

    def collect(self, code):
        """What a terminal that asks after its code is told: the state of the code (None for an unknown one) and, the
        one time when the state is "claimed", the token. From then on the state is "collected"."""
        with self.changed:
            self._settle_codes_locked()
            found = self._codes.get(code)
            if found is None:
                return None, ""
            if found.state != CLAIMED:
                return found.state, ""
            found.state = COLLECTED
            self._note_change_locked()
            return CLAIMED, self._terminals[found.terminal].token

    def status_of_token(self, token):
        """"enrolled", "revoked" or "unknown", and the id of the terminal, empty for a token of nobody."""
        with self.changed:
            terminal = self._terminal_of_token_locked(token)
            return (terminal.status, terminal.id) if terminal else (UNKNOWN, "")

    def check_in(self, token, report, body):
        """Keeps the report and returns the settings to send; None when the terminal went away in the meantime."""
        with self.changed:
            terminal = self._terminal_of_token_locked(token)
            if terminal is None or terminal.status != ENROLLED:
                return None
            terminal.checkIns += 1
            terminal.lastCheckInAtMs = self._now_ms()
            terminal.lastReport = report
            terminal.lastBody = body
            self._note_change_locked()
            return copy.deepcopy(terminal.settings)

    def photo(self, digest):
        """The photo of that digest; None when there is none."""
        with self.changed:
            return self._photos.get(digest)

    # What an administrator does.

    def claim(self, text):
        """Makes a terminal of a waiting code and returns its id. Raises Refused."""
        with self.changed:
            self._settle_codes_locked()
            found = self._codes.get(typed_code(text))
            if found is None:
                raise Refused(404, "no terminal shows this code")
            if found.state == EXPIRED:
                raise Refused(410, "this code has expired")
            if found.state != WAITING:
                raise Refused(409, "this code was claimed already")
            terminal = self._claim_locked(found)
            self._note_change_locked()
            return terminal.id

    def expire(self, text):
        """Ends the life of a waiting code now. Raises Refused."""
        with self.changed:
            found = self._codes.get(typed_code(text))
            if found is None:
                raise Refused(404, "no terminal shows this code")
            if found.state != WAITING:
                raise Refused(409, f"this code is {found.state}")
            found.expiresAtMs = self._now_ms()
            self._settle_codes_locked()
            self._note_change_locked()

    def change_settings(self, terminal_id, settings, omit=()):
        """Sets some members of the terminal's replies and leaves those in `omit` out of them. Raises Refused."""
        with self.changed:
            terminal = self._terminal_locked(terminal_id)
            terminal.settings.update(copy.deepcopy(settings))
            for name in omit:
                terminal.settings.pop(name, None)
            self._note_change_locked()

    def keep_photos(self, photos):
        """Keeps photos for the terminals to fetch, each under its digest."""
        with self.changed:
            for photo in photos:
                self._photos.pop(photo.sha256, None)
                self._photos[photo.sha256] = photo
            while len(self._photos) > MAX_PHOTOS_KEPT:
                del self._photos[next(iter(self._photos))]
            self._note_change_locked()

    def change_status(self, terminal_id, status):
        """What the terminal is from here on: enrolled, revoked or unknown. One that becomes unknown keeps its settings
        and loses the code it came from, and with it a token that it has not collected. Raises Refused."""
        with self.changed:
            self._terminal_locked(terminal_id).status = status
            if status == UNKNOWN:
                self._codes = {code: found for code, found in self._codes.items() if found.terminal != terminal_id}
            self._note_change_locked()

    def reset(self):
        """Back to how a new portal starts. Revision and request numbers go on, so that nobody waits for the past."""
        with self.changed:
            self._codes.clear()
            self._terminals.clear()
            self._photos.clear()
            self._requests.clear()
            self._note_change_locked()

    # The terminals' requests.

    def record(self, entry):
        """Keeps one request of a terminal, a dict, and gives it the next number."""
        with self.changed:
            self._last_request += 1
            self._requests.append({"number": self._last_request, "atMs": self._now_ms(), **entry})
            self._note_change_locked(worth_saving=False)

    def requests_after(self, number):
        with self.changed:
            return [copy.deepcopy(entry) for entry in self._requests if entry["number"] > number]

    # Looking and waiting.

    def view(self, secrets_too=False):
        """Everything, as a dict for JSON. Device tokens and exit passwords only on request."""
        with self.changed:
            self._settle_codes_locked()
            return {
                "revision": self._revision,
                "nowMs": self._now_ms(),
                "codesMade": self._codes_made,
                "lastRequest": self._last_request,
                "checkIns": self._all_check_ins_locked(),
                "codes": [copy.deepcopy(asdict(code)) for code in self._codes.values()],
                "terminals": [view_of_terminal(terminal, secrets_too) for terminal in self._terminals.values()],
                "photos": [asdict(photo) for photo in self._photos.values()],
            }

    def view_of(self, terminal_id, secrets_too=False):
        with self.changed:
            return view_of_terminal(self._terminal_locked(terminal_id), secrets_too)

    def wait_for(self, condition, timeout_seconds):
        """Waits until condition(), called under the lock, holds; tells whether it did before the time was up."""
        with self.changed:
            self.changed.wait_for(lambda: self._stopped or condition(), timeout_seconds)
            return condition()

    def touch(self):
        """Tells those who wait that something which is not kept here has changed."""
        with self.changed:
            self._note_change_locked(worth_saving=False)

    def revision(self):
        with self.changed:
            return self._revision

    def codes_made(self):
        with self.changed:
            return self._codes_made

    def check_ins(self, terminal_id=None):
        """The number of check-ins of one terminal, 0 for one that is gone, or of all of them."""
        with self.changed:
            if terminal_id is None:
                return self._all_check_ins_locked()
            terminal = self._terminals.get(terminal_id)
            return terminal.checkIns if terminal else 0

    def last_request(self, path_prefix=""):
        """The number of the last recorded request whose path begins so; 0 when there is none."""
        with self.changed:
            return next((e["number"] for e in reversed(self._requests) if e["path"].startswith(path_prefix)), 0)

    def stop(self):
        """Ends all waiting, for good."""
        with self.changed:
            self._stopped = True
            self.changed.notify_all()

    # Keeping.

    def snapshot(self):
        with self.changed:
            return self._snapshot_locked()

    def restore(self, snapshot):
        """Takes over what snapshot() gave. Raises ValueError, KeyError or TypeError on anything else."""
        codes = [PairingCode(**code) for code in snapshot["codes"]]
        terminals = [Terminal(**terminal) for terminal in snapshot["terminals"]]
        photos = [Photo(**photo) for photo in snapshot.get("photos", [])]
        with self.changed:
            self._photos = {photo.sha256: photo for photo in photos}
            self._codes = {code.code: code for code in codes}
            self._terminals = {terminal.id: terminal for terminal in terminals}

    # The rest expects its caller to hold the lock.

    def _snapshot_locked(self):
        return {
            "codes": [asdict(code) for code in self._codes.values()],
            "terminals": [asdict(terminal) for terminal in self._terminals.values()],
            "photos": [asdict(photo) for photo in self._photos.values()],
        }

    def _now_ms(self):
        return int(self._clock() * 1000)

    def _note_change_locked(self, worth_saving=True):
        self._revision += 1
        self.changed.notify_all()
        if worth_saving and self._save is not None:
            self._save(self._snapshot_locked())

    def _unused_code_locked(self):
        while True:
            code = new_code()
            if code not in self._codes:
                return code

    def _settle_codes_locked(self):
        """Lets time do its work on the codes that still wait. It is called before codes are looked at, so that neither
        expiry nor claiming by itself needs a thread."""
        now = self._now_ms()
        for code in self._codes.values():
            if code.state == WAITING and now >= code.expiresAtMs:
                code.state = EXPIRED
            elif code.state == WAITING and self._claims_itself_locked(code, now):
                self._claim_locked(code)
                self._note_change_locked()

    def _claims_itself_locked(self, code, now):
        if self._auto_claim_seconds is None or not self._has_room_locked():
            return False
        return now >= code.madeAtMs + self._auto_claim_seconds * 1000

    def _claim_locked(self, code):
        if not self._has_room_locked():
            raise Refused(409, f"there are {MAX_TERMINALS} terminals already")
        if len(self._terminals) >= MAX_TERMINALS:
            del self._terminals[self._oldest_unknown_locked()]
        terminal = Terminal(
            id=secrets.token_hex(4),
            token=secrets.token_urlsafe(32),
            report=code.report,
            settings=default_settings(name_from_host(code.report["hostname"])),
            enrolledAtMs=self._now_ms(),
        )
        self._terminals[terminal.id] = terminal
        code.state = CLAIMED
        code.terminal = terminal.id
        return terminal

    def _has_room_locked(self):
        return len(self._terminals) < MAX_TERMINALS or self._oldest_unknown_locked() is not None

    def _oldest_unknown_locked(self):
        return next((found.id for found in self._terminals.values() if found.status == UNKNOWN), None)

    def _terminal_locked(self, terminal_id):
        if terminal_id not in self._terminals:
            raise Refused(404, "there is no such terminal")
        return self._terminals[terminal_id]

    def _terminal_of_token_locked(self, token):
        return next((found for found in self._terminals.values() if found.token == token), None)

    def _all_check_ins_locked(self):
        return sum(terminal.checkIns for terminal in self._terminals.values())
