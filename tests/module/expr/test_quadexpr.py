"""QuadExpr: construction, products of linear expressions, operators, text, tails, pickling."""
import pickle

import pytest
from hypothesis import HealthCheck, given, settings
from hypothesis import strategies as st

import velmorpy as vp
from velmorpy import LinExpr, QuadExpr, VelmorError, quicksum
from test_linexpr import check_invalid, dumps, loads, make_model, terms
from model.test_model import lib

INVALID = 10003
NAN = float("nan")


@pytest.fixture
def model(env):
    m = make_model(env, ["x", "y", "z"])
    yield m
    m.dispose()


@pytest.fixture
def xyz(model):
    return model.getVars()


def qterms(q):
    """(coefficient, first name, second name) of every quadratic term, in order."""
    return [(q.getCoeff(i), q.getVar1(i).VarName, q.getVar2(i).VarName) for i in range(q.size())]


class TestConstruction:
    def test_forms(self, xyz):
        x, y, _ = xyz
        q = QuadExpr()
        assert (q.size(), str(q), repr(q)) == (0, "0.0", "<velmor.QuadExpr: 0.0>")
        q = QuadExpr(x)
        assert q.size() == 0 and terms(q.getLinExpr()) == [(1.0, "x")]
        e = 2 * x + 1
        q = QuadExpr(e)
        q.add(y)
        assert terms(e) == [(2.0, "x")] and terms(q.getLinExpr()) == [(2.0, "x"), (1.0, "y")]
        src = x * y + x
        c = QuadExpr(src)
        c.add(x * x)
        c.getLinExpr().add(y)
        assert qterms(src) == [(1.0, "x", "y")] and terms(src.getLinExpr()) == [(1.0, "x")]
        assert qterms(c) == [(1.0, "x", "y"), (1.0, "x", "x")]
        assert str(src.copy()) == str(src)

    def test_refused_argument(self):
        with pytest.raises(VelmorError) as info:
            QuadExpr("a")
        check_invalid(info, "No constructor available for QuadExpr(a)")

    def test_fields(self, xyz):
        x, y, z = xyz
        q = x * y + 2 * z * z + x
        assert q._coeffs == [1.0, 2.0] and q._vars1 == [x, z] and q._vars2 == [y, z]
        assert q._continue is None
        assert q._QuadExpr__linexpr is q.getLinExpr() and terms(q.getLinExpr()) == [(1.0, "x")]


class TestText:
    def test_worked_examples(self, xyz):
        x, y, _ = xyz
        assert str(x * x + 2 * x * y + 3) == "3.0 + [ x ^ 2 + 2.0 x * y ]"
        assert repr(x * x) == "<velmor.QuadExpr: 0.0 + [ x ^ 2 ]>"
        assert str(x * x - x * y) == "0.0 + [ x ^ 2 + -1.0 x * y ]"
        assert (x * y)._asprettystring() == "0.0 + [ x * y ]"

    def test_square_is_told_by_sameas(self, model, xyz):
        x = xyz[0]
        other = vp.Var(model, x._colno)
        assert str(x * other) == "0.0 + [ x ^ 2 ]"


class TestProducts:
    def test_product_of_two_linear_expressions(self, xyz):
        x, y, z = xyz
        q = (x + 2 * y + 1) * (3 * z + 4)
        assert qterms(q) == [(3.0, "x", "z"), (6.0, "y", "z")]
        assert terms(q.getLinExpr()) == [(4.0, "x"), (8.0, "y"), (3.0, "z")]
        assert q.getLinExpr().getConstant() == 4.0

    def test_constant_factors_scale(self, xyz):
        x, y, _ = xyz
        q = x * y + x + 1
        for r in (q * 2, 2 * q, q * LinExpr(2), LinExpr(2) * q, QuadExpr(LinExpr(2)) * q,
                  q * QuadExpr(LinExpr(2))):
            assert qterms(r) == [(2.0, "x", "y")] and str(r) == "2.0 + 2.0 x + [ 2.0 x * y ]"
        assert qterms(q) == [(1.0, "x", "y")]
        assert str(q / 4) == "0.25 + 0.25 x + [ 0.25 x * y ]"
        assert str(-q) == "-1.0 + -1.0 x + [ -1.0 x * y ]"

    def test_linear_quadexpr_times_linear(self, xyz):
        x, y, _ = xyz
        q = QuadExpr(x + 1)
        assert str(q * y) == "y + [ x * y ]"
        assert str(y * q) == "y + [ y * x ]"
        assert str(q ** 2) == "1.0 + x + x + [ x ^ 2 ]"

    @pytest.mark.parametrize("make", [
        lambda x, y, z: (x * y) * z,
        lambda x, y, z: z * (x * y),
        lambda x, y, z: (x * y) * (z + 1),
        lambda x, y, z: (x * y) * (x * y),
        lambda x, y, z: (x * y) ** 2,
        lambda x, y, z: (x + 0 * y * z) * x,
    ])
    def test_degree_above_two(self, xyz, make):
        with pytest.raises(VelmorError) as info:
            make(*xyz)
        check_invalid(info, "Invalid argument to QuadExpr multiplication")

    def test_mul_method_and_errors(self, xyz):
        x, y, _ = xyz
        q = QuadExpr(x)
        assert q._mul(y) is q and qterms(q) == [(1.0, "x", "y")]
        with pytest.raises(VelmorError) as info:
            q._mul(NAN)
        check_invalid(info, "Constant is Nan")
        with pytest.raises(VelmorError) as info:
            q._mul("a")
        check_invalid(info, "Invalid argument to QuadExpr multiplication")
        with pytest.raises(VelmorError) as info:
            q / x
        check_invalid(info, "Divisor must be a constant")
        with pytest.raises(ZeroDivisionError, match="^float division$"):
            q / 0


class TestSums:
    def test_operators(self, xyz):
        x, y, z = xyz
        q = x * y
        assert str(q + z) == "z + [ x * y ]" and str(z + q) == "z + [ x * y ]"
        assert str(q - z) == "-1.0 z + [ x * y ]" and str(z - q) == "z + [ -1.0 x * y ]"
        assert str(1 - q) == "1.0 + [ -1.0 x * y ]"
        assert str((x + 1) + q) == "1.0 + x + [ x * y ]"
        assert str(q + q) == "0.0 + [ x * y + x * y ]"
        assert str(q) == "0.0 + [ x * y ]"
        with pytest.raises(TypeError):
            q + "a"
        with pytest.raises(TypeError):
            q * [1]

    def test_inplace_operators_change_the_expression(self, xyz):
        x, y, z = xyz
        q = x * y
        same = q
        q += z
        q -= x * x
        q += 2
        q -= LinExpr(x)
        q *= 3
        assert q is same
        assert str(q) == "6.0 + 3.0 z + -3.0 x + [ 3.0 x * y + -3.0 x ^ 2 ]"
        r = QuadExpr(x)
        r *= y
        assert str(r) == "0.0 + [ x * y ]"
        with pytest.raises(VelmorError):
            q *= z

    def test_add_method(self, xyz):
        x, y, z = xyz
        q = QuadExpr()
        q.add(x * y, 2)
        q.add(z + 1, -1)
        q.add(x)
        q.add(3)
        assert str(q) == "2.0 + -1.0 z + x + [ 2.0 x * y ]"
        q.add(q)
        assert str(q) == "4.0 + -1.0 z + x + -1.0 z + x + [ 2.0 x * y + 2.0 x * y ]"
        with pytest.raises(VelmorError) as info:
            q.add("a")
        check_invalid(info, "Invalid argument to QuadExpr addition")

    def test_addconstant_and_addterms(self, xyz):
        x, y, z = xyz
        q = QuadExpr()
        q.addConstant(1.5)
        q.addTerms([1, 2], [x, y])
        q.addTerms([3, 4], [x, y], [z, z])
        q.addTerms(5, z, x)
        assert str(q) == "1.5 + x + 2.0 y + [ 3.0 x * z + 4.0 y * z + 5.0 z * x ]"
        with pytest.raises(VelmorError) as info:
            q.addConstant(NAN)
        check_invalid(info, "Constant is Nan")

    @pytest.mark.parametrize("args,message", [
        (lambda x: (NAN, x, x), "Coefficient is Nan or Inf"),
        (lambda x: ([1.0], [x], [1]), "Third argument should be a list of Var"),
        (lambda x: ([1.0], [1], [x]), "Second argument should be a list of Var"),
        (lambda x: (1.0, x, 2), "Third argument should be a list of Var"),
        (lambda x: ([1.0], 7, [x]), "Second argument should be a list of Var"),
        (lambda x: ([float("inf")], [x], [x]), "Coefficient is Nan or Inf"),
    ])
    def test_addterms_errors(self, xyz, args, message):
        q = QuadExpr()
        with pytest.raises(VelmorError) as info:
            q.addTerms(*args(xyz[0]))
        check_invalid(info, message)
        assert q.size() == 0


class TestMethods:
    def test_access_remove_clear(self, model, xyz):
        x, y, z = xyz
        q = x * y + 2 * y * z + 3 * z * x + x + y
        assert (q.getCoeff(-1), q.getVar1(1), q.getVar2(1)) == (3.0, y, z)
        with pytest.raises(IndexError):
            q.getVar1(3)
        q.remove(1)
        assert qterms(q) == [(1.0, "x", "y"), (3.0, "z", "x")]
        q.remove(vp.Var(model, x._colno))
        assert qterms(q) == [] and terms(q.getLinExpr()) == [(1.0, "y")]
        q = x * y + 1
        q.clear()
        assert str(q) == "0.0" and q.size() == 0

    def test_getlinexpr_is_the_linear_part_itself(self, xyz):
        x, y, _ = xyz
        q = x * y + x
        lin = q.getLinExpr()
        assert q.getLinExpr() is lin
        lin.add(y, 2)
        assert str(q) == "x + 2.0 y + [ x * y ]"

    def test_normalize_merges_pairs_in_either_order(self, xyz):
        x, y, z = xyz
        q = x * y + 2 * x * x + y * x + x + x + 3 * z * y - y * z
        q._normalize()
        assert qterms(q) == [(2.0, "x", "y"), (2.0, "x", "x"), (2.0, "z", "y")]
        assert terms(q.getLinExpr()) == [(2.0, "x")]

    def test_getvalue(self, env):
        m = make_model(env, [])
        x = lib.add_var(m, "x", lb=2.0, ub=2.0)
        y = lib.add_var(m, "y", lb=3.0, ub=3.0)
        m.update()
        assert lib.dll.VLMoptimize(lib.ptr(m)) == 0
        assert (x * y + 2 * x * x + y + 1).getValue() == 6.0 + 8.0 + 3.0 + 1.0
        m.dispose()


class TestTail:
    def test_sums_chain_and_flatten_in_order(self, xyz):
        x, y, z = xyz
        s = QuadExpr()
        for i in range(450):
            s = s + (x if i % 2 else y) * z + 1
        assert s._continue is not None and len(s._vars1) < 200
        tail = s._continue
        t = s + x * x
        assert t._continue is tail
        assert s.size() == 450 and s._continue is None
        assert [s.getVar1(i).VarName for i in range(4)] == ["y", "x", "y", "x"]
        assert s.getLinExpr().getConstant() == 450.0
        assert t.size() == 451 and t.getLinExpr().getConstant() == 450.0

    def test_linear_sums_chain_too(self, xyz):
        s = xyz[0] * xyz[1]
        for _ in range(300):
            s = s + xyz[2]
        assert s._continue is not None
        assert s.getLinExpr().size() == 300 and s.size() == 1

    def test_quicksum_of_products(self, xyz):
        x, y, z = xyz
        q = quicksum(v * w for v in xyz for w in xyz)
        assert q.size() == 9 and qterms(q)[1] == (1.0, "x", "y")


class TestPickle:
    def test_reduce_and_round_trip(self, model, xyz):
        x, y, z = xyz
        q = x * y + 2 * z + 1
        fn, (cls, checksum, state) = q.__reduce__()
        assert fn is vp._unpickle_QuadExpr and cls is QuadExpr and checksum == 0x5f8c98f
        lin, coeffs, cont, v1, v2 = state
        assert terms(lin) == [(2.0, "z")] and lin.getConstant() == 1.0
        assert (coeffs, cont, v1, v2) == ([1.0], None, [x], [y])
        s = QuadExpr()
        for i in range(500):
            s = s + xyz[i % 3] * xyz[(i + 1) % 3] + i
        back = loads(dumps(s, model), model)
        assert str(back) == str(s) and qterms(back) == qterms(s)

    def test_checksum_mismatch(self):
        with pytest.raises(pickle.PickleError) as info:
            vp._unpickle_QuadExpr(QuadExpr, 0xabc, None)
        assert str(info.value) == ("Incompatible checksums (0xabc vs (0x5f8c98f, 0x9dece5a, 0xea41dcd) = "
                                   "(__linexpr, _coeffs, _continue, _vars1, _vars2))")


NVARS = 4


@pytest.fixture(scope="module")
def pool():
    e = vp.Env(params={"OutputFlag": 0})
    m = make_model(e, [f"p{i}" for i in range(NVARS)])
    yield m, m.getVars()
    m.dispose()
    e.dispose()


linear = st.tuples(st.integers(-3, 3), st.lists(st.tuples(st.integers(-3, 3), st.integers(0, NVARS - 1)), max_size=5))


def build(lin, vs):
    const, ts = lin
    e = LinExpr([c for c, _ in ts], [vs[i] for _, i in ts])
    e.addConstant(const)
    return e


def as_dict(lin):
    const, ts = lin
    d = {}
    for c, i in ts:
        d[i] = d.get(i, 0) + c
    return const, d


@settings(max_examples=150, deadline=None, suppress_health_check=[HealthCheck.function_scoped_fixture])
@given(a=linear, b=linear, extra=linear)
def test_products_match_plain_arithmetic(pool, a, b, extra):
    model, vs = pool
    ea, eb = build(a, vs), build(b, vs)
    if ea.size() == 0 or eb.size() == 0:
        q = QuadExpr(ea * eb)
    else:
        q = ea * eb
    q += build(extra, vs)
    ca, da = as_dict(a)
    cb, db = as_dict(b)
    cx, dx = as_dict(extra)
    quad = {}
    for i, c in da.items():
        for j, d in db.items():
            key = (min(i, j), max(i, j))
            quad[key] = quad.get(key, 0) + c * d
    lin = {}
    for i, c in list(da.items()):
        lin[i] = lin.get(i, 0) + c * cb
    for j, d in db.items():
        lin[j] = lin.get(j, 0) + d * ca
    for i, c in dx.items():
        lin[i] = lin.get(i, 0) + c
    q._normalize()
    got_quad = {}
    for k in range(q.size()):
        i, j = q.getVar1(k)._colno, q.getVar2(k)._colno
        key = (min(i, j), max(i, j))
        assert key not in got_quad
        got_quad[key] = q.getCoeff(k)
    le = q.getLinExpr()
    got_lin = {le.getVar(k)._colno: le.getCoeff(k) for k in range(le.size())}
    assert len(got_lin) == le.size()
    nz = lambda d: {k: v for k, v in d.items() if v != 0}
    assert nz(got_quad) == nz(quad) and nz(got_lin) == nz(lin)
    assert le.getConstant() == ca * cb + cx
