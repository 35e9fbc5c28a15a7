"""docs/operations.md names every warning and error of the service and every key of its state, and none that there is not.
Its recipes for the state file do what they say."""

import json
import re

from programs import TOOLS_DIR, run

ROOT = TOOLS_DIR.parent
LOG_CALL = re.compile(r"\bLog\(")
# What a call says: the texts that follow its parenthesis, which the compiler joins.
LOG_TEXT = re.compile(r'\bLog\(\s*((?:"(?:\\.|[^"\\])*"\s*)+)')
PRIORITY = re.compile(r"<([346])>(.*?)\\n")
# Several in a row are one value to the reader.
CONVERSIONS = re.compile(r"(?:%(?:s|d|zu|lld))+")
ROW = re.compile(r"^\| ([34]) \| `(.+?)` \|", re.MULTILINE)
STATE_KEY = re.compile(r'char k\w+\[\] =\s*"(\w+)"')
STATE_ROW = re.compile(r"^\| ((?:`[A-Z]\w+`(?:, )?)+) \|", re.MULTILINE)
PLACEHOLDER = re.compile(r"<[a-z]+(?: [a-z]+)*>")
# The program of sed, the key, and the value that it is given.
RECIPE = re.compile(r"""^    sed -i '(s/"(\w+)":[^/]*/"\w+":([^/]*)/)' /var/lib/tarnvale-kiosk/state\.json$""", re.MULTILINE)
# What the service may have stored.
RECIPE_VALUES = {
    "MaintenanceLockedUntil": (0, 1790000000000, None),
    "DeviceId": ("5e884898da28047151d0e56f8dc6292773603d0d6aabbdd62a11ef721d1542d8", "", None),
}


def sources():
    return [path.read_text() for path in sorted((ROOT / "src").rglob("*.cc")) if path.name != "log.cc"]


def texts_of(source):
    """The texts of the log calls in a source, each joined as the compiler does it."""
    return ["".join(re.findall(r'"((?:\\.|[^"\\])*)"', found)) for found in LOG_TEXT.findall(source)]


def lines_of_the_service():
    """Priority and text of all that may be logged, with <> for each value."""
    parts = [PRIORITY.fullmatch(text).groups() for source in sources() for text in texts_of(source)]
    return {(priority, CONVERSIONS.sub("<>", text).replace('\\"', '"')) for priority, text in parts}


def lines_of_the_page():
    page = (ROOT / "docs/operations.md").read_text()
    return {(priority, PLACEHOLDER.sub("<>", text)) for priority, text in ROW.findall(page)}


def test_every_log_call_says_its_text_on_the_spot():
    """So that the other tests here see all of them."""
    assert [source for source in sources() if len(LOG_CALL.findall(source)) != len(texts_of(source))] == []


def test_every_warning_and_error_is_explained_to_those_who_run_terminals():
    asking = {line for line in lines_of_the_service() if line[0] in "34"}

    assert asking - lines_of_the_page() == set()


def test_no_line_is_explained_that_the_service_does_not_write():
    assert lines_of_the_page() - lines_of_the_service() == set()


def test_the_keys_of_the_state_are_those_that_the_page_explains():
    page = (ROOT / "docs/operations.md").read_text()
    explained = {key for row in STATE_ROW.findall(page) for key in re.findall(r"\w+", row)}

    assert explained == set(STATE_KEY.findall((ROOT / "src/core/state.h").read_text()))


def run_recipe(program, state, directory):
    """What the recipe makes of a state file, as text. The file is written as the service writes it."""
    file = directory / "state.json"
    file.write_text(json.dumps(state, separators=(",", ":")))
    assert run("sed", "-i", program, file).returncode == 0
    return file.read_text()


def test_the_recipes_for_the_state_change_the_key_that_they_name_and_nothing_else(place):
    page = (ROOT / "docs/operations.md").read_text()
    others = {"DeviceToken": "a-token", "MaintenanceFailures": 5, "PowerPolicy": '{"sleepMinutes":0}', "AccountUid": None}

    recipes = {key: (program, json.loads(value)) for program, key, value in RECIPE.findall(page)}

    assert set(recipes) == set(RECIPE_VALUES)
    for key, (program, new) in recipes.items():
        for old in RECIPE_VALUES[key]:
            for before in ({key: old, **others}, {**others, key: old}):
                after = run_recipe(program, before, place)
                assert json.loads(after) == {**before, key: old if old is None else new}, (program, before, after)
        assert json.loads(run_recipe(program, others, place)) == others
