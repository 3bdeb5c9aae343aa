"""Introspection of the public API: every public class, function and method has a signature
inspect can read and a real docstring, and the text signatures agree with what the callables
accept."""
import inspect
import pydoc
import types

import pytest

import velmorpy as vp
from velmorpy import VLM

# Callables inspect cannot describe, each with the reason.
NO_SIGNATURE = {
    # Optional positionals without a representable default, like dict's own methods.
    "tupledict.pop", "tupledict.setdefault", "tupledict.update",
}


def public_api():
    """(qualified name, object) for every public class, module function and method."""
    for name in sorted(vp.__all__):
        obj = getattr(vp, name)
        if isinstance(obj, types.BuiltinFunctionType):
            yield name, obj
        elif isinstance(obj, type) and obj.__module__ == "velmorpy":
            yield name, obj
            for attr, raw in sorted(vars(obj).items()):
                if attr.startswith("_"):
                    continue
                if isinstance(raw, (types.MethodDescriptorType, types.ClassMethodDescriptorType)):
                    yield f"{name}.{attr}", getattr(obj, attr)
                elif isinstance(raw, staticmethod):
                    yield f"{name}.{attr}", raw.__func__


API = list(public_api())


def test_the_walk_covers_the_api():
    names = {n for n, _ in API}
    assert {"Model", "Model.addVar", "Model.optimize", "Var.getAttr", "quicksum", "read",
            "tupledict.sum", "LinExpr.addTerms", "Env.setParam", "max_"} <= names
    assert len(API) > 250


@pytest.mark.parametrize("name, obj", [a for a in API if a[0] not in NO_SIGNATURE], ids=lambda a: str(a))
def test_signature_and_docstring(name, obj):
    if isinstance(obj, type):
        doc = obj.__doc__
        assert doc and len(doc.strip()) > 10, name
        return
    params = list(inspect.signature(obj).parameters.values())
    assert obj.__doc__ and len(obj.__doc__.strip()) > 10, name
    # The signature line is stripped from __doc__: the text users read starts with prose.
    assert not obj.__doc__.startswith(obj.__name__ + "("), name
    # A method's signature starts with its instance (else a bound call would lose a parameter);
    # a function's and a class method's bound signature do not.
    if isinstance(obj, types.MethodDescriptorType):
        assert params[0].name == "self" and params[0].kind is params[0].POSITIONAL_ONLY, name
        params = params[1:]
    assert all(p.name not in ("self", "cls") for p in params), name


def test_defaults_are_the_documented_values():
    sig = inspect.signature(vp.Model.addVar)
    assert list(sig.parameters) == ["self", "lb", "ub", "obj", "vtype", "name", "column"]
    assert sig.parameters["lb"].default == 0.0
    assert sig.parameters["ub"].default == float("inf")
    assert sig.parameters["vtype"].default == VLM.CONTINUOUS
    assert sig.parameters["name"].default == ""
    assert str(inspect.signature(vp.quicksum)) == "(iterable)"
    assert str(inspect.signature(vp.max_)) == "(*args, constant=None)"


def test_signatures_match_what_the_callables_accept():
    # Keywords named in the signature are accepted by the implementation.
    m = vp.Model(env=vp.Env(params={"OutputFlag": 0}))
    x = m.addVar(lb=1.0, ub=2.0, obj=3.0, vtype=VLM.CONTINUOUS, name="x", column=None)
    m.setObjective(x, sense=VLM.MINIMIZE)
    m.optimize()
    assert m.ObjVal == pytest.approx(1.0)
    with pytest.raises(TypeError):
        m.addVar(upper=3)


def test_help_shows_parameters_and_defaults(capsys):
    text = pydoc.render_doc(vp.Model.addVar, renderer=pydoc.plaintext)
    assert "addVar(self, /, lb=0.0, ub=inf, obj=0.0, vtype='C', name='', column=None)" in text
    assert "Adds one variable and returns its Var." in text
    # The module's own shell help() shows the call as the user writes it, then the text.
    vp.help(vp.Model.addVar)
    out = capsys.readouterr().out
    assert out.startswith("addVar(lb=0.0, ub=inf, obj=0.0, vtype='C', name='', column=None)\n\n"
                          "Adds one variable and returns its Var.")
