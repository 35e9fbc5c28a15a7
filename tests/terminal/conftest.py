"""One booted terminal for all chapters, in their order: what one leaves is where the next begins."""

import os
import pathlib
import sys

import pytest

sys.path.append(str(pathlib.Path(__file__).parents[2] / "tools/terminal"))

from machine import DidNotWake
from terminal import Terminal

# How a run ends whose emulated machine did not come back from a sleep: sysexits.h has it for what may work next time.
EX_TEMPFAIL = 75


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
    if call.excinfo and call.excinfo.errisinstance(DidNotWake):
        item.session.did_not_wake = True
    if report.failed and "terminal" in item.funcargs:
        report.sections.append(("journal of the terminal", last_words(item.funcargs["terminal"])))


def pytest_sessionfinish(session):
    if getattr(session, "did_not_wake", False):
        session.exitstatus = EX_TEMPFAIL


def last_words(terminal):
    try:
        terminal.machine.agent.wait(30)  # an answer that came too late is passed over
        return terminal.run("journalctl --boot --no-pager --lines 80 --output short-precise")
    except Exception as problem:  # nothing of it may hide the failure that it is told with
        return f"it does not answer: {problem!r}"


@pytest.fixture(scope="module", autouse=True)
def chapter(request):
    print(f"\n\n{request.module.__doc__.strip().splitlines()[0]}", flush=True)


@pytest.fixture
def saw():
    """Tells what was seen, as a line of the chapter."""
    return lambda text: print(f"  {text}", flush=True)
