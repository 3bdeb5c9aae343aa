"""Staffing a week of shifts, and what to do when it cannot be done.

Each shift needs a number of workers; each worker is available on some days, works at most a
given number of shifts and is paid per shift. The roster below cannot meet every need. The
example asks computeIIS which needs and limits conflict: here all of them, and no variable
bound, since every assignment appears in one need and one limit, so summed the needs ask for 14
shifts and the limits allow 10 whatever the variables' bounds. It then uses feasRelax to find
the smallest shortage, keeping the workers' limits as they are and letting only the coverage
fall short, at a penalty of one per missing worker.

Run:  python examples/workforce.py
"""
import velmorpy as vp
from velmorpy import VLM

shifts, need = vp.multidict({"mon": 3, "tue": 2, "wed": 4, "thu": 2, "fri": 3})
workers, pay, most = vp.multidict({"amy": [10, 3], "ben": [12, 2], "cat": [10, 3], "dan": [8, 2]})
available = vp.tuplelist([
    ("amy", "mon"), ("amy", "tue"), ("amy", "wed"), ("amy", "fri"),
    ("ben", "mon"), ("ben", "wed"), ("ben", "thu"),
    ("cat", "tue"), ("cat", "wed"), ("cat", "thu"), ("cat", "fri"),
    ("dan", "mon"), ("dan", "wed"), ("dan", "fri"),
])

with vp.Env(params={"OutputFlag": 0}) as env, vp.Model("workforce", env=env) as m:
    work = m.addVars(available, vtype=VLM.BINARY, name="work")
    cover = m.addConstrs((work.sum("*", s) == need[s] for s in shifts), name="cover")
    limit = m.addConstrs((work.sum(w, "*") <= most[w] for w in workers), name="limit")
    m.setObjective(vp.quicksum(pay[w] * work[w, s] for w, s in available))
    m.optimize()
    print(f"Status: {'infeasible' if m.Status == VLM.INFEASIBLE else m.Status}")

    m.computeIIS()
    conflict = [c.ConstrName for c in m.getConstrs() if c.IISConstr]
    print(f"Conflicting constraints ({len(conflict)}): {', '.join(conflict)}")

    relaxed = m.copy()
    coverage = [relaxed.getConstrByName(f"cover[{s}]") for s in shifts]
    shortage = relaxed.feasRelax(0, True, None, None, None, coverage, [1.0] * len(coverage))
    relaxed.optimize()
    print(f"Fewest missing workers: {shortage:.0f}, at a cost of {relaxed.ObjVal:.0f}")
    for s in shifts:
        staffed = [w for w, day in available.select("*", s)
                   if relaxed.getVarByName(f"work[{w},{s}]").X > 0.5]
        print(f"  {s}: {', '.join(staffed) or '-'} ({len(staffed)} of {need[s]})")
