"""The attribute engine: typed reads and writes on models and element handles, and its
deliberately mixed error rules (AttributeError for single access, VelmorError for list reads
and element state)."""
import ctypes

import pytest

import velmorpy as vp
from velmorpy import VelmorError
from model.test_model import lib

INF = float("inf")


@pytest.fixture
def model(env):
    """x in [0, inf), b binary; c0: x + b <= 2; updated."""
    m = vp.Model("m", env=env)
    x = lib.add_var(m, "x")
    lib.add_var(m, "b", ub=1.0, vtype="B")
    m.update()
    lib.add_constr(m, "c0", [(1.0, x)], "<", 2.0)
    m.update()
    yield m
    m.dispose()


def test_unknown_names_and_wrong_kinds_raise_attribute_error(model):
    x = model.getVars()[0]
    c = model.getConstrs()[0]
    cases = [(lambda: model.NoSuchAttr, "'velmorpy.Model' object has no attribute 'NoSuchAttr'"),
             (lambda: x.Foo, "'velmorpy.Var' object has no attribute 'Foo'"),
             (lambda: x.RHS, "'velmorpy.Var' object has no attribute 'RHS'"),
             (lambda: c.getAttr("LB"), "'velmorpy.Constr' object has no attribute 'LB'"),
             (lambda: setattr(c, "UB", 1.0), "'velmorpy.Constr' object has no attribute 'UB'")]
    for access, text in cases:
        with pytest.raises(AttributeError) as info:
            access()
        assert str(info.value) == text
    assert not hasattr(x, "Foo")


def test_the_library_resolves_names_ignoring_case(model):
    x = model.getVars()[0]
    x.ub = 5.0
    model.update()
    assert x.UB == x.ub == x.getAttr("uB") == 5.0
    assert model.numvars == 2


def test_typed_reads(model):
    x, b = model.getVars()
    assert (model.NumVars, model.ModelName, model.ObjCon) == (2, "m", 0.0)
    assert type(model.NumVars) is int and type(model.ObjCon) is float
    assert (x.VType, b.VType) == ("C", "B")
    assert (x.LB, x.UB, b.UB) == (0.0, INF, 1.0)
    assert x.Start == vp.VLM.UNDEFINED  # the marker for "no start value" reads back unchanged
    assert model.getConstrs()[0].Sense == "<"


def test_infinity_is_stored_as_the_library_infinity(model):
    x = model.getVars()[0]
    x.LB = -INF
    x.UB = 7.0
    model.update()
    assert (x.LB, x.UB) == (-INF, 7.0)
    assert lib.dbl_element(model, "LB", 0) == -1e100
    x.UB = INF
    model.update()
    assert x.UB == INF and lib.dbl_element(model, "UB", 0) == 1e100


def test_write_checks(model):
    x = model.getVars()[0]
    cases = [(x, "X", 1.0, "Attribute 'X' cannot be set"),
             (model, "NumVars", 3, "Attribute 'NumVars' cannot be set"),
             (x, "BranchPriority", "high", "Attribute 'BranchPriority' takes integer value"),
             (x, "BranchPriority", 2.5, "Attribute 'BranchPriority' takes integer value"),
             (x, "LB", "0", "Attribute 'LB' takes double value"),
             (x, "VarName", 3, "Attribute 'VarName' takes string value"),
             (x, "VType", "IB", "Attribute 'VType' takes character value"),
             (model, "ModelSense", None, "Attribute 'ModelSense' takes integer value")]
    for obj, name, value, text in cases:
        with pytest.raises(AttributeError) as info:
            setattr(obj, name, value)
        assert str(info.value) == text
    x.BranchPriority = 3.0  # an integral float is an integer
    x.VType = "I"
    x.Obj = 2  # an int is a double
    model.update()
    assert (x.BranchPriority, x.VType, x.Obj) == (3, "I", 2.0)


def test_library_failures_of_single_access_are_attribute_errors(model):
    x = model.getVars()[0]
    with pytest.raises(AttributeError) as info:
        x.X
    assert str(info.value) == "Unable to retrieve attribute 'X'"
    assert not hasattr(model, "ObjVal")
    with pytest.raises(AttributeError) as info:
        x.LB = float("nan")
    lib.dll.VLMgetmerrormsg.restype = ctypes.c_char_p
    assert str(info.value) == lib.dll.VLMgetmerrormsg(lib.ptr(model)).decode() != ""


def test_element_state_errors(model):
    for cls, name in ((vp.Var, "LB"), (vp.Constr, "RHS"), (vp.QConstr, "QCRHS"), (vp.GenConstr, "GenConstrName")):
        typename = cls._typename()
        with pytest.raises(VelmorError) as info:
            getattr(cls(model, -1), name)
        assert (info.value.errno, str(info.value)) == (20001, f"{typename} has not yet been added to the model")
        with pytest.raises(VelmorError) as info:
            setattr(cls(model, -2), name, 1)
        assert (info.value.errno, str(info.value)) == (20001, f"{typename} was removed from the model")
    # A removal that waits for the update still reads the element.
    assert vp.Var(model, -4).VarName == "b"


def test_immediate_mode_writes_reach_pending_elements(model):
    w = lib.add_var(model, "w")
    assert w._colno == 2
    w.UB = 4.0
    # Its position is known, but until the update there is nothing to read there.
    with pytest.raises(VelmorError) as info:
        w.UB
    assert info.value.errno == vp.VLM.ERROR_NOT_IN_MODEL
    assert str(info.value) == "Var has not yet been added to the model"
    model.update()
    assert w.UB == 4.0


def test_prefetch(model):
    x = model.getVars()[0]
    assert model.prefetchAttr("LB") is None and x.prefetchAttr("UB") is None
    with pytest.raises(AttributeError, match="^'velmorpy.Var' object has no attribute 'RHS'$"):
        x.prefetchAttr("RHS")
    with pytest.raises(AttributeError, match="^'velmorpy.Model' object has no attribute 'Nope'$"):
        model.prefetchAttr("Nope")


def test_list_reads_of_many_elements(env):
    m = vp.Model(env=env)
    n = 100000
    lbs = (ctypes.c_double * n)(*[i * 0.5 for i in range(n)])
    assert lib.dll.VLMaddvars(lib.ptr(m), n, 0, None, None, None, None, lbs, None, None, None) == 0
    m.update()
    xs = m.getVars()
    assert len(xs) == n and xs[-1]._colno == n - 1
    values = m.getAttr("LB", xs[::-1])
    assert len(values) == n and values[0] == (n - 1) * 0.5 and values[-1] == 0.0
    assert m.getAttr("LB")[:3] == [0.0, 0.5, 1.0]
    assert m.getAttr("VarName", xs[:2]) == ["C0", "C1"]
    m.dispose()


def test_setattr_and_getattr_methods_match_attribute_syntax(model):
    x, b = model.getVars()
    x.setAttr("Obj", 4.0)
    model.setAttr("ModelName", "renamed")
    model.update()
    assert (x.getAttr("Obj"), model.getAttr("ModelName"), model.ModelName) == (4.0, "renamed", "renamed")
    with pytest.raises(TypeError):
        x.setAttr("Obj")


def test_text_the_library_cannot_hold_is_refused_and_foreign_bytes_are_replaced(model, env, tmp_path):
    x = model.getVars()[0]
    for bad, why in (("a\0b", "it holds a NUL character"),
                     ("x\udcff", "it holds characters that cannot be encoded as UTF-8")):
        with pytest.raises(VelmorError) as info:
            x.VarName = bad
        assert info.value.errno == vp.VLM.ERROR_INVALID_ARGUMENT
        assert str(info.value) == f"Invalid text {bad!r}: {why}"
        with pytest.raises(VelmorError):
            model.setAttr("VarName", [x], [bad])
    model.update()
    assert x.VarName == "x"
    # Names in a file written by another program need not be UTF-8: they read with U+FFFD.
    path = tmp_path / "latin1.lp"
    path.write_bytes(b"Minimize\n obj: x\xff + y\nSubject To\n c\xfe: x\xff + y >= 1\nEnd\n")
    m = vp.read(str(path), env=env)
    m.update()
    assert [v.VarName for v in m.getVars()] == ["x\ufffd", "y"]
    assert repr(m.getConstrs()[0]) == "<velmor.Constr c\ufffd>"
    m.dispose()
