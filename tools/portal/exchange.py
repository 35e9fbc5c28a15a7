"""One HTTP exchange as plain data: what came in and what goes out.

The routing in server.py makes a Request, an API module turns it into an Answer, and server.py or fault_play.py sends
that. Nothing here touches a socket.
"""

import json
from dataclasses import dataclass, field


class Refused(Exception):
    """A request that is turned down: the HTTP status and one sentence for whoever sent it."""

    def __init__(self, status, sentence):
        super().__init__(sentence)
        self.status = status
        self.sentence = sentence


@dataclass
class Request:
    method: str
    path: str  # without the query
    query: dict = field(default_factory=dict)  # the last value of each name
    headers: list = field(default_factory=list)  # [name, value] pairs in the order they came
    body: bytes = b""

    def header(self, name):
        """The first header of that name, in any case; None when it was not sent."""
        wanted = name.lower()
        return next((value for key, value in self.headers if key.lower() == wanted), None)


@dataclass
class Answer:
    status: int
    body: bytes = b""
    headers: dict = field(default_factory=dict)


def json_answer(status, value, headers=None):
    text = json.dumps(value, ensure_ascii=False, separators=(",", ":"))
    # A test may have had a lone surrogate stored on purpose; it leaves as "?" rather than as a failure of this program.
    body = text.encode("utf-8", "replace")
    return Answer(status, body, {"Content-Type": "application/json", **(headers or {})})


def refusal_answer(refused):
    return json_answer(refused.status, {"error": refused.sentence})


def parse_json(text):
    """The JSON value in text. Raises ValueError with a sentence; strict where Python's reader is lenient.

    '{"a":1}' -> {"a": 1};  '{"a":1,"a":2}' -> ValueError;  'NaN' -> ValueError
    """
    try:
        return json.loads(text, parse_constant=_refuse_constant, object_pairs_hook=_object_of_distinct_members)
    except RecursionError:
        raise ValueError("the JSON is nested too deeply") from None


def json_object_of(request):
    """The JSON object in a request's body, an empty body standing for an empty object. Raises Refused."""
    if not request.body.strip():
        return {}
    try:
        value = parse_json(request.body.decode("utf-8"))
    except ValueError as problem:
        raise Refused(400, f"the body is not JSON: {problem}") from None
    if not isinstance(value, dict):
        raise Refused(400, "the body is not a JSON object")
    return value


def _refuse_constant(word):
    raise ValueError(f"{word} is not JSON")


def _object_of_distinct_members(pairs):
    members = dict(pairs)
    if len(members) != len(pairs):
        raise ValueError("a member stands twice in an object")
    return members
