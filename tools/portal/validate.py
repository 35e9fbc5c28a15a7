"""The rules for what the portal sends to a terminal, and for what a terminal reports.

Pure functions on parsed JSON. Each check_... returns nothing and raises Invalid with one sentence that names the member
and the rule, for example "power.sleepMinutes must be a whole number from 0 to 240". The policy documents follow the
same strict rules as the terminal's readers, so whatever passes here is accepted there.
"""

import re

SOURCES = ("device", "tenant", "default")
UPDATE_RESULTS = ("ok", "nothing", "failed", "deferred")

MAX_EXTRA_HOSTS = 10
MAX_MINUTES = 240
MAX_NAME_CHARACTERS = 80
MAX_PASSWORD_CHARACTERS = 256
MAX_PENDING_UPDATES = 500
MAX_PHOTOS = 16
MAX_TEXT_CHARACTERS = 1024

_CLOCK = re.compile(r"([01][0-9]|2[0-3]):[0-5][0-9]")
_HOST_LABEL = re.compile(r"[a-z0-9]([a-z0-9-]{0,61}[a-z0-9])?")
_DIGEST = re.compile(r"[0-9a-f]{64}")


class Invalid(ValueError):
    """A value that breaks a rule; the text names the member and the rule."""


def check_settings(settings):
    """Checks a dict of check-in members, any of those in SETTING_CHECKS. Raises Invalid."""
    for name, value in settings.items():
        if name not in SETTING_CHECKS:
            raise Invalid(f"{name} is not a setting; there are {', '.join(SETTING_CHECKS)}")
        SETTING_CHECKS[name](name, value)


def check_power(name, value):
    """A power policy.

    {"screenOffMinutes":15,"sleepMinutes":0,"schedule":{"enabled":false,"sleepAt":"22:00","wakeAt":"07:00","days":[]}}
    passes; with "sleepMinutes":241, or with "enabled":true and no days, it does not.
    """
    _members(name, value, ("screenOffMinutes", "sleepMinutes", "schedule"))
    for minutes in ("screenOffMinutes", "sleepMinutes"):
        _whole(f"{name}.{minutes}", value[minutes], 0, MAX_MINUTES)
    _check_schedule(f"{name}.schedule", value["schedule"])


def check_updates(name, value):
    """An updates policy.

    {"automatic":true,"window":{"start":"22:00","end":"04:00","days":[0,6]}} passes; with no days, or with start equal
    to end, it does not.
    """
    _members(name, value, ("automatic", "window"))
    _bool(f"{name}.automatic", value["automatic"])
    window = value["window"]
    _members(f"{name}.window", window, ("start", "end", "days"))
    _clock(f"{name}.window.start", window["start"])
    _clock(f"{name}.window.end", window["end"])
    if window["start"] == window["end"]:
        raise Invalid(f"{name}.window.start and {name}.window.end must differ")
    _days(f"{name}.window.days", window["days"], least=1)


def check_sign_in(name, value):
    _members(name, value, ("microsoft", "email", "extraHosts"))
    _bool(f"{name}.microsoft", value["microsoft"])
    _bool(f"{name}.email", value["email"])
    hosts = value["extraHosts"]
    if not isinstance(hosts, list) or len(hosts) > MAX_EXTRA_HOSTS:
        raise Invalid(f"{name}.extraHosts must be an array of at most {MAX_EXTRA_HOSTS} host names")
    for host in hosts:
        if not is_host_name(host):
            raise Invalid(f"{name}.extraHosts must hold lower-case host names with a dot, not {host!r:.80}")
    if len(set(hosts)) != len(hosts):
        raise Invalid(f"{name}.extraHosts names a host twice")


def is_host_name(value):
    """"login.example.com" and "10.1" are host names here; "localhost", "Example.com", "a..b" and "-a.b" are not."""
    if not isinstance(value, str) or "." not in value or len(value) > 253:
        return False
    return all(_HOST_LABEL.fullmatch(label) for label in value.split("."))


def check_name(name, value):
    _text(name, value, MAX_NAME_CHARACTERS)
    if any(ord(character) < 32 or ord(character) == 127 for character in value):
        raise Invalid(f"{name} must not hold control characters")


def check_source(name, value):
    if value not in SOURCES:
        raise Invalid(f"{name} must be one of {', '.join(SOURCES)}")


def check_exit_password(name, value):
    _text(name, value, MAX_PASSWORD_CHARACTERS)


def check_tenant(name, value):
    _text(name, value, MAX_TEXT_CHARACTERS)


def check_branding(name, value):
    """A tenant's branding, or null for none."""
    if value is None:
        return
    _members(name, value, ("displayName", "signInSubtitle", "photos"))
    _text(f"{name}.displayName", value["displayName"], MAX_TEXT_CHARACTERS)
    if not value["displayName"]:
        raise Invalid(f"{name}.displayName must not be empty")
    _text(f"{name}.signInSubtitle", value["signInSubtitle"], MAX_TEXT_CHARACTERS)
    photos = value["photos"]
    if not isinstance(photos, list) or len(photos) > MAX_PHOTOS:
        raise Invalid(f"{name}.photos must be an array of at most {MAX_PHOTOS} photos")
    for position, photo in enumerate(photos):
        _check_photo(f"{name}.photos[{position}]", photo)
    if len({photo["sha256"] for photo in photos}) != len(photos):
        raise Invalid(f"{name}.photos names a photo twice")


SETTING_CHECKS = {
    "signIn": check_sign_in,
    "name": check_name,
    "power": check_power,
    "powerSource": check_source,
    "updates": check_updates,
    "updatesSource": check_source,
    "exitPassword": check_exit_password,
    "tenantId": check_tenant,
    "branding": check_branding,
}


def check_pairing_report(report):
    """The body of a terminal's request for a pairing code. Members that nobody knows are let through."""
    _required("the body", report, ("hostname", "platform", "osVersion", "appVersion", "screenCount"))
    for member in ("hostname", "platform", "osVersion", "appVersion"):
        _text(member, report[member], MAX_TEXT_CHARACTERS)
    _whole("screenCount", report["screenCount"], 0, 1000)


def check_check_in_report(report):
    """The body of a check-in. What the terminal keeps of its last updates run is only looked at by doubts_about."""
    _required("the body", report, ("appVersion", "powerLocal", "powerError"))
    _text("appVersion", report["appVersion"], MAX_TEXT_CHARACTERS)
    if report["powerLocal"] is not None:
        check_power("powerLocal", report["powerLocal"])
    if report["powerError"] is not None:
        _text("powerError", report["powerError"], MAX_TEXT_CHARACTERS)
    if not isinstance(report.get("osUpdates", {}), dict):
        raise Invalid("osUpdates must be an object or be left out")


def check_os_updates_report(name, value):
    _members(name, value, ("lastRunAt", "lastResult", "error", "pending", "restartRequired"))
    if value["lastRunAt"] is not None:
        _text(f"{name}.lastRunAt", value["lastRunAt"], 32)
    if value["lastResult"] is not None and value["lastResult"] not in UPDATE_RESULTS:
        raise Invalid(f"{name}.lastResult must be null or one of {', '.join(UPDATE_RESULTS)}")
    if value["error"] is not None:
        _text(f"{name}.error", value["error"], 80)
    _whole(f"{name}.pending", value["pending"], 0, MAX_PENDING_UPDATES)
    _bool(f"{name}.restartRequired", value["restartRequired"])


def _check_schedule(name, value):
    _members(name, value, ("enabled", "sleepAt", "wakeAt", "days"))
    _bool(f"{name}.enabled", value["enabled"])
    _clock(f"{name}.sleepAt", value["sleepAt"])
    _clock(f"{name}.wakeAt", value["wakeAt"])
    if value["sleepAt"] == value["wakeAt"]:
        raise Invalid(f"{name}.sleepAt and {name}.wakeAt must differ")
    _days(f"{name}.days", value["days"], least=1 if value["enabled"] else 0)


def _check_photo(name, value):
    _members(name, value, ("sha256", "contentType", "width", "height", "credit"))
    if not isinstance(value["sha256"], str) or not _DIGEST.fullmatch(value["sha256"]):
        raise Invalid(f"{name}.sha256 must be 64 lower-case hexadecimal digits")
    _text(f"{name}.contentType", value["contentType"], MAX_TEXT_CHARACTERS)
    _whole(f"{name}.width", value["width"], 0, 100000)
    _whole(f"{name}.height", value["height"], 0, 100000)
    _text(f"{name}.credit", value["credit"], MAX_TEXT_CHARACTERS)


def _required(name, value, members):
    if not isinstance(value, dict):
        raise Invalid(f"{name} must be an object")
    for member in members:
        if member not in value:
            raise Invalid(f"{name} lacks {member}")


def _members(name, value, members):
    _required(name, value, members)
    for member in value:
        if member not in members:
            raise Invalid(f"{name} has a member that is not known: {member:.80}")


def _bool(name, value):
    if not isinstance(value, bool):
        raise Invalid(f"{name} must be true or false")


def _whole(name, value, least, most):
    # True and False are integers to Python and not to anybody else.
    is_number = isinstance(value, (int, float)) and not isinstance(value, bool)
    if not is_number or not least <= value <= most or value != int(value):
        raise Invalid(f"{name} must be a whole number from {least} to {most}")


def _text(name, value, most):
    if not isinstance(value, str) or len(value) > most:
        raise Invalid(f"{name} must be a text of at most {most} characters")


def _clock(name, value):
    if not isinstance(value, str) or not _CLOCK.fullmatch(value):
        raise Invalid(f"{name} must be a time of day such as 07:30")


def _days(name, value, least):
    if not isinstance(value, list) or not least <= len(value) <= 7:
        raise Invalid(f"{name} must be an array of {least} to 7 weekdays")
    for day in value:
        _whole(f"{name}[]", day, 0, 6)
    if len(set(value)) != len(value):
        raise Invalid(f"{name} names a weekday twice")
