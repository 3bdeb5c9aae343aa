"""A transportation-style LP written with matrices: MVar, NumPy and scipy.sparse.

Plants with supplies ship to markets with demands; a shipment costs its distance. The
variables form one plants x markets matrix, and the supply and demand rows are built as sparse
matrices acting on its flattened form, as models generated from data usually are.

Run:  python examples/matrix_lp.py
"""
import numpy as np
import scipy.sparse as sp

import velmorpy as vp
from velmorpy import VLM

rng = np.random.default_rng(7)
n_plants, n_markets = 6, 10
plants = rng.uniform(0, 100, size=(n_plants, 2))
markets = rng.uniform(0, 100, size=(n_markets, 2))
cost = np.linalg.norm(plants[:, None, :] - markets[None, :, :], axis=2)   # plants x markets
demand = rng.integers(10, 30, size=n_markets).astype(float)
supply = np.full(n_plants, demand.sum() / n_plants * 1.25)

# Row i of S sums plant i's shipments; row j of D sums what market j receives.
S = sp.kron(sp.eye(n_plants), np.ones((1, n_markets)), format="csr")
D = sp.kron(np.ones((1, n_plants)), sp.eye(n_markets), format="csr")

with vp.Env(params={"OutputFlag": 0}) as env, vp.Model("matrix_lp", env=env) as m:
    ship = m.addMVar((n_plants, n_markets), name="ship")
    flat = ship.reshape(-1)
    m.addConstr(S @ flat <= supply, name="supply")
    m.addConstr(D @ flat >= demand, name="demand")
    m.setObjective(cost.reshape(-1) @ flat, VLM.MINIMIZE)
    m.optimize()

    if m.Status == VLM.OPTIMAL:
        print(f"Least shipping cost: {m.ObjVal:.4f}")
        used = np.argwhere(ship.X > 1e-6)
        print(f"  {len(used)} routes used of {n_plants * n_markets}")
        print(f"  plant loads: {np.round(ship.X.sum(axis=1), 1).tolist()}")
    else:
        print(f"No plan (status {m.Status})")
