"""A knapsack: choose items of greatest total value that fit a weight limit.

Run:  python examples/knapsack.py
"""
import velmorpy as vp
from velmorpy import VLM

items, value, weight = vp.multidict({
    "tent": [40, 11], "stove": [15, 4], "food": [60, 15], "water": [55, 12],
    "camera": [25, 3], "book": [8, 2], "rope": [12, 5], "lamp": [20, 4],
})
limit = 35

m = vp.Model("knapsack", env=vp.Env(params={"OutputFlag": 0}))
take = m.addVars(items, vtype=VLM.BINARY, name="take")
m.addConstr(take.prod(weight) <= limit, name="weight")
m.setObjective(take.prod(value), VLM.MAXIMIZE)
m.optimize()

chosen = [i for i in items if take[i].X > 0.5]
print(f"Value {m.ObjVal:.0f} with weight {sum(weight[i] for i in chosen)} of {limit}: {', '.join(chosen)}")
