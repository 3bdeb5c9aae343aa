// quicksum and the pickling of LinExpr: the family's module functions (quicksum,
// _unpickle_LinExpr), the `__reduce__` method, and the unpickling start QuadExpr shares.
#include <cmath>
#include <cstdio>
#include <cstring>
#include <vector>

#include "core/py_error.h"
#include "elements/var.h"
#include "expr/linexpr.h"
#include "expr/linexpr_util.h"
#include "expr/quadexpr.h"

namespace {

PyObject* g_unpickle = nullptr;        // velmorpy._unpickle_LinExpr
PyObject* g_pickle_error = nullptr;    // pickle.PickleError

// The checksums of the pickled field layout (_coeffs, _constant, _continue, _vars); the
// first is written, all three are accepted.
constexpr unsigned long kChecksums[] = {0x48e5078, 0xdfd0361, 0xb50ec08};

// ---- quicksum --------------------------------------------------------------------------------

// Accumulates items into a LinExpr, switching to a QuadExpr at the first quadratic item and to
// Python's in-place addition at the first item of any other type (matrix expressions, user
// types), so that such items still reach their own operators.
class Summer {
 public:
  bool start(size_t hint) {
    LinExprObject* e = lin_alloc();
    if (e == nullptr) return false;
    lin_ = own(e);
    if (hint) e->terms.reserve(hint);
    return true;
  }

  bool add(PyObject* item) {
    if (generic_) return add_generic(item);
    double v = 0;
    int k = expr_classify(item, &v);
    if (k < 0) return false;
    LinExprObject* e = as_linexpr(lin_.get());
    switch (k) {
      case kOperandVar:
        Py_INCREF(item);
        e->terms.push_back({1.0, item});
        return true;
      case kOperandLinExpr:
        e->constant += linexpr_append_all(e->terms, item, 1.0);
        return true;
      case kOperandNumber:
        if (std::isnan(v)) {
          invalid("Constant is Nan");
          return false;
        }
        e->constant += v;
        return true;
      case kOperandQuadExpr:
        return add_quad(item);
      default:
        return switch_to_generic(item);
    }
  }

  py::Ref result() {
    if (generic_) return std::move(acc_);
    as_linexpr(lin_.get())->terms.shrink();
    if (quad_) return std::move(quad_);
    return std::move(lin_);
  }

 private:
  bool add_generic(PyObject* item) {
    acc_ = py::Ref::steal(PyNumber_InPlaceAdd(acc_.get(), item));
    return static_cast<bool>(acc_);
  }

  // The rarer cases stay out of add(), which the summing loops take in whole.
  bool add_quad(PyObject* item);
  bool switch_to_generic(PyObject* item);

  py::Ref lin_;
  py::Ref quad_;
  py::Ref acc_;
  bool generic_ = false;
};

bool Summer::add_quad(PyObject* item) {
  if (!quad_) {
    quad_ = quadexpr_from(nullptr);
    if (!quad_) return false;
    // The linear sum so far becomes the quadratic expression's linear part.
    py::Ref old = py::Ref::steal(as_quadexpr(quad_.get())->lin);
    as_quadexpr(quad_.get())->lin = lin_.release();
    lin_ = py::Ref::borrow(as_quadexpr(quad_.get())->lin);
  }
  return quadexpr_add(quad_.get(), item, 1.0) >= 0;
}

bool Summer::switch_to_generic(PyObject* item) {
  acc_ = result();
  generic_ = true;
  return add_generic(item);
}

}  // namespace

py::Ref quicksum_impl(PyObject* iterable) {
  if (expr_is_tupledict(iterable)) {
    py::Ref values = py::Ref::steal(PyObject_CallMethod(iterable, "values", nullptr));
    if (!values) return values;
    return quicksum_impl(values.get());
  }
  if (expr_is_matrix(iterable)) return py::Ref::steal(PyObject_CallMethod(iterable, "sum", nullptr));
  Summer sum;
  if (PyList_Check(iterable) || PyTuple_Check(iterable)) {
    if (!sum.start(static_cast<size_t>(Py_SIZE(iterable)))) return py::Ref();
    // Items are read by position each time: an item's own operators may change the list.
    for (Py_ssize_t i = 0; i < Py_SIZE(iterable); ++i) {
      py::Ref item = py::Ref::borrow(PyList_Check(iterable) ? PyList_GET_ITEM(iterable, i) : PyTuple_GET_ITEM(iterable, i));
      if (!sum.add(item.get())) return py::Ref();
    }
    return sum.result();
  }
  py::Ref it = py::Ref::steal(PyObject_GetIter(iterable));
  if (!it) return it;
  Py_ssize_t hint = PyObject_LengthHint(iterable, 0);
  if (hint < 0) return py::Ref();
  if (!sum.start(static_cast<size_t>(hint))) return py::Ref();
  while (py::Ref item = py::Ref::steal(PyIter_Next(it.get()))) {
    if (!sum.add(item.get())) return py::Ref();
  }
  if (PyErr_Occurred()) return py::Ref();
  return sum.result();
}

// ---- pickling ----------------------------------------------------------------------------------

// Pickled state: the whole chain as one node (a chain of thousands of tails would exceed the
// pickler's recursion limit), in the field order _coeffs, _constant, _continue, _vars.
PyObject* lin_reduce(PyObject* self, PyObject*) {
  size_t n = linexpr_total_size(self);
  py::Ref coeffs = py::Ref::steal(PyList_New(static_cast<Py_ssize_t>(n)));
  py::Ref vars = py::Ref::steal(PyList_New(static_cast<Py_ssize_t>(n)));
  if (!coeffs || !vars) return nullptr;
  size_t i = 0;
  bool ok = true;
  linexpr_for_each_node(self, [&](const LinExprObject* node) {
    for (const LinTerm& t : node->terms) {
      PyObject* c = PyFloat_FromDouble(t.coeff);
      if (c == nullptr) {
        ok = false;
        return;
      }
      PyList_SET_ITEM(coeffs.get(), static_cast<Py_ssize_t>(i), c);
      PyList_SET_ITEM(vars.get(), static_cast<Py_ssize_t>(i), py::new_ref(t.var));
      ++i;
    }
  });
  if (!ok) return nullptr;
  return Py_BuildValue("O(Ok(OdOO))", g_unpickle, reinterpret_cast<PyObject*>(Py_TYPE(self)), kChecksums[0],
                       coeffs.get(), linexpr_total_constant(self), Py_None, vars.get());
}

PyObject* expr_pickle_error() {
  if (g_pickle_error == nullptr) {
    py::Ref pickle = py::Ref::steal(PyImport_ImportModule("pickle"));
    if (!pickle) return PyExc_Exception;
    g_pickle_error = PyObject_GetAttrString(pickle.get(), "PickleError");
    if (g_pickle_error == nullptr) {
      PyErr_Clear();
      return PyExc_Exception;
    }
  }
  return g_pickle_error;
}

py::Ref expr_unpickle_start(const char* fn, PyObject* type, PyObject* checksum,
                            const unsigned long (&accepted)[3], const char* fields, PyTypeObject* base) {
  unsigned long sum = PyLong_AsUnsignedLongMask(checksum);
  if (sum == static_cast<unsigned long>(-1) && PyErr_Occurred()) return py::Ref();
  bool known = false;
  for (unsigned long c : accepted) known |= c == sum;
  if (!known) {
    char text[200];
    std::snprintf(text, sizeof text, "Incompatible checksums (0x%lx vs (0x%lx, 0x%lx, 0x%lx) = (%s))", sum,
                  accepted[0], accepted[1], accepted[2], fields);
    PyErr_SetString(expr_pickle_error(), text);
    return py::Ref();
  }
  if (!PyType_Check(type) || !PyType_IsSubtype(reinterpret_cast<PyTypeObject*>(type), base)) {
    PyErr_Format(PyExc_TypeError, "%s() needs a %s type", fn, base->tp_name + std::strlen("velmorpy."));
    return py::Ref();
  }
  PyTypeObject* t = reinterpret_cast<PyTypeObject*>(type);
  py::Ref empty = py::Ref::steal(PyTuple_New(0));
  if (!empty) return py::Ref();
  return py::Ref::steal(t->tp_new(t, empty.get(), nullptr));
}

namespace {

PyObject* quicksum_fn(PyObject*, PyObject* arg) { return quicksum_impl(arg).release(); }

PyObject* unpickle_fn(PyObject*, PyObject* const* args, Py_ssize_t nargs) {
  if (nargs != 3) return py::raise(PyExc_TypeError, "_unpickle_LinExpr() takes exactly 3 arguments");
  py::Ref result = expr_unpickle_start("_unpickle_LinExpr", args[0], args[1], kChecksums,
                                       "_coeffs, _constant, _continue, _vars", &LinExprType);
  if (!result) return nullptr;
  PyObject* state = args[2];
  if (state == Py_None) return result.release();
  if (!PyTuple_Check(state) || PyTuple_GET_SIZE(state) < 4) {
    return py::raise(PyExc_TypeError, "LinExpr state must be a tuple (_coeffs, _constant, _continue, _vars)");
  }
  PyObject* coeffs = PyTuple_GET_ITEM(state, 0);
  PyObject* cont = PyTuple_GET_ITEM(state, 2);
  PyObject* vars = PyTuple_GET_ITEM(state, 3);
  double constant = PyFloat_AsDouble(PyTuple_GET_ITEM(state, 1));
  if (constant == -1.0 && PyErr_Occurred()) return nullptr;
  if (!PyList_Check(coeffs) || !PyList_Check(vars) || PyList_GET_SIZE(coeffs) != PyList_GET_SIZE(vars)) {
    return py::raise(PyExc_TypeError, "LinExpr state: _coeffs and _vars must be lists of one length");
  }
  if (cont != Py_None && !linexpr_check(cont)) {
    return py::raise(PyExc_TypeError, "LinExpr state: _continue must be a LinExpr or None");
  }
  LinExprObject* e = as_linexpr(result.get());
  Py_ssize_t n = PyList_GET_SIZE(coeffs);
  std::vector<double> c(static_cast<size_t>(n));
  for (Py_ssize_t i = 0; i < n; ++i) {
    c[i] = PyFloat_AsDouble(PyList_GET_ITEM(coeffs, i));
    if (c[i] == -1.0 && PyErr_Occurred()) return nullptr;
    if (!var_check(PyList_GET_ITEM(vars, i))) return py::raise(PyExc_TypeError, "LinExpr state: _vars must hold Var objects");
  }
  e->terms.reserve(static_cast<size_t>(n));
  for (Py_ssize_t i = 0; i < n; ++i) {
    PyObject* v = PyList_GET_ITEM(vars, i);
    Py_INCREF(v);
    e->terms.push_back({c[i], v});
  }
  e->constant = constant;
  if (cont != Py_None) py::assign(e->cont, cont);
  return result.release();
}

PyMethodDef module_functions[] = {
    {"quicksum", py::guarded<&quicksum_fn>, METH_O,
     "quicksum(iterable)\n--\n\nA quicker version of the Python built-in 'sum' function for building expressions:\n"
     "quicksum(iterable) adds the items into one new expression without intermediate results.\n\n"
     "    expr = quicksum(c[i] * x[i] for i in range(n))\n\n"
     "The result is a LinExpr, or a QuadExpr once a quadratic item is met. A tupledict is\n"
     "summed over its values; matrix objects are summed with their own sum()."},
    {"_unpickle_LinExpr", (PyCFunction)(void (*)(void))py::guarded<&unpickle_fn>, METH_FASTCALL,
     "Rebuilds a pickled LinExpr."},
    {nullptr, nullptr, 0, nullptr}};

}  // namespace

int linexpr_add_functions(PyObject* m) {
  if (PyModule_AddFunctions(m, module_functions) < 0) return -1;
  g_unpickle = PyObject_GetAttrString(m, "_unpickle_LinExpr");
  return g_unpickle == nullptr ? -1 : 0;
}
