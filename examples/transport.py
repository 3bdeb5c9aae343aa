"""Transportation: ship goods from plants to markets at least cost.

Each plant can ship at most its capacity, each market needs its demand, and every route has a
cost per unit. A linear program; the duals of the demand rows are the marginal delivery costs.

Run:  python examples/transport.py
"""
import velmorpy as vp
from velmorpy import VLM

plants, capacity = vp.multidict({"Seattle": 350, "San-Diego": 600})
markets, demand = vp.multidict({"New-York": 325, "Chicago": 300, "Topeka": 275})
routes, cost = vp.multidict({
    ("Seattle", "New-York"): 2.5, ("Seattle", "Chicago"): 1.7, ("Seattle", "Topeka"): 1.8,
    ("San-Diego", "New-York"): 2.5, ("San-Diego", "Chicago"): 1.8, ("San-Diego", "Topeka"): 1.4,
})

m = vp.Model("transport", env=vp.Env(params={"OutputFlag": 0}))
ship = m.addVars(routes, obj=cost, name="ship")
m.addConstrs((ship.sum(p, "*") <= capacity[p] for p in plants), name="capacity")
demand_rows = m.addConstrs((ship.sum("*", k) >= demand[k] for k in markets), name="demand")
m.optimize()

print(f"Least total cost: {m.ObjVal:.2f}")
for (p, k), v in ship.items():
    if v.X > 1e-9:
        print(f"  {p:10s} -> {k:9s} {v.X:6.1f}")
for k in markets:
    print(f"  one more unit to {k} would cost {demand_rows[k].Pi:.2f}")
