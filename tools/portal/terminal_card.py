"""One terminal on the page for a person: what it reported, its settings as forms, and what can be done with it.

Settings may hold any JSON, since tests send invalid ones on purpose: a form that cannot show what the terminal is sent
starts from the default and says so.
"""

import base64

import branding
import records
import validate
from markup import DAY_NAMES, clock_field, counted, days_field, escaped, hint, minutes_field, moment, tick
from photos import CONTENT_TYPE, MAX_SIZE, thumbnail_of

# What can be done with a terminal: the button, and the question that goes before it.
_ACTIONS = {
    "bring-back": ("Bring back", ""),
    "revoke": ("Revoke", "The terminal leaves kiosk mode at its next check-in. Go on?"),
    "forget": ("Forget", "The terminal leaves kiosk mode once it has been unknown for a day. Go on?"),
}


def anchor_of(terminal_id):
    return f"t-{terminal_id}"


def render(terminal, photos):
    """The card; `photos` are the portal's own by digest, which are shown as they look."""
    anchor = anchor_of(terminal["id"])
    settings = terminal["settings"]
    kind = "good" if terminal["status"] == records.ENROLLED else "bad"
    groups = (
        ("Name and tenant", "name", _name_fields(settings)),
        ("Sign-in methods", "sign-in", _sign_in_fields(settings)),
        ("Power", "power", _power_fields(settings)),
        ("OS updates", "updates", _updates_fields(settings)),
        ("Branding", "branding", _branding_fields(settings, photos), "No branding"),
        ("Exit password", "exit-password", _exit_password_fields(terminal), "Clear"),
        ("Anything, for tests", "raw", _raw_fields(), "Leave out"),
    )
    forms = "".join(_settings_form(terminal["id"], anchor, *group) for group in groups)
    return f"""
<article class="card" id="{anchor}" data-live>
  <div class="card-head">
    <h3>{escaped(settings.get("name") or "(no name)")}</h3><span class="badge {kind}">{terminal["status"]}</span>
    <span class="id">{escaped(terminal["id"])}</span>
  </div>
  <div class="facts" id="{anchor}-facts" data-live>{_facts(terminal)}</div>
  <div class="groups">{forms}</div>
  <div class="row end-row">
    {_actions(terminal)}
  </div>
</article>"""


def _facts(terminal):
    report = terminal["lastReport"]
    paired = terminal["report"]
    seen = "never"
    if terminal["checkIns"]:
        seen = f'{moment(terminal["lastCheckInAtMs"])}, {counted(terminal["checkIns"], "check-in")}'
    rows = [
        ("Last seen", seen),
        ("Host", f'{escaped(paired["hostname"])}, {escaped(paired["osVersion"])}'),
        ("Build", escaped(report.get("appVersion", paired["appVersion"]))),
    ]
    if terminal["checkIns"]:
        rows.append(("Local power", _power_words(report.get("powerLocal"))))
        rows.append(("Power error", _error_words(report.get("powerError"))))
        rows.append(("OS updates", _os_updates_words(report.get("osUpdates"))))
    return "<dl>" + "".join(f"<div><dt>{name}</dt><dd>{value}</dd></div>" for name, value in rows) + "</dl>"


def _error_words(error):
    return f'<span class="bad-text">{escaped(error)}</span>' if error else "none"


def _power_words(policy):
    if policy is None:
        return "none, follows the portal"
    if not _passes(validate.check_power, policy):
        return f"<code>{escaped(policy)}</code>"
    schedule = policy["schedule"]
    words = f'screen off {_minutes(policy["screenOffMinutes"])}, sleep {_minutes(policy["sleepMinutes"])}'
    if schedule["enabled"]:
        words += f', asleep {schedule["sleepAt"]} to {schedule["wakeAt"]} on {_days_words(schedule["days"])}'
    return words


def _minutes(minutes):
    return f"after {int(minutes)} min" if minutes else "never"


def _days_words(days):
    return "every day" if len(days) == 7 else ", ".join(DAY_NAMES[int(day)] for day in sorted(days))


def _os_updates_words(report):
    if report is None:
        return "nothing reported"
    if not _passes(validate.check_os_updates_report, report):
        return f"<code>{escaped(report)}</code>"
    words = [f'{int(report["pending"])} pending']
    if report["lastResult"] is not None:
        words.insert(0, f'{escaped(report["lastResult"])} at {escaped(report["lastRunAt"] or "an unknown time")}')
    if report["restartRequired"]:
        words.append("restart required")
    if report["error"]:
        words.append(_error_words(report["error"]))
    return ", ".join(words)


def _passes(check, value):
    try:
        check("value", value)
        return True
    except validate.Invalid:
        return False


def _settings_form(terminal_id, anchor, title, action, fields, clear=""):
    """One group of settings; `clear` is the title of a second button, for no value at all."""
    second = f'<button name="clear" value="yes" formnovalidate>{clear}</button>' if clear else ""
    return f"""
<details id="{anchor}-{action}"><summary>{title}</summary>
<form method="post" action="/forms/terminals/{escaped(terminal_id)}/{action}">{fields}
<div class="row"><button class="primary">Save</button>{second}</div></form>
</details>"""


def _actions(terminal):
    return "".join(
        f'<form method="post" action="/forms/terminals/{escaped(terminal["id"])}/{action}" data-confirm="{question}">'
        f'<button class="{"danger" if question else "plain"}">{title}</button></form>'
        for action, (title, question) in _ACTIONS.items()
        if records.STATUS_AFTER[action] != terminal["status"]
    )


def _valid_or_default(settings, name):
    """What a form starts from, and a note when the terminal is sent something that a form cannot show."""
    default = {**records.default_settings(""), "branding": branding.EMPTY}[name]
    if name not in settings:
        return default, hint("Left out of the replies now; saving puts it back.")
    if not _passes(validate.SETTING_CHECKS[name], settings[name]):
        return default, f'<p class="note">The terminal is sent <code>{escaped(settings[name])}</code> now.</p>'
    return settings[name], ""


def _name_fields(settings):
    name, name_note = _valid_or_default(settings, "name")
    tenant, tenant_note = _valid_or_default(settings, "tenantId")
    return (
        f'{name_note}<label>Name '
        f'<input name="name" maxlength="{validate.MAX_NAME_CHARACTERS}" value="{escaped(name)}"></label>'
        f'{tenant_note}<label>Tenant <input name="tenantId" value="{escaped(tenant)}"></label>'
    )


def _sign_in_fields(settings):
    sign_in, note = _valid_or_default(settings, "signIn")
    hosts = escaped("\n".join(sign_in["extraHosts"]))
    return (
        f'{note}{tick("microsoft", "Microsoft", sign_in["microsoft"])}{tick("email", "E-mail", sign_in["email"])}'
        "<label>Further hosts, one per line "
        f'<textarea name="extraHosts" rows="3" spellcheck="false">{hosts}</textarea></label>'
    )


def _power_fields(settings):
    power, note = _valid_or_default(settings, "power")
    schedule = power["schedule"]
    return (
        f'{note}<div class="row">{minutes_field("screenOffMinutes", "Screen off, minutes", power)}'
        f'{minutes_field("sleepMinutes", "Sleep, minutes", power)}</div>'
        f'{tick("enabled", "Sleeps by schedule", schedule["enabled"])}'
        f'<div class="row">{clock_field("sleepAt", "from", schedule["sleepAt"])}'
        f'{clock_field("wakeAt", "to", schedule["wakeAt"])}</div>'
        f'{days_field(schedule["days"])}{_source_field(settings, "powerSource")}'
    )


def _updates_fields(settings):
    updates, note = _valid_or_default(settings, "updates")
    window = updates["window"]
    return (
        f'{note}{tick("automatic", "Automatic", updates["automatic"])}'
        f'<div class="row">{clock_field("start", "Window from", window["start"])}'
        f'{clock_field("end", "to", window["end"])}</div>'
        f'{days_field(window["days"])}{_source_field(settings, "updatesSource")}'
    )


def _branding_fields(settings, photos):
    if settings.get("branding") is None:
        sent, note = branding.EMPTY, hint("The tenant has no branding now.")
    else:
        sent, note = _valid_or_default(settings, "branding")
    shown = "".join(_photo_field(entry, photos.get(entry["sha256"])) for entry in sent["photos"])
    return (
        f'{note}<label>Display name '
        f'<input name="displayName" value="{escaped(sent["displayName"])}" required></label>'
        f'<label>Sign-in subtitle <input name="signInSubtitle" value="{escaped(sent["signInSubtitle"])}"></label>'
        f'<div class="photos">{shown}</div>'
        '<div class="row"><label>Add photos '
        f'<input type="number" name="addCount" min="0" max="{validate.MAX_PHOTOS}" placeholder="none"></label>'
        '<label>of bytes each '
        f'<input type="number" name="addSize" min="0" max="{MAX_SIZE}" placeholder="small"></label></div>'
    )


def _photo_field(entry, photo):
    """A tick that keeps the photo, with its look when it is one of the portal's own."""
    look = escaped(entry["sha256"][:8])
    if photo is not None:
        data = base64.b64encode(thumbnail_of(photo)).decode("ascii")
        title = f"Photo {photo.number}" + (f", {photo.size:,} bytes" if photo.size else "")
        look = f'<img src="data:{CONTENT_TYPE};base64,{data}" alt="{title}" title="{title}">'
    tick_box = f'<input type="checkbox" name="photos" value="{escaped(entry["sha256"])}" checked>'
    return f'<label class="tick">{tick_box}{look}</label>'


def _exit_password_fields(terminal):
    return (
        f'{hint("A password is set." if terminal["exitPasswordSet"] else "No password is set.")}<label>New password '
        '<input name="exitPassword" type="password" autocomplete="new-password" required></label>'
    )


def _raw_fields():
    members = "".join(f"<option>{name}</option>" for name in validate.SETTING_CHECKS)
    return (
        f'{hint("Sent as it is, right or wrong, until it is saved above.")}'
        f'<label>Member <select name="member">{members}</select></label>'
        '<label>JSON <textarea name="json" rows="3" spellcheck="false" required '
        'placeholder="{&quot;sleepMinutes&quot;:241}"></textarea></label>'
    )


def _source_field(settings, name):
    source, note = _valid_or_default(settings, name)
    options = "".join(f'<option{" selected" if word == source else ""}>{word}</option>' for word in validate.SOURCES)
    return f'{note}<label>Comes from <select name="source">{options}</select></label>'
