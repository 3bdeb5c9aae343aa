"""Build time of a transport model in matrix form: addMVar + addMConstr, and the same rows
through x.sum(axis) and addConstr, against handing the same CSR arrays to the library with
one VLMaddconstrs-shaped call (Model.addMConstr with a prebuilt CSR is that path).

Not a timed test: run it by hand, e.g. `python3 benchmarks/matrix_build.py 1000 1000`.
Prints seconds per phase and the resident memory growth per nonzero.
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


def run(ns, nd, form):
    rng = np.random.default_rng(1)
    cost = rng.uniform(1, 10, (ns, nd))
    supply = np.full(ns, nd * 1.0)
    demand = np.full(nd, ns * 0.5)
    env = vp.Env(params={"OutputFlag": 0})
    m = vp.Model(env=env)
    before = rss()
    t0 = time.perf_counter()
    x = m.addMVar((ns, nd), obj=cost)
    t1 = time.perf_counter()
    if form == "axis sums":
        m.addConstr(x.sum(axis=1) <= supply)
        m.addConstr(x.sum(axis=0) >= demand)
    else:
        A = transport_csr(ns, nd)
        sense = np.array(["<"] * ns + [">"] * nd)
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
