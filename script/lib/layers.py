"""Who may include whom: the layer rule of the tree, read from its #include lines. Part of script/check.

 - src/json knows nobody, the leaf headers of src/core know json, each other and plain records.
 - control, portal, kiosk and device know json, the leaves and each other, but not start-up.
 - Only *_linux files and core/main.cc see a *_linux.h, the bus library, the HTTP library or the waiting for children.
 - src/ knows nothing of tests and tools, and no headers include each other in a circle.
"""

import sys

import source_tree

LEAVES = {
    f"core/{name}.h"
    for name in (
        "build_stamp clock config descriptor directories files locks log mutex ops service state stop text units"
        " utc_time"
    ).split()
}
# The loops and start-up know all; control/server starts the loops.
KNOW_ALL = ("core/", "control/server.")
LINUX_ONLY = ("<curl/", "<gio/", "<sys/wait.h>", "<spawn.h>")


def is_linux(name):
    return name.endswith(("_linux.cc", "_linux.h")) or name == "core/main.cc"


def is_record(name, graph):
    """A header of plain data: no .cc file, and it knows nothing of the tree but json, the units and other records."""
    return (
        name.endswith(".h")
        and not name.startswith("core/")
        and name.removesuffix(".h") + ".cc" not in graph
        and all(
            other.startswith("json/") or other == "core/units.h" or is_record(other, graph)
            for other in graph.get(name, [])
        )
    )


def is_leaf_file(name):
    return name.removesuffix(".cc").removesuffix(".h") + ".h" in LEAVES


def why_not(name, other, graph):
    """The rule that forbids `name` to include `other`, or None."""
    if other not in graph:
        return "it is no header of src/"
    if is_linux(other) and not is_linux(name):
        return "only *_linux files and core/main.cc see the platform"
    if other.startswith("json/"):
        return None
    if name.startswith("json/"):
        return "src/json knows nobody"
    if is_leaf_file(name) and other not in LEAVES and not is_record(other, graph):
        return "a leaf of core knows json, other leaves and plain records"
    if not name.startswith(KNOW_ALL) and other.startswith("core/") and other not in LEAVES:
        return "only the loops and start-up know this one"
    return None


def forbidden_edges(graph):
    for name, others in graph.items():
        for other in others:
            reason = why_not(name, other, graph)
            if reason:
                yield f'src/{name} includes "{other}": {reason}'


def forbidden_libraries(names):
    for name in names:
        for included in source_tree.includes(f"src/{name}"):
            if included.startswith(LINUX_ONLY) and not (is_linux(name) and name != "core/main.cc"):
                yield f"src/{name} includes {included}: only *_linux files see the platform"


def find_cycles(graph):
    """Each circle of headers once, told from its first header on."""
    done = set()

    def visit(name, trail):
        if name in trail:
            yield "headers in a circle: " + " -> ".join(trail[trail.index(name) :] + [name])
        elif name not in done:
            for other in graph.get(name, []):
                yield from visit(other, trail + [name])
            done.add(name)

    for name in sorted(graph):
        yield from visit(name, [])


def main():
    files = [path for path in source_tree.cxx_files() if path.startswith("src/")]
    graph = {path.removeprefix("src/"): source_tree.tree_includes(path) for path in files}
    header_graph = {name: others for name, others in graph.items() if name.endswith(".h")}
    cycles = list(find_cycles(header_graph))
    # Whether a header is a plain record cannot be told while headers include each other in a circle.
    findings = cycles or list(forbidden_edges(graph))
    return source_tree.report(findings + list(forbidden_libraries(graph)))


if __name__ == "__main__":
    sys.exit(main())
