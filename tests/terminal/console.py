"""The serial console, where a person signs in: what is typed and what comes back."""

import socket

import pexpect.fdpexpect

PROMPT = "mira-types "


class Console:
    def __init__(self, path):
        self._socket = socket.socket(socket.AF_UNIX)
        self._socket.connect(str(path))
        self._screen = pexpect.fdpexpect.fdspawn(self._socket, timeout=300, encoding="utf-8", codec_errors="replace")

    def close(self):
        self._socket.close()

    def sign_in(self, name, password):
        self._screen.sendline("")
        self._screen.expect("login: ")
        self._screen.sendline(name)
        self._screen.expect("Password: ")
        self._screen.sendline(password)
        self._screen.expect(r"\$ ")
        self._screen.sendline(f"PS1='{PROMPT}'")
        self._screen.expect(f"\n{PROMPT}")

    def type(self, line):
        """Types a command line and answers what it printed."""
        self._screen.sendline(line)
        self._screen.expect(f"\n{PROMPT}")
        return self._screen.before.partition("\n")[2].strip()

    def sign_out(self):
        self._screen.sendline("exit")
        self._screen.expect("login: ")
