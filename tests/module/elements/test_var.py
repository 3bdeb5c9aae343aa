"""Element handles: Var, Constr, QConstr, SOS and GenConstr.

Var's arithmetic and comparisons belong with LinExpr and are tested there.
"""
import gc
import weakref

import pytest

import velmorpy as vp
from velmorpy import VelmorError
from conftest import needs_rss, rss_bytes
from model.test_model import lib

HANDLES = [(vp.Var, "_colno", "Var", 1), (vp.Constr, "_rowno", "Constr", 2), (vp.SOS, "_sosno", "SOS", 3),
           (vp.QConstr, "_qconstrno", "QConstr", 4), (vp.GenConstr, "_genconstrno", "GenConstr", 5)]


@pytest.fixture
def model(env):
    m = vp.Model("m", env=env)
    yield m
    m.dispose()


@pytest.fixture
def full(model):
    """x, y; c0: x + y <= 1; q0: x^2 <= 1; one SOS over x, y; g0: y = |x|; all updated."""
    x = lib.add_var(model, "x")
    y = lib.add_var(model, "y")
    model.update()
    lib.add_constr(model, "c0", [(1.0, x), (1.0, y)], "<", 1.0)
    lib.add_qconstr(model, "q0", [(1.0, x, x)])
    lib.add_sos(model, [x, y], [1.0, 2.0])
    lib.add_abs(model, "g0", y, x)
    model.update()
    return model


@pytest.mark.parametrize("cls,field,name,kind", HANDLES)
def test_construction_fields_and_class_functions(model, cls, field, name, kind):
    h = cls(model, 7)
    assert h._cmodel is model and getattr(h, field) == 7 and h.index == 7
    assert cls._typename() == h._typename() == name
    assert cls._typeenum() == h._typeenum() == kind
    assert h.__dict__ == {}
    with pytest.raises(TypeError, match=rf"^{name}\(\) takes exactly 2 arguments \(1 given\)$"):
        cls(model)
    with pytest.raises(TypeError, match=rf"^{name}\(\) argument 1 must be a Model, not str$"):
        cls("m", 0)


@pytest.mark.parametrize("stored,position", [(5, 5), (0, 0), (-1, -2), (-2, -1), (-3, 0), (-7, 4)])
def test_cindex_decodes_the_stored_index(model, stored, position):
    v = vp.Var(model, stored)
    assert v.__cindex__() == position and v.index == position and v._colno == stored


def test_sameas_compares_model_index_and_class(model, env):
    v = vp.Var(model, 2)
    assert v.sameAs(vp.Var(model, 2))
    assert not v.sameAs(vp.Var(model, 3))
    assert not v.sameAs(vp.Constr(model, 2))
    assert not v.sameAs(2)
    other = vp.Model(env=env)
    assert not v.sameAs(vp.Var(other, 2))
    other.dispose()


def test_private_names_stay_on_the_object_and_dir_lists_kind_attributes(full):
    x = full.getVars()[0]
    x._tag = {"group": 1}
    x._colno = 0
    assert x.__dict__ == {"_tag": {"group": 1}}
    assert x._tag == {"group": 1}
    with pytest.raises(AttributeError):
        x._missing
    names = dir(x)
    assert "_tag" in names and "LB" in names and "VarName" in names
    assert "RHS" not in names and "NumVars" not in names
    c = full.getConstrs()[0]
    assert "RHS" in dir(c) and "LB" not in dir(c)
    with pytest.raises(AttributeError, match="^'velmorpy.Var' object has no attribute '__array__'$"):
        x.__array__


def test_attribute_forwarding_of_every_handle(full):
    x, y = full.getVars()
    c, q, s, g = full.getConstrs()[0], full.getQConstrs()[0], full.getSOSs()[0], full.getGenConstrs()[0]
    assert (x.VarName, c.ConstrName, q.QCName, g.GenConstrName) == ("x", "c0", "q0", "g0")
    c.RHS = 3.0
    q.setAttr("QCRHS", 2.0)
    s.IISSOSForce = 1
    full.update()
    assert (c.getAttr("RHS"), q.QCRHS, s.IISSOSForce) == (3.0, 2.0, 1)
    assert x.__numcols__() == 2 and c.__numrows__() == 1


def test_var_repr_through_its_states(model):
    model.setParam("UpdateMode", 0)
    x = lib.add_var(model, "x")
    assert repr(x) == "<velmor.Var *Awaiting Model Update*>"
    assert x._safename() == ("*Awaiting Model Update*", True, False)
    model.update()
    assert repr(x) == "<velmor.Var x>" and x._safename() == ("x", False, False)
    model.remove(x)
    assert repr(x) == "<velmor.Var x (Removed)>" and x._safename() == ("x", True, True)
    model.update()
    assert repr(x) == "<velmor.Var *Removed* (Removed)>" and x._safename() == ("*Removed*", False, True)
    assert repr(vp.Var(model, 4)) == "<velmor.Var *Awaiting Model Update*>"


def test_var_repr_shows_the_value_of_a_solution(model):
    # minimise -x - 2y with x <= 4, y <= 3, x + y <= 5: y = 3 at its bound, then x = 2 on the row
    x = lib.add_var(model, "x", ub=4.0, obj=-1.0)
    y = lib.add_var(model, "y", ub=3.0, obj=-2.0)
    model.update()
    lib.add_constr(model, "c0", [(1.0, x), (1.0, y)], "<", 5.0)
    model.update()
    assert lib.dll.VLMoptimize(lib.ptr(model)) == 0 and model.SolCount == 1
    assert repr(y) == "<velmor.Var y (value 3.0)>" and model.getAttr("X") == [2.0, 3.0]


def test_constraint_handle_reprs(full):
    c, q, s, g = full.getConstrs()[0], full.getQConstrs()[0], full.getSOSs()[0], full.getGenConstrs()[0]
    assert [repr(h) for h in (c, q, s, g)] == [
        "<velmor.Constr c0>", "<velmor.QConstr q0>", "<velmor.SOS 0>", "<velmor.GenConstr 0>"]
    full.remove([c, q, s, g])
    assert [repr(h) for h in (c, q, s, g)] == [
        "<velmor.Constr c0 (Removed)>", "<velmor.QConstr q0 (Deleted)>", "<velmor.SOS 0 (Removed)>",
        "<velmor.GenConstr 0 (Removed)>"]
    full.update()
    assert [repr(h) for h in (c, q, s, g)] == [
        "<velmor.Constr *Removed*>", "<velmor.QConstr Deleted>", "<velmor.SOS *Removed*>",
        "<velmor.GenConstr *Removed*>"]
    assert [repr(cls(full, -1)) for cls in (vp.Constr, vp.QConstr, vp.SOS, vp.GenConstr)] == [
        "<velmor.Constr *Awaiting Model Update*>", "<velmor.QConstr Not Yet Added>",
        "<velmor.SOS *Awaiting Model Update*>", "<velmor.GenConstr *Awaiting Model Update*>"]
    assert repr(vp.Constr(full, 5)) == "<velmor.Constr *Removed*>"
    assert repr(vp.QConstr(full, 5)) == "<velmor.QConstr Not Yet Added>"


def test_var_hash(model):
    a, b = vp.Var(model, 3), vp.Var(model, 3)
    assert hash(a) == hash(b) and hash(a) != hash(vp.Var(model, 4))
    assert hash(vp.Var(model, -6)) == hash(a)  # a pending removal keeps the position's hash
    assert {a: "x"}[a] == "x"
    for index, text in ((-1, "Variable has not yet been added to the model"),
                        (-2, "Variable was removed from the model")):
        with pytest.raises(VelmorError) as info:
            hash(vp.Var(model, index))
        assert (info.value.errno, str(info.value)) == (0, text)


def test_constraint_handles_hash_and_compare_by_identity(model):
    c, d = vp.Constr(model, 0), vp.Constr(model, 0)
    assert c == c and c != d and len({c, d}) == 2


def test_handles_of_a_disposed_model_report_pending(full):
    x = full.getVars()[0]
    full.dispose()
    assert repr(x) == "<velmor.Var *Awaiting Model Update*>"
    with pytest.raises(VelmorError) as info:
        x.LB
    assert str(info.value) == "Var has not yet been added to the model"
    stray = vp.Var(full, 0)
    with pytest.raises(AttributeError, match="^Model has been disposed$"):
        stray.LB


def test_handle_cycles_are_collected(env):
    m = vp.Model(env=env)
    v = vp.Var(m, 0)
    v._self = v
    v._model = m
    ref = weakref.ref(m)
    del m, v
    gc.collect()
    assert ref() is None and env._modcnt == 0


def test_handles_outlive_their_model_object(env):
    def solve():
        m = vp.Model(env=env)
        x = m.addVars(3, ub=[1.0, 2.0, 3.0], obj=-1.0, name="x")
        m.optimize()
        return x, weakref.ref(m)

    x, ref = solve()
    gc.collect()
    # The Model object is gone, the handles still read the solved library model.
    assert ref() is None and env._modcnt == 0
    assert [v.X for v in x.values()] == [1.0, 2.0, 3.0]
    assert x[2].VarName == "x[2]" and x[0]._cmodel is None
    assert x[0].sameAs(x[0]) and not x[0].sameAs(x[1])
    # A handle is tracked by the collector only once it has fields of its own.
    assert not gc.is_tracked(x[1])
    x[1]._tag = [x[1]]
    assert gc.is_tracked(x[1])
    keep = x[0]
    del x
    gc.collect()
    assert keep.X == 1.0


@needs_rss
def test_library_model_goes_with_the_last_surviving_handle(env):
    def churn(n):
        for _ in range(n):
            m = vp.Model(env=env)
            x = m.addVars(20000, obj=1.0)
            m.update()
            keep = x[7]
            del m, x
            assert keep.Obj == 1.0
        gc.collect()

    churn(10)
    before = rss_bytes()
    churn(60)
    grown = rss_bytes() - before
    # Each library model holds about half a megabyte: 60 kept alive would show 30 MB.
    assert grown < 8 * 1024 * 1024, grown


def test_subclassed_handles_keep_their_kind(model):
    class Tagged(vp.Var):
        pass

    t = Tagged(model, 0)
    assert t._typename() == "Var" and t._typeenum() == 1 and t.sameAs(vp.Var(model, 0))
    with pytest.raises(AttributeError, match="^'velmorpy.Var' object has no attribute 'extra'$"):
        t.extra = 1  # names without "_" always go to the library
