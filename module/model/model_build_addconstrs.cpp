// Model: addConstrs, which adds one constraint per item of a generator expression and keys
// each by the values of the generator's loop variables when it yields, read from its frame.
#include "model/model_build.h"

#include <cstring>
#include <string>

#include "model/model.h"
#include "model/model_build_util.h"
#include "core/py_convert.h"
#include "core/py_error.h"
#include "containers/tupledict.h"

namespace {

// ---- addConstrs: the keys of a generator ------------------------------------------------------

PyObject* g_dis_get_instructions = nullptr;  // dis.get_instructions, kept for the process lifetime

bool str_in(PyObject* list, PyObject* s) {
  for (Py_ssize_t i = 0; i < PyList_GET_SIZE(list); ++i) {
    int eq = PyUnicode_Compare(PyList_GET_ITEM(list, i), s);
    if (eq == 0) return true;
  }
  return false;
}

// The loop variables of a generator's code in the order its loops bind them: the names stored
// by the target of each `for` before the generator first yields. A target is the run of
// instructions right after FOR_ITER that unpacks (UNPACK_SEQUENCE, UNPACK_EX) and stores
// (STORE_FAST, or STORE_DEREF when an inner function captures the name; 3.13 fuses two stores
// into STORE_FAST_STORE_FAST and a store with the next load into STORE_FAST_LOAD_FAST). Left
// out: names that a comprehension inlined into the generator (3.12+) keeps to itself, which it
// saves with LOAD_FAST_AND_CLEAR; names of the enclosing scope (free variables); the hidden
// iterator argument ".0". MAKE_CELL only declares a cell and never starts a target.
py::Ref genexpr_loop_names(PyObject* code) {
  if (g_dis_get_instructions == nullptr) {
    py::Ref dis = py::Ref::steal(PyImport_ImportModule("dis"));
    if (!dis) return dis;
    g_dis_get_instructions = PyObject_GetAttrString(dis.get(), "get_instructions");
    if (g_dis_get_instructions == nullptr) return py::Ref();
  }
  py::Ref instrs = py::Ref::steal(PyObject_CallOneArg(g_dis_get_instructions, code));
  if (!instrs) return instrs;
  py::Ref stored = py::Ref::steal(PyList_New(0));
  py::Ref excluded = py::Ref::steal(PyList_New(0));
  if (!stored || !excluded) return py::Ref();
  py::Ref freevars = py::Ref::steal(PyObject_GetAttrString(code, "co_freevars"));
  if (!freevars) return freevars;
  py::Ref it = py::Ref::steal(PyObject_GetIter(instrs.get()));
  if (!it) return it;
  bool yielded = false;
  bool in_target = false;
  while (py::Ref ins = py::Ref::steal(PyIter_Next(it.get()))) {
    py::Ref opname = py::Ref::steal(PyObject_GetAttrString(ins.get(), "opname"));
    py::Ref argval = opname ? py::Ref::steal(PyObject_GetAttrString(ins.get(), "argval")) : py::Ref();
    if (!argval) return py::Ref();
    const char* op = PyUnicode_AsUTF8(opname.get());
    if (op == nullptr) return py::Ref();
    auto is = [op](const char* name) { return std::strcmp(op, name) == 0; };
    PyObject* names[2] = {nullptr, nullptr};
    PyObject* target = stored.get();
    const bool pair = PyTuple_Check(argval.get()) && PyTuple_GET_SIZE(argval.get()) == 2;
    if (is("LOAD_FAST_AND_CLEAR")) {
      names[0] = argval.get();
      target = excluded.get();
    } else if (is("YIELD_VALUE")) {
      yielded = true;
    } else if (is("FOR_ITER")) {
      in_target = !yielded;
      continue;
    } else if (!in_target) {
      continue;
    } else if (is("EXTENDED_ARG") || is("UNPACK_SEQUENCE") || is("UNPACK_EX")) {
      continue;
    } else if (is("STORE_FAST") || is("STORE_DEREF")) {
      names[0] = argval.get();
    } else if (is("STORE_FAST_STORE_FAST") && pair) {
      names[0] = PyTuple_GET_ITEM(argval.get(), 0);
      names[1] = PyTuple_GET_ITEM(argval.get(), 1);
    } else if (is("STORE_FAST_LOAD_FAST") && pair) {
      names[0] = PyTuple_GET_ITEM(argval.get(), 0);
      in_target = false;
    } else {
      in_target = false;
    }
    for (PyObject* nm : names) {
      if (nm != nullptr && PyUnicode_Check(nm) && !str_in(target, nm) && PyList_Append(target, nm) < 0)
        return py::Ref();
    }
  }
  if (PyErr_Occurred()) return py::Ref();
  py::Ref result = py::Ref::steal(PyList_New(0));
  if (!result) return result;
  for (Py_ssize_t i = 0; i < PyList_GET_SIZE(stored.get()); ++i) {
    PyObject* nm = PyList_GET_ITEM(stored.get(), i);
    if (PyUnicode_GET_LENGTH(nm) > 0 && PyUnicode_READ_CHAR(nm, 0) == '.') continue;
    if (str_in(excluded.get(), nm)) continue;
    int in_free = PySequence_Contains(freevars.get(), nm);
    if (in_free < 0) return py::Ref();
    if (in_free) continue;
    if (PyList_Append(result.get(), nm) < 0) return py::Ref();
  }
  return result;
}

// The current values of the loop variables of a suspended generator: one value, or a tuple.
py::Ref read_key(PyObject* gen, PyObject* names) {
  py::Ref frame = py::Ref::steal(PyObject_GetAttrString(gen, "gi_frame"));
  if (!frame) return frame;
  if (frame.get() == Py_None) return py::Ref::steal(invalid("addConstrs() lost the generator's frame"));
  const Py_ssize_t n = PyList_GET_SIZE(names);
#if PY_VERSION_HEX < 0x030C0000
  py::Ref locals = py::Ref::steal(PyObject_GetAttrString(frame.get(), "f_locals"));
  if (!locals) return locals;
#endif
  auto value = [&](Py_ssize_t i) {
    PyObject* name = PyList_GET_ITEM(names, i);
#if PY_VERSION_HEX >= 0x030C0000
    py::Ref v = py::Ref::steal(PyFrame_GetVar(reinterpret_cast<PyFrameObject*>(frame.get()), name));
#else
    py::Ref v = py::Ref::steal(PyObject_GetItem(locals.get(), name));
#endif
    if (!v && (PyErr_ExceptionMatches(PyExc_KeyError) || PyErr_ExceptionMatches(PyExc_NameError))) {
      PyErr_Clear();
      std::string msg = "addConstrs() cannot read the loop variable '";
      msg += PyUnicode_AsUTF8(name);
      msg += "'";
      invalid(msg);
    }
    return v;
  };
  if (n == 1) return value(0);
  py::Ref key = py::Ref::steal(PyTuple_New(n));
  if (!key) return key;
  for (Py_ssize_t i = 0; i < n; ++i) {
    py::Ref v = value(i);
    if (!v) return v;
    PyTuple_SET_ITEM(key.get(), i, v.release());
  }
  return key;
}

// The name of the constraint for `key`: nullptr for none (library default), the key itself
// for "_", else name[key].
py::Ref constr_name_for(PyObject* name, PyObject* key) {
  if (is_none(name)) return py::Ref::borrow(Py_None);
  const char* base = py::utf8(name);
  if (base == nullptr) return py::Ref();
  if (base[0] == '\0') return py::Ref::borrow(Py_None);
  std::string text;
  bool ok = std::strcmp(base, "_") == 0 ? append_key_text(text, key) : append_index_name(text, base, key);
  if (!ok) return py::Ref();
  return py::str(text);
}

}  // namespace

// ---- the methods -----------------------------------------------------------------------------

PyObject* model_addconstrs(PyObject* self, PyObject* const* args, Py_ssize_t nargs, PyObject* kwnames) {
  static const char* const names[] = {"constrs", "name"};
  PyObject* a[2];
  if (!parse_args("addConstrs", names, 2, 1, args, nargs, kwnames, a)) return nullptr;
  if (!model_alive(self)) return nullptr;
  PyObject* gen = a[0];
  if (!PyGen_Check(gen))
    return invalid("Model.addConstrs() takes a generator expression, such as (x[i] <= 1 for i in I)");
  py::Ref name;
  if (!is_none(a[1])) {
    name = PyUnicode_Check(a[1]) ? py::Ref::borrow(a[1]) : py::Ref::steal(PyObject_Str(a[1]));
    if (!name) return nullptr;
  }
  py::Ref code = py::Ref::steal(PyObject_GetAttrString(gen, "gi_code"));
  py::Ref loopvars = code ? genexpr_loop_names(code.get()) : py::Ref();
  if (!loopvars) return nullptr;
  py::Ref result = tupledict_new_empty();
  if (!result) return nullptr;
  long counter = 0;  // the key when the generator binds no loop variable at all
  while (py::Ref tc = py::Ref::steal(PyIter_Next(gen))) {
    py::Ref key = PyList_GET_SIZE(loopvars.get()) > 0 ? read_key(gen, loopvars.get())
                                                      : py::Ref::steal(PyLong_FromLong(counter++));
    if (!key) return nullptr;
    py::Ref cname = constr_name_for(name.get(), key.get());
    if (!cname) return nullptr;
    py::Ref added = py::Ref::steal(add_constr_any(self, tc.get(), nullptr, nullptr, cname.get()));
    if (!added || PyDict_SetItem(result.get(), key.get(), added.get()) < 0) return nullptr;
  }
  if (PyErr_Occurred()) return nullptr;
  return result.release();
}

// ---- docstrings ------------------------------------------------------------------------------

const char model_addconstrs_doc[] =
    "addConstrs($self, generator, name=\"\")\n--\n\n"
    "Adds one constraint per item of a generator expression of comparisons and returns a\n"
    "tupledict keyed by the values of the generator's loop variables (one value, or a tuple in\n"
    "the order of the for-clauses). With a name, constraint names are name[key]; with \"_\" the\n"
    "key itself.\n\n"
    "Example:\n"
    "    c = m.addConstrs((x[i, j] <= 1 for i in I for j in J), name=\"c\")  # keys (i, j)";
