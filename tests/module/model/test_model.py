"""Model lifecycle, the handle lists and the lazy update.

Elements are created through the library directly (the `lib` helpers below call libvelmor with
ctypes and append the handle exactly as the Model's adding methods do), so these tests do not
depend on addVar/addConstr.

Not tested here: printQuality with a solution (needs the solving path), the log callback of
models created from foreign environments.
"""
import ctypes
import gc
import sys
import weakref

import pytest

import velmorpy as vp
from velmorpy import VelmorError

INF = float("inf")


class _Lib:
    """ctypes access to the libvelmor that velmorpy loaded."""

    def __init__(self):
        with open("/proc/self/maps") as maps:
            path = next(line.split()[-1] for line in maps if "libvelmor" in line)
        self.dll = ctypes.CDLL(path)
        getptr = ctypes.pythonapi.PyCapsule_GetPointer
        getptr.restype = ctypes.c_void_p
        getptr.argtypes = [ctypes.py_object, ctypes.c_char_p]
        self._getptr = getptr

    def ptr(self, m):
        return ctypes.c_void_p(self._getptr(m._cmodel, b"velmorpy.model"))

    @staticmethod
    def _ints(values):
        return (ctypes.c_int * max(len(values), 1))(*values)

    @staticmethod
    def _dbls(values):
        return (ctypes.c_double * max(len(values), 1))(*values)

    def _append(self, m, cls, listname):
        lst = getattr(m, listname)
        index = len(lst) if m._Model__getupdatemode() == 1 else -1
        h = cls(m, index)
        lst.append(h)
        return h

    def add_var(self, m, name, lb=0.0, ub=1e100, obj=0.0, vtype="C"):
        d = ctypes.c_double
        rc = self.dll.VLMaddvar(self.ptr(m), 0, None, None, d(obj), d(lb), d(ub),
                                ctypes.c_char(vtype.encode()), name.encode())
        assert rc == 0
        return self._append(m, vp.Var, "_Model__vars")

    def add_constr(self, m, name, terms, sense="<", rhs=0.0):
        ind = self._ints([v.__cindex__() for _, v in terms])
        val = self._dbls([c for c, _ in terms])
        rc = self.dll.VLMaddconstr(self.ptr(m), len(terms), ind, val, ctypes.c_char(sense.encode()),
                                   ctypes.c_double(rhs), name.encode())
        assert rc == 0
        return self._append(m, vp.Constr, "_Model__constrs")

    def add_range(self, m, name, terms, lower, upper):
        ind = self._ints([v.__cindex__() for _, v in terms])
        val = self._dbls([c for c, _ in terms])
        rc = self.dll.VLMaddrangeconstr(self.ptr(m), len(terms), ind, val, ctypes.c_double(lower),
                                        ctypes.c_double(upper), name.encode())
        assert rc == 0
        return self._append(m, vp.Constr, "_Model__constrs")

    def add_qconstr(self, m, name, quad, sense="<", rhs=1.0):
        rows = self._ints([a.__cindex__() for _, a, _ in quad])
        cols = self._ints([b.__cindex__() for _, _, b in quad])
        vals = self._dbls([c for c, _, _ in quad])
        rc = self.dll.VLMaddqconstr(self.ptr(m), 0, None, None, len(quad), rows, cols, vals,
                                    ctypes.c_char(sense.encode()), ctypes.c_double(rhs), name.encode())
        assert rc == 0
        return self._append(m, vp.QConstr, "_Model__qconstrs")

    def add_sos(self, m, members, weights, sostype=1):
        rc = self.dll.VLMaddsos(self.ptr(m), 1, len(members), self._ints([sostype]), self._ints([0]),
                                self._ints([v.__cindex__() for v in members]), self._dbls(weights))
        assert rc == 0
        return self._append(m, vp.SOS, "_Model__sos")

    def add_abs(self, m, name, res, arg):
        rc = self.dll.VLMaddgenconstrAbs(self.ptr(m), name.encode(), res.__cindex__(), arg.__cindex__())
        assert rc == 0
        return self._append(m, vp.GenConstr, "_Model__genconstrs")

    def dbl_element(self, m, attr, index):
        value = ctypes.c_double()
        rc = self.dll.VLMgetdblattrelement(self.ptr(m), attr.encode(), index, ctypes.byref(value))
        assert rc == 0
        return value.value


lib = _Lib()


@pytest.fixture
def model(env):
    m = vp.Model("m", env=env)
    yield m
    m.dispose()


@pytest.fixture
def small(model):
    """x, y, z in [0, 10] (z integer), c0: x + 2 y <= 4, c1: x - z >= -1, updated."""
    x = lib.add_var(model, "x", ub=10.0, obj=1.0)
    y = lib.add_var(model, "y", ub=10.0, obj=2.0)
    z = lib.add_var(model, "z", ub=10.0, vtype="I")
    model.update()
    lib.add_constr(model, "c0", [(1.0, x), (2.0, y)], "<", 4.0)
    lib.add_constr(model, "c1", [(1.0, x), (-1.0, z)], ">", -1.0)
    model.update()
    return model


def names(handles, attr="VarName"):
    return [h.getAttr(attr) for h in handles]


# ---- construction and state ------------------------------------------------------------------


def test_new_model_fields_and_repr(env):
    m = vp.Model("diet", env=env)
    assert repr(m) == ("<velmor.Model Continuous instance diet: 0 constrs, 0 vars, "
                       "Parameter changes: OutputFlag=0>")
    assert m._uenv is env and env._modcnt == 1
    assert isinstance(m._env, vp.Env) and m._env._user is False and m._env is not env
    assert m._callback is None and m._Model__updatemode == -1 and m._Model__newranges == 0
    assert m._modcnt == 0 and m.Params is m.params and isinstance(m.Params, vp.ParamClass)
    assert [getattr(m, "_Model__" + k) for k in ("vars", "constrs", "sos", "qconstrs", "genconstrs")] \
        == [[], [], [], [], []]
    assert (m._Model__livevars, m._Model__liveconstrs, m._Model__delvars) == (0, 0, False)
    m.dispose()
    assert env._modcnt == 0


def test_unnamed_model_repr_and_disposed_repr(env):
    m = vp.Model(env=env)
    m.setParam("OutputFlag", 1)
    assert repr(m) == "<velmor.Model Continuous instance Unnamed: 0 constrs, 0 vars>"
    m.dispose()
    assert repr(m) == "<velmor.Model empty model>"


def test_models_without_env_share_the_default_env_until_it_is_disposed():
    m1, m2 = vp.Model(), vp.Model()
    assert m1._uenv is m2._uenv is vp.velmor._defaultenv
    vp.disposeDefaultEnv()
    m3 = vp.Model()
    assert m3._uenv is not m1._uenv
    for m in (m1, m2, m3):
        m.dispose()


def test_model_rejects_bad_env_and_handle_arguments(env):
    with pytest.raises(TypeError, match="env must be an Env, not int"):
        vp.Model("m", env=3)
    closed = vp.Env(params={"OutputFlag": 0})
    closed.dispose()
    with pytest.raises(VelmorError) as info:
        vp.Model(env=closed)
    assert (info.value.errno, str(info.value)) == (-1, "Invalid Environment")
    m = vp.Model(env=env)
    with pytest.raises(ValueError, match="cmodel already belongs to a Model"):
        vp.Model(cmodel=m._cmodel, env=env)
    with pytest.raises(TypeError, match="cmodel must be a library model handle"):
        vp.Model(cmodel=env._cenv, env=env)
    m.dispose()
    assert env._modcnt == 0


def test_model_parameters_belong_to_the_model_copy(model, env):
    model.setParam("TimeLimit", 5)
    assert model.getParamInfo("TimeLimit")[2] == 5.0
    assert model.Params.TimeLimit == 5.0
    assert env._getParamInfo("TimeLimit")[2] == INF
    model.resetParams()
    assert model.getParamInfo("TimeLimit")[2] == INF
    assert model.getParamInfo("OutputFlag")[2] == 1


def test_attribute_and_private_field_assignment(model):
    model._note = "kept"
    assert model.__dict__["_note"] == "kept" and "_note" in dir(model)
    assert "NumVars" in dir(model) and "LB" not in dir(model)
    model.ModelSense = -1
    assert model.ModelSense == 1  # writes wait for the update
    model.update()
    assert model.ModelSense == -1
    with pytest.raises(AttributeError) as info:
        model.NoSuchAttr
    assert str(info.value) == "'velmorpy.Model' object has no attribute 'NoSuchAttr'"


# ---- lazy update -----------------------------------------------------------------------------


def test_immediate_mode_additions_appear_after_update(model):
    assert model._Model__getupdatemode() == 1 and model._Model__updatemode == 1
    x = lib.add_var(model, "x")
    assert x._colno == 0 and repr(x) == "<velmor.Var *Awaiting Model Update*>"
    assert model.getVars() == [] and model.NumVars == 0
    model.update()
    assert model.getVars() == [x] and model.NumVars == 1
    assert repr(x) == "<velmor.Var x>" and model._Model__updatemode == -1


def test_lazy_mode_handles_get_their_index_at_update(model):
    model.setParam("UpdateMode", 0)
    x = lib.add_var(model, "x")
    y = lib.add_var(model, "y")
    assert (x._colno, y._colno) == (-1, -1)
    assert model.getVars() == []
    model.update()
    assert (x._colno, y._colno) == (0, 1)
    assert model.getVars() == [x, y] and model._Model__livevars == 2


def test_removal_is_pending_until_update_and_renumbers_survivors(small):
    x, y, z = small.getVars()
    small.remove(y)
    assert y._colno == -4 and small._Model__delvars is True
    assert repr(y) == "<velmor.Var y (Removed)>"
    assert small.getVars() == [x, y, z] and small.NumVars == 3
    small.update()
    assert (x._colno, y._colno, z._colno) == (0, -2, 1)
    assert small.getVars() == [x, z] and small.NumVars == 2
    assert small._Model__delvars is False
    assert repr(y) == "<velmor.Var *Removed* (Removed)>"
    small.remove(y)  # already removed: ignored
    assert y._colno == -2


def test_removals_and_additions_in_one_update(small):
    x, y, z = small.getVars()
    c0, c1 = small.getConstrs()
    small.remove([x, c0])
    w = lib.add_var(small, "w")
    assert w._colno == 3
    small.update()
    assert small.getVars() == [y, z, w] and names(small.getVars()) == ["y", "z", "w"]
    assert small.getConstrs() == [c1] and c1._rowno == 0 and c0._rowno == -2
    assert small.NumConstrs == 1


def test_remove_takes_lists_tuples_and_dict_values(small):
    x, y, z = small.getVars()
    small.remove((x,))
    small.remove({"a": y, "b": small.getConstrs()[1]})
    assert (x._colno, y._colno, z._colno) == (-3, -4, 2)
    small.update()
    assert names(small.getVars()) == ["z"] and names(small.getConstrs(), "ConstrName") == ["c0"]


def test_remove_refuses_other_objects_and_other_models(small, env):
    with pytest.raises(VelmorError) as info:
        small.remove("x")
    assert info.value.errno == -1
    assert str(info.value) == "Tried to remove an object that is not a Var, Constr, SOS, QConstr or GenConstr"
    other = vp.Model(env=env)
    v = lib.add_var(other, "v")
    with pytest.raises(VelmorError) as info:
        small.remove([v])
    assert str(info.value) == "Tried to remove a Var that belongs to another model" and v._colno == 0
    assert small._owns(small.getVars()[0]) and not small._owns(v) and not small._owns(3)
    other.dispose()


def test_sos_qconstr_and_genconstr_lists(small):
    x, y, z = small.getVars()
    q = lib.add_qconstr(small, "q0", [(1.0, x, x), (1.0, y, y)])
    s = lib.add_sos(small, [x, y], [1.0, 2.0])
    g = lib.add_abs(small, "g0", z, x)
    assert small.getQConstrs() == [q] and small.getSOSs() == [s] and small.getGenConstrs() == [g]
    small.update()
    assert (small.NumQConstrs, small.NumSOS, small.NumGenConstrs) == (1, 1, 1)
    small.remove([q, s, g])
    assert small.getQConstrs() == [] and small.getSOSs() == [] and small.getGenConstrs() == []
    small.update()
    assert (q._qconstrno, s._sosno, g._genconstrno) == (-2, -2, -2)
    assert (small.NumQConstrs, small.NumSOS, small.NumGenConstrs) == (0, 0, 0)


def test_range_slack_variables_get_handles_at_update(small):
    x, y, z = small.getVars()
    lib.add_range(small, "r0", [(1.0, x), (1.0, y)], 1.0, 3.0)
    small._Model__newranges = 1  # as Model.addRange counts it in immediate mode
    small.update()
    assert small._Model__newranges == 0
    assert len(small.getVars()) == small.NumVars == 4
    assert small.getVars()[3].VarName == "Rgr0" and small.getVars()[3]._colno == 3


def test_range_slacks_come_after_the_variables_added_in_the_same_batch(small):
    x = small.getVars()[0]
    lib.add_range(small, "r0", [(1.0, x)], 1.0, 3.0)
    small._Model__newranges = 1
    w = lib.add_var(small, "w")
    assert w._colno == 3
    small.update()
    assert names(small.getVars()) == ["x", "y", "z", "w", "Rgr0"] and w.VarName == "w"


def test_setup_of_an_adopted_model_builds_handles_and_restores_gc_thresholds(small):
    thresholds = gc.get_threshold()
    copy = small.copy()
    assert copy._Model__vars is None
    assert names(copy.getVars()) == ["x", "y", "z"] and copy._Model__vars[0]._cmodel is copy
    assert names(copy.getConstrs(), "ConstrName") == ["c0", "c1"]
    assert gc.get_threshold() == thresholds
    copy.dispose()


def test_copy_takes_the_updated_state_and_the_user_env(small, env):
    lib.add_var(small, "pending")
    copy = small.copy()
    assert copy._uenv is env and copy.NumVars == 3 and env._modcnt == 2
    copy.dispose()


def test_lookup_by_name(small):
    x, y, z = small.getVars()
    assert small.getVarByName("y") is y and small.getVarByName("nope") is None
    assert small.getConstrByName("c1") is small.getConstrs()[1]
    assert small.getConstrByName("nope") is None


# ---- disposal --------------------------------------------------------------------------------


def test_dispose_invalidates_handles_and_is_idempotent(small, env):
    x = small.getVars()[0]
    menv = small._env
    small.dispose()
    assert small._cmodel is None and small._Model__vars is None and small._uenv is None
    assert x._colno == -1 and menv._cenv is None and env._modcnt == 0
    small.dispose()
    small.close()
    with pytest.raises(VelmorError) as info:
        small.update()
    assert (info.value.errno, str(info.value)) == (10002, "Model has been disposed")


def test_context_manager_disposes_also_on_exceptions(env):
    with vp.Model(env=env) as m:
        assert m._cmodel is not None
    assert m._cmodel is None
    with pytest.raises(ZeroDivisionError):
        with vp.Model(env=env) as m2:
            1 / 0
    assert m2._cmodel is None and env._modcnt == 0


def test_unreferenced_model_with_handles_is_collected(env):
    m = vp.Model(env=env)
    lib.add_var(m, "x")
    m.update()
    m.getVars()[0]._self_ref = m.getVars()[0]
    ref = weakref.ref(m)
    del m
    gc.collect()
    assert ref() is None and env._modcnt == 0


# ---- attributes through the Model ------------------------------------------------------------


def test_getattr_for_all_elements_lists_and_dicts(small):
    x, y, z = small.getVars()
    assert small.getAttr("UB") == [10.0, 10.0, 10.0]
    assert small.getAttr("VType") == ["C", "C", "I"]
    assert small.getAttr("RHS") == [4.0, -1.0]
    assert small.getAttr("Obj", [z, x]) == [0.0, 1.0]
    assert small.getAttr("VarName", {"a": y, ("b", 1): z}) == {"a": "y", ("b", 1): "z"}
    assert small.getAttr("NumVars") == 3 and small.getAttr("LB", []) == []


def test_getattr_list_errors(small, env):
    x, y, z = small.getVars()
    with pytest.raises(VelmorError) as info:
        small.getAttr("X", [x])
    assert info.value.errno == 10005
    with pytest.raises(AttributeError) as info:
        small.getAttr("RHS", [x])
    assert str(info.value) == "'velmorpy.Var' object has no attribute 'RHS'"
    with pytest.raises(AttributeError, match="'velmorpy.Model' object has no attribute 'Nope'"):
        small.getAttr("Nope", [x])
    pending = lib.add_var(small, "p")
    small.setParam("UpdateMode", 0)
    assert lib.add_var(small, "q")._colno == 4  # the mode is cached until the next update
    small._Model__updatemode = -1
    lazy = lib.add_var(small, "r")
    assert pending._colno == 3 and lazy._colno == -1
    with pytest.raises(VelmorError) as info:
        small.getAttr("LB", [x, lazy])
    assert (info.value.errno, str(info.value)) == (20001, "Var has not yet been added to the model")
    other = vp.Model(env=env)
    v = lib.add_var(other, "v")
    with pytest.raises(VelmorError) as info:
        small.getAttr("LB", [v])
    assert (info.value.errno, str(info.value)) == (20001, "Variable not in model")
    other.dispose()


def test_setattr_forms(small):
    x, y, z = small.getVars()
    small.setAttr("UB", [x, y], [1.0, INF])
    small.setAttr("LB", {"x": x, "z": z}, {"z": -INF, "x": 0.5})
    small.setAttr("Obj", [x, y, z], 7.0)
    small.setAttr("ObjCon", 2.5)
    small.update()
    assert small.getAttr("UB") == [1.0, INF, 10.0]
    assert small.getAttr("LB") == [0.5, 0.0, -INF]
    assert small.getAttr("Obj") == [7.0, 7.0, 7.0] and small.ObjCon == 2.5
    assert lib.dbl_element(small, "UB", 1) == 1e100


def test_setattr_errors(small):
    x, y, z = small.getVars()
    with pytest.raises(VelmorError) as info:
        small.setAttr("UB", [x, y], [1.0])
    assert info.value.errno == 10003
    with pytest.raises(AttributeError, match="^Attribute 'X' cannot be set$"):
        small.setAttr("X", [x], [1.0])
    with pytest.raises(AttributeError, match="^Attribute 'UB' takes double value$"):
        small.setAttr("UB", [x], ["a"])
    with pytest.raises(TypeError, match=r"^ord\(\) expected a character, but string of length 2 found$"):
        small.setAttr("VType", [x], ["BI"])
    with pytest.raises(TypeError, match=r"^ord\(\) expected string of length 1, but int found$"):
        small.setAttr("VType", [x], 3)
    small.setAttr("VType", [x, y], ["B", b"I"])
    small.update()
    assert small.getAttr("VType") == ["B", "I", "I"]


# ---- files and messages ----------------------------------------------------------------------


@pytest.fixture
def loud(tmp_path):
    e = vp.Env(logfilename=str(tmp_path / "m.log"))
    m = vp.Model("loud", env=e)
    yield m
    m.dispose()
    e.dispose()


def test_write_applies_pending_changes_and_read_brings_the_model_back(small, tmp_path):
    lib.add_var(small, "w", ub=3.0)
    path = tmp_path / "m.lp"
    small.write(str(path))
    assert small.NumVars == 4
    again = vp.read(str(path), env=small._uenv)
    assert names(again.getVars()) == ["x", "y", "z", "w"]
    assert again.getAttr("UB") == [10.0, 10.0, 10.0, 3.0]
    assert names(again.getConstrs(), "ConstrName") == ["c0", "c1"]
    assert vp.read(str(tmp_path / "m.l?"), env=small._uenv).NumVars == 4
    again.dispose()
    default = vp.read(str(path))
    assert default._uenv is vp.velmor._defaultenv and default.NumConstrs == 2
    default.dispose()


def test_read_failures(model, env, tmp_path):
    pattern = str(tmp_path / "no*such.prm")
    with pytest.raises(VelmorError) as info:
        model.read(pattern)
    assert str(info.value) == f"No file matching '{pattern}' found"
    missing = str(tmp_path / "missing.lp")
    with pytest.raises(VelmorError) as info:
        vp.read(missing, env=env)
    assert info.value.errno == 10012 and missing in str(info.value)
    lib.dll.VLMgeterrormsg.restype = ctypes.c_char_p
    envptr = ctypes.c_void_p(lib._getptr(env._cenv, b"velmorpy.env"))
    assert str(info.value) == lib.dll.VLMgeterrormsg(envptr).decode()


def test_read_parameters_writes_a_log_line(loud, tmp_path, capsys):
    prm = tmp_path / "p.prm"
    prm.write_text("TimeLimit 7\n")
    capsys.readouterr()
    loud.read(str(prm))
    assert loud.Params.TimeLimit == 7.0
    assert capsys.readouterr().out == f"Read parameters from file {prm}\n"


def test_messages_reset_and_split_lines(loud, capsys):
    capsys.readouterr()
    loud.message("hello")
    loud.reset()
    loud.reset(1)
    loud._splitlongmessage("aaa bbb ccc dddd", length=8)
    assert capsys.readouterr().out == (
        "hello\nDiscarded solution information\n"
        "Discarded solution information including additional information\n"
        "aaa bbb\nccc dddd\n")


def test_display_and_printstats(loud, capsys):
    x = lib.add_var(loud, "x", ub=4.0, obj=1.0)
    y = lib.add_var(loud, "y", lb=-1e100, obj=-2.5, vtype="I")
    w = lib.add_var(loud, "w", lb=-1e100, ub=2.0)
    b = lib.add_var(loud, "b", vtype="B", ub=1.0)
    f = lib.add_var(loud, "f", lb=3.0, ub=3.0)
    loud.update()
    lib.add_constr(loud, "c0", [(1.0, x), (2.0, y)], "<", 4.0)
    lib.add_constr(loud, "c1", [(1.0, x), (-1.0, b)], "=", 0.0)
    loud.ModelSense = -1
    loud.update()
    capsys.readouterr()
    loud.display()
    assert capsys.readouterr().out == (
        "Maximize\nx + -2.5 y\nSubject To\n  c0: x + 2.0 y <= 4\n  c1: x + -1.0 b = 0\n"
        "Bounds\n  0 <= x <= 4\n  y free\n  -inf <= w <= 2\n  0 <= b <= 1\n  f = 3\n"
        "Binaries\n  b\nGeneral Integers\n  y\n")
    loud.printStats()
    assert capsys.readouterr().out == (
        "Statistics for model loud:\n"
        "  Linear constraint matrix    : 2 Constrs, 5 Vars, 4 NZs\n"
        "  Variable types              : 3 Continuous, 2 Integer (1 Binary)\n"
        "  Matrix coefficient range    : [ 1, 2 ]\n"
        "  Objective coefficient range : [ 1, 2.5 ]\n"
        "  Variable bound range        : [ 1, 4 ]\n"
        "  RHS coefficient range       : [ 4, 4 ]\n")
    assert loud._getConstrName(1) == "c1" and loud._getConstrName(2) == "GC0"


def test_printquality_without_a_solution_prints_the_heading(loud, capsys):
    capsys.readouterr()
    loud.printQuality()
    assert capsys.readouterr().out == "Solution quality statistics for model loud :\n"


def test_printattr_tables(small, capsys):
    small.printAttr(["UB", "Obj"], "[xy]")
    assert capsys.readouterr().out == (
        "\nVariable           UB          Obj\n"
        "----------------------------------\n"
        "x                  10            1\n"
        "y                  10            2\n")
    small.printAttr("RHS")
    assert capsys.readouterr().out == (
        "\nConstraint          RHS\n"
        "-----------------------\n"
        "c0                    4\n"
        "c1                   -1\n")
    with pytest.raises(VelmorError):
        small.printAttr("Nope")


def test_models_lists_models_bound_in_main(model, capsys):
    main = sys.modules["__main__"]
    main.velmor_test_model = model
    try:
        vp.models()
        assert capsys.readouterr().out == f"Currently loaded models:\nvelmor_test_model : {model!r}\n"
        assert vp.velmor._getmodels() == [("velmor_test_model", model)]
    finally:
        del main.velmor_test_model


def test_remove_is_all_or_nothing_and_print_attr_names_unknown_attributes(env):
    m = vp.Model(env=env)
    x = lib.add_var(m, "x")
    lib.add_var(m, "y")
    m.update()
    for bad in ([x, "y"], (x, 3), {"a": x, "b": None}):
        with pytest.raises(VelmorError, match="Tried to remove an object that is not a Var"):
            m.remove(bad)
        m.update()
        assert [v.VarName for v in m.getVars()] == ["x", "y"]
    with pytest.raises(VelmorError) as info:
        m.printAttr("Nope")
    assert info.value.errno == vp.VLM.ERROR_UNKNOWN_ATTRIBUTE
    assert str(info.value) == "Unknown attribute 'Nope'"
