"""General expressions: the functions, the classes, their reprs and how they add themselves."""
import pytest

import velmorpy as vp
from velmorpy import GenExpr, VelmorError, abs_, and_, max_, min_, norm, or_
from test_linexpr import check_invalid, make_model

ONLY_RHS = "General expressions can only be the right hand side part of an assignment to a single variable"


@pytest.fixture
def model(env):
    m = make_model(env, ["x", "y", "z"])
    yield m
    m.dispose()


@pytest.fixture
def xyz(model):
    return model.getVars()


def same(a, b):
    return len(a) == len(b) and all(p is q for p, q in zip(a, b))


class TestFunctions:
    def test_classes_and_fields(self, xyz):
        x, y, z = xyz
        g = abs_(x)
        assert type(g) is vp.GenExprAbs and isinstance(g, GenExpr) and g.argvar is x
        g = and_(x, y)
        assert type(g) is vp.GenExprAnd and type(g.argvars) is list and same(g.argvars, [x, y])
        g = or_(z)
        assert type(g) is vp.GenExprOr and same(g.argvars, [z])
        g = max_(x, y, constant=3)
        assert type(g) is vp.GenExprMax and same(g.argvars, [x, y]) and g.constant == 3
        g = min_(x)
        assert type(g) is vp.GenExprMin and g.constant is None
        args = [x, y]
        g = norm(args, 2)
        assert type(g) is vp.GenExprNorm and g.argvars is args and g.which == 2

    def test_lists_are_passed_on_as_they_are(self, xyz):
        x, y, z = xyz
        inner = [x, y]
        g = max_(inner, z)
        assert len(g.argvars) == 2 and g.argvars[0] is inner and g.argvars[1] is z
        assert same(vp._special_gcargs_concat((x, y)), [x, y])
        assert vp._special_gcargs_concat(()) == []

    def test_tupledict_contributes_its_values(self, xyz):
        if not hasattr(vp, "tupledict"):
            pytest.skip("tupledict not built")
        x, y, z = xyz
        td = vp.tupledict({(1, "a"): y, (0, "b"): x})
        assert same(max_(td).argvars, [y, x])
        assert same(vp._special_gcargs_concat((z, td, 4)), [z, y, x, 4])
        assert same(and_(td, z).argvars, [y, x, z])

    def test_keyword_rules(self, xyz):
        with pytest.raises(TypeError):
            max_(xyz[0], const=1)
        with pytest.raises(TypeError):
            and_(xyz[0], constant=1)
        assert abs_(argvar=xyz[0]).argvar is xyz[0]
        assert norm(argvars=[], which=1).which == 1

    def test_docstrings(self):
        assert abs_.__doc__ == "Return expression for the absolute value of argvar"
        assert and_.__doc__ == "Return expression for logical 'and'"
        assert or_.__doc__ == "Return expression for logical 'or'"
        assert max_.__doc__ == "Return expression for maximum"
        assert min_.__doc__ == "Return expression for minimum"
        assert norm.__doc__ == "Return expression for norm of a vector"
        assert vp.quicksum.__doc__.startswith("A quicker version of the Python built-in 'sum' function for building")
        assert GenExpr.__doc__ == "General expression class.  Used by General constraints."


class TestRepr:
    def test_reprs(self, xyz):
        x, y, _ = xyz
        assert repr(abs_(x)) == "<velmor.GenExprAbs: (<velmor.Var x>)>"
        assert repr(and_(x, y)) == "<velmor.GenExprAnd: ([<velmor.Var x>, <velmor.Var y>])>"
        assert repr(or_(x)) == "<velmor.GenExprOr: ([<velmor.Var x>])>"
        assert repr(max_(x, y)) == "<velmor.GenExprMax: ([<velmor.Var x>, <velmor.Var y>]), constant=None>"
        assert repr(min_(x, constant=2.5)) == "<velmor.GenExprMin: ([<velmor.Var x>]), constant=2.5>"
        assert repr(norm([x, y], 2.0)) == "<velmor.GenExprNorm-2.0: ([<velmor.Var x>, <velmor.Var y>])>"
        assert repr(vp.GenExprMax((x,), "c")) == "<velmor.GenExprMax: ((<velmor.Var x>,)), constant=c>"


class TestClasses:
    @pytest.mark.parametrize("cls,names", [(vp.GenExprAbs, ["argvar"]), (vp.GenExprAnd, ["argvars"]),
                                           (vp.GenExprOr, ["argvars"]), (vp.GenExprMax, ["argvars", "constant"]),
                                           (vp.GenExprMin, ["argvars", "constant"]),
                                           (vp.GenExprNorm, ["argvars", "which"])])
    def test_constructors_take_exactly_the_fields(self, cls, names):
        values = [object() for _ in names]
        g = cls(*values)
        assert all(getattr(g, n) is v for n, v in zip(names, values))
        with pytest.raises(TypeError):
            cls(*values, 1)
        with pytest.raises(TypeError):
            cls(**dict(zip(names, values)))
        setattr(g, names[0], 7)
        assert getattr(g, names[0]) == 7
        g._tag = "kept"
        assert g._tag == "kept"

    def test_equality_is_refused_and_ordering_falls_back(self, xyz):
        x, y, _ = xyz
        g = max_(x, y)
        for make in (lambda: g == x, lambda: g != x, lambda: g == 1):
            with pytest.raises(VelmorError) as info:
                make()
            check_invalid(info, ONLY_RHS)
        tc = g >= x
        assert tc._lhs is x and tc._sense == "<" and tc._rhs is g
        with pytest.raises(TypeError):
            g < 1

    def test_hashable_by_identity(self, xyz):
        g = abs_(xyz[0])
        assert {g: 1}[g] == 1


class FakeModel:
    def __init__(self):
        self.calls = []

    def __getattr__(self, name):
        if not name.startswith("addGenConstr"):
            raise AttributeError(name)

        def add(*args):
            self.calls.append((name, args))
            return "gc"
        return add


class TestAddAsConstr:
    def test_each_kind_calls_its_model_method(self, xyz):
        x, y, z = xyz
        fm = FakeModel()
        assert abs_(x)._addAsConstr(fm, z, "a") == "gc"
        and_(x, y)._addAsConstr(fm, z, name="b")
        or_(x)._addAsConstr(fm, z)
        max_(x, constant=1)._addAsConstr(fm, z, "d")
        min_(y)._addAsConstr(model=fm, resvar=z, name="e")
        norm([x], 1)._addAsConstr(fm, z, "f")
        assert [c[0] for c in fm.calls] == ["addGenConstrAbs", "addGenConstrAnd", "addGenConstrOr",
                                           "addGenConstrMax", "addGenConstrMin", "addGenConstrNorm"]
        args = [c[1] for c in fm.calls]
        assert args[0][0] is z and args[0][1] is x and args[0][2] == "a"
        assert same(args[1][1], [x, y]) and args[1][2] == "b"
        assert args[2][2] == ""
        assert same(args[3][1], [x]) and args[3][2:] == (1, "d")
        assert args[4][2:] == (None, "e")
        assert same(args[5][1], [x]) and args[5][2:] == (1, "f")

    def test_errors_of_the_model_pass_through(self, xyz):
        with pytest.raises(AttributeError):
            abs_(xyz[0])._addAsConstr(object(), xyz[1], "n")
