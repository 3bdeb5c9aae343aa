"""Facility location with logical constraints: which depots should a distributor open?

Opening a depot costs a fixed amount; every customer's demand must be shipped from open depots,
each within its capacity. Shipping from a closed depot is ruled out by an indicator constraint
(closed => ships nothing), and at most one of the two depots on the same industrial estate may
open (an SOS1 set). The library turns both into rows HiGHS can solve; the model keeps them as
written.

Run:  python examples/facility.py
"""
import velmorpy as vp
from velmorpy import VLM

depots, fixed_cost, capacity = vp.multidict({
    "north": [400, 90], "south": [350, 80], "east": [300, 60], "west": [420, 100], "centre": [380, 70]})
customers, demand = vp.multidict({"a": 30, "b": 25, "c": 40, "d": 20, "e": 35, "f": 15})
# Shipping cost per unit, from the grid positions of depots and customers.
where = {"north": (5, 9), "south": (5, 1), "east": (9, 5), "west": (1, 5), "centre": (5, 5),
         "a": (2, 8), "b": (8, 8), "c": (3, 2), "d": (7, 2), "e": (5, 6), "f": (9, 4)}
ship_cost = {(i, j): 2 + abs(where[i][0] - where[j][0]) + abs(where[i][1] - where[j][1])
             for i in depots for j in customers}

with vp.Env(params={"OutputFlag": 0}) as env, vp.Model("facility", env=env) as m:
    open_ = m.addVars(depots, vtype=VLM.BINARY, name="open")
    ship = m.addVars(depots, customers, name="ship")
    m.addConstrs((ship.sum("*", j) == demand[j] for j in customers), name="demand")
    m.addConstrs((ship.sum(i, "*") <= capacity[i] for i in depots), name="capacity")
    for i in depots:
        for j in customers:
            m.addGenConstrIndicator(open_[i], False, ship[i, j] <= 0, name=f"closed_{i}_{j}")
    m.addSOS(VLM.SOS_TYPE1, [open_["centre"], open_["east"]], [1, 2])
    m.setObjective(open_.prod(fixed_cost) + ship.prod(ship_cost), VLM.MINIMIZE)
    m.optimize()

    if m.Status == VLM.OPTIMAL:
        print(f"Lowest total cost: {m.ObjVal:.0f}")
        for i in depots:
            if open_[i].X > 0.5:
                served = ", ".join(f"{j} ({ship[i, j].X:.0f})" for j in customers if ship[i, j].X > 1e-6)
                print(f"  open {i:6s} serving {served}")
    else:
        print(f"No optimal plan (status {m.Status})")
