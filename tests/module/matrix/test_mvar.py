"""MVar: construction, shape operations, vectorised attributes and the texts of its refusals.

Not tested here: products of two MVar objects (quadratic matrix expressions are not built).
"""
import warnings

import numpy as np
import pytest

import velmorpy as vp
from velmorpy import VLM, VelmorError


@pytest.fixture
def m(env):
    model = vp.Model("mvar", env=env)
    yield model
    model.dispose()


# ---- Model.addMVar ---------------------------------------------------------------------------

def test_addmvar_shapes_types_and_bounds(m):
    x = m.addMVar(3)
    y = m.addMVar((4, 2), vtype=VLM.BINARY)
    z = m.addMVar((3,), lb=[-1, -2, -1], ub=np.array([5.0, 6.0, 7.0]), obj=2.5)
    m.update()
    assert x.shape == (3,) and x.ndim == 1 and x.size == 3
    assert y.shape == (4, 2) and m.NumVars == 14 and m.NumBinVars == 8
    assert (y.VType == "B").all() and y.VType.shape == (4, 2) and (y.UB == 1.0).all()
    assert z.LB.tolist() == [-1.0, -2.0, -1.0] and z.LB.dtype == np.float64
    assert z.UB.tolist() == [5.0, 6.0, 7.0] and z.Obj.tolist() == [2.5] * 3
    assert x.UB.tolist() == [float("inf")] * 3


def test_addmvar_names_from_prefix_and_array(m):
    x = m.addMVar((2, 2), name="x")
    y = m.addMVar(2, name=np.array(["a", "b"]))
    m.update()
    assert x.VarName.tolist() == [["x[0,0]", "x[0,1]"], ["x[1,0]", "x[1,1]"]]
    assert y.VarName.tolist() == ["a", "b"]
    assert m._nd_indexed_names("w", (1, 2)) == ["w[0,0]", "w[0,1]"]


def test_addmvar_refusals_leave_the_model_unchanged(m):
    with pytest.raises(ValueError, match="name argument has incompatible shape"):
        m.addMVar(3, name=np.array(["a", "b"]))
    with pytest.raises(ValueError):
        m.addMVar(3, lb=[1, 2])
    m.update()
    assert m.NumVars == 0
    m.dispose()
    with pytest.raises(VelmorError, match="Model has already been freed"):
        m.addMVar(2)


# ---- constructors and shape operations -------------------------------------------------------

def test_fromlist_fromvar_and_constructor_warnings(m):
    v = [m.addVar(name=f"v{i}") for i in range(4)]
    a = vp.MVar.fromlist([[v[0], v[1]], [v[2], v[3]]])
    assert a.shape == (2, 2) and a[1, 0].item() is v[2]
    with pytest.raises(ValueError) as err:
        vp.MVar.fromlist([v[0], 5])
    assert str(err.value) == "MVar.fromlist expects a list of Vars, '5' is not valid input"
    s = vp.MVar.fromvar(v[1])
    assert s.shape == () and s.item() is v[1]
    with pytest.warns(DeprecationWarning, match="use MVar.fromvar instead"):
        assert vp.MVar(v[0]).shape == ()
    with pytest.warns(DeprecationWarning, match="use MVar.fromlist instead"):
        assert vp.MVar([v[0], v[1]]).shape == (2,)
    with pytest.raises(ValueError, match="MVar.fromlist expects a list of Vars, '1' is not valid input"):
        vp.MVar(np.array([1, 2]))
    with warnings.catch_warnings():
        warnings.simplefilter("error")
        arr = np.array(v, dtype=object)
        b = vp.MVar(arr)
        arr[0] = v[3]  # the MVar keeps its own copy
        assert b.tolist() == v


def test_indexing_and_shape_operations_share_variables(m):
    x = m.addMVar((4, 1))
    y = m.addMVar(3)
    flat = x.tolist()
    assert x.transpose().shape == (1, 4) and x.T.tolist() == [[r[0] for r in flat]]
    assert y[0].shape == () and y[0].item() is y.tolist()[0]
    assert y[1:].shape == (2,) and y[np.array([True, False, True])].tolist() == [y.tolist()[0], y.tolist()[2]]
    assert x.reshape(2, 2).shape == (2, 2) and x.reshape((1, 4)).tolist()[0] == [r[0] for r in flat]
    q = m.addMVar((3, 3))
    assert q.diagonal().tolist() == [q.tolist()[i][i] for i in range(3)]
    assert q.diagonal(1).shape == (2,)
    assert x._squeeze(1).shape == (4,)
    assert x.copy().tolist() == flat and len(y) == 3
    assert [r.shape for r in x] == [(1,)] * 4 and [r.item() for r in y] == y.tolist()
    with pytest.raises(ValueError):
        y.item()


# ---- attributes ------------------------------------------------------------------------------

def test_vectorised_attribute_reads_and_writes(m):
    x = m.addMVar((2, 3))
    m.update()
    x.UB = 4
    x.setAttr("LB", np.arange(6.0).reshape(2, 3) - 1)
    x.VarName = np.array([["a", "b", "c"], ["d", "e", "f"]])
    m.update()
    assert x.UB.tolist() == [[4.0] * 3] * 2
    assert x.getAttr("LB").tolist() == [[-1.0, 0.0, 1.0], [2.0, 3.0, 4.0]]
    assert x[1].VarName.tolist() == ["d", "e", "f"]
    assert "LB" in dir(x) and "getAttr" in dir(x)
    assert x.prefetchAttr("LB") is None


def test_indexed_data_picks_per_column_values(m):
    m.addMVar(2)
    x = m.addMVar((2, 2))
    m.update()
    assert x._indexed_data(np.arange(6.0) * 10).tolist() == [[20.0, 30.0], [40.0, 50.0]]
    assert x.T._indexed_data(list(range(6))).tolist() == [[2, 4], [3, 5]]


def test_attribute_refusals_are_attribute_errors(m):
    x = m.addMVar(2)
    m.update()
    with pytest.raises(AttributeError) as err:
        x.getAttr("Nonsense")
    assert str(err.value) == "'velmorpy.Var' object has no attribute 'Nonsense'"
    with pytest.raises(AttributeError, match="'velmorpy.Var' object has no attribute 'ObjVal'"):
        x.ObjVal
    with pytest.raises(AttributeError, match="Shape mismatch"):
        x.LB = np.zeros(3)
    with pytest.raises(AttributeError, match="Use scalar or ndarray to set attribute"):
        x.LB = [1, 2]
    with pytest.raises(AttributeError, match="cannot be set"):
        x.X = 1.0


# ---- operators that are refused -------------------------------------------------------------

def test_power_inequality_and_zero_dimensional_products(m):
    x = m.addMVar(3)
    with pytest.raises(VelmorError, match="MVar can only be raised to a power of two"):
        x ** 3
    with pytest.raises(VelmorError, match="MVar can only be raised to a power of two"):
        x ** np.array([3])
    with pytest.raises(VelmorError, match="Inequality constraints not supported"):
        x != 0
    with pytest.raises(ValueError, match="Input operand does not have enough dimensions"):
        x[0] @ np.ones(1)
    with pytest.raises(ValueError, match="Input operand does not have enough dimensions"):
        x @ np.float64(2.0)


def test_repr_shows_shape_and_pending_state(env):
    m = vp.Model(env=env)
    m.Params.UpdateMode = 0
    x = m.addMVar(2, name="x")
    assert repr(x).startswith("<MVar (2,) *awaiting update*\n") and repr(x).endswith(">\n")
    with pytest.raises(VelmorError, match="Var has not yet been added to the model") as err:
        x.LB
    assert err.value.errno == VLM.ERROR_NOT_IN_MODEL
    m.update()
    assert repr(x).startswith("<MVar (2,)\n") and "x[1]" in repr(x)
    m.remove(x[0])
    m.update()
    assert "(some removed)" in repr(x)
    assert x[1].LB.tolist() == 0.0
    with pytest.raises(VelmorError, match="Var was removed from the model"):
        x.UB = 1
    m.dispose()
