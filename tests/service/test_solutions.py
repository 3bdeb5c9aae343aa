"""Twenty models through the embedded service, checked against local solves and hand results."""

import os
import random
import sqlite3

import pytest

from service_harness import client, local_solve, market_split, mps_bytes, service, velmorpy  # noqa: F401


def lp_small(xname="xcolumn1", yname="ycolumn1"):
    # max x + y  s.t.  x + 2y <= 4,  3x + y <= 6,  x, y >= 0.
    # Both rows bind: x = 8/5, y = 6/5, objective 14/5 = 2.8.
    m = velmorpy.Model("lp_small")
    x = m.addVar(name=xname)
    y = m.addVar(name=yname)
    m.setObjective(x + y, velmorpy.VLM.MAXIMIZE)
    m.addConstr(x + 2 * y <= 4, name="c1")
    m.addConstr(3 * x + y <= 6, name="c2")
    return m


def knapsack():
    # max 10a + 13b + 7c + 8d  s.t.  3a + 4b + 2c + 3d <= 7, binary.
    # Weight-7 sets: {a,b} = 23, {b,d} = 21, {a,c} and the rest weigh less and give at most 20: 23.
    m = velmorpy.Model("knapsack")
    v = [m.addVar(vtype="B", obj=c, name="item" + n + "xxxx") for c, n in zip((10, 13, 7, 8), "abcd")]
    m.ModelSense = velmorpy.VLM.MAXIMIZE
    m.addConstr(velmorpy.quicksum(w * x for w, x in zip((3, 4, 2, 3), v)) <= 7, name="cap")
    return m


def infeasible():
    # x <= 1 and x >= 2 cannot both hold.
    m = velmorpy.Model("infeasible")
    x = m.addVar(ub=1, name="x")
    m.addConstr(x >= 2, name="low")
    return m


def random_model(seed, integer):
    # Feasible by construction: every row holds at a random point of the box.
    rnd = random.Random(seed)
    n, k = 12, 8
    m = velmorpy.Model(f"rand{seed}")
    x = [m.addVar(ub=10, vtype="I" if integer else "C", obj=-rnd.randint(1, 9), name=f"col{seed:02d}_{j:03d}") for j in range(n)]
    point = [rnd.randint(0, 10) for _ in range(n)]
    for i in range(k):
        a = [rnd.randint(0, 6) for _ in range(n)]
        m.addConstr(velmorpy.quicksum(a[j] * x[j] for j in range(n)) <= sum(a[j] * point[j] for j in range(n)) + 3,
                    name=f"r{i}")
    return m


def test_twenty_models_match_local_solves(client, service):
    cases = [(lp_small(), ""), (knapsack(), ""), (infeasible(), ""),
             (market_split(4, 7), "# limits\nTimeLimit 0.5\nCSAPISecret do-not-store\n")]
    cases += [(random_model(s, integer=s % 2 == 0), "") for s in range(14)]
    submitted = []
    for model, prm in cases:
        data = mps_bytes(model)
        submitted.append((client.submit(data, prm, model.ModelName), data, prm, model.ModelName))
    bad_model = client.submit(b"NAME bad\nROWS\n N obj\n L c1\nCOLUMNS\n  x c9 1\nENDATA\n", "", "bad")
    bad_param = client.submit(mps_bytes(lp_small()), "# settings\nFoo 3\n", "badparam")

    done = client.wait_done([s[0] for s in submitted] + [bad_model, bad_param], timeout=120)

    sols = {}
    for rid, data, prm, name in submitted:
        attrs = done[rid]
        assert attrs["BatchStatus"] == 5, attrs
        assert (attrs["BatchErrorCode"], attrs["BatchErrorMessage"], attrs["ModelName"]) == (0, "", name)
        assert attrs["SubmitTime"] <= attrs["FinishTime"] and attrs["FinishTime"].endswith("Z")
        got = client.solution(rid)
        want = local_solve(data, prm)
        assert got["SolutionInfo"]["Status"] == want["SolutionInfo"]["Status"], name
        if want["SolutionInfo"]["SolCount"] and want["SolutionInfo"]["Status"] == 2:
            assert got["SolutionInfo"]["ObjVal"] == pytest.approx(want["SolutionInfo"]["ObjVal"], abs=1e-6), name
        sols[name] = got

    assert sols["lp_small"]["SolutionInfo"]["ObjVal"] == pytest.approx(2.8)
    xs = {v["VarName"]: v["X"] for v in sols["lp_small"]["Vars"]}
    assert xs == pytest.approx({"xcolumn1": 1.6, "ycolumn1": 1.2})
    assert sols["knapsack"]["SolutionInfo"]["ObjVal"] == pytest.approx(23)
    assert {v["VarName"] for v in sols["knapsack"]["Vars"] if v["X"] > 0.5} == {"itemaxxxx", "itembxxxx"}
    assert sols["infeasible"]["SolutionInfo"]["Status"] == 3  # INFEASIBLE
    assert sols["infeasible"]["SolutionInfo"]["SolCount"] == 0
    ts = sols["split4_7"]["SolutionInfo"]
    assert ts["Status"] == 9 and ts["Runtime"] < 5  # TIME_LIMIT: the 0.5 s limit reached the solve

    assert (done[bad_model]["BatchStatus"], done[bad_model]["BatchErrorCode"],
            done[bad_model]["BatchErrorMessage"]) == (4, 10012, "File 'model.mps', line 6: unknown row 'c9'")
    assert (done[bad_param]["BatchStatus"], done[bad_param]["BatchErrorCode"],
            done[bad_param]["BatchErrorMessage"]) == (
        4, 10012, "Parameter file 'params.prm', line 2: Unknown parameter 'Foo'")
    r = client.http.get(f"/batches/{bad_model}/solution")
    assert r.status_code == 409 and r.json()["code"] == 10003

    # Parameters concerning the submitting side (credentials) are never stored.
    db = sqlite3.connect(os.path.join(service.tmp, "batch.sqlite3"))
    stored = db.execute("SELECT params FROM batch_requests WHERE id = ?", (submitted[3][0],)).fetchone()[0]
    db.close()
    assert stored.decode() == "# limits\nTimeLimit 0.5\n\n"


def test_short_names_read_back(client):
    # The same LP as lp_small with columns x and y: optimum 2.8 at (1.6, 1.2). Free MPS lines with
    # one-letter names ("    x OBJ 1") also fit the fixed layout's name columns; the service must
    # solve the model the client wrote, not a fixed-format reading of it.
    rid = client.submit(mps_bytes(lp_small("x", "y")), "", "short")
    assert client.wait_done([rid], timeout=60)[rid]["BatchStatus"] == 5
    sol = client.solution(rid)
    assert sol["SolutionInfo"]["ObjVal"] == pytest.approx(2.8)
    assert {v["VarName"]: v["X"] for v in sol["Vars"]} == pytest.approx({"x": 1.6, "y": 1.2})
