"""The page for a person, at /: codes waiting to be claimed, the terminals with their settings, faults, last requests.

Everything on it works as plain forms (forms.py takes them). page.js keeps it fresh: it waits at /admin/wait and
then takes over the parts marked data-live from a new copy of the page, so there is one place that renders. Nothing is
loaded from elsewhere. Every text that came from outside goes through html.escape; settings may hold any JSON, since
tests send invalid policies on purpose.
"""

import html
import json
import secrets
import time
from pathlib import Path

import model
import validate
from exchange import Answer
from faults import KINDS

SHOWN_REQUESTS = 15
SHOWN_TEXT_CHARACTERS = 2000
DAY_NAMES = ("Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat")

# Which fields of the fault form belong to which kind, and the parameter that each one fills.
FAULT_FIELDS = {
    "slow": {"ms": "delayMs"},
    "silent": {"ms": "forMs"},
    "drip": {"ms": "everyMs"},
    "status": {"status": "status", "location": "location"},
    "garbage": {"bytes": "bytes"},
    "tooLong": {"bytes": "bytes"},
    "answer": {"status": "status", "body": "body"},
}
_FAULT_TITLES = {
    "slow": "slow: answers late",
    "silent": "silent: never answers",
    "cutOff": "cut off: half a body, then closes",
    "reset": "reset: drops the connection",
    "status": "status: another status, such as 500",
    "garbage": "garbage: random bytes",
    "tooLong": "too long: the answer padded to a size",
    "drip": "drip: a byte at a time",
    "answer": "answer: a body of your own",
}
_REVOKE_QUESTION = "The terminal leaves kiosk mode at its next check-in. Go on?"
_FORGET_QUESTION = "The portal will not know this terminal any more. Go on?"
_HERE = Path(__file__).resolve().parent


def answer(portal, faults, request, refused=None):
    """The page as an Answer; `refused` is what to say on top, with the status that goes with it."""
    # Only the page's own script runs, whatever a terminal calls itself.
    nonce = secrets.token_urlsafe(16)
    policy = (
        f"default-src 'none'; style-src 'nonce-{nonce}'; script-src 'nonce-{nonce}'; connect-src 'self'; "
        "img-src data:; form-action 'self'; base-uri 'none'; frame-ancestors 'none'"
    )
    text = render(portal.view(), portal.requests_after(0), faults.view(), nonce, refused.sentence if refused else "")
    headers = {"Content-Type": "text/html; charset=utf-8", "Content-Security-Policy": policy}
    return Answer(refused.status if refused else 200, text.encode("utf-8", "replace"), headers)


def anchor_of(terminal_id):
    return f"t-{terminal_id}"


def render(view, requests, faults, nonce, problem=""):
    terminals = view["terminals"]
    waiting = [code for code in view["codes"] if code["state"] in (model.WAITING, model.CLAIMED)]
    cards = "".join(_terminal(terminal) for terminal in terminals)
    return f"""<!doctype html>
<html lang="en">
<head>
<meta charset="utf-8">
<meta name="viewport" content="width=device-width, initial-scale=1">
<title>Portal stand-in</title>
<link rel="icon" href="data:,">
<style nonce="{nonce}">{_asset("page.css")}</style>
</head>
<body data-revision="{view["revision"]}">
<header>
  <h1>Portal stand-in</h1>
  <p id="summary" data-live>{_summary(terminals, waiting, faults)}</p>
  <span id="link" class="badge good" hidden>live</span>
</header>
<main>
{_problem(problem)}
<section aria-labelledby="codes-title">
  <h2 id="codes-title">Pairing codes</h2>
  <form method="post" action="/forms/claim" class="row">
    <label>Code on the terminal's screen
      <input name="code" class="code-field" autocomplete="off" spellcheck="false" maxlength="20"
        placeholder="ABCDEFGH" required>
    </label>
    <button class="primary">Claim</button>
  </form>
  <div id="codes" data-live>{_codes(waiting)}</div>
</section>
<section aria-labelledby="terminals-title">
  <h2 id="terminals-title">Terminals</h2>
  <div id="no-terminals" data-live>{"" if terminals else _hint("No terminal has been claimed yet.")}</div>
  <div id="terminals">{cards}</div>
</section>
<section aria-labelledby="faults-title" id="faults">
  <h2 id="faults-title">Faults</h2>
  <div id="fault-list" data-live>{_faults(faults)}</div>
  {_fault_form()}
</section>
<section aria-labelledby="requests-title">
  <h2 id="requests-title">Last requests of the terminals</h2>
  <div id="requests" data-live>{_requests(requests)}</div>
</section>
</main>
<script nonce="{nonce}">{_asset("page.js")}</script>
</body>
</html>
"""


def _asset(name):
    return (_HERE / name).read_text(encoding="utf-8")


def _text(value):
    """Any value as text for the page, escaped and of bounded length."""
    text = value if isinstance(value, str) else json.dumps(value, ensure_ascii=False)
    if len(text) > SHOWN_TEXT_CHARACTERS:
        text = text[:SHOWN_TEXT_CHARACTERS] + "…"
    return html.escape(text, quote=True)


def _hint(text):
    return f'<p class="hint">{text}</p>'


def _problem(problem):
    return f'<p class="problem" role="alert">Not done: {_text(problem)}.</p>' if problem else ""


def _moment(at_ms):
    clock = time.strftime("%H:%M:%S", time.localtime(at_ms / 1000))
    return f'<time data-at="{int(at_ms)}">at {clock}</time>'


def _summary(terminals, waiting, faults):
    enrolled = sum(not terminal["revoked"] for terminal in terminals)
    parts = [_counted(enrolled, "terminal") + " enrolled", _counted(len(waiting), "code") + " waiting"]
    if faults:
        parts.append(f'<strong class="bad-text">{_counted(len(faults), "fault")} on</strong>')
    return " · ".join(parts)


def _counted(number, noun):
    return f"{number} {noun}" if number == 1 else f"{number} {noun}s"


def _table(headings, rows):
    return f"<table><thead><tr>{headings}</tr></thead><tbody>{rows}</tbody></table>"


def _codes(waiting):
    if not waiting:
        return _hint("No terminal is showing a code.")
    rows = "".join(_code(code) for code in reversed(waiting))
    headings = '<th>Code</th><th>Terminal</th><th class="wide">System</th><th>Made</th><th></th>'
    return _table(headings, rows)


def _code(code):
    report = code["report"]
    if code["state"] == model.WAITING:
        action = (
            f'<form method="post" action="/forms/claim"><input type="hidden" name="code" value="{_text(code["code"])}">'
            '<button class="primary">Claim</button></form>'
        )
    else:
        action = '<span class="badge">claimed</span>'
    return (
        f'<tr><td class="code">{_text(code["code"])}</td><td>{_text(report["hostname"])}</td>'
        f'<td class="wide">{_text(report["osVersion"])}, {_counted(int(report["screenCount"]), "screen")}</td>'
        f'<td>{_moment(code["madeAtMs"])}</td><td class="end">{action}</td></tr>'
    )


def _terminal(terminal):
    anchor = anchor_of(terminal["id"])
    settings = terminal["settings"]
    kind, word = ("bad", model.REVOKED) if terminal["revoked"] else ("good", model.ENROLLED)
    groups = (
        ("Name and tenant", "name", _name_fields(settings)),
        ("Sign-in methods", "sign-in", _sign_in_fields(settings)),
        ("Power", "power", _power_fields(settings)),
        ("OS updates", "updates", _updates_fields(settings)),
        ("Exit password", "exit-password", _exit_password_fields(terminal)),
    )
    forms = "".join(_settings_form(terminal["id"], anchor, *group) for group in groups)
    return f"""
<article class="card" id="{anchor}" data-live>
  <div class="card-head">
    <h3>{_text(settings.get("name") or "(no name)")}</h3><span class="badge {kind}">{word}</span>
    <span class="id">{_text(terminal["id"])}</span>
  </div>
  <div class="facts" id="{anchor}-facts" data-live>{_facts(terminal)}</div>
  <div class="groups">{forms}</div>
  <div class="row end-row">
    {"" if terminal["revoked"] else _action(terminal["id"], "revoke", "Revoke", _REVOKE_QUESTION)}
    {_action(terminal["id"], "forget", "Forget", _FORGET_QUESTION)}
  </div>
</article>"""


def _facts(terminal):
    report = terminal["lastReport"]
    paired = terminal["report"]
    seen = "never"
    if terminal["checkIns"]:
        seen = f'{_moment(terminal["lastCheckInAtMs"])}, {_counted(terminal["checkIns"], "check-in")}'
    rows = [
        ("Last seen", seen),
        ("Host", f'{_text(paired["hostname"])}, {_text(paired["osVersion"])}'),
        ("Build", _text(report.get("appVersion", paired["appVersion"]))),
    ]
    if terminal["checkIns"]:
        rows.append(("Local power", _power_words(report.get("powerLocal"))))
        rows.append(("Power error", _error_words(report.get("powerError"))))
        rows.append(("OS updates", _os_updates_words(report.get("osUpdates"))))
    return "<dl>" + "".join(f"<div><dt>{name}</dt><dd>{value}</dd></div>" for name, value in rows) + "</dl>"


def _error_words(error):
    return f'<span class="bad-text">{_text(error)}</span>' if error else "none"


def _power_words(policy):
    if policy is None:
        return "none, follows the portal"
    if not _passes(validate.check_power, policy):
        return f"<code>{_text(policy)}</code>"
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
        return f"<code>{_text(report)}</code>"
    words = [f'{int(report["pending"])} pending']
    if report["lastResult"] is not None:
        words.insert(0, f'{_text(report["lastResult"])} at {_text(report["lastRunAt"] or "an unknown time")}')
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


def _settings_form(terminal_id, anchor, title, action, fields):
    return f"""
<details id="{anchor}-{action}"><summary>{title}</summary>
<form method="post" action="/forms/terminals/{_text(terminal_id)}/{action}">{fields}
<button class="primary">Save</button></form>
</details>"""


def _action(terminal_id, action, title, question):
    return (
        f'<form method="post" action="/forms/terminals/{_text(terminal_id)}/{action}" data-confirm="{question}">'
        f'<button class="danger">{title}</button></form>'
    )


def _valid_or_default(settings, name):
    """What a form starts from, and a note when the terminal is sent something that a form cannot show."""
    default = model.default_settings("")[name]
    if name not in settings:
        return default, _hint("Left out of the replies now; saving puts it back.")
    if not _passes(validate.SETTING_CHECKS[name], settings[name]):
        return default, f'<p class="note">The terminal is sent <code>{_text(settings[name])}</code> now.</p>'
    return settings[name], ""


def _name_fields(settings):
    name, name_note = _valid_or_default(settings, "name")
    tenant, tenant_note = _valid_or_default(settings, "tenantId")
    return (
        f'{name_note}<label>Name '
        f'<input name="name" maxlength="{validate.MAX_NAME_CHARACTERS}" value="{_text(name)}"></label>'
        f'{tenant_note}<label>Tenant <input name="tenantId" value="{_text(tenant)}"></label>'
    )


def _sign_in_fields(settings):
    sign_in, note = _valid_or_default(settings, "signIn")
    hosts = _text("\n".join(sign_in["extraHosts"]))
    return (
        f'{note}{_tick("microsoft", "Microsoft", sign_in["microsoft"])}{_tick("email", "E-mail", sign_in["email"])}'
        "<label>Further hosts, one per line "
        f'<textarea name="extraHosts" rows="3" spellcheck="false">{hosts}</textarea></label>'
    )


def _power_fields(settings):
    power, note = _valid_or_default(settings, "power")
    schedule = power["schedule"]
    return (
        f'{note}<div class="row">{_minutes_field("screenOffMinutes", "Screen off, minutes", power)}'
        f'{_minutes_field("sleepMinutes", "Sleep, minutes", power)}</div>'
        f'{_tick("enabled", "Sleeps by schedule", schedule["enabled"])}'
        f'<div class="row">{_clock_field("sleepAt", "from", schedule["sleepAt"])}'
        f'{_clock_field("wakeAt", "to", schedule["wakeAt"])}</div>'
        f'{_days_field(schedule["days"])}{_source_field(settings, "powerSource")}'
    )


def _updates_fields(settings):
    updates, note = _valid_or_default(settings, "updates")
    window = updates["window"]
    return (
        f'{note}{_tick("automatic", "Automatic", updates["automatic"])}'
        f'<div class="row">{_clock_field("start", "Window from", window["start"])}'
        f'{_clock_field("end", "to", window["end"])}</div>'
        f'{_days_field(window["days"])}{_source_field(settings, "updatesSource")}'
    )


def _exit_password_fields(terminal):
    state = "A password is set." if terminal["exitPasswordSet"] else "No password is set."
    return (
        f'{_hint(state + " An empty one takes it away.")}<label>New password '
        '<input name="exitPassword" type="password" autocomplete="new-password"></label>'
    )


def _tick(name, title, ticked):
    return f'<label class="tick"><input type="checkbox" name="{name}"{" checked" if ticked else ""}> {title}</label>'


def _minutes_field(name, title, policy):
    return (
        f'<label>{title} <input type="number" name="{name}" min="0" max="{validate.MAX_MINUTES}" '
        f'value="{int(policy[name])}" required></label>'
    )


def _clock_field(name, title, value):
    return f'<label>{title} <input type="time" name="{name}" value="{value}" required></label>'


def _days_field(days):
    ticks = "".join(
        '<label class="tick">'
        f'<input type="checkbox" name="days" value="{day}"{" checked" if day in days else ""}> {name}</label>'
        for day, name in enumerate(DAY_NAMES)
    )
    return f'<div class="days">{ticks}</div>'


def _source_field(settings, name):
    source, note = _valid_or_default(settings, name)
    options = "".join(f'<option{" selected" if word == source else ""}>{word}</option>' for word in validate.SOURCES)
    return f'{note}<label>Comes from <select name="source">{options}</select></label>'


def _faults(faults):
    if not faults:
        return _hint("The portal answers as it should.")
    rows = "".join(_fault(fault) for fault in faults)
    clear = '<form method="post" action="/forms/faults/clear"><button>Clear all</button></form>'
    return _table("<th>Kind</th><th>Requests</th><th>Times</th><th>How</th>", rows) + clear


def _fault(fault):
    how = {name: fault[name] for name in KINDS[fault["kind"]] if name in fault}
    times = "until cleared" if fault["count"] is None else f'{fault["count"]} more'
    which = f'{_text(fault["method"] or "")} {_text(fault["path"])}'
    return (
        f'<tr><td>{_text(fault["kind"])}</td><td><code>{which}</code></td><td>{times}</td>'
        f"<td><code>{_text(how)}</code></td></tr>"
    )


def _fault_form():
    kinds = "".join(f'<option value="{kind}">{_text(title)}</option>' for kind, title in _FAULT_TITLES.items())
    return f"""
<form method="post" action="/forms/faults" class="row" id="fault-form">
  <label>Fault <select name="kind">{kinds}</select></label>
  <label>Requests <select name="path">
    <option value="/api/kiosk/check-in">check-in</option>
    <option value="/api/kiosk/pair">pairing</option>
    <option value="/api/">all</option>
  </select></label>
  <label>Times <input type="number" name="count" min="1" placeholder="until cleared"></label>
  {_fault_field("ms", "Milliseconds", 'type="number" min="0" placeholder="default"')}
  {_fault_field("status", "Status", 'type="number" min="200" max="999" placeholder="default"')}
  {_fault_field("location", "Location", 'placeholder="none"')}
  {_fault_field("bytes", "Bytes", 'type="number" min="0" placeholder="default"')}
  {_fault_field("body", "Body", 'placeholder="empty"')}
  <button>Switch on</button>
</form>"""


def _fault_field(name, title, attributes):
    kinds = " ".join(kind for kind, fields in FAULT_FIELDS.items() if name in fields)
    return f'<label data-kinds="{kinds}">{title} <input name="{name}" {attributes}></label>'


def _requests(requests):
    if not requests:
        return _hint("No terminal has asked for anything yet.")
    rows = "".join(_request(entry) for entry in reversed(requests[-SHOWN_REQUESTS:]))
    return _table("<th>When</th><th>Request</th><th>Status</th><th>Noticed</th>", rows)


def _request(entry):
    status = entry["status"] if entry["status"] is not None else "none"
    good = isinstance(status, int) and status < 400
    fault = f' <span class="badge">{_text(entry["fault"])}</span>' if entry["fault"] else ""
    return (
        f'<tr><td>{_moment(entry["atMs"])}</td><td><code>{_text(entry["method"])} {_text(entry["path"])}</code></td>'
        f'<td><span class="{"good-text" if good else "bad-text"}">{status}</span>{fault}</td>'
        f'<td>{_text("; ".join(entry["doubts"]))}</td></tr>'
    )
