#!/usr/bin/env python3
"""Rewrites the C docstrings under module/ so that inspect.signature() works on every public
callable of velmorpy.

A docstring whose first string literal starts with "name(args)\\n\\n" gets the text-signature form
CPython reads: "name($self, args)\\n--\\n\\n" for methods, "name($type, args)\\n--\\n\\n" for class
methods, "name(args)\\n--\\n\\n" for module functions, static methods and classes. The kind is
read from the source: the method table an entry sits in (tables passed to PyModule_AddFunctions
hold module functions), its METH_STATIC / METH_CLASS flags, and tp_name for classes. Docstrings
already converted are left alone, so the script can be rerun after a merge brings new ones:

    python3 scripts/text_signatures.py           # convert in place
    python3 scripts/text_signatures.py --check   # list what would change; exit 1 if anything

A public docstring that starts without "name(args)" gets the signature listed in ADDED_SIGNATURES
put in front (CPython strips it from __doc__, so the text users read does not change); any other
is listed and left alone.
"""
import ast
import pathlib
import re
import sys

ROOT = pathlib.Path(__file__).resolve().parents[1]
MODULE = ROOT / "module"

TABLE = re.compile(r"PyMethodDef\s+(\w+)\s*\[\]\s*=\s*\{")
ADDED = re.compile(r"PyModule_AddFunctions\s*\(\s*\w+\s*,\s*(\w+)\s*\)")
# {"name", function, FLAGS, doc} or {"name", MACRO(function), doc} (a macro that supplies the
# function and its flags): doc is a variable or string literals.
ENTRY = re.compile(r'\{\s*"(\w+)"\s*,\s*(?:[^{}]*?,\s*((?:METH_\w+\s*\|?\s*)+)|[A-Z_]+\(\w+\))\s*,'
                   r'\s*("|\w+\s*\})', re.S)
TYPENAME = re.compile(r'"velmorpy\.(\w+)"')
# The start of a docstring literal: "name(args)\n\n, args on one literal line.
# Public callables whose docstring has no "name(args)" line: the parameters to put in front.
ADDED_SIGNATURES = {
    "abs_": "argvar",
    "and_": "*args",
    "or_": "*args",
    "max_": "*args, constant=None",
    "min_": "*args, constant=None",
    "norm": "argvars, which",
    "quicksum": "iterable",
    "multidict": "data",
}
HEAD = re.compile(r'"([A-Za-z_]\w*)\(((?:[^"\\\n]|\\.)*?)\)\\n\\n')


def kind_of_entry(table, flags, module_tables):
    if "METH_STATIC" in flags or table in module_tables:
        return "function"
    if "METH_CLASS" in flags:
        return "classmethod"
    return "method"


def vlm_constants():
    """VLM.NAME -> its value as a Python literal, from the constant tables of attrs/vlm.cpp and
    the C header's VLM_INFINITY."""
    values = {}
    for name, value in re.findall(r'\{"([A-Z_0-9]+)",\s*("[^"]*"|-?[0-9][0-9.e+]*)\s*,',
                                  (MODULE / "attrs" / "vlm.cpp").read_text()):
        values["VLM." + name] = "'" + value[1:-1] + "'" if value.startswith('"') else value
    codes = (ROOT / "lib" / "include" / "velmor_codes.h").read_text()
    values["VLM.INFINITY"] = re.search(r"#define VLM_INFINITY (\S+)", codes).group(1)
    return values


VLM_CONSTANTS = vlm_constants()


def python_args(args):
    """The C literal text `args` as Python that inspect can read: it takes literal defaults
    only (a method has no module to look names up in), so VLM.NAME becomes its value and an
    infinite default 1e309, the float literal that reads back as inf (help() shows "ub=inf")."""
    args = re.sub(r"(?<![\w.])inf\b", "1e309", args)
    return re.sub(r"VLM\.[A-Z_0-9]+", lambda m: VLM_CONSTANTS.get(m.group(0), m.group(0)), args)


def parsable(args):
    """Whether inspect can read `args` (notations such as "key[, default]" it cannot)."""
    try:
        ast.parse(f"def f({python_args(args)}): pass".replace('\\"', '"'))
        return True
    except SyntaxError:
        return False


def signature(name, args, kind):
    args = python_args(args)
    if kind in ("method", "classmethod"):
        me = "$self" if kind == "method" else "$type"
        args = me + (", " + args if args.strip() else "")
    return f'"{name}({args})\\n--\\n\\n'


def convert(path, texts, class_names, report, edits):
    """Records in edits[file][position] = (old head, new head) the docstrings of `path`'s
    method tables that need converting (a docstring variable may live in another file)."""
    text = texts[path]
    module_tables = set(ADDED.findall(text))
    tables = [(m.start(), m.group(1)) for m in TABLE.finditer(text)]

    def head_at(where, pos, entry_name, kind):
        text = texts[where]
        m = HEAD.match(text, pos)
        if not m:
            if text.startswith('"' + entry_name + "(", pos) and "\\n--\\n\\n" in text[pos:pos + 300]:
                return  # already converted
            if entry_name in ADDED_SIGNATURES and text.startswith('"', pos):
                edits[where][pos] = ('"', signature(entry_name, ADDED_SIGNATURES[entry_name], kind))
            elif not entry_name.startswith("_"):
                report.append(f"{entry_name}: first line is not one literal 'name(args)'")
            return
        if m.group(1) != entry_name.lstrip("_") and m.group(1) != entry_name:
            report.append(f"{entry_name}: docstring names '{m.group(1)}'")
            return
        if not parsable(m.group(2)):
            report.append(f"{entry_name}: '{m.group(1)}({m.group(2)})' is not Python syntax")
            return
        edits[where][pos] = (m.group(0), signature(m.group(1), m.group(2), kind))

    for e in ENTRY.finditer(text):
        table = None
        for start, name in tables:
            if start < e.start():
                table = name
        kind = kind_of_entry(table, e.group(2) or "", module_tables)
        doc = e.group(3)
        if doc == '"':
            head_at(path, e.end() - 1, e.group(1), kind)
            continue
        var = doc.rstrip("} \n")
        definition = re.compile(r"char\s+(?:const\s+)?" + re.escape(var) + r"\s*\[\]\s*=\s*")
        for where, other in texts.items():
            d = definition.search(other)
            if d is not None:
                head_at(where, d.end(), e.group(1), kind)
                break
        else:
            report.append(f"{e.group(1)}: docstring variable {var} not found")
    # Class docstrings: "Name(args)\n\n" where Name is a class of the module.
    for m in HEAD.finditer(text):
        if m.start() not in edits[path] and m.group(1) in class_names:
            edits[path][m.start()] = (m.group(0), signature(m.group(1), m.group(2), "class"))


CONVERTED = re.compile(r'"([A-Za-z_]\w*)\(((?:[^"\\\n]|\\.)*?)\)\\n--\\n\\n')


def refresh_converted(text):
    """Already converted signatures with their defaults made literal (for text converted before
    the defaults were)."""
    return CONVERTED.sub(lambda m: f'"{m.group(1)}({python_args(m.group(2))})\\n--\\n\\n', text)


def apply(text, edits):
    out, last = [], 0
    for pos in sorted(edits):
        old, new = edits[pos]
        out.append(text[last:pos])
        out.append(new)
        last = pos + len(old)
    out.append(text[last:])
    return "".join(out)


def main(argv):
    check = "--check" in argv
    sources = sorted(MODULE.rglob("*.cpp"))
    texts = {p: p.read_text() for p in sources}
    class_names = set()
    for text in texts.values():
        class_names.update(TYPENAME.findall(text))
    edits = {p: {} for p in sources}
    for p in sources:
        report = []
        convert(p, texts, class_names, report, edits)
        for r in report:
            print(f"{p.relative_to(ROOT)}: left alone: {r}", file=sys.stderr)
    total = 0
    for p in sources:
        refreshed = refresh_converted(texts[p])
        if refreshed != texts[p] and not edits[p]:
            total += 1
            print(f"{p.relative_to(ROOT)}: defaults made literal")
            if not check:
                p.write_text(refreshed)
        if edits[p]:
            total += len(edits[p])
            print(f"{p.relative_to(ROOT)}: {len(edits[p])}")
            if not check:
                p.write_text(apply(texts[p], edits[p]))
    print(f"{total} docstring(s) {'to convert' if check else 'converted'}")
    return 1 if check and total else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
