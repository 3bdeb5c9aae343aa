"""Build + hand-off time of matrix-form models in velmorpy beside two open-source modelling
layers (linopy, PyOptInterface) and beside handing the same CSR arrays straight to HiGHS.

Rows:
  transport NS x ND   10^6 variables at 1000 x 1000; velmorpy addMVar + addMConstr (CSR) and
                      the axis-sum form; linopy's array form; PyOptInterface's fastest form (one
                      vectorised add_variables, then rows from ScalarAffineFunction arrays);
                      highspy addVars + addRows with the CSR (the array limit).
  lqcp N              the control problem of matrix_lqcp.py: velmorpy matrix form; linopy with
                      shifted variables and masks; PyOptInterface with loops.
  facility G          matrix_facility.py; linopy holds no quadratic constraints and HiGHS none
                      either, so the peers build its linear rows only and the velmorpy figure
                      of that same linear part is printed beside them.

Hand-off: velmorpy's update (the model complete in the library's store; the engine copies it
into HiGHS when a solve starts, timed on its own for the transport beside HiGHS's own start);
linopy's to_highspy(); PyOptInterface and highspy write into HiGHS directly.
A peer that is not installed is skipped. Not a timed test: run by hand,
`python3 benchmarks/matrix_peers.py [transport lqcp facility]`.
"""
import gc
import importlib
import subprocess
import sys
import time
from pathlib import Path

import numpy as np

sys.path.insert(0, str(Path(__file__).resolve().parent))


def optional(name):
    try:
        return importlib.import_module(name)
    except ImportError:
        return None


# Each row runs in a process of its own: highspy's HiGHS and the one velmorpy loads do not
# share a process safely (highspy crashes), and a fresh process gives every row the same start.
vp = VLM = matrix_facility = matrix_lqcp = None
linopy = poi = poi_highs = highspy = None
T_LQCP, A_LQCP = 1.58, 0.001  # as in matrix_lqcp.py


def load(who):
    """Imports what the row of `who` needs; False when that peer is not installed."""
    global vp, VLM, matrix_facility, matrix_lqcp, linopy, poi, poi_highs, highspy
    if who == "velmorpy":
        vp = importlib.import_module("velmorpy")
        VLM = vp.VLM
        matrix_facility = importlib.import_module("matrix_facility")
        matrix_lqcp = importlib.import_module("matrix_lqcp")
        return True
    if who == "linopy":
        linopy = optional("linopy")
        return linopy is not None
    if who == "poi":
        poi = optional("pyoptinterface")
        poi_highs = optional("pyoptinterface.highs") if poi else None
        return poi_highs is not None and bool(poi_highs.autoload_library())
    highspy = optional("highspy")
    return highspy is not None


def transport_csr(ns, nd):
    """Rows: supply i sums x[i, :], then demand j sums x[:, j]; x flattened in C order."""
    import scipy.sparse as sp
    n = ns * nd
    rows = np.concatenate([np.repeat(np.arange(ns), nd), ns + np.tile(np.arange(nd), ns)])
    cols = np.concatenate([np.arange(n), np.arange(n)])
    return sp.csr_matrix((np.ones(2 * n), (rows, cols)), shape=(ns + nd, n))


def lqcp_data(n):
    dx, dt = 1.0 / n, T_LQCP / n
    yt = 0.5 * (1 - (np.arange(n + 1) * dx) ** 2)
    w = np.full(n + 1, 2.0)
    w[0] = w[-1] = 1.0
    v = np.full(n, 2.0)
    v[-1] = 1.0
    return dx, dt, dx * dx, yt, w, v


def report(model, size, who, seconds, note=""):
    print(f"{model:>9} {size:>10} {who:>22}: {seconds:7.2f}s {note}", flush=True)


def ids(arr):
    """PyOptInterface's variable handles as their integer indices (its fastest constructors take
    those); the handles of one add_m_variables call are numbered consecutively."""
    flat = arr.ravel()
    return flat[0].index + np.arange(flat.size).reshape(arr.shape) if flat.size else np.zeros(arr.shape, int)


def timed(fn):
    gc.collect()
    t0 = time.perf_counter()
    out = fn()
    return time.perf_counter() - t0, out


def velmor_handoff(m):
    """The model is complete in the library's store (the engine copies it into HiGHS when a
    solve starts; transport_velmor times that step on its own)."""
    m.update()


def velmor_engine_start(m):
    """An optimize stopped by IterationLimit 0: the copy into HiGHS plus HiGHS's own start."""
    m.Params.IterationLimit = 0
    m.optimize()


# ---- transport -----------------------------------------------------------------------------------

def transport_data(ns, nd):
    rng = np.random.default_rng(1)
    return rng.uniform(1, 10, (ns, nd)), np.full(ns, nd * 1.0), np.full(nd, ns * 0.5)


def transport_velmor(ns, nd, form):
    cost, supply, demand = transport_data(ns, nd)
    A = transport_csr(ns, nd)
    sense = np.array(["<"] * ns + [">"] * nd)
    env = vp.Env(params={"OutputFlag": 0})
    m = vp.Model(env=env)

    def build():
        x = m.addMVar((ns, nd), obj=cost)
        if form == "CSR":
            m.addMConstr(A, x.reshape(-1), sense, np.concatenate([supply, demand]))
        else:
            m.addConstr(x.sum(axis=1) <= supply)
            m.addConstr(x.sum(axis=0) >= demand)
        velmor_handoff(m)

    t, _ = timed(build)
    report("transport", f"{ns}x{nd}", f"velmorpy {form}", t)
    if form == "CSR":
        t, _ = timed(lambda: velmor_engine_start(m))
        report("transport", f"{ns}x{nd}", "velmorpy solve start", t, "(optimize, IterationLimit 0)")
    m.dispose()
    env.dispose()


def transport_linopy(ns, nd):
    cost, supply, demand = transport_data(ns, nd)

    def build():
        m = linopy.Model()
        x = m.add_variables(lower=0, coords=[np.arange(ns), np.arange(nd)], dims=["i", "j"], name="x")
        m.add_constraints(x.sum("j") <= supply, name="supply")
        m.add_constraints(x.sum("i") >= demand, name="demand")
        m.add_objective((cost * x).sum())
        return m.to_highspy()

    t, _ = timed(build)
    report("transport", f"{ns}x{nd}", "linopy", t)


def transport_poi(ns, nd):
    cost, supply, demand = transport_data(ns, nd)

    def build():
        m = poi_highs.Model()
        m.set_model_attribute(poi.ModelAttribute.Silent, True)
        x = ids(m.add_m_variables((ns, nd), lb=0.0))
        ones = [1.0] * nd
        for i in range(ns):
            m.add_linear_constraint(poi.ScalarAffineFunction(ones, x[i, :].tolist()), poi.Leq, supply[i])
        ones = [1.0] * ns
        for j in range(nd):
            m.add_linear_constraint(poi.ScalarAffineFunction(ones, x[:, j].tolist()), poi.Geq, demand[j])
        m.set_objective(poi.ScalarAffineFunction(cost.ravel().tolist(), x.ravel().tolist()))
        return m

    t, _ = timed(build)
    report("transport", f"{ns}x{nd}", "PyOptInterface", t)


def transport_highs(ns, nd):
    cost, supply, demand = transport_data(ns, nd)
    A = transport_csr(ns, nd)
    n = ns * nd

    def build():
        h = highspy.Highs()
        h.setOptionValue("output_flag", False)
        h.addVars(n, np.zeros(n), np.full(n, highspy.kHighsInf))
        h.changeColsCost(n, np.arange(n, dtype=np.int32), cost.ravel())
        lower = np.concatenate([np.full(ns, -highspy.kHighsInf), demand])
        upper = np.concatenate([supply, np.full(nd, highspy.kHighsInf)])
        h.addRows(ns + nd, lower, upper, A.nnz, A.indptr[:-1].astype(np.int32), A.indices.astype(np.int32), A.data)
        return h

    t, h = timed(build)
    report("transport", f"{ns}x{nd}", "HiGHS arrays", t)
    h.setOptionValue("simplex_iteration_limit", 0)
    t, _ = timed(h.run)
    report("transport", f"{ns}x{nd}", "HiGHS solve start", t, "(run, simplex_iteration_limit 0)")


# ---- lqcp ----------------------------------------------------------------------------------------

def lqcp_velmor(n):
    env = vp.Env(params={"OutputFlag": 0})
    m = vp.Model(env=env)
    t, _ = timed(lambda: (matrix_lqcp.matrix_form(m, n), velmor_handoff(m)))
    report("lqcp", n, "velmorpy matrix", t)
    m.dispose()
    env.dispose()


def lqcp_linopy(n):
    dx, dt, h2, yt, w, v = lqcp_data(n)

    def build():
        m = linopy.Model()
        idx = np.arange(n + 1)
        y = m.add_variables(lower=0, upper=1, coords=[idx, idx], dims=["i", "j"], name="y")
        u = m.add_variables(lower=-1, upper=1, coords=[idx], dims=["i"], name="u")
        import xarray as xr
        yn = y.shift(i=-1)
        lap = y.shift(j=1) - 2 * y + y.shift(j=-1) + yn.shift(j=1) - 2 * yn + yn.shift(j=-1)
        mask = xr.DataArray((idx[:, None] < n) & (idx[None, :] > 0) & (idx[None, :] < n),
                            coords=[idx, idx], dims=["i", "j"])
        m.add_constraints((yn - y) / dt - lap / (2 * h2) == 0, mask=mask, name="pde")
        m.add_constraints(y.sel(i=0, drop=True) == 0, name="init")
        rows = y.isel(i=slice(1, None))
        m.add_constraints(rows.sel(j=2, drop=True) - 4 * rows.sel(j=1, drop=True) + 3 * rows.sel(j=0, drop=True) == 0, name="left")
        ui = u.isel(i=slice(1, None))
        m.add_constraints((rows.sel(j=n - 2, drop=True) - 4 * rows.sel(j=n - 1, drop=True) + 3 * rows.sel(j=n, drop=True)) / (2 * dx)
                          - ui + rows.sel(j=n, drop=True) == 0, name="right")
        # linopy takes no objective constant; sum w (y - yt)^2 is written without it.
        yn_ = y.sel(i=n, drop=True)
        wj = xr.DataArray(0.25 * dx * w, coords=[idx], dims=["j"])
        lin = xr.DataArray(-0.5 * dx * w * yt, coords=[idx], dims=["j"])
        vi = xr.DataArray(0.25 * A_LQCP * dt * v, coords=[idx[1:]], dims=["i"])
        m.add_objective((wj * yn_ * yn_).sum() + (lin * yn_).sum() + (vi * ui * ui).sum())
        return m.to_highspy()

    t, _ = timed(build)
    report("lqcp", n, "linopy", t)


def lqcp_poi(n):
    dx, dt, h2, yt, w, v = lqcp_data(n)

    def build():
        m = poi_highs.Model()
        m.set_model_attribute(poi.ModelAttribute.Silent, True)
        yv = m.add_m_variables((n + 1, n + 1), lb=0.0, ub=1.0)
        uv = m.add_m_variables(n + 1, lb=-1.0, ub=1.0)
        y, u = ids(yv).tolist(), ids(uv).tolist()
        c = 1.0 / (2 * h2)
        for i in range(n):
            for j in range(1, n):
                e = poi.ScalarAffineFunction(
                    [1 / dt + 2 * c, -1 / dt + 2 * c, -c, -c, -c, -c],
                    [y[i + 1][j], y[i][j], y[i][j - 1], y[i][j + 1], y[i + 1][j - 1], y[i + 1][j + 1]])
                m.add_linear_constraint(e, poi.Eq, 0.0)
        for j in range(n + 1):
            m.add_linear_constraint(poi.ScalarAffineFunction([1.0], [y[0][j]]), poi.Eq, 0.0)
        for i in range(1, n + 1):
            m.add_linear_constraint(poi.ScalarAffineFunction([1.0, -4.0, 3.0], [y[i][2], y[i][1], y[i][0]]), poi.Eq, 0.0)
            k = 1 / (2 * dx)
            m.add_linear_constraint(poi.ScalarAffineFunction([k, -4 * k, 3 * k + 1, -1.0],
                                                             [y[i][n - 2], y[i][n - 1], y[i][n], u[i]]), poi.Eq, 0.0)
        obj = poi.ExprBuilder()
        for j in range(n + 1):
            cj = 0.25 * dx * w[j]
            obj.add_quadratic_term(yv[n, j], yv[n, j], cj)
            obj.add_affine_term(yv[n, j], -2 * cj * yt[j])
        for i in range(1, n + 1):
            obj.add_quadratic_term(uv[i], uv[i], 0.25 * A_LQCP * dt * v[i - 1])
        m.set_objective(obj)
        return m

    t, _ = timed(build)
    report("lqcp", n, "PyOptInterface", t)


# ---- facility ------------------------------------------------------------------------------------

def facility_velmor(G, linear_only):
    env = vp.Env(params={"OutputFlag": 0})
    m = vp.Model(env=env)
    if linear_only:
        t, _ = timed(lambda: (facility_linear_velmor(m, G, G), velmor_handoff(m)))
    else:
        # Quadratic rows: the hand-off is the update (the LP/MIP engine is not started).
        t, _ = timed(lambda: (matrix_facility.matrix_form(m, G, G), m.update()))
    report("facility", G, "velmorpy " + ("linear part" if linear_only else "matrix"), t)
    m.dispose()
    env.dispose()


def facility_linear_velmor(m, G, F):
    n = G + 1
    M = 2 * np.sqrt(2)
    grid = np.arange(n) / G
    y = m.addMVar((F, 2), ub=1.0)
    s = m.addMVar((n, n, F))
    z = m.addMVar((n, n, F), vtype=VLM.BINARY)
    r = m.addMVar((n, n, F, 2), lb=-np.inf)
    d = m.addMVar(1)
    m.setObjective(d.sum())
    m.addConstr(z.sum(axis=2) == 1)
    m.addConstr(s == d + M * (1 - z))
    m.addConstr(r[:, :, :, 0] == grid[:, None, None] - y[:, 0])
    m.addConstr(r[:, :, :, 1] == grid[None, :, None] - y[:, 1])


def facility_linopy(G):
    import xarray as xr
    n, F = G + 1, G
    M = 2 * np.sqrt(2)

    def build():
        m = linopy.Model()
        I, J, Fs, K = np.arange(n), np.arange(n), np.arange(F), np.arange(2)
        y = m.add_variables(lower=0, upper=1, coords=[Fs, K], dims=["f", "k"], name="y")
        s = m.add_variables(lower=0, coords=[I, J, Fs], dims=["i", "j", "f"], name="s")
        z = m.add_variables(binary=True, coords=[I, J, Fs], dims=["i", "j", "f"], name="z")
        r = m.add_variables(coords=[I, J, Fs, K], dims=["i", "j", "f", "k"], name="r")
        d = m.add_variables(lower=0, name="d")
        m.add_objective(1 * d)
        m.add_constraints(z.sum("f") == 1, name="assign")
        m.add_constraints(s - d + M * z == M, name="dist")
        gi = xr.DataArray(I / G, coords=[I], dims=["i"])
        gj = xr.DataArray(J / G, coords=[J], dims=["j"])
        m.add_constraints(r.sel(k=0) + y.sel(k=0) == gi, name="rx")
        m.add_constraints(r.sel(k=1) + y.sel(k=1) == gj, name="ry")
        return m.to_highspy()

    t, _ = timed(build)
    report("facility", G, "linopy (linear part)", t)


def facility_poi(G):
    n, F = G + 1, G
    M = 2 * np.sqrt(2)

    def build():
        m = poi_highs.Model()
        m.set_model_attribute(poi.ModelAttribute.Silent, True)
        y = ids(m.add_m_variables((F, 2), lb=0.0, ub=1.0)).tolist()
        s = ids(m.add_m_variables((n, n, F), lb=0.0)).tolist()
        z = ids(m.add_m_variables((n, n, F), domain=poi.VariableDomain.Binary)).tolist()
        r = ids(m.add_m_variables((n, n, F, 2))).tolist()
        d = m.add_variable(lb=0.0).index
        m.set_objective(poi.ScalarAffineFunction([1.0], [d]))
        ones = [1.0] * F
        for i in range(n):
            for j in range(n):
                m.add_linear_constraint(poi.ScalarAffineFunction(ones, z[i][j]), poi.Eq, 1.0)
                for f in range(F):
                    m.add_linear_constraint(poi.ScalarAffineFunction([1.0, -1.0, M], [s[i][j][f], d, z[i][j][f]]),
                                            poi.Eq, M)
                    m.add_linear_constraint(poi.ScalarAffineFunction([1.0, 1.0], [r[i][j][f][0], y[f][0]]),
                                            poi.Eq, i / G)
                    m.add_linear_constraint(poi.ScalarAffineFunction([1.0, 1.0], [r[i][j][f][1], y[f][1]]),
                                            poi.Eq, j / G)
        return m

    t, _ = timed(build)
    report("facility", G, "PyOptInterface (lin.)", t)


ROWS = {
    ("transport", "velmorpy"): lambda size: (transport_velmor(size, size, "CSR"),
                                             transport_velmor(size, size, "axis sums")),
    ("transport", "linopy"): lambda size: transport_linopy(size, size),
    ("transport", "poi"): lambda size: transport_poi(size, size),
    ("transport", "highs"): lambda size: transport_highs(size, size),
    ("lqcp", "velmorpy"): lqcp_velmor,
    ("lqcp", "linopy"): lqcp_linopy,
    ("lqcp", "poi"): lqcp_poi,
    ("facility", "velmorpy"): lambda G: (facility_velmor(G, False), facility_velmor(G, True)),
    ("facility", "linopy"): facility_linopy,
    ("facility", "poi"): facility_poi,
}
SIZES = {"transport": [1000], "lqcp": [500, 1000], "facility": [25, 50, 75]}
WHO = ["velmorpy", "linopy", "poi", "highs"]


if __name__ == "__main__":
    if len(sys.argv) == 5 and sys.argv[1] == "--row":
        model, who, size = sys.argv[2], sys.argv[3], int(sys.argv[4])
        if load(who):
            # A small build first, untimed: imports and first-call set-up are not the row's.
            import contextlib
            import io
            with contextlib.redirect_stdout(io.StringIO()):
                ROWS[model, who](30 if model == "transport" else 4)
            ROWS[model, who](size)
        else:
            print(f"{model:>9} {size:>10} {who:>22}: skipped (not installed)")
        sys.exit(0)
    for model in sys.argv[1:] or ["transport", "lqcp", "facility"]:
        for size in SIZES[model]:
            for who in WHO:
                if (model, who) in ROWS:
                    subprocess.run([sys.executable, __file__, "--row", model, who, str(size)], check=False)
