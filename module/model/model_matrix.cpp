// Model methods of the matrix layer (see model_matrix.h).
#include "model/model_matrix.h"

#include <climits>
#include <cstring>
#include <string>
#include <vector>

#include "core/py_convert.h"
#include "core/py_error.h"
#include "elements/handle.h"
#include "matrix/mconstr.h"
#include "matrix/mexpr.h"
#include "matrix/mqconstr.h"
#include "matrix/mvar.h"
#include "matrix/np_call.h"
#include "model/model.h"

namespace {

PyObject* invalid(const std::string& message) { return raise_velmor_msg(VLM_ERROR_INVALID_ARGUMENT, message.c_str()); }

// VelmorError(invalid argument) from a format with Python objects (%S, %R).
template <class... Args>
PyObject* invalid_fmt(const char* format, Args... args) {
  py::Ref msg = py::Ref::steal(PyUnicode_FromFormat(format, args...));
  if (!msg) return nullptr;
  return invalid(PyUnicode_AsUTF8(msg.get()));
}

VLMmodel* alive(PyObject* self) {
  VLMmodel* h = model_handle(self);
  if (h == nullptr) raise_velmor_msg(VLM_ERROR_INVALID_ARGUMENT, "Model has already been freed");
  return h;
}

// An int or a sequence of ints as a shape tuple; TypeError / ValueError otherwise.
py::Ref shape_arg(PyObject* shape) {
  py::Ref t = PyLong_Check(shape) ? py::Ref::steal(PyTuple_Pack(1, shape)) : py::Ref::steal(PySequence_Tuple(shape));
  if (!t) return t;
  for (Py_ssize_t i = 0; i < PyTuple_GET_SIZE(t.get()); ++i) {
    PyObject* d = PyTuple_GET_ITEM(t.get(), i);
    Py_ssize_t v = PyLong_Check(d) ? PyLong_AsSsize_t(d) : -1;
    if (v < 0) {
      if (!PyErr_Occurred()) PyErr_Format(PyExc_ValueError, "Invalid shape %R: dimensions must be non-negative ints", shape);
      return py::Ref();
    }
  }
  return t;
}

// `value` (a scalar, list or ndarray) broadcast to `shape`, converted to `dtype`, contiguous.
bool broadcast_arg(PyObject* value, const char* dtype, PyObject* shape, np::View* out) {
  py::Ref arr = np::fn("asarray", {value}, {{"dtype", np::text(dtype).get()}});
  arr = np::fn("broadcast_to", {arr.get(), shape});
  return arr && out->open(arr.get(), dtype);
}

// prefix[i,j,...] for every multi-index of `shape` in C order.
bool indexed_names(const char* prefix, PyObject* shape, std::vector<std::string>* names) {
  const Py_ssize_t nd = PyTuple_GET_SIZE(shape);
  std::vector<Py_ssize_t> dims(static_cast<size_t>(nd)), idx(static_cast<size_t>(nd), 0);
  Py_ssize_t n = 1;
  for (Py_ssize_t i = 0; i < nd; ++i) {
    dims[static_cast<size_t>(i)] = PyLong_AsSsize_t(PyTuple_GET_ITEM(shape, i));
    n *= dims[static_cast<size_t>(i)];
  }
  names->reserve(static_cast<size_t>(n));
  for (Py_ssize_t k = 0; k < n; ++k) {
    std::string s = prefix;
    s += '[';
    for (Py_ssize_t i = 0; i < nd; ++i) {
      if (i) s += ',';
      s += std::to_string(idx[static_cast<size_t>(i)]);
    }
    s += ']';
    names->push_back(std::move(s));
    for (Py_ssize_t i = nd - 1; i >= 0; --i) {
      if (++idx[static_cast<size_t>(i)] < dims[static_cast<size_t>(i)]) break;
      idx[static_cast<size_t>(i)] = 0;
    }
  }
  return true;
}

// The names of a block: none for None or "", a prefix for a str, else an array of exactly
// `shape`. `ptrs` point into `store` or into the str objects `keep` holds.
bool names_arg(PyObject* name, PyObject* shape, std::vector<std::string>* store, std::vector<const char*>* ptrs,
               py::Ref* keep) {
  if (name == nullptr || name == Py_None) return true;
  if (PyUnicode_Check(name)) {
    if (PyUnicode_GET_LENGTH(name) == 0) return true;
    const char* prefix = py::utf8(name);
    if (prefix == nullptr || !indexed_names(prefix, shape, store)) return false;
    for (const std::string& s : *store) ptrs->push_back(s.c_str());
    return true;
  }
  py::Ref arr = np::fn("asarray", {name}, {{"dtype", np::text("O").get()}});
  py::Ref given = np::shape_of(arr.get());
  if (!given) return false;
  int same = PyObject_RichCompareBool(given.get(), shape, Py_EQ);
  if (same < 0) return false;
  if (!same) {
    py::raise(PyExc_ValueError, "name argument has incompatible shape");
    return false;
  }
  *keep = np::meth(arr.get(), "ravel");
  *keep = np::meth(keep->get(), "tolist");
  if (!*keep) return false;
  for (Py_ssize_t i = 0; i < PyList_GET_SIZE(keep->get()); ++i) {
    PyObject* s = PyList_GET_ITEM(keep->get(), i);
    const char* c = py::utf8(s);
    if (c == nullptr) return false;
    ptrs->push_back(c);
  }
  return true;
}

// The last `n` handles of one kind as an object array of `shape`.
py::Ref tail_array(PyObject* self, int kind, Py_ssize_t n, PyObject* shape) {
  PyObject* list = model_list(self, kind);
  if (list == nullptr) return py::Ref();
  const Py_ssize_t len = PyList_GET_SIZE(list);
  py::Ref arr = np::fn("empty", {np::integer(n).get()}, {{"dtype", np::text("O").get()}});
  // Filled through its buffer: assigning the list would make NumPy probe every handle for
  // nested sequences, which costs about a microsecond per element.
  np::View slots;
  if (!arr || !slots.open(arr.get(), "O") || slots.array() != arr.get()) return py::Ref();
  PyObject** out = slots.data<PyObject*>();
  for (Py_ssize_t i = 0; i < n; ++i) py::assign(out[i], PyList_GET_ITEM(list, len - n + i));
  return np::meth(arr.get(), "reshape", {shape});
}

// The library columns of the Vars of an object array (any shape, C order).
bool columns_of(PyObject* self, PyObject* vars, std::vector<int>* cols) {
  np::View objs;
  if (!objs.open(vars, "O")) return false;
  cols->resize(static_cast<size_t>(objs.size()));
  for (Py_ssize_t i = 0; i < objs.size(); ++i) {
    int c = model_var_column(self, objs.data<PyObject*>()[i]);
    if (c < 0) return false;
    (*cols)[static_cast<size_t>(i)] = c;
  }
  return true;
}

// Adds the rows of `csr` (N x K over the variables `cols`), senses and right-hand sides in one
// library call and returns them as an MConstr of `shape`. Duplicate variables within a row
// are merged (VLMclean2) before the call.
PyObject* add_rows(PyObject* self, PyObject* csr, const std::vector<int>& cols, const np::View& sense,
                   const np::View& rhs, PyObject* name, PyObject* shape) {
  VLMmodel* h = alive(self);
  if (h == nullptr) return nullptr;
  py::Ref nnz_obj = np::attr(csr, "nnz");
  if (!nnz_obj) return nullptr;
  const long long nnz = PyLong_AsLongLong(nnz_obj.get());
  if (nnz > INT_MAX || rhs.size() > INT_MAX) return invalid("Too many coefficients for one block of constraints");
  np::View ptr, ind, val;
  if (!ptr.open(np::attr(csr, "indptr").get(), "int64") || !ind.open(np::attr(csr, "indices").get(), "int64") ||
      !val.open(np::attr(csr, "data").get(), "float64")) {
    return nullptr;
  }
  const int n = static_cast<int>(rhs.size());
  std::vector<int> beg(static_cast<size_t>(n) + 1), cind(static_cast<size_t>(nnz));
  std::vector<double> cval(static_cast<size_t>(nnz));
  int out = 0;
  for (int r = 0; r < n; ++r) {
    beg[static_cast<size_t>(r)] = out;
    int len = 0;
    for (long long k = ptr.data<long long>()[r]; k < ptr.data<long long>()[r + 1]; ++k) {
      cind[static_cast<size_t>(out + len)] = cols[static_cast<size_t>(ind.data<long long>()[k])];
      cval[static_cast<size_t>(out + len)] = val.data<double>()[k];
      ++len;
    }
    VLMclean2(&len, cind.data() + out, cval.data() + out);
    out += len;
  }
  beg[static_cast<size_t>(n)] = out;
  std::vector<double> b(static_cast<size_t>(n));
  for (int r = 0; r < n; ++r) b[static_cast<size_t>(r)] = py::to_lib_dbl(rhs.data<double>()[r]);
  std::vector<std::string> store;
  std::vector<const char*> names;
  py::Ref keep;
  if (!names_arg(name, shape, &store, &names, &keep)) return nullptr;
  if (model_setup(self, false) < 0) return nullptr;
  int rc = VLMaddconstrs(h, n, out, beg.data(), cind.data(), cval.data(), sense.data<char>(), b.data(),
                         names.empty() ? nullptr : names.data());
  if (rc != 0) return raise_velmor(rc, self);
  if (model_append_handles(self, VLM_KIND_CONSTR, n) < 0) return nullptr;
  py::Ref arr = tail_array(self, VLM_KIND_CONSTR, n, shape);
  if (!arr) return nullptr;
  return mconstr_new(arr.get(), self).release();
}

// ---- addMVar ---------------------------------------------------------------------------------

PyObject* model_addmvar(PyObject* self, PyObject* args, PyObject* kwds) {
  static const char* kwlist[] = {"shape", "lb", "ub", "obj", "vtype", "name", nullptr};
  PyObject *shape_in = nullptr, *lb = nullptr, *ub = nullptr, *obj = nullptr, *vtype = nullptr, *name = nullptr;
  if (!PyArg_ParseTupleAndKeywords(args, kwds, "O|OOOOO:addMVar", const_cast<char**>(kwlist), &shape_in, &lb, &ub,
                                   &obj, &vtype, &name)) {
    return nullptr;
  }
  VLMmodel* h = alive(self);
  if (h == nullptr || model_setup(self, false) < 0) return nullptr;
  py::Ref shape = shape_arg(shape_in);
  if (!shape) return nullptr;
  const Py_ssize_t n = np::shape_size(shape.get());
  if (n < 0) return nullptr;
  if (n > INT_MAX) return invalid("Too many variables for one MVar");
  py::Ref zero = py::Ref::steal(PyFloat_FromDouble(0.0));
  py::Ref inf = py::Ref::steal(PyFloat_FromDouble(VLM_INFINITY));
  py::Ref cont = np::text("C");
  np::View vlb, vub, vobj, vtyp;
  if (!broadcast_arg(lb && lb != Py_None ? lb : zero.get(), "float64", shape.get(), &vlb) ||
      !broadcast_arg(ub && ub != Py_None ? ub : inf.get(), "float64", shape.get(), &vub) ||
      !broadcast_arg(obj && obj != Py_None ? obj : zero.get(), "float64", shape.get(), &vobj) ||
      !broadcast_arg(vtype && vtype != Py_None ? vtype : cont.get(), "S1", shape.get(), &vtyp)) {
    return nullptr;
  }
  std::vector<std::string> store;
  std::vector<const char*> names;
  py::Ref keep;
  if (!names_arg(name, shape.get(), &store, &names, &keep)) return nullptr;
  // Without ub, binaries get 1 and the others infinity, as with addVar.
  std::vector<double> ubs;
  if (ub == nullptr || ub == Py_None) {
    ubs.resize(static_cast<size_t>(n));
    for (Py_ssize_t i = 0; i < n; ++i) ubs[static_cast<size_t>(i)] = vtyp.data<char>()[i] == 'B' ? 1.0 : VLM_INFINITY;
  }
  int rc = VLMaddvars(h, static_cast<int>(n), 0, nullptr, nullptr, nullptr, vobj.data<double>(), vlb.data<double>(),
                      ubs.empty() ? vub.data<double>() : ubs.data(), vtyp.data<char>(),
                      names.empty() ? nullptr : names.data());
  if (rc != 0) return raise_velmor(rc, self);
  if (model_append_handles(self, VLM_KIND_VAR, n) < 0) return nullptr;
  py::Ref arr = tail_array(self, VLM_KIND_VAR, n, shape.get());
  if (!arr) return nullptr;
  return mvar_new(arr.get(), self).release();
}

const char model_addmvar_doc[] =
    "addMVar($self, shape, lb=0.0, ub=1e100, obj=0.0, vtype='C', name=\"\")\n--\n\n"
    "Adds an n-dimensional array of variables in one call and returns it as an MVar.\n"
    "Without ub, binary variables get the upper bound 1, as with addVar.\n"
    "shape is an int or a tuple of ints. The values of the lb, ub, obj, and vtype arguments can either\n"
    "      be scalars, lists, or ndarrays that can be broadcast to the given shape.\n"
    "name is a str, used as the prefix of names such as x[0,1], or an array of names of exactly\n"
    "the given shape.";

// ---- matrix constraints ----------------------------------------------------------------------

PyObject* model_addndconstr(PyObject* self, PyObject* args) {
  PyObject *expr, *sense, *name = Py_None;
  if (!PyArg_ParseTuple(args, "OO|O:_addNDConstr", &expr, &sense, &name)) return nullptr;
  if (!mlinexpr_check(expr)) return invalid("Model._addNDConstr takes an MLinExpr");
  MExprObject* e = as_mexpr(expr);
  std::vector<int> cols;
  if (alive(self) == nullptr || model_setup(self, false) < 0 || !columns_of(self, e->vars, &cols)) return nullptr;
  py::Ref shape = np::shape_of(e->constant);
  py::Ref neg = py::Ref::steal(PyNumber_Negative(e->constant));
  np::View rhs, senses;
  if (!shape || !neg || !rhs.open(neg.get(), "float64") || !broadcast_arg(sense, "S1", shape.get(), &senses)) {
    return nullptr;
  }
  return add_rows(self, e->coef, cols, senses, rhs, name, shape.get());
}

// All elements as quadratic constraints in one VLMaddqconstrs call (all or none).
PyObject* model_addndqconstr(PyObject* self, PyObject* args) {
  PyObject *expr, *sense, *name = Py_None;
  if (!PyArg_ParseTuple(args, "OO|O:_addNDQConstr", &expr, &sense, &name)) return nullptr;
  if (mlinexpr_check(expr)) return model_addndconstr(self, args);
  if (!mquadexpr_check(expr)) return invalid("Model._addNDQConstr takes an MQuadExpr");
  MExprObject* e = as_mexpr(expr);
  VLMmodel* h = alive(self);
  std::vector<int> cols;
  if (h == nullptr || model_setup(self, false) < 0 || !columns_of(self, e->vars, &cols)) return nullptr;
  const long long k = static_cast<long long>(cols.size());
  py::Ref shape = np::shape_of(e->constant);
  np::CsrView lin, quad;
  np::View constant, senses;
  if (!shape || !lin.open(e->coef) || !quad.open(e->qcoef) || !constant.open(e->constant, "float64") ||
      !broadcast_arg(sense, "S1", shape.get(), &senses)) {
    return nullptr;
  }
  const Py_ssize_t n = constant.size();
  if (n > INT_MAX || lin.val.size() > INT_MAX || quad.val.size() > INT_MAX) {
    return invalid("Too many terms for one block of quadratic constraints");
  }
  std::vector<std::string> store;
  std::vector<const char*> names;
  py::Ref keep;
  if (!names_arg(name, shape.get(), &store, &names, &keep)) return nullptr;
  // Each row's terms, merged (VLMclean2 / VLMclean3) and packed one row after the other.
  std::vector<int> lbeg(static_cast<size_t>(n)), qbeg(static_cast<size_t>(n));
  std::vector<int> lind(static_cast<size_t>(lin.val.size())), qrow(static_cast<size_t>(quad.val.size())),
      qcol(static_cast<size_t>(quad.val.size()));
  std::vector<double> lval(lind.size()), qval(qrow.size()), rhs(static_cast<size_t>(n));
  int lout = 0, qout = 0;
  for (Py_ssize_t r = 0; r < n; ++r) {
    lbeg[static_cast<size_t>(r)] = lout;
    qbeg[static_cast<size_t>(r)] = qout;
    int nl = 0, nq = 0;
    for (long long t = lin.begin(r); t < lin.end(r); ++t, ++nl) {
      lind[static_cast<size_t>(lout + nl)] = cols[static_cast<size_t>(lin.col(t))];
      lval[static_cast<size_t>(lout + nl)] = lin.value(t);
    }
    for (long long t = quad.begin(r); t < quad.end(r); ++t, ++nq) {
      qrow[static_cast<size_t>(qout + nq)] = cols[static_cast<size_t>(quad.col(t) / k)];
      qcol[static_cast<size_t>(qout + nq)] = cols[static_cast<size_t>(quad.col(t) % k)];
      qval[static_cast<size_t>(qout + nq)] = quad.value(t);
    }
    VLMclean2(&nl, lind.data() + lout, lval.data() + lout);
    VLMclean3(&nq, qrow.data() + qout, qcol.data() + qout, qval.data() + qout);
    lout += nl;
    qout += nq;
    rhs[static_cast<size_t>(r)] = py::to_lib_dbl(-constant.data<double>()[r]);
  }
  int rc = VLMaddqconstrs(h, static_cast<int>(n), lout, lbeg.data(), lind.data(), lval.data(), qout, qbeg.data(),
                          qrow.data(), qcol.data(), qval.data(), senses.data<char>(), rhs.data(),
                          names.empty() ? nullptr : names.data());
  if (rc != 0) return raise_velmor(rc, self);
  if (model_append_handles(self, VLM_KIND_QCONSTR, n) < 0) return nullptr;
  py::Ref arr = tail_array(self, VLM_KIND_QCONSTR, n, shape.get());
  return arr ? mqconstr_new(arr.get(), self).release() : nullptr;
}

PyObject* model_addmconstr(PyObject* self, PyObject* args, PyObject* kwds) {
  static const char* kwlist[] = {"A", "x", "sense", "b", "name", nullptr};
  PyObject *A, *x, *sense, *b, *name = Py_None;
  if (!PyArg_ParseTupleAndKeywords(args, kwds, "OOOO|O:addMConstr", const_cast<char**>(kwlist), &A, &x, &sense, &b,
                                   &name)) {
    return nullptr;
  }
  if (alive(self) == nullptr || model_setup(self, false) < 0) return nullptr;
  py::Ref xv = x == Py_None ? py::Ref::steal(PyObject_CallMethod(self, "_createX", nullptr)) : py::Ref::borrow(x);
  if (!xv) return nullptr;
  if (!mvar_check(xv.get())) return invalid("addMConstr: x must be an MVar (or None for all variables)");
  py::Ref csr = np::spfn("csr_matrix", {A});
  py::Ref ashape = np::shape_of(csr.get());
  py::Ref xsize = np::attr(xv.get(), "size");
  if (!ashape || !xsize) return nullptr;
  const long m = PyLong_AsLong(PyTuple_GET_ITEM(ashape.get(), 0));
  if (PyLong_AsLong(PyTuple_GET_ITEM(ashape.get(), 1)) != PyLong_AsLong(xsize.get())) {
    return invalid_fmt("Incompatible dimensions: A has shape %S but x has %S variables", ashape.get(), xsize.get());
  }
  py::Ref shape = py::Ref::steal(Py_BuildValue("(l)", m));
  py::Ref barr = np::fn("asarray", {b}, {{"dtype", np::text("float64").get()}});
  py::Ref bshape = np::shape_of(barr.get());
  if (!shape || !bshape) return nullptr;
  if (PyTuple_GET_SIZE(bshape.get()) > 1 ||
      (PyTuple_GET_SIZE(bshape.get()) == 1 && PyLong_AsLong(PyTuple_GET_ITEM(bshape.get(), 0)) != m)) {
    return invalid_fmt("Incompatible dimensions: A has shape %S but b has shape %S", ashape.get(), bshape.get());
  }
  std::vector<int> cols;
  np::View rhs, senses;
  if (!columns_of(self, as_melem(xv.get())->arr, &cols) || !broadcast_arg(barr.get(), "float64", shape.get(), &rhs)) {
    return nullptr;
  }
  if (!broadcast_arg(sense, "S1", shape.get(), &senses)) {
    if (!PyErr_ExceptionMatches(PyExc_ValueError)) return nullptr;
    PyErr_Clear();
    return invalid_fmt("Incompatible dimensions: A has shape %S but sense is %R", ashape.get(), sense);
  }
  return add_rows(self, csr.get(), cols, senses, rhs, name, shape.get());
}

const char model_addmconstr_doc[] =
    "addMConstr($self, A, x, sense, b, name=\"\")\n--\n\n"
    "Adds the linear constraints A @ x sense b in one call and returns them as a 1-D MConstr.\n"
    "A is an ndarray or a scipy.sparse matrix (m x n), x an MVar of n variables (None: all\n"
    "variables of the model), sense one character or an array of m ('<', '>', '='), b a\n"
    "vector of m right-hand sides. Mismatched dimensions raise VelmorError naming the shapes.";

// ---- objective and single quadratic constraints ----------------------------------------------

// The columns of an optional MVar argument; all variables of the model when it is None.
bool vars_arg(PyObject* self, PyObject* x, const char* fname, std::vector<int>* cols) {
  py::Ref xv = x == nullptr || x == Py_None ? py::Ref::steal(PyObject_CallMethod(self, "_createX", nullptr))
                                            : py::Ref::borrow(x);
  if (!xv) return false;
  if (!mvar_check(xv.get())) {
    invalid(std::string(fname) + ": xQ_L, xQ_R and xc must be MVar objects");
    return false;
  }
  return columns_of(self, as_melem(xv.get())->arr, cols);
}

// Terms of xQ_L' Q xQ_R and c' xc as library arrays (Q or c None: no terms).
struct Terms {
  std::vector<int> qrow, qcol, lind;
  std::vector<double> qval, lval;
};

bool quadratic_terms(PyObject* self, PyObject* Q, PyObject* xl, PyObject* xr, const char* fname, Terms* t) {
  if (Q == Py_None) return true;
  std::vector<int> left, right;
  if (!vars_arg(self, xl, fname, &left) || !vars_arg(self, xr, fname, &right)) return false;
  py::Ref coo = np::spfn("coo_matrix", {Q});
  py::Ref qs = np::shape_of(coo.get());
  if (!qs) return false;
  if (PyLong_AsSize_t(PyTuple_GET_ITEM(qs.get(), 0)) != left.size() ||
      PyLong_AsSize_t(PyTuple_GET_ITEM(qs.get(), 1)) != right.size()) {
    invalid_fmt("Incompatible dimensions: Q has shape %S for %zd and %zd variables", qs.get(),
                static_cast<Py_ssize_t>(left.size()), static_cast<Py_ssize_t>(right.size()));
    return false;
  }
  np::View r, k, v;
  if (!r.open(np::attr(coo.get(), "row").get(), "int64") || !k.open(np::attr(coo.get(), "col").get(), "int64") ||
      !v.open(np::attr(coo.get(), "data").get(), "float64")) {
    return false;
  }
  for (Py_ssize_t i = 0; i < v.size(); ++i) {
    if (v.data<double>()[i] == 0.0) continue;
    t->qrow.push_back(left[static_cast<size_t>(r.data<long long>()[i])]);
    t->qcol.push_back(right[static_cast<size_t>(k.data<long long>()[i])]);
    t->qval.push_back(v.data<double>()[i]);
  }
  return true;
}

bool linear_terms(PyObject* self, PyObject* c, PyObject* xc, const char* fname, Terms* t) {
  if (c == Py_None) return true;
  std::vector<int> cols;
  np::View cv;
  py::Ref flat = np::fn("ravel", {c});
  if (!vars_arg(self, xc, fname, &cols) || !cv.open(flat.get(), "float64")) return false;
  if (static_cast<size_t>(cv.size()) != cols.size()) {
    invalid_fmt("Incompatible dimensions: c has %zd entries for %zd variables", cv.size(),
                static_cast<Py_ssize_t>(cols.size()));
    return false;
  }
  for (size_t i = 0; i < cols.size(); ++i) {
    if (cv.data<double>()[i] == 0.0) continue;
    t->lind.push_back(cols[i]);
    t->lval.push_back(cv.data<double>()[i]);
  }
  return true;
}

PyObject* model_setmobjective(PyObject* self, PyObject* args, PyObject* kwds) {
  static const char* kwlist[] = {"Q", "c", "constant", "xQ_L", "xQ_R", "xc", "sense", nullptr};
  PyObject *Q, *c, *xl = Py_None, *xr = Py_None, *xc = Py_None, *sense = Py_None;
  double constant = 0.0;
  if (!PyArg_ParseTupleAndKeywords(args, kwds, "OOd|OOOO:setMObjective", const_cast<char**>(kwlist), &Q, &c,
                                   &constant, &xl, &xr, &xc, &sense)) {
    return nullptr;
  }
  VLMmodel* h = alive(self);
  if (h == nullptr || model_setup(self, false) < 0) return nullptr;
  int s = 0;
  if (sense != Py_None) {
    s = static_cast<int>(PyLong_AsLong(sense));
    if (s == -1 && PyErr_Occurred()) return nullptr;
  }
  Terms t;
  if (!quadratic_terms(self, Q, xl, xr, "setMObjective", &t) || !linear_terms(self, c, xc, "setMObjective", &t)) {
    return nullptr;
  }
  int rc = VLMsetobjective(h, s, constant, static_cast<int>(t.lind.size()), t.lind.data(), t.lval.data(),
                           static_cast<int>(t.qval.size()), t.qrow.data(), t.qcol.data(), t.qval.data());
  if (rc != 0) return raise_velmor(rc, self);
  return py::none();
}

PyObject* model_addmqconstr(PyObject* self, PyObject* args, PyObject* kwds) {
  static const char* kwlist[] = {"Q", "c", "sense", "rhs", "xQ_L", "xQ_R", "xc", "name", nullptr};
  PyObject *Q, *c, *xl = Py_None, *xr = Py_None, *xc = Py_None, *name = Py_None;
  const char* sense = nullptr;
  double rhs = 0.0;
  if (!PyArg_ParseTupleAndKeywords(args, kwds, "OOsd|OOOO:addMQConstr", const_cast<char**>(kwlist), &Q, &c, &sense,
                                   &rhs, &xl, &xr, &xc, &name)) {
    return nullptr;
  }
  VLMmodel* h = alive(self);
  if (h == nullptr || model_setup(self, false) < 0) return nullptr;
  if (std::strlen(sense) != 1 || std::strchr("<>=", sense[0]) == nullptr) {
    return invalid(std::string("Invalid sense '") + sense + "' for a quadratic constraint");
  }
  const char* cname = nullptr;
  if (name != Py_None && (cname = py::utf8(name)) == nullptr) return nullptr;
  Terms t;
  if (!quadratic_terms(self, Q, xl, xr, "addMQConstr", &t) || !linear_terms(self, c, xc, "addMQConstr", &t)) {
    return nullptr;
  }
  int nl = static_cast<int>(t.lind.size()), nq = static_cast<int>(t.qval.size());
  VLMclean2(&nl, t.lind.data(), t.lval.data());
  VLMclean3(&nq, t.qrow.data(), t.qcol.data(), t.qval.data());
  int rc = VLMaddqconstr(h, nl, t.lind.data(), t.lval.data(), nq, t.qrow.data(), t.qcol.data(), t.qval.data(),
                         sense[0], rhs, cname);
  if (rc != 0) return raise_velmor(rc, self);
  if (model_append_handles(self, VLM_KIND_QCONSTR, 1) < 0) return nullptr;
  py::Ref shape = py::Ref::steal(Py_BuildValue("(i)", 1));
  py::Ref arr = shape ? tail_array(self, VLM_KIND_QCONSTR, 1, shape.get()) : py::Ref();
  return arr ? mqconstr_new(arr.get(), self).release() : nullptr;
}

const char model_addmqconstr_doc[] =
    "addMQConstr($self, Q, c, sense, rhs, xQ_L=None, xQ_R=None, xc=None, name=\"\")\n--\n\n"
    "Adds the quadratic constraint xQ_L' Q xQ_R + c' xc sense rhs and returns it as an MQConstr\n"
    "of shape (1,). Q (ndarray or scipy.sparse) and c may be None; the variable arguments are\n"
    "MVar objects and default to all variables of the model. Mismatched dimensions raise\n"
    "VelmorError naming them.";

const char model_setmobjective_doc[] =
    "setMObjective($self, Q, c, constant, xQ_L=None, xQ_R=None, xc=None, sense=None)\n--\n\n"
    "Replaces the objective by xQ_L' Q xQ_R + c' xc + constant. Q (ndarray or scipy.sparse) and\n"
    "c may be None; the variable arguments are MVar objects and default to all variables of\n"
    "the model. sense is VLM.MINIMIZE or VLM.MAXIMIZE; None keeps the model's ModelSense.";

// ---- readers ---------------------------------------------------------------------------------

PyObject* model_geta(PyObject* self, PyObject*) {
  VLMmodel* h = alive(self);
  if (h == nullptr) return nullptr;
  int m = 0, n = 0;
  int rc = VLMgetintattr(h, "NumConstrs", &m);
  if (rc == 0) rc = VLMgetintattr(h, "NumVars", &n);
  size_t nnz = 0;
  if (rc == 0) rc = VLMXgetconstrs(h, &nnz, nullptr, nullptr, nullptr, 0, m);
  if (rc != 0) return raise_velmor(rc, self);
  py::Ref ptr = np::fn("zeros", {np::integer(m + 1).get()}, {{"dtype", np::text("int64").get()}});
  py::Ref ind = np::fn("zeros", {np::integer(static_cast<long long>(nnz)).get()}, {{"dtype", np::text("int32").get()}});
  py::Ref val = np::fn("zeros", {np::integer(static_cast<long long>(nnz)).get()});
  np::View vp, vi, vv;
  if (!ptr || !ind || !val || !vp.open(ptr.get(), "int64") || !vi.open(ind.get(), "int32") ||
      !vv.open(val.get(), "float64")) {
    return nullptr;
  }
  static_assert(sizeof(size_t) == sizeof(long long), "row starts are read as 64-bit integers");
  if (m > 0) {
    rc = VLMXgetconstrs(h, &nnz, reinterpret_cast<size_t*>(vp.data<long long>()), vi.data<int>(), vv.data<double>(), 0, m);
    if (rc != 0) return raise_velmor(rc, self);
  }
  vp.data<long long>()[m] = static_cast<long long>(nnz);
  py::Ref parts = py::Ref::steal(PyTuple_Pack(3, val.get(), ind.get(), ptr.get()));
  py::Ref shape = py::Ref::steal(Py_BuildValue("(ii)", m, n));
  return np::spfn("csr_matrix", {parts.get()}, {{"shape", shape.get()}}).release();
}

const char model_geta_doc[] =
    "getA($self)\n--\n\nThe linear constraint matrix of the model as of the last update, as a\n"
    "scipy.sparse CSR matrix (one row per constraint, one column per variable).";

PyObject* model_getq(PyObject* self, PyObject*) {
  VLMmodel* h = alive(self);
  if (h == nullptr) return nullptr;
  int n = 0, nq = 0;
  int rc = VLMgetintattr(h, "NumVars", &n);
  if (rc == 0) rc = VLMgetq(h, &nq, nullptr, nullptr, nullptr);
  if (rc != 0) return raise_velmor(rc, self);
  py::Ref row = np::fn("zeros", {np::integer(nq).get()}, {{"dtype", np::text("int32").get()}});
  py::Ref col = np::fn("zeros", {np::integer(nq).get()}, {{"dtype", np::text("int32").get()}});
  py::Ref val = np::fn("zeros", {np::integer(nq).get()});
  np::View vr, vc, vv;
  if (!row || !col || !val || !vr.open(row.get(), "int32") || !vc.open(col.get(), "int32") ||
      !vv.open(val.get(), "float64")) {
    return nullptr;
  }
  if (nq > 0 && (rc = VLMgetq(h, &nq, vr.data<int>(), vc.data<int>(), vv.data<double>())) != 0) {
    return raise_velmor(rc, self);
  }
  py::Ref parts = py::Ref::steal(Py_BuildValue("(O(OO))", val.get(), row.get(), col.get()));
  py::Ref shape = py::Ref::steal(Py_BuildValue("(ii)", n, n));
  return np::spfn("coo_matrix", {parts.get()}, {{"shape", shape.get()}}).release();
}

const char model_getq_doc[] =
    "getQ($self)\n--\n\nThe quadratic objective terms of the model as of the last update, as a scipy.sparse\n"
    "COO matrix Q with the quadratic part equal to x' Q x; each pair appears once, row <= column.";

PyObject* model_createx(PyObject* self, PyObject*) {
  py::Ref vars = py::Ref::steal(PyObject_CallMethod(self, "getVars", nullptr));
  if (!vars) return nullptr;
  if (PyList_GET_SIZE(vars.get()) == 0) {
    py::Ref arr = np::fn("empty", {np::integer(0).get()}, {{"dtype", np::text("O").get()}});
    return arr ? mvar_new(arr.get(), self).release() : nullptr;
  }
  return mvar_fromlist(vars.get()).release();
}

PyObject* model_ndindexednames(PyObject*, PyObject* args) {
  PyObject *prefix, *shape_in;
  if (!PyArg_ParseTuple(args, "UO:_nd_indexed_names", &prefix, &shape_in)) return nullptr;
  py::Ref shape = shape_arg(shape_in);
  const char* p = py::utf8(prefix);
  std::vector<std::string> names;
  if (!shape || p == nullptr || !indexed_names(p, shape.get(), &names)) return nullptr;
  py::Ref list = py::Ref::steal(PyList_New(static_cast<Py_ssize_t>(names.size())));
  if (!list) return nullptr;
  for (size_t i = 0; i < names.size(); ++i) {
    py::Ref s = py::str(names[i]);
    if (!s) return nullptr;
    PyList_SET_ITEM(list.get(), static_cast<Py_ssize_t>(i), s.release());
  }
  return list.release();
}

}  // namespace

#define VARARGS_KW(fn) (PyCFunction)(void (*)(void))py::guarded<&fn>, METH_VARARGS | METH_KEYWORDS

PyMethodDef model_matrix_methods[] = {
    {"addMVar", VARARGS_KW(model_addmvar), model_addmvar_doc},
    {"addMConstr", VARARGS_KW(model_addmconstr), model_addmconstr_doc},
    {"_addNDConstr", py::guarded<&model_addndconstr>, METH_VARARGS,
     "_addNDConstr($self, expr, sense, name)\n--\n\nAdds the constraints expr sense 0 of an MLinExpr as an MConstr of its shape."},
    {"_addNDQConstr", py::guarded<&model_addndqconstr>, METH_VARARGS,
     "_addNDQConstr($self, expr, sense, name)\n--\n\nAdds the constraints expr sense 0 of an MQuadExpr as an MQConstr of its shape."},
    {"addMQConstr", VARARGS_KW(model_addmqconstr), model_addmqconstr_doc},
    {"setMObjective", VARARGS_KW(model_setmobjective), model_setmobjective_doc},
    {"getA", py::guarded<&model_geta>, METH_NOARGS, model_geta_doc},
    {"getQ", py::guarded<&model_getq>, METH_NOARGS, model_getq_doc},
    {"_createX", py::guarded<&model_createx>, METH_NOARGS, "_createX($self)\n--\n\nAll variables of the model as a 1-D MVar."},
    {"_nd_indexed_names", py::guarded<&model_ndindexednames>, METH_VARARGS,
     "_nd_indexed_names($self, prefix, shape)\n--\n\nThe names prefix[i,j,...] for every index of shape, in C order."},
    {nullptr, nullptr, 0, nullptr}};

bool matrix_names_arg(PyObject* name, PyObject* shape, std::vector<std::string>* store,
                      std::vector<const char*>* ptrs, py::Ref* keep) {
  return names_arg(name, shape, store, ptrs, keep);
}

py::Ref matrix_tail_array(PyObject* self, int kind, Py_ssize_t n, PyObject* shape) {
  return tail_array(self, kind, n, shape);
}
