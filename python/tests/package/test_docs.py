"""The documentation names everything that is public, and its pages can be found."""

import csv
import re
from pathlib import Path

import pytest

import velacamplix

DOCS = Path(__file__).resolve().parents[3] / "docs"
PAGES = [*DOCS.glob("*.md"), *DOCS.glob("frameworks/*.md")]
if not DOCS.is_dir():
    pytest.skip(f"no folder {DOCS}: the tests run outside the project", allow_module_level=True)


@pytest.mark.parametrize("name", velacamplix.__all__)
def test_the_reference_has_every_public_name(name):
    reference = "".join(page.read_text(encoding="utf-8") for page in DOCS.glob("api/*.md"))
    assert re.search(rf"^\.\. auto(class|function|exception):: {name}$", reference, re.MULTILINE)


def test_every_page_is_in_the_table_of_contents():
    contents = (DOCS / "index.md").read_text(encoding="utf-8")
    listed = set(re.findall(r"^[\w/-]+$", contents, re.MULTILINE))
    assert {page.stem for page in DOCS.glob("*.md")} - {"index"} <= listed
    overview = (DOCS / "frameworks.md").read_text(encoding="utf-8")
    assert ":glob:" in overview and "\nframeworks/*\n" in overview  # those of docs/frameworks


@pytest.mark.parametrize("page", sorted(str(page.relative_to(DOCS)) for page in PAGES))
def test_links_between_files_lead_somewhere(page):
    text = re.sub(r"(?m)^    .*$|^```[^`]*```$", "", (DOCS / page).read_text(encoding="utf-8"))  # code has brackets too
    for link in re.findall(r"\]\(([^)#:]+)(?:#[^)]*)?\)", text):
        if not link.startswith("made/"):  # pictures are made with the pages
            assert ((DOCS / page).parent / link).exists(), link


def test_the_numbers_of_the_pictures_are_those_of_the_tables():
    with open(DOCS / "measured.csv", encoding="utf-8", newline="") as file:
        lines = list(csv.DictReader(file))
    rows = {}  # of all tables: cells by what stands in the first
    for line in (DOCS / "performance.md").read_text(encoding="utf-8").splitlines():
        if line.startswith("|"):
            first, *others = [cell.strip() for cell in line.strip("|").split("|")]
            rows.setdefault(first, []).append(" ".join(others))
    assert len(lines) > 200
    for line in lines:
        numbers = re.findall(r"[\d.]+", " ".join(rows[line["row"]]))
        assert line["value"] in numbers, line


def test_links_of_the_readme_lead_somewhere():
    readme = DOCS.parent / "README.md"
    links = re.findall(r"\]\(([^)#:]+)\)", readme.read_text(encoding="utf-8"))
    assert len(links) > 8 and all((DOCS.parent / link).exists() for link in links)
