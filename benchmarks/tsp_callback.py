"""TSP with lazy subtour elimination from MIPSOL callbacks, on seeded random Euclidean
instances (50, 100, 150 cities by default). Not a timed test: run it by hand,

    python benchmarks/tsp_callback.py [sizes...] [--seed S] [--gap G]

For each size it prints the time, the nodes, the lazy constraints added and the tour length,
and checks the tour: every city has degree 2, the edges form one cycle, and its length equals
the reported objective. It needs the branch-and-cut search (LazyConstraints=1)."""
import argparse
import itertools
import math
import random
import sys
import time

import velmorpy as vp
from velmorpy import VLM


def points(n, seed):
    rnd = random.Random(seed)
    return [(rnd.random() * 100, rnd.random() * 100) for _ in range(n)]


def cycles(edges, n):
    """The cycles (as city lists) of a set of edges where every city has degree 2."""
    adj = {i: [] for i in range(n)}
    for i, j in edges:
        adj[i].append(j)
        adj[j].append(i)
    seen, out = set(), []
    for s in range(n):
        if s in seen:
            continue
        cyc, todo = [], [s]
        seen.add(s)
        while todo:
            c = todo.pop()
            cyc.append(c)
            for k in adj[c]:
                if k not in seen:
                    seen.add(k)
                    todo.append(k)
        out.append(cyc)
    return out


def solve(n, seed, gap):
    pts = points(n, seed)
    dist = {(i, j): math.dist(pts[i], pts[j]) for i in range(n) for j in range(i + 1, n)}
    m = vp.Model()
    m.Params.OutputFlag = 0
    m.Params.LazyConstraints = 1
    m.Params.MIPGap = gap
    x = m.addVars(dist.keys(), obj=dist, vtype=VLM.BINARY, name="e")
    for i in range(n):
        m.addConstr(vp.quicksum(x[min(i, j), max(i, j)] for j in range(n) if j != i) == 2)
    m._lazy = 0

    def cb(model, where):
        if where != VLM.Callback.MIPSOL:
            return
        vals = model.cbGetSolution(x)
        cyc = cycles([e for e, v in vals.items() if v > 0.5], n)
        if len(cyc) == 1:
            return
        for c in cyc:
            model.cbLazy(vp.quicksum(x[min(i, j), max(i, j)] for i, j in itertools.combinations(c, 2)) <= len(c) - 1)
            model._lazy += 1

    t0 = time.perf_counter()
    m.optimize(cb)
    elapsed = time.perf_counter() - t0
    tour = [e for e in dist if x[e].X > 0.5]
    deg = [0] * n
    for i, j in tour:
        deg[i] += 1
        deg[j] += 1
    ok = (m.Status == VLM.OPTIMAL and all(d == 2 for d in deg) and len(cycles(tour, n)) == 1
          and abs(sum(dist[e] for e in tour) - m.ObjVal) <= 1e-6 * max(1.0, m.ObjVal))
    return elapsed, m.NodeCount, m._lazy, m.ObjVal, ok


def main():
    ap = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    ap.add_argument("sizes", nargs="*", type=int, default=[50, 100, 150])
    ap.add_argument("--seed", type=int, default=1)
    ap.add_argument("--gap", type=float, default=1e-6)
    a = ap.parse_args()
    print(f"{'cities':>6} {'time s':>8} {'nodes':>8} {'lazy':>6} {'length':>12}  tour")
    bad = 0
    for n in a.sizes:
        try:
            t, nodes, lazy, obj, ok = solve(n, a.seed, a.gap)
        except vp.VelmorError as e:
            print(f"{n:>6}  failed: {e}")
            bad += 1
            continue
        bad += not ok
        print(f"{n:>6} {t:>8.2f} {nodes:>8.0f} {lazy:>6} {obj:>12.4f}  {'checked' if ok else 'WRONG'}")
    return 1 if bad else 0


if __name__ == "__main__":
    sys.exit(main())
