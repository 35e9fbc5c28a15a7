"""What goes over the wire, held against docs/portal-api.yaml.

The document leaves objects open, since terminals ignore members that they do not know and later ones may send more.
Here a member that it does not name is a mistake: of the terminal, of the stand-in, or of the document.
"""

import base64
import json
import re
import sys
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
sys.path += [str(ROOT / "script" / "lib"), str(ROOT / "tools" / "portal")]

import openapi  # noqa: E402
from faults import KINDS, KINDS_THAT_HANDLE  # noqa: E402
from model import MAX_REQUESTS  # noqa: E402

FAULTS_WITHOUT_ANSWER = set(KINDS) - set(KINDS_THAT_HANDLE)


class PortalDocument:
    def __init__(self):
        self._document = closed(openapi.read(ROOT / "docs" / "portal-api.yaml"))

    def violations_of_request(self, method, path, headers, body):
        """Sentences about what a terminal should not have sent. Headers are pairs of name and value, the body bytes."""
        operation, values = self._find_operation(method, path)
        if operation is None:
            return [f"no operation is {method} {path}"]
        headers = {name.lower(): value for name, value in headers}
        return [
            *self._check_parameters(operation, values, headers),
            *self._check_authorization(operation, headers.get("authorization")),
            *self._check_accept(operation, headers.get("accept")),
            *self._check_request_body(operation, headers.get("content-type"), body),
        ]

    def violations_of_answer(self, method, path, status, content_type, body):
        """Sentences about what the portal should not have answered. Under `default` and `5XX` the document says what a
        terminal does with an answer that it was not promised; none of these passes."""
        operation, _ = self._find_operation(method, path)
        if operation is None:
            return [f"no operation is {method} {path}"]
        answer = operation["responses"].get(str(status))
        if answer is None:
            return [f"{status} is no answer to {method} {path}"]
        return self._check_content(openapi.resolved(self._document, answer).get("content"), content_type, body)

    def violations_of_records(self, entries):
        """Both, for all exchanges that the stand-in has on record, as /admin/requests?secrets=1 tells them."""
        found = [violation for entry in entries for violation in self._violations_of_record(entry)]
        return found + (["the first exchanges may have been dropped"] if len(entries) >= MAX_REQUESTS else [])

    def _violations_of_record(self, entry):
        """The answer that a fault made up is wrong on purpose, and the stand-in keeps none; under the other faults it
        keeps the one that it would have given."""
        method, path = entry["method"], entry["path"]
        body = base64.b64decode(entry["bodyBase64"]) if "bodyBase64" in entry else entry["body"].encode()
        violations = self.violations_of_request(method, path, entry["headers"], body)
        if entry["answer"] is None:
            return violations + ([] if entry["fault"] in FAULTS_WITHOUT_ANSWER else ["no answer is on record"])
        content_type, text = entry["answer"]["contentType"], entry["answer"]["body"]
        answer = (text or "").encode()
        return violations + self.violations_of_answer(method, path, entry["status"], content_type, answer)

    def _find_operation(self, method, path):
        """The operation, and the values that the path has for its parameters."""
        for template, item in self._document["paths"].items():
            match = re.fullmatch(re.sub(r"\{(\w+)\}", r"(?P<\1>[^/]+)", template), path)
            if match and method.lower() in item:
                return item[method.lower()], match.groupdict()
        return None, {}

    def _check_parameters(self, operation, values, headers):
        for entry in operation["parameters"]:
            parameter = openapi.resolved(self._document, entry)
            name = parameter["name"]
            value = values[name] if parameter["in"] == "path" else headers.get(name.lower())
            if value is None:
                yield f"the header {name} is missing"
            else:
                yield from (f"{name} {each}" for each in self._violations(parameter["schema"], value))

    def _check_authorization(self, operation, value):
        is_wanted = bool(operation.get("security", self._document["security"]))
        if is_wanted and not re.fullmatch(r"Bearer [!-~]+", value or ""):
            yield "no bearer token came"
        if not is_wanted and value is not None:
            yield "a token came that nobody wants"

    def _check_accept(self, operation, value):
        understood = openapi.resolved(self._document, operation["responses"]["200"])["content"]
        if value not in understood:
            yield f"Accept is {value}, not {' or '.join(understood)}"

    def _check_request_body(self, operation, content_type, body):
        if "requestBody" in operation:
            return self._check_content(operation["requestBody"]["content"], content_type, body)
        return ["a body came that nobody wants"] if body else []

    def _check_content(self, content, content_type, body):
        """A body of which the document says nothing is one that nobody reads."""
        if content is None:
            return []
        kind = next((kind for kind in content if is_of(kind, content_type)), None)
        if kind is None:
            return [f"Content-Type is {content_type}, not {' or '.join(content)}"]
        if "schema" not in content[kind]:
            return []
        try:
            # A text may have been cut within a character.
            value = json.loads(body.decode("utf-8", "replace"))
        except ValueError as problem:
            return [f"the body is not JSON: {problem}"]
        return self._violations(content[kind]["schema"], value)

    def _violations(self, schema, value):
        return openapi.violations(self._document, schema, value)


def closed(value):
    """The document with every object schema refusing members that it does not name."""
    if isinstance(value, list):
        return [closed(element) for element in value]
    if not isinstance(value, dict):
        return value
    members = {name: closed(member) for name, member in value.items()}
    return {"additionalProperties": False, **members} if value.get("type") == "object" else members


def is_of(kind, content_type):
    """"image/png" is of "image/*"; "application/json; charset=utf-8" is of "application/json"."""
    sent = (content_type or "").partition(";")[0].strip()
    return sent == kind or kind.endswith("/*") and sent.startswith(kind[:-1])
