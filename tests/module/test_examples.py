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


def example_data(name, start, end="with vp.Env", **scope):
    """Runs the data part of an example (from `start` up to `end`) and returns its names."""
    source = (EXAMPLES / name).read_text()
    exec(source[source.index(start):source.index(end)], scope)
    return scope


@pytest.mark.parametrize("name, first_line", [
    # Concave purchase cost: A's 100 t cost 500 + 8*50 = 900; B's other 20 t cost 9*20 + 40 =
    # 220. The other corner, A 40 t (400) and B 80 t (760), totals 1160; 1120 is the least.
    ("piecewise.py", "Least cost: 1120.00"),
    # The smallest circle around a right triangle has the hypotenuse (5) as its diameter; the
    # points (1, 1) and (2, 2) lie inside it.
    ("cone.py", "Smallest radius: 2.500000"),
])
def test_examples_with_optima_known_by_hand(name, first_line):
    assert run(name).splitlines()[0] == first_line


def test_functions_example_is_within_the_approximation_error():
    # Yearly cost 20000 / q + q is least at q = sqrt(20000): 2 sqrt(20000) = 282.8427. The
    # reciprocal is approximated to FuncPieceError 1e-5, worth 20000 * 1e-5 = 0.2 of cost.
    lines = run("functions.py").splitlines()
    assert float(lines[0].rsplit(" ", 1)[1]) == pytest.approx(2 * 20000 ** 0.5, abs=0.2)
    q = float(re.search(r"order ([\d.]+) units", lines[1]).group(1))
    assert 20000 / q + q == pytest.approx(2 * 20000 ** 0.5, abs=0.2)


def test_cone_example_finds_the_centre_of_the_hypotenuse():
    centre = run("cone.py").splitlines()[1]
    x, y = (float(v) for v in re.fullmatch(r"\s*centre \((.*), (.*)\)", centre).groups())
    assert (x, y) == (pytest.approx(2.0, abs=1e-4), pytest.approx(1.5, abs=1e-4))


def test_diet_example_matches_scipy_linprog():
    from scipy.optimize import linprog
    d = example_data("diet.py", "# nutrient:", vp=vp, VLM=VLM)
    foods, nutrients, content = d["foods"], d["nutrients"], d["content"]
    # least <= content @ buy <= most, as two blocks of <= rows (infinite bounds dropped)
    rows, rhs = [], []
    for n in nutrients:
        coef = [content[f, n] for f in foods]
        if d["most"][n] < VLM.INFINITY:
            rows.append(coef), rhs.append(d["most"][n])
        if d["least"][n] > 0:
            rows.append([-c for c in coef]), rhs.append(-d["least"][n])
    ref = linprog([d["price"][f] for f in foods], A_ub=rows, b_ub=rhs, method="highs-ipm")
    assert ref.status == 0
    reported = float(run("diet.py").splitlines()[0].rsplit(" ", 1)[1])
    assert reported == pytest.approx(ref.fun, abs=1e-4)


def test_sudoku_example_fills_a_valid_grid_keeping_the_givens():
    lines = run("sudoku.py").splitlines()
    assert lines[0] == "Solved:"
    grid = lines[1:10]
    puzzle = example_data("sudoku.py", "puzzle =", "cells =")["grid"]
    digits = set("123456789")
    assert all(set(row) == digits for row in grid)
    assert all({row[c] for row in grid} == digits for c in range(9))
    assert all({grid[r][c] for r in range(br, br + 3) for c in range(bc, bc + 3)} == digits
               for br in (0, 3, 6) for bc in (0, 3, 6))
    assert all(puzzle[r][c] in (".", grid[r][c]) for r in range(9) for c in range(9))


def test_workforce_example_reports_the_shortage_and_its_cost():
    lines = run("workforce.py").splitlines()
    assert lines[0] == "Status: infeasible"
    # The shifts need 3 + 2 + 4 + 2 + 3 = 14 workers; the workers can give 3 + 2 + 3 + 2 = 10
    # shifts, so 4 are missing, and filling the other 10 uses every worker fully:
    # 3*10 + 2*12 + 3*10 + 2*8 = 100.
    assert lines[2] == "Fewest missing workers: 4, at a cost of 100"
    staffed = [re.fullmatch(r"\s+\w+: .* \((\d) of (\d)\)", line).groups() for line in lines[3:]]
    assert len(staffed) == 5
    assert all(int(got) <= int(need) for got, need in staffed)
    assert sum(int(got) for got, _ in staffed) == 10


def test_workforce_example_reports_an_irreducible_subsystem():
    # The example prints the IIS's rows. Rebuilt from the printed rows and the bounds flagged
    # as members (every other bound infinite, integrality kept), the subsystem must be
    # infeasible, and feasible once any one member is dropped.
    d = example_data("workforce.py", "shifts, need", vp=vp, VLM=VLM)
    conflict = run("workforce.py").splitlines()[1].split(": ", 1)[1].split(", ")
    with vp.Env(params={"OutputFlag": 0}) as env, vp.Model(env=env) as full:
        work = full.addVars(d["available"], vtype=VLM.BINARY, name="work")
        full.addConstrs((work.sum("*", s) == d["need"][s] for s in d["shifts"]), name="cover")
        full.addConstrs((work.sum(w, "*") <= d["most"][w] for w in d["workers"]), name="limit")
        full.computeIIS()
        assert conflict == [c.ConstrName for c in full.getConstrs() if c.IISConstr]
        lbs = {k for k, v in work.items() if v.IISLB}
        ubs = {k for k, v in work.items() if v.IISUB}
    members = conflict + [("lb", k) for k in lbs] + [("ub", k) for k in ubs]
    for dropped in [None] + members:
        with vp.Env(params={"OutputFlag": 0}) as env, vp.Model(env=env) as m:
            x = {k: m.addVar(vtype=VLM.INTEGER,
                             lb=0 if k in lbs and ("lb", k) != dropped else -VLM.INFINITY,
                             ub=1 if k in ubs and ("ub", k) != dropped else VLM.INFINITY)
                 for k in d["available"]}
            for s in d["shifts"]:
                if f"cover[{s}]" in conflict and f"cover[{s}]" != dropped:
                    m.addConstr(vp.quicksum(x[w, s] for w, _ in d["available"].select("*", s))
                                == d["need"][s])
            for w in d["workers"]:
                if f"limit[{w}]" in conflict and f"limit[{w}]" != dropped:
                    m.addConstr(vp.quicksum(x[w, s] for _, s in d["available"].select(w, "*"))
                                <= d["most"][w])
            m.optimize()
            assert m.Status == (VLM.INFEASIBLE if dropped is None else VLM.OPTIMAL), dropped


def test_matrix_example_matches_scipy_linprog():
    from scipy.optimize import linprog
    np = pytest.importorskip("numpy")
    import scipy.sparse as sp
    d = example_data("matrix_lp.py", "rng =", np=np, sp=sp)
    A = sp.vstack([d["S"], -d["D"]])
    b = np.concatenate([d["supply"], -d["demand"]])
    ref = linprog(d["cost"].reshape(-1), A_ub=A, b_ub=b, method="highs-ipm")
    assert ref.status == 0
    lines = run("matrix_lp.py").splitlines()
    assert float(lines[0].rsplit(" ", 1)[1]) == pytest.approx(ref.fun, abs=1e-3)
    loads = [float(v) for v in re.search(r"\[(.*)\]", lines[2]).group(1).split(", ")]
    assert all(load <= s + 0.05 for load, s in zip(loads, d["supply"]))
    assert sum(loads) == pytest.approx(d["demand"].sum(), abs=0.3)


def test_multiobjective_example_matches_an_enumeration():
    # Every integer plan with the least overtime it needs: profit first, then, among plans
    # within 5% of the best profit, the least overtime.
    import itertools
    d = example_data("multiobjective.py", "products, profit", vp=vp)
    prods, profit, hours = d["products"], d["profit"], d["hours"]
    plans = []
    for counts in itertools.product(range(6), repeat=len(prods)):
        over = max(0, sum(hours[p] * n for p, n in zip(prods, counts)) - d["regular_hours"])
        if over <= 10:
            plans.append((sum(profit[p] * n for p, n in zip(prods, counts)) - 10 * over, over))
    best = max(p for p, _ in plans)
    least_over = min(o for p, o in plans if p >= best - 0.05 * abs(best) - 1e-9)
    lines = run("multiobjective.py").splitlines()
    assert lines[1] == f"minus overtime: {-least_over:g}"
    assert float(lines[0].split(": ")[1]) >= best - 0.05 * abs(best) - 1e-6
