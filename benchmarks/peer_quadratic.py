"""Second-order cone and quadratic models beside open peers, on the same data.

(a) socp:  robust portfolio, n assets, k = 10 factors (loadings F, idiosyncratic deviations s,
           expected returns mu with uncertainty deviations e):
               max  mu'w - u
               s.t. ||diag(e) w|| <= u                     (worst case of the mean in an ellipsoid)
                    ||(F w, diag(s) w)|| <= 0.2            (risk limit)
                    sum w = 1, w >= 0
           peer: cvxpy with its default conic solver.
(b) miqp:  cardinality-constrained mean-variance, n assets, at most K = 10 held, buy-in 2%:
               min  ||F w||^2 + ||diag(s) w||^2 - 0.5 mu'w
               s.t. sum w = 1, 0.02 z <= w <= z, sum z <= 10, z binary
           peer: PySCIPOpt (its objective must be linear: an epigraph variable t >= the
           quadratic part, the same model).
(c) misocp: continuous facility location: n customer sites on the unit square with weights,
           3 facilities placed freely, each site served by one facility:
               min  sum_j w_j d_j
               s.t. ||p_j - y_f|| <= d_j + M (1 - z_jf)    (cones, M = sqrt 2)
                    sum_f z_jf = 1, y in [0, 1]^2, z binary
           peer: PySCIPOpt.
Each row reports wall time (model building included), the solver's own time, nodes,
objective, bound and gap, the gap taken alike for both sides as |objective - bound| /
|objective| (PySCIPOpt's own getGap divides by the smaller of the two, which reads much larger). Ours runs with Threads 1 and the given TimeLimit; PySCIPOpt with
limits/time. A peer that is not installed is skipped.

Usage: python3 benchmarks/peer_quadratic.py socp 500 2000
       python3 benchmarks/peer_quadratic.py miqp 50 100 [--time-limit 120]
       python3 benchmarks/peer_quadratic.py misocp 10 25 [--time-limit 300]
"""
import argparse
import math
import random
import time


def portfolio_data(n, k=10, seed=15):
    rng = random.Random(seed + n)
    mu = [0.02 + 0.1 * rng.random() for _ in range(n)]
    s = [0.05 + 0.2 * rng.random() for _ in range(n)]
    e = [0.01 + 0.05 * rng.random() for _ in range(n)]
    F = [[0.2 * (rng.random() - 0.5) for _ in range(n)] for _ in range(k)]
    return dict(n=n, k=k, mu=mu, s=s, e=e, F=F)


def facility_data(n, facilities=3, seed=16):
    rng = random.Random(seed + n)
    p = [(rng.random(), rng.random()) for _ in range(n)]
    w = [rng.uniform(1, 10) for _ in range(n)]
    return dict(n=n, F=facilities, p=p, w=w)


# ---- ours ---------------------------------------------------------------------------------------

def ours_model(time_limit):
    import velmorpy as vp
    m = vp.Model()
    m.Params.OutputFlag = 0
    m.Params.Threads = 1
    m.Params.TimeLimit = time_limit
    return m


def ours_result(m, t0):
    has = m.SolCount > 0
    obj = m.ObjVal if has else math.nan
    bound = m.ObjBound if has else math.nan
    return dict(time=time.perf_counter() - t0, solve=m.Runtime, nodes=m.NodeCount if m.IsMIP else 0,
                obj=obj, bound=bound, gap=gap_of(obj, bound), status=str(m.Status))


def gap_of(obj, bound):
    if math.isnan(obj) or math.isnan(bound):
        return math.inf
    return abs(obj - bound) / max(abs(obj), 1e-10)


def ours_socp(d, time_limit):
    import velmorpy as vp
    from velmorpy import VLM
    t0 = time.perf_counter()
    m = ours_model(time_limit)
    n, k = d["n"], d["k"]
    w = m.addVars(n, name="w")
    u = m.addVar(name="u")
    risk = m.addVar(ub=0.2, name="risk")
    g = m.addVars(k, lb=-VLM.INFINITY, name="g")
    a = m.addVars(n, lb=-VLM.INFINITY, name="a")
    b = m.addVars(n, lb=-VLM.INFINITY, name="b")
    m.addConstr(w.sum() == 1)
    for r in range(k):
        m.addConstr(g[r] == vp.quicksum(d["F"][r][i] * w[i] for i in range(n)))
    for i in range(n):
        m.addConstr(a[i] == d["e"][i] * w[i])
        m.addConstr(b[i] == d["s"][i] * w[i])
    m.addConstr(vp.quicksum(a[i] * a[i] for i in range(n)) <= u * u)
    m.addConstr(vp.quicksum(g[r] * g[r] for r in range(k)) + vp.quicksum(b[i] * b[i] for i in range(n))
                <= risk * risk)
    m.setObjective(vp.quicksum(d["mu"][i] * w[i] for i in range(n)) - u, VLM.MAXIMIZE)
    m.optimize()
    return ours_result(m, t0)


def ours_miqp(d, time_limit):
    import velmorpy as vp
    from velmorpy import VLM
    t0 = time.perf_counter()
    m = ours_model(time_limit)
    n, k = d["n"], d["k"]
    w = m.addVars(n, name="w")
    z = m.addVars(n, vtype=VLM.BINARY, name="z")
    g = m.addVars(k, lb=-VLM.INFINITY, name="g")
    m.addConstr(w.sum() == 1)
    m.addConstr(z.sum() <= 10)
    for i in range(n):
        m.addConstr(w[i] <= z[i])
        m.addConstr(w[i] >= 0.02 * z[i])
    for r in range(k):
        m.addConstr(g[r] == vp.quicksum(d["F"][r][i] * w[i] for i in range(n)))
    m.setObjective(vp.quicksum(g[r] * g[r] for r in range(k))
                   + vp.quicksum(d["s"][i] ** 2 * w[i] * w[i] for i in range(n))
                   - 0.5 * vp.quicksum(d["mu"][i] * w[i] for i in range(n)), VLM.MINIMIZE)
    m.optimize()
    return ours_result(m, t0)


def ours_misocp(d, time_limit):
    import velmorpy as vp
    from velmorpy import VLM
    t0 = time.perf_counter()
    m = ours_model(time_limit)
    n, F = d["n"], d["F"]
    M = math.sqrt(2)
    y = m.addVars(F, 2, ub=1.0, name="y")
    z = m.addVars(n, F, vtype=VLM.BINARY, name="z")
    dist = m.addVars(n, name="d")
    for j in range(n):
        m.addConstr(vp.quicksum(z[j, f] for f in range(F)) == 1)
        for f in range(F):
            r0 = m.addVar(lb=-VLM.INFINITY)
            r1 = m.addVar(lb=-VLM.INFINITY)
            s = m.addVar()
            m.addConstr(r0 == d["p"][j][0] - y[f, 0])
            m.addConstr(r1 == d["p"][j][1] - y[f, 1])
            m.addConstr(s == dist[j] + M * (1 - z[j, f]))
            m.addConstr(r0 * r0 + r1 * r1 <= s * s)
    m.setObjective(vp.quicksum(d["w"][j] * dist[j] for j in range(n)), VLM.MINIMIZE)
    m.optimize()
    return ours_result(m, t0)


# ---- peers --------------------------------------------------------------------------------------

def cvxpy_socp(d, time_limit):
    import cvxpy as cp
    import numpy as np
    t0 = time.perf_counter()
    n = d["n"]
    mu, e, s, F = (np.array(d[key]) for key in ("mu", "e", "s", "F"))
    w = cp.Variable(n)
    u = cp.Variable()
    prob = cp.Problem(cp.Maximize(mu @ w - u),
                      [cp.norm(cp.multiply(e, w)) <= u,
                       cp.norm(cp.hstack([F @ w, cp.multiply(s, w)])) <= 0.2,
                       cp.sum(w) == 1, w >= 0])
    prob.solve()
    st = prob.solver_stats
    return dict(time=time.perf_counter() - t0, solve=st.solve_time or math.nan, nodes=0,
                obj=prob.value, bound=prob.value, gap=0.0, status=f"{prob.status} ({st.solver_name})")


def scip_model(time_limit):
    from pyscipopt import Model
    m = Model()
    m.hideOutput()
    m.setParam("limits/time", time_limit)
    return m


def scip_result(m, t0):
    has = m.getNSols() > 0
    obj = m.getObjVal() if has else math.nan
    bound = m.getDualbound()
    return dict(time=time.perf_counter() - t0, solve=m.getSolvingTime(), nodes=m.getNNodes(),
                obj=obj, bound=bound, gap=gap_of(obj, bound), status=m.getStatus())


def scip_miqp(d, time_limit):
    from pyscipopt import quicksum
    t0 = time.perf_counter()
    m = scip_model(time_limit)
    n, k = d["n"], d["k"]
    w = [m.addVar(lb=0, ub=1) for _ in range(n)]
    z = [m.addVar(vtype="B") for _ in range(n)]
    g = [m.addVar(lb=None) for _ in range(k)]
    t = m.addVar(lb=None)
    m.addCons(quicksum(w) == 1)
    m.addCons(quicksum(z) <= 10)
    for i in range(n):
        m.addCons(w[i] <= z[i])
        m.addCons(w[i] >= 0.02 * z[i])
    for r in range(k):
        m.addCons(g[r] == quicksum(d["F"][r][i] * w[i] for i in range(n)))
    m.addCons(quicksum(g[r] * g[r] for r in range(k)) + quicksum(d["s"][i] ** 2 * w[i] * w[i] for i in range(n))
              <= t)
    m.setObjective(t - 0.5 * quicksum(d["mu"][i] * w[i] for i in range(n)), "minimize")
    m.optimize()
    return scip_result(m, t0)


def scip_misocp(d, time_limit):
    from pyscipopt import quicksum
    t0 = time.perf_counter()
    m = scip_model(time_limit)
    n, F = d["n"], d["F"]
    M = math.sqrt(2)
    y = [[m.addVar(lb=0, ub=1) for _ in range(2)] for _ in range(F)]
    z = [[m.addVar(vtype="B") for _ in range(F)] for _ in range(n)]
    dist = [m.addVar(lb=0) for _ in range(n)]
    for j in range(n):
        m.addCons(quicksum(z[j]) == 1)
        for f in range(F):
            r0 = m.addVar(lb=None)
            r1 = m.addVar(lb=None)
            s = m.addVar(lb=0)
            m.addCons(r0 == d["p"][j][0] - y[f][0])
            m.addCons(r1 == d["p"][j][1] - y[f][1])
            m.addCons(s == dist[j] + M * (1 - z[j][f]))
            m.addCons(r0 * r0 + r1 * r1 <= s * s)
    m.setObjective(quicksum(d["w"][j] * dist[j] for j in range(n)), "minimize")
    m.optimize()
    return scip_result(m, t0)


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("kind", choices=["socp", "miqp", "misocp"])
    ap.add_argument("sizes", type=int, nargs="+")
    ap.add_argument("--time-limit", type=float, default=300.0)
    ap.add_argument("--only", choices=["ours", "peer"], default=None)
    a = ap.parse_args()
    ours = {"socp": ours_socp, "miqp": ours_miqp, "misocp": ours_misocp}[a.kind]
    data = {"socp": portfolio_data, "miqp": portfolio_data, "misocp": facility_data}[a.kind]
    peer_name, peer_mod = ("cvxpy", "cvxpy") if a.kind == "socp" else ("PySCIPOpt", "pyscipopt")
    peer = {"socp": cvxpy_socp, "miqp": scip_miqp, "misocp": scip_misocp}[a.kind]
    try:
        __import__(peer_mod)
    except ImportError:
        print(f"{peer_name} is not installed: its rows are skipped")
        peer = None
    print(f"{a.kind}, time limit {a.time_limit:g} s")
    print(f"{'row':28s} {'wall s':>8s} {'solve s':>8s} {'nodes':>8s} {'objective':>14s} {'bound':>14s} "
          f"{'gap':>8s}  status")
    for n in a.sizes:
        d = data(n)
        runs = []
        if a.only != "peer":
            runs.append((f"ours, n={n}", ours))
        if a.only != "ours" and peer is not None:
            runs.append((f"{peer_name}, n={n}", peer))
        for name, fn in runs:
            r = fn(d, a.time_limit)
            print(f"{name:28s} {r['time']:8.2f} {r['solve']:8.2f} {r['nodes']:8.0f} {r['obj']:14.8f} "
                  f"{r['bound']:14.8f} {r['gap']:8.2e}  {r['status']}", flush=True)


if __name__ == "__main__":
    main()
