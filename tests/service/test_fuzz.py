"""Requests of random bytes: each is answered or closed, and none ends the service."""

import json
import random

import pytest

SEEDS = [
    b'{"cmd":"status"}\n', b'{"cmd":"session.report","signedIn":true,"live":null}\n',
    b'{"cmd":"pair.check","code":"\\u0041BCD2345"}\n', b'{"cmd":"net.set","unlockToken":1e308,"dns":[[],{}]}\n',
]
REPLIES = {"bad_request", "unknown_command", "not_permitted", "not_pending"}


def noise(source):
    return bytes(source.randrange(256) for _ in range(source.randrange(1, 300)))


def structure(source):
    return bytes(source.choice(b'[]{}",:\\0123456789.eE+-truefalsn u\t') for _ in range(source.randrange(1, 2000)))


def damage(source):
    text = bytearray(source.choice(SEEDS))
    for _ in range(source.randrange(1, 4)):
        place = source.randrange(len(text))
        text[place:place + source.randrange(3)] = noise(source)[:source.randrange(3)]
    return bytes(text)


@pytest.mark.parametrize("make", [noise, structure, damage])
def test_random_requests_get_a_whole_reply_or_none(service, make):
    source = random.Random(20260)

    for number in range(200):
        request = make(source)
        reply = service.raw(request, shut=True)
        if reply:
            document = json.loads(reply)
            assert reply.endswith(b"}\n") and reply.count(b"\n") == 1
            assert document["ok"] or document["error"] in REPLIES, (number, request)
        else:
            assert request.strip(b" \t\r\n\v\f") == b"", (number, request)

    assert service.send({"cmd": "status"})["ok"]
