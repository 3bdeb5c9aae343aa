"""Introspection of the public API: every public class, function and method has a signature
inspect can read and a real docstring, and the text signatures agree with what the callables
accept."""
import inspect
import pathlib
import pydoc
import subprocess
import sys
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


SCRIPT = pathlib.Path(__file__).resolve().parents[3] / "scripts" / "text_signatures.py"


@pytest.mark.skipif(not SCRIPT.exists(), reason="needs the source tree")
def test_every_docstring_in_the_sources_has_its_signature():
    # A method added without "name($self, ...)\n--\n\n" shows here before it ships.
    out = subprocess.run([sys.executable, str(SCRIPT), "--check"], capture_output=True, text=True)
    assert out.returncode == 0, out.stdout
    left = sorted(line.split("left alone: ")[1].split(":")[0] for line in out.stderr.splitlines())
    assert left == ["_Model__getupdatemode", "_Model__setup", "pop", "setdefault", "update"], out.stderr


@pytest.mark.skipif(not SCRIPT.exists(), reason="needs the source tree")
def test_the_conversion_of_each_kind_of_callable():
    import importlib.util
    spec = importlib.util.spec_from_file_location("text_signatures", SCRIPT)
    ts = importlib.util.module_from_spec(spec)
    spec.loader.exec_module(ts)
    source = pathlib.Path("x.cpp")
    text = '''
PyTypeObject ThingType = {PyVarObject_HEAD_INIT(nullptr, 0) "velmorpy.Thing"};
const char thing_doc[] = "Thing(size, env=None)\\n\\nA thing.";
const char grow_doc[] = "grow(by=inf, vtype=VLM.INTEGER)\\n\\nGrows.";
PyMethodDef thing_methods[] = {
    {"grow", FASTCALL_KW(thing_grow), grow_doc},
    {"make", py::guarded<&make>, METH_VARARGS | METH_CLASS, "make(n)\\n\\nMakes."},
    {"check", py::guarded<&check>, METH_O | METH_STATIC, "check(x)\\n\\nChecks."},
    {"pop", py::guarded<&pop>, METH_VARARGS, "pop(key[, default])\\n\\nPops."},
    {nullptr, nullptr, 0, nullptr}};
PyMethodDef module_functions[] = {
    {"quicksum", py::guarded<&qs>, METH_O, "Adds things."},
    {nullptr, nullptr, 0, nullptr}};
int reg(PyObject* m) { return PyModule_AddFunctions(m, module_functions); }
'''
    texts = {source: text}
    edits, report = {source: {}}, []
    ts.convert(source, texts, {"Thing"}, report, edits)
    out = ts.apply(text, edits[source])
    assert '"Thing(size, env=None)\\n--\\n\\nA thing."' in out
    assert '"grow($self, by=1e309, vtype=\'I\')\\n--\\n\\nGrows."' in out
    assert '"make($type, n)\\n--\\n\\nMakes."' in out
    assert '"check(x)\\n--\\n\\nChecks."' in out
    assert '"quicksum(iterable)\\n--\\n\\nAdds things."' in out
    assert '"pop(key[, default])\\n\\nPops."' in out  # not Python syntax: left alone
    assert report == ["pop: 'pop(key[, default])' is not Python syntax"]
    # Converting again changes nothing.
    again = {source: {}}
    ts.convert(source, {source: out}, {"Thing"}, [], again)
    assert again[source] == {}
