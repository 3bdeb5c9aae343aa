"""Nonlinear functions as constraints: the most economical order size.

Ordering q units at a time costs a fixed 50 per order and holding costs 2 per unit on half the
order on average; over a year's demand of 400 units the cost is 400 * 50 / q + q, least at
the classic economic order quantity q = sqrt(2 * 400 * 50 / 2) = sqrt(20000), about 141.42,
for a cost of 2 * sqrt(20000), about 282.84.

The model states the reciprocal with a power constraint, r = q^-1. The library solves such a
function constraint as a piecewise-linear one whose breakpoints keep the approximation error
below FuncPieceError, so the answer agrees with the exact optimum to about that tolerance.

Run:  python examples/functions.py
"""
import velmorpy as vp
from velmorpy import VLM

demand, order_cost, holding = 400, 50, 2

with vp.Env(params={"OutputFlag": 0}) as env, vp.Model("order_size", env=env) as m:
    q = m.addVar(lb=20, ub=1000, name="q")
    r = m.addVar(name="r")                     # r = 1 / q
    m.addGenConstrPow(q, r, -1, name="reciprocal")
    m.Params.FuncPieceError = 1e-5
    m.setObjective(demand * order_cost * r + holding / 2 * q, VLM.MINIMIZE)
    m.optimize()

    if m.Status == VLM.OPTIMAL:
        print(f"Least yearly cost: {m.ObjVal:.2f}")
        print(f"  order {q.X:.1f} units at a time, {demand / q.X:.2f} orders a year")
    else:
        print(f"No plan (status {m.Status})")
