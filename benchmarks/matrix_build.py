"""Build time of a transport model in matrix form.

Forms:
  CSR         addMVar, then addMConstr with the constraint matrix as a prebuilt scipy CSR;
  axis sums   addMVar, then addConstr(x.sum(axis=1) <= supply) and (x.sum(axis=0) >= demand);
  highs       the array limit: the same bounds and CSR arrays handed to HiGHS directly
              (highspy addVars + addRows), when highspy is importable.

Not a timed test: run it by hand, e.g. `python3 benchmarks/matrix_build.py 1000 1000`.
Prints seconds per phase and, for velmorpy, the resident memory growth per nonzero (the CSR
itself takes 12 bytes per nonzero plus 8 per row).
"""
import sys
import time

import numpy as np
import scipy.sparse as sp

import velmorpy as vp


def rss():
    with open("/proc/self/statm") as f:
        import os
        return int(f.read().split()[1]) * os.sysconf("SC_PAGE_SIZE")


def transport_csr(ns, nd):
    """Rows: supply i sums x[i, :], then demand j sums x[:, j]; x flattened in C order."""
    n = ns * nd
    rows = np.concatenate([np.repeat(np.arange(ns), nd), ns + np.tile(np.arange(nd), ns)])
    cols = np.concatenate([np.arange(n), np.arange(n)])
    return sp.csr_matrix((np.ones(2 * n), (rows, cols)), shape=(ns + nd, n))


def run_highs(ns, nd):
    try:
        import highspy
    except ImportError:
        print("     highs: highspy not importable")
        return
    rng = np.random.default_rng(1)
    cost = rng.uniform(1, 10, (ns, nd)).ravel()
    supply = np.full(ns, nd * 1.0)
    demand = np.full(nd, ns * 0.5)
    h = highspy.Highs()
    h.setOptionValue("output_flag", False)
    n = ns * nd
    A = transport_csr(ns, nd)  # the user's data, built before the clock starts
    t0 = time.perf_counter()
    h.addVars(n, np.zeros(n), np.full(n, highspy.kHighsInf))
    h.changeColsCost(n, np.arange(n, dtype=np.int32), cost)
    t1 = time.perf_counter()
    lower = np.concatenate([np.full(ns, -highspy.kHighsInf), demand])
    upper = np.concatenate([supply, np.full(nd, highspy.kHighsInf)])
    h.addRows(ns + nd, lower, upper, A.nnz, A.indptr[:-1].astype(np.int32), A.indices.astype(np.int32), A.data)
    t2 = time.perf_counter()
    print(f"{'highs':>10}: {ns}x{nd} vars {t1 - t0:6.2f}s  constrs {t2 - t1:6.2f}s  "
          f"total {t2 - t0:6.2f}s")


def run(ns, nd, form):
    rng = np.random.default_rng(1)
    cost = rng.uniform(1, 10, (ns, nd))
    supply = np.full(ns, nd * 1.0)
    demand = np.full(nd, ns * 0.5)
    env = vp.Env(params={"OutputFlag": 0})
    m = vp.Model(env=env)
    A = transport_csr(ns, nd) if form == "CSR" else None
    sense = np.array(["<"] * ns + [">"] * nd)
    before = rss()
    t0 = time.perf_counter()
    x = m.addMVar((ns, nd), obj=cost)
    t1 = time.perf_counter()
    if form == "axis sums":
        m.addConstr(x.sum(axis=1) <= supply)
        m.addConstr(x.sum(axis=0) >= demand)
    else:
        m.addMConstr(A, x.reshape(-1), sense, np.concatenate([supply, demand]))
    t2 = time.perf_counter()
    m.update()
    t3 = time.perf_counter()
    nnz = 2 * ns * nd
    print(f"{form:>10}: {ns}x{nd} vars {t1 - t0:6.2f}s  constrs {t2 - t1:6.2f}s  update {t3 - t2:6.2f}s  "
          f"total {t3 - t0:6.2f}s  memory {(rss() - before) / nnz:6.1f} B/nz")
    m.dispose()
    env.dispose()


if __name__ == "__main__":
    ns = int(sys.argv[1]) if len(sys.argv) > 1 else 1000
    nd = int(sys.argv[2]) if len(sys.argv) > 2 else 1000
    for form in ("CSR", "axis sums"):
        run(ns, nd, form)
    run_highs(ns, nd)
