"""Model-building speed of velmorpy against other Python modelling interfaces.

Rows (each built the same way in every interface, with its own idiomatic calls):
  addvars_1m       1,000,000 continuous variables in one call (velmorpy addVars; the other
                   interfaces' bulk call, or a loop where they have none). "highs-arrays" is the
                   floor: the same bounds as NumPy arrays handed to HiGHS in one call.
                   "dict-only" builds just a dict of 1,000,000 int keys over objects made before
                   the clock starts: what returning one handle per variable keyed by 0..n-1
                   costs before any variable exists.
  addvars_2d_1m    1000 x 1000 continuous variables keyed by (i, j) tuples (velmorpy
                   addVars(I, I); the other interfaces' keyed bulk call, or a dict built in a
                   loop). "highs-arrays" is the same floor as above; "dict-only" builds a dict of
                   the 1,000,000 (i, j) keys over objects made before the clock starts.
  constr_100k      100,000 constraints x[i] + y[i] <= 1 added one by one in a loop.
  constrs_100k     the same through a generator expression (velmorpy and highspy addConstrs;
                   a loop over the generator where an interface has no such call).
  transport_1000   a 1000 x 1000 transportation model: 1,000,000 variables, objective
                   sum c[i,j] x[i,j], 1000 supply rows sum_j x[i,j] <= s[i] and 1000 demand rows
                   sum_i x[i,j] >= d[j], all written with quicksum (xsum in python-mip).

Only building is timed (no solve, and not the release of what a build returns); the model itself
is created before the clock starts. Every (row, interface) pair runs in a fresh subprocess so
that interfaces do not share memory or garbage-collector state; within it the row is built
--reps times on fresh models and the best time is reported (slow interfaces stop after a
repetition longer than 5 s).

Run with an interpreter that has the peers installed and velmorpy importable, for example:
    PYTHONPATH=build/mod/module /tmp/benchenv/bin/python benchmarks/build_models.py
Interfaces that cannot be imported are shown as "-".
"""
import argparse
import itertools
import json
import subprocess
import sys
import time

N_VARS = 1_000_000
N_CONSTRS = 100_000
N_SIDE = 1000

ROWS = ["addvars_1m", "addvars_2d_1m", "constr_100k", "constrs_100k", "transport_1000"]
INTERFACES = ["velmorpy", "highs-arrays", "dict-only", "pyoptinterface", "highspy", "python-mip", "pyscipopt"]


def transport_data(n):
    """Deterministic costs, supplies and demands of a balanced n x n transportation model."""
    cost = [[1.0 + (7 * i + 13 * j) % 20 for j in range(n)] for i in range(n)]
    supply = [float(n + i % 7) for i in range(n)]
    demand = [float(n) for _ in range(n)]
    return cost, supply, demand


# ---- velmorpy -------------------------------------------------------------------------------

def velmor_case(row):
    import velmorpy as vp

    env = vp.Env(params={"OutputFlag": 0})

    def new():
        return vp.Model(env=env)

    if row == "addvars_1m":
        def run(m):
            return m.addVars(N_VARS)
    elif row == "addvars_2d_1m":
        I = range(N_SIDE)

        def run(m):
            return m.addVars(I, I)
    elif row == "constr_100k":
        def prepare(m):
            return m.addVars(N_CONSTRS), m.addVars(N_CONSTRS)

        def run(m, xy):
            x, y = xy
            for i in range(N_CONSTRS):
                m.addConstr(x[i] + y[i] <= 1)
        return new, prepare, run
    elif row == "constrs_100k":
        def prepare(m):
            return m.addVars(N_CONSTRS), m.addVars(N_CONSTRS)

        def run(m, xy):
            x, y = xy
            m.addConstrs(x[i] + y[i] <= 1 for i in range(N_CONSTRS))
        return new, prepare, run
    elif row == "transport_1000":
        cost, supply, demand = transport_data(N_SIDE)
        I = range(N_SIDE)

        def run(m):
            x = m.addVars(I, I)
            m.setObjective(vp.quicksum(cost[i][j] * x[i, j] for i in I for j in I))
            m.addConstrs(vp.quicksum(x[i, j] for j in I) <= supply[i] for i in I)
            m.addConstrs(vp.quicksum(x[i, j] for i in I) >= demand[j] for j in I)
    return new, None, run


# ---- HiGHS through highspy: arrays (the floor) and its modelling layer ------------------------

def highs_arrays_case(row):
    if row not in ("addvars_1m", "addvars_2d_1m"):
        return None
    import highspy
    import numpy as np

    def new():
        h = highspy.Highs()
        h.silent()
        return h

    lb = np.zeros(N_VARS)
    ub = np.full(N_VARS, np.inf)

    def run(h):
        return h.addVars(N_VARS, lb, ub)
    return new, None, run


def dict_only_case(row):
    if row not in ("addvars_1m", "addvars_2d_1m"):
        return None
    values = [object() for _ in range(N_VARS)]

    def new():
        return None

    if row == "addvars_2d_1m":
        I = range(N_SIDE)

        def run(_):
            return dict(zip(itertools.product(I, I), values))
        return new, None, run

    def run(_):
        return dict(zip(range(N_VARS), values))
    return new, None, run


def highspy_case(row):
    import highspy

    def new():
        h = highspy.Highs()
        h.silent()
        return h

    if row == "addvars_1m":
        def run(h):
            return h.addVariables(N_VARS)
        return new, None, run
    if row == "addvars_2d_1m":
        def run(h):
            return h.addVariables(range(N_SIDE), range(N_SIDE))
        return new, None, run
    if row in ("constr_100k", "constrs_100k"):
        def prepare(h):
            return h.addVariables(N_CONSTRS), h.addVariables(N_CONSTRS)

        if row == "constr_100k":
            def run(h, xy):
                x, y = xy
                for i in range(N_CONSTRS):
                    h.addConstr(x[i] + y[i] <= 1)
        else:
            def run(h, xy):
                x, y = xy
                h.addConstrs(x[i] + y[i] <= 1 for i in range(N_CONSTRS))
        return new, prepare, run
    cost, supply, demand = transport_data(N_SIDE)
    I = range(N_SIDE)

    def run(h):
        x = h.addVariables(I, I)
        h.setObjective(h.qsum(cost[i][j] * x[i, j] for i in I for j in I))
        h.addConstrs(h.qsum(x[i, j] for j in I) <= supply[i] for i in I)
        h.addConstrs(h.qsum(x[i, j] for i in I) >= demand[j] for j in I)
    return new, None, run


# ---- PyOptInterface (HiGHS backend) ---------------------------------------------------------

def poi_case(row):
    import pyoptinterface as poi
    from pyoptinterface import highs

    highs.autoload_library()

    def new():
        m = highs.Model()
        m.set_model_attribute(poi.ModelAttribute.Silent, True)
        return m

    if row == "addvars_1m":
        def run(m):
            return m.add_variables(range(N_VARS))
        return new, None, run
    if row == "addvars_2d_1m":
        def run(m):
            return m.add_variables(range(N_SIDE), range(N_SIDE))
        return new, None, run
    if row in ("constr_100k", "constrs_100k"):
        def prepare(m):
            return m.add_variables(range(N_CONSTRS)), m.add_variables(range(N_CONSTRS))

        if row == "constr_100k":
            def run(m, xy):
                x, y = xy
                for i in range(N_CONSTRS):
                    m.add_linear_constraint(x[i] + y[i] <= 1)
        else:
            def run(m, xy):
                x, y = xy
                for c in (x[i] + y[i] <= 1 for i in range(N_CONSTRS)):
                    m.add_linear_constraint(c)
        return new, prepare, run
    cost, supply, demand = transport_data(N_SIDE)
    I = range(N_SIDE)

    def run(m):
        x = m.add_variables(I, I)
        m.set_objective(poi.quicksum(cost[i][j] * x[i, j] for i in I for j in I))
        for i in I:
            m.add_linear_constraint(poi.quicksum(x[i, j] for j in I) <= supply[i])
        for j in I:
            m.add_linear_constraint(poi.quicksum(x[i, j] for i in I) >= demand[j])
    return new, None, run


# ---- python-mip (CBC) -----------------------------------------------------------------------

def mip_case(row):
    import mip

    def new():
        m = mip.Model(solver_name=mip.CBC)
        m.verbose = 0
        return m

    if row == "addvars_1m":
        def run(m):
            return [m.add_var() for _ in range(N_VARS)]
        return new, None, run
    if row == "addvars_2d_1m":
        def run(m):
            return {(i, j): m.add_var() for i in range(N_SIDE) for j in range(N_SIDE)}
        return new, None, run
    if row in ("constr_100k", "constrs_100k"):
        def prepare(m):
            return [m.add_var() for _ in range(N_CONSTRS)], [m.add_var() for _ in range(N_CONSTRS)]

        if row == "constr_100k":
            def run(m, xy):
                x, y = xy
                for i in range(N_CONSTRS):
                    m.add_constr(x[i] + y[i] <= 1)
        else:
            def run(m, xy):
                x, y = xy
                for c in (x[i] + y[i] <= 1 for i in range(N_CONSTRS)):
                    m.add_constr(c)
        return new, prepare, run
    cost, supply, demand = transport_data(N_SIDE)
    I = range(N_SIDE)

    def run(m):
        x = {(i, j): m.add_var() for i in I for j in I}
        m.objective = mip.minimize(mip.xsum(cost[i][j] * x[i, j] for i in I for j in I))
        for i in I:
            m.add_constr(mip.xsum(x[i, j] for j in I) <= supply[i])
        for j in I:
            m.add_constr(mip.xsum(x[i, j] for i in I) >= demand[j])
    return new, None, run


# ---- PySCIPOpt ------------------------------------------------------------------------------

def scip_case(row):
    import pyscipopt

    def new():
        m = pyscipopt.Model()
        m.hideOutput()
        return m

    if row == "addvars_1m":
        def run(m):
            return [m.addVar() for _ in range(N_VARS)]
        return new, None, run
    if row == "addvars_2d_1m":
        def run(m):
            return {(i, j): m.addVar() for i in range(N_SIDE) for j in range(N_SIDE)}
        return new, None, run
    if row in ("constr_100k", "constrs_100k"):
        def prepare(m):
            return [m.addVar() for _ in range(N_CONSTRS)], [m.addVar() for _ in range(N_CONSTRS)]

        if row == "constr_100k":
            def run(m, xy):
                x, y = xy
                for i in range(N_CONSTRS):
                    m.addCons(x[i] + y[i] <= 1)
        else:
            def run(m, xy):
                x, y = xy
                for c in (x[i] + y[i] <= 1 for i in range(N_CONSTRS)):
                    m.addCons(c)
        return new, prepare, run
    cost, supply, demand = transport_data(N_SIDE)
    I = range(N_SIDE)

    def run(m):
        x = {(i, j): m.addVar() for i in I for j in I}
        m.setObjective(pyscipopt.quicksum(cost[i][j] * x[i, j] for i in I for j in I))
        for i in I:
            m.addCons(pyscipopt.quicksum(x[i, j] for j in I) <= supply[i])
        for j in I:
            m.addCons(pyscipopt.quicksum(x[i, j] for i in I) >= demand[j])
    return new, None, run


CASES = {
    "velmorpy": velmor_case,
    "highs-arrays": highs_arrays_case,
    "dict-only": dict_only_case,
    "pyoptinterface": poi_case,
    "highspy": highspy_case,
    "python-mip": mip_case,
    "pyscipopt": scip_case,
}


def measure(interface, row, reps):
    """Best time of `reps` builds in this process, or None when the row does not apply."""
    case = CASES[interface](row)
    if case is None:
        return None
    new, prepare, run = case
    best = None
    for _ in range(reps):
        model = new()
        data = prepare(model) if prepare else None
        start = time.perf_counter()
        # What a build returns (the variables) is kept past the clock, as a user keeps it.
        result = run(model, data) if prepare else run(model)
        elapsed = time.perf_counter() - start
        best = elapsed if best is None else min(best, elapsed)
        del result, data, model
        if elapsed > 5.0:
            break
    return best


def child(interface, row, reps):
    try:
        result = {"time": measure(interface, row, reps)}
    except ImportError as e:
        result = {"error": f"not installed ({e.name})"}
    print(json.dumps(result))


def run_child(interface, row, reps):
    proc = subprocess.run([sys.executable, __file__, "--child", interface, row, "--reps", str(reps)],
                          capture_output=True, text=True, timeout=1800)
    try:
        return json.loads(proc.stdout.strip().splitlines()[-1])
    except (IndexError, ValueError):
        return {"error": (proc.stderr.strip().splitlines() or ["failed"])[-1]}


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--reps", type=int, default=3, help="builds per (row, interface); best is shown")
    parser.add_argument("--rows", nargs="*", default=ROWS, choices=ROWS)
    parser.add_argument("--interfaces", nargs="*", default=INTERFACES, choices=INTERFACES)
    parser.add_argument("--child", nargs=2, metavar=("INTERFACE", "ROW"), help=argparse.SUPPRESS)
    args = parser.parse_args()
    if args.child:
        child(args.child[0], args.child[1], args.reps)
        return

    results = {}
    for row in args.rows:
        for interface in args.interfaces:
            results[row, interface] = run_child(interface, row, args.reps)
            print(f"  {row:15s} {interface:15s} {results[row, interface]}", file=sys.stderr, flush=True)

    width = max(len(i) for i in args.interfaces) + 2
    print(f"{'seconds (best of %d)' % args.reps:22s}" + "".join(f"{i:>{width}s}" for i in args.interfaces))
    for row in args.rows:
        cells = []
        for interface in args.interfaces:
            r = results[row, interface]
            t = r.get("time")
            cells.append(f"{t:{width}.3f}" if t is not None else f"{'-':>{width}s}")
        print(f"{row:22s}" + "".join(cells))
    errors = {k: v["error"] for k, v in results.items() if "error" in v}
    for (row, interface), message in errors.items():
        print(f"note: {interface} / {row}: {message}")


if __name__ == "__main__":
    main()
