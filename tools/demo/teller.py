"""What the demo prints: the story in chapters, the facts that prove it, and what others say meanwhile."""

import os
import signal
import sys
import threading


class Teller:
    """Prints the story. Lines of several threads never mix."""

    def __init__(self):
        self._lock = threading.Lock()
        self._chapters = 0
        self._colours = sys.stdout.isatty() and "NO_COLOR" not in os.environ and os.environ.get("TERM") != "dumb"

    def chapter(self, title):
        self._chapters += 1
        self._print(f"\n{self._in('1', f'{self._chapters}. {title}')}")

    def say(self, text):
        self._print(f"   {text}")

    def fact(self, text):
        self._print(f"   {self._in('32', 'ok')} {text}")

    def end(self, whole):
        text = "That was the whole story." if whole else "That was the story, without the chapters that were skipped."
        self._print("\n" + self._in("1", text))

    def interruption(self, text):
        self._print(f"   {self._in('31', '!!')} {text}")

    def failure(self, text):
        self._print(f"\n{self._in('31', 'The story broke off')}: {text}")

    def overhear(self, who, line):
        self._print(self._in("2", f"   {who:>8} | {line}"))

    def strong(self, text):
        return self._in("1", text)

    def _in(self, code, text):
        return f"\033[{code}m{text}\033[0m" if self._colours else text

    def _print(self, text):
        with self._lock:
            try:
                sys.stdout.write(text + "\n")
                sys.stdout.flush()
            except BrokenPipeError:
                self._stop_telling()

    def _stop_telling(self):
        """Nobody listens any more: that ends the demo as a closed window does."""
        os.dup2(os.open(os.devnull, os.O_WRONLY), sys.stdout.fileno())
        signal.raise_signal(signal.SIGHUP)
