"""A second-order cone model: the smallest circle that covers a set of points.

Minimise the radius r such that every point p lies within r of the centre c:
||p - c|| <= r, written as (px - cx)^2 + (py - cy)^2 <= r^2 with r >= 0, which the library
recognises as a second-order cone and solves as such.

Run:  python examples/cone.py
"""
import velmorpy as vp
from velmorpy import VLM

points = [(0, 0), (4, 0), (0, 3), (1, 1), (2, 2)]

with vp.Env(params={"OutputFlag": 0}) as env, vp.Model("circle", env=env) as m:
    cx = m.addVar(lb=-VLM.INFINITY, name="cx")
    cy = m.addVar(lb=-VLM.INFINITY, name="cy")
    r = m.addVar(name="r")
    dx = m.addVars(len(points), lb=-VLM.INFINITY, name="dx")
    dy = m.addVars(len(points), lb=-VLM.INFINITY, name="dy")
    for i, (px, py) in enumerate(points):
        m.addConstr(dx[i] == px - cx)
        m.addConstr(dy[i] == py - cy)
        m.addConstr(dx[i] * dx[i] + dy[i] * dy[i] <= r * r, name=f"cover{i}")
    m.setObjective(r, VLM.MINIMIZE)
    m.optimize()

    if m.Status == VLM.OPTIMAL:
        print(f"Smallest radius: {r.X:.6f}")
        print(f"  centre ({cx.X:.6f}, {cy.X:.6f})")
    else:
        print(f"No circle (status {m.Status})")
