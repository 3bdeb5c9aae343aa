"""The layout of module/: folders stacked in floors, includes pointing down only, no circle of
files, no oversized file. These read the source tree next to the tests, so they catch a change
that quietly ties two subsystems together."""
import pathlib
import re

import pytest

MODULE = pathlib.Path(__file__).resolve().parents[2] / "module"

# Lowest first; a folder may include its own headers and those of the folders below it.
FLOORS = ["core", "env", "attrs", "elements", "expr", "containers", "matrix", "model", "batch"]

INCLUDE = re.compile(r'^\s*#\s*include\s+"([^"]+)"', re.M)

pytestmark = pytest.mark.skipif(not MODULE.is_dir(), reason="needs the source tree")


def sources():
    return sorted(p for p in MODULE.rglob("*") if p.suffix in (".h", ".cpp"))


def includes(path):
    """The module headers `path` includes, as paths relative to module/."""
    found = []
    for name in INCLUDE.findall(path.read_text()):
        if (MODULE / name).is_file():
            found.append(name)
    return found


def test_every_floor_is_a_folder_and_every_source_lives_in_one():
    assert all((MODULE / f).is_dir() for f in FLOORS)
    stray = [p.relative_to(MODULE).as_posix() for p in sources() if p.parent.name not in FLOORS
             or p.parent.parent != MODULE]
    assert stray == []


def test_includes_point_down_only():
    rank = {f: i for i, f in enumerate(FLOORS)}
    upward = []
    for p in sources():
        here = rank[p.parent.name]
        for inc in includes(p):
            if rank[inc.split("/")[0]] > here:
                upward.append(f"{p.relative_to(MODULE).as_posix()} -> {inc}")
    assert upward == []


def test_includes_form_no_circle():
    edges = {p.relative_to(MODULE).as_posix(): includes(p) for p in sources()}
    state, stack, circles = {}, [], []

    def visit(n):
        state[n] = 1
        stack.append(n)
        for m in sorted(edges.get(n, ())):
            if state.get(m) == 1:
                circles.append(stack[stack.index(m):] + [m])
            elif m not in state:
                visit(m)
        stack.pop()
        state[n] = 2

    for n in sorted(edges):
        if n not in state:
            visit(n)
    assert circles == []


def test_no_source_file_is_oversized():
    big = {p.relative_to(MODULE).as_posix(): n for p in sources()
           if (n := len(p.read_text().splitlines())) > 1000}
    assert big == {}
