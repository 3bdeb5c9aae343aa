"""General constraints with matrix arguments: each block solves to the optimum of its twin built
one element at a time, the MGenConstr has the block's shape and handles, shape mismatches give
their messages, and a refused block leaves the model as it was. Also chgCoeff over matrix
objects, read back through getA().
"""
import numpy as np
import pytest

import velmorpy as vp
from velmorpy import VLM


def solved(m):
    m.optimize()
    assert m.Status == VLM.OPTIMAL
    return m.ObjVal


def ngen(m):
    m.update()
    return m.NumGenConstrs


# r = max(x, y, 3) elementwise, x in [1,2],[5,6],[2,3], y fixed at 4, 0..1, 1; min sum r:
# max(1, 4, 3) + max(5, 0, 3) + max(2, 1, 3) = 4 + 5 + 3 = 12.
@pytest.mark.parametrize("form", ["matrix", "expression", "loop"])
def test_max_block_solves_like_its_loop_twin(env, form):
    m = vp.Model(env=env)
    x = m.addMVar(3, lb=[1, 5, 2], ub=[2, 6, 3], name="x")
    y = m.addMVar(3, lb=[4, 0, 1], ub=[4, 1, 1], name="y")
    r = m.addMVar(3, lb=-VLM.INFINITY, obj=1.0, name="r")
    if form == "matrix":
        gc = m.addGenConstrMax(r, [x, y], constant=3.0, name="g")
        assert isinstance(gc, vp.MGenConstr) and gc.shape == (3,)
    elif form == "expression":
        gc = m.addConstr(r == vp.max_(x, y, constant=3.0))
        assert isinstance(gc, vp.MGenConstr) and gc.shape == (3,)
    else:
        for i in range(3):
            m.addGenConstrMax(r[i].item(), [x[i].item(), y[i].item()], 3.0)
    assert solved(m) == pytest.approx(12.0)
    assert np.allclose(r.X, np.maximum(np.maximum(x.X, y.X), 3.0))
    assert ngen(m) == 3


# Operands along the last axis: r[i] = min(X[i, :]), X <= [[3, 1, 2], [5, 7, 6]]; max sum r:
# 1 + 5 = 6. Then r2 = |z| elementwise over (2, 2), z in [-3, -1]; max sum r2 = 4 * 3 = 12 more.
def test_min_over_last_axis_and_abs_over_two_dimensions(env):
    m = vp.Model(env=env)
    m.ModelSense = VLM.MAXIMIZE
    X = m.addMVar((2, 3), ub=np.array([[3, 1, 2], [5, 7, 6]]))
    r = m.addMVar(2, obj=1.0, ub=100)
    gc = m.addGenConstrMin(r, X)
    assert gc.shape == (2,)
    assert solved(m) == pytest.approx(6.0)
    resvar, operands, constant = m.getGenConstrMin(gc[1].item())
    assert resvar.sameAs(r[1].item())
    assert [v.sameAs(X[1, j].item()) for j, v in enumerate(operands)] == [True] * 3
    assert constant == VLM.INFINITY
    z = m.addMVar((2, 2), lb=-3, ub=-1)
    r2 = m.addMVar((2, 2), obj=1.0, ub=100)
    a = m.addGenConstrAbs(r2, z, name="abs")
    assert a.shape == (2, 2)
    with pytest.raises(vp.VelmorError) as e:
        a.GenConstrName
    assert str(e.value) == "GenConstr has not yet been added to the model"
    m.update()
    assert list(a.GenConstrName.ravel()) == ["abs[0,0]", "abs[0,1]", "abs[1,0]", "abs[1,1]"]
    assert m.getAttr("GenConstrName", a[1]).tolist() == ["abs[1,0]", "abs[1,1]"]
    assert a.GenConstrType.tolist() == [[VLM.GENCONSTR_ABS] * 2] * 2
    assert solved(m) == pytest.approx(18.0)


# b[i] = 1 forces x[i] >= c[i] = 2, 3, 4 and earns 2.5; min sum x - 2.5 sum b: only the first
# pays (2 - 2.5): -0.5. The twin adds the three indicators one by one.
@pytest.mark.parametrize("form", ["shift", "method", "loop"])
def test_indicator_block_solves_like_its_loop_twin(env, form):
    m = vp.Model(env=env)
    x = m.addMVar(3, ub=10, obj=1.0)
    b = m.addMVar(3, vtype=VLM.BINARY, obj=-2.5)
    c = np.array([2.0, 3.0, 4.0])
    if form == "shift":
        gc = m.addConstr((b == 1) >> (x >= c))
        assert isinstance(gc, vp.MGenConstr) and gc.shape == (3,)
    elif form == "method":
        gc = m.addGenConstrIndicator(b, True, x, VLM.GREATER_EQUAL, c)
        assert gc.shape == (3,)
    else:
        for i in range(3):
            m.addGenConstrIndicator(b[i].item(), True, x[i].item() >= c[i])
    assert solved(m) == pytest.approx(-0.5)
    assert np.all(x.X >= c * b.X - 1e-6)


# binval per element: b[0] = 0 -> x[0] >= 5, b[1] = 1 -> x[1] >= 5; b is free of cost, so each
# indicator is dodged: b = [1, 0] and x = 0; objective 0. Fixing b = [0, 1] forces 10.
@pytest.mark.parametrize("form", ["method", "shift"])
def test_indicator_binval_array_and_its_read_back(env, form):
    m = vp.Model(env=env)
    x = m.addMVar(2, ub=10, obj=1.0)
    b = m.addMVar(2, vtype=VLM.BINARY)
    if form == "method":
        gc = m.addGenConstrIndicator(b, np.array([0, 1]), x >= 5)
    else:
        gc = m.addConstr((b == np.array([0, 1])) >> (x >= 5))
    assert solved(m) == pytest.approx(0.0)
    b.LB = np.array([0.0, 1.0])
    b.UB = np.array([0.0, 1.0])
    assert solved(m) == pytest.approx(10.0)
    binvar, binval, expr, sense, rhs = m.getGenConstrIndicator(gc[0].item())
    assert binvar.sameAs(b[0].item()) and binval == 0 and sense == ">" and rhs == 5.0


# y = f(x) through (0, 0), (1, 2), (2, 2) for three pairs with x fixed at 0.5, 1.5, 2: y sums to
# 1 + 2 + 2 = 5. Exp and Pow blocks take their base/exponent per element.
def test_function_blocks(env):
    m = vp.Model(env=env)
    x = m.addMVar(3, lb=[0.5, 1.5, 2], ub=[0.5, 1.5, 2])
    y = m.addMVar(3, lb=-10, obj=1.0)
    gc = m.addGenConstrPWL(x, y, [0, 1, 2], [0, 2, 2])
    assert gc.shape == (3,)
    assert solved(m) == pytest.approx(5.0)
    u = m.addMVar(2, lb=1, ub=2)
    w = m.addMVar(2, lb=-10)
    p = m.addGenConstrPow(u, w, np.array([2.0, 3.0]))
    m.update()
    assert [m.getGenConstrPow(p[i].item())[2] for i in range(2)] == [2.0, 3.0]
    assert ngen(m) == 5


def test_shape_mismatches_name_both_shapes_and_change_nothing(env):
    m = vp.Model(env=env)
    x = m.addMVar(2)
    r = m.addMVar(3)
    b = m.addMVar(3, vtype=VLM.BINARY)
    cases = [
        (lambda: m.addGenConstrMax(r, [x]), "vars operand has shape (2,), which does not broadcast to (3,)"),
        (lambda: m.addGenConstrMax(r, [r], constant=[1, 2]),
         "constant has shape (2,), which does not broadcast to (3,)"),
        (lambda: m.addGenConstrExp(x, r), "Shapes (2,) of xvar and (3,) of yvar do not broadcast together"),
        (lambda: m.addGenConstrMax(r, [r, 5]), "Invalid data in vars array"),
        (lambda: m.addGenConstrIndicator(b, True, x, "!", 1),
         "Invalid sense argument for general constraint of indicator type"),
        (lambda: m.addGenConstrIndicator(b, True, r, "<", x),
         "Invalid rhs argument for general constraint of indicator type"),
        (lambda: m.addConstr((b == 2) >> (r <= 1)),
         "Indicator constraints can only be triggered by a single binary variable at a given value"),
        (lambda: m.addGenConstrPWL(r, r, [0], [1]), "Less than 2 points for PWL constraint"),
    ]
    for call, message in cases:
        with pytest.raises(vp.VelmorError) as e:
            call()
        assert str(e.value) == message
    other = vp.Model(env=env).addMVar(3)
    with pytest.raises(vp.VelmorError) as e:
        m.addGenConstrMax(r, [other])
    assert str(e.value) == "Variable not in model" and e.value.errno == VLM.ERROR_NOT_IN_MODEL
    with pytest.raises(ValueError, match="^name argument has incompatible shape$"):
        m.addGenConstrMax(r, [r], name=np.array(["a", "b"]))
    # The indicator's lhs against binvar of another shape is refused as well.
    with pytest.raises(vp.VelmorError) as e:
        m.addGenConstrIndicator(b, True, x <= 1)
    assert "(2,)" in str(e.value) and "(3,)" in str(e.value)
    assert ngen(m) == 0 and m.getGenConstrs() == []


def test_refused_block_is_all_or_none(env):
    m = vp.Model(env=env)
    b = m.addMVar(3, vtype=VLM.BINARY)
    c = m.addMVar(3, vtype=[VLM.BINARY, VLM.BINARY, VLM.CONTINUOUS])
    m.addGenConstrAnd(b[0].item(), [b[1].item()])
    with pytest.raises(vp.VelmorError) as e:
        m.addGenConstrAnd(b, [c])  # the third operand is not binary
    assert e.value.errno == VLM.ERROR_INVALID_ARGUMENT
    assert ngen(m) == 1 and len(m.getGenConstrs()) == 1
    # A shape-(1,) operand broadcasts over the block.
    g = m.addGenConstrOr(b, [c[:1], b])
    assert g.shape == (3,) and ngen(m) == 4


# r[i] = ||X[i, :]||_1 with X fixed at [[1, -2, 2], [3, 0, -4]]: r = [5, 7], min sum r = 12.
# Then b[i] = AND(c[i, :]) with min sum b - sum c: c all ones forces b = 1 (-2), one c per row
# leaves b = 0 (-2 as well): objective -2.
def test_norm_and_and_blocks(env):
    m = vp.Model(env=env)
    V = np.array([[1.0, -2.0, 2.0], [3.0, 0.0, -4.0]])
    X = m.addMVar((2, 3), lb=V, ub=V)
    r = m.addMVar(2, obj=1.0, ub=100)
    g = m.addGenConstrNorm(r, X, 1.0)
    assert g.shape == (2,)
    assert solved(m) == pytest.approx(12.0)
    assert np.allclose(r.X, [5.0, 7.0])
    b = m.addMVar(2, vtype=VLM.BINARY)
    c = m.addMVar((2, 2), vtype=VLM.BINARY)
    h = m.addGenConstrAnd(b, c)
    assert repr(h).startswith("<MGenConstr (2,)")
    m.setObjective(b.sum() - c.sum())
    assert solved(m) == pytest.approx(-2.0)
    assert np.array_equal(b.X, c.X.min(axis=1))
