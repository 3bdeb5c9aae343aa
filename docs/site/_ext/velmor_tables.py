"""Sphinx directives that generate the reference pages at build time.

There is one source of truth for both: the library's own tables. The parameters come from the
installed velmorpy (the names in the library's order, each one's help text from paramHelp and
its type, range and default from getParamInfo); lib/src/params/param_defs.inc adds only the
group each parameter is listed under. The attributes come from lib/src/attrs/attr_defs.inc (name,
type, element, settable, when readable, description), and every name must be one that velmorpy
knows. Whenever the two sides disagree the build fails, so the pages cannot drift from the code.

    .. velmor-params::      every parameter, by group
    .. velmor-attrs::       every attribute, by element
    .. velmor-api::         every public name of velmorpy, through autodoc
    .. velmor-examples::    every script in examples/, its docstring and its code
"""
import contextlib
import inspect
import io
import math
import pathlib
import re

from docutils import nodes
from docutils.statemachine import StringList
from sphinx.errors import ExtensionError
from sphinx.util.docutils import SphinxDirective
from sphinx.util.nodes import nested_parse_with_titles

ROOT = pathlib.Path(__file__).resolve().parents[3]
PARAM_DEFS = ROOT / "lib" / "src" / "params" / "param_defs.inc"
ATTR_DEFS = ROOT / "lib" / "src" / "attrs" / "attr_defs.inc"

GROUP_HEADER = re.compile(r"^// ---- (.+?) -+\s*$")
PARAM_LINE = re.compile(r"^VLM_PARAM_(INT|DBL|STR)\((\w+),")
ATTR_LINE = re.compile(r'^VLM_ATTR\((\w+), k(\w+), k(\w+), (true|false), k(\w+), "(.*)"\)\s*$')

TYPE_NAMES = {"Int": "int", "Dbl": "double", "Char": "char", "Str": "string"}
ELEMENTS = {"Model": "Model attributes", "Var": "Variable attributes",
            "Constr": "Linear constraint attributes", "QConstr": "Quadratic constraint attributes",
            "SOS": "SOS constraint attributes", "GenConstr": "General constraint attributes",
            "Batch": "Batch request attributes"}
# When an attribute can be read: the library's availability classes, in words.
AVAILABILITY = {
    "Always": "always (model data)",
    "AfterSolve": "after an optimisation",
    "Solution": "when a solution exists (SolCount > 0)",
    "MIP": "after a MIP search",
    "Dual": "after a continuous model was solved to optimality",
    "Basis": "when a simplex basis exists",
    "Sensitivity": "when an optimal LP basis exists",
    "InfUnbd": "for an infeasible or unbounded LP solved with InfUnbdInfo=1",
    "Pool": "for the pool solution selected by SolutionNumber",
    "IIS": "after computeIIS",
    "MultiObj": "for the objective selected by ObjNumber",
    "Scenario": "for the scenario selected by ScenarioNumber",
    "Tune": "after tune",
    "BatchInfo": "on a Batch object",
}


def read_groups(path, pattern):
    """Yields (group title, match) for each declaration line of a table file."""
    group = None
    for number, line in enumerate(path.read_text().splitlines(), 1):
        header = GROUP_HEADER.match(line)
        if header:
            group = header.group(1)
            continue
        m = pattern.match(line)
        if m:
            if group is None:
                raise ExtensionError(f"{path.name}:{number}: declaration before any group header")
            yield group, m
        elif line.startswith(("VLM_PARAM", "VLM_ATTR")):
            raise ExtensionError(f"{path.name}:{number}: declaration not understood: {line[:60]}")


def captured(fn, *args):
    buf = io.StringIO()
    with contextlib.redirect_stdout(buf):
        fn(*args)
    return buf.getvalue()


def number_text(value):
    if isinstance(value, float):
        if math.isinf(value):
            return "infinity" if value > 0 else "-infinity"
        if value == int(value) and abs(value) < 1e15:
            return str(int(value))
    return repr(value) if isinstance(value, str) else str(value)


def param_entries():
    """[(group, name, type, purpose, minimum, maximum, default)] in the library's order."""
    import velmorpy as vp
    listed = captured(vp.paramHelp).splitlines()[1:]
    names = [line.strip() for line in listed if line.strip()]
    groups = {m.group(2): group for group, m in read_groups(PARAM_DEFS, PARAM_LINE)}
    if set(names) != set(groups):
        raise ExtensionError("velmorpy and param_defs.inc list different parameters: "
                             f"only in velmorpy {sorted(set(names) - set(groups))}, "
                             f"only in the table {sorted(set(groups) - set(names))}")
    out = []
    for name in names:
        text = captured(vp.paramHelp, name)
        purpose = re.search(r"PURPOSE:\n(.*?)\n\nVALUES:", text, re.S)
        if purpose is None:
            raise ExtensionError(f"paramHelp({name!r}) has no PURPOSE section: {text[:80]!r}")
        _, ptype, _, low, high, default = vp.getParamInfo(name)
        out.append((groups[name], name, {int: "int", float: "double", str: "string"}[ptype],
                    " ".join(purpose.group(1).split()), low, high, default))
    return out


def attr_entries():
    """[(element, name, type, settable, availability, description)] in the table's order."""
    import velmorpy as vp
    known = {n for n in dir(vp.VLM.Attr) if not n.startswith("_")}
    out = []
    for _, m in read_groups(ATTR_DEFS, ATTR_LINE):
        name, vtype, kind, settable, avail, text = m.groups()
        if name not in known:
            raise ExtensionError(f"attribute {name} of attr_defs.inc is unknown to velmorpy")
        if kind not in ELEMENTS or vtype not in TYPE_NAMES or avail not in AVAILABILITY:
            raise ExtensionError(f"attribute {name}: no reference wording for k{kind}, k{vtype} "
                                 f"or k{avail}; add it to docs/site/_ext/velmor_tables.py")
        out.append((kind, name, TYPE_NAMES[vtype], settable == "true", AVAILABILITY[avail],
                    text.replace('\\"', '"')))
    missing = known - {entry[1] for entry in out}
    if missing:
        raise ExtensionError(f"attributes known to velmorpy but not in attr_defs.inc: {sorted(missing)}")
    return out


def escape(text):
    # The descriptions are plain text; keep reST from reading markup into them.
    return re.sub(r"([*`|_\\])", r"\\\1", text)


class _Generated(SphinxDirective):
    """A directive whose output is reStructuredText made at build time, sections included."""

    has_content = False

    def emit(self, lines):
        node = nodes.section()
        node.document = self.state.document
        nested_parse_with_titles(self.state, StringList(lines, source=self.get_source_info()[0]), node)
        return node.children


class ParamsDirective(_Generated):
    """One section per parameter group, one subsection per parameter (target param-<Name>)."""

    def run(self):
        self.env.note_dependency(str(PARAM_DEFS))
        lines, group = [], None
        for grp, name, ptype, purpose, low, high, default in param_entries():
            if grp != group:
                group = grp
                lines += [group, "-" * len(group), ""]
            lines += [f".. _param-{name}:", "", f"``{name}``", "^" * (len(name) + 4), "",
                      escape(purpose), ""]
            lines += [f":Type: {ptype}", f":Default: ``{number_text(default)}``"]
            if ptype != "string":
                lines += [f":Range: ``{number_text(low)}`` to ``{number_text(high)}``"]
            lines.append("")
        return self.emit(lines)


class AttrsDirective(_Generated):
    """One table per element kind, in the library's order."""

    def run(self):
        self.env.note_dependency(str(ATTR_DEFS))
        entries = attr_entries()
        lines = []
        for kind, title in ELEMENTS.items():
            rows = [e for e in entries if e[0] == kind]
            if not rows:
                continue
            lines += [title, "-" * len(title), "", ".. list-table::", "   :header-rows: 1",
                      "   :widths: 18 8 8 26 40", "",
                      "   * - Name", "     - Type", "     - Settable", "     - Readable",
                      "     - Description"]
            for _, name, vtype, settable, avail, text in rows:
                lines += [f"   * - ``{name}``", f"     - {vtype}",
                          f"     - {'yes' if settable else 'no'}", f"     - {avail}",
                          f"     - {escape(text)}"]
            lines.append("")
        return self.emit(lines)


def unparsed_signature(member):
    """The text signature of a C method when inspect cannot evaluate it (a default such as
    VLM.CONTINUOUS), without its $self; else None, and autodoc finds the signature itself."""
    text = getattr(member, "__text_signature__", None)
    if not text:
        return None
    try:
        inspect.signature(member)
        return None
    except (TypeError, ValueError):
        return re.sub(r"^\(\$\w+,?\s*", "(", text)


def class_entry(name, cls):
    """autoclass for a class, with the methods whose signature autodoc would show as "()"
    written out with their text signature."""
    odd = {m: sig for m in dir(cls) if not m.startswith("_")
           for sig in [unparsed_signature(getattr(cls, m))] if sig}
    lines = [f".. autoclass:: velmorpy.{name}", "   :members:"]
    if odd:
        lines += ["   :exclude-members: " + ", ".join(sorted(odd)), ""]
        for member, sig in sorted(odd.items()):
            lines += [f"   .. automethod:: velmorpy.{name}.{member}{sig}", ""]
    return "\n".join(lines)


class ApiDirective(_Generated):
    """Documents every public name of velmorpy, so a class that lands later (Batch, say) appears
    without an edit here. Constant classes show their docstring, which lists the constants."""

    def run(self):
        import velmorpy as vp
        names = [n for n in dir(vp) if not n.startswith("_")]
        kinds = {"Classes": [], "Constants": [], "Functions": [], "Objects": []}
        for name in names:
            obj = getattr(vp, name)
            if type(obj).__name__ == "_ConstMeta":
                kinds["Constants"].append(f".. autoclass:: velmorpy.{name}")
            elif isinstance(obj, type):
                kinds["Classes"].append(class_entry(name, obj))
            elif callable(obj) and type(obj).__name__ == "builtin_function_or_method":
                kinds["Functions"].append(f".. autofunction:: velmorpy.{name}")
            else:
                # An instance (the velmor object): its docstring, then each of its methods.
                text = [("      " + line) if line.strip() else "" for line in (obj.__doc__ or "").splitlines()]
                entry = [f".. py:data:: velmorpy.{name}", "", "   ::", ""] + text + [""]
                # autodoc cannot import methods of an instance, so they are written out here,
                # the signature from the docstring's first line when it has one.
                for meth in dir(obj):
                    member = getattr(obj, meth)
                    if meth.startswith("_") or not callable(member):
                        continue
                    doc = member.__doc__ or ""
                    first, _, rest = doc.partition("\n")
                    sig = first.strip() if re.fullmatch(rf"{meth}\(.*\)", first.strip()) else None
                    if sig is None:
                        sig, rest = f"{meth}()", doc
                        try:
                            sig = meth + str(inspect.signature(member))
                        except (TypeError, ValueError):
                            pass
                    body = [("      " + line) if line.strip() else "" for line in rest.strip("\n").splitlines()]
                    entry += [f".. py:function:: {name}.{sig}", "   :module: velmorpy", ""]
                    if body:
                        entry += ["   ::", ""] + body + [""]
                kinds["Objects"].append("\n".join(entry))
        lines = []
        for title, entries in kinds.items():
            if entries:
                lines += [title, "-" * len(title), ""]
                for entry in entries:
                    lines += entry.split("\n") + [""]
        return self.emit(lines)


class ExamplesDirective(_Generated):
    """One section per script in examples/: its docstring, then the script itself."""

    def run(self):
        import ast
        lines = []
        for script in sorted((ROOT / "examples").glob("*.py")):
            self.env.note_dependency(str(script))
            tree = ast.parse(script.read_text())
            doc = ast.get_docstring(tree)
            if not doc:
                raise ExtensionError(f"examples/{script.name} has no docstring to introduce it")
            title, _, body = doc.partition("\n")
            heading = f"{script.name}: {title.strip()}"
            lines += [heading, "-" * len(heading), ""]
            lines += [escape(line) for line in body.strip().splitlines()] + [""]
            lines += [f".. literalinclude:: /../examples/{script.name}", "   :language: python",
                      f"   :lines: {tree.body[0].end_lineno + 1}-", ""]
        return self.emit(lines)


def setup(app):
    app.add_directive("velmor-examples", ExamplesDirective)
    app.add_directive("velmor-api", ApiDirective)
    app.add_directive("velmor-params", ParamsDirective)
    app.add_directive("velmor-attrs", AttrsDirective)
    return {"parallel_read_safe": True, "parallel_write_safe": True, "version": "1"}
