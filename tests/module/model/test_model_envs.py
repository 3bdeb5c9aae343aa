"""Optimiser environments from Python: concurrent runs under their own settings, the
multi-objective level settings, discards, and refused indices; pool solutions read back."""
import pytest

import velmorpy as vp
from velmorpy import VLM, VelmorError


def production(env=None):
    # max 3x + 2y  s.t.  x + y <= 4,  x + 3y <= 9,  x <= 3:  optimum x = 3, y = 1, value 11.
    m = vp.Model("production")
    m.Params.OutputFlag = 0
    x = m.addVar(ub=3, name="x")
    y = m.addVar(name="y")
    m.addConstr(x + y <= 4)
    m.addConstr(x + 3 * y <= 9)
    m.setObjective(3 * x + 2 * y, VLM.MAXIMIZE)
    return m, x, y


def test_concurrent_envs_carry_their_own_settings():
    m, x, y = production()
    e0 = m.getConcurrentEnv(0)
    assert isinstance(e0, vp.Env)
    e0.setParam("IterationLimit", 0)
    e0.setParam("Presolve", 0)
    m.optimize()
    assert m.Status == VLM.ITERATION_LIMIT
    # The model's own settings never had the limit.
    assert m.Params.IterationLimit > 1e9
    e1 = m.getConcurrentEnv(1)
    e1.setParam("Method", 1)
    m.optimize()
    assert m.Status == VLM.OPTIMAL and m.ObjVal == pytest.approx(11.0)
    m.discardConcurrentEnvs()
    m.Params.Presolve = 0
    m.optimize()
    assert m.ObjVal == pytest.approx(11.0)


def test_multiobj_env_sets_the_parameters_of_its_level():
    m, x, y = production()
    # Priority 2: max x + y (4, along the edge from (3, 1) to (1.5, 2.5)); priority 1: max y
    # on that edge: y = 2.5.
    m.setObjectiveN(x + y, 0, priority=2)
    m.setObjectiveN(y, 1, priority=1)
    m.optimize()
    assert y.X == pytest.approx(2.5)
    env = m.getMultiobjEnv(1)
    env.setParam("TimeLimit", 0)
    m.optimize()
    assert m.Status == VLM.TIME_LIMIT
    m.Params.ObjNumber = 0
    assert m.ObjNVal == pytest.approx(4.0)
    m.discardMultiobjEnvs()
    m.optimize()
    assert m.Status == VLM.OPTIMAL and y.X == pytest.approx(2.5)


def test_environment_indices_out_of_range_are_refused():
    m, x, y = production()
    with pytest.raises(VelmorError) as info:
        m.getConcurrentEnv(64)
    assert "Concurrent environment index 64 is out of range (0 to 63)" in str(info.value)
    with pytest.raises(VelmorError) as info:
        m.getMultiobjEnv(-1)
    assert "Multi-objective environment index -1 is out of range" in str(info.value)
    m.dispose()
    with pytest.raises(VelmorError):
        m.getConcurrentEnv(0)


def test_pool_of_a_small_knapsack_matches_enumeration():
    values, weights = [5, 4, 3, 2], [4, 3, 2, 1]
    m = vp.Model("knap")
    m.Params.OutputFlag = 0
    z = m.addVars(4, vtype=VLM.BINARY)
    m.addConstr(vp.quicksum(weights[i] * z[i] for i in range(4)) <= 6)
    m.setObjective(vp.quicksum(values[i] * z[i] for i in range(4)), VLM.MAXIMIZE)
    m.Params.PoolSearchMode = 2
    m.Params.PoolSolutions = 5
    m.optimize()
    feasible = sorted((sum(values[i] for i in range(4) if k >> i & 1)
                       for k in range(16) if sum(weights[i] for i in range(4) if k >> i & 1) <= 6),
                      reverse=True)
    assert m.SolCount == 5
    for k in range(5):
        m.Params.SolutionNumber = k
        assert m.PoolObjVal == pytest.approx(feasible[k])
        xn = [z[i].Xn for i in range(4)]
        assert sum(weights[i] * xn[i] for i in range(4)) <= 6 + 1e-6
        assert sum(values[i] * xn[i] for i in range(4)) == pytest.approx(feasible[k])
