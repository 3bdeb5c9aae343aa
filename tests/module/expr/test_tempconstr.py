"""TempConstr: what comparisons build, indicators, the refused comparisons and the matrix rules."""
import pytest

import velmorpy as vp
from velmorpy import LinExpr, TempConstr, VelmorError, max_
from test_linexpr import check_invalid, make_model, terms

NO_BOOL = 'Constraint has no bool value (are you trying "lb <= expr <= ub"?)'


@pytest.fixture
def model(env):
    m = make_model(env, ["x", "y", "b"])
    yield m
    m.dispose()


@pytest.fixture
def xyb(model):
    return model.getVars()


def fields(tc):
    return tc._lhs, tc._sense, tc._rhs


class TestComparisons:
    def test_var_sides_are_stored_as_they_are(self, xyb):
        x, y, _ = xyb
        tc = x <= 5
        assert type(tc) is TempConstr and tc._lhs is x and tc._sense == "<" and tc._rhs == 5
        assert type(tc._rhs) is int
        assert fields(x >= y) == (x, ">", y)
        assert fields(x == 2.5) == (x, "=", 2.5)
        assert fields(5 <= x) == (x, ">", 5) and fields(5 >= x) == (x, "<", 5)
        assert fields(5 == x) == (x, "=", 5)

    @pytest.mark.parametrize("make", [lambda x, y: x + y, lambda x, y: x * y])
    def test_expression_sides_are_not_copied(self, xyb, make):
        x, y, _ = xyb
        e = make(x, y)
        r = 2 * y
        assert fields(e <= r) == (e, "<", r) and fields(e >= 3) == (e, ">", 3)
        assert fields(e == r) == (e, "=", r) and fields(3 >= e) == (e, "<", 3)
        assert fields(x <= e) == (x, "<", e)

    @pytest.mark.parametrize("make", [lambda x, y: x, lambda x, y: x + y, lambda x, y: x * y])
    def test_not_equal_is_refused(self, xyb, make):
        with pytest.raises(VelmorError) as info:
            make(*xyb[:2]) != 1
        check_invalid(info, "Inequality constraints not supported", 0)

    def test_strict_comparisons(self, xyb):
        x, y, _ = xyb
        with pytest.raises(TypeError):
            x < 5
        with pytest.raises(TypeError):
            x > y
        with pytest.raises(NotImplementedError):
            x + 1 < 5
        with pytest.raises(NotImplementedError):
            x * y > 5
        with pytest.raises(NotImplementedError):
            x < x + 1

    def test_truth_value_is_refused(self, xyb):
        x = xyb[0]
        with pytest.raises(VelmorError) as info:
            1 <= x <= 3
        check_invalid(info, NO_BOOL, 0)
        tc = x <= 3
        with pytest.raises(VelmorError) as info:
            if tc:
                pass
        check_invalid(info, NO_BOOL, 0)
        with pytest.raises(VelmorError) as info:
            tc.__nonzero__()
        check_invalid(info, NO_BOOL, 0)
        with pytest.raises(VelmorError):
            x in [xyb[1]]  # membership compares with ==: use sameAs

    @pytest.mark.parametrize("make", [lambda x: (x <= 5) <= 7, lambda x: (x >= 1) >= 0, lambda x: 7 >= (x <= 5)])
    def test_comparing_constraints_is_refused(self, xyb, make):
        with pytest.raises(VelmorError) as info:
            make(xyb[0])
        check_invalid(info, "Constraint comparison not implemented", 0)

    def test_equality_of_constraints_is_identity(self, xyb):
        tc = xyb[0] <= 1
        assert (tc == tc) is True and (tc == (xyb[0] <= 1)) is False and tc != 3
        assert len({tc, tc}) == 1


class TestIndicatorAndRepr:
    def test_indicator(self, xyb):
        x, y, b = xyb
        cond = b == 1
        impl = x + y <= 3
        ind = cond >> impl
        assert fields(ind) == (cond, "I", impl)
        assert repr(ind) == ("<velmor.TempConstr: <velmor.TempConstr: <velmor.Var b> == 1> == "
                             "<velmor.TempConstr: x + y <= 3>>")
        with pytest.raises(TypeError):
            x >> impl

    def test_repr_by_sense(self, xyb):
        x, y, _ = xyb
        assert repr(x + 2 * y <= 3) == "<velmor.TempConstr: x + 2.0 y <= 3>"
        assert repr(x * x >= y) == "<velmor.TempConstr: 0.0 + [ x ^ 2 ] >= <velmor.Var y>>"
        assert repr(x == 1.5) == "<velmor.TempConstr: <velmor.Var x> == 1.5>"
        assert repr(TempConstr(1, "?", 2)) == "<velmor.TempConstr: 1 == 2>"

    def test_constructor(self, xyb):
        x = xyb[0]
        tc = TempConstr(x, "<", 4)
        assert fields(tc) == (x, "<", 4)
        with pytest.raises(TypeError):
            TempConstr(x, "<")
        with pytest.raises(TypeError):
            TempConstr(x, "<", 4, 5)
        with pytest.raises(AttributeError):
            tc._lhs = 1


class TestGeneralExpressions:
    def test_var_equal_to_general_expression(self, xyb):
        x, y, b = xyb
        g = max_(y, b)
        assert fields(x == g) == (x, "=", g)
        assert fields(g <= x) == (x, ">", g)

    def test_general_expression_on_the_left_is_refused(self, xyb):
        x, y, b = xyb
        for make in (lambda: max_(y, b) == x, lambda: max_(y, b) != x):
            with pytest.raises(VelmorError) as info:
                make()
            check_invalid(info, "General expressions can only be the right hand side part of an assignment to a "
                                "single variable", 10003)


class TestMatrixSides:
    """The matrix layer is recognised by class name; fakes stand in for it here."""

    class MLinExpr:
        __array_priority__ = 50.0

        def __init__(self, tag):
            self.tag = tag

        def __sub__(self, other):
            return TestMatrixSides.MLinExpr(("sub", self.tag, other))

        def __rsub__(self, other):
            return TestMatrixSides.MLinExpr(("rsub", self.tag, other))

        def __ge__(self, other):
            return TempConstr(self, ">", other)

    class MVar(MLinExpr):
        def __init__(self, var):
            super().__init__("mvar")
            self.var = var

        def item(self):
            return self.var

    def test_matrix_side_moves_everything_left(self, xyb):
        m = self.MLinExpr("a")
        tc = TempConstr(m, "<", 3)
        assert tc._lhs.tag == ("sub", "a", 3) and tc._rhs == 0.0 and type(tc._rhs) is float
        tc = TempConstr(xyb[0], "=", m)
        assert tc._lhs.tag == ("rsub", "a", xyb[0]) and tc._sense == "=" and tc._rhs == 0.0

    def test_var_comparison_hands_off_to_the_matrix_side(self, xyb):
        m = self.MLinExpr("a")
        tc = xyb[0] <= m
        assert tc._lhs.tag == ("sub", "a", xyb[0]) and tc._sense == ">"
        tc = (xyb[0] + 1) <= m
        assert tc._sense == ">"

    def test_one_element_mvar_with_general_expression(self, xyb):
        x, y, b = xyb
        g = max_(y, b)
        tc = TempConstr(self.MVar(x), "=", g)
        assert type(tc._lhs) is LinExpr and terms(tc._lhs) == [(1.0, "x")] and tc._rhs is g
