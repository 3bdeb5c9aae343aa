"""Solving model files through velmorpy against HiGHS' own `highs` program on the same files,
and reading X for 1,000,000 variables. Targets: at most 2% more solve time than `highs`; the
bulk read well under 0.1 s.

The files are generated here (written by velmorpy as MPS): a 300 x 300 transportation LP, a
sparse random LP and a multi-dimensional knapsack MIP. Each file is solved --reps times by each
program (one process per run, wall time of the whole run including reading the file) and the
median is reported.

Run:  python benchmarks/solve_overhead.py [--reps 5]
"""
import argparse
import os
import random
import statistics
import subprocess
import sys
import tempfile
import time

import highsbox
import velmorpy as vp
from velmorpy import VLM


def transport(path, k=300):
    rnd = random.Random(1)
    m = vp.Model("transport", env=vp.Env(params={"OutputFlag": 0}))
    x = m.addVars(k, k, obj={(i, j): rnd.uniform(1, 10) for i in range(k) for j in range(k)})
    m.addConstrs((x.sum(i, "*") <= 110 for i in range(k)))
    m.addConstrs((x.sum("*", j) >= 100 for j in range(k)))
    m.write(path)


def sparse_lp(path, n=6000, rows=4500, per_row=8):
    rnd = random.Random(2)
    m = vp.Model("sparse", env=vp.Env(params={"OutputFlag": 0}))
    x = m.addVars(n, ub=10, obj=[-rnd.uniform(0, 1) for _ in range(n)])
    for _ in range(rows):
        cols = rnd.sample(range(n), per_row)
        m.addConstr(vp.quicksum(rnd.uniform(0.5, 2) * x[j] for j in cols) <= rnd.uniform(5, 20))
    m.write(path)


def knapsack_mip(path, n=60, dims=5):
    rnd = random.Random(3)
    m = vp.Model("knapsack", env=vp.Env(params={"OutputFlag": 0}))
    x = m.addVars(n, vtype=VLM.BINARY, obj=[-rnd.randint(10, 100) for _ in range(n)])
    for _ in range(dims):
        w = [rnd.randint(5, 50) for _ in range(n)]
        m.addConstr(vp.quicksum(w[j] * x[j] for j in range(n)) <= sum(w) // 3)
    m.write(path)


VELMOR = """
import sys, time, velmorpy as vp
t0 = time.perf_counter()
m = vp.read(sys.argv[1], env=vp.Env(params={"OutputFlag": 0}))
m.optimize()
print(time.perf_counter() - t0, m.ObjVal)
"""


def run_velmor(path):
    out = subprocess.run([sys.executable, "-c", VELMOR, path], capture_output=True, text=True, check=True)
    seconds, obj = out.stdout.split()
    return float(seconds), float(obj)


def run_highs(path):
    env = dict(os.environ, LD_LIBRARY_PATH=highsbox.highs_lib_dir())
    t0 = time.perf_counter()
    out = subprocess.run([highsbox.highs_bin_path(), "--model_file", path], capture_output=True, text=True,
                         env=env, check=True)
    seconds = time.perf_counter() - t0
    # LPs report "Objective value : v", MIPs "Primal bound v".
    obj = next(float(line.split()[-1]) for line in out.stdout.splitlines()
               if line.strip().startswith(("Objective value", "Primal bound")))
    return seconds, obj


def bulk_read(n=1_000_000):
    m = vp.Model("bulk", env=vp.Env(params={"OutputFlag": 0}))
    x = m.addVars(n, lb=1, obj=1.0)
    m.optimize()
    xs = list(x.values())
    t0 = time.perf_counter()
    values = m.getAttr("X", xs)
    seconds = time.perf_counter() - t0
    assert len(values) == n and values[0] == 1.0
    return seconds


def main():
    p = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    p.add_argument("--reps", type=int, default=5)
    args = p.parse_args()
    with tempfile.TemporaryDirectory() as d:
        files = {"transport 300x300 LP": transport, "sparse LP 6000x4500": sparse_lp,
                 "knapsack MIP 60x5": knapsack_mip}
        print(f"{'model':26s}{'velmorpy':>12s}{'highs':>12s}{'overhead':>10s}  objective")
        for label, make in files.items():
            path = os.path.join(d, label.split()[0] + ".mps")
            make(path)
            ours = [run_velmor(path) for _ in range(args.reps)]
            theirs = [run_highs(path) for _ in range(args.reps)]
            a = statistics.median(t for t, _ in ours)
            b = statistics.median(t for t, _ in theirs)
            obj_a, obj_b = ours[0][1], theirs[0][1]
            agree = "same" if abs(obj_a - obj_b) <= 1e-6 * max(1.0, abs(obj_b)) else f"DIFFER {obj_a} vs {obj_b}"
            print(f"{label:26s}{a:11.3f}s{b:11.3f}s{100 * (a / b - 1):9.1f}%  {agree}")
    print(f"getAttr('X') of 1,000,000 variables: {bulk_read() * 1000:.1f} ms")


if __name__ == "__main__":
    main()
