"""Buying with quantity discounts: piecewise-linear costs and an either-or choice.

A plant needs 120 tonnes of a raw material. Supplier A charges 10 a tonne for the first 50
tonnes and 8 a tonne beyond, up to 100 tonnes; supplier B charges 9 a tonne up to 80 tonnes,
plus a delivery fee of 40 whenever anything is bought from B. A's cost is a piecewise-linear
function (a general constraint, cost_a = f(qty_a)); B's per-tonne price is a piecewise-linear
objective on its quantity, and the delivery fee uses an indicator constraint. A falling
marginal price makes the cost concave, which the library handles by branching.

Run:  python examples/piecewise.py
"""
import velmorpy as vp
from velmorpy import VLM

need = 120

with vp.Env(params={"OutputFlag": 0}) as env, vp.Model("discounts", env=env) as m:
    qty_a = m.addVar(ub=100, name="qty_a")
    qty_b = m.addVar(ub=80, name="qty_b")
    cost_a = m.addVar(name="cost_a")
    use_b = m.addVar(vtype=VLM.BINARY, obj=40, name="use_b")
    m.addGenConstrPWL(qty_a, cost_a, [0, 50, 100], [0, 500, 900], name="price_a")
    m.setPWLObj(qty_b, [0, 80], [0, 720])
    m.addGenConstrIndicator(use_b, False, qty_b <= 0, name="no_b_unless_used")
    m.addConstr(qty_a + qty_b == need, name="need")
    cost_a.Obj = 1
    m.optimize()

    if m.Status == VLM.OPTIMAL:
        print(f"Least cost: {m.ObjVal:.2f}")
        print(f"  from A: {qty_a.X:6.1f} t for {cost_a.X:7.2f}")
        print(f"  from B: {qty_b.X:6.1f} t for {9 * qty_b.X + 40 * use_b.X:7.2f}")
    else:
        print(f"No plan (status {m.Status})")
