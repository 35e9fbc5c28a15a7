"""The portal as a terminal sees it: pairing, the check-in and photos, all below /api/.

POST /api/kiosk/pair        201 with a pairing code
GET  /api/kiosk/pair/CODE   202 waiting, 200 with the token (once), 409 claimed already, 410 expired, 404 unknown
POST /api/kiosk/check-in    200 with every setting, 401 "revoked" or "unknown", 401 without a status when no token came
GET  /api/kiosk/branding/photos/DIGEST   200 with the photo, 401 as for a check-in, 404 for a photo that is not kept

A body with a member missing or of the wrong type is refused with 400 and a sentence. What is odd and yet harmless (a
header that a terminal should or should not send, a member nobody knows) is answered as usual and noted in the record of
the request, under "doubts".
"""

import base64
import re
from dataclasses import dataclass, field

import branding
import model
import photos
import records
import validate
from exchange import Answer, Refused, json_answer, parse_json, refusal_answer

PREFIX = "/api/"

_PAIR = "/api/kiosk/pair"
_CHECK_IN = "/api/kiosk/check-in"
_PHOTOS = "/api/kiosk/branding/photos/"
_PAIR_MEMBERS = ("hostname", "platform", "osVersion", "appVersion", "screenCount")
_CHECK_IN_MEMBERS = ("appVersion", "powerLocal", "powerError", "osUpdates")
_USER_AGENT = re.compile(r"TarnvaleKiosk/\S+")


@dataclass
class Handled:
    """A terminal's request after it was carried out: the answer, whose it was, and what was odd about it."""

    answer: Answer
    terminal: str = ""
    doubts: list = field(default_factory=list)


def handle(portal, request):
    handled = Handled(Answer(500))
    try:
        handled.answer = _route(portal, request, handled)
    except Refused as refused:
        handled.answer = refusal_answer(refused)
        handled.doubts.append(refused.sentence)
    return handled


def bearer_of(request):
    """The token that came with the request; None when none did."""
    scheme, _, token = (request.header("Authorization") or "").partition(" ")
    return token.strip() if scheme.lower() == "bearer" and token.strip() else None


def entry_of(request, handled, fault):
    """What is kept of a terminal's request; `handled` is None when a fault kept it from being carried out, and there is
    no answer of the portal's own then. A body that is not UTF-8 is kept a second time, in base64."""
    text = request.body.decode("utf-8", "replace")
    entry = {
        "method": request.method,
        "path": request.path,
        "headers": request.headers,
        "body": text,
        "status": handled.answer.status if handled else fault.made_up_status(),
        "answer": _kept_of(handled.answer) if handled else None,
        "terminal": handled.terminal if handled else "",
        "fault": fault.kind if fault else None,
        "doubts": handled.doubts if handled else [],
    }
    if text.encode("utf-8") != request.body:
        entry["bodyBase64"] = base64.b64encode(request.body).decode("ascii")
    return entry


def _kept_of(answer):
    """A photo is large, and can be had by its digest."""
    content_type = answer.headers["Content-Type"]
    is_text = content_type == "application/json"
    return {"contentType": content_type, "body": answer.body.decode("utf-8") if is_text else None}


def _route(portal, request, handled):
    _doubt_common_headers(request, handled.doubts)
    if request.path == _PAIR:
        _require_method(request, "POST")
        return _begin_pairing(portal, request, handled)
    if request.path.startswith(_PAIR + "/"):
        _require_method(request, "GET")
        return _continue_pairing(portal, request, handled)
    if request.path == _CHECK_IN:
        _require_method(request, "POST")
        return _check_in(portal, request, handled)
    if request.path.startswith(_PHOTOS):
        _require_method(request, "GET")
        return _photo(portal, request, handled)
    raise Refused(404, "the portal has nothing here")


def _begin_pairing(portal, request, handled):
    _doubt_unwanted_token(request, handled.doubts)
    report = _report_in(request, handled.doubts, validate.check_pairing_report, _PAIR_MEMBERS)
    if report["platform"] != "Linux":
        handled.doubts.append("platform is not Linux")
    code = portal.make_code(report)
    return json_answer(201, {"pairingCode": code, "expiresInSeconds": model.CODE_LIFETIME_SECONDS})


def _continue_pairing(portal, request, handled):
    _doubt_unwanted_token(request, handled.doubts)
    _doubt_body(request, handled.doubts)
    state, token = portal.collect(request.path[len(_PAIR) + 1 :])
    if state == records.CLAIMED:
        return json_answer(200, {"deviceToken": token})
    if state == records.WAITING:
        return json_answer(202, {"status": "waiting"})
    if state == records.EXPIRED:
        return json_answer(410, {"error": "the code has expired"})
    if state == records.COLLECTED:
        return json_answer(409, {"error": "the code was claimed already"})
    return json_answer(404, {"error": "the code is not known"})


def _check_in(portal, request, handled):
    token = bearer_of(request)
    refusal = _refusal_of_token(portal, token, handled)
    if refusal is not None:
        return refusal
    report = _report_in(request, handled.doubts, validate.check_check_in_report, _CHECK_IN_MEMBERS)
    _doubt_os_updates(report, handled.doubts)
    settings = portal.check_in(token, report, request.body.decode("utf-8", "replace"))
    if settings is None:
        return json_answer(401, {"status": portal.status_of_token(token)[0]})
    return json_answer(200, {"status": records.ENROLLED, **settings})


def _photo(portal, request, handled):
    refusal = _refusal_of_token(portal, bearer_of(request), handled)
    if refusal is not None:
        return refusal
    _doubt_body(request, handled.doubts)
    digest = request.path[len(_PHOTOS) :]
    if digest not in branding.photos_by_digest(portal.view_of(handled.terminal)["settings"].get("branding")):
        handled.doubts.append("the photo is not in the terminal's branding")
    photo = portal.photo(digest)
    if photo is None:
        raise Refused(404, "there is no such photo")
    return Answer(200, photos.file_of(photo), {"Content-Type": photos.CONTENT_TYPE})


def _refusal_of_token(portal, token, handled):
    """The 401 for a token that is not an enrolled terminal's, or for none; None for one that is. Notes whose it is."""
    if token is None:
        handled.doubts.append("no bearer token came")
        return json_answer(401, {"error": "a bearer token is needed"}, {"WWW-Authenticate": "Bearer"})
    status, handled.terminal = portal.status_of_token(token)
    return None if status == records.ENROLLED else json_answer(401, {"status": status})


def _require_method(request, method):
    if request.method != method:
        raise Refused(405, f"only {method} works here")


def _report_in(request, doubts, check, known_members):
    """The terminal's report. Bytes that are not UTF-8 are doubted and replaced rather than refused: a terminal may cut
    a text in the middle of a character, and what it does with the answer is then still of interest."""
    text = request.body.decode("utf-8", "replace")
    if text.encode("utf-8") != request.body:
        doubts.append("the body is not UTF-8")
    try:
        report = parse_json(text)
        check(report)
    except ValueError as problem:
        raise Refused(400, f"the body was refused: {problem}") from None
    doubts.extend(f"a member that is not known: {member:.80}" for member in report if member not in known_members)
    return report


def _doubt_common_headers(request, doubts):
    if request.header("Content-Type") != "application/json":
        doubts.append("Content-Type is not application/json")
    accept = "image/*" if request.path.startswith(_PHOTOS) else "application/json"
    if request.header("Accept") != accept:
        doubts.append(f"Accept is not {accept}")
    if not _USER_AGENT.fullmatch(request.header("User-Agent") or ""):
        doubts.append("User-Agent is not TarnvaleKiosk/ and a build stamp")


def _doubt_unwanted_token(request, doubts):
    if request.header("Authorization") is not None:
        doubts.append("Authorization came with a pairing request")


def _doubt_body(request, doubts):
    if request.body:
        doubts.append("a GET came with a body")


def _doubt_os_updates(report, doubts):
    if "osUpdates" not in report:
        return
    try:
        validate.check_os_updates_report("osUpdates", report["osUpdates"])
    except validate.Invalid as problem:
        doubts.append(str(problem))
