"""The runnable examples in examples/: each runs to its end and reports the optimum a model
written another way gives."""
import pathlib
import re
import subprocess
import sys

import pytest

import velmorpy as vp
from velmorpy import VLM

EXAMPLES = pathlib.Path(__file__).resolve().parents[2] / "examples"

pytestmark = pytest.mark.skipif(not EXAMPLES.is_dir(), reason="needs the source tree")


def run(name):
    out = subprocess.run([sys.executable, str(EXAMPLES / name)], capture_output=True, text=True,
                         timeout=120)
    assert out.returncode == 0, out.stderr
    return out.stdout


@pytest.mark.parametrize("name, first_line", [
    ("production.py", "Best weekly profit: 2475"),
    ("knapsack.py", "Value 160 with weight 34 of 35: food, water, camera, lamp"),
    ("transport.py", "Least total cost: 1707.50"),
    ("parameters.py", re.compile(r"Velmor \d+\.\d+\.\d+ on \w+")),
])
def test_example_runs_and_reports(name, first_line):
    line = run(name).splitlines()[0]
    if isinstance(first_line, str):
        assert line == first_line
    else:
        assert first_line.fullmatch(line)


def test_facility_example_matches_its_big_m_twin():
    # The example keeps indicators and an SOS1 set as written; the twin states the same logic
    # with hand-written rows: ship <= capacity * open, and open_centre + open_east <= 1.
    reported = float(run("facility.py").splitlines()[0].rsplit(" ", 1)[1])
    source = (EXAMPLES / "facility.py").read_text()
    data = source[source.index("depots, fixed_cost"):source.index("with vp.Env")]
    scope = {"vp": vp}
    exec(data, scope)
    depots, customers = scope["depots"], scope["customers"]
    capacity, demand = scope["capacity"], scope["demand"]
    with vp.Env(params={"OutputFlag": 0}) as env, vp.Model(env=env) as m:
        open_ = m.addVars(depots, vtype=VLM.BINARY)
        ship = m.addVars(depots, customers)
        m.addConstrs(ship.sum("*", j) == demand[j] for j in customers)
        m.addConstrs(ship.sum(i, "*") <= capacity[i] * open_[i] for i in depots)
        m.addConstr(open_["centre"] + open_["east"] <= 1)
        m.setObjective(open_.prod(scope["fixed_cost"]) + ship.prod(scope["ship_cost"]))
        m.optimize()
        assert m.Status == VLM.OPTIMAL
        assert reported == pytest.approx(m.ObjVal, abs=0.5)


def test_portfolio_example_matches_an_independent_solver():
    # The same model solved by SciPy's SLSQP from several starts: the best expected return
    # agrees with ours to the approximation tolerance.
    from scipy.optimize import minimize
    np = pytest.importorskip("numpy")
    reported = float(run("portfolio.py").splitlines()[0].rsplit(" ", 1)[1])
    source = (EXAMPLES / "portfolio.py").read_text()
    scope = {"np": np}
    exec(source[source.index("mu = "):source.index("with vp.Env")], scope)
    mu, sigma, limit = scope["mu"], scope["sigma"], scope["max_variance"]
    best = -np.inf
    for start in np.eye(5) * 0.5 + 0.1:
        r = minimize(lambda w: -mu @ w, start / start.sum(), method="SLSQP", bounds=[(0, None)] * 5,
                     constraints=[{"type": "eq", "fun": lambda w: w.sum() - 1},
                                  {"type": "ineq", "fun": lambda w: limit - w @ sigma @ w}],
                     options={"ftol": 1e-12, "maxiter": 500})
        if r.success:
            best = max(best, -r.fun)
    assert reported == pytest.approx(best, abs=1e-4)
