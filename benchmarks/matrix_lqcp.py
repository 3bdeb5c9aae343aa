"""Build time of a linear-quadratic control problem (a heat equation on [0, 1] steered from
its right end) in matrix form against the same model built with loops over Var objects.

With n space steps and n time steps, dx = 1/n, dt = T/n, h2 = dx^2 and target yt[j] =
(1 - (j dx)^2) / 2:
  min 1/4 dx sum_j w_j (y[n, j] - yt[j])^2 + 1/4 a dt sum_{i>=1} v_i u[i]^2
      (w = 1 at both ends and 2 inside; v = 2 except 1 at i = n)
  (y[i+1, j] - y[i, j]) / dt = (y[i, j-1] - 2 y[i, j] + y[i, j+1]
                                + y[i+1, j-1] - 2 y[i+1, j] + y[i+1, j+1]) / (2 h2)
                               for i < n, 0 < j < n
  y[0, j] = 0
  y[i, 2] - 4 y[i, 1] + 3 y[i, 0] = 0                                for i >= 1
  (y[i, n-2] - 4 y[i, n-1] + 3 y[i, n]) / (2 dx) = u[i] - y[i, n]   for i >= 1
with 0 <= y <= 1 and -1 <= u <= 1.

Only building and the hand-off are timed. Run by hand, e.g.
`python3 benchmarks/matrix_lqcp.py 500 1000`.
"""
import sys
import time

import numpy as np

import velmorpy as vp

T, A = 1.58, 0.001


def data(n):
    dx, dt = 1.0 / n, T / n
    yt = 0.5 * (1 - (np.arange(n + 1) * dx) ** 2)
    w = np.full(n + 1, 2.0)
    w[0] = w[-1] = 1.0
    v = np.full(n, 2.0)
    v[-1] = 1.0
    return dx, dt, dx * dx, yt, w, v


def matrix_form(m, n):
    dx, dt, h2, yt, w, v = data(n)
    y = m.addMVar((n + 1, n + 1), ub=1.0)
    u = m.addMVar(n + 1, lb=-1.0, ub=1.0)
    err = y[n] - yt
    m.setObjective(0.25 * dx * (w * (err * err)).sum() + 0.25 * A * dt * (v * (u[1:] * u[1:])).sum())
    lap = y[:, :-2] - 2 * y[:, 1:-1] + y[:, 2:]
    m.addConstr((y[1:, 1:-1] - y[:-1, 1:-1]) / dt == (lap[:-1] + lap[1:]) / (2 * h2))
    m.addConstr(y[0] == 0)
    m.addConstr(y[1:, 2] - 4 * y[1:, 1] + 3 * y[1:, 0] == 0)
    m.addConstr((y[1:, n - 2] - 4 * y[1:, n - 1] + 3 * y[1:, n]) / (2 * dx) == u[1:] - y[1:, n])
    return y, u


def loop_form(m, n):
    dx, dt, h2, yt, w, v = data(n)
    y = {(i, j): m.addVar(ub=1.0) for i in range(n + 1) for j in range(n + 1)}
    u = {i: m.addVar(lb=-1.0, ub=1.0) for i in range(n + 1)}
    m.setObjective(0.25 * dx * vp.quicksum(w[j] * (y[n, j] - yt[j]) * (y[n, j] - yt[j]) for j in range(n + 1))
                   + 0.25 * A * dt * vp.quicksum(v[i - 1] * u[i] * u[i] for i in range(1, n + 1)))
    for i in range(n):
        for j in range(1, n):
            m.addConstr((y[i + 1, j] - y[i, j]) / dt
                        == (y[i, j - 1] - 2 * y[i, j] + y[i, j + 1]
                            + y[i + 1, j - 1] - 2 * y[i + 1, j] + y[i + 1, j + 1]) / (2 * h2))
    for j in range(n + 1):
        m.addConstr(y[0, j] == 0)
    for i in range(1, n + 1):
        m.addConstr(y[i, 2] - 4 * y[i, 1] + 3 * y[i, 0] == 0)
        m.addConstr((y[i, n - 2] - 4 * y[i, n - 1] + 3 * y[i, n]) / (2 * dx) == u[i] - y[i, n])
    return y, u


def run(n, form):
    env = vp.Env(params={"OutputFlag": 0})
    m = vp.Model(env=env)
    t0 = time.perf_counter()
    (matrix_form if form == "matrix" else loop_form)(m, n)
    m.update()
    t = time.perf_counter() - t0
    print(f"lqcp {n:5d} {form:>6}: {t:7.2f}s  {m.NumVars} vars, {m.NumConstrs} constrs, {m.NumNZs} nonzeros")
    m.dispose()
    env.dispose()


if __name__ == "__main__":
    for n in [int(a) for a in sys.argv[1:]] or [500, 1000]:
        for form in ("matrix", "loops"):
            run(n, form)
