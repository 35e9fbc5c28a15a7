"""The eye that watches what the other tests send and answer sees what is wrong."""

import json

import pytest

HEADERS = {"User-Agent": "TarnvaleKiosk/2026-10-05-1200", "Content-Type": "application/json",
           "Accept": "application/json"}
WITH_TOKEN = HEADERS | {"Authorization": "Bearer t"}
REPORT = {"appVersion": "2026-10-05-1200", "powerLocal": None, "powerError": None}
CHECK_IN = "/api/kiosk/check-in"
PAIR = "/api/kiosk/pair"
CODE = PAIR + "/ABCD2345"
PHOTO = "/api/kiosk/branding/photos/" + "0" * 64
JSON = "application/json"


def without(members, name):
    return {each: value for each, value in members.items() if each != name}


@pytest.fixture
def request_violations(portal_document):
    def look(method, path, headers, body=None):
        text = b"" if body is None else body if isinstance(body, bytes) else json.dumps(body).encode()
        return portal_document.violations_of_request(method, path, list(headers.items()), text)
    return look


@pytest.mark.parametrize("method, path, headers, body", [
    ("POST", CHECK_IN, WITH_TOKEN, REPORT),
    ("GET", CODE, HEADERS, None),
    ("GET", PHOTO, WITH_TOKEN | {"Accept": "image/*"}, None),
], ids=["check-in", "code", "photo"])
def test_what_a_terminal_sends_passes(request_violations, method, path, headers, body):
    assert request_violations(method, path, headers, body) == []


@pytest.mark.parametrize("method, path, headers, body, told", [
    ("GET", CHECK_IN, WITH_TOKEN, None, "no operation is GET"),
    ("POST", CHECK_IN + "/", WITH_TOKEN, REPORT, "no operation is POST"),
    ("GET", CODE + "6", HEADERS, None, "code $: 'ABCD23456'"),
    ("GET", CODE, HEADERS, REPORT, "a body came"),
    ("GET", CODE, WITH_TOKEN, None, "a token came"),
    ("GET", PHOTO, WITH_TOKEN, None, "Accept is application/json, not image/*"),
    ("POST", CHECK_IN, HEADERS, REPORT, "no bearer token came"),
    ("POST", CHECK_IN, without(WITH_TOKEN, "User-Agent"), REPORT, "the header User-Agent is missing"),
    ("POST", CHECK_IN, WITH_TOKEN | {"User-Agent": "curl"}, REPORT, "User-Agent $: 'curl'"),
    ("POST", CHECK_IN, without(WITH_TOKEN, "Content-Type"), REPORT, "Content-Type is None"),
    ("POST", CHECK_IN, WITH_TOKEN, b"{", "the body is not JSON"),
    ("POST", CHECK_IN, WITH_TOKEN, without(REPORT, "powerError"), "'powerError' is a required property"),
    ("POST", CHECK_IN, WITH_TOKEN, REPORT | {"more": 1}, "'more' was unexpected"),
    ("POST", CHECK_IN, WITH_TOKEN, REPORT | {"appVersion": 7}, "$.appVersion: 7 is not of type"),
], ids=lambda value: value if isinstance(value, str) and " " in value else "")
def test_what_a_terminal_should_not_send_is_told(request_violations, method, path, headers, body, told):
    assert told in "\n".join(request_violations(method, path, headers, body))


@pytest.mark.parametrize("method, path, status, content_type, body", [
    ("POST", PAIR, 201, JSON, {"pairingCode": "ABCD2345"}),
    ("GET", CODE, 202, "text/plain", "nobody reads this"),
    ("POST", CHECK_IN, 200, JSON + "; charset=utf-8", {"status": "enrolled", "branding": None}),
    ("POST", CHECK_IN, 401, JSON, {"status": "revoked"}),
    ("GET", PHOTO, 200, "image/png", None),
], ids=["code", "waiting", "enrolled", "revoked", "photo"])
def test_what_the_portal_answers_passes(portal_document, method, path, status, content_type, body):
    text = json.dumps(body).encode()

    assert portal_document.violations_of_answer(method, path, status, content_type, text) == []


@pytest.mark.parametrize("method, path, status, content_type, body, told", [
    ("GET", "/api/kiosk", 200, JSON, {}, "no operation is GET"),
    ("POST", PAIR, 202, JSON, {}, "202 is no answer"),
    ("POST", PAIR, 201, "text/plain", {"pairingCode": "ABCD2345"}, "Content-Type is text/plain"),
    ("POST", PAIR, 200, JSON, {"pairingCode": 12345678}, "$.pairingCode: 12345678 is not of type"),
    ("POST", CHECK_IN, 200, JSON, {"status": "enrolled", "nam": "Lobby"}, "'nam' was unexpected"),
    ("POST", CHECK_IN, 200, JSON, {"status": "enrolled", "signIn": {"email": "yes"}}, "$.signIn.email"),
    ("POST", CHECK_IN, 401, JSON, {"status": "gone"}, "'gone' is not one of"),
    ("GET", PHOTO, 200, JSON, {}, "not image/*"),
], ids=lambda value: value if isinstance(value, str) and " " in value else "")
def test_what_the_portal_should_not_answer_is_told(portal_document, method, path, status, content_type, body, told):
    violations = portal_document.violations_of_answer(method, path, status, content_type, json.dumps(body).encode())

    assert told in "\n".join(violations)


def test_an_exchange_is_looked_at_from_both_sides(portal_document):
    entry = {"method": "POST", "path": CHECK_IN, "headers": list(HEADERS.items()), "body": json.dumps(REPORT),
             "status": 200, "answer": {"contentType": JSON, "body": '{"status":"unknown"}'}, "fault": None}

    assert len(portal_document.violations_of_records([entry])) == 2


@pytest.mark.parametrize("fault, violations", [("garbage", []), ("slow", ["no answer is on record"]),
                                               (None, ["no answer is on record"])])
def test_only_a_fault_that_makes_its_answer_up_may_leave_none_on_record(portal_document, fault, violations):
    entry = {"method": "POST", "path": CHECK_IN, "headers": list(WITH_TOKEN.items()), "body": json.dumps(REPORT),
             "status": 200, "answer": None, "fault": fault}

    assert portal_document.violations_of_records([entry]) == violations


def test_records_that_may_be_incomplete_are_told(portal_document):
    entry = {"method": "POST", "path": CHECK_IN, "headers": list(WITH_TOKEN.items()), "body": json.dumps(REPORT),
             "status": 401, "answer": {"contentType": JSON, "body": '{"status":"unknown"}'}, "fault": None}

    assert portal_document.violations_of_records([entry] * 199) == []
    assert portal_document.violations_of_records([entry] * 200) == ["the first exchanges may have been dropped"]
