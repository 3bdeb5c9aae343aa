"""Sphinx configuration of the Velmor documentation site.

The source directory is docs/ (this file is passed with -c), so the algorithm notes in docs/*.md
are pages of the site where they already live. Build with docs/site/build.sh.
"""
import pathlib
import sys

HERE = pathlib.Path(__file__).resolve().parent
sys.path.insert(0, str(HERE / "_ext"))

project = "Velmor"
author = "The Velmor developers"
copyright = "2026, The Velmor developers"

try:
    import velmorpy
    release = getattr(velmorpy, "__version__", None) or "%d.%d.%d" % velmorpy.velmor.version()
except ImportError as exc:  # the reference pages are generated from the module itself
    raise RuntimeError(f"the documentation is built from an importable velmorpy: {exc}") from exc
version = release

extensions = ["myst_parser", "sphinx.ext.autodoc", "velmor_tables"]
source_suffix = {".rst": "restructuredtext", ".md": "markdown"}
root_doc = "site/index"
exclude_patterns = ["_build", "site/_ext", "**/__pycache__"]
myst_heading_anchors = 3
myst_enable_extensions = ["deflist"]

autodoc_default_options = {"members": True, "undoc-members": False, "member-order": "alphabetical"}
# The C extension's docstrings start with their signature line; autodoc takes it from there.
autodoc_docstring_signature = True

html_theme = "alabaster"
html_title = f"Velmor {release}"
html_static_path = []


def plain_docstrings(app, what, name, obj, options, lines):
    """The module's docstrings are plain text written for help(), not reStructuredText: show
    them as they are (a literal block), so that an asterisk or an indented example is not read
    as markup."""
    while lines and not lines[0].strip():
        lines.pop(0)
    while lines and not lines[-1].strip():
        lines.pop()
    if lines:
        lines[:] = ["::", ""] + [("   " + line) if line.strip() else "" for line in lines] + [""]


def setup(app):
    app.connect("autodoc-process-docstring", plain_docstrings)
