"""The forms of the person's page, all below /forms/: form fields in, a redirect back to the page out.

What is refused shows the page again with the reason on top. Each form carries only its own group of settings, so saving
one leaves the others as they are.
"""

import re
from urllib.parse import parse_qs

import admin_api
import branding
import page
import records
import terminal_card
from exchange import Answer, Refused, parse_json

PREFIX = "/forms/"
MAX_FIELDS = 100


class Fields:
    """The fields of a form: any of them may be missing, and one name may come several times."""

    def __init__(self, body):
        try:
            self._values = parse_qs(body.decode("utf-8"), keep_blank_values=True, max_num_fields=MAX_FIELDS)
        except ValueError as problem:
            raise Refused(400, f"the form cannot be read: {problem}") from None

    def text(self, name):
        return self._values.get(name, [""])[0]

    def all_of(self, name):
        return self._values.get(name, [])

    def lines(self, name):
        return [line.strip() for line in self.text(name).splitlines() if line.strip()]

    def is_ticked(self, name):
        return name in self._values

    def number(self, name, when_empty=""):
        text = self.text(name).strip() or when_empty
        if not re.fullmatch(r"[0-9]{1,9}", text):
            raise Refused(400, f"{name} must be a whole number")
        return int(text)

    def days(self, name):
        return sorted(int(day) for day in self.all_of(name) if re.fullmatch(r"[0-6]", day))


def handle(portal, faults, request):
    try:
        if request.method != "POST":
            raise Refused(405, "a form is posted")
        fields = Fields(request.body)
        return _back_to(_submit(portal, faults, request.path, fields))
    except Refused as refused:
        return page.answer(portal, faults, request, refused)


def _submit(portal, faults, path, fields):
    """Carries the form out and returns the place on the page to go back to. Raises Refused."""
    if path == "/forms/claim":
        return terminal_card.anchor_of(portal.claim(fields.text("code")))
    if path == "/forms/faults":
        faults.add(_fault_in(fields))
        return "faults"
    if path == "/forms/faults/clear":
        faults.clear()
        return "faults"
    match = re.fullmatch(r"/forms/terminals/([^/]+)/([^/]+)", path)
    if match is None:
        raise Refused(404, "there is no such form")
    return _submit_for_terminal(portal, *match.groups(), fields)


def _submit_for_terminal(portal, terminal_id, action, fields):
    if action in records.STATUS_AFTER:
        portal.change_status(terminal_id, records.STATUS_AFTER[action])
    elif action == "branding":
        admin_api.change_settings(portal, terminal_id, _branding_in(portal, terminal_id, fields))
    elif action in _SETTINGS_IN:
        admin_api.change_settings(portal, terminal_id, _SETTINGS_IN[action](fields))
    else:
        raise Refused(404, "there is no such form")
    return terminal_card.anchor_of(terminal_id)


def _back_to(anchor):
    return Answer(303, b"", {"Location": f"/#{anchor}"})


def _name_in(fields):
    return {"name": fields.text("name"), "tenantId": fields.text("tenantId")}


def _sign_in_in(fields):
    return {
        "signIn": {
            "microsoft": fields.is_ticked("microsoft"),
            "email": fields.is_ticked("email"),
            "extraHosts": fields.lines("extraHosts"),
        }
    }


def _power_in(fields):
    schedule = {
        "enabled": fields.is_ticked("enabled"),
        "sleepAt": fields.text("sleepAt"),
        "wakeAt": fields.text("wakeAt"),
        "days": fields.days("days"),
    }
    power = {
        "screenOffMinutes": fields.number("screenOffMinutes"),
        "sleepMinutes": fields.number("sleepMinutes"),
        "schedule": schedule,
    }
    return {"power": power, "powerSource": fields.text("source")}


def _updates_in(fields):
    window = {"start": fields.text("start"), "end": fields.text("end"), "days": fields.days("days")}
    return {
        "updates": {"automatic": fields.is_ticked("automatic"), "window": window},
        "updatesSource": fields.text("source"),
    }


def _branding_in(portal, terminal_id, fields):
    if fields.is_ticked("clear"):
        return {"branding": None}
    shown = branding.photos_by_digest(portal.view_of(terminal_id)["settings"].get("branding"))
    kept = {digest: entry for digest, entry in shown.items() if digest in fields.all_of("photos")}
    count, size = fields.number("addCount", when_empty="0"), fields.number("addSize", when_empty="0")
    added = branding.further_photos(portal, count, size, besides=kept)
    texts = {name: fields.text(name) for name in ("displayName", "signInSubtitle")}
    return {"branding": {**texts, "photos": [*kept.values(), *added]}}


def _exit_password_in(fields):
    if fields.is_ticked("clear"):
        return {"exitPassword": ""}
    if not fields.text("exitPassword"):
        raise Refused(400, "no password was typed; there is a button that clears it")
    return {"exitPassword": fields.text("exitPassword")}


def _raw_in(fields):
    """Any JSON for one member, or none of it."""
    member = fields.text("member")
    if fields.is_ticked("clear"):
        return {"omit": [member]}
    try:
        return {member: parse_json(fields.text("json")), "raw": True}
    except ValueError as problem:
        raise Refused(400, f"what was typed is not JSON: {problem}") from None


_SETTINGS_IN = {
    "name": _name_in,
    "sign-in": _sign_in_in,
    "power": _power_in,
    "updates": _updates_in,
    "exit-password": _exit_password_in,
    "raw": _raw_in,
}


def _fault_in(fields):
    """What the page's form asks for, as FaultList.add takes it. A field left empty is left to its default."""
    kind = fields.text("kind")
    wish = {"kind": kind, "path": fields.text("path")}
    if fields.text("count").strip():
        wish["count"] = fields.number("count")
    for field, parameter in page.FAULT_FIELDS.get(kind, {}).items():
        if fields.text(field).strip():
            wish[parameter] = fields.text(field) if field in ("location", "body") else fields.number(field)
    return wish
