"""General constraints: Model.addGenConstr..., getGenConstr... and the addConstr route.

Variables are created through the library (the ctypes helper of test_model.py), so these tests
do not depend on addVar. What is added is checked by reading it back through the readers, and by
writing LP and MPS files and reading them into a new model.

Not tested here: MVar arguments (the matrix layer does not exist yet); solving (the library
refuses general constraints for now, which one test pins down).
"""
import math
import sys

import pytest

import velmorpy as vp
from model.test_model import lib
from velmorpy import VLM, VelmorError

INVALID = VLM.ERROR_INVALID_ARGUMENT
NOT_IN_MODEL = VLM.ERROR_NOT_IN_MODEL

needs_addconstr = pytest.mark.skipif(not hasattr(vp.Model, "addConstr"), reason="Model.addConstr not built yet")


@pytest.fixture
def m(env):
    """x in [-5, 5], y in [0, 4], z in [-10, 10], binaries b and c; updated, UpdateMode 1."""
    model = vp.Model("gc", env=env)
    lib.add_var(model, "x", lb=-5.0, ub=5.0)
    lib.add_var(model, "y", ub=4.0)
    lib.add_var(model, "z", lb=-10.0, ub=10.0)
    lib.add_var(model, "b", ub=1.0, vtype="B")
    lib.add_var(model, "c", ub=1.0, vtype="B")
    model.update()
    yield model
    model.dispose()


def vs(model):
    return model.getVars()


def same(a, b):
    """Handles (or lists of handles) standing for the same elements."""
    if isinstance(a, list):
        return len(a) == len(b) and all(p.sameAs(q) for p, q in zip(a, b))
    return a.sameAs(b)


def terms(e):
    return [(e.getVar(i).VarName, e.getCoeff(i)) for i in range(e.size())]


def refuses(model, call, errno, message):
    """call() raises VelmorError(errno, message) and adds nothing to the model."""
    before = len(model._Model__genconstrs)
    with pytest.raises(VelmorError) as info:
        call()
    assert (info.value.errno, str(info.value)) == (errno, message)
    assert len(model._Model__genconstrs) == before
    model.update()
    assert model.NumGenConstrs == before


# ---- MAX, MIN, ABS, AND, OR, NORM ------------------------------------------------------------


class TestListConstraints:
    def test_max_and_min_read_back_with_and_without_constant(self, m):
        x, y, z, b, c = vs(m)
        g1 = m.addGenConstrMax(z, [x, y], 3, name="mx")
        g2 = m.addGenConstrMax(z, [x, y])
        g3 = m.addGenConstrMin(z, (y, x), constant=-1.5)
        g4 = m.addGenConstrMin(z, [x])
        assert [g._genconstrno for g in (g1, g2, g3, g4)] == [0, 1, 2, 3]
        m.update()
        res, args, const = m.getGenConstrMax(g1)
        assert same(res, z) and same(args, [x, y]) and const == 3.0 and type(const) is float
        assert m.getGenConstrMax(g2)[2] == -VLM.INFINITY
        assert same(m.getGenConstrMin(g3)[1], [y, x]) and m.getGenConstrMin(g3)[2] == -1.5
        assert m.getGenConstrMin(g4)[2] == VLM.INFINITY
        assert g1.GenConstrName == "mx" and g1.GenConstrType == 0 and g3.GenConstrType == 1

    def test_vars_from_tupledict_nested_lists_and_a_single_var(self, m):
        x, y, z, b, c = vs(m)
        td = vp.tupledict({("a", 1): y, ("b", 2): x})
        g1 = m.addGenConstrMax(z, td)
        g2 = m.addGenConstrMax(z, [[x], (y, [x])])
        g3 = m.addGenConstrMin(z, x)
        m.update()
        assert same(m.getGenConstrMax(g1)[1], [y, x])
        assert same(m.getGenConstrMax(g2)[1], [x, y, x])
        assert same(m.getGenConstrMin(g3)[1], [x])

    @pytest.mark.parametrize("make", [lambda x: [x, 3], lambda x: [x, "x"], lambda x: "xy", lambda x: None,
                                      lambda x: 7, lambda x: [x, [1.0]], lambda x: [x + 0]])
    def test_vars_that_are_not_variables_are_refused(self, m, make):
        x, y, z, b, c = vs(m)
        refuses(m, lambda: m.addGenConstrMax(z, make(x)), INVALID, "Invalid data in vars array")

    def test_argument_checks_name_the_argument(self, m):
        x, y, z, b, c = vs(m)
        refuses(m, lambda: m.addGenConstrMax(3, [x]), INVALID,
                "Invalid resvar argument for general constraint of max type")
        refuses(m, lambda: m.addGenConstrMin(z, [x], "big"), INVALID,
                "Invalid constant argument for general constraint of min type")
        refuses(m, lambda: m.addGenConstrAbs(z, x + 1), INVALID,
                "Invalid argvar argument for general constraint of abs type")
        refuses(m, lambda: m.addGenConstrNorm(z, [x], None), INVALID,
                "Invalid which argument for general constraint of norm type")
        refuses(m, lambda: m.addGenConstrMax(z, [x], float("nan")), INVALID, "Constant is NaN")
        with pytest.raises(TypeError):
            m.addGenConstrAbs(z, x, name=5)
        with pytest.raises(TypeError):
            m.addGenConstrAbs(z)

    def test_abs_and_or_round_trip(self, m):
        x, y, z, b, c = vs(m)
        ga = m.addGenConstrAbs(z, x, "ab")
        gand = m.addGenConstrAnd(b, [c, b])
        gor = m.addGenConstrOr(c, [b])
        m.update()
        assert all(map(same, m.getGenConstrAbs(ga), (z, x)))
        res, args = m.getGenConstrAnd(gand)
        assert same(res, b) and same(args, [c, b])
        res, args = m.getGenConstrOr(gor)
        assert same(res, c) and same(args, [b])

    def test_and_or_need_binaries(self, m):
        x, y, z, b, c = vs(m)
        refuses(m, lambda: m.addGenConstrAnd(z, [b]), INVALID,
                "Result variable 2 of an AND/OR constraint must be binary")
        refuses(m, lambda: m.addGenConstrOr(b, [c, y]), INVALID,
                "Variable 1 of an AND/OR constraint must be binary")

    def test_norm_which_values(self, m):
        x, y, z, b, c = vs(m)
        gs = [m.addGenConstrNorm(z, [x, y], w) for w in (0, 1, 2.0, math.inf, VLM.INFINITY)]
        m.update()
        assert [m.getGenConstrNorm(g)[2] for g in gs] == [0.0, 1.0, 2.0, VLM.INFINITY, VLM.INFINITY]
        refuses(m, lambda: m.addGenConstrNorm(z, [x], 3), INVALID,
                "Invalid norm 3 (expected 0, 1, 2 or infinity)")


# ---- variables that are not usable ----------------------------------------------------------


class TestVariableOwnership:
    def test_variable_of_another_model(self, m, env):
        other = vp.Model("other", env=env)
        w = lib.add_var(other, "w")
        x, y, z, b, c = vs(m)
        refuses(m, lambda: m.addGenConstrMax(z, [x, w]), NOT_IN_MODEL, "Variable not in model")
        refuses(m, lambda: m.addGenConstrAbs(w, x), NOT_IN_MODEL, "Variable not in model")
        refuses(m, lambda: m.addGenConstrIndicator(b, 1, x + w <= 1), NOT_IN_MODEL, "Variable not in model")
        other.dispose()

    def test_removed_variable_is_refused_once_the_removal_is_applied(self, m):
        x, y, z, b, c = vs(m)
        m.remove(y)
        g = m.addGenConstrMax(z, [x, y])  # removal still pending: y is in the library until the update
        m.update()
        assert same(m.getGenConstrMax(g)[1], [x])  # the library takes y out of the operands
        refuses(m, lambda: m.addGenConstrExp(x, y), NOT_IN_MODEL, "Variable not in model")

    def test_constraint_deleted_with_its_variable_is_removed(self, m):
        x, y, z, b, c = vs(m)
        g = m.addGenConstrAbs(z, y)
        m.update()
        m.remove(y)
        m.update()
        assert (m.NumGenConstrs, g._genconstrno, m.getGenConstrs()) == (0, -2, [])

    def test_lazy_update_mode(self, m):
        m.setParam("UpdateMode", 0)
        m.update()
        x, y, z, b, c = vs(m)
        v = lib.add_var(m, "v")
        assert v._colno == -1
        refuses(m, lambda: m.addGenConstrAbs(v, x), NOT_IN_MODEL, "Variable not in model")
        g = m.addGenConstrAbs(z, x)
        assert g._genconstrno == -1
        with pytest.raises(VelmorError) as info:
            m.getGenConstrAbs(g)
        assert (info.value.errno, str(info.value)) == (NOT_IN_MODEL, "GenConstr has not yet been added to the model")
        m.update()
        assert g._genconstrno == 0 and all(map(same, m.getGenConstrAbs(g), (z, x)))

    def test_disposed_model_refuses(self, m):
        x, y, z, b, c = vs(m)
        m.dispose()
        with pytest.raises(VelmorError):
            m.addGenConstrAbs(z, x)


# ---- indicators -------------------------------------------------------------------------------


class TestIndicator:
    def test_tempconstr_and_separate_forms_add_the_same_constraint(self, m):
        x, y, z, b, c = vs(m)
        g1 = m.addGenConstrIndicator(b, True, x + y <= 1)
        g2 = m.addGenConstrIndicator(b, True, x + y, VLM.LESS_EQUAL, 1)
        m.update()
        r1, r2 = m.getGenConstrIndicator(g1), m.getGenConstrIndicator(g2)
        for binvar, binval, expr, sense, rhs in (r1, r2):
            assert same(binvar, b) and binval is True and sense == "<" and rhs == 1.0
            assert type(expr) is vp.LinExpr and expr.getConstant() == 0.0
            assert terms(expr) == [("x", 1.0), ("y", 1.0)]

    def test_constant_moves_right_and_duplicates_merge(self, m):
        x, y, z, b, c = vs(m)
        g1 = m.addGenConstrIndicator(c, 0, 2 * y + x + y + 2 >= 5)
        g2 = m.addGenConstrIndicator(c, False, x, "=", -2.5)
        g3 = m.addGenConstrIndicator(b, 1, 4, "<", 3)  # no terms: only the constants
        m.update()
        _, binval, expr, sense, rhs = m.getGenConstrIndicator(g1)
        assert binval is False and sense == ">" and rhs == 3.0 and terms(expr) == [("x", 1.0), ("y", 3.0)]
        assert terms(m.getGenConstrIndicator(g2)[2]) == [("x", 1.0)] and m.getGenConstrIndicator(g2)[4] == -2.5
        assert m.getGenConstrIndicator(g3)[2].size() == 0 and m.getGenConstrIndicator(g3)[4] == -1.0

    def test_refusals(self, m):
        x, y, z, b, c = vs(m)
        lhs_msg = "Invalid lhs argument for general constraint of indicator type"
        sense_msg = "Invalid sense argument for general constraint of indicator type"
        rhs_msg = "Invalid rhs argument for general constraint of indicator type"
        refuses(m, lambda: m.addGenConstrIndicator(b, True, x * y <= 1), INVALID, lhs_msg)
        refuses(m, lambda: m.addGenConstrIndicator(b, True, "x", "<", 1), INVALID, lhs_msg)
        refuses(m, lambda: m.addGenConstrIndicator(b, True, x + y, "!", 1), INVALID, sense_msg)
        refuses(m, lambda: m.addGenConstrIndicator(b, True, x + y, "<=", 1), INVALID, sense_msg)
        refuses(m, lambda: m.addGenConstrIndicator(b, True, x + y), INVALID, sense_msg)
        refuses(m, lambda: m.addGenConstrIndicator(b, True, x + y, "<", "a"), INVALID, rhs_msg)
        refuses(m, lambda: m.addGenConstrIndicator(b, True, x + y, "<"), INVALID, rhs_msg)
        refuses(m, lambda: m.addGenConstrIndicator(b, True, x <= y), INVALID, rhs_msg)
        refuses(m, lambda: m.addGenConstrIndicator(x + 0, True, y <= 1), INVALID,
                "Invalid binvar argument for general constraint of indicator type")
        refuses(m, lambda: m.addGenConstrIndicator(z, True, y <= 1), INVALID, "Indicator variable 2 must be binary")
        refuses(m, lambda: m.addGenConstrIndicator(b, True, x + y, "<", float("nan")), INVALID,
                "Right-hand side NaN of indicator constraint 0 is not a number")

    def test_lp_and_mps_round_trip(self, m, env, tmp_path):
        x, y, z, b, c = vs(m)
        m.addGenConstrIndicator(b, True, x + 2 * y <= 3, name="on")
        m.addGenConstrIndicator(c, False, y - x, "=", 1, name="off")
        for suffix in ("lp", "mps"):
            path = str(tmp_path / ("ind." + suffix))
            m.write(path)
            r = vp.read(path, env=env)
            on, off = r.getGenConstrs()
            binvar, binval, expr, sense, rhs = r.getGenConstrIndicator(on)
            assert (binvar.VarName, binval, terms(expr), sense, rhs) == ("b", True, [("x", 1.0), ("y", 2.0)], "<", 3.0)
            binvar, binval, expr, sense, rhs = r.getGenConstrIndicator(off)
            assert (binvar.VarName, binval, terms(expr), sense, rhs) == ("c", False, [("x", -1.0), ("y", 1.0)], "=", 1.0)
            assert off.GenConstrName == "off"
            r.dispose()


# ---- PWL, POLY and the function constraints ---------------------------------------------------


class TestFunctionConstraints:
    def test_pwl_round_trip_and_point_checks(self, m):
        x, y, z, b, c = vs(m)
        g = m.addGenConstrPWL(x, y, (0, 1, 1, 2), [1.5, 0, 2, 3.0], "pw")
        m.update()
        xv, yv, xs, ys = m.getGenConstrPWL(g)
        assert same(xv, x) and same(yv, y) and xs == [0.0, 1.0, 1.0, 2.0] and ys == [1.5, 0.0, 2.0, 3.0]
        refuses(m, lambda: m.addGenConstrPWL(x, y, [0], [1]), INVALID, "Less than 2 points for PWL constraint")
        refuses(m, lambda: m.addGenConstrPWL(x, y, [], []), INVALID, "Less than 2 points for PWL constraint")
        refuses(m, lambda: m.addGenConstrPWL(x, y, None, [1, 2]), INVALID, "xpts is None")
        refuses(m, lambda: m.addGenConstrPWL(x, y, [1, 2], None), INVALID, "ypts is None")
        refuses(m, lambda: m.addGenConstrPWL(x, y, [1, 2, 3], [1, 2]), INVALID, "xpts and ypts have different lengths")
        refuses(m, lambda: m.addGenConstrPWL(x, y, [1, "a"], [1, 2]), INVALID, "Invalid data in xpts array")
        refuses(m, lambda: m.addGenConstrPWL(x, y, [1, 0], [1, 2]), INVALID, "PWL x values must not decrease (point 1)")

    def test_poly_coefficients_from_the_highest_power(self, m):
        x, y, z, b, c = vs(m)
        g = m.addGenConstrPoly(x, y, [2, 1.5, 0, 1], options="FuncPieces=5")
        m.update()
        assert m.getGenConstrPoly(g)[2] == [2.0, 1.5, 0.0, 1.0]
        refuses(m, lambda: m.addGenConstrPoly(x, y, []), INVALID, "A polynomial needs coefficients")
        refuses(m, lambda: m.addGenConstrPoly(x, y, None), INVALID, "p is None")

    @pytest.mark.parametrize("kind", ["Exp", "Log", "Logistic", "Sin", "Cos", "Tan"])
    def test_plain_functions(self, m, kind):
        x, y, z, b, c = vs(m)
        g = getattr(m, "addGenConstr" + kind)(x, y, name="f", options="FuncPieces=10 FuncPieceRatio=0.5")
        m.update()
        assert all(map(same, getattr(m, "getGenConstr" + kind)(g), (x, y)))
        refuses(m, lambda: getattr(m, "addGenConstr" + kind)(x, [y]), INVALID,
                "Invalid yvar argument for general constraint of %s type" % kind.lower())

    @pytest.mark.parametrize("kind, a, bad_a, message", [
        ("ExpA", 2.5, -1.0, "Base -1 of general constraint 1 must be positive and finite"),
        ("LogA", 10, 1, "Base of a logarithm must not be 1"),
        ("Pow", -0.5, math.inf, "Exponent inf of general constraint 1 is not a finite number"),
    ])
    def test_functions_with_a_parameter(self, m, kind, a, bad_a, message):
        x, y, z, b, c = vs(m)
        add = getattr(m, "addGenConstr" + kind)
        g = add(x, y, a)
        m.update()
        xv, yv, av = getattr(m, "getGenConstr" + kind)(g)
        assert same(xv, x) and same(yv, y) and av == float(a)
        refuses(m, lambda: add(x, y, bad_a), INVALID, message)
        refuses(m, lambda: add(x, y, "2"), INVALID,
                "Invalid a argument for general constraint of %s type" % kind.lower())

    def test_options_text_is_checked_by_the_library(self, m):
        x, y, z, b, c = vs(m)
        refuses(m, lambda: m.addGenConstrSin(x, y, options="Foo=1"), INVALID,
                "Unknown option 'Foo' in options text (expected FuncPieces, FuncPieceError, "
                "FuncPieceLength, FuncPieceRatio or FuncNonlinear)")
        with pytest.raises(TypeError):
            m.addGenConstrSin(x, y, options=3)

    def test_lp_and_mps_round_trip(self, m, env, tmp_path):
        x, y, z, b, c = vs(m)
        m.addGenConstrMax(z, [x, y], 1.0, name="mx")
        m.addGenConstrNorm(z, [x, y], math.inf, name="nm")
        m.addGenConstrPWL(x, y, [0, 1, 2], [1, 0, 3], name="pw")
        m.addGenConstrPoly(x, y, [2, 1.5, 0, 1], name="po", options="FuncPieces=5")
        m.addGenConstrExpA(x, y, 2.0, "ea", "FuncPieceError=0.01")
        for suffix in ("lp", "mps"):
            path = str(tmp_path / ("f." + suffix))
            m.write(path)
            r = vp.read(path, env=env)
            mx, nm, pw, po, ea = r.getGenConstrs()
            name = lambda v: v.VarName if not isinstance(v, list) else [w.VarName for w in v]
            assert [name(v) if not isinstance(v, float) else v for v in r.getGenConstrMax(mx)] == ["z", ["x", "y"], 1.0]
            assert r.getGenConstrNorm(nm)[2] == VLM.INFINITY
            assert r.getGenConstrPWL(pw)[2:] == ([0.0, 1.0, 2.0], [1.0, 0.0, 3.0])
            assert r.getGenConstrPoly(po)[2] == [2.0, 1.5, 0.0, 1.0]
            assert r.getGenConstrExpA(ea)[2] == 2.0 and ea.GenConstrName == "ea"
            r.dispose()


# ---- readers, removal and solving --------------------------------------------------------------


class TestReaders:
    def test_reader_of_another_type_gets_the_library_error(self, m):
        x, y, z, b, c = vs(m)
        g = m.addGenConstrAbs(z, x)
        m.update()
        with pytest.raises(VelmorError) as info:
            m.getGenConstrMax(g)
        assert (info.value.errno, str(info.value)) == (INVALID, "General constraint 0 is of type ABS, not MAX")

    def test_reader_argument_checks(self, m, env):
        x, y, z, b, c = vs(m)
        with pytest.raises(TypeError):
            m.getGenConstrAbs(x)
        other = vp.Model("other", env=env)
        u, w = lib.add_var(other, "u"), lib.add_var(other, "w")
        g = other.addGenConstrAbs(u, w)
        other.update()
        with pytest.raises(VelmorError) as info:
            m.getGenConstrAbs(g)
        assert (info.value.errno, str(info.value)) == (NOT_IN_MODEL, "General constraint not in model")
        other.dispose()

    def test_removal_renumbers_the_remaining_constraints(self, m):
        x, y, z, b, c = vs(m)
        g0 = m.addGenConstrAbs(z, x)
        g1 = m.addGenConstrMax(z, [y])
        m.update()
        m.remove(g0)
        m.update()
        assert (g0._genconstrno, g1._genconstrno, m.NumGenConstrs) == (-2, 0, 1)
        assert same(m.getGenConstrMax(g1)[1], [y])
        with pytest.raises(VelmorError) as info:
            m.getGenConstrAbs(g0)
        assert str(info.value) == "GenConstr was removed from the model"

    def test_reads_and_refusals_keep_reference_counts_stable(self, m):
        x, y, z, b, c = vs(m)
        g1 = m.addGenConstrIndicator(b, True, x + y <= 1)
        g2 = m.addGenConstrMax(z, [x, y])
        m.update()
        for _ in range(10):
            m.getGenConstrIndicator(g1), m.getGenConstrMax(g2)
        before = [sys.getrefcount(v) for v in (x, y, z, b)]
        for _ in range(1000):
            m.getGenConstrIndicator(g1), m.getGenConstrMax(g2)
            with pytest.raises(VelmorError):
                m.addGenConstrIndicator(b, True, x + y <= z)
        assert [sys.getrefcount(v) for v in (x, y, z, b)] == before

    def test_general_constraints_solve_on_the_users_model(self, env):
        # min z + w  s.t.  z = |x|, w = max(x, y, 0.5), x in [-3, -1], y in [0, 2]:
        # z = 1 at x = -1, w = max(-1, 0, 0.5) = 0.5 at y = 0; optimum 1.5.
        m = vp.Model(env=env)
        x = m.addVar(lb=-3, ub=-1, name="x")
        y = m.addVar(ub=2, name="y")
        z = m.addVar(lb=-10, name="z")
        w = m.addVar(lb=-10, name="w")
        m.addGenConstrAbs(z, x)
        m.addGenConstrMax(w, [x, y], constant=0.5)
        m.setObjective(z + w)
        m.optimize()
        assert m.Status == VLM.OPTIMAL
        assert m.ObjVal == pytest.approx(1.5, abs=1e-6)
        assert (x.X, z.X, w.X) == (pytest.approx(-1), pytest.approx(1), pytest.approx(0.5))
        # Helper columns of the reformulation never show.
        assert (m.NumVars, m.NumConstrs, m.NumGenConstrs) == (4, 0, 2)

    # z = |x| with x >= 2: min z is 2 at x = 2; then y = ||(x, z)||_2 = 2*sqrt(2) rides along.
    # Minimising -y instead needs the nonconvex side of the norm: refused unless NonConvex=2.
    def test_optimize_solves_general_constraints(self, m):
        x, y, z, b, c = vs(m)
        m.addGenConstrAbs(z, x)
        x.LB = 2
        m.setObjective(z + 0)
        m.optimize()
        assert m.Status == VLM.OPTIMAL and m.ObjVal == pytest.approx(2.0)
        m.addGenConstrNorm(y, [x, z], 2.0, name="n2")
        m.optimize()
        assert m.Status == VLM.OPTIMAL and m.ObjVal == pytest.approx(2.0)
        assert y.X == pytest.approx(2 * 2**0.5, rel=1e-6)
        m.setObjective(z - y)
        with pytest.raises(VelmorError) as info:
            m.optimize()
        assert info.value.errno == VLM.ERROR_QCP_EQUALITY_CONSTRAINT and "n2" in str(info.value)


# ---- algebraic forms --------------------------------------------------------------------------


class TestExpressions:
    def test_general_expressions_add_themselves(self, m):
        x, y, z, b, c = vs(m)
        gmax = (z == vp.max_(x, [y], constant=2))._rhs._addAsConstr(m, z, "m1")
        gmin = vp.min_(x, y)._addAsConstr(m, z)
        gabs = vp.abs_(x)._addAsConstr(m, z)
        gand = vp.and_(b, c)._addAsConstr(m, b)
        gnorm = vp.norm([x, y], 1)._addAsConstr(m, z)
        m.update()
        assert same(m.getGenConstrMax(gmax)[1], [x, y]) and m.getGenConstrMax(gmax)[2] == 2.0
        assert m.getGenConstrMin(gmin)[2] == VLM.INFINITY
        assert same(m.getGenConstrAbs(gabs)[1], x)
        assert same(m.getGenConstrAnd(gand)[1], [b, c])
        assert m.getGenConstrNorm(gnorm)[2] == 1.0 and gmax.GenConstrName == "m1"

    @needs_addconstr
    def test_addconstr_routes(self, m):
        x, y, z, b, c = vs(m)
        g1 = m.addConstr(z == vp.max_(x, y), name="mx")
        g2 = m.addConstr((b == 1) >> (x + y <= 2), name="ind")
        g3 = m.addConstr((c == 0) >> (x >= -1))
        m.update()
        assert type(g1) is vp.GenConstr and same(m.getGenConstrMax(g1)[1], [x, y])
        binvar, binval, expr, sense, rhs = m.getGenConstrIndicator(g2)
        assert same(binvar, b) and binval is True and terms(expr) == [("x", 1.0), ("y", 1.0)] and rhs == 2.0
        assert m.getGenConstrIndicator(g3)[1] is False and m.getGenConstrIndicator(g3)[3] == ">"

    @needs_addconstr
    @pytest.mark.parametrize("make, message", [
        (lambda x, y, z, b: vp.TempConstr(vp.max_(x, y), "=", z),
         "General expressions can only appear on the right hand side of a constraint"),
        (lambda x, y, z, b: z + 1 == vp.max_(x, y), "General expressions can only be equal to a single var"),
        (lambda x, y, z, b: 2 * z == vp.max_(x, y), "General expressions can only be equal to a single var"),
        (lambda x, y, z, b: z <= vp.max_(x, y), "General expressions can only be equal to a single var"),
        (lambda x, y, z, b: (b + y == 1) >> (x <= 1),
         "Indicator constraints can only be triggered by a single binary variable at a given value"),
        (lambda x, y, z, b: (b == 2) >> (x <= 1),
         "Indicator constraints can only be triggered by a single binary variable at a given value"),
        (lambda x, y, z, b: (b <= 1) >> (x <= 1),
         "Indicator constraints can only be triggered by a single binary variable at a given value"),
    ])
    def test_addconstr_refusals(self, m, make, message):
        x, y, z, b, c = vs(m)
        refuses(m, lambda: m.addConstr(make(x, y, z, b)), INVALID, message)


def test_handles_shown_by_position_await_their_update_in_immediate_mode(env):
    # In immediate update mode a new element already has its future position; until the
    # update it prints as awaiting, like a new variable, not as an element at that position.
    m = vp.Model(env=env)
    x, y = m.addVar(), m.addVar()
    g = m.addGenConstrMax(x, [y])
    s = m.addSOS(VLM.SOS_TYPE1, [x, y])
    assert (repr(g), repr(s)) == ("<velmor.GenConstr *Awaiting Model Update*>",
                                  "<velmor.SOS *Awaiting Model Update*>")
    m.update()
    assert (repr(g), repr(s)) == ("<velmor.GenConstr 0>", "<velmor.SOS 0>")
    m.remove([g, s])
    assert (repr(g), repr(s)) == ("<velmor.GenConstr 0 (Removed)>", "<velmor.SOS 0 (Removed)>")
    m.update()
    assert (repr(g), repr(s)) == ("<velmor.GenConstr *Removed*>", "<velmor.SOS *Removed*>")
