"""The portal's memory on disk: one JSON file, for its user's eyes only because device tokens stand in it.

load() and Store.save() are called by whoever builds the Portal; save() runs under the portal's lock, which keeps the
writes in order.
"""

import json
import os
import sys

MAX_STATE_BYTES = 64 * 1024 * 1024


class Unusable(Exception):
    """A state file that is there and cannot be read; the text is one sentence."""


class Store:
    def __init__(self, path):
        self.path = path
        self._failed = False

    def load(self, portal):
        """Fills the portal from the file; a file that does not exist is an empty one. Raises Unusable."""
        try:
            with open(self.path, encoding="utf-8") as file:
                portal.restore(json.loads(file.read(MAX_STATE_BYTES)))
        except FileNotFoundError:
            return
        except (OSError, ValueError, KeyError, TypeError, RecursionError) as problem:
            raise Unusable(f"the state file {self.path} cannot be used: {type(problem).__name__}: {problem}") from None

    def save(self, snapshot):
        """Replaces the file in one step. A failure is told once on standard error and the portal goes on without."""
        try:
            self._replace(json.dumps(snapshot, indent=1).encode("ascii"))
            self._failed = False
        except OSError as problem:
            if not self._failed:
                print(f"the state file {self.path} was not written: {problem}", file=sys.stderr, flush=True)
            self._failed = True

    def _replace(self, data):
        temporary = f"{self.path}.{os.getpid()}.tmp"
        descriptor = os.open(temporary, os.O_WRONLY | os.O_CREAT | os.O_TRUNC | os.O_NOFOLLOW, 0o600)
        try:
            with os.fdopen(descriptor, "wb") as file:
                file.write(data)
                file.flush()
                os.fsync(file.fileno())
            os.replace(temporary, self.path)
        except OSError:
            os.unlink(temporary)
            raise
