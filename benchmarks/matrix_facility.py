"""Build time of the facility-location model in matrix form against the same model built
with loops over Var objects.

The model (G+1)^2 customers on a unit grid, F facilities placed freely in the square:
  min d
  sum_f z[i,j,f] = 1                                 each customer is served
  s[i,j,f] = d + M (1 - z[i,j,f])                    distance bound, M = 2 sqrt(2)
  r[i,j,f,0] = i/G - y[f,0],  r[i,j,f,1] = j/G - y[f,1]
  r[i,j,f,0]^2 + r[i,j,f,1]^2 - s[i,j,f]^2 <= 0      quadratic constraints
with y in [0,1]^2, s >= 0, z binary, r free.

Only building and the hand-off are timed (no solve: the engine does not take quadratic
constraints yet). Run by hand, e.g. `python3 benchmarks/matrix_facility.py 25 50`.
"""
import sys
import time

import numpy as np

import velmorpy as vp
from velmorpy import VLM


def matrix_form(m, G, F):
    n = G + 1
    M = 2 * np.sqrt(2)
    grid = np.arange(n) / G
    y = m.addMVar((F, 2), ub=1.0)
    s = m.addMVar((n, n, F))
    z = m.addMVar((n, n, F), vtype=VLM.BINARY)
    r = m.addMVar((n, n, F, 2), lb=-np.inf)
    d = m.addMVar(1)
    m.setObjective(d.sum())
    m.addConstr(z.sum(axis=2) == 1)
    m.addConstr(s == d + M * (1 - z))
    m.addConstr(r[:, :, :, 0] == grid[:, None, None] - y[:, 0])
    m.addConstr(r[:, :, :, 1] == grid[None, :, None] - y[:, 1])
    m.addConstr(r[..., 0] * r[..., 0] + r[..., 1] * r[..., 1] - s * s <= 0)


def loop_form(m, G, F):
    n = G + 1
    M = 2 * np.sqrt(2)
    y = {(f, k): m.addVar(ub=1.0) for f in range(F) for k in range(2)}
    s = {(i, j, f): m.addVar() for i in range(n) for j in range(n) for f in range(F)}
    z = {(i, j, f): m.addVar(vtype=VLM.BINARY) for i in range(n) for j in range(n) for f in range(F)}
    r = {(i, j, f, k): m.addVar(lb=-VLM.INFINITY) for i in range(n) for j in range(n) for f in range(F)
         for k in range(2)}
    d = m.addVar()
    m.setObjective(d + 0)
    for i in range(n):
        for j in range(n):
            m.addConstr(vp.quicksum(z[i, j, f] for f in range(F)) == 1)
            for f in range(F):
                m.addConstr(s[i, j, f] == d + M * (1 - z[i, j, f]))
                m.addConstr(r[i, j, f, 0] == i / G - y[f, 0])
                m.addConstr(r[i, j, f, 1] == j / G - y[f, 1])
                m.addConstr(r[i, j, f, 0] * r[i, j, f, 0] + r[i, j, f, 1] * r[i, j, f, 1]
                            - s[i, j, f] * s[i, j, f] <= 0)


def run(G, form):
    env = vp.Env(params={"OutputFlag": 0})
    m = vp.Model(env=env)
    t0 = time.perf_counter()
    (matrix_form if form == "matrix" else loop_form)(m, G, G)
    m.update()
    t = time.perf_counter() - t0
    print(f"facility {G:3d} {form:>6}: {t:7.2f}s  {m.NumVars} vars, {m.NumConstrs} constrs, "
          f"{m.NumQConstrs} qconstrs, {m.NumNZs} nonzeros")
    m.dispose()
    env.dispose()


if __name__ == "__main__":
    for G in [int(a) for a in sys.argv[1:]] or [25, 50]:
        for form in ("matrix", "loops"):
            run(G, form)
