"""Tuning from Python: results counted, loaded and out of range, the model's own settings
kept, and a loaded result still solving the model to its optimum."""
import pytest

import velmorpy as vp
from velmorpy import VLM, VelmorError


def test_tuning_loads_its_results():
    # max 3x + 2y  s.t.  x + y <= 4,  x + 3y <= 9,  x <= 3:  optimum x = 3, y = 1, value 11.
    m = vp.Model("production")
    m.Params.OutputFlag = 0
    x = m.addVar(ub=3, name="x")
    y = m.addVar(name="y")
    m.addConstr(x + y <= 4)
    m.addConstr(x + 3 * y <= 9)
    m.setObjective(3 * x + 2 * y, VLM.MAXIMIZE)
    with pytest.raises(VelmorError) as info:
        m.getTuneResult(0)
    assert info.value.errno == VLM.ERROR_DATA_NOT_AVAILABLE
    m.Params.TuneOutput = 0
    m.Params.TuneTrials = 1
    m.Params.TuneTimeLimit = 5
    m.tune()
    assert m.Status == VLM.LOADED
    assert m.TuneResultCount >= 1
    with pytest.raises(VelmorError) as info:
        m.getTuneResult(m.TuneResultCount)
    assert info.value.errno == VLM.ERROR_INDEX_OUT_OF_RANGE
    m.getTuneResult(0)
    assert m.Params.TuneTrials == 1
    m.optimize()
    assert m.ObjVal == pytest.approx(11.0)
