"""One booted terminal for all chapters, in their order: what one leaves is where the next begins."""

import os
import pathlib
import sys

import pytest

sys.path.append(str(pathlib.Path(__file__).parents[2] / "tools/terminal"))

from channel import Silent
from terminal import Terminal


def pytest_collection_modifyitems(items):
    items.sort(key=lambda item: item.path.name)


@pytest.fixture(scope="session")
def terminal():
    booted = Terminal(os.environ["KIOSK_TERMINAL_IMAGE"])
    yield booted
    booted.close()


@pytest.hookimpl(hookwrapper=True)
def pytest_runtest_makereport(item, call):
    """What the machine's journal said last stands with a failure."""
    report = (yield).get_result()
    if report.failed and "terminal" in item.funcargs:
        report.sections.append(("journal of the terminal", last_words(item.funcargs["terminal"])))


def last_words(terminal):
    try:
        return terminal.run("journalctl --boot --no-pager --lines 80 --output short-precise")
    except (AssertionError, OSError, RuntimeError, Silent) as problem:
        return f"it does not answer: {problem!r}"


@pytest.fixture(scope="module", autouse=True)
def chapter(request):
    print(f"\n\n{request.module.__doc__.strip().splitlines()[0]}", flush=True)


@pytest.fixture
def saw():
    """Tells what was seen, as a line of the chapter."""
    return lambda text: print(f"  {text}", flush=True)
