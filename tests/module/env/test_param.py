import math

import pytest

import velmorpy as vp
from velmorpy import VelmorError


def test_names_ignore_case_and_resolve_to_the_library_spelling(env):
    env.setParam("timelimit", 5)
    assert env._getParamInfo("TIMELIMIT") == ("TimeLimit", float, 5.0, 0.0, math.inf, math.inf)
    assert env._paramlist("timelimit") == ["timelimit"]
    assert env._paramlist("Time*") == ["TimeLimit"]
    assert "BarIterLimit" in env._paramlist("*")


def test_info_tuples_by_type(env):
    assert env._getParamInfo("BarIterLimit") == ("BarIterLimit", int, 1000, 0, 2000000000, 1000)
    assert env._getParamInfo("BestBdStop") == ("BestBdStop", float, math.inf, -math.inf, math.inf, math.inf)
    assert env._getParamInfo("LogFile") == ("LogFile", str, "", None, None, "")
    with pytest.raises(VelmorError) as info:
        env._getParamInfo("NoSuch")
    assert str(info.value) == "Unknown parameter NoSuch"


def test_wildcards_matching_several_names_only_list_them(capsys):
    e = vp.Env(empty=True)
    before = e._getChangeList()
    e.setParam("Heu*", 0.5)
    out = capsys.readouterr().out
    assert out.startswith("Matching parameters: [")
    assert "'Heuristics'" in out
    assert e._getChangeList() == before
    e.setParam("NoSuchThing*", 1)
    assert capsys.readouterr().out == "No parameters matching 'NoSuchThing*' found\n"
    e.dispose()


def test_default_in_any_case_restores_the_default(env):
    env.setParam("TimeLimit", 30)
    env.setParam("TimeLimit", "DeFaUlT")
    assert env._getParamInfo("TimeLimit")[2] == math.inf
    env.setParam("LogFile", "x.log")
    env.setParam("LogFile", "default")
    assert env._getParamInfo("LogFile")[2] == ""


def test_values_convert_by_type_with_infinity(env):
    env.setParam("Cutoff", float("-inf"))
    assert env._getParamInfo("Cutoff")[2] == -math.inf
    env.setParam("TimeLimit", 1e200)
    assert env._getParamInfo("TimeLimit")[2] == math.inf
    env.setParam("MIPGap", "0.25")
    assert env._getParamInfo("MIPGap")[2] == 0.25
    env.setParam("Threads", 4.0)
    assert env._getParamInfo("Threads")[2] == 4
    env.setParam("Threads", True)
    assert env._getParamInfo("Threads")[2] == 1


def test_bad_values_raise_with_the_library_message_and_keep_the_old_value(env):
    env.setParam("Method", 2)
    with pytest.raises(VelmorError) as info:
        env.setParam("Method", 5.5)
    assert info.value.errno == vp.VLM.ERROR_INVALID_ARGUMENT
    with pytest.raises(VelmorError) as info:
        env.setParam("Method", 10 ** 12)
    assert info.value.errno == vp.VLM.ERROR_VALUE_OUT_OF_RANGE
    with pytest.raises(VelmorError) as info:
        env.setParam("MIPGap", [1])
    assert "MIPGap" in str(info.value)
    assert env._getParamInfo("Method")[2] == 2


def test_paramclass_reads_sets_and_lists(env):
    p = vp.ParamClass(env)
    p.TimeLimit = 12
    assert p.TimeLimit == 12.0
    assert p.timelimit == 12.0
    with pytest.raises(AttributeError) as info:
        p.NoSuch
    assert str(info.value) == "No parameter named 'NoSuch'"
    p._mine = 3
    assert p._mine == 3 and p.TimeLimit == 12.0
    assert "MIPGap" in dir(p) and "_mine" in dir(p)
    assert repr(p) == "<velmorpy.ParamClass: Parameter changes: TimeLimit=12.0, OutputFlag=0>"


def test_parameter_files_round_trip_and_report(tmp_path, capsys):
    src = vp.Env(empty=True, params={"TimeLimit": 42.5, "Threads": 3, "ResultFile": "a b.sol",
                                     "Cutoff": -math.inf})
    target = tmp_path / "set.prm"
    src.writeParams(str(target))
    assert capsys.readouterr().out == f"Wrote non-default parameter settings to file {target}\n"
    dst = vp.Env(empty=True)
    dst.readParams(str(target))
    assert capsys.readouterr().out == f"Read parameters from file {target}\n"
    assert dst._getChangeList() == src._getChangeList()
    dst.resetParams()
    assert capsys.readouterr().out == "Reset all parameters\n"
    assert dst._getChangeList() == "No parameter changes"
    with pytest.raises(VelmorError) as info:
        dst.readParams(str(tmp_path / "missing.prm"))
    assert info.value.errno == vp.VLM.ERROR_FILE_READ and "missing.prm" in str(info.value)
    src.dispose()
    dst.dispose()


def test_module_functions_act_on_the_default_environment(tmp_path):
    vp.setParam("OutputFlag", 0)
    vp.setParam("TimeLimit", 9)
    default = vp.velmor._getdefaultenv()
    assert default._getParamInfo("TimeLimit")[2] == 9.0
    vp.fixTuneParam("TimeLimit")
    vp.writeParams(str(tmp_path / "d.prm"))
    vp.resetParams()
    assert vp.getParamInfo("TimeLimit")[2] == math.inf
    vp.readParams(str(tmp_path / "d.prm"))
    assert vp.getParamInfo("TimeLimit")[2] == 9.0


def test_paramhelp_prints_the_help_texts(capsys):
    vp.paramHelp("bariterlimit")
    out = capsys.readouterr().out
    assert out.startswith("PARAMETER NAME: BarIterLimit\n")
    assert "TYPE: Integer" in out and "PURPOSE:" in out
    assert "Minimum : 0\n  Maximum : 2000000000\n  Default : 1000" in out
    vp.paramHelp("BestBdStop")
    assert "Minimum : -1e100\n  Maximum : 1e100\n  Default : 1e100" in capsys.readouterr().out
    vp.paramHelp("Heu*")
    assert capsys.readouterr().out.count("PARAMETER NAME:") > 1
    vp.paramHelp("zzz*")
    assert capsys.readouterr().out == "No parameters matching 'zzz*' found\n"
