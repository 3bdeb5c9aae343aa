"""Matrix expressions and constraints: A @ x with dense and sparse A, broadcasting sums and
products, sum over axes, comparisons into Model.addConstr, addMConstr, setMObjective, getA.

Models built in matrix form are compared with twins built by loops over Var objects: the
same optimum, and the same constraint matrix read back with getA().

Not tested here: quadratic matrix expressions (x @ Q @ x, x * y), which are not built; the
quadratic objective is tested through setMObjective.
"""
import numpy as np
import pytest
import scipy.sparse as sp

import velmorpy as vp
from velmorpy import VLM, VelmorError


@pytest.fixture
def m(env):
    model = vp.Model("matrix", env=env)
    yield model
    model.dispose()


def dense(a):
    return a.toarray() if sp.issparse(a) else np.asarray(a)


# ---- solves against loop-built twins ---------------------------------------------------------

# Diet: min 2 x0 + 3 x1 s.t. x0 + 2 x1 >= 4, 3 x0 + x1 >= 6, x >= 0. The two rows meet at
# x = (1.6, 1.2), cost 6.8; the other vertices (4, 0) and (0, 6) cost 8 and 18.
def test_diet_in_matrix_form_matches_the_loop_twin(env):
    N = np.array([[1.0, 2.0], [3.0, 1.0]])
    req = np.array([4.0, 6.0])
    cost = np.array([2.0, 3.0])
    results = []
    for matrix_form in (True, False):
        m = vp.Model(env=env)
        if matrix_form:
            x = m.addMVar(2, obj=cost)
            c = m.addConstr(N @ x >= req)
            assert c.shape == (2,)
        else:
            x = [m.addVar(obj=cost[j]) for j in range(2)]
            for i in range(2):
                m.addConstr(vp.quicksum(N[i, j] * x[j] for j in range(2)) >= req[i])
        m.optimize()
        results.append((m.ObjVal, dense(m.getA())))
        if matrix_form:
            assert np.allclose(x.X, [1.6, 1.2]) and np.allclose(c.Slack, [0.0, 0.0])
            assert np.allclose((N @ x).getValue(), req)
        m.dispose()
    assert results[0][0] == pytest.approx(6.8) and results[1][0] == pytest.approx(6.8)
    assert np.array_equal(results[0][1], N) and np.array_equal(results[1][1], N)


# Transport: supplies (20, 30), demands (10, 25, 15), costs [[8, 6, 10], [9, 12, 13]]. Sending
# 20 from s0 to d1 and 10, 5, 15 from s1 to d0, d1, d2 costs 465; with u = (-6, 0) and
# v = (9, 12, 13) every reduced cost (5 and 3 for the unused routes) is >= 0, so it is optimal.
def test_transport_with_axis_sums_matches_the_loop_twin(env):
    supply = np.array([20.0, 30.0])
    demand = np.array([10.0, 25.0, 15.0])
    cost = np.array([[8.0, 6.0, 10.0], [9.0, 12.0, 13.0]])
    objs, matrices = [], []
    for matrix_form in (True, False):
        m = vp.Model(env=env)
        if matrix_form:
            x = m.addMVar((2, 3), obj=cost, name="x")
            rows = m.addConstr(x.sum(axis=1) <= supply, name="s")
            cols = m.addConstr(x.sum(axis=0) == demand, name="d")
            assert rows.shape == (2,) and cols.shape == (3,)
        else:
            x = {(i, j): m.addVar(obj=cost[i, j], name=f"x[{i},{j}]") for i in range(2) for j in range(3)}
            for i in range(2):
                m.addConstr(vp.quicksum(x[i, j] for j in range(3)) <= supply[i], name=f"s[{i}]")
            for j in range(3):
                m.addConstr(vp.quicksum(x[i, j] for i in range(2)) == demand[j], name=f"d[{j}]")
        m.optimize()
        objs.append(m.ObjVal)
        matrices.append(dense(m.getA()))
        if matrix_form:
            assert rows.ConstrName.tolist() == ["s[0]", "s[1]"]
            assert np.allclose(x.X.sum(axis=0), demand)
            assert np.allclose(cols.Pi, [9.0, 12.0, 13.0]) or np.allclose(cols.Pi + rows.Pi[1], [9.0, 12.0, 13.0])
        m.dispose()
    assert objs == [pytest.approx(465.0)] * 2
    assert np.array_equal(matrices[0], matrices[1])


# ---- A @ x for every constant matrix kind -----------------------------------------------------

A = np.array([[1.0, 0.0, 2.0], [0.0, -3.0, 0.5]])
KINDS = [np.asarray, sp.csr_matrix, sp.csc_matrix, sp.coo_matrix, sp.csr_array, sp.csc_array, sp.coo_array]


@pytest.mark.parametrize("kind", KINDS, ids=lambda k: k.__name__)
def test_matmul_with_dense_and_sparse_writes_the_same_rows(m, kind):
    x = m.addMVar(3)
    c = m.addConstr(kind(A) @ x <= np.array([1.0, 2.0]))
    d = m.addConstr(x @ kind(A.T) >= -1.0)
    m.update()
    assert c.shape == (2,) and d.shape == (2,)
    assert np.array_equal(dense(m.getA()), np.vstack([A, A]))
    assert c.RHS.tolist() == [1.0, 2.0] and d.RHS.tolist() == [-1.0, -1.0]
    assert "".join(c.Sense) + "".join(d.Sense) == "<<>>"


def test_matmul_with_matrices_of_variables(m):
    X = m.addMVar((3, 2))
    M = np.array([[1.0, 2.0, 3.0]])
    left = M @ X            # (1, 2): sum_i M[0, i] X[i, j]
    right = X @ np.array([[1.0], [-1.0]])  # (3, 1): X[i, 0] - X[i, 1]
    assert left.shape == (1, 2) and right.shape == (3, 1)
    m.addConstr(left == 0)
    m.addConstr(right == 0)
    m.update()
    expected = np.zeros((5, 6))
    expected[0, [0, 2, 4]] = [1, 2, 3]
    expected[1, [1, 3, 5]] = [1, 2, 3]
    for i in range(3):
        expected[2 + i, 2 * i] = 1
        expected[2 + i, 2 * i + 1] = -1
    assert np.array_equal(dense(m.getA()), expected)
    assert (np.ones(3) @ X).shape == (2,) and (X @ np.ones(2)).shape == (3,)


def test_shape_errors_name_both_shapes(m):
    x = m.addMVar(5)
    y = m.addMVar(3)
    with pytest.raises(VelmorError) as err:
        np.ones((3, 4)) @ x
    assert err.value.errno == VLM.ERROR_INVALID_ARGUMENT
    assert "(3, 4)" in str(err.value) and "(5,)" in str(err.value)
    with pytest.raises(VelmorError, match=r"Incompatible shapes for broadcasting: \(5,\) and \(3,\)"):
        x + y
    with pytest.raises(VelmorError, match=r"Invalid axis specifications: 1"):
        x.sum(axis=1)
    with pytest.raises(VelmorError, match=r"Invalid axis specifications: \(0, 0\)"):
        m.addMVar((2, 2)).sum(axis=(0, 0))
    with pytest.raises(ZeroDivisionError, match="float division"):
        x / 0
    with pytest.raises(ZeroDivisionError, match="float division"):
        (2 * x) / np.array([1.0, 0.0, 1.0, 1.0, 1.0])
    m.update()
    assert m.NumConstrs == 0


# ---- broadcasting arithmetic -----------------------------------------------------------------

# x (2, 3) and y (3,): 2 * x - y / 2 + 1 broadcasts y over the rows.
def test_broadcast_arithmetic_gives_the_rows_written(m):
    x = m.addMVar((2, 3))
    y = m.addMVar(3)
    e = 2 * x - y / 2 + 1
    assert type(e).__name__ == "MLinExpr" and e.shape == (2, 3)
    c = m.addConstr(e <= np.arange(6.0).reshape(2, 3))
    m.update()
    assert c.shape == (2, 3)
    a = dense(m.getA())
    for i in range(2):
        for j in range(3):
            row = np.zeros(9)
            row[3 * i + j] = 2.0
            row[6 + j] = -0.5
            assert np.array_equal(a[3 * i + j], row)
    assert c.RHS.tolist() == [[-1.0, 0.0, 1.0], [2.0, 3.0, 4.0]]


def test_ndarray_operands_on_the_left_defer_to_the_expression(m):
    x = m.addMVar(3)
    for e in (np.ones(3) + x, np.ones(3) - x, np.array([1.0, 2.0, 3.0]) * x, -x, +x):
        assert type(e).__name__ == "MLinExpr" and e.shape == (3,)
    c = m.addConstr(np.zeros(3) <= -x)   # reflected: -x >= 0
    m.update()
    assert "".join(c.Sense) == ">>>" and np.array_equal(dense(m.getA()), -np.eye(3))
    t = np.array([1.0, 2.0, 3.0]) * x
    assert np.array_equal(dense(t._coef), np.diag([1.0, 2.0, 3.0]))
    assert np.array_equal(dense((x / [1.0, 2.0, 4.0])._coef), np.diag([1.0, 0.5, 0.25]))
    assert np.array_equal(dense((x * (2, 1, 0))._coef), np.diag([2.0, 1.0, 0.0]))


def test_sum_indexing_and_items(m):
    x = m.addMVar((2, 3), name="x")
    m.update()
    assert x.sum().shape == () and x.sum(axis=(0, 1)).shape == ()
    assert str(x.sum(axis=1)[0].item()) == "x[0,0] + x[0,1] + x[0,2]"
    assert repr(x[0].sum() - 1) == "<velmor.MLinExpr (): [-1.0 + x[0,0] + x[0,1] + x[0,2]]>"
    assert [e.shape for e in 2 * x] == [(3,), (3,)] and sum(x).shape == (3,)
    assert x.sum(axis=-1).shape == (2,)
    lin = (x.sum() + 4).item()
    assert lin.size() == 6 and lin.getConstant() == 4.0
    e = (3 * x)[1, 1:]
    assert e.shape == (2,) and [e[k].item().getCoeff(0) for k in range(2)] == [3.0, 3.0]
    assert (x + x).T.shape == (3, 2) and x.sum(axis=0).reshape(3, 1).shape == (3, 1)
    v = m.addVar(name="v")
    m.update()
    mixed = x + v
    assert mixed.shape == (2, 3) and mixed[0, 0].item().size() == 2


# ---- addMConstr and the objective ------------------------------------------------------------

# max x0 + x1 + x2 s.t. x0 + 2 x1 <= 4, x1 + x2 <= 5, lb (-1, -2, -1), ub 10: x1 = -2 frees
# x0 = 8 and x2 = 7, so the optimum is 13.
@pytest.mark.parametrize("kind", [np.asarray, sp.csr_matrix, sp.coo_array])
def test_addmconstr_and_setmobjective(m, kind):
    x = m.addMVar(3, lb=[-1, -2, -1], ub=10)
    c = m.addMConstr(kind(np.array([[1.0, 2.0, 0.0], [0.0, 1.0, 1.0]])), x, "<", np.array([4.0, 5.0]), name="c")
    m.setMObjective(None, np.ones(3), 0.0, xc=x, sense=VLM.MAXIMIZE)
    m.optimize()
    assert m.ObjVal == pytest.approx(13.0)
    assert np.allclose(x.X, [8.0, -2.0, 7.0]) and c.ConstrName.tolist() == ["c[0]", "c[1]"]


def test_addmconstr_refuses_mismatched_dimensions(m):
    x = m.addMVar(3)
    with pytest.raises(VelmorError, match=r"A has shape \(2, 2\) but x has 3 variables"):
        m.addMConstr(np.eye(2), x, "<", np.ones(2))
    with pytest.raises(VelmorError, match=r"b has shape \(3,\)"):
        m.addMConstr(np.ones((2, 3)), x, "<", np.ones(3))
    m.update()  # x=None means the variables of the updated model
    c = m.addMConstr(np.ones((2, 3)), None, np.array(["<", ">"]), np.ones(2))
    m.update()
    assert m.NumConstrs == 2 and "".join(c.Sense) == "<>"


# min x0^2 + 2 x1^2 - 0 s.t. x0 + x1 = 1: the gradient condition 2 x0 = 4 x1 gives
# x = (2/3, 1/3) and the value 4/9 + 2/9 = 2/3, plus the constant 1.
def test_setmobjective_quadratic(m):
    x = m.addMVar(2, lb=-10)
    m.addConstr(x.sum() == 1)
    m.setMObjective(sp.diags([1.0, 2.0]), None, 1.0, xQ_L=x, xQ_R=x)
    m.optimize()
    assert m.ObjVal == pytest.approx(1.0 + 2.0 / 3.0, abs=1e-6)
    assert np.allclose(x.X, [2.0 / 3.0, 1.0 / 3.0], atol=1e-5)


# min 3 x0 - 2 x1 + 5 with 0 <= x <= 1 given as a 0-d MLinExpr: x = (0, 1), value 3.
def test_setobjective_takes_a_one_element_matrix_expression(m):
    x = m.addMVar(2, ub=1)
    m.setObjective(np.array([3.0, -2.0]) @ x + 5)
    m.optimize()
    assert m.ObjVal == pytest.approx(3.0) and x.X.tolist() == [0.0, 1.0]
    m.setObjective(x.sum(), VLM.MAXIMIZE)
    m.optimize()
    assert m.ObjVal == pytest.approx(2.0)
    with pytest.raises(VelmorError, match=r"not a matrix expression of shape \(2,\)"):
        m.setObjective(2 * x)
    with pytest.raises(VelmorError, match=r"not a matrix expression of shape \(2,\)"):
        m.setObjective(x * x)
    with pytest.raises(VelmorError, match="VLM.MINIMIZE or VLM.MAXIMIZE"):
        m.setObjective(x.sum(), 5)


def test_setobjectiven_takes_a_one_element_matrix_expression(m):
    x = m.addMVar(2, ub=1, name="x")
    m.setObjectiveN(np.array([1.0, 2.0]) @ x + 3, 0)
    m.update()
    assert str(m.getObjective(0)) == "3.0 + x[0] + 2.0 x[1]"
    with pytest.raises(ValueError, match="size 1"):
        m.setObjectiveN(2 * x, 1)
    with pytest.raises(VelmorError, match="Objective must be linear"):
        m.setObjectiveN(x @ x, 1)


def test_getq_returns_the_quadratic_terms_written(m):
    x = m.addMVar(3)
    m.update()
    assert m.getQ().nnz == 0
    Q = np.array([[1.0, 0.0, 2.0], [0.0, 0.0, 0.0], [0.0, 0.0, 3.0]])
    m.setMObjective(Q, None, 0.0)
    m.update()
    q = m.getQ()
    assert q.shape == (3, 3) and np.array_equal(q.toarray(), Q)


# A random sparse LP (seeded): max c'x s.t. A x <= b, 0 <= x <= 10, with b = A x0 + 1 for a
# point x0 inside the box, so the model is feasible and bounded. No hand optimum: the matrix
# form must reach the loop twin's value, and its solution must satisfy the rows.
@pytest.mark.parametrize("fmt", ["csr", "csc", "coo"])
def test_sparse_lp_matches_the_loop_twin(env, fmt):
    rng = np.random.default_rng(7)
    A = sp.random(60, 40, density=0.15, random_state=rng, format=fmt) - sp.random(60, 40, density=0.05,
                                                                                  random_state=rng, format=fmt)
    b = A @ rng.uniform(0, 10, 40) + 1.0
    c = rng.uniform(0.5, 2.0, 40)
    objs = []
    for matrix_form in (True, False):
        m = vp.Model(env=env)
        if matrix_form:
            x = m.addMVar(40, ub=10.0)
            m.addMConstr(A, x, "<", b)
            m.setObjective(c @ x, VLM.MAXIMIZE)
        else:
            x = [m.addVar(ub=10.0) for _ in range(40)]
            Ar = sp.csr_matrix(A)
            for i in range(60):
                lo, hi = Ar.indptr[i], Ar.indptr[i + 1]
                m.addConstr(vp.quicksum(v * x[j] for j, v in zip(Ar.indices[lo:hi], Ar.data[lo:hi])) <= b[i])
            m.setObjective(vp.quicksum(c[j] * x[j] for j in range(40)), VLM.MAXIMIZE)
        m.optimize()
        objs.append(m.ObjVal)
        if matrix_form:
            assert np.all(A @ x.X <= b + 1e-6) and np.allclose(dense(m.getA()), dense(A))
        m.dispose()
    assert objs[0] == pytest.approx(objs[1], rel=1e-9)


# Pieces of one MVar share its variables: x[1:] - x[:-1] has one column per variable, with
# +1 and -1 in each row, whether the variables are placed (immediate update mode) or pending.
@pytest.mark.parametrize("update_mode", [1, 0])
def test_slices_of_one_mvar_keep_one_column_per_variable(env, update_mode):
    m = vp.Model(env=env)
    m.Params.UpdateMode = update_mode
    x = m.addMVar(5)
    d = x[1:] - x[:-1]
    q = x[1:] * x[:-1] + 2 * x[:4] * x[:4]
    assert d._vars.size == 5 and q._vars.size == 5
    coef = dense(d._coef)
    col = {id(v): k for k, v in enumerate(d._vars)}
    for i in range(4):
        assert coef[i, col[id(x.tolist()[i + 1])]] == 1.0 and coef[i, col[id(x.tolist()[i])]] == -1.0
        assert np.count_nonzero(coef[i]) == 2
    assert q._qcoef.nnz == 8
    m.dispose()
