// Model: construction and lifecycle, the fields and the type tables. The methods live in
// aspect files: model_attrs.cpp (repr, dir, attributes, parameters), model_lists.cpp (element
// lists, removal, update), model_files.cpp (reset, copy, files, messages), model_print.cpp
// (printers), model_build_*.cpp, model_genconstr.cpp and model_solve.cpp.
//
// Invariants: `handle` is nullptr exactly when `cmodel` is (never created or disposed).
#include "model/model_matrix.h"
#include "model/model.h"

#include <vector>

#include <cstdint>
#include <type_traits>
#include <vector>

#include "env/env.h"
#include "elements/handle.h"
#include "model/model_analysis.h"
#include "model/model_callback.h"
#include "model/model_attrs.h"
#include "model/model_derive.h"
#include "model/model_envs.h"
#include "model/model_build.h"
#include "model/model_files.h"
#include "model/model_genconstr.h"
#include "model/model_lists.h"
#include "model/model_matrix.h"
#include "model/model_print.h"
#include "model/model_util.h"
#include "core/py_convert.h"
#include "core/py_error.h"
#include "core/registry.h"
#include "core/services.h"
#include "core/velmor.h"

PyTypeObject ModelType = {PyVarObject_HEAD_INIT(nullptr, 0) "velmorpy.Model"};

namespace {

const char kCapsuleName[] = "velmorpy.model";

PyObject* g_env_type = nullptr;    // velmorpy.Env, kept for the process lifetime
PyObject* g_param_type = nullptr;  // velmorpy.ParamClass

// ---- construction and lifecycle --------------------------------------------------------------

// Gives the Model its library model and the core its handles will share.
void attach(ModelObject* m, VLMmodel* handle) {
  m->handle = handle;
  m->core = new ModelCore;
  m->core->handle = handle;
  m->core->model = reinterpret_cast<PyObject*>(m);
}

PyObject* model_new(PyTypeObject* type, PyObject*, PyObject*) {
  PyObject* self = type->tp_alloc(type, 0);
  if (self == nullptr) return nullptr;
  as_model(self)->updatemode = -1;
  return self;
}

int model_init(PyObject* self, PyObject* args, PyObject* kwds) {
  static const char* kwlist[] = {"name", "env", "cmodel", nullptr};
  PyObject* name = Py_None;
  PyObject* env = Py_None;
  PyObject* cmodel = Py_None;
  if (!PyArg_ParseTupleAndKeywords(args, kwds, "|OOO:Model", const_cast<char**>(kwlist), &name, &env, &cmodel)) {
    return -1;
  }
  ModelObject* m = as_model(self);
  if (m->cmodel != nullptr || m->env != nullptr || m->core != nullptr) {
    PyErr_SetString(PyExc_RuntimeError, "Model.__init__ called twice");
    return -1;
  }
  Py_CLEAR(m->callback);
  m->updatemode = -1;
  m->newranges = 0;
  // An adopted handle belongs to this object from here on: its finalizer frees it even when
  // the rest of the construction fails.
  if (cmodel != Py_None) {
    if (!PyCapsule_IsValid(cmodel, kCapsuleName)) {
      PyErr_SetString(PyExc_TypeError, "cmodel must be a library model handle");
      return -1;
    }
    // A capsule's context marks it as owned: a second Model over it would free it twice.
    if (PyCapsule_GetContext(cmodel) != nullptr) {
      PyErr_SetString(PyExc_ValueError, "cmodel already belongs to a Model");
      return -1;
    }
    if (PyCapsule_SetContext(cmodel, cmodel) < 0) return -1;
    attach(m, static_cast<VLMmodel*>(PyCapsule_GetPointer(cmodel, kCapsuleName)));
    py::assign(m->cmodel, cmodel);
  }
  if (env == Py_None) {
    env = velmor_default_env(true);
    if (env == nullptr) return -1;
  }
  if (!env_check(env)) {
    PyErr_Format(PyExc_TypeError, "env must be an Env, not %.200s", Py_TYPE(env)->tp_name);
    return -1;
  }
  const bool adopted = m->handle != nullptr;
  if (!adopted && env_handle(env) == nullptr) {
    raise_velmor_msg(-1, "Invalid Environment");
    return -1;
  }
  if (!adopted) {
    const char* cname = "";
    if (name != Py_None && (cname = py::utf8(name)) == nullptr) return -1;
    VLMmodel* handle = nullptr;
    int rc = VLMnewmodel(env_handle(env), &handle, cname, 0, nullptr, nullptr, nullptr, nullptr, nullptr);
    if (rc != 0) {
      raise_velmor(rc, env);
      return -1;
    }
    PyObject* capsule = PyCapsule_New(handle, kCapsuleName, nullptr);
    if (capsule == nullptr || PyCapsule_SetContext(capsule, capsule) < 0) {
      Py_XDECREF(capsule);
      VLMfreemodel(handle);
      return -1;
    }
    m->cmodel = capsule;
    attach(m, handle);
  }
  py::assign(m->uenv, env);
  reinterpret_cast<EnvObject*>(env)->modcnt += 1;
  py::Ref cenv = wrap_env_handle(VLMgetenv(m->handle));
  if (!cenv) return -1;
  py::Ref noargs = py::Ref::steal(PyTuple_New(0));
  py::Ref kw = py::Ref::steal(Py_BuildValue("{sO}", "cenv", cenv.get()));
  if (!noargs || !kw) return -1;
  py::Ref menv = py::Ref::steal(PyObject_Call(g_env_type, noargs.get(), kw.get()));
  if (!menv) return -1;
  py::assign(m->env, menv.get());
  // The model's environment is a copy of `env`, log callback included, so the model's log
  // lines already reach Python without installing the callback again.
  for (PyObject*& list : m->lists) Py_CLEAR(list);
  if (!adopted && model_setup(self, true) < 0) return -1;
  m->modcnt = 0;
  py::Ref params = py::Ref::steal(PyObject_CallFunctionObjArgs(g_param_type, m->env, nullptr));
  if (!params) return -1;
  for (const char* key : {"Params", "params"}) {
    py::Ref k = py::str(key);
    if (!k || PyObject_GenericSetAttr(self, k.get(), params.get()) < 0) return -1;
  }
  return 0;
}

// The Model no longer stands for a library model (disposed, or handed to its handles).
void forget_library_model(ModelObject* m) {
  m->handle = nullptr;
  Py_CLEAR(m->cmodel);
  if (m->uenv != nullptr) {
    reinterpret_cast<EnvObject*>(m->uenv)->modcnt -= 1;
    Py_CLEAR(m->uenv);
  }
}

PyObject* model_dispose(PyObject* self, PyObject*) {
  ModelObject* m = as_model(self);
  if (m->handle == nullptr) return py::none();
  if (m->solving) {
    return raise_velmor_msg(VLM_ERROR_OPTIMIZATION_IN_PROGRESS,
                            "Cannot dispose a model while it is being optimized");
  }
  for (PyObject*& list : m->lists) {
    if (list == nullptr) continue;
    for (Py_ssize_t i = 0; i < PyList_GET_SIZE(list); ++i) {
      PyObject* h = PyList_GET_ITEM(list, i);
      if (handle_kind(h) != 0) as_handle(h)->index = kIndexPending;
    }
    Py_CLEAR(list);
  }
  // The Env over the model's own environment would dangle once the model is freed.
  if (m->env != nullptr && env_close(m->env) < 0) return nullptr;
  VLMfreemodel(m->handle);
  m->handle = nullptr;
  m->core->handle = nullptr;
  forget_library_model(m);
  return py::none();
}

PyObject* model_enter(PyObject* self, PyObject*) { return py::new_ref(self); }

PyObject* model_exit(PyObject* self, PyObject* const*, Py_ssize_t) {
  py::Ref r = py::Ref::steal(model_dispose(self, nullptr));
  if (!r) return nullptr;
  return py::boolean(false);
}

// The Model object is going away. Its handles drop with its lists unless someone else holds
// them; when none is left the library model is freed as by dispose(), otherwise the core keeps
// it for the survivors, whose attributes stay readable, and frees it with the last of them.
bool model_release(PyObject* self) {
  ModelObject* m = as_model(self);
  if (m->handle == nullptr) return true;
  if (m->solving) return py::Ref::steal(model_dispose(self, nullptr)).get() != nullptr;
  for (PyObject*& list : m->lists) Py_CLEAR(list);
  if (m->core->refs == 1) return py::Ref::steal(model_dispose(self, nullptr)).get() != nullptr;
  bool ok = m->env == nullptr || env_close(m->env) == 0;
  m->core->model = nullptr;
  forget_library_model(m);
  return ok;
}

void model_finalize(PyObject* self) {
  PyObject *type, *value, *tb;
  PyErr_Fetch(&type, &value, &tb);
  if (!model_release(self)) PyErr_WriteUnraisable(self);
  PyErr_Restore(type, value, tb);
}

int model_traverse(PyObject* self, visitproc visit, void* arg) {
  ModelObject* m = as_model(self);
  Py_VISIT(m->callback);
  Py_VISIT(m->uenv);
  Py_VISIT(m->env);
  for (PyObject* list : m->lists) Py_VISIT(list);
  Py_VISIT(m->dict);
  return 0;
}

int model_clear(PyObject* self) {
  ModelObject* m = as_model(self);
  Py_CLEAR(m->callback);
  Py_CLEAR(m->uenv);
  Py_CLEAR(m->env);
  for (PyObject*& list : m->lists) Py_CLEAR(list);
  Py_CLEAR(m->dict);
  return 0;
}

void model_dealloc(PyObject* self) {
  if (PyObject_CallFinalizerFromDealloc(self) < 0) return;  // resurrected
  PyObject_GC_UnTrack(self);
  ModelObject* m = as_model(self);
  if (m->weakreflist != nullptr) PyObject_ClearWeakRefs(self);
  model_clear(self);
  Py_CLEAR(m->cmodel);
  if (m->core != nullptr) {
    if (m->core->model == self) m->core->model = nullptr;
    core_release(m->core);
    m->core = nullptr;
  }
  Py_TYPE(self)->tp_free(self);
}

// ---- fields ----------------------------------------------------------------------------------

PyObject* or_none(PyObject* o) { return py::new_ref(o ? o : Py_None); }

PyObject* get_cmodel(PyObject* self, void*) { return or_none(as_model(self)->cmodel); }
PyObject* get_uenv(PyObject* self, void*) { return or_none(as_model(self)->uenv); }
PyObject* get_env(PyObject* self, void*) { return or_none(as_model(self)->env); }
PyObject* get_callback(PyObject* self, void*) { return or_none(as_model(self)->callback); }

int set_callback(PyObject* self, PyObject* value, void*) {
  py::assign(as_model(self)->callback, value == Py_None ? nullptr : value);
  return 0;
}

PyObject* get_list(PyObject* self, void* closure) {
  return or_none(list_of(as_model(self), static_cast<int>(reinterpret_cast<std::intptr_t>(closure))));
}

int set_list(PyObject* self, PyObject* value, void* closure) {
  if (value != nullptr && value != Py_None && !PyList_Check(value)) {
    PyErr_SetString(PyExc_TypeError, "the handle list must be a list or None");
    return -1;
  }
  py::assign(list_of(as_model(self), static_cast<int>(reinterpret_cast<std::intptr_t>(closure))),
             value == Py_None ? nullptr : value);
  return 0;
}

// Integer fields, addressed by their offset in ModelObject.
template <class T, T ModelObject::*Field>
PyObject* get_number(PyObject* self, void*) {
  if constexpr (std::is_same_v<T, bool>) {
    return py::boolean(as_model(self)->*Field);
  } else {
    return PyLong_FromLongLong(static_cast<long long>(as_model(self)->*Field));
  }
}

template <class T, T ModelObject::*Field>
int set_number(PyObject* self, PyObject* value, void*) {
  if (value == nullptr) {
    PyErr_SetString(PyExc_TypeError, "this field cannot be deleted");
    return -1;
  }
  if constexpr (std::is_same_v<T, bool>) {
    int t = PyObject_IsTrue(value);
    if (t < 0) return -1;
    as_model(self)->*Field = t != 0;
  } else {
    long long v = PyLong_AsLongLong(value);
    if (v == -1 && PyErr_Occurred()) return -1;
    as_model(self)->*Field = static_cast<T>(v);
  }
  return 0;
}

#define MODEL_NUMBER(name, type, field, doc) \
  {name, get_number<type, &ModelObject::field>, set_number<type, &ModelObject::field>, doc, nullptr}
#define MODEL_LIST(name, kind, doc) \
  {name, get_list, set_list, doc, reinterpret_cast<void*>(static_cast<std::intptr_t>(kind))}

PyGetSetDef model_getset[] = {
    {"_cmodel", get_cmodel, nullptr, "The library model handle, or None once disposed.", nullptr},
    {"_callback", get_callback, set_callback, "The active callback object during a solve, or None.", nullptr},
    {"_uenv", get_uenv, nullptr, "The environment the model was created in.", nullptr},
    {"_env", get_env, nullptr, "The Env over the model's own copy of its environment.", nullptr},
    MODEL_LIST("_Model__vars", VLM_KIND_VAR, "Variable handles in index order, then pending additions."),
    MODEL_LIST("_Model__constrs", VLM_KIND_CONSTR, "Linear constraint handles, as for variables."),
    MODEL_LIST("_Model__sos", VLM_KIND_SOS, "SOS constraint handles."),
    MODEL_LIST("_Model__qconstrs", VLM_KIND_QCONSTR, "Quadratic constraint handles."),
    MODEL_LIST("_Model__genconstrs", VLM_KIND_GENCONSTR, "General constraint handles."),
    MODEL_NUMBER("_Model__livevars", Py_ssize_t, livevars, "Variables that existed at the last update."),
    MODEL_NUMBER("_Model__liveconstrs", Py_ssize_t, liveconstrs, "Linear constraints that existed at the last update."),
    MODEL_NUMBER("_Model__delvars", bool, delvars, "True when a variable removal awaits the update."),
    MODEL_NUMBER("_Model__delconstrs", bool, delconstrs, "True when a constraint removal awaits the update."),
    MODEL_NUMBER("_Model__updatemode", int, updatemode, "Cached UpdateMode parameter; -1 reads it again."),
    MODEL_NUMBER("_Model__newranges", int, newranges, "Range constraints added in immediate mode since the last update."),
    MODEL_NUMBER("_modcnt", long, modcnt, "Modification counter."),
    {"__dict__", PyObject_GenericGetDict, PyObject_GenericSetDict, "The object's own fields.", nullptr},
    {nullptr, nullptr, nullptr, nullptr, nullptr}};

#undef MODEL_NUMBER
#undef MODEL_LIST

#define VARARGS_KW(fn) (PyCFunction)(void (*)(void))py::guarded<&fn>, METH_VARARGS | METH_KEYWORDS

PyMethodDef model_methods[] = {
    {"getAttr", VARARGS_KW(model_getattr_method),
     "getAttr($self, attrname, objs=None)\n--\n\n"
     "Reads a library attribute. Without objs: a model attribute (m.getAttr('ObjVal')), or an\n"
     "element attribute for all elements of its kind as a list (m.getAttr('X')). With a list\n"
     "of elements: the list of their values, read in one call. With a dict (e.g. a tupledict of\n"
     "variables): a dict with the same keys.\n\n"
     "Failures of the list reads raise VelmorError; model attributes that are not available\n"
     "raise AttributeError."},
    {"setAttr", VARARGS_KW(model_setattr_method),
     "setAttr($self, attrname, arg1, arg2=None)\n--\n\n"
     "Sets a library attribute: m.setAttr('ModelSense', -1) for a model attribute;\n"
     "m.setAttr('UB', vars, [1, 2, 3]) or m.setAttr('UB', vars, 0.0) for elements (a dict of\n"
     "elements takes a dict of values by key, a list, or one value). Changes take effect at the\n"
     "next update."},
    {"prefetchAttr", py::guarded<&model_prefetchattr>, METH_O,
     "prefetchAttr($self, attrname)\n--\n\nPrepares a run of element reads of one attribute."},
    {"__dir__", py::guarded<&model_dir>, METH_NOARGS,
     "The names stored on the model plus the model attribute names of the library."},
    {"setParam", VARARGS_KW(model_setparam),
     "setParam($self, paramname, newval)\n--\n\nSets a parameter of this model only (its own copy of the\n"
     "environment). Example: m.setParam('TimeLimit', 60)"},
    {"getParamInfo", py::guarded<&model_getparaminfo>, METH_O,
     "getParamInfo($self, paramname)\n--\n\nReturns (name, type, value, minimum, maximum, default) of a\n"
     "parameter of this model."},
    {"fixTuneParam", py::guarded<&model_fixtuneparam>, METH_O,
     "fixTuneParam($self, paramname)\n--\n\nKeeps the tuner from changing this parameter of the model."},
    {"resetParams", py::guarded<&model_resetparams>, METH_NOARGS,
     "resetParams($self)\n--\n\nRestores every parameter of this model to its default."},
    {"_Model__setup", VARARGS_KW(model_setup_method),
     "__setup(empty=False)\n\nBuilds the element handle lists when they do not exist yet."},
    {"_Model__getupdatemode", py::guarded<&model_getupdatemode_method>, METH_NOARGS,
     "__getupdatemode()\n\nThe UpdateMode parameter, cached until the next update."},
    {"getVars", py::guarded<&model_getvars>, METH_NOARGS,
     "getVars($self)\n--\n\nReturns a new list of the model's variables as of the last update."},
    {"getConstrs", py::guarded<&model_getconstrs>, METH_NOARGS,
     "getConstrs($self)\n--\n\nReturns a new list of the model's linear constraints as of the last update."},
    {"getSOSs", py::guarded<&model_getsoss>, METH_NOARGS,
     "getSOSs($self)\n--\n\nReturns a new list of the model's SOS constraints."},
    {"getQConstrs", py::guarded<&model_getqconstrs>, METH_NOARGS,
     "getQConstrs($self)\n--\n\nReturns a new list of the model's quadratic constraints."},
    {"getGenConstrs", py::guarded<&model_getgenconstrs>, METH_NOARGS,
     "getGenConstrs($self)\n--\n\nReturns a new list of the model's general constraints."},
    {"getVarByName", py::guarded<&model_getvarbyname>, METH_O,
     "getVarByName($self, name)\n--\n\nThe variable with this name, or None."},
    {"getConstrByName", py::guarded<&model_getconstrbyname>, METH_O,
     "getConstrByName($self, name)\n--\n\nThe linear constraint with this name, or None."},
    {"_owns", py::guarded<&model_owns>, METH_O,
     "_owns($self, object)\n--\n\nTrue when the element belongs to this model."},
    {"remove", py::guarded<&model_remove>, METH_O,
     "remove($self, items)\n--\n\nRemoves a Var, Constr, SOS, QConstr or GenConstr, or every element of a\n"
     "list, tuple or dict (its values) of them, or of a matrix variable or constraint. The\n"
     "removal takes effect at the next update; elements already removed are ignored."},
    {"_removeone", py::guarded<&model_removeone>, METH_O,
     "_removeone($self, item)\n--\n\nMarks one element for removal at the next update."},
#define FASTCALL_KW(fn) (PyCFunction)(void (*)(void))py::guarded<&fn>, METH_FASTCALL | METH_KEYWORDS
    {"addVar", FASTCALL_KW(model_addvar), model_addvar_doc},
    {"addVars", FASTCALL_KW(model_addvars), model_addvars_doc},
    {"addLConstr", FASTCALL_KW(model_addlconstr), model_addlconstr_doc},
    {"addConstr", FASTCALL_KW(model_addconstr), model_addconstr_doc},
    {"addQConstr", FASTCALL_KW(model_addqconstr), model_addqconstr_doc},
    {"addRange", FASTCALL_KW(model_addrange), model_addrange_doc},
    {"addConstrs", FASTCALL_KW(model_addconstrs), model_addconstrs_doc},
    {"addSOS", FASTCALL_KW(model_addsos), model_addsos_doc},
    {"getCoeff", FASTCALL_KW(model_getcoeff), model_getcoeff_doc},
    {"chgCoeff", FASTCALL_KW(model_chgcoeff), model_chgcoeff_doc},
    {"getCol", FASTCALL_KW(model_getcol), model_getcol_doc},
    {"getRow", FASTCALL_KW(model_getrow), model_getrow_doc},
    {"getQCRow", FASTCALL_KW(model_getqcrow), model_getqcrow_doc},
    {"getSOS", FASTCALL_KW(model_getsos), model_getsos_doc},
#undef FASTCALL_KW
    {"optimize", (PyCFunction)(void (*)(void))py::guarded<&model_optimize>,
     METH_FASTCALL | METH_KEYWORDS, model_optimize_doc},
    {"terminate", py::guarded<&model_terminate>, METH_NOARGS, model_terminate_doc},
    {"tune", py::guarded<&model_tune>, METH_NOARGS, model_tune_doc},
    {"getTuneResult", py::guarded<&model_gettuneresult>, METH_O, model_gettuneresult_doc},
    {"optimizeBatch", py::guarded<&model_optimizebatch>, METH_NOARGS, model_optimizebatch_doc},
    {"setObjective", VARARGS_KW(model_setobjective), model_setobjective_doc},
    {"setObjectiveN", VARARGS_KW(model_setobjectiven), model_setobjectiven_doc},
    {"getObjective", VARARGS_KW(model_getobjective), model_getobjective_doc},
    {"setPWLObj", VARARGS_KW(model_setpwlobj), model_setpwlobj_doc},
    {"getPWLObj", py::guarded<&model_getpwlobj>, METH_O, model_getpwlobj_doc},
    {"update", py::guarded<&model_update_method>, METH_NOARGS,
     "update($self)\n--\n\nApplies pending changes: removals, then additions and modifications. Elements\n"
     "added since the last update appear in getVars() and getConstrs() afterwards."},
    {"reset", VARARGS_KW(model_reset),
     "reset($self, clearall=0)\n--\n\nDiscards solution information; with clearall=1 also starts, hints\n"
     "and other inputs that only guide the solver."},
    {"copy", py::guarded<&model_copy>, METH_NOARGS,
     "copy($self)\n--\n\nReturns a copy of the model as of its last update (pending changes are not\n"
     "copied), created in the same environment."},
    {"write", py::guarded<&model_write>, METH_O,
     "write($self, filename)\n--\n\nWrites the model (.lp, .mps, optionally .gz), its attribute data or its\n"
     "parameters (.prm); the suffix decides. Pending changes are applied first for model and\n"
     "attribute files.\n\nExample: m.write('model.lp')"},
    {"read", py::guarded<&model_read>, METH_O,
     "read($self, filename)\n--\n\nReads data into the model by the file's suffix: attributes, parameters,\n"
     "starts, bases. '*' and '?' are expanded (the first match is read)."},
    {"message", py::guarded<&model_message_method>, METH_O,
     "message($self, msg)\n--\n\nWrites a line to the model's log."},
    {"dispose", py::guarded<&model_dispose>, METH_NOARGS,
     "dispose($self)\n--\n\nFrees the library model. Its elements become unusable. Disposing twice does\n"
     "nothing."},
    {"close", py::guarded<&model_dispose>, METH_NOARGS, "close($self)\n--\n\nSame as dispose()."},
    {"__enter__", py::guarded<&model_enter>, METH_NOARGS, "Returns the model itself."},
    {"__exit__", (PyCFunction)(void (*)(void))py::guarded<&model_exit>, METH_FASTCALL,
     "Disposes the model when the with-block ends; exceptions propagate."},
    {"display", VARARGS_KW(model_display),
     "display($self, obj=None)\n--\n\nWrites the model to the log in a readable, LP-like form: objective,\n"
     "constraints, bounds and integer variables. With obj, writes str(obj) instead."},
    {"_splitlongmessage", VARARGS_KW(model_splitlongmessage),
     "_splitlongmessage($self, longstring, sep=' ', length=80)\n--\n\nWrites a long text to the log in pieces cut\n"
     "at the last separator before the length limit."},
    {"printStats", py::guarded<&model_printstats>, METH_NOARGS,
     "printStats($self)\n--\n\nWrites size, variable types and coefficient ranges of the model to the log."},
    {"printQuality", py::guarded<&model_printquality>, METH_NOARGS,
     "printQuality($self)\n--\n\nWrites the largest bound, constraint and integrality (or dual and\n"
     "complementarity) violations of the current solution to the log."},
    {"printAttr", VARARGS_KW(model_printattr),
     "printAttr($self, attrname, filter='*')\n--\n\nPrints a table of one attribute (or a list of them) for\n"
     "the model or every element that carries it, for elements whose names match filter; zero\n"
     "numeric values are left out.\n\nExample: m.printAttr('X')"},
    {"_getConstrName", py::guarded<&model_getconstrname>, METH_O,
     "_getConstrName($self, index)\n--\n\nThe name of a row index counted across linear, quadratic, SOS and\n"
     "general constraints."},
    {"addGenConstrMax", VARARGS_KW(model_addgenconstrmax), model_addgenconstrmax_doc},
    {"addGenConstrMin", VARARGS_KW(model_addgenconstrmin), model_addgenconstrmin_doc},
    {"addGenConstrAbs", VARARGS_KW(model_addgenconstrabs), model_addgenconstrabs_doc},
    {"addGenConstrAnd", VARARGS_KW(model_addgenconstrand), model_addgenconstrand_doc},
    {"addGenConstrOr", VARARGS_KW(model_addgenconstror), model_addgenconstror_doc},
    {"addGenConstrNorm", VARARGS_KW(model_addgenconstrnorm), model_addgenconstrnorm_doc},
    {"addGenConstrIndicator", VARARGS_KW(model_addgenconstrindicator), model_addgenconstrindicator_doc},
    {"addGenConstrPWL", VARARGS_KW(model_addgenconstrpwl), model_addgenconstrpwl_doc},
    {"addGenConstrPoly", VARARGS_KW(model_addgenconstrpoly), model_addgenconstrpoly_doc},
    {"addGenConstrExp", VARARGS_KW(model_addgenconstrexp), model_addgenconstrexp_doc},
    {"addGenConstrExpA", VARARGS_KW(model_addgenconstrexpa), model_addgenconstrexpa_doc},
    {"addGenConstrLog", VARARGS_KW(model_addgenconstrlog), model_addgenconstrlog_doc},
    {"addGenConstrLogA", VARARGS_KW(model_addgenconstrloga), model_addgenconstrloga_doc},
    {"addGenConstrPow", VARARGS_KW(model_addgenconstrpow), model_addgenconstrpow_doc},
    {"addGenConstrLogistic", VARARGS_KW(model_addgenconstrlogistic), model_addgenconstrlogistic_doc},
    {"addGenConstrSin", VARARGS_KW(model_addgenconstrsin), model_addgenconstrsin_doc},
    {"addGenConstrCos", VARARGS_KW(model_addgenconstrcos), model_addgenconstrcos_doc},
    {"addGenConstrTan", VARARGS_KW(model_addgenconstrtan), model_addgenconstrtan_doc},
    {"getGenConstrMax", py::guarded<&model_getgenconstrmax>, METH_O, model_getgenconstrmax_doc},
    {"getGenConstrMin", py::guarded<&model_getgenconstrmin>, METH_O, model_getgenconstrmin_doc},
    {"getGenConstrAbs", py::guarded<&model_getgenconstrabs>, METH_O, model_getgenconstrabs_doc},
    {"getGenConstrAnd", py::guarded<&model_getgenconstrand>, METH_O, model_getgenconstrand_doc},
    {"getGenConstrOr", py::guarded<&model_getgenconstror>, METH_O, model_getgenconstror_doc},
    {"getGenConstrNorm", py::guarded<&model_getgenconstrnorm>, METH_O, model_getgenconstrnorm_doc},
    {"getGenConstrIndicator", py::guarded<&model_getgenconstrindicator>, METH_O, model_getgenconstrindicator_doc},
    {"getGenConstrPWL", py::guarded<&model_getgenconstrpwl>, METH_O, model_getgenconstrpwl_doc},
    {"getGenConstrPoly", py::guarded<&model_getgenconstrpoly>, METH_O, model_getgenconstrpoly_doc},
    {"getGenConstrExp", py::guarded<&model_getgenconstrexp>, METH_O, model_getgenconstrexp_doc},
    {"getGenConstrExpA", py::guarded<&model_getgenconstrexpa>, METH_O, model_getgenconstrexpa_doc},
    {"getGenConstrLog", py::guarded<&model_getgenconstrlog>, METH_O, model_getgenconstrlog_doc},
    {"getGenConstrLogA", py::guarded<&model_getgenconstrloga>, METH_O, model_getgenconstrloga_doc},
    {"getGenConstrPow", py::guarded<&model_getgenconstrpow>, METH_O, model_getgenconstrpow_doc},
    {"getGenConstrLogistic", py::guarded<&model_getgenconstrlogistic>, METH_O, model_getgenconstrlogistic_doc},
    {"getGenConstrSin", py::guarded<&model_getgenconstrsin>, METH_O, model_getgenconstrsin_doc},
    {"getGenConstrCos", py::guarded<&model_getgenconstrcos>, METH_O, model_getgenconstrcos_doc},
    {"getGenConstrTan", py::guarded<&model_getgenconstrtan>, METH_O, model_getgenconstrtan_doc},
    {nullptr, nullptr, 0, nullptr}};

#undef VARARGS_KW

const char model_doc[] =
    "Model(name=\"\", env=None)\n--\n\n"
    "An optimisation model: variables, constraints and an objective, held by the library.\n"
    "Without env the default environment is used. Library attributes read and write as\n"
    "Python attributes (m.NumVars, m.ModelSense = -1); names that begin with '_' are stored\n"
    "on the object. Additions and removals take effect at update(), which optimize() and\n"
    "write() run first.\n\n"
    "Use it as a context manager to dispose it at the end of a with-block:\n\n"
    "    with Model(\"diet\") as m:\n"
    "        ...";

}  // namespace

bool model_check(PyObject* o) { return PyObject_TypeCheck(o, &ModelType); }

PyTypeObject* model_type_object() { return &ModelType; }

// The shared core of an initialised Model, for the element handles (through services()).
ModelCore* model_core_of(PyObject* obj) { return model_check(obj) ? as_model(obj)->core : nullptr; }

VLMmodel* model_handle_of(PyObject* obj, bool* found) {
  *found = true;
  if (model_check(obj)) return model_handle(obj);
  if (handle_kind(obj) != 0) return handle_cmodel(obj);
  *found = false;
  return nullptr;
}

py::Ref model_adopt(VLMmodel* handle, PyObject* env) {
  py::Ref capsule = py::Ref::steal(PyCapsule_New(handle, kCapsuleName, nullptr));
  if (!capsule) {
    VLMfreemodel(handle);
    return capsule;
  }
  py::Ref args = py::Ref::steal(PyTuple_New(0));
  py::Ref kwargs = py::Ref::steal(Py_BuildValue("{sOsO}", "cmodel", capsule.get(), "env", env ? env : Py_None));
  if (!args || !kwargs) {
    VLMfreemodel(handle);
    return py::Ref();
  }
  return py::Ref::steal(PyObject_Call(reinterpret_cast<PyObject*>(&ModelType), args.get(), kwargs.get()));
}

int register_model(PyObject* m) {
  ModuleServices& s = services();
  s.model_type = &ModelType;
  s.model_handle_of = model_handle_of;
  s.model_adopt = model_adopt;
  s.model_core = model_core_of;
  g_env_type = PyObject_GetAttrString(m, "Env");
  g_param_type = g_env_type ? PyObject_GetAttrString(m, "ParamClass") : nullptr;
  if (g_param_type == nullptr) return -1;
  if (register_model_callback(m) < 0) return -1;
  ModelType.tp_basicsize = sizeof(ModelObject);
  ModelType.tp_flags = Py_TPFLAGS_DEFAULT | Py_TPFLAGS_BASETYPE | Py_TPFLAGS_HAVE_GC;
  ModelType.tp_doc = model_doc;
  ModelType.tp_new = py::guarded<&model_new>;
  ModelType.tp_init = py::guarded<&model_init>;
  ModelType.tp_dealloc = model_dealloc;
  ModelType.tp_finalize = model_finalize;
  ModelType.tp_traverse = model_traverse;
  ModelType.tp_clear = model_clear;
  ModelType.tp_repr = py::guarded<&model_repr>;
  ModelType.tp_getattro = py::guarded<&model_getattro>;
  ModelType.tp_setattro = py::guarded<&model_setattro>;
  // Aspects with tables of their own (the matrix layer, analysis, derived models) join the type's table here.
  static std::vector<PyMethodDef> methods;
  for (const PyMethodDef* table : {model_methods, model_matrix_methods, model_analysis_methods, model_derive_methods,
                                    model_envs_methods, model_callback_methods}) {
    for (const PyMethodDef* d = table; d->ml_name != nullptr; ++d) methods.push_back(*d);
  }
  methods.push_back({nullptr, nullptr, 0, nullptr});
  ModelType.tp_methods = methods.data();
  ModelType.tp_getset = model_getset;
  ModelType.tp_dictoffset = offsetof(ModelObject, dict);
  ModelType.tp_weaklistoffset = offsetof(ModelObject, weakreflist);
  if (PyType_Ready(&ModelType) < 0) return -1;
  Py_INCREF(&ModelType);
  return PyModule_AddObject(m, "Model", reinterpret_cast<PyObject*>(&ModelType));
}
