"""addVars over its index forms: the keys and their order, names, per-key values, and inputs
refused before anything is added. Everything is read back through the library after update().
"""
import gc
import weakref

import pytest

import velmorpy as vp
from velmorpy import VLM, VelmorError

INF = float("inf")


@pytest.fixture
def m(env):
    model = vp.Model("vars", env=env)
    yield model
    model.dispose()


def shown(m, td):
    """(key, position, name, LB, UB, Obj, VType) per entry of a tupledict, in its order."""
    m.update()
    return [(k, v.index, v.VarName, v.LB, v.UB, v.Obj, v.VType) for k, v in td.items()]


def counts(m):
    m.update()
    return m.NumVars, len(m._Model__vars)


# ---- keys, order and names -------------------------------------------------------------------

def test_count_keys_are_the_positions_and_name_the_variables(m):
    m.addVar()
    x = m.addVars(12, name="x")
    assert list(x.keys()) == list(range(12))
    assert all(type(k) is int for k in x.keys())
    m.update()
    assert [v.index for v in x.values()] == list(range(1, 13))
    assert x[11].VarName == "x[11]" and x[0].VarName == "x[0]"
    assert [v.VarName for v in m.getVars()[1:]] == [f"x[{i}]" for i in range(12)]
    assert len(m.addVars(0)) == 0 and len(m.addVars(-3)) == 0


def test_product_keys_splice_tuples_and_vary_the_last_index_fastest(m):
    pairs = vp.tuplelist([("p", 1), ("q", 2)])
    x = m.addVars(range(1, 3), ["a", "b"], pairs, name="x")
    expected = [(i, s, t, u) for i in (1, 2) for s in "ab" for t, u in pairs]
    assert list(x.keys()) == expected
    m.update()
    assert [v.VarName for v in x.values()] == [f"x[{i},{s},{t},{u}]" for i, s, t, u in expected]
    # An int n and range(n) give the same keys; a generator is read once.
    y = m.addVars(2, (c for c in "uv"))
    assert list(y.keys()) == [(0, "u"), (0, "v"), (1, "u"), (1, "v")]
    m.update()
    assert [v.index for v in m.getVars()] == list(range(12))
    assert m.getVars()[8].sameAs(y[0, "u"])
    # An empty factor empties the product and adds nothing.
    assert len(m.addVars(3, [])) == 0 and counts(m) == (12, 12)


def test_one_iterable_keeps_its_keys_as_they_are(m):
    x = m.addVars([("a", 1), ("b", (2, 3))], name="t")
    s = m.addVars([7, "s"], name="s")
    assert list(x.keys()) == [("a", 1), ("b", (2, 3))] and list(s.keys()) == [7, "s"]
    m.update()
    assert [v.VarName for v in x.values()] == ["t[a,1]", "t[b,(2, 3)]"]
    assert [v.VarName for v in s.values()] == ["s[7]", "s[s]"]
    # Keys equal to each other give one entry but still one variable each.
    y = m.addVars([1, 1.0, 2])
    assert list(y.keys()) == [1, 2] and counts(m) == (7, 7)


def test_names_from_lists_and_dicts(m):
    x = m.addVars(2, 2, name={(0, 0): "a", (0, 1): "b", (1, 0): "c", (1, 1): None})
    y = m.addVars(["k", "l"], name=["first", ""])
    assert [r[2] for r in shown(m, x)] == ["a", "b", "c", "C3"]
    assert [r[2] for r in shown(m, y)] == ["first", "C5"]


# ---- values per key --------------------------------------------------------------------------

def test_scalars_apply_to_every_variable(m):
    x = m.addVars(3, 2, lb=-1, ub=4.5, obj=2, vtype=VLM.INTEGER)
    assert {r[3:] for r in shown(m, x)} == {(-1.0, 4.5, 2.0, "I")}
    b = m.addVars(2, vtype="B", obj=1.0)
    assert [r[3:] for r in shown(m, b)] == [(0.0, 1.0, 1.0, "B")] * 2


def test_lists_arrays_and_dicts_follow_the_key_order(m):
    np = pytest.importorskip("numpy")
    keys = [(i, j) for i in range(2) for j in "xy"]
    x = m.addVars(2, ["x", "y"], lb={k: float(n) for n, k in enumerate(keys)}, ub=np.array([5.0, 6.0, 7.0, 8.0]),
                  obj=[1, 2, 3, 4], vtype={(0, "x"): "C", (0, "y"): "I", (1, "x"): "B", (1, "y"): "S"})
    assert shown(m, x) == [((0, "x"), 0, "C0", 0.0, 5.0, 1.0, "C"), ((0, "y"), 1, "C1", 1.0, 6.0, 2.0, "I"),
                           ((1, "x"), 2, "C2", 2.0, 7.0, 3.0, "B"), ((1, "y"), 3, "C3", 3.0, 8.0, 4.0, "S")]


# The optimum of max sum_k c_k x_k with x_k <= u_k is sum_k c_k u_k: here 1*1 + 2*2 + 3*3 = 14
# for the product keys (0,0) (0,1) (1,0) given costs and caps by dict.
def test_values_by_key_reach_the_solver(m):
    caps = {(0, 0): 1.0, (0, 1): 2.0, (1, 0): 3.0, (1, 1): 0.0}
    cost = {(0, 0): 1.0, (0, 1): 2.0, (1, 0): 3.0, (1, 1): 5.0}
    x = m.addVars(2, 2, ub=caps, obj=cost)
    m.ModelSense = VLM.MAXIMIZE
    m.optimize()
    assert m.Status == VLM.OPTIMAL and m.ObjVal == pytest.approx(14.0)
    assert {k: v.X for k, v in x.items()} == pytest.approx(caps)


# ---- refusals leave the model as it was ------------------------------------------------------

def test_refusals_add_nothing(m):
    m.addVars(2)
    with pytest.raises(TypeError, match="unhashable type: 'list'"):
        m.addVars([[1, 2], 3])
    with pytest.raises(TypeError, match="unhashable type: 'dict'"):
        m.addVars(2, [{}])
    with pytest.raises(KeyError):
        m.addVars(2, 2, obj={(0, 0): 1.0})
    with pytest.raises(VelmorError) as e:
        m.addVars(3, vtype="Q")
    assert (e.value.errno, e.value.message) == (
        VLM.ERROR_INVALID_ARGUMENT, "Invalid variable type 'Q' (expected 'C', 'B', 'I', 'S' or 'N')")
    with pytest.raises(VelmorError) as e:
        m.addVars(["a"], ["\u00e9"], name="x")
    assert e.value.message == "Cannot convert x[a,\u00e9] to ASCII characters"
    with pytest.raises(VelmorError) as e:
        m.addVars(2, name="\u00e9")
    assert e.value.message == "Cannot convert \u00e9[0] to ASCII characters"
    with pytest.raises(VelmorError) as e:
        m.addVars(["ok", "a\0b"], name="x")
    assert e.value.message == "Invalid text 'x[a\\x00b]': it holds a NUL character"
    for too_many in ((50000, 50000), (2**31,)):
        with pytest.raises(VelmorError) as e:
            m.addVars(*too_many)
        assert e.value.message == "Too many variables for one library call"
    assert counts(m) == (2, 2)


# ---- the collector ---------------------------------------------------------------------------

def test_cycles_through_keys_are_collected(m):
    class Key:
        pass

    # A key holding an object that refers back to the result forms a cycle the collector must
    # still see, though keys of plain values are made untracked.
    k = Key()
    x = m.addVars([k], 2)
    y = m.addVars(2, ["a", "b"])
    assert gc.is_tracked(next(iter(x))) and not gc.is_tracked(next(iter(y)))
    k.back = x
    ref = weakref.ref(k)
    del k, x
    gc.collect()
    assert ref() is None
