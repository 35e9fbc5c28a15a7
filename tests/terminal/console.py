"""The serial console, where a person signs in: what is typed and what comes back."""

import socket

import pexpect
import pexpect.fdpexpect

PROMPT = "mira-types "
ATTEMPT_S = 20
ATTEMPTS = 15


class Console:
    def __init__(self, path):
        self._socket = socket.socket(socket.AF_UNIX)
        self._socket.connect(str(path))
        self._screen = pexpect.fdpexpect.fdspawn(self._socket, timeout=300, encoding="utf-8", codec_errors="replace")

    def close(self):
        self._socket.close()

    def sign_in(self, name, password):
        self._give_name(name)
        self._screen.sendline(password)
        self._screen.expect(r"\$ ")
        self._screen.sendline(f"PS1='{PROMPT}'")
        self._screen.expect(f"\n{PROMPT}")

    def _give_name(self, name):
        """Until it is asked for a password: the prompt may be one of before a restart, and what is typed then is lost."""
        for _ in range(ATTEMPTS):
            self._screen.sendline("")
            if self._came("login: "):
                self._screen.sendline(name)
                if self._came("Password: "):
                    return
        raise TimeoutError("no login prompt at the console")

    def _came(self, text):
        return self._screen.expect([text, pexpect.TIMEOUT], timeout=ATTEMPT_S) == 0

    def type(self, line):
        """Types a command line and answers what it printed."""
        self._screen.sendline(line)
        self._screen.expect(f"\n{PROMPT}")
        return self._screen.before.partition("\n")[2].strip()

    def sign_out(self):
        self._screen.sendline("exit")
        self._screen.expect("login: ")
