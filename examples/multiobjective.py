"""Several objectives with priorities: profit first, then as little overtime as possible.

A bakery plans tomorrow's batches of bread, cakes and pies. An hour of overtime costs 10 and
earns more than that, so the most profitable plan runs long. The first objective (priority 2)
is profit; among plans within 5% of the best profit (its relative tolerance), the second
objective (priority 1) minimises the hours of overtime (it maximises their negative, as the
model maximises); an objective of the same priority would be blended with its weight.

Run:  python examples/multiobjective.py
"""
import velmorpy as vp
from velmorpy import VLM

products, profit, hours = vp.multidict({"bread": [30, 2], "cakes": [50, 4], "pies": [40, 3]})
regular_hours = 20

with vp.Env(params={"OutputFlag": 0}) as env, vp.Model("bakery", env=env) as m:
    batches = m.addVars(products, vtype=VLM.INTEGER, ub=5, name="batches")
    overtime = m.addVar(ub=10, name="overtime")
    m.addConstr(batches.prod(hours) <= regular_hours + overtime, name="hours")
    m.ModelSense = VLM.MAXIMIZE
    m.setObjectiveN(batches.prod(profit) - 10 * overtime, 0, priority=2, reltol=0.05,
                    name="profit")
    m.setObjectiveN(-overtime, 1, priority=1, name="minus overtime")
    m.optimize()

    if m.Status == VLM.OPTIMAL:
        for i in range(m.NumObj):
            m.Params.ObjNumber = i
            print(f"{m.ObjNName}: {m.ObjNVal:g}")
        print("  plan: " + ", ".join(f"{round(batches[p].X)} {p}" for p in products)
              + f", {overtime.X:g} h overtime")
    else:
        print(f"No plan (status {m.Status})")
