"""velmor_cl, the command-line solver: options, parameters, every model file format the readers
take, result files, and the exit statuses scripts rely on. Runs the built binary: the installed
one (velmorpy/libvelmor/velmor_cl) or, when velmorpy is imported from a build tree, that tree's
lib/velmor_cl."""
import gzip
import json
import os
import pathlib
import subprocess
import sys

import pytest

import velmorpy as vp
from velmorpy import VLM

PACKAGE = pathlib.Path(vp.__file__).parent
CANDIDATES = [PACKAGE / "libvelmor" / "velmor_cl", PACKAGE.parent.parent / "lib" / "velmor_cl"]
BINARY = next((p for p in CANDIDATES if p.exists()), None)
if BINARY is None:
    pytest.fail(f"velmor_cl not found at {', '.join(map(str, CANDIDATES))}", pytrace=False)

# max 3x + 2y  s.t.  x + y <= 4,  x + 3y <= 6,  x <= 3,  x, y >= 0 integer.
# x = 3 leaves y <= 1 from the first row: 3*3 + 2*1 = 11; x = 2 allows y <= 1.33 (so 1): 8;
# the optimum is 11 at (3, 1).
SMALL_LP = """Maximize
 obj: 3 x + 2 y
Subject To
 c1: x + y <= 4
 c2: x + 3 y <= 6
Bounds
 x <= 3
Generals
 x y
End
"""
INFEASIBLE_LP = "Minimize\n obj: x\nSubject To\n c1: x >= 5\nBounds\n x <= 3\nEnd\n"
UNBOUNDED_LP = "Maximize\n obj: x + y\nSubject To\n c1: x - y <= 1\nEnd\n"


def run(*args, env=None):
    e = dict(os.environ)
    # The binary is not started by Python: tell the loader where highsbox keeps HiGHS, as the
    # velmor_cl entry point does.
    e["LD_LIBRARY_PATH"] = vp._HIGHS_LIB_DIR
    e.update(env or {})
    return subprocess.run([str(BINARY), *map(str, args)], capture_output=True, text=True, env=e,
                          timeout=60)


@pytest.fixture
def small(tmp_path):
    path = tmp_path / "small.lp"
    path.write_text(SMALL_LP)
    return path


class TestOptions:
    def test_help_documents_usage_formats_and_exit_statuses(self):
        out = run("--help")
        assert out.returncode == 0 and out.stderr == ""
        assert out.stdout.startswith("Usage: velmor_cl [--help] [--version] [Param=value ...] modelfile\n")
        for line in ["  0  solved to optimality", "  1  command-line error", "  2  the model file could not",
                     "  3  no optimum exists", "  4  stopped early", "  5  the solve or writing"]:
            assert line in out.stdout
        assert ".mps, .rew, .lp, .rlp" in out.stdout
        assert run("-h").stdout == out.stdout

    def test_version_is_the_library_version(self):
        out = run("--version")
        assert out.returncode == 0
        assert out.stdout.startswith(f"velmor_cl {vp.__version__} (")

    def test_command_line_errors_exit_1_with_the_library_message(self, small):
        out = run("TimeLimt=3", small)
        assert out.returncode == 1
        assert "Unknown parameter 'TimeLimt'" in out.stderr
        out = run("TimeLimit=-1", small)
        assert out.returncode == 1
        assert "TimeLimit" in out.stderr and "Error 10008" in out.stderr
        out = run("Threads=two", small)
        assert out.returncode == 1 and "Threads" in out.stderr
        out = run("--fast", small)
        assert out.returncode == 1 and "unknown option '--fast'" in out.stderr
        out = run("OutputFlag=0")
        assert out.returncode == 1 and "no model file given" in out.stderr
        out = run(small, small)
        assert out.returncode == 1 and "more than one model file" in out.stderr

    def test_parameters_are_case_insensitive_and_take_effect(self, small):
        # OutputFlag=0 silences the solver log; the summary lines still print.
        quiet = run("outputflag=0", small)
        loud = run(small)
        assert quiet.returncode == loud.returncode == 0
        assert len(quiet.stdout.splitlines()) < len(loud.stdout.splitlines())
        assert "Objective value: 11\n" in quiet.stdout


class TestModelFiles:
    @pytest.mark.parametrize("suffix", [".lp", ".rlp", ".mps", ".rew", ".lp.gz", ".rlp.gz", ".mps.gz", ".rew.gz"])
    def test_every_reader_format_solves_to_the_same_optimum(self, tmp_path, suffix):
        m = vp.read(str(self._source(tmp_path)))
        path = tmp_path / f"model{suffix}"
        m.write(str(path))
        if suffix.endswith(".gz"):
            with gzip.open(path) as f:
                f.read()  # really compressed
        out = run("OutputFlag=0", path)
        assert out.returncode == 0, out.stderr
        assert "Status: OPTIMAL\nObjective value: 11\n" in out.stdout

    @staticmethod
    def _source(tmp_path):
        p = tmp_path / "source.lp"
        p.write_text(SMALL_LP)
        return p

    def test_unreadable_files_exit_2(self, tmp_path):
        out = run(tmp_path / "missing.mps")
        assert out.returncode == 2 and "Unable to open file" in out.stderr
        bad = tmp_path / "bad.lp"
        bad.write_text("Maximize\n obj: 3 x +\nSubject To\n c1: x <= \nEnd\n")
        out = run(bad)
        assert out.returncode == 2 and "bad.lp" in out.stderr
        out = run(tmp_path / "model.txt")
        assert out.returncode == 2 and "Unknown file type for file" in out.stderr


class TestResultFiles:
    def test_solution_file(self, tmp_path, small):
        sol = tmp_path / "out.sol"
        out = run("OutputFlag=0", f"ResultFile={sol}", small)
        assert out.returncode == 0, out.stderr
        assert f"Wrote result file '{sol}'" in out.stdout
        lines = sol.read_text().splitlines()
        assert lines[1] == "# Objective value = 11"
        assert {"x 3", "y 1"} <= set(lines)

    def test_json_solution_and_compressed_solution(self, tmp_path, small):
        js = tmp_path / "out.json"
        assert run("OutputFlag=0", f"ResultFile={js}", small).returncode == 0
        data = json.loads(js.read_text())
        assert data["SolutionInfo"]["ObjVal"] == 11
        gz = tmp_path / "out.sol.gz"
        assert run("OutputFlag=0", f"ResultFile={gz}", small).returncode == 0
        assert "# Objective value = 11" in gzip.open(gz, "rt").read()

    @pytest.mark.parametrize("suffix", [".mps", ".lp.gz"])
    def test_model_result_reads_back_with_the_same_optimum(self, tmp_path, small, suffix):
        path = tmp_path / f"copy{suffix}"
        assert run("OutputFlag=0", f"ResultFile={path}", small).returncode == 0
        m = vp.read(str(path))
        m.Params.OutputFlag = 0
        m.optimize()
        assert m.Status == VLM.OPTIMAL and m.ObjVal == pytest.approx(11)

    def test_unwritable_result_exits_5(self, tmp_path, small):
        out = run("OutputFlag=0", f"ResultFile={tmp_path / 'no' / 'such' / 'dir.sol'}", small)
        assert out.returncode == 5
        assert "Status: OPTIMAL" in out.stdout and "dir.sol" in out.stderr

    def test_unknown_result_format_is_refused_when_set(self, tmp_path, small):
        out = run("OutputFlag=0", f"ResultFile={tmp_path / 'out.xyz'}", small)
        assert out.returncode in (1, 5)
        assert "out.xyz" in out.stderr


class TestExitStatus:
    def test_no_optimum_exits_3(self, tmp_path):
        inf = tmp_path / "inf.lp"
        inf.write_text(INFEASIBLE_LP)
        out = run("OutputFlag=0", inf)
        assert out.returncode == 3 and "Status: INFEASIBLE" in out.stdout
        unb = tmp_path / "unb.lp"
        unb.write_text(UNBOUNDED_LP)
        out = run("OutputFlag=0", unb)
        assert out.returncode == 3
        assert "Status: UNBOUNDED" in out.stdout or "Status: INF_OR_UNBD" in out.stdout

    def test_a_limit_exits_4(self, tmp_path, small):
        out = run("OutputFlag=0", "TimeLimit=0", small)
        assert out.returncode == 4, out.stdout + out.stderr
        assert "Status: TIME_LIMIT" in out.stdout


@pytest.mark.skipif(not (PACKAGE / "libvelmor" / "velmor_cl").exists(),
                    reason="the console entry point runs the installed binary only")
def test_console_entry_point_runs_the_binary(small):
    # The velmor_cl console script calls velmorpy._cl_main, which hands over to the binary.
    code = "import sys, velmorpy; sys.argv = ['velmor_cl'] + sys.argv[1:]; velmorpy._cl_main()"
    env = {k: v for k, v in os.environ.items() if k != "LD_LIBRARY_PATH"}
    out = subprocess.run([sys.executable, "-c", code, "OutputFlag=0", str(small)], capture_output=True,
                         text=True, env=env, timeout=60)
    assert out.returncode == 0, out.stderr
    assert "Objective value: 11\n" in out.stdout
