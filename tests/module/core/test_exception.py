import pytest

import velmorpy as vp
from velmorpy import VelmorError


def test_error_carries_code_and_text():
    e = VelmorError(10005, "text")
    assert e.errno == 10005
    assert e.message == "text"
    assert str(e) == "text"
    e.message = "other"
    assert str(e) == "other" and e._message == "other"
    assert isinstance(e, Exception)
    with pytest.raises(VelmorError) as info:
        raise VelmorError(10003, "bad")
    assert info.value.errno == 10003


def test_message_comes_from_the_environment_that_failed(env):
    with pytest.raises(VelmorError) as info:
        env.setParam("Method", 17)
    err = info.value
    assert err.errno == 10008
    assert str(err) == "Value 17 for parameter 'Method' is outside [-1, 5]"
    # Built from the environment itself, the error reads its last message.
    assert VelmorError(10008, env).message == str(err)


def test_closed_environment_reports_failed_creation():
    e = vp.Env(empty=True)
    e.dispose()
    assert VelmorError(10001, e).message == "Failed to create environment"


def test_other_arguments_leave_the_message_unset():
    e = VelmorError(1, 42)
    assert e.errno == 1
    with pytest.raises(AttributeError):
        e.message
