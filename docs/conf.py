"""How Sphinx builds the documentation: `make docs`."""

import velacamplix

project = "velacamplix"
copyright = "the velacamplix developers"
version = release = velacamplix.__version__

extensions = ["myst_parser", "sphinx.ext.autodoc", "sphinx.ext.napoleon", "sphinx.ext.viewcode"]
html_theme = "alabaster"
html_theme_options = {
    "description": "Fast, exact dense state-vector simulation of quantum circuits on CPUs",
    "page_width": "60rem",
    "fixed_sidebar": True,
}
html_static_path = []

# Pages are Markdown; headings down to the third level can be linked to.
myst_heading_anchors = 3

# Docstrings have NumPy's sections and tell the types; in signatures they would hide the names.
napoleon_google_docstring = False
napoleon_use_rtype = False
autodoc_member_order = "bysource"
autodoc_typehints = "none"
add_module_names = False
# `StateVector` in single backquotes is a link to it.
default_role = "py:obj"
