"""Analysis and derived models from Python: computeIIS on infeasible LPs and MIPs (minimality
checked by independent solves), feasRelax/feasRelaxS against relaxations solved by hand,
relax/fixed/feasibility/dualize and the identities that tie them to their source, and the
errors on disposed, unsolved and wrong-kind models."""
import json

import pytest

import velmorpy as vp
from velmorpy import VLM, VelmorError


@pytest.fixture
def staffing(env):
    """Workforce LP, infeasible:  min x + y,  x in [0, 3],  y >= 0, z >= 0
        demand: x + y >= 10,  capY: y <= 4,  extra: z >= 1,  budget: x + z <= 100.
    x + y <= 7 < 10, so the only IIS is {demand, capY, UB of x}."""
    m = vp.Model("staffing", env=env)
    x = m.addVar(ub=3, obj=1, name="x")
    y = m.addVar(obj=1, name="y")
    z = m.addVar(name="z")
    m.addConstr(x + y >= 10, name="demand")
    m.addConstr(y <= 4, name="capY")
    m.addConstr(z >= 1, name="extra")
    m.addConstr(x + z <= 100, name="budget")
    m.update()
    yield m
    m.dispose()


@pytest.fixture
def production(env):
    """max 5x + 4y + z  s.t.  cap: 6x + 4y <= 24,  lab: x + 2y <= 6,  link: z <= x,
    x, y integer >= 0, z in [0, 3].  Best integer point (4, 0) with z = 3: 23; the relaxation
    peaks at x = 3, y = 1.5, z = 3: 24."""
    m = vp.Model("production", env=env)
    x = m.addVar(obj=5, vtype=VLM.INTEGER, name="x")
    y = m.addVar(obj=4, vtype=VLM.INTEGER, name="y")
    z = m.addVar(ub=3, obj=1, name="z")
    m.addConstr(6 * x + 4 * y <= 24, name="cap")
    m.addConstr(x + 2 * y <= 6, name="lab")
    m.addConstr(z <= x, name="link")
    m.ModelSense = -1
    m.update()
    yield m
    m.dispose()


def status_without(m, drop_constr=None, free_ub=None):
    """Solves m without objective, keeping only its IIS, minus one member; returns the status."""
    c = m.feasibility()
    try:
        for orig, con in zip(m.getConstrs(), c.getConstrs()):
            if not orig.IISConstr or orig.ConstrName == drop_constr:
                c.remove(con)
        for orig, var in zip(m.getVars(), c.getVars()):
            if not orig.IISUB or orig.VarName == free_ub:
                var.UB = float("inf")
            if not orig.IISLB:
                var.LB = -float("inf")
        c.optimize()
        return c.Status
    finally:
        c.dispose()


class TestComputeIIS:
    def test_lp_subsystem_is_the_hand_found_one_and_minimal(self, staffing):
        staffing.computeIIS()
        assert [c.IISConstr for c in staffing.getConstrs()] == [1, 1, 0, 0]
        assert [v.IISUB for v in staffing.getVars()] == [1, 0, 0]
        assert [v.IISLB for v in staffing.getVars()] == [0, 0, 0]
        assert staffing.IISMinimal == 1
        assert status_without(staffing) == VLM.INFEASIBLE
        assert status_without(staffing, drop_constr="demand") == VLM.OPTIMAL
        assert status_without(staffing, drop_constr="capY") == VLM.OPTIMAL
        assert status_without(staffing, free_ub="x") == VLM.OPTIMAL

    def test_mip_subsystem_needs_integrality(self, env):
        # x, y integer in [0, 10]:  same: x - y = 0,  sum: x + y = 3 (x = y = 1.5 only),
        # spare: x <= 8.  IIS {same, sum}; the LP relaxation alone is feasible.
        m = vp.Model(env=env)
        x = m.addVar(ub=10, vtype=VLM.INTEGER, name="x")
        y = m.addVar(ub=10, vtype=VLM.INTEGER, name="y")
        m.addConstr(x - y == 0, name="same")
        m.addConstr(x + y == 3, name="sum")
        m.addConstr(x <= 8, name="spare")
        m.computeIIS()
        assert [c.IISConstr for c in m.getConstrs()] == [1, 1, 0]
        assert status_without(m) == VLM.INFEASIBLE
        assert status_without(m, drop_constr="same") == VLM.OPTIMAL
        assert status_without(m, drop_constr="sum") == VLM.OPTIMAL
        m.Params.IISMethod = 3
        with pytest.raises(VelmorError) as info:
            m.computeIIS()
        assert info.value.errno == VLM.ERROR_IIS_NOT_INFEASIBLE
        m.dispose()

    def test_forced_out_constraint_and_feasible_model(self, staffing):
        staffing.getConstrs()[1].IISConstrForce = 0  # capY out: nothing else caps y
        with pytest.raises(VelmorError) as info:
            staffing.computeIIS()
        assert (info.value.errno, str(info.value)) == (10015, "Can't compute an IIS on a feasible model")

    def test_ilp_file_holds_the_subsystem(self, staffing, tmp_path):
        staffing.computeIIS()
        staffing.write(str(tmp_path / "staffing.ilp"))
        (tmp_path / "iis.lp").write_text((tmp_path / "staffing.ilp").read_text())
        iis = vp.read(str(tmp_path / "iis.lp"), env=staffing._uenv)
        assert sorted(c.ConstrName for c in iis.getConstrs()) == ["capY", "demand"]
        assert iis.getVarByName("x").UB == 3
        iis.optimize()
        assert iis.Status == VLM.INFEASIBLE
        iis.dispose()

    def test_callback_must_be_a_function(self, staffing):
        with pytest.raises(VelmorError, match="Callback argument must be a function"):
            staffing.computeIIS(staffing.update)


class TestFeasRelax:
    def test_constraints_only_keep_bounds(self, staffing):
        # Unit penalties on the rows: 3 units of violation, whichever rows take them. x's bound
        # keeps its infinite penalty, so x stays within [0, 3].
        constrs = staffing.getConstrs()
        assert staffing.feasRelax(0, False, None, None, None, constrs, [1.0] * len(constrs)) == 0
        staffing.optimize()
        assert staffing.ObjVal == pytest.approx(3.0)
        assert staffing.getVarByName("x").UB == 3
        assert staffing.getVarByName("x").X <= 3 + 1e-9

    def test_minrelax_returns_least_penalty_and_keeps_objective(self, staffing):
        # Bounds only, x's upper bound at penalty 2 per unit: x = 6 costs 6; the original
        # objective min x + y then gives 6 + 4 = 10.
        x, y, z = staffing.getVars()
        inf = float("inf")
        assert staffing.feasRelax(0, True, [x, y], None, [2.0, inf], None, None) == pytest.approx(6.0)
        staffing.optimize()
        assert staffing.ObjVal == pytest.approx(10.0)
        assert staffing.getVarByName("ArtU_x").X == pytest.approx(3.0)

    def test_simple_form_replaces_all_handles(self, staffing):
        before = staffing.getVars()
        staffing.feasRelaxS(0, False, True, False)
        after = staffing.getVars()
        assert len(after) > len(before)
        assert not any(a is b for a in after for b in before)
        # Bounds at unit penalty: only x's upper bound (and lower bounds, which do not help)
        # can move: x = 6, penalty 3.
        staffing.optimize()
        assert staffing.ObjVal == pytest.approx(3.0)

    def test_cardinality_counts_violated_rows(self, staffing):
        # One violated row suffices (demand short by 3, or capY over by 3): penalty 1.
        assert staffing.feasRelaxS(2, True, False, True) == pytest.approx(1.0)

    def test_foreign_variable_and_bad_type(self, staffing, env):
        other = vp.Model(env=env)
        v = other.addVar()
        other.update()
        with pytest.raises(VelmorError) as info:
            staffing.feasRelax(0, False, [v], [1.0], [1.0], None, None)
        assert (info.value.errno, str(info.value)) == (VLM.ERROR_NOT_IN_MODEL, "Variable not in model")
        with pytest.raises(VelmorError) as info:
            staffing.feasRelaxS(5, False, True, True)
        assert info.value.errno == VLM.ERROR_INVALID_ARGUMENT
        assert staffing.NumVars == 3  # unchanged
        other.dispose()


class TestDerivedModels:
    def test_relax_bounds_the_mip_and_fixed_reproduces_the_incumbent(self, production):
        with pytest.raises(VelmorError) as info:
            production.fixed()
        assert info.value.errno == VLM.ERROR_DATA_NOT_AVAILABLE
        r = production.relax()
        r.optimize()
        assert r.ObjVal == pytest.approx(24.0)
        assert r.IsMIP == 0 and production.IsMIP == 1
        production.optimize()
        assert production.ObjVal == pytest.approx(23.0)
        f = production.fixed()
        f.optimize()
        assert f.IsMIP == 0
        assert f.ObjVal == pytest.approx(production.ObjVal)
        assert f.getConstrByName("link").Pi == pytest.approx(0.0)
        r.dispose()
        f.dispose()

    def test_fixed_of_an_lp_is_refused(self, env):
        m = vp.Model(env=env)
        m.addVar(ub=2, obj=1)
        m.optimize()
        with pytest.raises(VelmorError) as info:
            m.fixed()
        assert info.value.errno == VLM.ERROR_INVALID_ARGUMENT
        assert str(info.value).startswith("The model is continuous")
        m.dispose()

    def test_relax_of_continuous_model_equals_copy(self, staffing):
        r = staffing.relax()
        assert (r.NumVars, r.NumConstrs) == (staffing.NumVars, staffing.NumConstrs)
        assert [v.VarName for v in r.getVars()] == ["x", "y", "z"]
        assert [c.RHS for c in r.getConstrs()] == [c.RHS for c in staffing.getConstrs()]
        r.dispose()

    def test_dual_has_the_same_optimum(self, env):
        # max x + y  s.t.  a: x + 2y <= 4,  b: 3x + y <= 6: 2.8; dual min 4a + 6b: 2.8.
        m = vp.Model(env=env)
        x = m.addVar(obj=1, name="x")
        y = m.addVar(obj=1, name="y")
        m.addConstr(x + 2 * y <= 4, name="a")
        m.addConstr(3 * x + y <= 6, name="b")
        m.ModelSense = -1
        d = m.dualize()
        m.optimize()
        d.optimize()
        assert d.ModelSense == 1
        assert d.ObjVal == pytest.approx(m.ObjVal) == pytest.approx(2.8)
        assert [v.VarName for v in d.getVars()] == ["a", "b"]
        assert d.getVarByName("a").X == pytest.approx(m.getConstrByName("a").Pi)
        m.dispose()
        d.optimize()  # the dual lives on after its source is gone
        d.dispose()

    def test_dual_of_a_mip_is_refused(self, production):
        with pytest.raises(VelmorError) as info:
            production.dualize()
        assert info.value.errno == VLM.ERROR_NOT_FOR_MIP

    def test_feasibility_model_has_no_objective(self, production):
        f = production.feasibility()
        f.optimize()
        assert f.ObjVal == 0.0
        assert [v.Obj for v in f.getVars()] == [0.0, 0.0, 0.0]
        f.dispose()

    def test_presolve_keeps_the_optimum(self, production):
        # fix is fixed at 1 (objective 2 each): the presolved model drops it and its row, and
        # the optimum is 23 + 2 = 25 in both models. A pending change is applied first.
        fix = production.addVar(lb=1, ub=1, obj=2, name="fix")
        production.addConstr(fix <= 1, name="single")
        p = production.presolve()
        assert production.NumVars == 4
        assert [v.VarName for v in p.getVars()] == ["x", "y", "z"]
        assert [c.ConstrName for c in p.getConstrs()] == ["cap", "lab", "link"]
        p.optimize()
        production.optimize()
        assert p.ObjVal == pytest.approx(production.ObjVal) == pytest.approx(25.0)
        p.dispose()

    def test_json_solution_parses_with_the_values(self, production):
        # The production MIP's optimum: x = 4, y = 0, z = 3, objective 23.
        production.optimize()
        sol = json.loads(production.getJSONSolution())
        assert sol["SolutionInfo"]["Status"] == VLM.OPTIMAL
        assert sol["SolutionInfo"]["ObjVal"] == pytest.approx(23.0)
        assert {v["VarName"]: v["X"] for v in sol["Vars"]} == \
            {"x": pytest.approx(4.0), "y": pytest.approx(0.0), "z": pytest.approx(3.0)}

    @pytest.mark.parametrize("call", [
        lambda m: m.computeIIS(), lambda m: m.feasRelaxS(0, False, True, True),
        lambda m: m.feasRelax(0, False, None, None, None, None, None), lambda m: m.relax(),
        lambda m: m.fixed(), lambda m: m.feasibility(), lambda m: m.dualize(),
        lambda m: m.presolve(), lambda m: m.getJSONSolution()])
    def test_disposed_model_refuses(self, env, call):
        m = vp.Model(env=env)
        m.dispose()
        with pytest.raises(VelmorError) as info:
            call(m)
        assert (info.value.errno, str(info.value)) == (10002, "Model has been disposed")
