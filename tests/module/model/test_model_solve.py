"""Solving from Python: optimum values read as attributes, statuses of infeasible models,
terminate() from another thread, and the interpreter lock released during the solve."""
import pathlib
import random
import subprocess
import sys
import threading
import time

import pytest

import velmorpy as vp
from velmorpy import VLM, VelmorError


def read_lp(tmp_path, text, name="m.lp"):
    path = tmp_path / name
    path.write_text(text)
    m = vp.read(str(path))
    m.Params.OutputFlag = 0
    return m


# max 3x + 2y  s.t.  x + y <= 4,  x + 3y <= 9,  x <= 3:  optimum x = 3, y = 1, value 11.
PRODUCTION = """Maximize
 obj: 3 x + 2 y
Subject To
 c1: x + y <= 4
 c2: x + 3 y <= 9
Bounds
 x <= 3
End
"""


def test_lp_optimum_and_duals(tmp_path):
    m = read_lp(tmp_path, PRODUCTION)
    m.optimize()
    assert m.Status == VLM.OPTIMAL
    assert m.ObjVal == pytest.approx(11.0)
    x, y = m.getVars()
    assert (x.X, y.X) == (pytest.approx(3.0), pytest.approx(1.0))
    c1, c2 = m.getConstrs()
    # c1 binds (dual 2 = y's profit); x's reduced cost is 3 - 2 = 1 at its upper bound.
    assert c1.Pi == pytest.approx(2.0)
    assert c2.Slack == pytest.approx(3.0)
    assert x.RC == pytest.approx(1.0)
    assert m.getAttr("X", m.getVars()) == [pytest.approx(3.0), pytest.approx(1.0)]
    assert m.ConstrVio <= 1e-9 and m.BoundVio <= 1e-9


def test_mip_from_a_file_written_by_another_program(tmp_path):
    # glpsol's transportation model: its optimum is 1707.5.
    m = vp.read(str(pathlib.Path(__file__).parents[2] / "data" / "glpk_transport.lp"))
    m.Params.OutputFlag = 0
    m.optimize()
    assert m.Status == VLM.OPTIMAL
    assert m.ObjVal == pytest.approx(1707.5)


def test_infeasible_model_has_no_values(tmp_path):
    m = read_lp(tmp_path, "Minimize\n obj: x\nSubject To\n c: x >= 5\nBounds\n x <= 1\nEnd\n")
    m.optimize()
    assert m.Status in (VLM.INFEASIBLE, VLM.INF_OR_UNBD)
    with pytest.raises(AttributeError, match="Unable to retrieve attribute 'X'"):
        m.getVars()[0].X
    with pytest.raises(AttributeError, match="ObjVal") as info:
        m.ObjVal
    # The name is known, so the printed traceback must not suggest another attribute.
    code = ("import velmorpy as vp\n"
            "m = vp.Model(env=vp.Env(params={'OutputFlag': 0}))\n"
            "x = m.addVar(ub=1)\nm.addConstr(x >= 5)\nm.optimize()\nm.ObjVal\n")
    out = subprocess.run([sys.executable, "-c", code], capture_output=True, text=True)
    assert out.stderr.splitlines()[-1] == "AttributeError: Unable to retrieve attribute 'ObjVal'"


# An SOS1 over two variables without upper bounds has no big-M: the search branches on the set
# itself. min x + y with x + y >= 1 and at most one nonzero: 1, with one of them at 0.
def test_sos_without_bounds_is_branched_on(tmp_path):
    m = read_lp(tmp_path, "Minimize\n obj: x + y\nSubject To\n c: x + y >= 1\n"
                          "SOS\n s1: S1 :: x:1 y:2\nEnd\n")
    m.optimize()
    x, y = m.getVars()
    assert m.Status == VLM.OPTIMAL and m.ObjVal == pytest.approx(1.0)
    assert min(abs(x.X), abs(y.X)) <= 1e-9 and x.X + y.X >= 1 - 1e-6


def test_callback_must_be_a_plain_function(tmp_path):
    m = read_lp(tmp_path, PRODUCTION)

    class Holder:
        def cb(self, model, where):
            pass

    with pytest.raises(VelmorError, match="Callback argument must be a function"):
        m.optimize(Holder().cb)


def market_split_lp(n=40, rows=4, seed=7):
    rnd = random.Random(seed)
    lines = ["Minimize", " obj: 0 x0", "Subject To"]
    for i in range(rows):
        coefs = [rnd.randrange(100) for _ in range(n)]
        terms = " + ".join(f"{c} x{j}" for j, c in enumerate(coefs))
        lines.append(f" r{i}: {terms} = {sum(coefs) // 2}")
    lines += ["Binaries", " " + " ".join(f"x{j}" for j in range(n)), "End", ""]
    return "\n".join(lines)


def test_terminate_from_another_thread_and_threads_keep_running(tmp_path):
    m = read_lp(tmp_path, market_split_lp())
    m.Params.TimeLimit = 60
    ticks = []
    stop_ticking = threading.Event()

    def ticker():
        while not stop_ticking.is_set():
            ticks.append(time.perf_counter())
            time.sleep(0.01)

    def stopper():
        time.sleep(0.5)
        m.terminate()

    threads = [threading.Thread(target=ticker), threading.Thread(target=stopper)]
    for t in threads:
        t.start()
    start = time.perf_counter()
    m.optimize()
    elapsed = time.perf_counter() - start
    stop_ticking.set()
    for t in threads:
        t.join()
    assert m.Status == VLM.INTERRUPTED
    assert elapsed < 1.5
    # The ticker ran while the solve held no interpreter lock.
    assert sum(1 for t in ticks if start < t < start + elapsed) > 10


def test_a_solving_model_cannot_be_disposed(tmp_path):
    m = read_lp(tmp_path, market_split_lp(seed=3))
    m.Params.TimeLimit = 60
    errors = []

    def disposer():
        time.sleep(0.3)
        try:
            m.dispose()
        except VelmorError as e:
            errors.append(e.errno)
        m.terminate()

    t = threading.Thread(target=disposer)
    t.start()
    m.optimize()
    t.join()
    assert errors == [VLM.ERROR_OPTIMIZATION_IN_PROGRESS]
    assert m.Status == VLM.INTERRUPTED
    m.dispose()


def test_results_read_during_a_solve_say_the_solve_is_running(tmp_path):
    m = read_lp(tmp_path, market_split_lp(seed=5))
    m.Params.TimeLimit = 60
    x = m.getVars()[0]
    seen = []

    def reader():
        time.sleep(0.3)
        for read in (lambda: m.NumVars, lambda: x.X, lambda: m.getAttr("X", [x])):
            try:
                read()
                seen.append("read")
            except (AttributeError, VelmorError) as e:
                seen.append((type(e).__name__, str(e)))
        m.terminate()

    t = threading.Thread(target=reader)
    t.start()
    m.optimize()
    t.join()
    text = "Must stop optimization to query results"
    assert seen == [("AttributeError", text), ("AttributeError", text), ("VelmorError", text)]
    assert m.Status == VLM.INTERRUPTED


def test_objective_round_trip_and_quadratic_solve(tmp_path):
    m = read_lp(tmp_path, PRODUCTION)
    x, y = m.getVars()
    assert str(m.getObjective()) == "3.0 x + 2.0 y"
    # min (x-2)^2 + (y-3)^2 - 12 = x^2 + y^2 - 4x - 6y + 1 with x + y <= 4: the projection of
    # (2, 3) onto x + y = 4 is (1.5, 2.5), value 0.5 - 12 = -11.5.
    m.setObjective(x * x + y * y - 4 * x - 6 * y + 1, VLM.MINIMIZE)
    m.update()
    obj = m.getObjective()
    assert isinstance(obj, vp.QuadExpr)
    assert str(obj) == "1.0 + -4.0 x + -6.0 y + [ x ^ 2 + y ^ 2 ]"
    assert m.ModelSense == VLM.MINIMIZE
    m.optimize()
    assert m.ObjVal == pytest.approx(-11.5, abs=1e-6)
    assert (x.X, y.X) == (pytest.approx(1.5, abs=1e-5), pytest.approx(2.5, abs=1e-5))


def test_objective_errors_leave_the_objective(tmp_path):
    m = read_lp(tmp_path, PRODUCTION)
    other = read_lp(tmp_path, PRODUCTION, "other.lp")
    ox = other.getVars()[0]
    with pytest.raises(VelmorError) as info:
        m.setObjective(2 * ox)
    assert info.value.errno == VLM.ERROR_NOT_IN_MODEL and str(info.value) == "Variable not in model"
    with pytest.raises(VelmorError, match="sense"):
        m.setObjective(m.getVars()[0], 7)
    # Anything that is not an expression is refused as LinExpr.add refuses it.
    for bad, shown in (("a", "<class 'str'>"), (None, "<class 'NoneType'>"),
                       (m.getVars()[0] <= 1, "<class 'velmorpy.TempConstr'>")):
        with pytest.raises(VelmorError) as info:
            m.setObjective(bad)
        assert info.value.errno == VLM.ERROR_INVALID_ARGUMENT
        assert str(info.value) == f"Unsupported type ({shown}) for LinExpr addition argument"
    x, y = m.getVars()
    with pytest.raises(VelmorError, match="linear"):
        m.setObjectiveN(x * y, 0)
    m.update()
    assert str(m.getObjective()) == "3.0 x + 2.0 y"


def test_multiple_objectives_are_stored_and_solved(tmp_path):
    m = read_lp(tmp_path, PRODUCTION)
    x, y = m.getVars()
    m.setObjectiveN(x + 2 * y + 1, 0, priority=2, name="first")
    m.setObjectiveN(-y, 1, weight=0.5)
    m.setPWLObj(x, [0, 1, 3], [0, 2, 3])
    m.update()
    assert m.NumObj == 2
    first = m.getObjective(0)
    assert str(first) == "1.0 + x + 2.0 y"
    assert m.ObjNPriority == 2 and m.ObjNName == "first"
    assert str(m.getObjective(1)) == "-1.0 y"
    assert m.getPWLObj(x) == [(0.0, 0.0), (1.0, 2.0), (3.0, 3.0)]
    assert m.getPWLObj(y) == []
    # The ObjN list replaces the primary objective (and its PWL term). Priority 2 first:
    # max x + 2y over the production polytope is 6.5 at (1.5, 2.5), objective 0 = 7.5; then
    # max -y/2 keeping x + 2y >= 6.5 - 1e-6 with x + y <= 4 needs y >= 2.5: the same point.
    m.optimize()
    assert m.Status == VLM.OPTIMAL
    assert (x.X, y.X) == (pytest.approx(1.5), pytest.approx(2.5))
    m.Params.ObjNumber = 0
    assert m.ObjNVal == pytest.approx(7.5)
    m.Params.ObjNumber = 1
    assert m.ObjNVal == pytest.approx(-2.5)
    assert m.ObjVal == pytest.approx(7.5)


def test_tuning_is_not_available_and_batches_need_a_service(tmp_path):
    m = read_lp(tmp_path, PRODUCTION)
    with pytest.raises(VelmorError) as info:
        m.getTuneResult(0)
    assert info.value.errno == VLM.ERROR_DATA_NOT_AVAILABLE
    with pytest.raises(VelmorError) as info:
        m.optimizeBatch()
    assert info.value.errno == VLM.ERROR_INVALID_ARGUMENT and "CSManager" in str(info.value)
