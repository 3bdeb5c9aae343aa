"""VLM and its constant groups (VLM.attr, VLM.error, VLM.param, VLM.status, VLM.callback).

The attribute and parameter groups are checked against the library's own tables, read through
ctypes from the libvelmor the module has loaded, so a name added to the library without
reaching Python (or the reverse) fails here.

Not tested: the exact layout of the help tables beyond their first lines and the rows that
carry fixed wording.
"""
import ctypes

import pytest

import velmorpy
from velmorpy import VLM

GROUPS = [
    ("attr", "Attr", "AttrConstClass"),
    ("error", "Error", "ErrorConstClass"),
    ("param", "Param", "ParamConstClass"),
    ("status", "Status", "StatusConstClass"),
    ("callback", "Callback", "CallbackClass"),
]

STATUS_NAMES = [
    "LOADED", "OPTIMAL", "INFEASIBLE", "INF_OR_UNBD", "UNBOUNDED", "CUTOFF", "ITERATION_LIMIT",
    "NODE_LIMIT", "TIME_LIMIT", "SOLUTION_LIMIT", "INTERRUPTED", "NUMERIC", "SUBOPTIMAL",
    "INPROGRESS", "USER_OBJ_LIMIT", "WORK_LIMIT", "MEM_LIMIT",
]

GENCONSTR_NAMES = [
    "MAX", "MIN", "ABS", "AND", "OR", "NORM", "INDICATOR", "PWL", "POLY", "EXP", "EXPA", "LOG",
    "LOGA", "POW", "SIN", "COS", "TAN", "LOGISTIC",
]


def public_names(obj):
    return {n for n in dir(obj) if not n.startswith("_")}


@pytest.fixture(scope="module")
def libvelmor():
    """The libvelmor the module loaded (found by soname, else through the process maps)."""
    try:
        return ctypes.CDLL("libvelmor.so")
    except OSError:
        pass
    try:
        with open("/proc/self/maps") as maps:
            paths = {line.split()[-1] for line in maps if "libvelmor" in line}
    except OSError:
        paths = set()
    if not paths:
        pytest.skip("libvelmor cannot be located for ctypes")
    return ctypes.CDLL(paths.pop())


def library_names(lib, count_fn, name_fn):
    count = count_fn(None)
    assert count > 0
    names = []
    for i in range(count):
        name = ctypes.c_char_p()
        assert name_fn(None, i, ctypes.byref(name)) == 0
        names.append(name.value.decode())
    return names


# ---- values on VLM ---------------------------------------------------------------------------


class TestVLMValues:
    def test_infinity_and_undefined_are_floats(self):
        assert VLM.INFINITY == 1e100 and type(VLM.INFINITY) is float
        assert VLM.UNDEFINED == 1e101 and type(VLM.UNDEFINED) is float

    def test_limits_and_version(self):
        assert (VLM.MAXINT, VLM.MAX_NAMELEN, VLM.MAX_STRLEN, VLM.MAX_TAGLEN,
                VLM.MAX_CONCURRENT) == (2000000000, 255, 512, 10240, 64)
        assert (VLM.VERSION_MAJOR, VLM.VERSION_MINOR, VLM.VERSION_TECHNICAL) == (10, 0, 3)
        assert type(VLM.MAXINT) is int

    def test_sense_and_variable_types_are_one_letter_strings(self):
        assert (VLM.LESS_EQUAL, VLM.GREATER_EQUAL, VLM.EQUAL) == ("<", ">", "=")
        assert (VLM.CONTINUOUS, VLM.BINARY, VLM.INTEGER, VLM.SEMICONT, VLM.SEMIINT) == (
            "C", "B", "I", "S", "N")
        assert (VLM.MINIMIZE, VLM.MAXIMIZE) == (1, -1)

    def test_basis_and_sos(self):
        assert (VLM.BASIC, VLM.NONBASIC_LOWER, VLM.NONBASIC_UPPER, VLM.SUPERBASIC) == (
            0, -1, -2, -3)
        assert (VLM.SOS_TYPE1, VLM.SOS_TYPE2) == (1, 2)

    def test_general_constraint_types_are_numbered_in_order(self):
        assert [getattr(VLM, "GENCONSTR_" + n) for n in GENCONSTR_NAMES] == list(range(18))

    def test_method_none_and_auto_share_minus_one(self):
        assert VLM.METHOD_NONE == VLM.METHOD_AUTO == -1
        assert [VLM.METHOD_PRIMAL, VLM.METHOD_DUAL, VLM.METHOD_BARRIER, VLM.METHOD_CONCURRENT,
                VLM.METHOD_DETERMINISTIC_CONCURRENT,
                VLM.METHOD_DETERMINISTIC_CONCURRENT_SIMPLEX] == [0, 1, 2, 3, 4, 5]

    def test_batch_cuts_feasrelax_phase(self):
        assert [VLM.BATCH_CREATED, VLM.BATCH_SUBMITTED, VLM.BATCH_ABORTED, VLM.BATCH_FAILED,
                VLM.BATCH_COMPLETED] == [1, 2, 3, 4, 5]
        assert [VLM.CUTS_AUTO, VLM.CUTS_OFF, VLM.CUTS_CONSERVATIVE, VLM.CUTS_AGGRESSIVE,
                VLM.CUTS_VERYAGGRESSIVE] == [-1, 0, 1, 2, 3]
        assert [VLM.FEASRELAX_LINEAR, VLM.FEASRELAX_QUADRATIC,
                VLM.FEASRELAX_CARDINALITY] == [0, 1, 2]
        assert [VLM.PHASE_MIP_NOREL, VLM.PHASE_MIP_SEARCH, VLM.PHASE_MIP_IMPROVE] == [0, 1, 2]

    def test_error_codes_on_vlm_carry_the_prefix(self):
        assert VLM.ERROR_OUT_OF_MEMORY == 10001
        assert VLM.ERROR_UPDATEMODE_CHANGE == 10027
        assert VLM.ERROR_SECURITY == 10032
        assert (VLM.ERROR_NOT_IN_MODEL, VLM.ERROR_FAILED_TO_CREATE_MODEL, VLM.ERROR_INTERNAL) == (
            20001, 20002, 20003)

    def test_status_codes_on_vlm_run_from_1_to_17(self):
        assert [getattr(VLM, n) for n in STATUS_NAMES] == list(range(1, 18))

    def test_error_codes_are_what_the_library_returns(self, libvelmor):
        name = ctypes.c_char_p()
        assert libvelmor.VLMgetparamname(None, 1 << 20, ctypes.byref(name)) == (
            VLM.ERROR_INDEX_OUT_OF_RANGE)
        assert libvelmor.VLMgetattrinfo(None, b"NoSuchAttribute",
                                        None, None, None) == VLM.ERROR_UNKNOWN_ATTRIBUTE
        assert libvelmor.VLMgetattrinfo(None, None, None, None, None) == VLM.ERROR_NULL_ARGUMENT


# ---- the groups ------------------------------------------------------------------------------


class TestGroups:
    @pytest.mark.parametrize("lower,upper,class_name", GROUPS)
    def test_both_spellings_are_the_one_instance_of_the_exported_class(
            self, lower, upper, class_name):
        group = getattr(VLM, lower)
        assert getattr(VLM, upper) is group
        assert type(group) is getattr(velmorpy, class_name)
        assert repr(group) == f"<velmorpy.{class_name}>"

    def test_vlm_prints_as_a_module_class(self):
        assert repr(VLM) == "<class 'velmorpy.VLM'>"
        assert velmorpy.VLM is VLM

    def test_status_and_error_numeric_differ(self):
        assert VLM.status.NUMERIC == 12
        assert VLM.error.NUMERIC == 10014
        assert VLM.NUMERIC == 12 and VLM.ERROR_NUMERIC == 10014

    def test_status_group_matches_vlm(self):
        assert public_names(VLM.status) == set(STATUS_NAMES)
        for name in STATUS_NAMES:
            assert getattr(VLM.status, name) == getattr(VLM, name)

    def test_error_group_matches_vlm_error_codes(self):
        names = public_names(VLM.error)
        assert len(names) == 35
        assert names == {n[len("ERROR_"):] for n in public_names(VLM) if n.startswith("ERROR_")}
        for name in names:
            assert getattr(VLM.error, name) == getattr(VLM, "ERROR_" + name)

    def test_callback_codes(self):
        cb = VLM.callback
        assert [cb.POLLING, cb.PRESOLVE, cb.SIMPLEX, cb.MIP, cb.MIPSOL, cb.MIPNODE, cb.MESSAGE,
                cb.BARRIER, cb.MULTIOBJ, cb.IIS] == list(range(10))
        assert (cb.PRE_COLDEL, cb.SPX_ISPERT, cb.MIP_PHASE, cb.MIPSOL_SOL, cb.MIPNODE_PHASE) == (
            1000, 2004, 3008, 4001, 5009)
        assert (cb.MSG_STRING, cb.RUNTIME, cb.WORK) == (6001, 6002, 6003)
        assert (cb.BARRIER_COMPL, cb.MULTIOBJ_SOL, cb.IIS_BOUNDGUESS) == (7006, 8003, 9006)
        assert len(public_names(cb)) == 10 + 5 + 5 + 9 + 8 + 9 + 3 + 6 + 3 + 6

    def test_callback_codes_are_on_vlm_too(self):
        for name in public_names(VLM.callback):
            assert getattr(VLM, name) == getattr(VLM.callback, name), name

    def test_dir_lists_constants(self):
        assert {"OPTIMAL", "INFINITY", "GENCONSTR_LOGISTIC", "attr", "Callback"} <= (
            public_names(VLM))
        assert {"ObjVal", "NumVars"} <= public_names(VLM.attr)
        assert {"TimeLimit", "MIPGap"} <= public_names(VLM.param)


# ---- read-only -------------------------------------------------------------------------------


READ_ONLY_TARGETS = [
    ("VLM", lambda: VLM, "OPTIMAL"),
    ("VLM new name", lambda: VLM, "NEW_CONSTANT"),
    ("VLM group", lambda: VLM, "status"),
    ("VLM docstring", lambda: VLM, "__doc__"),
    ("attr", lambda: VLM.attr, "X"),
    ("param", lambda: VLM.param, "TimeLimit"),
    ("status", lambda: VLM.status, "OPTIMAL"),
    ("error", lambda: VLM.error, "NUMERIC"),
    ("callback", lambda: VLM.callback, "MIPSOL"),
    ("group class", lambda: velmorpy.StatusConstClass, "OPTIMAL"),
]


class TestReadOnly:
    @pytest.mark.parametrize("label,target,name", READ_ONLY_TARGETS,
                             ids=[t[0] for t in READ_ONLY_TARGETS])
    def test_assignment_raises_velmor_error(self, label, target, name):
        obj = target()
        before = getattr(obj, name, None)
        with pytest.raises(velmorpy.VelmorError) as info:
            setattr(obj, name, 5)
        assert info.value.errno == -1
        assert str(info.value) == f"Cannot set constant '{name}': Velmor constants are read-only"
        assert getattr(obj, name, None) == before

    @pytest.mark.parametrize("label,target,name", READ_ONLY_TARGETS[:1] + READ_ONLY_TARGETS[4:],
                             ids=[t[0] for t in READ_ONLY_TARGETS[:1] + READ_ONLY_TARGETS[4:]])
    def test_deletion_raises_velmor_error(self, label, target, name):
        obj = target()
        with pytest.raises(velmorpy.VelmorError) as info:
            delattr(obj, name)
        assert info.value.errno == -1
        assert str(info.value) == f"Cannot delete constant '{name}': Velmor constants are read-only"

    def test_statement_form_of_assignment(self):
        with pytest.raises(velmorpy.VelmorError):
            VLM.OPTIMAL = 5
        with pytest.raises(velmorpy.VelmorError):
            VLM.attr.X = 1
        assert VLM.OPTIMAL == 2 and VLM.attr.X == "X"


# ---- help texts ------------------------------------------------------------------------------


def doc_lines(obj):
    return obj.__doc__.splitlines()


def row_texts(obj, name):
    """The description column of every help row for `name` ("    NAME  value  text")."""
    rows = []
    for line in doc_lines(obj):
        parts = line.split(None, 2)
        if line.startswith("    ") and len(parts) == 3 and parts[0] == name:
            rows.append((int(parts[1]), parts[2]))
    return rows


class TestHelp:
    def test_vlm_docstring(self):
        doc = VLM.__doc__
        assert doc_lines(VLM)[0] == (
            "Velmor constants.  Constants defined in this class are as follows:")
        for name in ["BASIC", "SUPERBASIC", "LESS_EQUAL", "SEMIINT", "SOS_TYPE2",
                     "GENCONSTR_LOGISTIC"]:
            assert name in doc
        for group in ["attr", "error", "param", "status", "callback"]:
            assert f"VLM.{group} " in doc
        assert "help(VLM.attr)" in doc

    def test_help_uses_the_class_docstring(self):
        assert VLM.status.__doc__ is velmorpy.StatusConstClass.__doc__

    def test_status_help(self):
        assert doc_lines(VLM.status)[0] == (
            "Velmor optimization status codes (e.g., model.status == VLM.OPTIMAL):")
        assert row_texts(VLM.status, "LOADED") == [
            (1, "Model loaded, but no solution information available")]
        assert row_texts(VLM.status, "MEM_LIMIT") == [
            (17, "Optimization terminated due to soft memory limit")]
        assert len(doc_lines(VLM.status)) == 1 + 17

    def test_error_help(self):
        assert doc_lines(VLM.error)[0] == (
            "Velmor error codes (e.g., exception.errno == VLM.ERROR_OUT_OF_MEMORY):")
        assert row_texts(VLM.error, "OUT_OF_MEMORY") == [(10001, "Exhausted available memory")]
        assert row_texts(VLM.error, "Q_NOT_PSD") == [
            (10020, "Q matrix isn't Positive Semi-Definite")]
        assert row_texts(VLM.error, "INTERNAL") == [(20003, "Internal Velmor error")]

    def test_error_help_repeats_two_codes(self):
        assert row_texts(VLM.error, "NOT_SUPPORTED") == [
            (10024, "Requested operation is not supported"), (10024, "Operation is not supported")]
        assert len(row_texts(VLM.error, "JOB_REJECTED")) == 2
        names = [line.split()[0] for line in doc_lines(VLM.error)[1:]]
        assert names[names.index("NETWORK"):names.index("EXCEED_2B_NONZEROS")] == [
            "NETWORK", "JOB_REJECTED", "NOT_SUPPORTED", "JOB_REJECTED", "NOT_SUPPORTED"]

    def test_error_help_omits_two_codes(self):
        assert row_texts(VLM.error, "UPDATEMODE_CHANGE") == []
        assert row_texts(VLM.error, "SECURITY") == []
        assert VLM.error.UPDATEMODE_CHANGE == 10027 and VLM.error.SECURITY == 10032

    def test_callback_help_lists_every_code(self):
        for name in public_names(VLM.callback):
            rows = row_texts(VLM.callback, name)
            assert len(rows) == 1 and rows[0][0] == getattr(VLM.callback, name), name

    def test_attr_help_shows_type_and_access(self, libvelmor):
        info = libvelmor.VLMgetattrinfo
        for name in ["ObjVal", "ModelSense", "NumVars"]:
            dtype, kind, settable = ctypes.c_int(), ctypes.c_int(), ctypes.c_int()
            assert info(None, name.encode(), ctypes.byref(dtype), ctypes.byref(kind),
                        ctypes.byref(settable)) == 0
            (line,) = [l for l in doc_lines(VLM.attr) if l.split()[:1] == [name]]
            assert line.split()[1] == ["char", "int", "double", "string"][dtype.value]
            assert line.split()[2] == ("settable" if settable.value else "read-only")

    def test_param_help_shows_defaults(self):
        lines = {l.split()[0]: l for l in doc_lines(VLM.param)[2:] if l.strip()}
        assert lines["TimeLimit"].split(None, 1)[1] == "double  default inf, range [0, inf]"
        assert "default 0.0001," in lines["MIPGap"]


# ---- attribute and parameter names come from the library -----------------------------------


class TestGeneratedGroups:
    def test_attr_names_are_the_library_list(self, libvelmor):
        names = library_names(libvelmor, libvelmor.VLMgetnumattributes, libvelmor.VLMgetattrname)
        assert public_names(VLM.attr) == set(names)
        for name in names:
            assert getattr(VLM.attr, name) == name

    def test_param_names_are_the_library_list(self, libvelmor):
        names = library_names(libvelmor, libvelmor.VLMgetnumparams, libvelmor.VLMgetparamname)
        assert public_names(VLM.param) == set(names)
        for name in names:
            assert getattr(VLM.param, name) == name

    def test_every_param_constant_is_accepted_by_an_env(self):
        env = velmorpy.Env(empty=True)
        if not hasattr(env, "_getParamInfo"):
            pytest.skip("Env._getParamInfo not available")
        for name in public_names(VLM.param):
            assert env._getParamInfo(getattr(VLM.param, name))[0] == name

    def test_examples_from_the_help(self):
        assert VLM.attr.ObjVal == "ObjVal"
        assert VLM.param.TimeLimit == "TimeLimit"

