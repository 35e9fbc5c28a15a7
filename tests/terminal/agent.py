"""Commands in the guest, through QEMU's guest agent: as root, outside any session, over no network."""

import base64
import random
import time
from dataclasses import dataclass

from channel import Channel, Silent

POLL_S = 0.1
RESET = b"\xff"  # makes the agent forget half a request


@dataclass(frozen=True)
class Result:
    status: int
    out: str
    err: str


class Agent:
    def __init__(self, path):
        self._channel = Channel(path)

    def close(self):
        self._channel.close()

    def wait(self, timeout_s):
        """Until the agent answers: after a boot, and after everything that may have cut an answer off."""
        deadline = time.monotonic() + timeout_s
        while True:
            number = random.randrange(1 << 30)
            self._channel.send({"execute": "guest-sync-delimited", "arguments": {"id": number}}, RESET)
            try:
                while self._channel.receive(5).get("return") != number:
                    pass
                return
            except Silent:
                if time.monotonic() > deadline:
                    raise

    def run(self, argv, stdin="", timeout_s=120):
        """Runs a program to its end. TimeoutError leaves it running."""
        arguments = {"path": argv[0], "arg": list(argv[1:]), "capture-output": True}
        if stdin:
            arguments["input-data"] = base64.b64encode(stdin.encode()).decode()
        pid = self._call("guest-exec", arguments)["pid"]
        deadline = time.monotonic() + timeout_s
        while True:
            state = self._call("guest-exec-status", {"pid": pid})
            if state["exited"]:
                return Result(state.get("exitcode", -state.get("signal", 1)), text(state, "out-data"), text(state, "err-data"))
            if time.monotonic() > deadline:
                raise TimeoutError(f"{argv} has not ended after {timeout_s} s")
            time.sleep(POLL_S)

    def _call(self, command, arguments):
        self._channel.send({"execute": command, "arguments": arguments})
        answer = self._channel.receive(60)
        if "return" not in answer:
            raise RuntimeError(f"{command}: {answer}")
        return answer["return"]


def text(state, member):
    return base64.b64decode(state.get(member, "")).decode(errors="replace")
