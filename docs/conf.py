"""How Sphinx builds the documentation: `make docs`."""

import sys
from pathlib import Path

import velacamplix

sys.path.insert(0, str(Path(__file__).parent))
import made

project = "velacamplix"
copyright = "the velacamplix developers"
version = release = velacamplix.__version__

extensions = [
    "myst_parser",
    "sphinx.ext.autodoc",
    "sphinx.ext.napoleon",
    "sphinx.ext.viewcode",
    "sphinx_copybutton",
    "sphinx_gallery.gen_gallery",
]
exclude_patterns = ["examples/index.rst", "**/sg_execution_times.rst", "sg_execution_times.rst", "made"]

html_theme = "furo"
html_title = f"velacamplix {version}"
html_static_path = ["style.css"]
html_css_files = ["style.css"]
html_show_sphinx = False
pygments_style, pygments_dark_style = "friendly", "github-dark"

# Pages are Markdown; headings down to the third level can be linked to.
myst_heading_anchors = 3

# Docstrings have NumPy's sections and tell the types; in signatures they would hide the names.
napoleon_google_docstring = False
napoleon_use_rtype = False
autodoc_member_order = "bysource"
autodoc_typehints = "none"
add_module_names = False
# What these have is told without them.
autodoc_mock_imports = ["torch", "jax", "qiskit", "cirq", "sympy", "pennylane"]
# `StateVector` in single backquotes is a link to it.
default_role = "py:obj"
# Words like "condition" among the types of an argument are looked up too, and several classes have such an attribute.
suppress_warnings = ["ref.python"]

# What is copied is what one types: no prompts, and no outputs, which stand in blocks of their own.
copybutton_prompt_text = r">>> |\.\.\. |\$ "
copybutton_prompt_is_regexp = True
copybutton_selector = "div.highlight-python pre, div.highlight-console pre, div.highlight-cpp pre, div.highlight-pycon pre"

# The examples are run, from a folder of the build, where the pictures that they save may lie.
sphinx_gallery_conf = {
    "examples_dirs": str(made.copied_examples()),
    "gallery_dirs": "examples",
    "filename_pattern": made.examples_to_run(),
    "within_subsection_order": "FileNameSortKey",
    "image_srcset": ["2x"],
    "doc_module": ("velacamplix",),
    "reference_url": {"velacamplix": None},
    "abort_on_example_error": True,
    "download_all_examples": False,
    "show_signature": False,
    "show_memory": False,
    "min_reported_time": 1e9,
    "write_computation_times": False,
}


def setup(app):
    app.connect("builder-inited", lambda app: made.pictures())
