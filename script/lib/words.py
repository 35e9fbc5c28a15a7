"""What no file of this tree says: references that a reader of the tree cannot follow. Part of script/check.

That is, the numbers and names of documents that are not in the tree, absolute paths of somebody's machine, and the
hosts of package registries, which are for the machine to know. Files have at most 500 lines: at that length we look for
the second subject. The patterns are written so that they do not find themselves.
"""

import re
import sys

import source_tree

OUTSIDE_DOCUMENTS = re.compile(
    r"\b[P]arts? [1-6]\.[0-9]\b|\b[s]pec\.md\b|shared/[s]pec|\bthe [s]pec(ification)?\b|\b(as|per) [s]pec(ified)?\b",
    re.IGNORECASE,
)
MACHINE_PATHS = re.compile(r"(^|[^\w.$}])/(work|workspace|builds|Users)/|/home/(runner|ubuntu|vagrant|builder)/")
REGISTRY_HOSTS = re.compile(r"\b(deb|ftp[a-z0-9.]*|security|snapshot|archive)\.debian\.[o]rg|\bregistry\.[n]pmjs|\bpypi\.[o]rg")
RULES = (
    (OUTSIDE_DOCUMENTS, "refers to a document that is not in the tree"),
    (MACHINE_PATHS, "a path of one machine"),
    (REGISTRY_HOSTS, "a registry's host: read it from the machine"),
)
MAX_LINES = 500
MEASURED = (".h", ".cc", ".py", ".sh", ".js", ".cmake", "CMakeLists.txt")


def check_file(path):
    lines = source_tree.read(path).splitlines()
    for number, line in enumerate(lines, 1):
        for pattern, reason in RULES:
            match = pattern.search(line)
            if match:
                yield f"{path}:{number}: {match.group().strip()!r}: {reason}"
    if path.endswith(MEASURED) and len(lines) > MAX_LINES:
        yield f"{path}: {len(lines)} lines, more than {MAX_LINES}: look for the second subject"


def main():
    return source_tree.report([finding for path in source_tree.all_files() for finding in check_file(path)])


if __name__ == "__main__":
    sys.exit(main())
