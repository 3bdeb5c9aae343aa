"""The typing stubs shipped with velmorpy: they match the module (mypy.stubtest), they are found
by type checkers (py.typed), and they make mypy flag wrong calls while accepting the modelling
code of the README."""
import os
import pathlib
import subprocess
import sys
import textwrap

import pytest

import velmorpy as vp

mypy = pytest.importorskip("mypy", reason="mypy is a test dependency (pip install .[test])")

PACKAGE = pathlib.Path(vp.__file__).parent
ALLOWLIST = pathlib.Path(__file__).with_name("stubtest_allowlist.txt")


def run(args, cwd):
    env = dict(os.environ)
    env["PYTHONPATH"] = os.pathsep.join([str(PACKAGE.parent), env.get("PYTHONPATH", "")])
    env.pop("MYPYPATH", None)
    return subprocess.run([sys.executable, "-m", *args], capture_output=True, text=True, env=env,
                          cwd=cwd, timeout=300)


def test_stubs_and_marker_are_installed_beside_the_module():
    assert (PACKAGE / "py.typed").is_file()
    stub = (PACKAGE / "__init__.pyi").read_text()
    assert "class Model" in stub and "def addVar(self, lb: float = ..., ub: float = ..." in stub


def test_stubs_match_the_module(tmp_path):
    out = run(["mypy.stubtest", "velmorpy", "--allowlist", str(ALLOWLIST)], tmp_path)
    assert out.returncode == 0, out.stdout + out.stderr


def test_mypy_accepts_the_readme_model_and_flags_wrong_types(tmp_path):
    (tmp_path / "good.py").write_text(textwrap.dedent("""\
        import velmorpy as vp
        from velmorpy import VLM

        m = vp.Model("plan")
        x = m.addVar(ub=4, name="x")
        y = m.addVar(vtype=VLM.INTEGER, name="y")
        m.addConstr(x + 2 * y <= 7, name="capacity")
        m.setObjective(3 * x + 4 * y, VLM.MAXIMIZE)
        m.optimize()
        print(m.ObjVal, x.X, y.X)
        z = m.addVars(3, name="z")
        m.addConstrs((z[i] <= 1 for i in range(3)), name="c")
        total = vp.quicksum(z[i] for i in range(3))
        m.Params.TimeLimit = 10
        m.setParam("OutputFlag", 0)
        m.setParam("LogFile", "run.log")
        # Arguments that take more than one kind of value must not be flagged.
        limit: vp.TempConstr = x <= 3
        m.addConstr(limit)
        w = m.addVars(2, lb=[0.0, 1.0], ub={0: 2.0, 1: 3.0}, name=["a", "b"])
        w.prod({0: 2.0, 1: 1.0})
        m.addLConstr(x + y, VLM.LESS_EQUAL, 4)
        m.addLConstr(x, "<", y)
        m.setObjective(x, sense=VLM.MINIMIZE)
        """))
    (tmp_path / "bad.py").write_text(textwrap.dedent("""\
        import velmorpy as vp

        m = vp.Model("plan")
        x = m.addVar(lb="zero")
        m.addVar(name=3)
        c: vp.Constr = m.addVar()
        vp.read(42)
        m.optimize(7, 8)
        """))
    good = run(["mypy", "--no-incremental", "--cache-dir", os.devnull, "good.py"], tmp_path)
    assert good.returncode == 0, good.stdout
    bad = run(["mypy", "--no-incremental", "--cache-dir", os.devnull, "bad.py"], tmp_path)
    assert bad.returncode == 1
    flagged = {int(line.split(":")[1]) for line in bad.stdout.splitlines() if ": error:" in line}
    assert flagged == {4, 5, 6, 7, 8}, bad.stdout
    assert 'Argument "lb" to "addVar" of "Model" has incompatible type "str"; expected "float"' in bad.stdout
