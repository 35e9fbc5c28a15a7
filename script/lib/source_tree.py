"""The files of the tree, as the checks of script/check see them: what is built or fetched into it is left out.

As a program it prints the files of one kind, for the shell: source_tree.py cxx|headers|shell|python
"""

import os
import re
import sys
from functools import cache
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
SKIPPED_DIRECTORIES = re.compile(r"\.git|\.cache|__pycache__|build|build-.*")
CXX_DIRECTORIES = ("src", "tests", "tools", "fuzz", "bench")
INCLUDE = re.compile(r'^[ \t]*#[ \t]*include[ \t]*([<"][^>"]+[>"])', re.MULTILINE)
# What is no code: comments, and the contents of string and character literals. The quote of 1'000 starts no literal.
NO_CODE = re.compile(
    r'//[^\n]*|/\*.*?\*/|R"(?P<tag>[^()\s]*)\(.*?\)(?P=tag)"|"(?:\\.|[^"\\\n])*"|(?<![0-9a-fA-F])\'(?:\\.|[^\'\\\n])+\'',
    re.DOTALL,
)


def all_files():
    """Every file, as a sorted list of paths relative to the root."""
    found = []
    for directory, subdirectories, names in os.walk(ROOT):
        subdirectories[:] = [name for name in subdirectories if not SKIPPED_DIRECTORIES.fullmatch(name)]
        found += [os.path.relpath(os.path.join(directory, name), ROOT) for name in names]
    return sorted(path for path in found if not os.path.islink(ROOT / path))


def read(path):
    return (ROOT / path).read_text(encoding="utf-8", errors="replace")


def cxx_files():
    return [path for path in all_files() if path.startswith(CXX_DIRECTORIES) and path.endswith((".h", ".cc"))]


def headers():
    return [path for path in cxx_files() if path.endswith(".h")]


def first_line(path):
    with open(ROOT / path, "rb") as file:
        return file.readline(200).decode("utf-8", errors="replace")


def scripts(language, suffix):
    """Programs by their first line, modules and sourced pieces by their suffix."""
    marker = re.compile(rf"#!.*\b{language}\b")
    return [path for path in all_files() if path.endswith(suffix) or marker.match(first_line(path))]


def includes(path):
    """What a file includes, in its order, each still in its brackets or quotes."""
    return INCLUDE.findall(read(path))


def tree_includes(path):
    """The files of the tree that `path` includes, by their names in the #include."""
    return [name[1:-1] for name in includes(path) if name.startswith('"')]


@cache
def code_of(path):
    """A file's text with comments and the contents of literals blanked; the lines keep their numbers."""

    def blank(match):
        kept = '""' if match.group().startswith(('"', "R")) else ""
        return kept + "\n" * match.group().count("\n")

    return NO_CODE.sub(blank, read(path))


def report(findings):
    """Prints the findings of a check, one a line, and gives its exit status."""
    for finding in findings:
        print(finding)
    return 1 if findings else 0


def main():
    kinds = {
        "cxx": cxx_files,
        "headers": headers,
        "shell": lambda: scripts("(ba)?sh", ".sh"),
        "python": lambda: scripts("python3?", ".py"),
    }
    print("\n".join(kinds[sys.argv[1]]()))


if __name__ == "__main__":
    main()
