"""Where the bytes of a matrix-built model go, per nonzero.

The transport model of matrix_build.py (2 nonzeros per variable): addMVar + addMConstr with a
prebuilt CSR, then update. Prints the resident growth per nonzero, the part Python's allocator
holds (tracemalloc: handles, their list and arrays) and the rest (the library's store and
HiGHS-side copies), beside the CSR itself (12 bytes per nonzero plus 8 per row) and the
column data a user hands over with it (bounds, costs, types: 25 bytes per variable).
Not a timed test: `python3 benchmarks/matrix_memory.py 1000 1000`.
"""
import ctypes
import gc
import os
import sys
import tracemalloc

import numpy as np

import velmorpy as vp
from matrix_build import transport_csr


def rss():
    with open("/proc/self/statm") as f:
        return int(f.read().split()[1]) * os.sysconf("SC_PAGE_SIZE")


def build(ns, nd, traced):
    """Builds the model; returns (resident growth, Python-held bytes or None, nonzeros, rows)."""
    rng = np.random.default_rng(1)
    cost = rng.uniform(1, 10, (ns, nd))
    rhs = np.concatenate([np.full(ns, nd * 1.0), np.full(nd, ns * 0.5)])
    sense = np.array(["<"] * ns + [">"] * nd)
    A = transport_csr(ns, nd)
    env = vp.Env(params={"OutputFlag": 0})
    m = vp.Model(env=env)
    gc.collect()
    trim()
    if traced:
        tracemalloc.start()
    before = rss()
    x = m.addMVar((ns, nd), obj=cost)
    m.addMConstr(A, x.reshape(-1), sense, rhs)
    m.update()
    gc.collect()
    trim()
    grown = rss() - before
    py_bytes = tracemalloc.get_traced_memory()[0] if traced else None
    if traced:
        tracemalloc.stop()
    del x
    m.dispose()
    env.dispose()
    return grown, py_bytes, A.nnz, A.shape[0]


def trim():
    """Hands freed heap pages back, so that freed temporaries do not count as the model's."""
    try:
        ctypes.CDLL("libc.so.6").malloc_trim(0)
    except OSError:
        pass


def main(ns, nd):
    grown, _, nnz, rows = build(ns, nd, traced=False)
    _, py_bytes, _, _ = build(ns, nd, traced=True)
    n = ns * nd
    csr = 12 * nnz + 8 * rows
    print(f"{ns}x{nd}: {n} vars, {nnz} nonzeros")
    print(f"  resident growth     {grown / nnz:6.1f} B/nz")
    print(f"  Python objects      {py_bytes / nnz:6.1f} B/nz (tracemalloc, second build)")
    print(f"  library and rest    {(grown - py_bytes) / nnz:6.1f} B/nz")
    print(f"  CSR itself          {csr / nnz:6.1f} B/nz; with the column data {(csr + 25 * n) / nnz:6.1f} B/nz")


if __name__ == "__main__":
    main(int(sys.argv[1]) if len(sys.argv) > 1 else 1000, int(sys.argv[2]) if len(sys.argv) > 2 else 1000)
