"""tupledict: selection over the key tuplelist, the iteration order, the mutators' cache
invalidation, sum/prod, and the extension's reference and GC hygiene.

Not tested here: sum/prod over model variables (test_linexpr.py, test_model.py); selection
speed (benchmarks/).
"""
import copy
import gc
import pickle
import sys
import tracemalloc
import weakref

import pytest

import velmorpy as vp

HAS_QUICKSUM = hasattr(vp, "quicksum")


@pytest.fixture
def td():
    return vp.tupledict({(1, 2): "a", (1, 3): "b", (2, 3): "c"})


def assigned(*keys):
    """A tupledict filled key by key through __setitem__, so every key has a position."""
    d = vp.tupledict()
    for k in keys:
        d[k] = str(k)
    return d


def constant(expr):
    return expr.getConstant() if hasattr(expr, "getConstant") else expr


class TestConstruction:
    def test_accepts_every_dict_form(self):
        assert vp.tupledict({"a": 1}, b=2) == {"a": 1, "b": 2}
        assert vp.tupledict([((1, 2), 3)]) == {(1, 2): 3}
        assert vp.tupledict() == {}
        with pytest.raises(TypeError):
            vp.tupledict(5)

    def test_attributes_after_construction(self, td):
        assert isinstance(td, dict)
        assert td.wild == "*"
        assert td._tupledict__keys is None
        assert td._tupledict__pos == {}  # constructor pairs get no position
        assert td.__dict__ == {}
        td.note = 1
        assert td.__dict__ == {"note": 1}

    def test_class_docstring(self):
        assert vp.tupledict.__doc__ == ("\n  Custom Velmor class: tupledict is a subclass of dict where\n"
                                        "  the keys are a tuplelist.\n")


class TestSelect:
    def test_wildcards(self, td):
        assert td.select(1, "*") == ["a", "b"]
        assert td.select("*", 3) == ["b", "c"]
        assert td.select() == ["a", "b", "c"]
        assert td.select([2, 1], 3) == ["c", "b"]
        assert td.select(9, "*") == []
        assert type(td.select(1, "*")) is list

    def test_iteritems_and_iterators(self, td):
        assert list(td.iteritems(1, "*")) == [((1, 2), "a"), ((1, 3), "b")]
        assert list(td.iteritems()) == [((1, 2), "a"), ((1, 3), "b"), ((2, 3), "c")]
        assert list(td.iterkeys()) == [(1, 2), (1, 3), (2, 3)]
        assert list(td.itervalues()) == ["a", "b", "c"]

    def test_iteritems_reads_values_as_it_goes(self, td):
        it = td.iteritems("*", 3)
        assert next(it) == ((1, 3), "b")
        dict.__setitem__(td, (2, 3), "late")
        assert next(it) == ((2, 3), "late")

    def test_values_and_items_are_lists_in_key_order(self, td):
        td.setord([(2, 3)])
        td.clean()
        assert td.values() == ["c", "a", "b"]
        assert td.items() == [((2, 3), "c"), ((1, 2), "a"), ((1, 3), "b")]

    def test_scalar_keys(self):
        d = vp.tupledict({"x": 1, "y": 2})
        assert d.select("y") == [2]
        assert d.select() == [1, 2]  # no pattern: every key, even for scalar keys
        assert d.select("*") == [1, 2]
        assert d.select(["y", "x"]) == [2, 1]

    def test_mixed_keys_fail_in_the_key_list(self):
        d = vp.tupledict({(1, 2): 0, "x": 1})
        with pytest.raises(ValueError, match="Cannot mix scalar and tuple values in a tuplelist"):
            d.select(1, "*")

    def test_subset_keeps_parent_order_and_wildcard(self, td):
        td.wild = "?"
        td.setord([(1, 3), (2, 3), (1, 2)])
        td.clean()
        sub = td.subset(1, "?")
        assert type(sub) is vp.tupledict
        assert sub == {(1, 2): "a", (1, 3): "b"}
        assert list(sub) == [(1, 3), (1, 2)]
        assert sub._tupledict__pos == {(1, 3): 0, (1, 2): 1}
        assert sub.wild == "?" and sub.keys()._tuplelist__wild == "?"

    def test_values_stay_current_when_the_dict_is_written_directly(self, td):
        assert td.select(1, "*") == ["a", "b"]
        dict.__setitem__(td, (1, 3), "new")
        assert td.select(1, "*") == ["a", "new"]
        assert td.items()[1] == ((1, 3), "new")

    def test_matches_a_plain_dict_scan_on_a_grid(self):
        d = vp.tupledict({(i, j, i % 3): i * 100 + j for i in range(25) for j in range(16)})
        for pattern in [(3, "*"), ("*", 7), ("*", "*", 2), (4, [1, 2, 99], 1), ([0, 24], "*", [0, 1])]:
            def match(k):
                return all(v == "*" or k[i] == v or (isinstance(v, list) and k[i] in v)
                           for i, v in enumerate(pattern))
            expected = [v for k, v in dict.items(d) if match(k)]
            assert sorted(d.select(*pattern)) == sorted(expected), pattern
        assert d.select(4, [2, 1], 1) == [402, 401]


class TestOrder:
    def test_setord_takes_effect_after_clean(self, td):
        td.keys()
        assert td.setord([(2, 3), (1, 2)]) is None
        assert list(td) == [(1, 2), (1, 3), (2, 3)]  # old cache
        td.clean()
        assert list(td) == [(2, 3), (1, 2), (1, 3)]
        assert td._tupledict__pos == {(2, 3): 0, (1, 2): 1}

    def test_reassignment_moves_key_to_the_end(self):
        d = assigned((1, 2), (1, 3), (2, 3))
        assert list(d) == [(1, 2), (1, 3), (2, 3)]
        d[(1, 2)] = "z"
        assert list(d) == [(1, 3), (2, 3), (1, 2)]
        assert d._tupledict__pos == {(1, 2): 3, (1, 3): 1, (2, 3): 2}
        assert d.select(1, "*") == ["(1, 3)", "z"]

    def test_deletion_keeps_the_position(self):
        d = assigned("a", "b")
        del d["a"]
        assert d._tupledict__pos == {"a": 0, "b": 1}
        d["a"] = 1
        assert list(d) == ["b", "a"]

    def test_setord_reads_by_index(self, td):
        td.setord(((1, 3),))
        td.clean()
        assert list(td) == [(1, 3), (1, 2), (2, 3)]
        with pytest.raises(TypeError):
            td.setord(5)

    def test_non_integer_positions_sort_with_their_own_order(self, td):
        td._tupledict__pos = {(2, 3): 0.5, (1, 3): -1.5}
        td.clean()
        assert list(td) == [(1, 3), (2, 3), (1, 2)]
        td._tupledict__pos = {(2, 3): "x"}
        td.clean()
        with pytest.raises(TypeError):
            td.keys()


class TestKeyCache:
    def test_keys_is_the_cached_tuplelist(self, td):
        keys = td.keys()
        assert type(keys) is vp.tuplelist and keys == [(1, 2), (1, 3), (2, 3)]
        assert td.keys() is keys and td._tupledict__keys is keys
        assert keys._tuplelist__wild == "*"
        assert list(td) == keys

    def test_empty_cache_is_rebuilt(self):
        d = vp.tupledict()
        empty = d.keys()
        assert d.keys() is not empty and d.keys() == []

    @pytest.mark.parametrize("mutate, result", [
        (lambda d: d.__setitem__((3, 3), "d"), None),
        (lambda d: d.__delitem__((1, 2)), None),
        (lambda d: d.clear(), None),
        (lambda d: d.pop((1, 2)), "a"),
        (lambda d: d.pop((9, 9), "dflt"), "dflt"),
        (lambda d: d.popitem(), ((2, 3), "c")),
        (lambda d: d.update({(4, 4): 1}, **{}), None),
        (lambda d: d.setdefault((5, 5), 0), 0),
        (lambda d: d.clean(), None),
    ])
    def test_mutators_return_the_dict_result_and_drop_the_cache(self, td, mutate, result):
        td.keys()
        assert mutate(td) == result
        assert td._tupledict__keys is None
        assert sorted(td) == sorted(dict.keys(td))

    def test_failed_mutation_keeps_the_cache(self, td):
        keys = td.keys()
        with pytest.raises(KeyError) as err:
            del td[(9, 9)]
        assert err.value.args == ((9, 9),)
        with pytest.raises(KeyError):
            td.pop((9, 9))
        with pytest.raises(KeyError):
            vp.tupledict().popitem()
        assert td._tupledict__keys is keys

    def test_update_adds_keys_without_positions(self):
        d = assigned("a")
        d.update([("c", 1)], b=2)
        assert d._tupledict__pos == {"a": 0}
        assert list(d) == ["a", "c", "b"]

    def test_direct_dict_writes_leave_keys_stale_until_clean(self, td):
        td.keys()
        dict.__setitem__(td, (7, 7), "x")
        assert list(td) == [(1, 2), (1, 3), (2, 3)]
        td.clean()
        assert list(td)[-1] == (7, 7)

    def test_in_place_or_drops_the_cache(self, td):
        td.keys()
        td |= {(8, 8): "h"}
        assert list(td)[-1] == (8, 8)


class TestProd:
    def test_argument_errors(self, td):
        for args in [(5,), ([1, 2], "*"), ("ab",), ((1, 2),)]:
            with pytest.raises(TypeError) as err:
                td.prod(*args)
            assert err.value.args == ("tupledict.prod requires a dictionary",)

    def test_list_failure_becomes_invalid_argument(self):
        d = vp.tupledict({0: 2.5, 1: 1.0})
        with pytest.raises(TypeError) as err:
            d.prod(["x"])
        assert err.value.args == ("Invalid tupledict.prod argument",)

    @pytest.mark.skipif(not HAS_QUICKSUM, reason="needs quicksum")
    def test_operand_order_follows_the_walked_dictionary(self):
        class Coef:
            """c * v counts a thousandfold, v * c once: the sum tells which side led."""

            def __init__(self, c):
                self.c = c

            def __mul__(self, v):
                return 1000.0 * self.c * v

            def __rmul__(self, v):
                return self.c * v

        d = vp.tupledict({0: 1.0, 1: 2.0, 2: 4.0})
        # Fewer coefficients than entries: the coefficients are walked, coefficient first.
        assert constant(d.prod({1: Coef(1.0), 5: Coef(9.0)})) == 2000.0
        # As many or more: the entries are walked, value first.
        assert constant(d.prod({0: Coef(1.0), 1: Coef(1.0), 7: Coef(9.0)})) == 3.0
        assert constant(d.prod({1: Coef(1.0)}, "*")) == 2.0
        # A list multiplies coefficient first.
        assert constant(d.prod([Coef(1.0), Coef(0.5)])) == 2000.0

    @pytest.mark.skipif(not HAS_QUICKSUM, reason="needs quicksum")
    def test_sum_and_prod_of_numbers(self):
        d = vp.tupledict({(0, 0): 1.0, (0, 1): 2.5, (1, 1): 4.0})
        assert constant(d.sum()) == 7.5
        assert constant(d.sum("*", 1)) == 6.5
        assert constant(d.sum(5, "*")) == constant(vp.quicksum([]))
        assert constant(d.prod({(0, 1): 2.0, (9, 9): 3.0})) == 5.0
        assert constant(d.prod({(0, 0): 2.0, (0, 1): 1.0, (1, 1): 0.5, (2, 2): 1.0})) == 6.5
        assert constant(d.prod({(0, 1): 2.0, (1, 1): 1.0}, 0, "*")) == 5.0
        assert constant(d.prod({(7, 7): 1.0})) == constant(vp.quicksum([]))
        assert constant(vp.tupledict({0: 2.0, 2: 3.0}).prod([1.5, 9.0, 2.0])) == 9.0


class TestSubclassAndPickle:
    def test_subclass_goes_through_its_own_methods(self):
        class Tagged(vp.tupledict):
            def __getitem__(self, key):
                return ("tag", dict.__getitem__(self, key))

        d = Tagged({(1, 1): 1, (2, 1): 2})
        assert d.select("*", 1) == [("tag", 1), ("tag", 2)]
        assert d.values() == [("tag", 1), ("tag", 2)]
        assert list(d.iteritems(2, "*")) == [((2, 1), ("tag", 2))]
        assert d.wild == "*" and d.__dict__ == {}

    def test_pickle_and_copy_keep_order_and_wildcard(self, td):
        td.setord([(2, 3), (1, 3)])
        td.wild = "?"
        td.clean()
        for clone in (pickle.loads(pickle.dumps(td)), copy.copy(td), copy.deepcopy(td)):
            assert type(clone) is vp.tupledict and clone == td
            assert list(clone) == [(2, 3), (1, 3), (1, 2)]
            assert clone.wild == "?" and clone.select(1, "?") == ["b", "a"]


class TestHygiene:
    def test_hot_paths_keep_reference_counts_and_memory_flat(self):
        value = object()
        key = (0, 0)

        def work():
            d = vp.tupledict({(i, j): value for i in range(30) for j in range(30)})
            d[key] = value
            d.select(3, "*")
            d.select("*", [1, 2])
            d.values()
            d.items()
            list(d.iteritems(1, "*"))
            d.subset("*", 4)
            d.keys().select(2, 2)
            d.keys()._tuplelist__index
            d.clean()
            d.select(5, "*")
            d.pop(key)
            vp.multidict({"a": [1, 2], "b": [3, 4]})

        work()
        gc.collect()
        before = (sys.getrefcount(value), sys.getrefcount(key), len(gc.get_objects()))
        tracemalloc.start()
        try:
            start = tracemalloc.get_traced_memory()[0]
            for _ in range(300):
                work()
            gc.collect()
            grown = tracemalloc.get_traced_memory()[0] - start
        finally:
            tracemalloc.stop()
        # Objects left by earlier tests may be released during the loop, so the object count
        # may fall; it must never grow.
        after = (sys.getrefcount(value), sys.getrefcount(key), len(gc.get_objects()))
        assert after[:2] == before[:2] and after[2] <= before[2]
        assert grown < 64 * 1024

    def test_cycles_through_values_and_caches_are_collected(self):
        class Node:
            pass

        node = Node()
        d = vp.tupledict({(0, 0): node, (0, 1): 1})
        node.owner = d  # cycle: tupledict -> value -> tupledict
        d.select(0, "*")
        d.keys().select("*", 1)
        watch = weakref.ref(node)
        del node, d
        gc.collect()
        assert watch() is None

        node = Node()
        l = vp.tuplelist([(0, node)])
        bucket = l.select(0, "*")
        node.owner = l  # cycle through an index bucket
        watch = weakref.ref(node)
        del node, l, bucket
        gc.collect()
        assert watch() is None
