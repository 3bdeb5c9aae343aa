"""The wheel from scripts/build_wheel.sh installs and solves in layouts other than the build
machine's: a fresh virtual environment (velmorpy in its prefix, highsbox in the base
interpreter's), pip's --target and --prefix directories. Set VELMOR_WHEEL to the wheel's path
(.ci/run does)."""
import os
import pathlib
import subprocess
import sys
import zipfile

import pytest

WHEEL = os.environ.get("VELMOR_WHEEL")
pytestmark = pytest.mark.skipif(not WHEEL, reason="set VELMOR_WHEEL to a wheel built by scripts/build_wheel.sh")

# max 3x + 4y  s.t.  x + 2y <= 7,  0 <= x <= 4,  y >= 0 integer: x = 4 leaves 2y <= 3, so y = 1
# and 12 + 4 = 16; x = 3, y = 2 gives 17, and x = 1, y = 3 gives 15: the optimum is 17.
SOLVE = """
import velmorpy as vp
from velmorpy import VLM
m = vp.Model(env=vp.Env(params={"OutputFlag": 0}))
x = m.addVar(ub=4)
y = m.addVar(vtype=VLM.INTEGER)
m.addConstr(x + 2 * y <= 7)
m.setObjective(3 * x + 4 * y, VLM.MAXIMIZE)
m.optimize()
print(round(m.ObjVal, 6))
print(vp.__file__)
"""
LP = "Maximize\n obj: 3 x + 4 y\nSubject To\n c: x + 2 y <= 7\nBounds\n x <= 4\nGenerals\n y\nEnd\n"


def sh(*args, env=None, cwd=None):
    e = {k: v for k, v in os.environ.items() if k not in ("PYTHONPATH", "LD_LIBRARY_PATH")}
    e.update(env or {})
    out = subprocess.run([str(a) for a in args], capture_output=True, text=True, env=e, cwd=cwd,
                         timeout=300)
    assert out.returncode == 0, out.stdout + out.stderr
    return out.stdout


def solves_from(python, where, tmp_path, env=None):
    lines = sh(python, "-c", SOLVE, env=env, cwd=tmp_path).splitlines()
    assert lines[0] == "17.0"
    assert pathlib.Path(lines[1]).resolve().is_relative_to(pathlib.Path(where).resolve())


def test_wheel_contents():
    names = zipfile.ZipFile(WHEEL).namelist()
    assert "manylinux" in pathlib.Path(WHEEL).name
    assert any(n.endswith(".dist-info/licenses/LICENSE") for n in names)
    assert "velmorpy/__init__.py" in names and "velmorpy/__init__.pyi" in names
    assert "velmorpy/py.typed" in names and "velmorpy/libvelmor/velmor_cl" in names
    assert not any("libhighs" in n for n in names)  # highsbox provides it


def test_fresh_virtual_environment(tmp_path):
    venv = tmp_path / "venv"
    sh(sys.executable, "-m", "venv", "--system-site-packages", venv)
    python = venv / "bin" / "python"
    sh(python, "-m", "pip", "install", "-q", "--no-deps", "--ignore-installed",
       "--disable-pip-version-check", WHEEL)
    solves_from(python, venv, tmp_path)
    # The console command works there too, with the highsbox of the base interpreter.
    model = tmp_path / "m.lp"
    model.write_text(LP)
    out = sh(venv / "bin" / "velmor_cl", "OutputFlag=0", model)
    assert "Objective value: 17\n" in out


@pytest.mark.parametrize("option", ["--target", "--prefix"])
def test_target_and_prefix_directories(tmp_path, option):
    where = tmp_path / "site"
    sh(sys.executable, "-m", "pip", "install", "-q", "--no-deps", "--ignore-installed",
       "--disable-pip-version-check", option, where, WHEEL)
    if option == "--prefix":
        where = next(where.glob("lib/python*/site-packages"))
    solves_from(sys.executable, where, tmp_path, env={"PYTHONPATH": str(where)})
