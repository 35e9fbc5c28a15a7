"""Runs clang-tidy over the programs of the tree, several files at once, and only over what changed since it was last clean.

The tests are left to the compilers and the sanitizers: most of what clang-tidy would read there is GoogleTest, at ten times
the cost for a file.

Part of script/check: tidy.py BUILD-DIRECTORY, where CMake has left compile_commands.json. clang-tidy takes seconds for a
file, so a file that was found clean is remembered in BUILD-DIRECTORY/tidy under a digest of all that the verdict depends
on: its text, the headers of the tree that it reaches, the command, the choice of checks and the tool's version.
"""

import hashlib
import json
import os
import subprocess
import sys
from concurrent.futures import ThreadPoolExecutor
from functools import cache
from pathlib import Path

import source_tree

INCLUDE_DIRECTORIES = ("src", "tests", "tools")


@cache
def resolve(name, directory):
    """The path of an included file of the tree, or None."""
    candidates = [os.path.normpath(os.path.join(base, name)) for base in (directory, *INCLUDE_DIRECTORIES)]
    return next((path for path in candidates if (source_tree.ROOT / path).is_file()), None)


def reached_from(path):
    """`path` and the files of the tree that it includes, directly or not."""
    reached, open_paths = set(), [path]
    while open_paths:
        current = open_paths.pop()
        if current is None or current in reached:
            continue
        reached.add(current)
        directory = os.path.dirname(current)
        open_paths += [resolve(name, directory) for name in source_tree.tree_includes(current)]
    return sorted(reached)


def digest_of(path, command, constants):
    digest = hashlib.sha256(constants)
    digest.update(command.encode())
    for reached in reached_from(path):
        digest.update(reached.encode() + b"\0" + (source_tree.ROOT / reached).read_bytes())
    return digest.hexdigest()


def find_unchecked(build, remembered):
    """The files still to check, each with the mark to leave when it is clean. What the build generates is not ours."""
    version = subprocess.run(["clang-tidy", "--version"], check=True, capture_output=True).stdout
    constants = version + (source_tree.ROOT / ".clang-tidy").read_bytes()
    ours = {path for path in source_tree.cxx_files() if not path.startswith("tests/")}
    for entry in json.loads((build / "compile_commands.json").read_text()):
        path = os.path.relpath(os.path.join(entry["directory"], entry["file"]), source_tree.ROOT)
        mark = remembered / digest_of(path, entry["command"], constants) if path in ours else None
        if mark and not mark.exists():
            yield path, mark


def run(build, path, mark):
    """Empty when the file is clean, otherwise what clang-tidy says."""
    result = subprocess.run(
        ["clang-tidy", "-p", str(build), "--quiet", str(source_tree.ROOT / path)], capture_output=True, text=True
    )
    if result.returncode == 0:
        mark.touch()
        return ""
    return result.stdout or result.stderr


def main():
    build = Path(sys.argv[1]).resolve()
    remembered = build / "tidy"
    remembered.mkdir(exist_ok=True)
    unchecked = list(find_unchecked(build, remembered))
    with ThreadPoolExecutor(os.cpu_count()) as pool:
        answers = pool.map(lambda job: run(build, *job), unchecked)
    return source_tree.report([answer.strip() for answer in answers if answer])


if __name__ == "__main__":
    sys.exit(main())
