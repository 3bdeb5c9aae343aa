"""Derived models (linearize, singleScenarioModel), multiple objectives and scenarios solved
from Python, and indicators whose inner constraint has variables on both sides."""
import pytest

import velmorpy as vp
from velmorpy import VLM, VelmorError


@pytest.fixture
def m(env):
    model = vp.Model("derive", env=env)
    yield model
    model.dispose()


needs_derive = pytest.mark.skipif(not hasattr(vp.Model, "linearize"), reason="derived-model methods not wired")


@needs_derive
class TestLinearize:
    # max 2a + 3b with a, b in [0, 4] and SOS1 {a, b}: b = 4, 12. The linearized model has no
    # SOS, one binary per member, and the same optimum; the original keeps its SOS.
    def test_same_optimum_without_constructs(self, m, tmp_path):
        a = m.addVar(ub=4, name="a")
        b = m.addVar(ub=4, name="b")
        m.addSOS(VLM.SOS_TYPE1, [a, b], [1, 2])
        m.setObjective(2 * a + 3 * b, VLM.MAXIMIZE)
        m.update()
        lin = m.linearize()
        try:
            assert type(lin) is vp.Model
            assert (lin.NumSOS, lin.NumGenConstrs) == (0, 0)
            assert lin.NumVars > 2 and lin.IsMIP == 1
            assert [v.VarName for v in lin.getVars()[:2]] == ["a", "b"]
            lin.optimize()
            assert lin.ObjVal == pytest.approx(12.0)
            # An ordinary model: written and read back, it solves the same.
            path = str(tmp_path / "lin.lp")
            lin.write(path)
            back = vp.read(path, env=m._uenv)
            try:
                back.optimize()
                assert back.ObjVal == pytest.approx(12.0)
            finally:
                back.dispose()
        finally:
            lin.dispose()
        assert m.NumSOS == 1
        m.optimize()
        assert m.ObjVal == pytest.approx(12.0)

    # (b = 0) => x <= 5 and (b = 1) => x <= 50 with x unbounded above: no big-M exists, so both
    # indicators stay indicators (over a slack each) in the linearized model, and both models
    # solve to min 2b - x = 2 - 50 = -48; the user's model keeps its two elements.
    def test_unbounded_indicators_stay_indicators(self, m):
        b = m.addVar(vtype=VLM.BINARY, name="b")
        x = m.addVar(name="x")
        m.addGenConstrIndicator(b, False, x, "<", 5.0)
        m.addGenConstrIndicator(b, True, x, "<", 50.0)
        m.setObjective(2 * b - x)
        m.update()
        lin = m.linearize()
        lin.update()
        assert (lin.NumGenConstrs, lin.NumVars) == (2, 4)
        assert (m.NumGenConstrs, m.NumVars) == (2, 2)
        for model in (m, lin):
            model.Params.OutputFlag = 0
            model.optimize()
            assert model.Status == VLM.OPTIMAL and model.ObjVal == pytest.approx(-48.0)
        assert (x.X, b.X) == (pytest.approx(50.0), pytest.approx(1.0))


@needs_derive
class TestSingleScenario:
    # min -3x - 2y, x + y <= 4, x <= 3: scenario 1 raises the rhs to 6: (3, 3), -15.
    def test_selected_scenario_applied(self, m):
        x = m.addVar(ub=3, name="x")
        y = m.addVar(ub=10, name="y")
        c = m.addConstr(x + y <= 4, name="c")
        m.setObjective(-3 * x - 2 * y)
        m.NumScenarios = 2
        m.update()
        m.Params.ScenarioNumber = 1
        c.ScenNRHS = 6
        m.update()
        s = m.singleScenarioModel()
        try:
            assert s.NumScenarios == 0
            assert s.getConstrs()[0].RHS == 6
            s.optimize()
            assert s.ObjVal == pytest.approx(-15.0)
        finally:
            s.dispose()
        m.Params.ScenarioNumber = 2
        with pytest.raises(VelmorError) as info:
            m.singleScenarioModel()
        assert str(info.value) == "Scenario 2 does not exist (NumScenarios is 2)"


# x, y in [0, 10], x + y <= 10. Priority 2: min -(2x + y), best -20 at (10, 0); priority 1:
# min x. With a 10% relative tolerance on the first: 2x + y >= 18, so x = 8, y = 2.
def test_hierarchical_objectives_from_python(m):
    x = m.addVar(ub=10, name="x")
    y = m.addVar(ub=10, name="y")
    m.addConstr(x + y <= 10)
    m.setObjectiveN(-2 * x - y, 0, priority=2, abstol=0, reltol=0.1, name="profit")
    m.setObjectiveN(x + 0, 1, priority=1, abstol=0, name="use")
    m.optimize()
    assert m.Status == VLM.OPTIMAL
    assert (x.X, y.X) == (pytest.approx(8.0), pytest.approx(2.0))
    m.Params.ObjNumber = 0
    assert m.ObjNVal == pytest.approx(-18.0)
    m.Params.ObjNumber = 1
    assert m.ObjNVal == pytest.approx(8.0)
    assert m.NumObj == 2


# min -3x - 2y, x + y <= 4, x <= 3: base (3, 1) -11; scenario 0 with ub(x) = 1: (1, 3), -9.
def test_scenarios_from_python(m):
    x = m.addVar(ub=3, name="x")
    y = m.addVar(ub=10, name="y")
    m.addConstr(x + y <= 4)
    m.setObjective(-3 * x - 2 * y)
    m.NumScenarios = 1
    m.update()
    m.Params.ScenarioNumber = 0
    x.ScenNUB = 1
    m.optimize()
    assert m.ObjVal == pytest.approx(-11.0)
    assert m.ScenNObjVal == pytest.approx(-9.0)
    assert (x.ScenNX, y.ScenNX) == (pytest.approx(1.0), pytest.approx(3.0))


# (b = 1) => (x >= y) written with variables on both sides:
#   max x + y - 3b,  x in [0, 2], y in [0, 4], (b = 1) => (x >= y), (b = 0) => (y <= 1)
# b = 0: x = 2, y = 1: 3.  b = 1: x = 2, y = 2: 4 - 3 = 1.  Optimum 3 with b = 0; forcing
# b = 1 gives 1, where y = x exactly (y = 4 would violate x >= y).
def test_indicator_with_variables_on_both_sides(m):
    x = m.addVar(ub=2, name="x")
    y = m.addVar(ub=4, name="y")
    b = m.addVar(vtype=VLM.BINARY, name="b")
    g = m.addConstr((b == 1) >> (x >= y))
    m.addConstr((b == 0) >> (y <= 1))
    m.setObjective(x + y - 3 * b, VLM.MAXIMIZE)
    m.optimize()
    assert m.ObjVal == pytest.approx(3.0)
    b.LB = 1
    m.optimize()
    assert m.ObjVal == pytest.approx(1.0)
    assert y.X == pytest.approx(2.0)
    _, _, expr, sense, rhs = m.getGenConstrIndicator(g)
    assert sense == ">" and rhs == 0.0
    assert sorted((expr.getVar(i).VarName, expr.getCoeff(i)) for i in range(expr.size())) == [("x", 1.0), ("y", -1.0)]
    # The separate-argument form still wants a constant right-hand side.
    with pytest.raises(VelmorError):
        m.addGenConstrIndicator(b, True, x, ">", y)
