"""Building linear expressions over 1,000,000 variables, compared with two other Python
modelling interfaces (PyOptInterface with its HiGHS model, and highspy).

Tasks, each timed on its own:
  quicksum(x)             the sum of all variables
  quicksum(c*x)           quicksum(c[i] * x[i] for i in range(n))
  s += c*x                a loop of in-place additions
  s = s + x               a loop of binary additions (copies; linear cost only with a shared tail)
and the memory per linear term of the quicksum(c*x) result (growth of the resident set while the
expression is alive, divided by the number of terms). With n >= 1,000,000, two index tasks over
the keys (i, j) of a 1000 x 1000 grid of the variables:
  select                  1000 select(i, '*') plus 1000 select('*', j)
  sum                     1000 sum(i, '*') plus 1000 sum('*', j)
velmorpy does them with a tupledict; the peers have no such container, so they do what their
users write instead: group the keys by each position once (timed with the task) and sum the
groups with their quicksum.

Every interface runs in a process of its own. The peers are not project dependencies; install
them into a separate environment and point --peer-python at it:

    python -m venv /tmp/benchenv && /tmp/benchenv/bin/pip install pyoptinterface highspy
    PYTHONPATH=build/mod/module python benchmarks/expressions.py --peer-python /tmp/benchenv/bin/python

A loop whose cost grows quadratically is run at the largest of 10,000 / 100,000 / 1,000,000 terms
that its smaller runs predict to finish within --loop-budget seconds; the table shows that size.
"""
import argparse
import gc
import json
import os
import subprocess
import sys
import time

INTERFACES = ["velmorpy", "pyoptinterface", "highspy"]
TASKS = ["quicksum(x)", "quicksum(c*x)", "s += c*x", "s = s + x", "select", "sum"]


def rss_bytes():
    with open("/proc/self/statm") as f:
        return int(f.read().split()[1]) * os.sysconf("SC_PAGE_SIZE")


# ---- one interface per process ---------------------------------------------------------------


def setup_velmorpy(n):
    import ctypes
    import velmorpy as vp

    m = vp.Model("bench", env=vp.Env(params={"OutputFlag": 0}))
    with open("/proc/self/maps") as maps:
        path = next(line.split()[-1] for line in maps if "libvelmor" in line)
    dll = ctypes.CDLL(path)
    getptr = ctypes.pythonapi.PyCapsule_GetPointer
    getptr.restype = ctypes.c_void_p
    getptr.argtypes = [ctypes.py_object, ctypes.c_char_p]
    handle = ctypes.c_void_p(getptr(m._cmodel, b"velmorpy.model"))
    assert dll.VLMaddvars(handle, n, 0, None, None, None, None, None, None, None, None) == 0
    m.update()
    x = m.getVars()
    ops = {
        "quicksum": vp.quicksum,
        "empty": vp.LinExpr,
        "size": lambda e: e.size(),
    }
    return m, x, ops


def setup_pyoptinterface(n):
    import glob
    import pyoptinterface as poi
    from pyoptinterface import highs

    if not highs.autoload_library():
        import highspy
        libs = glob.glob(os.path.join(os.path.dirname(highspy.__file__), "libhighs.so*"))
        if not libs or not highs.load_library(libs[0]):
            raise RuntimeError("HiGHS library for PyOptInterface not found")
    m = highs.Model()
    m.set_model_attribute(poi.ModelAttribute.Silent, True)
    x = [m.add_variable() for _ in range(n)]
    ops = {
        "quicksum": poi.quicksum,
        "empty": poi.ExprBuilder,
        # ExprBuilder keeps merged terms without a size; its function form has one.
        "size": lambda e: (e if isinstance(e, poi.ScalarAffineFunction) else poi.ScalarAffineFunction(e)).size(),
    }
    return m, x, ops


def setup_highspy(n):
    import highspy

    h = highspy.Highs()
    h.silent()
    x = list(h.addVariables(n))
    ops = {
        "quicksum": h.qsum,
        "empty": highspy.highs.highs_linear_expression,
        "size": lambda e: len(e.idxs),
    }
    return h, x, ops


def loop_sizes(n):
    return [k for k in (10_000, 100_000, 1_000_000) if k < n] + [n]


def worker(name, n, budget):
    setup = {"velmorpy": setup_velmorpy, "pyoptinterface": setup_pyoptinterface, "highspy": setup_highspy}[name]
    model, x, ops = setup(n)
    c = [float(i % 10 + 1) for i in range(n)]
    quicksum, empty, size = ops["quicksum"], ops["empty"], ops["size"]
    out = {"n": n, "tasks": {}}

    # Memory first, while the heap has no freed blocks to hand out again; the time is taken
    # from a second run on the warmed heap, as for the other tasks.
    gc.collect()
    before = rss_bytes()
    e = quicksum(c[i] * x[i] for i in range(n))
    gc.collect()
    grown = rss_bytes() - before
    out["bytes_per_term"] = grown / size(e)
    del e
    t0 = time.perf_counter()
    e = quicksum(c[i] * x[i] for i in range(n))
    out["tasks"]["quicksum(c*x)"] = {"seconds": time.perf_counter() - t0, "n": n}
    del e

    t0 = time.perf_counter()
    e = quicksum(x)
    out["tasks"]["quicksum(x)"] = {"seconds": time.perf_counter() - t0, "n": n}
    assert size(e) == n
    del e

    t0 = time.perf_counter()
    s = empty()
    for i in range(n):
        s += c[i] * x[i]
    out["tasks"]["s += c*x"] = {"seconds": time.perf_counter() - t0, "n": n}
    del s

    # The binary loop: grow the size while the smaller runs predict it fits the budget.
    result = None
    for k in loop_sizes(n):
        if result is not None and result["seconds"] * (k / result["n"]) ** 2 > budget:
            break
        t0 = time.perf_counter()
        s = 0
        for i in range(k):
            s = s + x[i]
        result = {"seconds": time.perf_counter() - t0, "n": k}
        del s
    out["tasks"]["s = s + x"] = result
    if n >= 1_000_000:
        index_tasks(name, x, quicksum, out)
    print(json.dumps(out))


def index_tasks(name, x, quicksum, out):
    side = 1000
    keys = [(i, j) for i in range(side) for j in range(side)]
    if name == "velmorpy":
        import velmorpy as vp

        td = vp.tupledict(zip(keys, x))
        t0 = time.perf_counter()
        for i in range(side):
            td.select(i, "*")
        for j in range(side):
            td.select("*", j)
        out["tasks"]["select"] = {"seconds": time.perf_counter() - t0, "n": len(keys)}
        t0 = time.perf_counter()
        for i in range(side):
            td.sum(i, "*")
        for j in range(side):
            td.sum("*", j)
        out["tasks"]["sum"] = {"seconds": time.perf_counter() - t0, "n": len(keys)}
        return
    d = dict(zip(keys, x))

    def grouped():
        rows, cols = {}, {}
        for (i, j), v in d.items():
            rows.setdefault(i, []).append(v)
            cols.setdefault(j, []).append(v)
        return rows, cols

    t0 = time.perf_counter()
    rows, cols = grouped()
    for i in range(side):
        list(rows.get(i, []))
    for j in range(side):
        list(cols.get(j, []))
    out["tasks"]["select"] = {"seconds": time.perf_counter() - t0, "n": len(keys)}
    t0 = time.perf_counter()
    rows, cols = grouped()
    for i in range(side):
        quicksum(rows.get(i, []))
    for j in range(side):
        quicksum(cols.get(j, []))
    out["tasks"]["sum"] = {"seconds": time.perf_counter() - t0, "n": len(keys)}


# ---- driver ----------------------------------------------------------------------------------


def run(name, python, n, budget):
    cmd = [python, os.path.abspath(__file__), "--worker", name, "--n", str(n), "--loop-budget", str(budget)]
    proc = subprocess.run(cmd, capture_output=True, text=True)
    if proc.returncode != 0:
        last = (proc.stderr.strip().splitlines() or ["failed"])[-1]
        return {"error": last}
    return json.loads(proc.stdout.strip().splitlines()[-1])


def cell(task):
    if task is None:
        return "-"
    text = f"{task['seconds'] * 1000:.1f} ms"
    if task["n"] != RESULTS_N:
        text += f" (n={task['n']:,})"
    return text


RESULTS_N = 0


def main():
    global RESULTS_N
    p = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    p.add_argument("--n", type=int, default=1_000_000)
    p.add_argument("--peer-python", default="/tmp/benchenv/bin/python")
    p.add_argument("--loop-budget", type=float, default=60.0)
    p.add_argument("--worker", choices=INTERFACES)
    args = p.parse_args()
    if args.worker:
        worker(args.worker, args.n, args.loop_budget)
        return
    RESULTS_N = args.n
    peer = args.peer_python if os.path.exists(args.peer_python) else sys.executable
    results = {name: run(name, sys.executable if name == "velmorpy" else peer, args.n, args.loop_budget)
               for name in INTERFACES}
    width = 26
    print(f"{args.n:,} variables")
    print("task".ljust(16) + "".join(name.ljust(width) for name in INTERFACES))
    for task in TASKS:
        row = task.ljust(16)
        for name in INTERFACES:
            r = results[name]
            row += (r["error"][: width - 2] if "error" in r else cell(r["tasks"].get(task))).ljust(width)
        print(row)
    row = "bytes/term".ljust(16)
    for name in INTERFACES:
        r = results[name]
        row += ("-" if "error" in r else f"{r['bytes_per_term']:.1f}").ljust(width)
    print(row)


if __name__ == "__main__":
    main()
