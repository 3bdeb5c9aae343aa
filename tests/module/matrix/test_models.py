"""Whole models written in matrix form against their loop-built twins: the facility-location
model (its broadcasting over four dimensions, sums over an axis, constants on either side and
quadratic rows) must give exactly the rows of the model built one Var at a time.

The twins add their rows in different orders, so rows are compared as sets.
"""
import sys
from pathlib import Path

import numpy as np
import pytest

import velmorpy as vp

sys.path.insert(0, str(Path(__file__).resolve().parents[3] / "benchmarks"))
from matrix_facility import loop_form, matrix_form  # noqa: E402


def linear_rows(m):
    a = m.getA().tocsr()
    senses, rhs = m.getAttr("Sense"), m.getAttr("RHS")
    out = set()
    for i in range(a.shape[0]):
        lo, hi = a.indptr[i], a.indptr[i + 1]
        terms = tuple(sorted((int(c), round(float(v), 12)) for c, v in zip(a.indices[lo:hi], a.data[lo:hi])))
        out.add((terms, senses[i], round(rhs[i], 12)))
    return out


def quadratic_rows(m):
    out = set()
    for qc in m.getQConstrs():
        q = m.getQCRow(qc)
        quad = {}
        for k in range(q.size()):
            key = tuple(sorted((q.getVar1(k).index, q.getVar2(k).index)))
            quad[key] = quad.get(key, 0.0) + q.getCoeff(k)
        lin = q.getLinExpr()
        terms = tuple(sorted((lin.getVar(k).index, lin.getCoeff(k)) for k in range(lin.size())))
        out.add((tuple(sorted(quad.items())), terms, qc.QCSense, qc.QCRHS))
    return out


@pytest.mark.parametrize("G", [2, 3])
def test_facility_in_matrix_form_writes_the_rows_of_the_loop_twin(env, G):
    models = []
    for build in (matrix_form, loop_form):
        m = vp.Model(env=env)
        build(m, G, G)
        m.update()
        models.append(m)
    mat, loop = models
    n = G + 1
    assert mat.NumVars == loop.NumVars == G * 2 + 4 * n * n * G + 1
    assert mat.NumConstrs == loop.NumConstrs == n * n * (1 + 3 * G)
    assert mat.NumQConstrs == loop.NumQConstrs == n * n * G
    assert mat.getAttr("VType") == loop.getAttr("VType")
    assert mat.getAttr("LB") == loop.getAttr("LB") and mat.getAttr("UB") == loop.getAttr("UB")
    assert linear_rows(mat) == linear_rows(loop)
    assert quadratic_rows(mat) == quadratic_rows(loop)
    assert np.array_equal(mat.getAttr("Obj"), loop.getAttr("Obj"))
    for m in models:
        m.dispose()


# The control problem is a convex QP; no hand optimum, but both forms must reach the same value
# and write the same rows.
def test_lqcp_in_matrix_form_matches_the_loop_twin(env):
    from matrix_lqcp import loop_form as lqcp_loops, matrix_form as lqcp_matrix
    values, rows, q = [], [], []
    for build in (lqcp_matrix, lqcp_loops):
        m = vp.Model(env=env)
        build(m, 6)
        m.optimize()
        values.append(m.ObjVal)
        rows.append(linear_rows(m))
        qm = m.getQ().tocsr()
        qm.sum_duplicates()
        q.append(qm.toarray())
        m.dispose()
    assert values[0] == pytest.approx(values[1], rel=1e-7, abs=1e-12) and values[0] > 0
    assert rows[0] == rows[1]
    assert np.allclose(q[0], q[1])
