"""Column: a variable's (coefficient, constraint) terms."""
import copy

import pytest

import velmorpy as vp
from velmorpy import VelmorError
from model.test_model import lib


@pytest.fixture
def constrs(env):
    """Three updated constraints c0, c1, c2 over one variable."""
    m = vp.Model(env=env)
    x = lib.add_var(m, "x")
    m.update()
    cs = [lib.add_constr(m, f"c{i}", [(1.0, x)], "<", 1.0) for i in range(3)]
    m.update()
    yield cs
    m.dispose()


def terms(col):
    return list(zip(col._coeffs, col._constrs))


def test_empty_column():
    col = vp.Column()
    assert col.size() == 0 and col._coeffs == [] and col._constrs == []
    assert repr(col) == "<velmor.Column: >"


def test_single_term_and_list_forms_agree(constrs):
    c0, c1, _ = constrs
    a, b = vp.Column(1, c0), vp.Column([1.0], (c0,))
    assert terms(a) == terms(b) == [(1.0, c0)] and type(a._coeffs[0]) is float
    col = vp.Column((x for x in [2, 3.5]), [c0, c1])
    assert terms(col) == [(2.0, c0), (3.5, c1)]
    assert repr(col) == "<velmor.Column: 2.0 c0 3.5 c1>"


@pytest.mark.parametrize("args,shown", [((1, 2), "1, 2"), ((1.0, None), "1.0, None"),
                                        (([1.0, 2.0], "c"), "[1.0, 2.0], c"), (("ab", None), "ab, None")])
def test_constructor_rejects_other_combinations(args, shown):
    with pytest.raises(VelmorError) as info:
        vp.Column(*args)
    assert (info.value.errno, str(info.value)) == (10003, f"No constructor available for Column({shown})")


def test_constructor_rejects_mismatched_lists(constrs):
    c0, c1, _ = constrs
    with pytest.raises(VelmorError, match=r"^No constructor available for Column\(\[1\.0\], \[<velmor"):
        vp.Column([1.0], [c0, c1])
    with pytest.raises(VelmorError, match="No constructor available"):
        vp.Column([1.0, 2.0], [c0, 5])


def test_addterms_forms_and_errors(constrs):
    c0, c1, c2 = constrs
    col = vp.Column(1.0, c0)
    col.addTerms([2.0, 3.0], [c1, c2])
    col.addTerms(4, c0)
    assert terms(col) == [(1.0, c0), (2.0, c1), (3.0, c2), (4.0, c0)] and col.size() == 4
    cases = [(([1.0], c1), "Second argument should be a list of Constr"),
             (([1.0], ["c1"]), "Second argument should be a list of Constr"),
             ((1.0, "c1"), "Unsupported data type (<class 'str'>) for constraint argument"),
             (([1.0, 2.0], [c1]), "Coefficient and constraint lists have different lengths")]
    for args, text in cases:
        with pytest.raises(VelmorError) as info:
            col.addTerms(*args)
        assert (info.value.errno, str(info.value)) == (10003, text)
    with pytest.raises(TypeError):
        col.addTerms(["a"], [c1])
    assert col.size() == 4  # failed calls add nothing


def test_term_access_uses_python_index_rules(constrs):
    c0, c1, _ = constrs
    col = vp.Column([1.0, 2.0], [c0, c1])
    assert (col.getCoeff(1), col.getConstr(-1)) == (2.0, c1)
    with pytest.raises(IndexError):
        col.getCoeff(2)
    with pytest.raises(IndexError):
        col.getConstr(-3)


def test_remove_by_position_and_by_constraint(constrs):
    c0, c1, c2 = constrs
    col = vp.Column([1.0, 2.0, 3.0, 4.0], [c0, c1, c0, c2])
    col.remove(vp.Constr(c0._cmodel, 0))  # another handle of c0
    assert terms(col) == [(2.0, c1), (4.0, c2)]
    col.remove(-1)
    assert terms(col) == [(2.0, c1)]
    with pytest.raises(IndexError):
        col.remove(5)
    with pytest.raises(VelmorError, match=r"^Unsupported data type \(<class 'str'>\) for Column.remove argument$"):
        col.remove("c1")


def test_clear_and_copy(constrs):
    c0, c1, _ = constrs
    col = vp.Column([1.0, 2.0], [c0, c1])
    dup, shallow = col.copy(), copy.copy(col)
    col.clear()
    assert col.size() == 0 and terms(dup) == terms(shallow) == [(1.0, c0), (2.0, c1)]
    assert dup._constrs[0] is c0 and dup._coeffs is not col._coeffs


def test_normalize_merges_terms_of_one_constraint(constrs):
    c0, c1, c2 = constrs
    col = vp.Column([1.0, 2.0, 3.0, 4.0, 5.0], [c1, c0, c1, c2, vp.Constr(c0._cmodel, 0)])
    col._normalize()
    assert terms(col) == [(4.0, c1), (7.0, c0), (4.0, c2)]
    pending_a, pending_b = vp.Constr(c0._cmodel, -1), vp.Constr(c0._cmodel, -1)
    col = vp.Column([1.0, 1.0], [pending_a, pending_b])
    col._normalize()
    assert col.size() == 2
