"""The velmor_cl command-line solver, run through the module's console entry point."""
import os
import pathlib
import subprocess
import sys

import pytest

import velmorpy

DATA = pathlib.Path(__file__).parents[2] / "data"
BINARY = pathlib.Path(velmorpy.__file__).parent / "libvelmor" / "velmor_cl"
pytestmark = pytest.mark.skipif(not BINARY.exists(), reason="velmor_cl is installed with the package only")


def run_cl(*args):
    code = "import sys, velmorpy; sys.argv = ['velmor_cl'] + sys.argv[1:]; velmorpy._cl_main()"
    return subprocess.run([sys.executable, "-c", code, *args], capture_output=True, text=True)


def test_solves_a_file_and_writes_the_result(tmp_path):
    result = tmp_path / "out.sol"
    out = run_cl("OutputFlag=0", f"ResultFile={result}", str(DATA / "glpk_transport.lp"))
    assert out.returncode == 0, out.stderr
    assert "Status: OPTIMAL" in out.stdout
    assert "Objective value: 1707.5" in out.stdout
    assert result.read_text().startswith("# Solution for model tr\n# Objective value = 1707.5\n")


def test_reports_bad_parameters_and_files():
    out = run_cl("TimeLimt=3", str(DATA / "glpk_transport.lp"))
    assert out.returncode == 1
    assert "Unknown parameter 'TimeLimt'" in out.stderr
    out = run_cl(os.devnull + ".mps")
    assert out.returncode == 1 and "Unable to open file" in out.stderr
