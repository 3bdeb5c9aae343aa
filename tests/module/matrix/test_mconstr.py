"""MConstr and the hand-off between the matrix types and the rest of the module: vectorised
constraint attributes after a solve, writes that change the model, removal, operands of other
types on either side, and reference hygiene of the hot paths.
"""
import gc
import sys
import weakref

import numpy as np
import pytest

import velmorpy as vp
from velmorpy import VLM, VelmorError


@pytest.fixture
def m(env):
    model = vp.Model("mconstr", env=env)
    yield model
    model.dispose()


# max x0 + 2 x1 s.t. x0 + x1 <= 4 (c0), x1 <= 3 (c1), x >= 0: the optimum is x = (1, 3) with
# value 7; both rows bind, with duals Pi = (1, 1).
def test_constraint_attributes_after_a_solve(m):
    x = m.addMVar(2)
    c = m.addConstr(np.array([[1.0, 1.0], [0.0, 1.0]]) @ x <= np.array([4.0, 3.0]), name="c")
    m.setObjective(np.array([1.0, 2.0]) @ x, VLM.MAXIMIZE)
    m.optimize()
    assert m.ObjVal == pytest.approx(7.0)
    assert np.allclose(c.Pi, [1.0, 1.0]) and np.allclose(c.Slack, [0.0, 0.0])
    assert c.getAttr("RHS").dtype == np.float64 and c[1].ConstrName.item() == "c[1]"
    assert c[1].item().ConstrName == "c[1]"
    # Raising the right-hand sides moves the optimum: x = (2, 4), value 10.
    c.RHS = np.array([6.0, 4.0])
    m.optimize()
    assert m.ObjVal == pytest.approx(10.0)
    c.setAttr("RHS", 1.0)
    m.optimize()
    assert m.ObjVal == pytest.approx(2.0)


def test_constraint_arrays_share_handles_and_can_be_removed(m):
    x = m.addMVar((2, 2))
    c = m.addConstr(x <= 1)
    m.update()
    assert c.shape == (2, 2) and c.T[0, 1].item() is c[1, 0].item()
    assert c.reshape(4).tolist() == [h for row in c.tolist() for h in row]
    assert repr(c).startswith("<MConstr (2, 2)\n")
    with pytest.raises(AttributeError, match="'velmorpy.Constr' object has no attribute 'LB'"):
        c.LB
    m.remove(c[0])
    m.update()
    assert m.NumConstrs == 2 and "(some removed)" in repr(c)


def test_operands_of_other_types_on_either_side(m):
    x = m.addMVar(2, name="x")
    v = m.addVar(name="v")
    m.update()
    lin = 2 * v + 1
    for e in (lin + x, x + lin, v + x, x - v, v * x, x * v, lin <= x, x >= lin):
        assert type(e).__name__ in ("MLinExpr", "MQuadExpr", "TempConstr")
    # LinExpr leaves the comparison to the MVar, which reflects it: x[i] - 2 v - 1 >= 0.
    c = m.addConstr(lin <= x)
    m.update()
    a = m.getA().toarray()
    assert np.array_equal(a, [[1.0, 0.0, -2.0], [0.0, 1.0, -2.0]])
    assert c.RHS.tolist() == [1.0, 1.0] and "".join(c.Sense) == ">>"
    assert type(v * x).__name__ == "MQuadExpr"
    with pytest.raises(TypeError):
        x + "text"
    with pytest.raises(TypeError):
        x @ "text"
    assert type(np.float64(2.0) * x).__name__ == "MLinExpr"
    assert type(vp.quicksum(x)).__name__ == "MLinExpr"


def test_matrix_constraint_refusals_leave_the_model_unchanged(env):
    m1 = vp.Model(env=env)
    m2 = vp.Model(env=env)
    x = m1.addMVar(2)
    y = m2.addMVar(2)
    m1.update()
    m2.update()
    with pytest.raises(VelmorError, match="Variable not in model") as err:
        m1.addConstr(x + y <= 1)
    assert err.value.errno == VLM.ERROR_NOT_IN_MODEL
    with pytest.raises(ValueError, match="name argument has incompatible shape"):
        m1.addConstr(x <= 1, name=np.array(["a", "b", "c"]))
    m1.update()
    assert m1.NumConstrs == 0
    m1.dispose()
    m2.dispose()


def test_hot_paths_keep_reference_counts_stable(m):
    x = m.addMVar(50)
    m.update()
    A = np.ones((5, 50))
    first = x.tolist()[0]
    before = sys.getrefcount(first)
    for _ in range(200):
        e = A @ x + 2 * x[:5] - 1
        _ = (e <= 0, x.LB, x[3], x.T, x.sum(axis=0), (x * x).sum(), x @ np.ones((50, 2)))
    del e, _
    gc.collect()
    assert sys.getrefcount(first) == before


def test_a_model_referenced_from_its_own_mvar_is_collected(env):
    m = vp.Model(env=env)
    m._x = m.addMVar(3)
    m._e = m._x.sum()
    w = weakref.ref(m)
    del m
    gc.collect()
    assert w() is None
