"""Where the solver log goes: the console (sys.stdout) and the Python logger "velmorpy".
LogToConsole=0 silences the console only; OutputFlag=0 silences both."""
import logging

import pytest

import velmorpy as vp
from velmorpy import VLM


def solve_small(env):
    # max x + y  s.t.  x + 2y <= 4, 3x + y <= 6: the vertex (1.6, 1.2) gives 2.8.
    m = vp.Model("logged", env=env)
    x = m.addVar(name="x")
    y = m.addVar(name="y")
    m.addConstr(x + 2 * y <= 4)
    m.addConstr(3 * x + y <= 6)
    m.setObjective(x + y, VLM.MAXIMIZE)
    m.optimize()
    assert m.ObjVal == pytest.approx(2.8)
    return m


def records(caplog):
    return [r.getMessage() for r in caplog.records if r.name == "velmorpy"]


@pytest.mark.parametrize("params, console, logger", [
    ({}, True, True),
    ({"LogToConsole": 0}, False, True),
    ({"OutputFlag": 0}, False, False),
    ({"OutputFlag": 0, "LogToConsole": 1}, False, False),
])
def test_console_and_logger(capsys, caplog, params, console, logger):
    caplog.set_level(logging.INFO, logger="velmorpy")
    env = vp.Env(params=params)
    capsys.readouterr()
    caplog.clear()
    solve_small(env)
    out = capsys.readouterr().out
    logged = records(caplog)
    assert bool(out.strip()) == console, out
    assert bool(logged) == logger, logged
    if console and logger:
        # The same lines reach both, the logger without the newline.
        assert out.splitlines() == logged
    env.dispose()


def test_model_parameter_changes_route_the_models_log(capsys, caplog):
    caplog.set_level(logging.INFO, logger="velmorpy")
    env = vp.Env()
    m = vp.Model(env=env)
    m.Params.LogToConsole = 0
    capsys.readouterr()
    caplog.clear()
    x = m.addVar(ub=2)
    m.setObjective(x, VLM.MAXIMIZE)
    m.optimize()
    assert m.ObjVal == 2
    assert capsys.readouterr().out == ""
    assert any("Optimal" in line or "optimal" in line for line in records(caplog)), records(caplog)
    env.dispose()


def test_log_file_is_written_without_console(tmp_path, capsys):
    log = tmp_path / "run.log"
    env = vp.Env(params={"LogToConsole": 0, "LogFile": str(log)})
    capsys.readouterr()
    solve_small(env)
    assert capsys.readouterr().out == ""
    assert log.read_text().strip() != ""
    env.dispose()
