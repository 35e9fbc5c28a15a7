"""docs/control-protocol.md names every code that a reply may have in its `error`, and none that there is not: by subject,
which is some commands of the page and the sources that make their replies."""

import re

import pytest

from programs import TOOLS_DIR

ROOT = TOOLS_DIR.parent
SRC = ROOT / "src"
FOLDERS = ("control", "device", "kiosk", "portal")
SUBJECTS = {
    "every request": (["One line there, one line back", "restart.now", "The settings"],
                      ["control/connection.cc", "control/dispatch.cc", "control/settings_gate.cc"]),
    "pairing": (["pair.begin", "pair.check"], ["kiosk/provisioning.cc", "portal/pairing.cc"]),
    "presence": (["session.report"], ["kiosk/presence.cc"]),
    "exit password": (["unlock", "maintenance"],
                      ["kiosk/exit_password.cc", "kiosk/maintenance.cc", "kiosk/unlock.cc"]),
    "network": (["net.set"], ["device/network.cc", "device/network_linux.cc"]),
    "clock": (["time.sync"], ["device/time_sync.cc"]),
    "power": (["power.get", "power.set"], ["device/power.cc", "device/power_linux.cc"]),
    "proxy": (["proxy.set"], ["device/proxy.cc"]),
    "updates": (["os.updates", "os.install"], ["device/updates.cc", "device/updates_linux.cc"]),
}
# The values that look like codes and that no reply has in its `error`.
OTHER_VALUES = {
    "device/idle_watcher_linux.cc": {"swayidle"},
    "device/network.cc": {"adapter", "dns", "gateway", "ip", "mode", "prefix"},
    "device/proxy.cc": {"bypass", "mode", "server"},
    "device/updates_report.cc": {"failed", "nothing", "ok"},
}

COMMENT = re.compile(r"//.*")
CODE = "[a-z]+(?:_[a-z]+)*"
# A code with what may follow it in the text, such as an exit status.
CODE_TEXT = f'"({CODE}) ?"'
# Said on the spot, in a call that makes a reply or stores what `status` answers with.
CALL = re.compile(r'\b(?:ReplyError|ReplyNotPaired|ReplyCodeOverLocked|Fail|Set\(\s*"error",)([^;]*);')
# A result, or the value of a constant or of an `error`: what another function may put into a reply.
RESULT = re.compile(r"\breturn\b[^;{]*;")
IN_A_RESULT = re.compile(rf"(?:\breturn|[?:])\s+{CODE_TEXT}")
CONSTANT = re.compile(rf"(?:\bk\w+\[\]|\berror) =\s+{CODE_TEXT}")

SECTION = re.compile(r"^##+ `?([^`\n]+)`?\n(.*?)(?=^##|\Z)", re.MULTILINE | re.DOTALL)
# The rows of a table of codes; a cell that names some in another table; the row that tells what `error` is.
CODE_TABLE = re.compile(r"^\| `error`[^|]*\|[^\n]*\n\|[-|]+\n((?:\|[^\n]*\n)+)", re.MULTILINE)
CODE_ROW = re.compile(r"^\| ([^|]*)\|", re.MULTILINE)
ERROR_CELL = re.compile(r"^\| (error `[^|]*)\|", re.MULTILINE)
ERROR_MEMBER = re.compile(r"^\| `error` \| ([^|]+)\|", re.MULTILINE)
IN_A_CELL = re.compile(rf"`({CODE})(?: N)?`")
IN_A_REPLY = re.compile(rf'"error":"({CODE})"')


def values_of(name):
    text = COMMENT.sub("", (SRC / name).read_text())
    return {*CONSTANT.findall(text), *(value for result in RESULT.findall(text) for value in IN_A_RESULT.findall(result))}


def codes_of(name):
    """All codes that a source makes."""
    text = COMMENT.sub("", (SRC / name).read_text())
    said = {code for call in CALL.findall(text) for code in re.findall(CODE_TEXT, call)}
    return said | (values_of(name) - OTHER_VALUES.get(name, set()))


def codes_in(section):
    """All codes that a section of the page names."""
    cells = [row for table in CODE_TABLE.findall(section) for row in CODE_ROW.findall(table)]
    cells = [cell for cell in cells if not cell.startswith("those of")]
    cells += ERROR_CELL.findall(section) + ERROR_MEMBER.findall(section)
    return {*IN_A_REPLY.findall(section), *(code for cell in cells for code in IN_A_CELL.findall(cell))}


def sections():
    return dict(SECTION.findall((ROOT / "docs/control-protocol.md").read_text()))


@pytest.mark.parametrize("subject", SUBJECTS)
def test_the_page_has_the_codes_of_the_sources_and_no_others(subject):
    headings, names = SUBJECTS[subject]

    on_the_page = set().union(*(codes_in(sections()[heading]) for heading in headings))
    in_the_sources = set().union(*(codes_of(name) for name in names))

    assert (in_the_sources - on_the_page, on_the_page - in_the_sources) == (set(), set())
    assert in_the_sources != set()


def test_no_other_source_and_no_other_section_has_codes():
    of_subjects = [name for headings, names in SUBJECTS.values() for name in (*headings, *names)]
    sources = [f"{folder}/{path.name}" for folder in FOLDERS for path in sorted((SRC / folder).glob("*.cc"))]

    assert {name: codes_of(name) for name in sources if name not in of_subjects and codes_of(name)} == {}
    assert {name for name, text in sections().items() if name not in of_subjects and codes_in(text)} == set()


def test_the_values_that_are_no_codes_are_there():
    """So that none of them hides a code of a later day."""
    assert {name: values - values_of(name) for name, values in OTHER_VALUES.items() if values - values_of(name)} == {}
