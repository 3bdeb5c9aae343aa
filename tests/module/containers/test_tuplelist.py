"""tuplelist: pattern selection through cached indexes, the element checks, neighbours, repr;
and multidict.

Not tested here: selection speed (benchmarks/), the tupledict side of the key list
(test_tupledict.py).
"""
import copy
import pickle
import random

import pytest

import velmorpy as vp

PAIRS = [(1, 2), (1, 3), (2, 3), (2, 4)]


@pytest.fixture
def pairs():
    return vp.tuplelist(PAIRS)


def brute_select(items, pattern, wild="*"):
    """The selection rule written out naively: a list argument matches any of its values."""
    for i, v in enumerate(pattern):
        if isinstance(v, list):
            out = []
            for item in v:
                out += brute_select(items, pattern[:i] + (item,) + pattern[i + 1:], wild)
            return out
    return [t for t in items
            if all(v == wild or (i < len(t) and t[i] == v) for i, v in enumerate(pattern))
            and all(i < len(t) for i, v in enumerate(pattern) if v != wild)]


class TestSelect:
    def test_wildcards_pick_fields(self, pairs):
        assert pairs.select("*", 3) == [(1, 3), (2, 3)]
        assert pairs.select(1, "*") == [(1, 2), (1, 3)]
        assert pairs.select(1) == [(1, 2), (1, 3)]  # fields past the pattern are free
        assert pairs.select(2, 4) == [(2, 4)]
        assert type(pairs.select(1, "*")) is vp.tuplelist

    def test_missing_value_or_too_long_pattern_gives_empty_tuplelist(self, pairs):
        for pattern in [(5, "*"), (1, 4), (1, 2, 3), ("*", "*", 0)]:
            r = pairs.select(*pattern)
            assert r == [] and type(r) is vp.tuplelist
        assert pairs.select(1, 2, "*") == [(1, 2)]  # a trailing wildcard constrains nothing

    def test_all_wildcards_return_every_member_as_new_list(self, pairs):
        for pattern in [(), ("*",), ("*", "*")]:
            r = pairs.select(*pattern)
            assert r == PAIRS and r is not pairs and type(r) is vp.tuplelist

    def test_list_arguments_concatenate_in_item_order(self, pairs):
        assert pairs.select([1, 2], 3) == [(1, 3), (2, 3)]
        assert pairs.select([2, 1], "*") == [(2, 3), (2, 4), (1, 2), (1, 3)]
        assert pairs.select([1, 1], 3) == [(1, 3), (1, 3)]
        assert pairs.select((v for v in [2]), [4, 3]) == [(2, 4), (2, 3)]
        assert pairs.select([[1], [2]], 3) == [(1, 3), (2, 3)]
        assert pairs.select([], "*") == []

    def test_strings_are_values_not_lists(self):
        words = vp.tuplelist([("ab", 1), ("a", 2), ("b", 3)])
        assert words.select("ab", "*") == [("ab", 1)]
        assert words.select(["a", "b"], "*") == [("a", 2), ("b", 3)]

    def test_equal_values_match_across_types(self):
        l = vp.tuplelist([(1, "x"), (1.0, "y"), (True, "z"), (2, "w")])
        assert l.select(1, "*") == [(1, "x"), (1.0, "y"), (True, "z")]
        assert l.select(1.0, "y") == [(1.0, "y")]

    def test_custom_wildcard(self):
        l = vp.tuplelist([(1, 2), ("*", 3)], wild=None)
        assert l.select(None, 3) == [("*", 3)]
        assert l.select("*", None) == [("*", 3)]
        assert l._tuplelist__wild is None

    def test_unhashable_field_raises_type_error(self):
        l = vp.tuplelist([(1, [2]), (2, [3])])
        assert l.select(1, "*") == [(1, [2])]
        with pytest.raises(TypeError, match="unhashable"):
            l.select("*", 5)

    def test_matches_naive_rule_on_a_grid(self):
        rng = random.Random(7)
        items = [(i, j, (i * j) % 5) for i in range(30) for j in range(20)]
        l = vp.tuplelist(items)
        choices = ["*", 0, 3, 7, 29, 40, [1, 2], [4, 4, 19]]
        for _ in range(300):
            pattern = tuple(rng.choice(choices) for _ in range(rng.randint(0, 4)))
            assert l.select(*pattern) == brute_select(items, pattern), pattern


class TestIndexCache:
    def test_same_bucket_object_until_the_list_changes(self, pairs):
        first = pairs.select(1, "*")
        assert pairs.select(1, "*") is first
        pairs.append((1, 9))
        again = pairs.select(1, "*")
        assert again is not first and again == [(1, 2), (1, 3), (1, 9)]

    def test_one_index_per_constrained_position_set(self, pairs):
        pairs.select(1, "*")
        pairs.select(2, 4)
        pairs.select("*", 3)
        index = pairs._tuplelist__index
        assert sorted(index) == [(0,), (0, 1), (1,)]
        assert sorted(index[(0,)]) == [1, 2]
        assert index[(0,)][1] is pairs.select(1, "*")
        assert sorted(index[(0, 1)]) == PAIRS
        pairs.clean()
        assert pairs._tuplelist__index == {}
        assert pairs.select(1, "*") == [(1, 2), (1, 3)]

    @pytest.mark.parametrize("mutate, expected", [
        (lambda l: l.append((1, 5)), [(1, 2), (1, 3), (1, 5)]),
        (lambda l: l.extend([(1, 6), (3, 3)]), [(1, 2), (1, 3), (1, 6)]),
        (lambda l: l.insert(0, (1, 0)), [(1, 0), (1, 2), (1, 3)]),
        (lambda l: l.pop(0), [(1, 3)]),
        (lambda l: l.remove((1, 3)), [(1, 2)]),
        (lambda l: l.__delitem__(1), [(1, 2)]),
        (lambda l: l.__delslice__(0, 1), [(1, 3)]),
        (lambda l: l.__setitem__(0, (1, 7)), [(1, 7), (1, 3)]),
        (lambda l: l.sort(reverse=True), [(1, 3), (1, 2)]),
        (lambda l: l.reverse(), [(1, 3), (1, 2)]),
        (lambda l: l.clear(), []),
        (lambda l: l.__iadd__([(1, 8)]), [(1, 2), (1, 3), (1, 8)]),
        (lambda l: l.__imul__(2), [(1, 2), (1, 3), (1, 2), (1, 3)]),
    ])
    def test_every_mutator_drops_the_indexes(self, pairs, mutate, expected):
        pairs.select(1, "*")
        assert (1, 2) in pairs
        mutate(pairs)
        assert pairs.select(1, "*") == expected
        assert pairs._tuplelist__contents is None

    def test_rejected_change_keeps_the_indexes(self, pairs):
        bucket = pairs.select(1, "*")
        with pytest.raises(ValueError):
            pairs.append(7)
        with pytest.raises(IndexError):
            pairs.pop(10)
        assert pairs.select(1, "*") is bucket

    def test_bypassing_the_methods_leaves_stale_answers(self, pairs):
        bucket = pairs.select(1, "*")
        list.append(pairs, (1, 9))
        assert pairs.select(1, "*") is bucket
        pairs.clean()
        assert pairs.select(1, "*") == [(1, 2), (1, 3), (1, 9)]


class TestElementChecks:
    def test_mixing_and_length_errors_leave_list_unchanged(self, pairs):
        for bad, message in [(7, "Cannot mix scalar and tuple values in a tuplelist"),
                             ((1, 2, 3), "All tuples in a tuplelist must be the same length")]:
            with pytest.raises(ValueError) as err:
                pairs.append(bad)
            assert err.value.args == (message,)
            with pytest.raises(ValueError, match="^" + message.replace("(", r"\(") + "$"):
                pairs.extend([(9, 9), bad])
            with pytest.raises(ValueError):
                pairs.insert(0, bad)
            assert pairs == PAIRS

    def test_construction_checks_initial_data(self):
        with pytest.raises(ValueError, match="Cannot mix"):
            vp.tuplelist([1, (1,)])
        with pytest.raises(ValueError, match="same length"):
            vp.tuplelist([(1,), (1, 2)])

    def test_kind_recorded_by_a_rejected_extend_stays(self):
        l = vp.tuplelist()
        with pytest.raises(ValueError, match="same length"):
            l.extend([(1, 2), (1, 2, 3)])
        assert l == [] and l._tuplelist__scalar is False and l._tuplelist__tuplelen == 2
        with pytest.raises(ValueError, match="Cannot mix"):
            l.append(5)

    def test_emptied_list_accepts_any_kind(self):
        l = vp.tuplelist([1, 2])
        assert (l._tuplelist__scalar, l._tuplelist__tuplelen) == (True, None)
        l.remove(1)
        l.pop()
        assert (l._tuplelist__scalar, l._tuplelist__tuplelen) == (None, None)
        l.append((4, 5, 6))
        assert (l._tuplelist__scalar, l._tuplelist__tuplelen) == (False, 3)

    def test_tuple_subclasses_count_as_scalars(self):
        from collections import namedtuple
        P = namedtuple("P", "a b")
        l = vp.tuplelist([P(1, 2)])
        assert l._tuplelist__scalar is True
        with pytest.raises(ValueError, match="Cannot mix"):
            l.append((1, 2))


class TestScalarList:
    def test_select_by_whole_value(self):
        l = vp.tuplelist([1, 2, 2, 3])
        assert l.select(2) == [2, 2]
        assert l.select([3, 1]) == [3, 1]
        assert l.select(2, 99) == [2, 2]  # only the first value counts
        assert l.select(5) == []
        assert l.select("*") == [1, 2, 2, 3]
        assert l.select() == []  # nothing to look up

    def test_membership(self):
        l = vp.tuplelist([1, 2, 2])
        assert 2 in l and 2.0 in l and 5 not in l
        assert l._tuplelist__contents == {1: True, 2: True}
        with pytest.raises(TypeError, match="unhashable"):
            [] in l


class TestNeighbours:
    def test_prev_next_and_cyclic_variants(self, pairs):
        assert pairs.prev((1, 3)) == (1, 2)
        assert pairs.next((1, 3)) == (2, 3)
        assert pairs.prevc((1, 2)) == (2, 4)
        assert pairs.nextc((2, 4)) == (1, 2)
        assert pairs._tuplelist__prev == {(1, 3): (1, 2), (2, 3): (1, 3), (2, 4): (2, 3)}

    def test_ends_and_strangers_raise_plain_key_error(self, pairs):
        for method, value in [(pairs.prev, (1, 2)), (pairs.next, (2, 4)), (pairs.nextc, (9, 9))]:
            with pytest.raises(KeyError) as err:
                method(value)
            assert err.value.args == (value,)

    def test_duplicates_raise_key_error(self):
        l = vp.tuplelist([1, 1, 2, 1])
        for method in (l.prev, l.next, l.prevc, l.nextc):
            with pytest.raises(KeyError) as err:
                method(2)
            assert err.value.args == ("Duplicate values in tupledict",)

    def test_maps_follow_changes(self, pairs):
        assert pairs.next((2, 3)) == (2, 4)
        pairs.insert(3, (7, 7))
        assert pairs.next((2, 3)) == (7, 7)


class TestReprAndCopies:
    def test_repr_of_tuples_pads_each_column(self):
        l = vp.tuplelist([("a", 10), ("bcd", 2)])
        assert repr(l) == ("<velmor.tuplelist (2 tuples, 2 values each):\n"
                           " ( a  , 10)\n"
                           " ( bcd, 2 )\n"
                           ">")

    def test_repr_of_example(self, pairs):
        assert repr(pairs) == ("<velmor.tuplelist (4 tuples, 2 values each):\n"
                               " ( 1, 2)\n ( 1, 3)\n ( 2, 3)\n ( 2, 4)\n>")

    def test_repr_of_scalars_and_empty_is_list_repr(self):
        assert repr(vp.tuplelist(["x", 1])) == "['x', 1]"
        assert repr(vp.tuplelist()) == "[]"

    def test_concatenation_keeps_wildcard_and_checks(self):
        l = vp.tuplelist([(1, 2)], wild="?")
        r = l + [(3, 4)]
        assert type(r) is vp.tuplelist and r == [(1, 2), (3, 4)] and r._tuplelist__wild == "?"
        assert type([(0, 0)] + l) is list
        with pytest.raises(ValueError, match="Cannot mix"):
            l + [5]
        same = l
        l += [(5, 6)]
        assert l is same and l == [(1, 2), (5, 6)]

    def test_getslice_method_returns_tuplelist(self, pairs):
        part = pairs.__getslice__(1, 3)
        assert type(part) is vp.tuplelist and part == [(1, 3), (2, 3)]

    def test_pickle_and_copy_keep_wildcard_and_contents(self):
        l = vp.tuplelist([(1, 2), (3, 4)], wild="?")
        for clone in (pickle.loads(pickle.dumps(l)), copy.copy(l), copy.deepcopy(l)):
            assert type(clone) is vp.tuplelist
            assert clone == l and clone._tuplelist__wild == "?"
            assert clone.select(3, "?") == [(3, 4)]

    def test_class_docstring(self):
        doc = vp.tuplelist.__doc__
        assert doc.startswith("\n  Custom Velmor class: tuplelist is a subclass of list that is\n"
                              "  designed to work with lists of tuples.  Using the select()\n"
                              "  method, this class allows you to efficiently select sub-lists of\n"
                              "  tuples by matching specific values in specific fields of the\n"
                              "  member tuples.\n")
        assert "unpredictable results" in doc


class TestMultidict:
    def test_splits_value_lists_into_tupledicts(self):
        keys, d1, d2 = vp.multidict({"a": [1, 2], "b": [3, 4]})
        assert type(keys) is vp.tuplelist and keys == ["a", "b"]
        assert type(d1) is vp.tupledict and d1 == {"a": 1, "b": 3}
        assert d2 == {"a": 2, "b": 4} and list(d2) == ["a", "b"]

    def test_tuple_keys_and_shortest_value_list(self):
        result = vp.multidict({(1, 2): [5, 6, 7], (1, 3): [8, 9]})
        assert len(result) == 3
        assert result[0] == [(1, 2), (1, 3)]
        assert result[2].select(1, "*") == [6, 9]

    def test_single_values_give_one_tupledict(self):
        result = vp.multidict({"a": 1, "b": 2})
        assert type(result) is list and len(result) == 2
        assert result[0] == ["a", "b"] and result[1] == {"a": 1, "b": 2}
        assert type(result[1]) is vp.tupledict

    def test_empty_input_gives_keys_only(self):
        assert vp.multidict({}) == [[]]

    def test_docstring(self):
        assert vp.multidict.__doc__.startswith(
            "\n  ROUTINE:\n    multidict(data)\n  PURPOSE:\n"
            "    Split a single dictionary into multiple dictionaries.\n")
        assert "(keys, dict1, dict2) = multidict( {" in vp.multidict.__doc__


def test_slices_keep_the_class_and_the_wildcard():
    tl = vp.tuplelist([(1, "a"), (2, "b"), (3, "a")])
    tl._tuplelist__wild = "?"
    part = tl[::2]
    assert type(part) is vp.tuplelist and part._tuplelist__wild == "?"
    assert list(part) == [(1, "a"), (3, "a")]
    assert list(part.select("?", "a")) == [(1, "a"), (3, "a")]
    assert tl[1] == (2, "b") and list(tl[5:]) == []
