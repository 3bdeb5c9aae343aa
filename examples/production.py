"""Production planning: how many chairs, tables and desks should a workshop build this week?

Each product uses wood, carpentry hours and finishing hours, and earns a profit; the workshop's
supplies of each resource are limited, and only whole products can be sold.

Run:  python examples/production.py
"""
import velmorpy as vp
from velmorpy import VLM

products, profit = vp.multidict({"chair": 45, "table": 80, "desk": 110})
resources, supply = vp.multidict({"wood": 300, "carpentry": 110, "finishing": 60})
use = {  # units of each resource per product
    ("chair", "wood"): 5, ("chair", "carpentry"): 2, ("chair", "finishing"): 1,
    ("table", "wood"): 20, ("table", "carpentry"): 5, ("table", "finishing"): 3,
    ("desk", "wood"): 15, ("desk", "carpentry"): 8, ("desk", "finishing"): 5,
}

with vp.Env(params={"OutputFlag": 0}) as env, vp.Model("production", env=env) as m:
    make = m.addVars(products, vtype=VLM.INTEGER, name="make")
    m.addConstrs((vp.quicksum(use[p, r] * make[p] for p in products) <= supply[r]
                  for r in resources), name="supply")
    m.setObjective(make.prod(profit), VLM.MAXIMIZE)
    m.optimize()

    if m.Status == VLM.OPTIMAL:
        print(f"Best weekly profit: {m.ObjVal:.0f}")
        for p in products:
            print(f"  build {round(make[p].X):3d} x {p}")
        for r in resources:
            c = m.getConstrByName(f"supply[{r}]")
            print(f"  {r:10s} used {supply[r] - c.Slack:5.0f} of {supply[r]}")
    else:
        print("No plan found, status", m.Status)
