"""chgCoeff over matrix objects: pairs of an MConstr and an MVar of one size change many
coefficients in one call, read back through getA() after the update; wrong counts are refused
before anything changes.
"""
import numpy as np
import pytest

import velmorpy as vp
from velmorpy import VLM


def model_with_rows(env):
    # rows: c0 = x0 + x1 + x2 <= 10, c1 = x0 + x2 <= 5, with x as a (3,) MVar
    m = vp.Model(env=env)
    x = m.addMVar(3)
    A = np.array([[1.0, 1.0, 1.0], [1.0, 0.0, 1.0]])
    c = m.addMConstr(A, x, "<", np.array([10.0, 5.0]))
    m.update()
    return m, x, c


def test_pairs_with_an_array_of_values(env):
    m, x, c = model_with_rows(env)
    # (c0, x1) -> 4 and (c1, x1) -> 7: the second is a new nonzero.
    m.chgCoeff(c, x[[1, 1]], np.array([4.0, 7.0]))
    assert m.getA().toarray().tolist() == [[1, 1, 1], [1, 0, 1]]  # pending until the update
    m.update()
    assert m.getA().toarray().tolist() == [[1, 4, 1], [1, 7, 1]]


def test_one_value_for_every_pair_and_one_row_with_many_columns(env):
    m, x, c = model_with_rows(env)
    m.chgCoeff(c, x[[0, 2]], 3.0)
    m.update()
    assert m.getA().toarray().tolist() == [[3, 1, 1], [1, 0, 3]]
    # One constraint paired with each variable; a zero removes the coefficient.
    m.chgCoeff(c[1], x, np.array([0.0, 2.0, 0.0]))
    m.update()
    A = m.getA()
    assert A.toarray().tolist() == [[3, 1, 1], [0, 2, 0]]
    assert A.getrow(1).nnz == 1


def test_two_dimensional_pairs_are_read_in_c_order(env):
    m = vp.Model(env=env)
    x = m.addMVar((2, 2))
    c = m.addMConstr(np.eye(4), x.reshape(-1), ">", np.zeros(4))
    m.chgCoeff(c.reshape(2, 2), x, np.array([[2.0, 3.0], [4.0, 5.0]]))
    m.update()
    assert np.array_equal(m.getA().toarray(), np.diag([2.0, 3.0, 4.0, 5.0]))


def test_mismatched_counts_change_nothing(env):
    m, x, c = model_with_rows(env)
    with pytest.raises(vp.VelmorError) as e:
        m.chgCoeff(c, x, 1.0)
    assert str(e.value) == "chgCoeff() got different numbers of constraints and variables"
    assert e.value.errno == VLM.ERROR_INVALID_ARGUMENT
    with pytest.raises(vp.VelmorError) as e:
        m.chgCoeff(c, x[:2], np.array([1.0, 2.0, 3.0]))
    assert str(e.value) == "chgCoeff() got a wrong number of values"
    m.update()
    assert m.getA().toarray().tolist() == [[1, 1, 1], [1, 0, 1]]
