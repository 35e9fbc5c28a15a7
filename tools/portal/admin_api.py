"""The interface for tests and scripts, all below /admin/: JSON in, JSON out.

GET    /admin/state                       everything; tokens and exit passwords only with ?secrets=1
GET    /admin/requests                    the terminals' last requests, newest last; ?after=N, ?secrets=1
POST   /admin/claim                       {"code"}
POST   /admin/codes/CODE/expire
GET    /admin/terminals/ID                one terminal; ?secrets=1
POST   /admin/terminals/ID/settings       members of the check-in reply, and "raw", "omit"
POST   /admin/terminals/ID/revoke         also .../forget and .../bring-back
POST   /admin/faults                      adds one; GET lists them, DELETE drops them all
POST   /admin/wait                        answers once something has happened, or when the time is up
POST   /admin/reset                       forgets everything

Refusals have a 4xx status and {"error": sentence}. A wait lasts at most 300 seconds.
"""

import copy
import re

import branding
import records
import validate
from exchange import Refused, json_answer, json_object_of

PREFIX = "/admin/"
MAX_WAIT_SECONDS = 300
DEFAULT_WAIT_SECONDS = 30

_DEFAULT_SIGN_IN = {"microsoft": True, "email": False, "extraHosts": []}


def handle(portal, faults, request):
    """The answer. Raises Refused."""
    path_is_known = False
    for method, pattern, action in _ROUTES:
        match = pattern.fullmatch(request.path)
        if match and method == request.method:
            return json_answer(200, action(portal, faults, request, *match.groups()))
        path_is_known = path_is_known or match is not None
    if path_is_known:
        raise Refused(405, f"{request.method} does not work here")
    raise Refused(404, "the admin interface has nothing here")


def state_of(portal, faults, secrets_too=False):
    return {**portal.view(secrets_too), "faults": faults.view()}


def change_settings(portal, terminal_id, wish):
    """Carries out what the body of .../settings asks for. Raises Refused.

    {"name":"Lobby"} sets the name; {"power":7,"raw":true} sends what no portal should; {"omit":["name"]} leaves the
    name out of the replies.
    """
    settings = {name: value for name, value in wish.items() if name not in ("raw", "omit")}
    omit = wish.get("omit", [])
    _require_setting_names(settings)
    if not isinstance(omit, list):
        raise Refused(400, "omit must be an array of setting names")
    _require_setting_names(omit)
    if wish.get("raw", False) is not True:
        settings = _checked(portal, settings)
    portal.change_settings(terminal_id, settings, omit)


def _checked(portal, settings):
    if isinstance(settings.get("signIn"), dict):
        settings["signIn"] = {**copy.deepcopy(_DEFAULT_SIGN_IN), **settings["signIn"]}
    if "branding" in settings:
        settings["branding"] = branding.filled_in(portal, settings["branding"])
    try:
        validate.check_settings(settings)
    except validate.Invalid as problem:
        raise Refused(400, str(problem)) from None
    return settings


def _require_setting_names(names):
    for name in names:
        if name not in list(validate.SETTING_CHECKS):
            raise Refused(400, f"{str(name):.80} is not a setting; there are {', '.join(validate.SETTING_CHECKS)}")


def _get_state(portal, faults, request):
    return state_of(portal, faults, _wants_secrets(request))


def _get_requests(portal, faults, request):
    entries = portal.requests_after(_number_in_query(request, "after"))
    if not _wants_secrets(request):
        entries = [_without_secrets(entry) for entry in entries]
    return {"requests": entries, "lastRequest": portal.last_request()}


def _post_claim(portal, faults, request):
    return {"terminal": portal.claim(_text_member(json_object_of(request), "code"))}


def _post_expire(portal, faults, request, code):
    portal.expire(code)
    return {}


def _get_terminal(portal, faults, request, terminal_id):
    return portal.view_of(terminal_id, _wants_secrets(request))


def _post_settings(portal, faults, request, terminal_id):
    change_settings(portal, terminal_id, json_object_of(request))
    return portal.view_of(terminal_id)


def _post_status(portal, faults, request, terminal_id, action):
    portal.change_status(terminal_id, records.STATUS_AFTER[action])
    return portal.view_of(terminal_id)


def _get_faults(portal, faults, request):
    return {"faults": faults.view()}


def _post_fault(portal, faults, request):
    return faults.add(json_object_of(request))


def _delete_faults(portal, faults, request):
    faults.clear()
    return {}


def _post_wait(portal, faults, request):
    wish = json_object_of(request)
    counter, after = _counter_to_watch(portal, wish)
    timeout_seconds = wish.get("timeoutSeconds", DEFAULT_WAIT_SECONDS)
    if isinstance(timeout_seconds, bool) or not isinstance(timeout_seconds, (int, float)):
        raise Refused(400, "timeoutSeconds must be a number")
    if not 0 <= timeout_seconds <= MAX_WAIT_SECONDS:
        raise Refused(400, f"timeoutSeconds must be from 0 to {MAX_WAIT_SECONDS}")
    reached = portal.wait_for(lambda: counter() > after, timeout_seconds)
    return {"reached": reached, "value": counter(), "revision": portal.revision()}


def _counter_to_watch(portal, wish):
    """The counter that a wait is about, as a function, and the value that it must pass. Raises Refused."""
    terminal_id = wish.get("terminal")
    path = wish.get("path", "")
    if not isinstance(path, str):
        raise Refused(400, "path must be a text")
    counters = {
        "afterCheckIns": lambda: portal.check_ins(terminal_id),
        "afterRequests": lambda: portal.last_request(path),
        "afterCodes": portal.codes_made,
        "afterRevision": portal.revision,
    }
    named = [name for name in counters if name in wish]
    if len(named) != 1 or not isinstance(wish[named[0]], int):
        raise Refused(400, f"give exactly one of {', '.join(counters)}, as a whole number")
    if terminal_id is not None:
        portal.view_of(_text_member(wish, "terminal"))
    return counters[named[0]], wish[named[0]]


def _post_reset(portal, faults, request):
    faults.clear()
    portal.reset()
    return {}


def _wants_secrets(request):
    return request.query.get("secrets") == "1"


def _number_in_query(request, name):
    text = request.query.get(name, "0")
    if not re.fullmatch(r"[0-9]{1,18}", text):
        raise Refused(400, f"{name} must be a number")
    return int(text)


def _text_member(wish, name):
    if not isinstance(wish.get(name), str):
        raise Refused(400, f"{name} must be a text")
    return wish[name]


def _without_secrets(entry):
    def shown(name, value):
        return [name, "Bearer (hidden)" if name.lower() == "authorization" else value]

    kept = {name: value for name, value in entry.items() if name != "answer"}
    return {**kept, "headers": [shown(*header) for header in entry["headers"]]}


_TERMINAL = r"/admin/terminals/([^/]+)"
_ROUTES = [
    (method, re.compile(pattern), action)
    for method, pattern, action in (
        ("GET", r"/admin/state", _get_state),
        ("GET", r"/admin/requests", _get_requests),
        ("POST", r"/admin/claim", _post_claim),
        ("POST", r"/admin/codes/([^/]+)/expire", _post_expire),
        ("GET", _TERMINAL, _get_terminal),
        ("POST", _TERMINAL + r"/settings", _post_settings),
        ("POST", _TERMINAL + rf"/({'|'.join(records.STATUS_AFTER)})", _post_status),
        ("GET", r"/admin/faults", _get_faults),
        ("POST", r"/admin/faults", _post_fault),
        ("DELETE", r"/admin/faults", _delete_faults),
        ("POST", r"/admin/wait", _post_wait),
        ("POST", r"/admin/reset", _post_reset),
    )
]
