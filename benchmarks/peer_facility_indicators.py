"""Capacitated fixed-charge facility location with 2,000 indicator constraints, beside PySCIPOpt.

Data (fixed seed): F facilities and C customers at random points of the unit square; customer j
has demand d_j in [5, 35], facility i capacity K_i in [150, 450] and fixed cost f_i in
[400, 1200]; shipping one unit costs 40 * distance.

    min  sum_i f_i y_i + sum_ij c_ij x_ij
    s.t. sum_i x_ij = d_j                       (every demand met)
         sum_j x_ij <= K_i                      (capacity)
         (y_i == 0) >> (x_ij <= 0)              indicator form, F * C rows
      or x_ij <= d_j y_i                        hand-written big-M form (M = d_j, the bound of x_ij)
         0 <= x_ij <= d_j, y binary

Rows: ours with indicators, ours with big-M, PySCIPOpt with native indicators
(addConsIndicator) and with big-M. Each run has the same time limit and one thread; the
table gives time, nodes, objective, gap. A peer that is not installed is skipped.

Usage: python3 benchmarks/peer_facility_indicators.py [--facilities 20] [--customers 100]
       [--time-limit 120] [--only ours|peer]
"""
import argparse
import math
import random
import time


def make_data(F, C, seed=14):
    rng = random.Random(seed)
    fac = [(rng.random(), rng.random()) for _ in range(F)]
    cus = [(rng.random(), rng.random()) for _ in range(C)]
    demand = [rng.uniform(5, 35) for _ in range(C)]
    cap = [rng.uniform(150, 450) for _ in range(F)]
    fixed = [rng.uniform(400, 1200) for _ in range(F)]
    cost = [[40 * math.dist(fac[i], cus[j]) for j in range(C)] for i in range(F)]
    return dict(F=F, C=C, demand=demand, cap=cap, fixed=fixed, cost=cost)


def run_ours(data, indicators, time_limit):
    import velmorpy as vp
    from velmorpy import VLM
    F, C = data["F"], data["C"]
    t0 = time.perf_counter()
    m = vp.Model("facility")
    m.Params.OutputFlag = 0
    m.Params.TimeLimit = time_limit
    m.Params.Threads = 1
    y = m.addVars(F, vtype=VLM.BINARY, obj=data["fixed"], name="y")
    x = m.addVars(F, C, name="x")
    for i in range(F):
        for j in range(C):
            x[i, j].UB = data["demand"][j]
            x[i, j].Obj = data["cost"][i][j]
    for j in range(C):
        m.addConstr(vp.quicksum(x[i, j] for i in range(F)) == data["demand"][j])
    for i in range(F):
        m.addConstr(vp.quicksum(x[i, j] for j in range(C)) <= data["cap"][i])
    for i in range(F):
        for j in range(C):
            if indicators:
                m.addConstr((y[i] == 0) >> (x[i, j] <= 0))
            else:
                m.addConstr(x[i, j] <= data["demand"][j] * y[i])
    m.optimize()
    wall = time.perf_counter() - t0
    # |objective - bound| / |objective| on both sides (PySCIPOpt's getGap divides by the smaller).
    gap = abs(m.ObjVal - m.ObjBound) / max(abs(m.ObjVal), 1e-10) if m.SolCount > 0 else math.inf
    return dict(time=wall, solve=m.Runtime, nodes=m.NodeCount, obj=m.ObjVal if m.SolCount else math.nan,
                gap=gap, status=m.Status)


def run_scip(data, indicators, time_limit):
    from pyscipopt import Model, quicksum
    F, C = data["F"], data["C"]
    t0 = time.perf_counter()
    m = Model("facility")
    m.hideOutput()
    m.setParam("limits/time", time_limit)
    y = [m.addVar(vtype="B", obj=data["fixed"][i], name=f"y{i}") for i in range(F)]
    x = [[m.addVar(lb=0, ub=data["demand"][j], obj=data["cost"][i][j], name=f"x{i}_{j}") for j in range(C)]
         for i in range(F)]
    for j in range(C):
        m.addCons(quicksum(x[i][j] for i in range(F)) == data["demand"][j])
    for i in range(F):
        m.addCons(quicksum(x[i][j] for j in range(C)) <= data["cap"][i])
    for i in range(F):
        for j in range(C):
            if indicators:
                m.addConsIndicator(x[i][j] <= 0, y[i], activeone=False)
            else:
                m.addCons(x[i][j] <= data["demand"][j] * y[i])
    m.optimize()
    wall = time.perf_counter() - t0
    has = m.getNSols() > 0
    return dict(time=wall, solve=m.getSolvingTime(), nodes=m.getNNodes(), obj=m.getObjVal() if has else math.nan,
                gap=abs(m.getObjVal() - m.getDualbound()) / max(abs(m.getObjVal()), 1e-10) if has else math.inf,
                status=m.getStatus())


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("--facilities", type=int, default=20)
    ap.add_argument("--customers", type=int, default=100)
    ap.add_argument("--time-limit", type=float, default=120.0)
    ap.add_argument("--only", choices=["ours", "peer"], default=None)
    a = ap.parse_args()
    data = make_data(a.facilities, a.customers)
    print(f"facility location: {a.facilities} facilities, {a.customers} customers, "
          f"{a.facilities * a.customers} indicators, time limit {a.time_limit:g} s")
    print(f"{'row':34s} {'wall s':>8s} {'solve s':>8s} {'nodes':>8s} {'objective':>12s} {'gap':>8s}  status")
    rows = []
    if a.only != "peer":
        rows += [("ours, indicators", lambda: run_ours(data, True, a.time_limit)),
                 ("ours, big-M", lambda: run_ours(data, False, a.time_limit))]
    if a.only != "ours":
        try:
            import pyscipopt  # noqa: F401
            rows += [("PySCIPOpt, native indicators", lambda: run_scip(data, True, a.time_limit)),
                     ("PySCIPOpt, big-M", lambda: run_scip(data, False, a.time_limit))]
        except ImportError:
            print("PySCIPOpt is not installed: its rows are skipped")
    for name, fn in rows:
        r = fn()
        print(f"{name:34s} {r['time']:8.2f} {r['solve']:8.2f} {r['nodes']:8.0f} {r['obj']:12.4f} "
              f"{r['gap']:8.2e}  {r['status']}", flush=True)


if __name__ == "__main__":
    main()
