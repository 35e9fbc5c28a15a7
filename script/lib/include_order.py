"""The order of #include lines: own header, C and POSIX, libraries, the standard library, ours. Part of script/check.

Each group is sorted, and an empty line stands between two groups.
"""

import re
import sys
from pathlib import PurePath

import source_tree

OWN, SYSTEM, LIBRARY, STANDARD, OURS = range(5)
GROUPS = ("own header", "C and POSIX", "libraries", "the standard library", "ours")
LIBRARY_HEADER = re.compile(r"<(curl|gio|glib|glib-unix|gtest|gmock|benchmark)[/.]")


def group_of(path, name):
    if name.startswith('"'):
        own = PurePath(path).relative_to(PurePath(path).parts[0]).with_suffix(".h")
        return OWN if path.endswith(".cc") and name == f'"{own}"' else OURS
    if LIBRARY_HEADER.match(name):
        return LIBRARY
    return SYSTEM if name.endswith(".h>") else STANDARD


def is_tested_header(path, runs, run):
    """One header of ours that stands alone above the others of a test is what the test is about: its own, so to say."""
    return path.startswith("tests/") and run is runs[0] and len(run) == 1 and run[0][1].startswith('"')


def runs_of(path):
    """The includes of a file as runs of neighbouring lines: [(line number, name), ...] each."""
    runs = [[]]
    for number, line in enumerate(source_tree.read(path).splitlines(), 1):
        match = source_tree.INCLUDE.match(line)
        if match:
            runs[-1].append((number, match.group(1)))
        elif runs[-1]:
            runs.append([])
    return [run for run in runs if run]


def check_file(path):
    latest = OWN
    runs = runs_of(path)
    for run in runs:
        names = [name for _, name in run]
        groups = {OWN} if is_tested_header(path, runs, run) else {group_of(path, name) for name in names}
        place = f"{path}:{run[0][0]}:"
        if len(groups) > 1:
            yield f"{place} an empty line belongs between " + " and ".join(GROUPS[group] for group in sorted(groups))
        elif names != sorted(names):
            yield f"{place} not sorted: " + " ".join(names)
        if min(groups) < latest:
            yield f"{place} {GROUPS[min(groups)]} stand above {GROUPS[latest]}"
        latest = max(groups | {latest})


def main():
    return source_tree.report([finding for path in source_tree.cxx_files() for finding in check_file(path)])


if __name__ == "__main__":
    sys.exit(main())
