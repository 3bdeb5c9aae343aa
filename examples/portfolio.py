"""Portfolio selection in matrix form: the best expected return for a bounded risk.

Five assets with expected returns mu and covariance Sigma; the weights x are non-negative and
sum to one, and the variance x' Sigma x may not exceed a limit. The variance limit is a convex
quadratic constraint, which the library solves by outer approximation over HiGHS.

Run:  python examples/portfolio.py
"""
import numpy as np

import velmorpy as vp
from velmorpy import VLM

mu = np.array([0.08, 0.10, 0.12, 0.07, 0.15])
vol = np.array([0.10, 0.14, 0.20, 0.08, 0.30])
corr = np.full((5, 5), 0.3) + 0.7 * np.eye(5)
sigma = np.outer(vol, vol) * corr
max_variance = 0.02

with vp.Env(params={"OutputFlag": 0}) as env, vp.Model("portfolio", env=env) as m:
    x = m.addMVar(5, lb=0.0, name="x")
    m.addConstr(x.sum() == 1, name="budget")
    m.addConstr(x @ sigma @ x <= max_variance, name="risk")
    m.setObjective(mu @ x, VLM.MAXIMIZE)
    m.optimize()

    if m.Status == VLM.OPTIMAL:
        print(f"Best expected return: {m.ObjVal:.4f}")
        w = x.X
        print(f"  variance {w @ sigma @ w:.4f} of at most {max_variance}")
        for i, wi in enumerate(w):
            print(f"  asset {i}: {wi:.3f}")
    else:
        print(f"No optimal portfolio (status {m.Status})")
