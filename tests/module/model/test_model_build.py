"""Adding variables and constraints, and reading or changing coefficients.

Everything added is read back through the library (attributes, getRow/getCol/getCoeff,
getQCRow, getSOS) or checked by solving. Refusals are checked for code, message and for
leaving the model unchanged.

Not tested here: the matrix hand-off of addConstr (the matrix layer is not built yet) and the
general-constraint kinds themselves (test_genconstr.py); only that addConstr routes to
them.
"""
import contextlib
import gc
import sys

import pytest

import velmorpy as vp
from velmorpy import VLM, VelmorError

INF = float("inf")


@pytest.fixture
def m(env):
    model = vp.Model("build", env=env)
    yield model
    model.dispose()


def row_of(m, c):
    """{name: coefficient} of a linear constraint, read from the library."""
    e = m.getRow(c)
    return {e.getVar(k).VarName: e.getCoeff(k) for k in range(e.size())}


def counts(m):
    m.update()
    return (m.NumVars, m.NumConstrs, m.NumQConstrs, m.NumSOS, len(m._Model__vars), len(m._Model__constrs))


@contextlib.contextmanager
def raises(code, message):
    """pytest.raises for a VelmorError with this code and exactly this message."""
    with pytest.raises(VelmorError) as info:
        yield info
    assert (info.value.errno, info.value.message) == (code, message)


# ---- addVar ----------------------------------------------------------------------------------

def test_addvar_attributes_and_default_names(m):
    x = m.addVar(lb=-1, ub=4.5, obj=2, vtype=VLM.INTEGER, name="x")
    y = m.addVar()
    b = m.addVar(vtype="B")
    m.update()
    assert (x.LB, x.UB, x.Obj, x.VType, x.VarName) == (-1.0, 4.5, 2.0, "I", "x")
    assert (y.LB, y.UB, y.VType, y.VarName) == (0.0, INF, "C", "C1")
    assert (b.UB, b.VType) == (1.0, "B")
    assert [v.index for v in m.getVars()] == [0, 1, 2]


def test_addvar_index_follows_update_mode(m):
    x = m.addVar()
    assert x._colno == 0 and m.getVars() == []
    m.Params.UpdateMode = 0
    m.update()
    y = m.addVar()
    assert y._colno == -1
    m.update()
    assert y._colno == 1


def test_addvar_with_column_places_the_variable_in_constraints(m):
    x = m.addVar(name="x")
    c0 = m.addConstr(x <= 1, name="c0")
    c1 = m.addConstr(x >= 0, name="c1")
    m.update()
    col = vp.Column([2.0, 1.5, 3.0], [c0, c1, c0])
    z = m.addVar(name="z", column=col)
    m.update()
    assert m.getCoeff(c0, z) == 5.0 and m.getCoeff(c1, z) == 1.5
    got = m.getCol(z)
    assert sorted((got.getConstr(k).ConstrName, got.getCoeff(k)) for k in range(got.size())) == [
        ("c0", 5.0), ("c1", 1.5)]


def test_addvar_refusals_leave_the_model_unchanged(m, env):
    other = vp.Model(env=env)
    c_other = other.addConstr(other.addVar() <= 1)
    other.update()
    c = m.addConstr(m.addVar() <= 1)
    m.update()
    before = counts(m)
    with raises(VLM.ERROR_NOT_IN_MODEL, "Constraint not in model"):
        m.addVar(column=vp.Column(1.0, c_other))
    with raises(VLM.ERROR_INVALID_ARGUMENT, "Invalid variable type 'CB' (expected 'C', 'B', 'I', 'S' or 'N')"):
        m.addVar(vtype="CB")
    with pytest.raises(VelmorError) as e:
        m.addVar(lb=float("nan"))
    assert e.value.errno == VLM.ERROR_INVALID_ARGUMENT
    with pytest.raises(TypeError):
        m.addVar(ub="high")
    m.remove(c)
    m.update()
    with raises(VLM.ERROR_NOT_IN_MODEL, "Constraint not in model"):
        m.addVar(column=vp.Column(1.0, c))
    assert counts(m) == (before[0], 0, 0, 0, before[4], 0)
    other.dispose()


# ---- addVars ---------------------------------------------------------------------------------

def test_addvars_keys_and_names(m):
    x = m.addVars(2, 3, name="x")
    y = m.addVars(["a", "b"], name="y")
    pairs = vp.tuplelist([("p", 1), ("q", 2)])
    z = m.addVars(pairs, 2, name="z")
    m.update()
    assert isinstance(x, vp.tupledict)
    assert list(x.keys()) == [(i, j) for i in range(2) for j in range(3)]
    assert [v.VarName for v in x.values()] == ["x[0,0]", "x[0,1]", "x[0,2]", "x[1,0]", "x[1,1]", "x[1,2]"]
    assert list(y.keys()) == ["a", "b"] and [v.VarName for v in y.values()] == ["y[a]", "y[b]"]
    assert list(z.keys()) == [("p", 1, 0), ("p", 1, 1), ("q", 2, 0), ("q", 2, 1)]
    assert z["q", 2, 1].VarName == "z[q,2,1]"
    assert [v.index for v in m.getVars()] == list(range(12))
    assert m.getVars()[0].sameAs(x[0, 0])


def test_addvars_values_per_key(m):
    np = pytest.importorskip("numpy")
    keys = ["a", "b", "c"]
    x = m.addVars(keys, lb={"a": 1, "b": 2, "c": 3}, ub=[5, 6, INF], obj=np.array([1.5, 2.5, 3.5]),
                  vtype=["C", "I", "B"], name=["p", "q", "r"])
    y = m.addVars(2, 2, ub=np.array([[1.0, 2.0], [3.0, 4.0]]))
    m.update()
    assert [(v.LB, v.UB, v.Obj, v.VType, v.VarName) for v in x.values()] == [
        (1.0, 5.0, 1.5, "C", "p"), (2.0, 6.0, 2.5, "I", "q"), (3.0, INF, 3.5, "B", "r")]
    assert [v.UB for v in y.values()] == [1.0, 2.0, 3.0, 4.0]
    b = m.addVars(2, vtype=VLM.BINARY)
    m.update()
    assert [v.UB for v in b.values()] == [1.0, 1.0]


def test_addvars_refusals(m):
    m.addVars(2)
    before = counts(m)
    with raises(VLM.ERROR_INVALID_ARGUMENT, "addVars() got unexpected keyword argument(s) lbs, nme"):
        m.addVars(3, lbs=1, nme="x")
    with raises(VLM.ERROR_INVALID_ARGUMENT, "Cannot convert x[\u00e9] to ASCII characters"):
        m.addVars(["a", "\u00e9"], name="x")
    with raises(VLM.ERROR_INVALID_ARGUMENT, "addVars() argument 'ub' has 2 values for 3 variables"):
        m.addVars(3, ub=[1, 2])
    with pytest.raises(KeyError):
        m.addVars(["a", "b"], lb={"a": 1})
    with pytest.raises(VelmorError) as e:
        m.addVars(2, lb=[0, INF])
    assert e.value.errno == VLM.ERROR_INVALID_ARGUMENT
    assert counts(m) == before
    assert len(m.addVars(0)) == 0


# ---- linear constraints ----------------------------------------------------------------------

def test_linear_constraint_terms_are_merged_and_constants_moved(m):
    x, y, z = (m.addVar(name=n) for n in "xyz")
    c = m.addConstr(x + 2 * y + 3 + x <= 5 + z - 0 * y, name="c")
    d = m.addConstr(7 >= y)
    e = m.addLConstr(x, VLM.GREATER_EQUAL, y, "e")
    f = m.addLConstr(x + y == 1)
    m.update()
    assert row_of(m, c) == {"x": 2.0, "y": 2.0, "z": -1.0}
    assert (c.Sense, c.RHS, c.ConstrName) == ("<", 2.0, "c")
    assert (row_of(m, d), d.Sense, d.RHS, d.ConstrName) == ({"y": 1.0}, "<", 7.0, "R1")
    assert (row_of(m, e), e.Sense, e.RHS) == ({"x": 1.0, "y": -1.0}, ">", 0.0)
    assert (row_of(m, f), f.Sense, f.RHS) == ({"x": 1.0, "y": 1.0}, "=", 1.0)
    assert m.getCoeff(c, z) == -1.0 and m.getCoeff(d, x) == 0.0


def test_decided_comparisons_become_constant_constraints(m):
    x = m.addVar(ub=1, obj=-1)
    m.addConstr(True)
    m.optimize()
    assert (m.Status, m.NumConstrs) == (VLM.OPTIMAL, 1)
    m.addConstr(False, name="never")
    m.optimize()
    assert m.Status in (VLM.INFEASIBLE, VLM.INF_OR_UNBD)


def test_deprecated_three_argument_form_warns_and_adds(m):
    x = m.addVar(name="x")
    with pytest.warns(DeprecationWarning, match="Deprecated, pass a TempConstr or use Model.addLConstr"):
        c = m.addConstr(x + 1, "<=", 4, "old")
    m.update()
    assert (row_of(m, c), c.Sense, c.RHS, c.ConstrName) == ({"x": 1.0}, "<", 3.0, "old")


def test_constraint_refusals_leave_the_model_unchanged(m, env):
    x = m.addVar(name="x")
    gone = m.addVar(name="gone")
    other = vp.Model(env=env)
    w = other.addVar()
    m.remove(gone)
    m.update()
    before = counts(m)
    with raises(VLM.ERROR_NOT_IN_MODEL, "Variable not in model"):
        m.addConstr(x + w <= 1)
    with raises(VLM.ERROR_NOT_IN_MODEL, "Variable not in model"):
        m.addConstr(x + gone <= 1)
    with raises(VLM.ERROR_NOT_IN_MODEL, "Variable not in model"):
        m.addQConstr(x * w <= 1)
    with raises(VLM.ERROR_INVALID_ARGUMENT, "Invalid None value for lhs when calling Model.addConstr"):
        m.addConstr(None)
    with raises(VLM.ERROR_INVALID_ARGUMENT, "Invalid None value for lhs when calling Model.addQConstr"):
        m.addQConstr(None)
    with raises(VLM.ERROR_INVALID_ARGUMENT, "Coefficient is Nan or Inf"):
        m.addConstr(vp.LinExpr([1.0, 2.0], [x, x]) * 1e308 <= 1)
    with raises(VLM.ERROR_INVALID_ARGUMENT, "Unsupported type (<class 'str'>) for constraint argument"):
        m.addConstr(x <= "1")
    with raises(VLM.ERROR_INVALID_ARGUMENT, "Model.addLConstr() takes linear expressions only (use addQConstr)"):
        m.addLConstr(x * x <= 1)
    with raises(VLM.ERROR_INVALID_ARGUMENT, "Invalid constraint sense '<<' (expected '<', '>' or '=')"):
        m.addLConstr(x, "<<", 1)
    with raises(VLM.ERROR_INVALID_ARGUMENT,
                "General expressions can only appear on the right hand side of a constraint"):
        m.addConstr(vp.TempConstr(vp.max_(x), "=", x))
    assert counts(m) == before
    # In lazy update mode a new variable is not usable before update().
    m.Params.UpdateMode = 0
    m.update()
    late = m.addVar()
    with raises(VLM.ERROR_NOT_IN_MODEL, "Variable not in model"):
        m.addConstr(late >= 1)
    other.dispose()


def test_general_expressions_and_indicators_become_general_constraints(m):
    x, y, z = m.addVar(), m.addVar(), m.addVar()
    b = m.addVar(vtype=VLM.BINARY)
    g = m.addConstr(z == vp.max_(x, y), name="g")
    h = m.addConstr((b == 1) >> (x + y <= 1))
    assert type(g) is vp.GenConstr and type(h) is vp.GenConstr
    m.update()
    assert m.NumGenConstrs == 2 and m.NumConstrs == 0


# ---- ranges ----------------------------------------------------------------------------------

def test_range_constraints_and_their_slacks(m):
    x = m.addVar(name="x", obj=1)
    y = m.addVar(name="y", obj=1)
    r = m.addConstr(x + y + 1 == [2, 4], name="r")
    s = m.addRange(x - y, -1.0, 1.0, "s")
    assert type(r) is vp.Constr and m._Model__newranges == 2
    m.update()
    names = [v.VarName for v in m.getVars()]
    assert names == ["x", "y", "Rgr", "Rgs"] and len(m._Model__vars) == m.NumVars == 4
    assert m.getVars()[2].index == 2
    # min x + y with 1 <= x + y <= 3 and -1 <= x - y <= 1: optimum 1.
    m.optimize()
    assert m.ObjVal == pytest.approx(1.0)
    m.ModelSense = VLM.MAXIMIZE
    m.optimize()
    assert m.ObjVal == pytest.approx(3.0) and abs(x.X - y.X) <= 1 + 1e-9


def test_range_slacks_get_handles_in_lazy_mode_too(m):
    m.Params.UpdateMode = 0
    x = m.addVar()
    m.update()
    m.addRange(x, 0, 5)
    assert m._Model__newranges == 0
    m.update()
    assert m.NumVars == len(m._Model__vars) == 2


@pytest.mark.parametrize("bounds, message", [
    ([1], "Range constraint requires two values"),
    ([1, "2"], "Range constraint requires numeric values"),
    ((1, 2), "Range constraint requires a list [lb,ub]"),
])
def test_range_refusals(m, bounds, message):
    x = m.addVar()
    before = counts(m)
    with raises(VLM.ERROR_INVALID_ARGUMENT, message):
        m.addConstr(vp.TempConstr(x + 1, "=", bounds))
    assert counts(m) == before


# ---- quadratic constraints -------------------------------------------------------------------

def test_quadratic_constraints_read_back(m):
    x, y = m.addVar(name="x", lb=-5), m.addVar(name="y", lb=-5)
    q = m.addConstr(x * x + x * y + y * x + 2 * y <= 4 + x, name="q")
    lq = m.addQConstr(x + y, VLM.LESS_EQUAL, 3)
    assert type(q) is vp.QConstr and type(lq) is vp.QConstr
    m.update()
    e = m.getQCRow(q)
    lin = e.getLinExpr()
    assert {lin.getVar(k).VarName: lin.getCoeff(k) for k in range(lin.size())} == {"x": -1.0, "y": 2.0}
    assert sorted((e.getVar1(k).VarName, e.getVar2(k).VarName, e.getCoeff(k)) for k in range(e.size())) == [
        ("x", "x", 1.0), ("x", "y", 2.0)]
    assert (q.QCSense, q.QCRHS, q.QCName) == ("<", 4.0, "q")
    assert m.getQCRow(lq).size() == 0 and lq.QCRHS == 3.0


# ---- addConstrs ------------------------------------------------------------------------------

def names_of(m, td):
    m.update()
    return {k: c.ConstrName for k, c in td.items()}


def test_addconstrs_keys_from_loop_variables(m):
    x = m.addVars(3, 2, name="x")
    one = m.addConstrs((x[i, 0] <= 1 for i in range(3)), name="c")
    two = m.addConstrs((x[i, j] >= 0 for i in range(3) for j in range(2) if i != j), name="d")
    pairs = [(0, 1), (2, 0)]
    unpacked = m.addConstrs((x[i, j] <= 5 for i, j in pairs), name="u")
    assert names_of(m, one) == {0: "c[0]", 1: "c[1]", 2: "c[2]"}
    assert list(two.keys()) == [(0, 1), (1, 0), (2, 0), (2, 1)]
    assert names_of(m, unpacked) == {(0, 1): "u[0,1]", (2, 0): "u[2,0]"}
    assert row_of(m, unpacked[2, 0]) == {"x[2,0]": 1.0}


def test_addconstrs_with_captured_and_shadowed_names(m):
    x = m.addVars(2, 3, name="x")
    # i is captured by the inner generator (a cell variable), j lives only in it, and the
    # list comprehension's k is local to the comprehension.
    rows = m.addConstrs((vp.quicksum(x[i, j] for j in range(3)) <= len([k for k in range(i + 1)])
                         for i in range(2)), name="r")
    assert names_of(m, rows) == {0: "r[0]", 1: "r[1]"}
    assert rows[1].RHS == 2.0 and row_of(m, rows[1]) == {"x[1,0]": 1.0, "x[1,1]": 1.0, "x[1,2]": 1.0}

    def gen():
        bound = 2  # not a loop variable: no part of the key
        for a in ["p", "q"]:
            for b in (1, 2):
                yield x[0, b] <= bound
    assert list(m.addConstrs(gen()).keys()) == [("p", 1), ("p", 2), ("q", 1), ("q", 2)]


def test_addconstrs_names_and_kinds(m):
    x = m.addVars(["a", "b"], name="x")
    keyed = m.addConstrs((x[k] <= 1 for k in ["a", "b"]), name="_")
    plain = m.addConstrs(x[k] >= 0 for k in ["a", "b"])
    quad = m.addConstrs((x[k] * x[k] <= 4 for k in ["a"]), name="q")
    ranged = m.addConstrs((x[k] == [0, 1] for k in ["b"]), name="r")
    assert names_of(m, keyed) == {"a": "a", "b": "b"}
    assert names_of(m, plain) == {"a": "R2", "b": "R3"}
    assert type(quad["a"]) is vp.QConstr and quad["a"].QCName == "q[a]"
    assert ranged["b"].ConstrName == "r[b]"
    with raises(VLM.ERROR_INVALID_ARGUMENT,
                "Model.addConstrs() takes a generator expression, such as (x[i] <= 1 for i in I)"):
        m.addConstrs([x["a"] <= 1])


# ---- SOS -------------------------------------------------------------------------------------

def test_sos_constraints_read_back(m, env):
    x = [m.addVar(ub=1, name=f"x{w}") for w in (1, 2, 3)]
    s1 = m.addSOS(VLM.SOS_TYPE1, x, [3, 1, 2])
    s2 = m.addSOS(VLM.SOS_TYPE2, x)
    m.update()
    kind, members, weights = m.getSOS(s1)
    assert (kind, [v.VarName for v in members], weights) == (1, ["x1", "x2", "x3"], [3.0, 1.0, 2.0])
    kind, members, weights = m.getSOS(s2)
    assert (kind, weights) == (2, [1.0, 2.0, 3.0]) and all(a.sameAs(b) for a, b in zip(members, x))
    with raises(VLM.ERROR_INVALID_ARGUMENT, "addSOS() got different numbers of variables and weights"):
        m.addSOS(VLM.SOS_TYPE1, x, [1, 2])
    other = vp.Model(env=env)
    with raises(VLM.ERROR_NOT_IN_MODEL, "Variable not in model"):
        m.addSOS(VLM.SOS_TYPE1, [x[0], other.addVar()])
    assert m.NumSOS == 2
    other.dispose()


# ---- coefficients ----------------------------------------------------------------------------

def test_coefficients_change_at_the_next_update(m):
    x, y = m.addVar(name="x"), m.addVar(name="y")
    c = m.addConstr(x + y <= 2, name="c")
    d = m.addConstr(x - y >= 0, name="d")
    # Reads see the model as of the last update, which c and x are not part of yet.
    with raises(VLM.ERROR_NOT_IN_MODEL, "Constraint not in model"):
        m.getCoeff(c, x)
    with raises(VLM.ERROR_NOT_IN_MODEL, "Constraint not in model"):
        m.getRow(c)
    with raises(VLM.ERROR_NOT_IN_MODEL, "Variable not in model"):
        m.getCol(x)
    m.update()
    m.chgCoeff(c, x, 3.0)
    m.chgCoeff([c, d], y, [0.0, 4.0])
    assert m.getCoeff(c, x) == 1.0
    m.update()
    assert row_of(m, c) == {"x": 3.0} and row_of(m, d) == {"x": 1.0, "y": 4.0}
    with raises(VLM.ERROR_INVALID_ARGUMENT, "Coefficient is Nan or Inf"):
        m.chgCoeff(c, x, float("nan"))
    with raises(VLM.ERROR_NOT_IN_MODEL, "Variable not in model"):
        m.getCoeff(c, c)
    with raises(VLM.ERROR_NOT_IN_MODEL, "Constraint not in model"):
        m.getRow(x)
    col = m.getCol(y)
    assert [(col.getConstr(k).ConstrName, col.getCoeff(k)) for k in range(col.size())] == [("d", 4.0)]


# ---- whole models ----------------------------------------------------------------------------

def test_production_mip_optimum(m):
    # max 5a + 4b + 3c  s.t.  2a + 3b + c <= 5,  4a + b + 2c <= 11,  3a + 4b + 2c <= 8, integers:
    # a = 2, b = 0, c = 1 gives 13 (the LP optimum is integral).
    x = m.addVars(["a", "b", "c"], vtype=VLM.INTEGER, obj={"a": 5, "b": 4, "c": 3}, name="x")
    a, b, c = x.values()
    m.ModelSense = VLM.MAXIMIZE
    m.addConstr(2 * a + 3 * b + c <= 5)
    m.addLConstr(4 * a + b + 2 * c, "<", 11)
    m.addConstrs((3 * a + 4 * b + 2 * c <= cap for cap in [8]), name="cap")
    m.optimize()
    assert m.Status == VLM.OPTIMAL and m.ObjVal == pytest.approx(13.0)
    assert [v.X for v in x.values()] == [pytest.approx(2.0), pytest.approx(0.0), pytest.approx(1.0)]


def test_transportation_lp_optimum(m):
    # Two plants (supply 20, 30) and three markets (demand 10, 25, 15); shipping costs below.
    # Plant 0 serves market 0 (10) and 10 of market 1, plant 1 the other 15 of market 1 and
    # market 2: 10*1 + 10*2 + 15*3 + 15*1 = 90.
    cost = {(0, 0): 1, (0, 1): 2, (0, 2): 4, (1, 0): 3, (1, 1): 3, (1, 2): 1}
    ship = m.addVars(2, 3, obj=cost, name="ship")
    m.addConstrs((ship.sum(p, "*") <= s for p, s in enumerate([20, 30])), name="supply")
    # Both loop variables make the key: (1, 25) for market 1.
    demand = m.addConstrs((vp.quicksum(ship[p, k] for p in range(2)) >= d for k, d in enumerate([10, 25, 15])),
                          name="demand")
    m.optimize()
    assert m.ObjVal == pytest.approx(90.0)
    assert list(demand.keys()) == [(0, 10), (1, 25), (2, 15)]
    assert m.getConstrByName("demand[1,25]").RHS == 25.0


@pytest.mark.skipif(sys.version_info < (3, 12), reason="inlined comprehensions exist from 3.12 on")
def test_addconstrs_inlined_comprehension_locals_are_not_keys(m):
    x = m.addVars(2)
    c = m.addConstrs(x[i] <= sum([j for j in range(2)]) for i in range(2))
    assert list(c.keys()) == [0, 1]


def test_building_and_reading_keep_reference_counts(m):
    x, y = m.addVar(), m.addVar()
    name = "".join(["leak", "check"])

    def build():
        for _ in range(200):
            m.addConstr(x + 2 * y <= 1, name)
            m.addQConstr(x * y <= 1)
            m.addConstr(x - y == [0, 1], name=name)
        m.addConstrs((x <= i for i in range(50)), name=name)
        m.addVars(["a", "b"], name=name, lb={"a": 0, "b": 1})
        m.update()
        c, q = m.getConstrs()[0], m.getQConstrs()[0]
        for _ in range(200):
            m.getRow(c), m.getCol(x), m.getQCRow(q), m.getCoeff(c, x)

    def census():
        gc.collect()
        kinds = {}
        for o in gc.get_objects():
            if type(o).__module__ == "velmorpy":
                kinds[type(o).__name__] = kinds.get(type(o).__name__, 0) + 1
        handles = (m.getConstrs()[0], m.getQConstrs()[0])
        refs = tuple(sys.getrefcount(o) for o in (x, y, name) + handles)
        return refs, kinds

    build()
    before = census()
    build()
    after = census()
    assert after[0] == before[0]
    # Handles are not tracked by the collector (they reference no Python object), so the
    # census sees expressions and other objects only: none may be left behind.
    grown = {k: after[1].get(k, 0) - before[1].get(k, 0) for k in set(after[1]) | set(before[1])}
    assert {k: v for k, v in grown.items() if v} == {}
    assert (m.NumConstrs, m.NumQConstrs, m.NumVars) == (900, 400, 406)


def test_names_the_library_cannot_hold_are_refused_and_nothing_is_added(env):
    m = vp.Model(env=env)
    x = m.addVar(name="x")
    m.update()
    attempts = [
        (lambda: m.addVar(name="a\0b"), "Invalid text 'a\\x00b': it holds a NUL character"),
        (lambda: m.addVar(name="x\udcff"),
         "Invalid text 'x\\udcff': it holds characters that cannot be encoded as UTF-8"),
        (lambda: m.addVars(2, name="v\0"), "Invalid text 'v\\x00': it holds a NUL character"),
        (lambda: m.addVars(["k\0"], name="v"), "Invalid text 'v[k\\x00]': it holds a NUL character"),
        (lambda: m.addVars(["k\udcff"], name="v"),
         "Invalid text 'k\\udcff': it holds characters that cannot be encoded as UTF-8"),
        (lambda: m.addConstr(x >= 0, name="c\0"), "Invalid text 'c\\x00': it holds a NUL character"),
        (lambda: m.addGenConstrMax(x, [x], name="g\0"), "Invalid text 'g\\x00': it holds a NUL character"),
    ]
    for attempt, text in attempts:
        with pytest.raises(vp.VelmorError) as info:
            attempt()
        assert info.value.errno == vp.VLM.ERROR_INVALID_ARGUMENT
        assert str(info.value) == text
    m.update()
    assert (m.NumVars, m.NumConstrs, m.NumGenConstrs) == (1, 0, 0)
