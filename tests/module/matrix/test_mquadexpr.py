"""Quadratic matrix expressions: x @ Q @ x, x * y, x ** 2 and products of linear matrix
expressions; the quadratic objective and quadratic matrix constraints they give.

Portfolio models built in matrix form are solved against hand-derived optima and against
twins built with QuadExpr loops. The engine does not solve models with quadratic constraints
yet, so those are checked by reading the rows back (getQCRow, QCRHS, QCSense).
"""
import numpy as np
import pytest
import scipy.sparse as sp

import velmorpy as vp
from velmorpy import VLM, VelmorError


@pytest.fixture
def m(env):
    model = vp.Model("mquad", env=env)
    yield model
    model.dispose()


def quad_terms(q):
    """The quadratic terms of a QuadExpr as {(name, name): coeff}, pairs unordered."""
    out = {}
    for i in range(q.size()):
        a, b = sorted((q.getVar1(i).VarName, q.getVar2(i).VarName))
        out[a, b] = out.get((a, b), 0.0) + q.getCoeff(i)
    return out


# min 2 x0^2 + x1^2 s.t. x0 + x1 = 1, x0 + 2 x1 >= 1.8, x >= 0: without the return row the
# optimum is x = (1/3, 2/3); the row asks x1 >= 0.8, so x = (0.2, 0.8) and the risk is
# 2 * 0.04 + 0.64 = 0.72.
def test_portfolio_with_x_Q_x_reaches_the_hand_optimum(m):
    sigma = np.array([[2.0, 0.0], [0.0, 1.0]])
    mu = np.array([1.0, 2.0])
    x = m.addMVar(2, name="x")
    m.addConstr(x.sum() == 1)
    m.addConstr(mu @ x >= 1.8)
    risk = x @ sigma @ x
    assert type(risk).__name__ == "MQuadExpr" and risk.shape == ()
    m.setObjective(risk)
    m.optimize()
    assert m.ObjVal == pytest.approx(0.72, abs=1e-6)
    assert np.allclose(x.X, [0.2, 0.8], atol=1e-5)
    assert risk.getValue() == pytest.approx(0.72, abs=1e-6)


# A three-asset portfolio with correlations, matrix form against a QuadExpr loop: both must
# reach the same risk.
def test_portfolio_matches_the_loop_twin(env):
    sigma = np.array([[0.10, 0.02, 0.04], [0.02, 0.08, 0.01], [0.04, 0.01, 0.12]])
    mu = np.array([0.05, 0.07, 0.09])
    values = []
    for matrix_form in (True, False):
        m = vp.Model(env=env)
        if matrix_form:
            x = m.addMVar(3)
            m.addConstr(x.sum() == 1)
            m.addConstr(mu @ x >= 0.07)
            m.setObjective(x @ sp.csr_matrix(sigma) @ x)
        else:
            x = [m.addVar() for _ in range(3)]
            m.addConstr(vp.quicksum(x) == 1)
            m.addConstr(vp.quicksum(mu[i] * x[i] for i in range(3)) >= 0.07)
            m.setObjective(vp.quicksum(sigma[i, j] * x[i] * x[j] for i in range(3) for j in range(3)))
        m.optimize()
        values.append(m.ObjVal)
        m.dispose()
    assert values[0] == pytest.approx(values[1], rel=1e-6) and values[0] > 0


def test_elementwise_products_and_powers_build_the_terms_written(m):
    x = m.addMVar(3, name="x")
    y = m.addMVar((2, 1), name="y")
    m.update()
    p = x * y                      # (2, 3): y[i, 0] * x[j]
    assert type(p).__name__ == "MQuadExpr" and p.shape == (2, 3)
    assert quad_terms(p[1, 2].item()) == {("x[2]", "y[1,0]"): 1.0}
    sq = (x ** 2)[1].item()
    assert quad_terms(sq) == {("x[1]", "x[1]"): 1.0}
    # (x0 + 1)(2 x1 - 3) = 2 x0 x1 - 3 x0 + 2 x1 - 3
    e = ((x[0] + 1) * (2 * x[1] - 3)).item()
    assert quad_terms(e) == {("x[0]", "x[1]"): 2.0}
    lin = {e.getLinExpr().getVar(i).VarName: e.getLinExpr().getCoeff(i) for i in range(e.getLinExpr().size())}
    assert lin == {"x[0]": -3.0, "x[1]": 2.0} and e.getLinExpr().getConstant() == -3.0
    assert (vp.MQuadExpr._from_mvar_times_mvar(x, x)).shape == (3,)


def test_matrix_products_of_two_expressions(m):
    X = m.addMVar((2, 3), name="X")
    v = m.addMVar(3, name="v")
    m.update()
    assert (X @ v).shape == (2,) and (v @ X.T).shape == (2,) and (X @ X.T).shape == (2, 2)
    assert quad_terms((X @ v)[1].item()) == {("X[1,%d]" % j, "v[%d]" % j): 1.0 for j in range(3)}
    with pytest.raises(VelmorError, match=r"Incompatible shapes for matrix product: \(2, 3\) and \(2, 3\)"):
        X @ X


def test_sums_and_scaling_keep_quadratic_terms(m):
    x = m.addMVar(2, name="x")
    y = m.addMVar(2, name="y")
    m.update()
    e = 3 * (x * x) - (y * y) / 2 + x + 1
    total = e.sum().item()
    assert quad_terms(total) == {("x[0]", "x[0]"): 3.0, ("x[1]", "x[1]"): 3.0,
                                 ("y[0]", "y[0]"): -0.5, ("y[1]", "y[1]"): -0.5}
    assert total.getLinExpr().getConstant() == 2.0
    with pytest.raises(VelmorError, match="at most quadratic"):
        (x * x) * x


# ---- constraints -----------------------------------------------------------------------------

def test_quadratic_matrix_constraints_read_back(m):
    y = m.addMVar(3, lb=-5, name="y")
    q = m.addConstr(y * y <= np.array([1.0, 4.0, 9.0]), name="q")
    ball = m.addConstr(y @ y <= 3)
    m.update()
    assert type(q).__name__ == "MQConstr" and q.shape == (3,) and ball.shape == ()
    assert m.NumQConstrs == 4
    assert q.QCRHS.tolist() == [1.0, 4.0, 9.0] and q.QCName.tolist() == ["q[0]", "q[1]", "q[2]"]
    assert "".join(q.QCSense) == "<<<"
    row = m.getQCRow(ball.item())
    assert quad_terms(row) == {("y[%d]" % i, "y[%d]" % i): 1.0 for i in range(3)}
    # One bad row refuses the whole block.
    with pytest.raises(VelmorError, match="Right-hand side NaN of quadratic constraint 4 is not a number") as err:
        m.addConstr(y * y <= np.array([1.0, np.nan, 2.0]))
    assert err.value.errno == VLM.ERROR_INVALID_ARGUMENT
    m.update()
    assert m.NumQConstrs == 4


def test_addmqconstr_writes_one_constraint_and_checks_shapes(m):
    x = m.addMVar(2, name="x")
    c = m.addMQConstr(np.array([[1.0, 1.0], [0.0, 2.0]]), np.array([3.0, 0.0]), "<", 5.0, x, x, x, name="qc")
    m.update()
    assert c.shape == (1,) and c.QCName.tolist() == ["qc"] and c.QCRHS.tolist() == [5.0]
    row = m.getQCRow(c.item())
    assert quad_terms(row) == {("x[0]", "x[0]"): 1.0, ("x[0]", "x[1]"): 1.0, ("x[1]", "x[1]"): 2.0}
    assert row.getLinExpr().getCoeff(0) == 3.0
    with pytest.raises(VelmorError, match=r"Q has shape \(3, 3\) for 2 and 2 variables"):
        m.addMQConstr(np.eye(3), None, "<", 1.0, x, x)
    with pytest.raises(VelmorError, match="Invalid sense"):
        m.addMQConstr(np.eye(2), None, "!", 1.0, x, x)
    m.update()
    assert m.NumQConstrs == 1


# With K variables the quadratic coefficients have K² columns: 40,000 variables give 1.6e9
# columns, so any step whose workspace is one entry per column would need tens of gigabytes.
def test_quadratic_algebra_scales_with_terms_not_columns(m):
    x = m.addMVar(20000)
    Q = sp.diags([np.ones(19999), 2 * np.ones(20000), np.ones(19999)], [-1, 0, 1], format="csr")
    e = x @ Q @ x + 3 * (x * x).sum() - 0.5 * (x * x)[:10].sum()
    assert e.shape == () and e._qcoef.nnz <= 3 * 20000 * 2
    m.update()
    m.setObjective(e)
    m.update()
    # Each pair once: diagonal 2 + 3 (- 0.5 for the first ten), neighbours 1 + 1.
    q = m.getQ().tocsr()
    assert q.nnz == 20000 + 19999
    assert q[0, 0] == 4.5 and q[10, 10] == 5.0 and q[5, 6] + q[6, 5] == 2.0
