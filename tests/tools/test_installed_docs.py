"""What the package installs under /usr/share/doc is complete in itself: each page is there that is linked, or named by its
place under /usr/share/doc."""

import re

from programs import TOOLS_DIR

ROOT = TOOLS_DIR.parent
LINK = re.compile(r"\]\(([^)\s]+)\)")
HEADING = re.compile(r"^#+ (.*)$", re.MULTILINE)
ANCHOR = re.compile(r'<a id="([^"]+)">')
INSTALLED_PATH = re.compile(r"/usr/share/doc/tarnvale-kioskd/([\w./-]*\w)")


def listed(kind):
    """The files in one of the package's lists."""
    return [ROOT / line for line in (ROOT / f"debian/tarnvale-kioskd.{kind}").read_text().split("\n") if line]


def pages():
    """All that people read in the tree."""
    return [ROOT / "README.md", ROOT / "CONTRIBUTING.md", *sorted(ROOT.glob("tools/*/README.md")),
            *sorted((ROOT / "docs").rglob("*.md"))]


def relative_links(page):
    """File and anchor of each link that stays in the tree; one of them may be empty."""
    links = [link for link in LINK.findall(page.read_text()) if "://" not in link]
    return [link.partition("#")[::2] for link in links]


def anchors_of(page):
    text = page.read_text()
    headings = (re.sub(r"[^\w -]", "", heading.lower()).replace(" ", "-") for heading in HEADING.findall(text))
    return {*headings, *ANCHOR.findall(text)}


def test_every_link_of_a_page_leads_somewhere():
    dead = []
    for page in pages():
        for file, anchor in relative_links(page):
            target = page.parent / file if file else page
            if not target.exists() or anchor and anchor not in anchors_of(target):
                dead.append((page.name, file, anchor))

    assert dead == []


def test_every_link_of_an_installed_page_leads_to_an_installed_one():
    """They all lie in one directory there."""
    names = {path.name for path in listed("docs")}
    installed_pages = [path for path in listed("docs") if path.suffix == ".md"]
    links = [(page.name, file) for page in installed_pages for file, _ in relative_links(page) if file]

    assert links != []
    assert [link for link in links if link[1] not in names] == []


def test_every_installed_document_that_is_named_is_installed():
    installed = {path.name for path in listed("docs")} | {f"examples/{path.name}" for path in listed("examples")}
    named = set()
    for page in [*pages(), *sorted((ROOT / "docs/man").glob("*.8"))]:
        named.update(INSTALLED_PATH.findall(page.read_text().replace("\\-", "-")))

    assert {"operations.md", "examples/root"} <= named
    assert named - installed == set()


def test_what_the_package_lists_is_there():
    assert [path for path in listed("docs") + listed("examples") if not path.exists()] == []
