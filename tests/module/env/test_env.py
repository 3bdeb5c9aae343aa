import gc
import os
import subprocess
import sys

import pytest
from conftest import needs_rss, rss_bytes

import velmorpy as vp
from velmorpy import VelmorError


def test_empty_environment_is_not_started_until_start(capsys):
    e = vp.Env(empty=True)
    assert e._empty is True and e._cenv is not None and e._user is True
    assert repr(e) == "<velmorpy.Env, No parameter changes>"
    e.setParam("TimeLimit", 5)
    assert repr(e) == "<velmorpy.Env, Parameter changes: TimeLimit=5.0>"
    assert e.start() is e
    assert e._empty is False
    assert e._getParamInfo("TimeLimit")[2] == 5.0
    e.dispose()


def test_dispose_is_idempotent_and_repr_shows_closed_state():
    e = vp.Env(params={"OutputFlag": 0})
    e.dispose()
    assert e._cenv is None
    e.dispose()
    e.close()
    assert repr(e) == "<velmorpy.Env, invalid or closed state>"
    with pytest.raises(VelmorError) as info:
        e.setParam("TimeLimit", 1)
    assert info.value.errno == -1 and str(info.value) == "Invalid Environment"


def test_context_manager_disposes_also_on_exceptions():
    with vp.Env(params={"OutputFlag": 0}) as e:
        assert e._cenv is not None
    assert e._cenv is None
    with pytest.raises(ZeroDivisionError):
        with vp.Env(params={"OutputFlag": 0}) as e2:
            1 / 0
    assert e2._cenv is None


def test_params_argument_is_applied_before_the_start():
    e = vp.Env(empty=True, params={"Threads": 2, "MIPGap": 0.01})
    assert e._getParamInfo("Threads")[2] == 2
    assert e._getParamInfo("MIPGap")[2] == 0.01
    e.dispose()
    with pytest.raises(VelmorError) as info:
        vp.Env(params={"Threads": -5})
    assert info.value.errno == 10008


def test_log_lines_reach_stdout_logging_and_the_log_file(tmp_path, capsys, caplog):
    logfile = tmp_path / "run.log"
    e = vp.Env(logfilename=str(logfile))
    caplog.set_level("INFO", logger="velmorpy")
    e._message("hello from a test")
    assert capsys.readouterr().out == "hello from a test\n"
    assert [r.getMessage() for r in caplog.records] == ["hello from a test"]
    e.setParam("LogToConsole", 0)
    e._message("file only")
    e.dispose()
    assert capsys.readouterr().out == ""
    assert logfile.read_text() == "hello from a test\nfile only\n"


def test_empty_environment_messages_go_to_stdout_only_with_outputflag(capsys):
    e = vp.Env(empty=True)
    e._message("early")
    e.setParam("OutputFlag", 0)
    e._message("silent")
    assert capsys.readouterr().out == "early\n"
    e.dispose()


def test_comm_stats_and_token_lifespan(env):
    assert env._getCommStats() == dict.fromkeys(
        ["recvtime", "recvbytes", "recvmsgs", "sendtime", "sendbytes", "sendmsgs"], 0.0)
    with pytest.raises(VelmorError) as info:
        env.getTokenLifespan()
    assert info.value.errno == vp.VLM.ERROR_DATA_NOT_AVAILABLE


def test_deprecated_constructors_warn_and_start():
    with pytest.warns(DeprecationWarning):
        e = vp.Env.OtherEnv("", "isv", "app", 0, "")
    assert e._empty is False
    e.dispose()


def test_default_environment_is_shared_until_disposed():
    assert vp.velmor._defaultenv is None
    vp.setParam("OutputFlag", 0)
    first = vp.velmor._getdefaultenv()
    assert first._default is True
    assert vp.velmor._getdefaultenv() is first
    assert vp.getParamInfo("OutputFlag")[2] == 0
    vp.disposeDefaultEnv()
    assert first._cenv is None and vp.velmor._defaultenv is None
    assert vp.velmor._getdefaultenv(False) is None
    second = vp.velmor._getdefaultenv()
    assert second is not first and second._cenv is not None


def test_disposing_the_default_environment_logs_unless_exiting(capsys):
    vp.velmor._getdefaultenv()
    vp.disposeDefaultEnv()
    assert "Freeing default Velmor environment" in capsys.readouterr().out
    code = ("import velmorpy as vp\n"
            "vp.setParam('TimeLimit', 3)\n"
            "print('done')\n")
    out = subprocess.run([sys.executable, "-c", code], capture_output=True, text=True,
                         cwd=os.path.dirname(__file__), check=True)
    assert out.stdout.splitlines()[-1] == "done"
    assert "Freeing" not in out.stdout + out.stderr


@needs_rss
def test_creating_and_disposing_environments_does_not_leak():
    def churn(n):
        for _ in range(n):
            e = vp.Env(params={"OutputFlag": 0, "TimeLimit": 10})
            e.setParam("LogToConsole", 0)
            e.dispose()
        gc.collect()

    churn(2000)
    before = rss_bytes()
    churn(10000)
    grown = rss_bytes() - before
    # An environment costs a few kilobytes: 10,000 leaked ones would show tens of megabytes.
    assert grown < 4 * 1024 * 1024, grown
