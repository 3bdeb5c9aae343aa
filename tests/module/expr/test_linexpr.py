"""LinExpr, the operators of Var, quicksum and the pickling of linear expressions.

Variables come from the library through the ctypes helpers of test_model, so these tests do not
depend on Model.addVar.
"""
import io
import pickle

import numpy as np
import pytest
from hypothesis import HealthCheck, given, settings
from hypothesis import strategies as st

import velmorpy as vp
from velmorpy import LinExpr, QuadExpr, TempConstr, VelmorError, quicksum
from model.test_model import lib

INVALID = 10003
NAN = float("nan")
INF = float("inf")


def make_model(env, names, **bounds):
    m = vp.Model("m", env=env)
    for n in names:
        lib.add_var(m, n, **bounds)
    m.update()
    return m


@pytest.fixture
def model(env):
    m = make_model(env, ["x", "y", "z"])
    yield m
    m.dispose()


@pytest.fixture
def xyz(model):
    return model.getVars()


def terms(e):
    """(coefficient, variable name) of every term, in order."""
    return [(e.getCoeff(i), e.getVar(i).VarName) for i in range(e.size())]


def check_invalid(info, message, code=INVALID):
    assert info.value.errno == code
    assert str(info.value) == message


# ---- construction --------------------------------------------------------------------------


class TestConstructor:
    def test_empty_and_constant(self):
        e = LinExpr()
        assert (e.size(), e.getConstant(), str(e), repr(e)) == (0, 0.0, "0.0", "<velmor.LinExpr: 0.0>")
        c = LinExpr(5)
        assert c.getConstant() == 5.0 and type(c.getConstant()) is float
        assert str(c) == "5.0" and c.size() == 0

    def test_term_forms(self, xyz):
        x, y, _ = xyz
        assert terms(LinExpr(x)) == [(1.0, "x")]
        assert terms(LinExpr(2, x)) == [(2.0, "x")]
        assert terms(LinExpr([1, 2], [x, y])) == [(1.0, "x"), (2.0, "y")]
        assert terms(LinExpr((3.0, 4.0), (y, x))) == [(3.0, "y"), (4.0, "x")]
        assert terms(LinExpr([(1, x), (2.5, y)])) == [(1.0, "x"), (2.5, "y")]
        assert terms(LinExpr(((c, v) for c, v in [(7, y)]))) == [(7.0, "y")]
        assert terms(LinExpr(arg1=2, arg2=y)) == [(2.0, "y")]
        assert terms(LinExpr(np.array([1.0, 2.0]), [x, y])) == [(1.0, "x"), (2.0, "y")]

    def test_copy_copies_own_terms_and_shares_the_tail(self, xyz):
        x, y, _ = xyz
        e = LinExpr([1, 2], [x, y])
        e.addConstant(4)
        c = LinExpr(e)
        assert c is not e and terms(c) == terms(e) and c.getConstant() == 4.0
        c.add(x)
        assert e.size() == 2
        s = LinExpr()
        for _ in range(250):
            s = s + x
        assert s._continue is not None
        assert LinExpr(s)._continue is s._continue
        assert s.copy()._continue is s._continue

    @pytest.mark.parametrize("make,message", [
        (lambda x, y: LinExpr(NAN), "Constant is Nan"),
        (lambda x, y: LinExpr([1, 2], [x]), "Linear expression arguments of different length"),
        (lambda x, y: LinExpr([1, 2], [x, 2]), "Second argument should be a list of Var"),
        (lambda x, y: LinExpr([INF, 1], [x, y]), "Coefficient is Nan or Inf"),
        (lambda x, y: LinExpr(NAN, x), "Coefficient is Nan or Inf"),
        (lambda x, y: LinExpr(-INF, x), "Coefficient is Nan or Inf"),
        (lambda x, y: LinExpr([(1, 2)]), "Second tuple member should be a Var"),
        (lambda x, y: LinExpr([(NAN, x)]), "Coefficient is Nan or Inf"),
        (lambda x, y: LinExpr("ab"), "No constructor available for LinExpr(ab, None)"),
        (lambda x, y: LinExpr(x, x), "No constructor available for LinExpr(<velmor.Var x>, <velmor.Var x>)"),
    ])
    def test_errors(self, xyz, make, message):
        with pytest.raises(VelmorError) as info:
            make(*xyz[:2])
        check_invalid(info, message)

    def test_quadratic_argument_is_refused(self, xyz):
        with pytest.raises(VelmorError) as info:
            LinExpr(xyz[0] * xyz[1])
        assert info.value.errno == INVALID


# ---- methods -------------------------------------------------------------------------------


class TestMethods:
    def test_add(self, xyz):
        x, y, z = xyz
        e = LinExpr(x)
        assert e.add(y, 2.0) is None
        e.add(LinExpr([1, 1], [z, x]) + 3, mult=-2)
        e.add(5)
        e.add(2, 0.5)
        assert terms(e) == [(1.0, "x"), (2.0, "y"), (-2.0, "z"), (-2.0, "x")]
        assert e.getConstant() == 0.0  # 1 * (-2 * 3) + 5 + 1
        other = LinExpr([1.5], [z])
        e.add(other)
        assert e.getCoeff(-1) == 1.5 and other.size() == 1

    def test_add_errors(self, xyz):
        x = xyz[0]
        with pytest.raises(VelmorError) as info:
            LinExpr().add("a")
        check_invalid(info, "Unsupported type (<class 'str'>) for LinExpr addition argument")
        with pytest.raises(VelmorError) as info:
            LinExpr().add(x * x)
        check_invalid(info, "Unsupported type (<class 'velmorpy.QuadExpr'>) for LinExpr addition argument")
        with pytest.raises(VelmorError) as info:
            LinExpr().add(x, NAN)
        check_invalid(info, "Coefficient is Nan or Inf")
        with pytest.raises(VelmorError) as info:
            LinExpr().addConstant(NAN)
        check_invalid(info, "Constant is Nan")
        with pytest.raises(VelmorError) as info:
            LinExpr().add(NAN)
        check_invalid(info, "Constant is Nan")

    def test_add_expression_to_itself_doubles_it(self, xyz):
        x, y, _ = xyz
        e = 2 * x + y + 1
        e.add(e)
        assert terms(e) == [(2.0, "x"), (1.0, "y"), (2.0, "x"), (1.0, "y")]
        assert e.getConstant() == 2.0

    def test_addterms(self, xyz):
        x, y, z = xyz
        e = LinExpr()
        e.addTerms(3, z)
        e.addTerms([1, 2], [x, y])
        e.addTerms((4.0,), (x,))
        assert terms(e) == [(3.0, "z"), (1.0, "x"), (2.0, "y"), (4.0, "x")]

    @pytest.mark.parametrize("case,message", [
        ("nan", "Coefficient is Nan or Inf"),
        ("listvar", "Second argument should be a list of Var"),
        ("strings", "First argument should be a list of floats"),
        ("numlist", "Unrecognized arguments"),
        ("length", "Linear expression arguments of different length"),
    ])
    def test_addterms_errors(self, xyz, case, message):
        x, y, _ = xyz
        args = {"nan": (NAN, x), "listvar": ([1.0], 5), "strings": (["a"], [x]),
                "numlist": (1.0, [x]), "length": ([1.0], [x, y])}[case]
        e = LinExpr(x)
        with pytest.raises(VelmorError) as info:
            e.addTerms(*args)
        check_invalid(info, message)
        assert e.size() == 1

    def test_term_access_follows_list_indexing(self, xyz):
        x, y, z = xyz
        e = LinExpr([1, 2, 3], [x, y, z])
        assert (e.getCoeff(0), e.getCoeff(-1)) == (1.0, 3.0)
        assert e.getVar(1) is y and e.getVar(-3) is x
        with pytest.raises(IndexError):
            e.getCoeff(3)
        with pytest.raises(IndexError):
            e.getVar(-4)

    def test_remove(self, model, xyz):
        x, y, z = xyz
        e = LinExpr([1, 2, 3, 4], [x, y, x, z])
        e.remove(1)
        assert terms(e) == [(1.0, "x"), (3.0, "x"), (4.0, "z")]
        e.remove(vp.Var(model, x._colno))  # another handle of the same variable
        assert terms(e) == [(4.0, "z")]
        e.remove(-1)
        assert e.size() == 0
        with pytest.raises(IndexError):
            e.remove(0)

    def test_clear_and_copy(self, xyz):
        x, y, _ = xyz
        e = 2 * x + 3
        c = e.copy()
        e.clear()
        assert (e.size(), e.getConstant(), e._continue) == (0, 0.0, None)
        assert terms(c) == [(2.0, "x")] and c.getConstant() == 3.0

    def test_normalize_merges_into_the_first_occurrence(self, model, xyz):
        x, y, z = xyz
        e = LinExpr([1, 2, 3, -2, 5], [x, y, vp.Var(model, x._colno), y, z])
        assert e.size() == 5
        e._normalize()
        assert terms(e) == [(4.0, "x"), (0.0, "y"), (5.0, "z")]
        assert e.getVar(0) is x

    def test_fields(self, xyz):
        x, y, _ = xyz
        e = LinExpr([1, 2], [x, y]) + 7
        assert e._coeffs == [1.0, 2.0] and e._vars == [x, y] and e._constant == 7.0
        assert e._continue is None
        e._constant = 1.5
        assert e.getConstant() == 1.5
        with pytest.raises(AttributeError):
            e._coeffs = []

    def test_mul_method(self, xyz):
        e = xyz[0] + 1
        assert e._mul(3) is e and terms(e) == [(3.0, "x")] and e.getConstant() == 3.0
        with pytest.raises(VelmorError) as info:
            e._mul(xyz[1])
        check_invalid(info, "Invalid argument to LinExpr multiplication")
        with pytest.raises(VelmorError) as info:
            e._mul(INF)
        check_invalid(info, "Multiplier is Nan or Inf")

class TestGetValue:
    def test_values_of_the_current_solution(self, env):
        m = make_model(env, [])
        x = lib.add_var(m, "x", lb=1.0, ub=1.0)
        y = lib.add_var(m, "y", lb=2.0, ub=2.0)
        m.update()
        with pytest.raises(AttributeError):
            (x + y).getValue()
        assert lib.dll.VLMoptimize(lib.ptr(m)) == 0
        assert (x + 2 * y + 3).getValue() == 8.0
        assert LinExpr(4).getValue() == 4.0
        s = quicksum([x] * 300) - y
        assert s.getValue() == 298.0
        m.dispose()


# ---- text ----------------------------------------------------------------------------------


class TestText:
    def test_worked_examples(self, xyz):
        x, y, _ = xyz
        assert str(x + 2 * y - 3) == "-3.0 + x + 2.0 y"
        assert repr(x + 2 * y - 3) == "<velmor.LinExpr: -3.0 + x + 2.0 y>"
        assert (x + 2 * y - 3)._asprettystring() == "-3.0 + x + 2.0 y"
        assert str(x - y) == "x + -1.0 y"
        assert str(2 * x) == "2.0 x"
        assert str(-x + 0.5) == "0.5 + -1.0 x"
        assert str(LinExpr(1, x)) == "x"
        assert str(LinExpr(-0.0)) == "0.0"

    def test_pending_variable_shows_awaiting_update(self, model, xyz):
        v = lib.add_var(model, "w")
        assert str(xyz[0] + v) == "x + *Awaiting Model Update*"


# ---- operators -----------------------------------------------------------------------------


class TestVarOperators:
    def test_worked_example_leaves_operands_unchanged(self, xyz):
        x, y, _ = xyz
        two_y = 2 * y
        assert isinstance(two_y, LinExpr) and terms(two_y) == [(2.0, "y")]
        s = x + two_y
        assert terms(s) == [(1.0, "x"), (2.0, "y")]
        e = s - 3
        assert terms(e) == [(1.0, "x"), (2.0, "y")] and e.getConstant() == -3.0
        assert s.getConstant() == 0.0 and terms(two_y) == [(2.0, "y")]

    def test_sums_and_differences(self, xyz):
        x, y, _ = xyz
        assert terms(x + x) == [(1.0, "x"), (1.0, "x")]
        e = 2 + x
        assert terms(e) == [(1.0, "x")] and e.getConstant() == 2.0
        assert terms(x - y) == [(1.0, "x"), (-1.0, "y")]
        e = 3 - x
        assert terms(e) == [(-1.0, "x")] and e.getConstant() == 3.0
        e = x - (y + 1)
        assert terms(e) == [(1.0, "x"), (-1.0, "y")] and e.getConstant() == -1.0
        assert terms(x + (2 * y + 1)) == [(1.0, "x"), (2.0, "y")]

    def test_products_and_quotients(self, xyz):
        x, y, _ = xyz
        assert terms(x * 3) == [(3.0, "x")] and terms(3 * x) == [(3.0, "x")]
        assert terms(x * np.float64(0.5)) == [(0.5, "x")] and terms(np.int64(4) * x) == [(4.0, "x")]
        assert terms(x / 4) == [(0.25, "x")]
        assert terms(-x) == [(-1.0, "x")]
        assert terms(x * LinExpr(4)) == [(4.0, "x")] and isinstance(x * LinExpr(4), LinExpr)
        q = x * y
        assert isinstance(q, QuadExpr) and str(q) == "0.0 + [ x * y ]"
        assert str(x ** 2) == "0.0 + [ x ^ 2 ]" and str(x ** 2.0) == "0.0 + [ x ^ 2 ]"
        assert str(x * (y + 2)) == "2.0 x + [ x * y ]"

    def test_errors(self, xyz):
        x = xyz[0]
        with pytest.raises(ZeroDivisionError, match="^float division$"):
            x / 0
        with pytest.raises(VelmorError) as info:
            x / "a"
        check_invalid(info, "Divisor must be a constant")
        with pytest.raises(VelmorError) as info:
            x / xyz[1]
        check_invalid(info, "Divisor must be a constant")
        with pytest.raises(VelmorError) as info:
            x * NAN
        check_invalid(info, "Coefficient is Nan or Inf")
        with pytest.raises(TypeError):
            x ** 3
        with pytest.raises(TypeError):
            2 ** x
        with pytest.raises(TypeError):
            1 / x
        with pytest.raises(TypeError):
            x + "a"
        with pytest.raises(TypeError):
            x @ x

    def test_inplace_operators_rebind_and_never_change_the_var(self, xyz):
        x, y, _ = xyz
        w = x
        w += y
        assert isinstance(w, LinExpr) and terms(w) == [(1.0, "x"), (1.0, "y")]
        w = x
        w -= 2
        assert terms(w) == [(1.0, "x")] and w.getConstant() == -2.0
        w = x
        w *= 3
        assert terms(w) == [(3.0, "x")]
        assert isinstance(x, vp.Var) and str(LinExpr(x)) == "x"

class TestLinExprOperators:
    def test_binary_operators_make_new_expressions(self, xyz):
        x, y, z = xyz
        e = LinExpr([1, 2], [x, y]) + 1
        for r, expect, const in [(e + z, [(1.0, "x"), (2.0, "y"), (1.0, "z")], 1.0),
                                 (z + e, [(1.0, "z"), (1.0, "x"), (2.0, "y")], 1.0),
                                 (e - z, [(1.0, "x"), (2.0, "y"), (-1.0, "z")], 1.0),
                                 (2 - e, [(-1.0, "x"), (-2.0, "y")], 1.0),
                                 (e * 2, [(2.0, "x"), (4.0, "y")], 2.0),
                                 (3 * e, [(3.0, "x"), (6.0, "y")], 3.0),
                                 (e / 2, [(0.5, "x"), (1.0, "y")], 0.5),
                                 (-e, [(-1.0, "x"), (-2.0, "y")], -1.0),
                                 (e + e, [(1.0, "x"), (2.0, "y"), (1.0, "x"), (2.0, "y")], 2.0),
                                 (e * LinExpr(2), [(2.0, "x"), (4.0, "y")], 2.0),
                                 (LinExpr(2) * e, [(2.0, "x"), (4.0, "y")], 2.0)]:
            assert r is not e and terms(r) == expect and r.getConstant() == const
        assert terms(e) == [(1.0, "x"), (2.0, "y")] and e.getConstant() == 1.0

    def test_inplace_operators_change_the_expression(self, xyz):
        x, y, _ = xyz
        e = LinExpr(x)
        same = e
        e += y
        e -= 2
        e += LinExpr(3, x)
        e -= x
        e *= 2
        assert e is same
        assert terms(e) == [(2.0, "x"), (2.0, "y"), (6.0, "x"), (-2.0, "x")] and e.getConstant() == -4.0
        e /= 2
        assert e is not same and terms(same)[0] == (2.0, "x") and terms(e)[0] == (1.0, "x")
        q = same
        q *= y
        assert isinstance(q, QuadExpr) and isinstance(same, LinExpr)

    def test_quadratic_products_and_powers(self, xyz):
        x, y, _ = xyz
        assert str((x + 1) * (y + 2)) == "2.0 + 2.0 x + y + [ x * y ]"
        assert str((x + 1) ** 2) == "1.0 + x + x + [ x ^ 2 ]"
        with pytest.raises(TypeError):
            (x + 1) ** 3

    def test_errors(self, xyz):
        x, y, _ = xyz
        e = x + 1
        with pytest.raises(ZeroDivisionError, match="^float division$"):
            e / 0
        with pytest.raises(VelmorError) as info:
            e / y
        check_invalid(info, "Divisor must be a constant")
        with pytest.raises(VelmorError) as info:
            e * INF
        check_invalid(info, "Multiplier is Nan or Inf")
        with pytest.raises(VelmorError) as info:
            e + NAN
        check_invalid(info, "Constant is Nan")
        with pytest.raises(TypeError):
            e + "a"
        with pytest.raises(TypeError):
            e * [1]
        with pytest.raises(VelmorError) as info:
            e != 0
        check_invalid(info, "Inequality constraints not supported", 0)
        with pytest.raises(NotImplementedError):
            e < 3
        with pytest.raises(NotImplementedError):
            3 < e

class TestHandOff:
    """Operands of unknown types go to their own reflected operators (QuadExpr, matrix types)."""

    class Other:
        def __radd__(self, o):
            return ("radd", o)

        def __rsub__(self, o):
            return ("rsub", o)

        def __rmul__(self, o):
            return ("rmul", o)

        def __rtruediv__(self, o):
            return ("rtruediv", o)

        def __ge__(self, o):
            return ("ge", o)

    class Matrix(Other):
        __array_priority__ = 20.0  # no __float__: never taken as a scalar

    class Ufunc(Other):
        __array_ufunc__ = None

        def __float__(self):
            return 1.0

    @pytest.mark.parametrize("cls", [Other, Matrix, Ufunc])
    def test_reflected_operators_receive_the_call(self, xyz, cls):
        x = xyz[0]
        o = cls()
        for left in (x, x + 1):
            assert (left + o) == ("radd", left)
            assert (left - o) == ("rsub", left)
            assert (left * o) == ("rmul", left)
        if cls is not TestHandOff.Other:
            assert (x / o) == ("rtruediv", x) and ((x + 1) / o)[0] == "rtruediv"
            assert (x <= o) == ("ge", x)

    def test_numpy_arrays_broadcast_elementwise(self, xyz):
        x = xyz[0]
        r = x + np.array([1.0, 2.0])
        assert isinstance(r, np.ndarray) and r.shape == (2,)
        assert [str(e) for e in r] == ["1.0 + x", "2.0 + x"]
        r = np.array([2.0, 3.0]) * (x + 1)
        assert [str(e) for e in r] == ["2.0 + 2.0 x", "3.0 + 3.0 x"]
        r = x * np.array([1.0])
        assert isinstance(r, np.ndarray)


# ---- the shared tail -----------------------------------------------------------------------


class TestTail:
    def test_loop_of_sums_is_chained_and_keeps_order(self, env):
        m = make_model(env, [f"v{i}" for i in range(1000)])
        vs = m.getVars()
        s = 0
        for v in vs:
            s = s + v
        nodes = []
        node = s
        while node is not None:
            nodes.append(len(node._vars))
            node = node._continue
        assert nodes == [0, 200, 200, 200, 200, 200]
        assert s.size() == 1000 and s._continue is None
        assert [s.getVar(i).VarName for i in range(1000)] == [f"v{i}" for i in range(1000)]
        m.dispose()

    def test_tails_are_shared_and_never_modified(self, xyz):
        x, y, z = xyz
        s = LinExpr()
        for _ in range(199):
            s = s + x
        assert s._continue is None
        s = s + y + 4
        tail = s._continue
        assert len(s._vars) == 0 and len(tail._vars) == 200 and tail._constant == 0.0
        t = s + z
        u = s - z
        assert t._continue is tail and u._continue is tail
        assert terms(t)[-1] == (1.0, "z") and terms(u)[-1] == (-1.0, "z")
        assert t.getConstant() == 4.0 and s.getConstant() == 4.0
        assert len(tail._vars) == 200 and s.size() == 200 and s._vars[-1] is y
        assert tail._vars[-1] is y and tail._continue is None

    def test_inplace_sums_never_freeze(self, xyz):
        s = LinExpr()
        for _ in range(500):
            s += xyz[0]
        assert s._continue is None and len(s._vars) == 500

    def test_constants_and_scaling_over_tails(self, xyz):
        x, y, _ = xyz
        s = 0
        for _ in range(450):
            s = s + x + 1
        assert s._continue is not None
        assert (s * 2).getConstant() == 900.0 and (s * 2).size() == 450
        assert str(-s).startswith("-450.0 + -1.0 x + -1.0 x")
        big = x + s  # LinExpr(x) with all of s added
        assert big.size() == 451 and big.getVar(0) is x and big.getConstant() == 450.0

    def test_dbgprint_shows_the_chain(self, xyz, capsys):
        s = LinExpr(1.5)
        for _ in range(201):
            s = s + xyz[0]
        s._dbgprint()
        assert capsys.readouterr().out.splitlines() == [
            "<DBGLinExpr len=1 const=0.0>", "<DBGLinExpr len=200 const=1.5>"]


# ---- quicksum ------------------------------------------------------------------------------


class TestQuicksum:
    def test_sums_lists_generators_and_tuples(self, xyz):
        x, y, z = xyz
        assert terms(quicksum([x, y, z])) == [(1.0, "x"), (1.0, "y"), (1.0, "z")]
        e = quicksum(c * v for c, v in zip([1, 2, 3], xyz))
        assert terms(e) == [(1.0, "x"), (2.0, "y"), (3.0, "z")]
        e = quicksum((x, 2, LinExpr([4], [y]) + 1, 0.5))
        assert terms(e) == [(1.0, "x"), (4.0, "y")] and e.getConstant() == 3.5
        assert str(quicksum([])) == "0.0" and isinstance(quicksum(iter([])), LinExpr)
        assert quicksum({x: 1, y: 2}.keys()).size() == 2

    def test_items_stay_unchanged_and_tails_are_read(self, xyz):
        x, y, _ = xyz
        s = 0
        for _ in range(300):
            s = s + x
        part = LinExpr(y) + 2
        e = quicksum([s, part, s])
        assert e.size() == 601 and e.getConstant() == 2.0 and e._continue is None
        assert s._continue is not None and terms(part) == [(1.0, "y")]

    def test_quadratic_items_switch_to_quadexpr(self, xyz):
        x, y, _ = xyz
        q = quicksum([x, 1, x * y, y, 2 * x * x])
        assert isinstance(q, QuadExpr)
        assert str(q) == "1.0 + x + y + [ x * y + 2.0 x ^ 2 ]"

    def test_other_items_use_their_own_operators(self, xyz):
        class Acc:
            def __radd__(self, other):
                return ("got", other)

        r = quicksum([xyz[0], Acc()])
        assert r[0] == "got" and terms(r[1]) == [(1.0, "x")]

    def test_errors(self, xyz):
        with pytest.raises(VelmorError) as info:
            quicksum([xyz[0], NAN])
        check_invalid(info, "Constant is Nan")
        with pytest.raises(TypeError):
            quicksum(5)
        with pytest.raises(TypeError):
            quicksum([xyz[0], "a"])

    def test_tupledict_sums_values(self, xyz):
        if not hasattr(vp, "tupledict"):
            pytest.skip("tupledict not built")
        td = vp.tupledict({(1, "a"): xyz[1], (2, "b"): 2 * xyz[0]})
        assert terms(quicksum(td)) == [(1.0, "y"), (2.0, "x")]


# ---- pickling ------------------------------------------------------------------------------


class _VarPickler(pickle.Pickler):
    def persistent_id(self, o):
        return ("var", o._colno) if isinstance(o, vp.Var) else None


class _VarUnpickler(pickle.Unpickler):
    def __init__(self, data, model):
        super().__init__(io.BytesIO(data))
        self.model = model

    def persistent_load(self, pid):
        return self.model.getVars()[pid[1]]


def dumps(obj, model):
    """Pickle with variables as persistent ids (handles of one model)."""
    buf = io.BytesIO()
    _VarPickler(buf).dump(obj)
    return buf.getvalue()


def loads(data, model):
    return _VarUnpickler(data, model).load()


class TestPickle:
    def test_reduce_gives_the_fields_in_alphabetical_order(self, xyz):
        x, y, _ = xyz
        e = LinExpr([1, 2], [x, y]) + 3
        fn, (cls, checksum, state) = e.__reduce__()
        assert fn is vp._unpickle_LinExpr and cls is LinExpr and checksum == 0x48e5078
        assert state == ([1.0, 2.0], 3.0, None, [x, y])

    def test_round_trip_of_a_long_chained_expression(self, model, xyz):
        x, y, z = xyz
        s = LinExpr(0.25)
        for i in range(1000):
            s = s + (x, y, z)[i % 3] * (i % 7)
        back = loads(dumps(s, model), model)
        assert type(back) is LinExpr
        assert terms(back) == terms(s) and back.getConstant() == s.getConstant() == 0.25
        assert pickle.loads(pickle.dumps(LinExpr(2.5))).getConstant() == 2.5

    def test_state_with_a_tail_is_accepted(self, xyz):
        x, y, _ = xyz
        tail = vp._unpickle_LinExpr(LinExpr, 0xb50ec08, ([1.0], 1.0, None, [x]))
        e = vp._unpickle_LinExpr(LinExpr, 0xdfd0361, ([2.0], 2.0, tail, [y]))
        assert e._continue is tail
        assert terms(e) == [(1.0, "x"), (2.0, "y")] and e.getConstant() == 3.0

    def test_checksum_mismatch(self):
        with pytest.raises(pickle.PickleError) as info:
            vp._unpickle_LinExpr(LinExpr, 0x123, None)
        assert str(info.value) == ("Incompatible checksums (0x123 vs (0x48e5078, 0xdfd0361, 0xb50ec08) = "
                                   "(_coeffs, _constant, _continue, _vars))")


# ---- property tests ------------------------------------------------------------------------

NVARS = 5


@pytest.fixture(scope="module")
def pool():
    e = vp.Env(params={"OutputFlag": 0})
    m = make_model(e, [f"p{i}" for i in range(NVARS)])
    yield m, m.getVars()
    m.dispose()
    e.dispose()


small = st.integers(-4, 4)
leaf = st.one_of(st.tuples(st.just("var"), st.integers(0, NVARS - 1)),
                 st.tuples(st.just("num"), small),
                 st.tuples(st.just("lin"), st.lists(st.tuples(small, st.integers(0, NVARS - 1)), max_size=4), small))


def _extend(kids):
    return st.one_of(
        st.tuples(st.sampled_from(["+", "-", "iadd", "isub", "add"]), kids, kids, small),
        st.tuples(st.sampled_from(["*c", "c*", "imul"]), kids, small),
        st.tuples(st.just("/"), kids, st.sampled_from([1, 2, -4, 8])),
        st.tuples(st.just("neg"), kids),
        st.tuples(st.just("sum"), st.lists(kids, max_size=4)),
        st.tuples(st.just("terms"), kids, st.lists(st.tuples(small, st.integers(0, NVARS - 1)), max_size=4)),
        st.tuples(st.just("loop"), kids, st.integers(0, 450), st.integers(0, NVARS - 1)),
    )


trees = st.recursive(leaf, _extend, max_leaves=12)


def _expected_add(a, b, k=1):
    const = a[0] + k * b[0]
    coeffs = dict(a[1])
    for i, c in b[1].items():
        coeffs[i] = coeffs.get(i, 0) + k * c
    return const, coeffs


def _scale(a, k):
    return a[0] * k, {i: c * k for i, c in a[1].items()}


def evaluate(tree, vs):
    """The expression built with the module, and (constant, {var index: coefficient}) in Python."""
    op = tree[0]
    if op == "var":
        return vs[tree[1]], (0, {tree[1]: 1})
    if op == "num":
        return tree[1], (tree[1], {})
    if op == "lin":
        e = LinExpr([c for c, _ in tree[1]], [vs[i] for _, i in tree[1]])
        e.addConstant(tree[2])
        coeffs = {}
        for c, i in tree[1]:
            coeffs[i] = coeffs.get(i, 0) + c
        return e, (tree[2], coeffs)
    if op in ("+", "-", "iadd", "isub", "add"):
        (a, ea), (b, eb) = evaluate(tree[1], vs), evaluate(tree[2], vs)
        if op == "+":
            return a + b, _expected_add(ea, eb)
        if op == "-":
            return a - b, _expected_add(ea, eb, -1)
        if op == "iadd":
            a += b
            return a, _expected_add(ea, eb)
        if op == "isub":
            a -= b
            return a, _expected_add(ea, eb, -1)
        e = LinExpr(a)
        e.add(b, tree[3])
        return e, _expected_add(ea, eb, tree[3])
    if op in ("*c", "c*", "imul"):
        a, ea = evaluate(tree[1], vs)
        k = tree[2]
        if op == "*c":
            return a * k, _scale(ea, k)
        if op == "c*":
            return k * a, _scale(ea, k)
        a *= k
        return a, _scale(ea, k)
    if op == "/":
        a, ea = evaluate(tree[1], vs)
        return a / tree[2], _scale(ea, 1.0 / tree[2])
    if op == "neg":
        a, ea = evaluate(tree[1], vs)
        return -a, _scale(ea, -1)
    if op == "sum":
        parts = [evaluate(t, vs) for t in tree[1]]
        expect = (0, {})
        for _, ep in parts:
            expect = _expected_add(expect, ep)
        return quicksum(p for p, _ in parts), expect
    if op == "terms":
        a, ea = evaluate(tree[1], vs)
        e = LinExpr(a)
        e.addTerms([c for c, _ in tree[2]], [vs[i] for _, i in tree[2]])
        for c, i in tree[2]:
            ea = _expected_add(ea, (0, {i: c}))
        return e, ea
    if op == "loop":
        s, es = evaluate(tree[1], vs)
        for _ in range(tree[2]):
            s = s + vs[tree[3]]
        return s, _expected_add(es, (0, {tree[3]: tree[2]}))
    raise AssertionError(op)


def normalized(e):
    e = LinExpr(e)
    e._normalize()
    coeffs = {e.getVar(i)._colno: e.getCoeff(i) for i in range(e.size())}
    assert len(coeffs) == e.size()  # one term per variable
    return e.getConstant(), {i: c for i, c in coeffs.items() if c != 0}


def nonzero(expect):
    return expect[0], {i: c for i, c in expect[1].items() if c != 0}


@settings(max_examples=150, deadline=None, suppress_health_check=[HealthCheck.function_scoped_fixture])
@given(tree=trees)
def test_random_expressions_match_plain_arithmetic(pool, tree):
    model, vs = pool
    expr, expect = evaluate(tree, vs)
    assert normalized(expr) == nonzero(expect)


@settings(max_examples=60, deadline=None, suppress_health_check=[HealthCheck.function_scoped_fixture])
@given(tree=trees)
def test_random_expressions_survive_pickling(pool, tree):
    model, vs = pool
    expr, _ = evaluate(tree, vs)
    expr = LinExpr(expr)
    back = loads(dumps(expr, model), model)
    assert [(back.getCoeff(i), back.getVar(i)._colno) for i in range(back.size())] == \
        [(expr.getCoeff(i), expr.getVar(i)._colno) for i in range(expr.size())]
    assert back.getConstant() == expr.getConstant()
