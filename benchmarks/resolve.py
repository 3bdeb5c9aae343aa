"""Re-solves through libvelmor against the same work done through HiGHS' own C API.

Cases (best of --reps, wall time in one process, both sides through ctypes so that the call
overhead is the same):
  cold              a new model built with bulk calls and solved, against passing the same
                    arrays to a new HiGHS instance and running it (transport LP, k x k)
  hot               solving again with nothing changed, against running HiGHS again
  bounds N          changing N upper bounds (N = 1, 100, 10,000), then re-solving, against
                    Highs_changeColsBoundsBySet + Highs_run
  loop              1,000 iterations of "change one bound, re-solve" on a 1,000-row LP (a
                    transport LP with 990 sources and 10 sinks, 9,900 columns)
The library's pass counters are not visible through the C API; the loop's iteration counts
(IterCount against HiGHS' simplex_iteration_count) show that both sides warm-start.

Targets: cold within 1.03x of HiGHS; hot within 1.1x + 1 ms; bounds within 1.2x; loop within 1.3x.

Run:  python benchmarks/resolve.py [--lib build/t/lib/libvelmor.so] [--k 300] [--reps 5]
"""
import argparse
import ctypes as C
import os
import random
import time

import highsbox

INF = 1e100


def load(lib_path):
    hl = C.CDLL(os.path.join(highsbox.highs_lib_dir(), "libhighs.so"))
    vl = C.CDLL(lib_path)
    vl.VLMgetmerrormsg.restype = C.c_char_p
    hl.Highs_create.restype = C.c_void_p
    for f in ("Highs_passModel", "Highs_run", "Highs_destroy", "Highs_setBoolOptionValue",
              "Highs_changeColsBoundsBySet", "Highs_getObjectiveValue", "Highs_getIntInfoValue"):
        getattr(hl, f).argtypes = None
    hl.Highs_getObjectiveValue.restype = C.c_double
    return vl, hl


def arr(ctype, values):
    return (ctype * len(values))(*values)


class Lp:
    """A transport LP with k sources (supply 110) and k sinks (demand 100), row-wise arrays."""

    def __init__(self, k, sinks=None, seed=1):
        rnd = random.Random(seed)
        sinks = sinks or k
        self.n = k * sinks
        self.m = k + sinks
        self.cost = [rnd.uniform(1, 10) for _ in range(self.n)]
        start, index = [], []
        for i in range(k):
            start.append(len(index))
            index.extend(i * sinks + j for j in range(sinks))
        for j in range(sinks):
            start.append(len(index))
            index.extend(i * sinks + j for i in range(k))
        self.start, self.index = start, index
        self.nnz = len(index)
        supply = 100.0 * sinks / k * 1.1
        self.rlo = [-float("inf")] * k + [100.0] * sinks
        self.rup = [supply] * k + [float("inf")] * sinks
        self.sense = b"<" * k + b">" * sinks
        self.rhs = [supply] * k + [100.0] * sinks
        self.c = dict(cost=arr(C.c_double, self.cost), lo=arr(C.c_double, [0.0] * self.n),
                      up=arr(C.c_double, [float("inf")] * self.n), ub_lib=arr(C.c_double, [INF] * self.n),
                      rlo=arr(C.c_double, self.rlo), rup=arr(C.c_double, self.rup),
                      start=arr(C.c_int, start), start_lib=arr(C.c_int, start), index=arr(C.c_int, index),
                      val=arr(C.c_double, [1.0] * self.nnz), sense=C.create_string_buffer(self.sense, self.m),
                      rhs=arr(C.c_double, self.rhs))


class Velmor:
    def __init__(self, vl, lp):
        self.vl, self.lp = vl, lp
        self.env = C.c_void_p()
        assert vl.VLMemptyenv(C.byref(self.env)) == 0
        vl.VLMsetintparam(self.env, b"OutputFlag", 0)
        assert vl.VLMstartenv(self.env) == 0
        self.m = C.c_void_p()

    def build(self):
        vl, c, lp = self.vl, self.lp.c, self.lp
        assert vl.VLMnewmodel(self.env, C.byref(self.m), b"bench", lp.n, c["cost"], None, c["ub_lib"], None, None) == 0
        assert vl.VLMaddconstrs(self.m, lp.m, lp.nnz, c["start_lib"], c["index"], c["val"], c["sense"], c["rhs"],
                                None) == 0

    def solve(self):
        rc = self.vl.VLMoptimize(self.m)
        assert rc == 0, self.vl.VLMgetmerrormsg(self.m)

    def set_ub(self, ind, val):
        assert self.vl.VLMsetdblattrlist(self.m, b"UB", len(ind), arr(C.c_int, ind), arr(C.c_double, val)) == 0

    def obj(self):
        v = C.c_double()
        self.vl.VLMgetdblattr(self.m, b"ObjVal", C.byref(v))
        return v.value

    def iters(self):
        v = C.c_double()
        self.vl.VLMgetdblattr(self.m, b"IterCount", C.byref(v))
        return v.value

    def free(self):
        self.vl.VLMfreemodel(self.m)
        self.m = C.c_void_p()


class Highs:
    def __init__(self, hl, lp):
        self.hl, self.lp = hl, lp
        self.h = None

    def build(self):
        hl, c, lp = self.hl, self.lp.c, self.lp
        self.h = C.c_void_p(hl.Highs_create())
        hl.Highs_setBoolOptionValue(self.h, b"output_flag", 0)
        assert hl.Highs_passModel(self.h, lp.n, lp.m, lp.nnz, 0, 2, 1, 1, C.c_double(0.0), c["cost"], c["lo"], c["up"],
                                  c["rlo"], c["rup"], c["start"], c["index"], c["val"], None, None, None, None) >= 0

    def solve(self):
        assert self.hl.Highs_run(self.h) >= 0

    def set_ub(self, ind, val):
        n = len(ind)
        lo = arr(C.c_double, [0.0] * n)
        assert self.hl.Highs_changeColsBoundsBySet(self.h, n, arr(C.c_int, ind), lo, arr(C.c_double, val)) >= 0

    def obj(self):
        return self.hl.Highs_getObjectiveValue(self.h)

    def iters(self):
        v = C.c_int()
        self.hl.Highs_getIntInfoValue(self.h, b"simplex_iteration_count", C.byref(v))
        return v.value

    def free(self):
        self.hl.Highs_destroy(self.h)
        self.h = None


def best(reps, setup, work):
    """Best of `reps` timings of work(), each after an untimed setup()."""
    times = []
    for _ in range(reps):
        setup()
        t0 = time.perf_counter()
        work()
        times.append(time.perf_counter() - t0)
    return min(times)


def cases(side, lp, reps, rnd_seed=5):
    out = {}
    # cold: build + solve from nothing, freeing the previous one untimed
    times = []
    for _ in range(reps):
        if isinstance(side, Velmor):
            if side.m:
                side.free()
        elif side.h is not None:
            side.free()
        t0 = time.perf_counter()
        side.build()
        side.solve()
        times.append(time.perf_counter() - t0)
    out["cold"] = min(times)
    obj0 = side.obj()
    out["hot"] = best(reps, lambda: None, side.solve)
    rnd = random.Random(rnd_seed)
    for count in (1, 100, 10000):
        state = {}

        def setup():
            state["ind"] = rnd.sample(range(lp.n), count)
            state["val"] = [rnd.uniform(20, 60) for _ in range(count)]

        def work():
            side.set_ub(state["ind"], state["val"])
            side.solve()
        out["bounds %d" % count] = best(reps, setup, work)
    return out, obj0


class Loop:
    """The loop "change one bound, re-solve" on one side, run in chunks so that the two sides
    can take turns (the machine's load then weighs on both alike)."""

    def __init__(self, side, lp, seed=9):
        self.side, self.lp, self.rnd = side, lp, random.Random(seed)
        side.build()
        side.solve()
        self.seconds, self.iters = 0.0, 0

    def chunk(self, count):
        side, rnd = self.side, self.rnd
        t0 = time.perf_counter()
        for _ in range(count):
            j = rnd.randrange(self.lp.n)
            side.set_ub([j], [rnd.uniform(0, 100)])
            side.solve()
            self.iters += side.iters()
        self.seconds += time.perf_counter() - t0


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("--lib", default=os.path.join("build", "t", "lib", "libvelmor.so"))
    ap.add_argument("--k", type=int, default=300)
    ap.add_argument("--reps", type=int, default=5)
    ap.add_argument("--loop", type=int, default=1000)
    args = ap.parse_args()
    vl, hl = load(args.lib)

    lp = Lp(args.k)
    v, h = Velmor(vl, lp), Highs(hl, lp)
    # The sides take turns, one repetition of every case at a time; the best of each is kept.
    rv, rh = {}, {}
    for rep in range(args.reps):
        for side, res in ((v, rv), (h, rh)):
            out, obj = cases(side, lp, 1, rnd_seed=rep)
            for key, t in out.items():
                res[key] = min(res.get(key, t), t)
            res["objective"] = obj
    print("transport %d x %d: %d columns, %d rows (objective %.6g / %.6g)"
          % (args.k, args.k, lp.n, lp.m, rv.pop("objective"), rh.pop("objective")))
    print("%-14s %12s %12s %8s" % ("case", "velmor s", "HiGHS s", "ratio"))
    for key in rv:
        print("%-14s %12.5f %12.5f %7.2fx" % (key, rv[key], rh[key], rv[key] / rh[key]))

    # 1,000 rows: 990 sources by 10 sinks (9,900 columns).
    lp2 = Lp(990, sinks=10)
    lv, lh = Loop(Velmor(vl, lp2), lp2), Loop(Highs(hl, lp2), lp2)
    step = max(1, args.loop // 20)
    for _ in range(0, args.loop, step):
        lv.chunk(step)
        lh.chunk(step)
    print("loop of %d bound changes on %d rows x %d columns: velmor %.4f s (%d iterations), HiGHS %.4f s "
          "(%d iterations), ratio %.2fx; final objective %.6g / %.6g"
          % (args.loop, lp2.m, lp2.n, lv.seconds, lv.iters, lh.seconds, lh.iters, lv.seconds / lh.seconds,
             lv.side.obj(), lh.side.obj()))


if __name__ == "__main__":
    main()
