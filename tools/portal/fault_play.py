"""Acting a fault out on one connection.

play() has the socket of the request and a function that carries the request out as usual. It runs on the connection's
own thread and returns when there is nothing more to send; the caller closes the connection. An event on the fault ends
every wait here, so clearing the faults or stopping the server never has to wait for one.

Sending is blocking, and the connection's time-out bounds it.
"""

import json
import os
import select
import socket
import struct
import time

from exchange import Answer

_JSON = {"Content-Type": "application/json"}
_LOOK_EVERY_SECONDS = 0.05


def play(fault, connection, send, carry_out):
    """Acts `fault` out. send(answer, declared_length=None, pieces=None) writes an answer; carry_out() makes the usual
    one and is called only for the kinds of KINDS_THAT_HANDLE."""
    _PLAYERS[fault.kind](fault, connection, send, carry_out)


def _slow(fault, connection, send, carry_out):
    # The request takes effect when it comes and only the answer is late: that is how an answer gets overtaken.
    answer = carry_out()
    _wait_while_connected(fault, connection, fault.parameters["delayMs"])
    send(answer)


def _silent(fault, connection, send, carry_out):
    _wait_while_connected(fault, connection, fault.parameters["forMs"])


def _cut_off(fault, connection, send, carry_out):
    answer = carry_out()
    half = answer.body[: len(answer.body) // 2]
    send(Answer(answer.status, half, answer.headers), declared_length=len(answer.body) + 1000)


def _reset(fault, connection, send, carry_out):
    # With a linger time of zero the close sends RST in place of FIN. The descriptor is taken out of the socket object
    # because the streams over it would keep it open, and a shutdown would send the FIN first.
    connection.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
    os.close(connection.detach())


def _made_up(fault, connection, send, carry_out):
    send(_MAKERS[fault.kind](fault.parameters))


def _too_long(fault, connection, send, carry_out):
    answer = carry_out()
    pad = padded if answer.headers.get("Content-Type") == _JSON["Content-Type"] else _filled_up
    send(Answer(answer.status, pad(answer.body, fault.parameters["bytes"]), answer.headers))


def _drip(fault, connection, send, carry_out):
    answer = carry_out()
    send(answer, pieces=_bytes_of(answer.body, fault))


def padded(body, size):
    """A JSON object made `size` bytes long by one more member; unchanged when it is nearly that long already.

    padded(b'{"a":1}', 24) -> b'{"a":1,"padding":"xxxx"}'
    """
    start = body.rstrip()[:-1]
    opening = b'"padding":"' if start.endswith(b"{") else b',"padding":"'
    missing = size - len(start) - len(opening) - 2
    return start + opening + b"x" * missing + b'"}' if missing >= 0 else body


def _filled_up(body, size):
    return body.ljust(size, b"\0")


def _bytes_of(body, fault):
    until = time.monotonic() + 600
    for position in range(len(body)):
        fault.cleared.wait(fault.parameters["everyMs"] / 1000)
        if time.monotonic() > until:
            return
        yield body[position : position + 1]


def _wait_while_connected(fault, connection, milliseconds):
    until = time.monotonic() + milliseconds / 1000
    while not fault.cleared.is_set() and not _is_gone(connection):
        left = until - time.monotonic()
        if left <= 0:
            return
        fault.cleared.wait(min(left, _LOOK_EVERY_SECONDS))


def _is_gone(connection):
    """Whether the peer has closed. Bytes that it sends on are left unread and count as being there."""
    try:
        if not select.select([connection], [], [], 0)[0]:
            return False
        return connection.recv(1, socket.MSG_PEEK) == b""
    except (OSError, ValueError):
        return True


def _status_answer(parameters):
    headers = dict(_JSON)
    if parameters["location"]:
        headers["Location"] = parameters["location"]
    text = json.dumps({"error": f"the portal was told to answer {parameters['status']}"})
    return Answer(parameters["status"], text.encode("ascii"), headers)


def _garbage_answer(parameters):
    return Answer(200, os.urandom(parameters["bytes"]), dict(_JSON))


def _given_answer(parameters):
    body = parameters["bodyBase64"]
    if body is None:
        body = parameters["body"].encode("utf-8", "replace")
    return Answer(parameters["status"], body, {**_JSON, **parameters["headers"]})


_MAKERS = {"status": _status_answer, "garbage": _garbage_answer, "answer": _given_answer}
_PLAYERS = {
    "slow": _slow,
    "silent": _silent,
    "cutOff": _cut_off,
    "reset": _reset,
    "status": _made_up,
    "garbage": _made_up,
    "tooLong": _too_long,
    "drip": _drip,
    "answer": _made_up,
}
