"""The page for a person, at /: codes waiting to be claimed, the terminals with their settings, faults, last requests.

Everything on it works as plain forms (forms.py takes them). page.js keeps it fresh: it waits at /admin/wait and
then takes over the parts marked data-live from a new copy of the page, so there is one place that renders. Nothing is
loaded from elsewhere. terminal_card.py has the terminals, markup.py what both are written in; every text that came from
outside goes through its escaped().
"""

import secrets
from pathlib import Path

import records
import terminal_card
from exchange import Answer
from faults import KINDS
from markup import counted, escaped, hint, moment, table
from photos import Photo

SHOWN_REQUESTS = 15

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


def render(view, requests, faults, nonce, problem=""):
    terminals = view["terminals"]
    waiting = [code for code in view["codes"] if code["state"] in (records.WAITING, records.CLAIMED)]
    photos = {photo["sha256"]: Photo(**photo) for photo in view["photos"]}
    cards = "".join(terminal_card.render(terminal, photos) for terminal in terminals)
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
  <div id="no-terminals" data-live>{"" if terminals else hint("No terminal has been claimed yet.")}</div>
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


def _problem(problem):
    return f'<p class="problem" role="alert">Not done: {escaped(problem)}.</p>' if problem else ""


def _summary(terminals, waiting, faults):
    enrolled = sum(terminal["status"] == records.ENROLLED for terminal in terminals)
    parts = [counted(enrolled, "terminal") + " enrolled", counted(len(waiting), "code") + " waiting"]
    if faults:
        parts.append(f'<strong class="bad-text">{counted(len(faults), "fault")} on</strong>')
    return " · ".join(parts)


def _codes(waiting):
    if not waiting:
        return hint("No terminal is showing a code.")
    rows = "".join(_code(code) for code in reversed(waiting))
    headings = '<th>Code</th><th>Terminal</th><th class="wide">System</th><th>Made</th><th></th>'
    return table(headings, rows)


def _code(code):
    report = code["report"]
    if code["state"] == records.WAITING:
        action = (
            '<form method="post" action="/forms/claim">'
            f'<input type="hidden" name="code" value="{escaped(code["code"])}">'
            '<button class="primary">Claim</button></form>'
        )
    else:
        action = '<span class="badge">claimed</span>'
    return (
        f'<tr><td class="code">{escaped(code["code"])}</td><td>{escaped(report["hostname"])}</td>'
        f'<td class="wide">{escaped(report["osVersion"])}, {counted(int(report["screenCount"]), "screen")}</td>'
        f'<td>{moment(code["madeAtMs"])}</td><td class="end">{action}</td></tr>'
    )


def _faults(faults):
    if not faults:
        return hint("The portal answers as it should.")
    rows = "".join(_fault(fault) for fault in faults)
    clear = '<form method="post" action="/forms/faults/clear"><button>Clear all</button></form>'
    return table("<th>Kind</th><th>Requests</th><th>Times</th><th>How</th>", rows) + clear


def _fault(fault):
    how = {name: fault[name] for name in KINDS[fault["kind"]] if name in fault}
    times = "until cleared" if fault["count"] is None else f'{fault["count"]} more'
    which = f'{escaped(fault["method"] or "")} {escaped(fault["path"])}'
    return (
        f'<tr><td>{escaped(fault["kind"])}</td><td><code>{which}</code></td><td>{times}</td>'
        f"<td><code>{escaped(how)}</code></td></tr>"
    )


def _fault_form():
    kinds = "".join(f'<option value="{kind}">{escaped(title)}</option>' for kind, title in _FAULT_TITLES.items())
    return f"""
<form method="post" action="/forms/faults" class="row" id="fault-form">
  <label>Fault <select name="kind">{kinds}</select></label>
  <label>Requests <select name="path">
    <option value="/api/kiosk/check-in">check-in</option>
    <option value="/api/kiosk/pair">pairing</option>
    <option value="/api/kiosk/branding/photos/">photos</option>
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
        return hint("No terminal has asked for anything yet.")
    rows = "".join(_request(entry) for entry in reversed(requests[-SHOWN_REQUESTS:]))
    return table("<th>When</th><th>Request</th><th>Status</th><th>Noticed</th>", rows)


def _request(entry):
    status = entry["status"] if entry["status"] is not None else "none"
    good = isinstance(status, int) and status < 400
    fault = f' <span class="badge">{escaped(entry["fault"])}</span>' if entry["fault"] else ""
    return (
        f'<tr><td>{moment(entry["atMs"])}</td><td><code>{escaped(entry["method"])} {escaped(entry["path"])}</code></td>'
        f'<td><span class="{"good-text" if good else "bad-text"}">{status}</span>{fault}</td>'
        f'<td>{escaped("; ".join(entry["doubts"]))}</td></tr>'
    )
