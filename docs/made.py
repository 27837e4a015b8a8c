"""What is made when the documentation is built: examples to be run, and pictures."""

import importlib.util
import shutil
import sys
from pathlib import Path

ROOT = Path(__file__).resolve().parents[1]
#: Where pictures are written, and the text of the gallery.
MADE = ROOT / "docs" / "made"

sys.path += [str(ROOT / "tools"), str(ROOT / "python" / "tests" / "support")]
import performance_plots
import run_snippets

_HEAD = "{}\n\n```python\n{}\n```\n\n"
_IMAGE = "```{{image}} made/{}.svg\n:alt: {}, {}\n:width: {}in\n```\n\n"


def copied_examples():
    """Copy the examples into a folder of the build, where they may write; return the folder."""
    folder = ROOT / "build" / "docs" / "examples"
    folder.mkdir(parents=True, exist_ok=True)
    for file in (ROOT / "examples" / "python").glob("*.py"):
        shutil.copy2(file, folder)
    (folder / "GALLERY_HEADER.rst").write_text("")
    return folder


def examples_to_run():
    """Return what the paths of those examples match whose packages are there; the others are shown as they are."""
    return "/" if importlib.util.find_spec("torch") else r"/(?!torch_)[^/]*$"


def pictures():
    """Make all pictures."""
    MADE.mkdir(exist_ok=True)
    gallery()
    performance_plots.draw(MADE / "measured")
    for page in sorted((ROOT / "docs").glob("*.md")):
        if "](made/" in page.read_text(encoding="utf-8"):
            run_snippets.write_pictures(page, MADE)


def gallery():
    """Draw what the tests look at, in a journal's column and at its own size, and write the text around it."""
    from matplotlib import pyplot
    from pictures import ENTRIES, NARROW, WIDE, drawn

    text, section = "", None
    for number, entry in enumerate(ENTRIES):
        if entry.section != section:
            section = entry.section
            text += f"## {section}\n\n"
        text += _HEAD.format(entry.name[0].upper() + entry.name[1:], entry.call)
        for name, size in (("narrow", NARROW), ("wide", WIDE)):
            figure = drawn(entry, size)
            file = f"gallery-{number}-{name}"
            with pyplot.rc_context({"svg.hashsalt": file}):
                figure.savefig(MADE / f"{file}.svg", metadata={"Date": None})
            text += _IMAGE.format(file, section, entry.name, round(figure.get_size_inches()[0], 2))
            pyplot.close("all")
    (MADE / "gallery.md").write_text(text, encoding="utf-8")
