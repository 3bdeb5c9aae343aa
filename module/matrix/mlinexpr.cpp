// MLinExpr: arrays of linear expressions over sparse coefficient matrices (see mlinexpr.h).
#include "matrix/mlinexpr.h"

#include <vector>

#include "core/py_error.h"
#include "core/registry.h"
#include "elements/handle.h"
#include "elements/var.h"
#include "expr/linexpr.h"
#include "expr/tempconstr.h"
#include "matrix/mvar.h"
#include "matrix/np_call.h"

PyTypeObject MLinExprType = {PyVarObject_HEAD_INIT(nullptr, 0) "velmorpy.MLinExpr"};

namespace {

py::Ref make(py::Ref vars, py::Ref coef, py::Ref constant) {
  if (!vars || !coef || !constant) return py::Ref();
  PyObject* self = MLinExprType.tp_alloc(&MLinExprType, 0);
  if (self == nullptr) return py::Ref();
  MLinExprObject* e = as_mlinexpr(self);
  e->vars = vars.release();
  e->coef = coef.release();
  e->constant = constant.release();
  return py::Ref::steal(self);
}

PyObject* not_implemented() { return py::new_ref(Py_NotImplemented); }

py::Ref dtype(const char* name) { return np::text(name); }

Py_ssize_t size_of(PyObject* e) { return PyObject_Size(as_mlinexpr(e)->vars); }

py::Ref shape_of(PyObject* e) { return np::shape_of(as_mlinexpr(e)->constant); }

// A K = 0 expression: constants only.
py::Ref from_constant(PyObject* values) {
  py::Ref c = np::fn("array", {values}, {{"dtype", dtype("float64").get()}});
  if (!c) return c;
  py::Ref size = np::attr(c.get(), "size");
  py::Ref shape = size ? py::Ref::steal(Py_BuildValue("(Oi)", size.get(), 0)) : py::Ref();
  py::Ref coef = np::spfn("csr_matrix", {shape.get()});
  py::Ref vars = np::fn("empty", {np::integer(0).get()}, {{"dtype", dtype("O").get()}});
  return make(std::move(vars), std::move(coef), std::move(c));
}

// A 0-d expression from a Var or a LinExpr.
py::Ref from_linear(PyObject* o) {
  py::Ref lin = var_check(o) ? linexpr_from_term(1.0, o) : py::Ref::borrow(o);
  if (!lin) return lin;
  linexpr_flatten(lin.get());
  LinExprObject* le = as_linexpr(lin.get());
  const Py_ssize_t k = static_cast<Py_ssize_t>(le->terms.size());
  py::Ref vars = np::fn("empty", {np::integer(k).get()}, {{"dtype", dtype("O").get()}});
  py::Ref vals = np::fn("empty", {np::integer(k).get()});
  np::View v;
  if (!vars || !vals || !v.open(vals.get(), "float64")) return py::Ref();
  for (Py_ssize_t i = 0; i < k; ++i) {
    v.data<double>()[i] = le->terms[static_cast<size_t>(i)].coeff;
    py::Ref idx = np::integer(i);
    if (!idx || PyObject_SetItem(vars.get(), idx.get(), le->terms[static_cast<size_t>(i)].var) < 0) return py::Ref();
  }
  py::Ref rows = np::fn("zeros", {np::integer(k).get()}, {{"dtype", dtype("int32").get()}});
  py::Ref cols = np::fn("arange", {np::integer(k).get()}, {{"dtype", dtype("int32").get()}});
  py::Ref ij = py::Ref::steal(Py_BuildValue("(O(OO))", vals.get(), rows.get(), cols.get()));
  py::Ref shape = py::Ref::steal(Py_BuildValue("(in)", 1, k));
  if (!rows || !cols) return py::Ref();
  py::Ref coef = np::spfn("csr_matrix", {ij.get()}, {{"shape", shape.get()}});
  py::Ref constant = np::fn("array", {py::Ref::steal(PyFloat_FromDouble(le->constant)).get()});
  return make(std::move(vars), std::move(coef), std::move(constant));
}

// What the operators accept: 1 with `*out` set, 0 for an operand they leave to others (no
// exception), -1 with an exception.
int as_expr(PyObject* o, py::Ref* out) {
  if (mlinexpr_check(o)) {
    *out = py::Ref::borrow(o);
    return 1;
  }
  if (mvar_check(o)) {
    *out = mlinexpr_from_mvar(o);
    return *out ? 1 : -1;
  }
  if (var_check(o) || linexpr_check(o)) {
    *out = from_linear(o);
    return *out ? 1 : -1;
  }
  double v = 0;
  int k = expr_classify(o, &v);
  if (k == kOperandError) return -1;
  if (k == kOperandNumber || PyList_Check(o) || PyTuple_Check(o) || np::isndarray(o)) {
    if (np::isndarray(o)) {
      py::Ref kind = np::attr(np::attr(o, "dtype").get(), "kind");
      if (!kind) return -1;
      if (PyUnicode_CompareWithASCIIString(kind.get(), "O") == 0) return 0;
    }
    *out = from_constant(o);
    if (!*out) {
      if (!PyErr_ExceptionMatches(PyExc_TypeError) && !PyErr_ExceptionMatches(PyExc_ValueError)) return -1;
      PyErr_Clear();
      return 0;
    }
    return 1;
  }
  return 0;
}

// Shapes that do not broadcast: VelmorError naming both.
py::Ref broadcast_shape(PyObject* a, PyObject* b) {
  py::Ref s = np::fn("broadcast_shapes", {a, b});
  if (s || !PyErr_ExceptionMatches(PyExc_ValueError)) return s;
  PyErr_Clear();
  py::Ref msg = py::Ref::steal(PyUnicode_FromFormat("Incompatible shapes for broadcasting: %S and %S", a, b));
  if (msg) raise_velmor_msg(VLM_ERROR_INVALID_ARGUMENT, PyUnicode_AsUTF8(msg.get()));
  return py::Ref();
}

// The rows of `e` that fill `shape` by broadcasting (`coef` itself when nothing changes).
py::Ref broadcast_coef(PyObject* e, PyObject* shape) {
  MLinExprObject* x = as_mlinexpr(e);
  py::Ref mine = shape_of(e);
  if (!mine) return mine;
  int same = PyObject_RichCompareBool(mine.get(), shape, Py_EQ);
  if (same < 0) return py::Ref();
  if (same) return py::Ref::borrow(x->coef);
  py::Ref n = np::integer(size_of(e));
  py::Ref rows = np::fn("arange", {np::attr(x->constant, "size").get()});
  rows = np::meth(rows.get(), "reshape", {mine.get()});
  rows = np::fn("broadcast_to", {rows.get(), shape});
  rows = np::meth(rows.get(), "ravel");
  return py::Ref::steal(PyObject_GetItem(x->coef, rows.get() ? rows.get() : Py_None));
}

// a + sign * b for two expressions.
py::Ref combine(PyObject* a, PyObject* b, double sign) {
  MLinExprObject* x = as_mlinexpr(a);
  MLinExprObject* y = as_mlinexpr(b);
  py::Ref sa = shape_of(a), sb = shape_of(b);
  if (!sa || !sb) return py::Ref();
  py::Ref shape = broadcast_shape(sa.get(), sb.get());
  if (!shape) return shape;
  py::Ref ca = broadcast_coef(a, shape.get());
  py::Ref cb = broadcast_coef(b, shape.get());
  if (!ca || !cb) return py::Ref();
  py::Ref s = py::Ref::steal(PyFloat_FromDouble(sign));
  py::Ref constant = np::fn(sign > 0 ? "add" : "subtract", {x->constant, y->constant});
  constant = np::fn("broadcast_to", {constant.get(), shape.get()});
  constant = np::meth(constant.get(), "copy");
  const Py_ssize_t ka = size_of(a), kb = size_of(b);
  py::Ref vars, coef;
  if (kb == 0) {
    vars = py::Ref::borrow(x->vars);
    coef = std::move(ca);
  } else {
    cb = py::Ref::steal(PyNumber_Multiply(cb.get(), s.get()));
    if (ka == 0) {
      vars = py::Ref::borrow(y->vars);
      coef = std::move(cb);
    } else if (x->vars == y->vars) {
      vars = py::Ref::borrow(x->vars);
      coef = cb ? py::Ref::steal(PyNumber_Add(ca.get(), cb.get())) : py::Ref();
    } else {
      py::Ref both = py::Ref::steal(PyTuple_Pack(2, x->vars, y->vars));
      vars = np::fn("concatenate", {both.get()});
      py::Ref blocks = cb ? py::Ref::steal(PyList_New(0)) : py::Ref();
      if (!blocks || PyList_Append(blocks.get(), ca.get()) < 0 || PyList_Append(blocks.get(), cb.get()) < 0) {
        return py::Ref();
      }
      coef = np::spfn("hstack", {blocks.get()}, {{"format", np::text("csr").get()}});
    }
  }
  if (coef) coef = np::spfn("csr_matrix", {coef.get()});
  return make(std::move(vars), std::move(coef), std::move(constant));
}

// The linear map `map` (Nout x N sparse) applied to `e`, giving shape `outshape`.
py::Ref apply_map(PyObject* e, PyObject* map, PyObject* outshape) {
  MLinExprObject* x = as_mlinexpr(e);
  py::Ref coef = py::Ref::steal(PyNumber_MatrixMultiply(map, x->coef));
  coef = np::spfn("csr_matrix", {coef.get()});
  py::Ref flat = np::meth(x->constant, "ravel");
  py::Ref constant = flat ? py::Ref::steal(PyNumber_MatrixMultiply(map, flat.get())) : py::Ref();
  constant = np::fn("asarray", {constant.get()}, {{"dtype", dtype("float64").get()}});
  constant = np::meth(constant.get(), "reshape", {outshape});
  return make(py::Ref::borrow(x->vars), std::move(coef), std::move(constant));
}

// The elements `rows` (an int array of any shape, positions in C order) of `e`.
py::Ref select(PyObject* e, PyObject* rows) {
  MLinExprObject* x = as_mlinexpr(e);
  py::Ref r = np::fn("asarray", {rows});
  py::Ref flat = np::meth(r.get(), "ravel");
  py::Ref coef = flat ? py::Ref::steal(PyObject_GetItem(x->coef, flat.get())) : py::Ref();
  coef = np::spfn("csr_matrix", {coef.get()});
  py::Ref cflat = np::meth(x->constant, "ravel");
  py::Ref constant = cflat && flat ? py::Ref::steal(PyObject_GetItem(cflat.get(), flat.get())) : py::Ref();
  constant = np::meth(constant.get(), "reshape", {np::shape_of(r.get()).get()});
  return make(py::Ref::borrow(x->vars), std::move(coef), std::move(constant));
}

// Element positions 0 .. N-1 arranged in the expression's shape.
py::Ref positions(PyObject* e) {
  py::Ref n = np::attr(as_mlinexpr(e)->constant, "size");
  py::Ref r = np::fn("arange", {n.get()});
  return np::meth(r.get(), "reshape", {shape_of(e).get()});
}

// e * c for a number or an array of numbers c.
py::Ref scale(PyObject* e, PyObject* c) {
  MLinExprObject* x = as_mlinexpr(e);
  double v = 0;
  if (expr_classify(c, &v) == kOperandNumber) {
    py::Ref s = py::Ref::steal(PyFloat_FromDouble(v));
    py::Ref coef = s ? py::Ref::steal(PyNumber_Multiply(x->coef, s.get())) : py::Ref();
    py::Ref constant = s ? py::Ref::steal(PyNumber_Multiply(x->constant, s.get())) : py::Ref();
    return make(py::Ref::borrow(x->vars), std::move(coef), std::move(constant));
  }
  py::Ref arr = np::fn("asarray", {c}, {{"dtype", dtype("float64").get()}});
  if (!arr) return arr;
  py::Ref mine = shape_of(e);
  py::Ref shape = mine ? broadcast_shape(mine.get(), np::shape_of(arr.get()).get()) : py::Ref();
  if (!shape) return shape;
  py::Ref rows = broadcast_coef(e, shape.get());
  py::Ref factors = np::fn("broadcast_to", {arr.get(), shape.get()});
  factors = np::meth(factors.get(), "ravel");
  py::Ref diag = np::spfn("diags", {factors.get()}, {{"format", np::text("csr").get()}});
  py::Ref coef = diag && rows ? py::Ref::steal(PyNumber_MatrixMultiply(diag.get(), rows.get())) : py::Ref();
  coef = np::spfn("csr_matrix", {coef.get()});
  py::Ref constant = np::fn("multiply", {x->constant, arr.get()});
  return make(py::Ref::borrow(x->vars), std::move(coef), std::move(constant));
}

// The constant matrix of a product as CSR, with its shape as written (1-D kept apart).
struct Factor {
  py::Ref csr;  // 2-D
  py::Ref shape;
  bool vector = false;  // written as a 1-D array
};

bool factor_of(PyObject* M, bool left, Factor* f) {
  py::Ref m2;
  if (np::issparse(M)) {
    m2 = py::Ref::borrow(M);
  } else {
    py::Ref arr = np::fn("asarray", {M}, {{"dtype", dtype("float64").get()}});
    if (!arr) return false;
    py::Ref nd = np::attr(arr.get(), "ndim");
    long ndim = nd ? PyLong_AsLong(nd.get()) : -1;
    if (ndim < 0) return false;
    if (ndim == 0) {
      py::raise(PyExc_ValueError, "Input operand does not have enough dimensions");
      return false;
    }
    if (ndim > 2) {
      raise_velmor_msg(VLM_ERROR_INVALID_ARGUMENT, "Matrix products take constant matrices of at most 2 dimensions");
      return false;
    }
    f->vector = ndim == 1;
    // A vector on the left is a row, on the right a column.
    py::Ref shape = py::Ref::steal(left ? Py_BuildValue("(ii)", -1, 1) : Py_BuildValue("(ii)", 1, -1));
    m2 = f->vector ? np::meth(arr.get(), "reshape", {shape.get()}) : std::move(arr);
  }
  f->shape = np::shape_of(M);
  f->csr = np::spfn("csr_matrix", {m2.get()});
  return static_cast<bool>(f->csr) && static_cast<bool>(f->shape);
}

py::Ref shape_error(PyObject* a, PyObject* b) {
  py::Ref msg = py::Ref::steal(PyUnicode_FromFormat("Incompatible shapes for matrix product: %S and %S", a, b));
  if (msg) raise_velmor_msg(VLM_ERROR_INVALID_ARGUMENT, PyUnicode_AsUTF8(msg.get()));
  return py::Ref();
}

long dim(PyObject* shape, Py_ssize_t i) { return PyLong_AsLong(PyTuple_GET_ITEM(shape, i)); }

// M @ e (right == true) or e @ M.
py::Ref matmul(PyObject* exprlike, PyObject* M, bool right) {
  py::Ref e;
  int k = as_expr(exprlike, &e);
  if (k <= 0) return k < 0 ? py::Ref() : py::Ref::borrow(Py_NotImplemented);
  py::Ref es = shape_of(e.get());
  if (!es) return es;
  const Py_ssize_t endim = PyTuple_GET_SIZE(es.get());
  if (endim == 0) {
    py::raise(PyExc_ValueError, "Input operand does not have enough dimensions");
    return py::Ref();
  }
  if (endim > 2) {
    raise_velmor_msg(VLM_ERROR_INVALID_ARGUMENT, "Matrix products take expressions of at most 2 dimensions");
    return py::Ref();
  }
  Factor f;
  if (!factor_of(M, !right, &f)) return py::Ref();
  py::Ref ms = np::shape_of(f.csr.get());
  if (!ms) return ms;
  // As a map on the flattened elements: M @ e is kron(M, I_k), e @ M is kron(I_m, M^T).
  const long m0 = dim(ms.get(), 0), m1 = dim(ms.get(), 1);
  const long inner = right ? dim(es.get(), 0) : dim(es.get(), endim - 1);
  if ((right ? m1 : m0) != inner) return right ? shape_error(f.shape.get(), es.get()) : shape_error(es.get(), f.shape.get());
  py::Ref map;
  py::Ref outshape;
  if (right) {
    long k2 = endim == 2 ? dim(es.get(), 1) : 1;
    py::Ref eye = np::spfn("identity", {np::integer(k2).get()}, {{"format", np::text("csr").get()}});
    map = endim == 2 ? np::spfn("kron", {f.csr.get(), eye.get()}, {{"format", np::text("csr").get()}})
                     : py::Ref::borrow(f.csr.get());
    if (f.vector) {
      outshape = py::Ref::steal(endim == 2 ? Py_BuildValue("(l)", k2) : PyTuple_New(0));
    } else {
      outshape = py::Ref::steal(endim == 2 ? Py_BuildValue("(ll)", m0, k2) : Py_BuildValue("(l)", m0));
    }
  } else {
    long rows = endim == 2 ? dim(es.get(), 0) : 1;
    py::Ref mt = np::meth(f.csr.get(), "transpose");
    mt = np::spfn("csr_matrix", {mt.get()});
    py::Ref eye = np::spfn("identity", {np::integer(rows).get()}, {{"format", np::text("csr").get()}});
    map = endim == 2 ? np::spfn("kron", {eye.get(), mt.get()}, {{"format", np::text("csr").get()}}) : std::move(mt);
    if (f.vector) {
      outshape = py::Ref::steal(endim == 2 ? Py_BuildValue("(l)", rows) : PyTuple_New(0));
    } else {
      outshape = py::Ref::steal(endim == 2 ? Py_BuildValue("(ll)", rows, m1) : Py_BuildValue("(l)", m1));
    }
  }
  if (!map || !outshape) return py::Ref();
  return apply_map(e.get(), map.get(), outshape.get());
}

// ---- slots -----------------------------------------------------------------------------------

PyObject* ml_add(PyObject* a, PyObject* b) { return mlinexpr_add(a, b); }

PyObject* ml_neg(PyObject* a) {
  py::Ref s = py::Ref::steal(PyFloat_FromDouble(-1.0));
  return s ? scale(a, s.get()).release() : nullptr;
}

PyObject* ml_pos(PyObject* a) { return py::new_ref(a); }

PyObject* ml_div(PyObject* a, PyObject* b) {
  if (!mlinexpr_check(a)) return not_implemented();
  double v = 0;
  int k = expr_classify(b, &v);
  if (k == kOperandError) return nullptr;
  if (k != kOperandNumber && !np::isndarray(b)) return not_implemented();
  py::Ref inv = np::fn("divide", {py::Ref::steal(PyFloat_FromDouble(1.0)).get(), b});
  return inv ? scale(a, inv.get()).release() : nullptr;
}

PyObject* ml_matmul(PyObject* a, PyObject* b) {
  if (mlinexpr_check(a) && !mlinexpr_check(b) && !mvar_check(b)) return matmul(a, b, false).release();
  if (mlinexpr_check(b) && !mlinexpr_check(a) && !mvar_check(a)) return matmul(b, a, true).release();
  return not_implemented();
}

void ml_dealloc(PyObject* self) {
  PyObject_GC_UnTrack(self);
  MLinExprObject* e = as_mlinexpr(self);
  Py_CLEAR(e->vars);
  Py_CLEAR(e->coef);
  Py_CLEAR(e->constant);
  Py_TYPE(self)->tp_free(self);
}

int ml_traverse(PyObject* self, visitproc visit, void* arg) {
  Py_VISIT(as_mlinexpr(self)->vars);
  Py_VISIT(as_mlinexpr(self)->coef);
  Py_VISIT(as_mlinexpr(self)->constant);
  return 0;
}

int ml_clear(PyObject* self) {
  Py_CLEAR(as_mlinexpr(self)->vars);
  Py_CLEAR(as_mlinexpr(self)->coef);
  Py_CLEAR(as_mlinexpr(self)->constant);
  return 0;
}

PyObject* ml_subscript(PyObject* self, PyObject* key) {
  py::Ref pos = positions(self);
  py::Ref rows = pos ? py::Ref::steal(PyObject_GetItem(pos.get(), key)) : py::Ref();
  return rows ? select(self, rows.get()).release() : nullptr;
}

PyObject* ml_repr(PyObject* self) {
  py::Ref shape = shape_of(self);
  if (!shape) return nullptr;
  return PyUnicode_FromFormat("<velmor.MLinExpr %S: %zd terms over %zd variables>", shape.get(),
                              static_cast<Py_ssize_t>(PyLong_AsSsize_t(np::attr(as_mlinexpr(self)->coef, "nnz").get())),
                              size_of(self));
}

// ---- methods ---------------------------------------------------------------------------------

PyObject* ml_sum(PyObject* self, PyObject* args, PyObject* kwds) {
  static const char* kwlist[] = {"axis", nullptr};
  PyObject* axis = Py_None;
  if (!PyArg_ParseTupleAndKeywords(args, kwds, "|O:sum", const_cast<char**>(kwlist), &axis)) return nullptr;
  return mlinexpr_sum(self, axis).release();
}

PyObject* ml_transpose(PyObject* self, PyObject*) {
  py::Ref pos = positions(self);
  py::Ref t = np::meth(pos.get(), "transpose");
  return t ? select(self, t.get()).release() : nullptr;
}

PyObject* ml_reshape(PyObject* self, PyObject* args, PyObject* kwds) {
  PyObject* order = kwds ? PyDict_GetItemString(kwds, "order") : nullptr;
  PyObject* shape = PyTuple_GET_SIZE(args) == 1 ? PyTuple_GET_ITEM(args, 0) : args;
  py::Ref pos = positions(self);
  py::Ref r = np::meth(pos.get(), "reshape", {shape}, {{"order", order ? order : np::text("C").get()}});
  return r ? select(self, r.get()).release() : nullptr;
}

PyObject* ml_copy(PyObject* self, PyObject*) {
  MLinExprObject* x = as_mlinexpr(self);
  return make(py::Ref::borrow(x->vars), np::meth(x->coef, "copy"), np::meth(x->constant, "copy")).release();
}

PyObject* ml_item(PyObject* self, PyObject*) {
  MLinExprObject* x = as_mlinexpr(self);
  py::Ref size = np::attr(x->constant, "size");
  if (!size) return nullptr;
  if (PyLong_AsLong(size.get()) != 1) return py::raise(PyExc_ValueError, "can only convert an expression of size 1 to a LinExpr");
  py::Ref row = np::meth(x->coef, "tocoo");
  py::Ref cols = np::attr(row.get(), "col"), vals = np::attr(row.get(), "data");
  np::View c, v;
  if (!cols || !vals || !c.open(cols.get(), "int64") || !v.open(vals.get(), "float64")) return nullptr;
  py::Ref k = np::meth(x->constant, "item");
  double constant = k ? PyFloat_AsDouble(k.get()) : -1.0;
  if (!k) return nullptr;
  py::Ref e = linexpr_new(constant);
  if (!e) return nullptr;
  for (Py_ssize_t i = 0; i < c.size(); ++i) {
    py::Ref var = py::Ref::steal(PySequence_GetItem(x->vars, static_cast<Py_ssize_t>(c.data<long long>()[i])));
    if (!var || linexpr_add(e.get(), var.get(), v.data<double>()[i]) < 0) return nullptr;
  }
  return e.release();
}

// The values of the expressions at the current solution (attribute X of the variables).
PyObject* ml_getvalue(PyObject* self, PyObject*) {
  MLinExprObject* x = as_mlinexpr(self);
  py::Ref values;
  if (size_of(self) == 0) {
    values = np::fn("zeros", {np::integer(0).get()});
  } else {
    py::Ref mv = np::meth(x->vars, "copy");
    py::Ref arr = mv ? mvar_fromlist(mv.get()) : py::Ref();
    values = np::meth(arr.get(), "getAttr", {np::text("X").get()});
  }
  py::Ref prod = values ? py::Ref::steal(PyNumber_MatrixMultiply(x->coef, values.get())) : py::Ref();
  py::Ref shape = shape_of(self);
  prod = np::meth(prod.get(), "reshape", {shape.get()});
  return prod ? PyNumber_Add(prod.get(), x->constant) : nullptr;
}

// (A, x, b): the coefficient matrix (CSR, one row per element in C order), the variables as a
// 1-D MVar and the constants, so that the expression is (A @ x + b.ravel()).reshape(shape).
PyObject* ml_extract_axb(PyObject* self, PyObject*) {
  MLinExprObject* e = as_mlinexpr(self);
  py::Ref x = mvar_fromlist(e->vars);
  if (!x) return nullptr;
  return PyTuple_Pack(3, e->coef, x.get(), e->constant);
}

PyObject* ml_from_mvar(PyObject*, PyObject* mvar) { return mlinexpr_from_mvar(mvar).release(); }
PyObject* ml_from_matmul_left(PyObject*, PyObject* args) {
  PyObject *e, *M;
  if (!PyArg_ParseTuple(args, "OO:_from_matmul_left", &e, &M)) return nullptr;
  return mlinexpr_matmul_left(e, M).release();
}
PyObject* ml_from_matmul_right(PyObject*, PyObject* args) {
  PyObject *M, *e;
  if (!PyArg_ParseTuple(args, "OO:_from_matmul_right", &M, &e)) return nullptr;
  return mlinexpr_matmul_right(M, e).release();
}

PyObject* get_shape(PyObject* self, void*) { return shape_of(self).release(); }
PyObject* get_ndim(PyObject* self, void*) { return np::attr(as_mlinexpr(self)->constant, "ndim").release(); }
PyObject* get_size(PyObject* self, void*) { return np::attr(as_mlinexpr(self)->constant, "size").release(); }
PyObject* get_T(PyObject* self, void*) { return ml_transpose(self, nullptr); }
PyObject* get_vars(PyObject* self, void*) { return py::new_ref(as_mlinexpr(self)->vars); }
PyObject* get_coef(PyObject* self, void*) { return py::new_ref(as_mlinexpr(self)->coef); }
PyObject* get_constant(PyObject* self, void*) { return py::new_ref(as_mlinexpr(self)->constant); }

#define VARARGS_KW(fn) (PyCFunction)(void (*)(void))py::guarded<&fn>, METH_VARARGS | METH_KEYWORDS

PyMethodDef ml_methods[] = {
    {"sum", VARARGS_KW(ml_sum),
     "sum(axis=None)\n\nThe sum of the elements: over all of them (a 0-d MLinExpr), or over the axis\n"
     "or tuple of axes given."},
    {"transpose", py::guarded<&ml_transpose>, METH_NOARGS, "transpose()\n\nThe expressions with the axes reversed."},
    {"reshape", VARARGS_KW(ml_reshape), "reshape(*shape, order='C')\n\nThe same expressions in a new shape."},
    {"copy", py::guarded<&ml_copy>, METH_NOARGS, "copy()\n\nA copy of the expression array."},
    {"item", py::guarded<&ml_item>, METH_NOARGS, "item()\n\nThe one expression of a size-1 MLinExpr, as a LinExpr."},
    {"getValue", py::guarded<&ml_getvalue>, METH_NOARGS,
     "getValue()\n\nThe values of the expressions in the current solution, as an ndarray of this shape."},
    {"_extract_Axb", py::guarded<&ml_extract_axb>, METH_NOARGS,
     "_extract_Axb()\n\n(A, x, b) with the expression equal to A @ x + b element by element (C order)."},
    {"_from_mvar", py::guarded<&ml_from_mvar>, METH_O | METH_STATIC, "_from_mvar(mvar)\n\nThe expression x of an MVar."},
    {"_from_matmul_left", py::guarded<&ml_from_matmul_left>, METH_VARARGS | METH_STATIC,
     "_from_matmul_left(x, M)\n\nx @ M for an MVar or MLinExpr x and a constant ndarray or sparse matrix M."},
    {"_from_matmul_right", py::guarded<&ml_from_matmul_right>, METH_VARARGS | METH_STATIC,
     "_from_matmul_right(M, x)\n\nM @ x for a constant ndarray or sparse matrix M and an MVar or MLinExpr x."},
    {nullptr, nullptr, 0, nullptr}};

PyGetSetDef ml_getset[] = {
    {"shape", get_shape, nullptr, "The shape (a tuple).", nullptr},
    {"ndim", get_ndim, nullptr, "The number of dimensions.", nullptr},
    {"size", get_size, nullptr, "The number of expressions.", nullptr},
    {"T", get_T, nullptr, "The transpose.", nullptr},
    {"_vars", get_vars, nullptr, "The variables the coefficient columns refer to.", nullptr},
    {"_coef", get_coef, nullptr, "The coefficients: one CSR row per element, in C order.", nullptr},
    {"_constant", get_constant, nullptr, "The constants, in the expression's shape.", nullptr},
    {nullptr, nullptr, nullptr, nullptr, nullptr}};

PyNumberMethods ml_number = {};
PyMappingMethods ml_mapping = {};

const char ml_doc[] =
    "An array of linear expressions, shaped like a NumPy array: the result of arithmetic with\n"
    "MVar objects (A @ x, 2 * x + y, x.sum(axis=0), ...). Operators broadcast as NumPy does;\n"
    "comparisons give a TempConstr that Model.addConstr turns into an MConstr.";

}  // namespace

py::Ref mlinexpr_from_mvar(PyObject* mvar) {
  PyObject* arr = as_melem(mvar)->arr;
  py::Ref vars = np::meth(arr, "ravel");
  vars = np::meth(vars.get(), "copy");
  py::Ref n = np::attr(arr, "size");
  py::Ref coef = np::spfn("identity", {n.get()}, {{"format", np::text("csr").get()}});
  py::Ref constant = np::fn("zeros", {np::shape_of(arr).get()});
  return make(std::move(vars), std::move(coef), std::move(constant));
}

py::Ref mlinexpr_matmul_left(PyObject* expr, PyObject* M) { return matmul(expr, M, false); }
py::Ref mlinexpr_matmul_right(PyObject* M, PyObject* expr) { return matmul(expr, M, true); }

PyObject* mlinexpr_add(PyObject* a, PyObject* b) {
  py::Ref x, y;
  int ka = as_expr(a, &x);
  if (ka < 0) return nullptr;
  int kb = ka ? as_expr(b, &y) : 0;
  if (kb < 0) return nullptr;
  if (!ka || !kb) return not_implemented();
  return combine(x.get(), y.get(), 1.0).release();
}

PyObject* mlinexpr_sub(PyObject* a, PyObject* b) {
  py::Ref x, y;
  int ka = as_expr(a, &x);
  if (ka < 0) return nullptr;
  int kb = ka ? as_expr(b, &y) : 0;
  if (kb < 0) return nullptr;
  if (!ka || !kb) return not_implemented();
  return combine(x.get(), y.get(), -1.0).release();
}

PyObject* mlinexpr_mul(PyObject* a, PyObject* b) {
  PyObject* e = mlinexpr_check(a) || mvar_check(a) ? a : b;
  PyObject* c = e == a ? b : a;
  if (mlinexpr_check(c) || mvar_check(c) || var_check(c) || linexpr_check(c)) {
    return raise_velmor_msg(VLM_ERROR_NOT_SUPPORTED, "Products of matrix expressions with variables are not supported");
  }
  double v = 0;
  int k = expr_classify(c, &v);
  if (k == kOperandError) return nullptr;
  if (k != kOperandNumber && !np::isndarray(c) && !PyList_Check(c) && !PyTuple_Check(c)) return not_implemented();
  py::Ref x;
  int ke = as_expr(e, &x);
  if (ke <= 0) return ke < 0 ? nullptr : not_implemented();
  return scale(x.get(), c).release();
}

PyObject* mlinexpr_richcompare(PyObject* a, PyObject* b, int op) {
  switch (op) {
    case Py_LE:
      return tempconstr_new(a, '<', b).release();
    case Py_GE:
      return tempconstr_new(a, '>', b).release();
    case Py_EQ:
      return tempconstr_new(a, '=', b).release();
    case Py_NE:
      return raise_velmor_msg(0, "Inequality constraints not supported");
    default:
      return not_implemented();
  }
}

py::Ref mlinexpr_sum(PyObject* self, PyObject* axis) {
  py::Ref shape = shape_of(self);
  py::Ref n = np::attr(as_mlinexpr(self)->constant, "size");
  if (!shape || !n) return py::Ref();
  const Py_ssize_t nd = PyTuple_GET_SIZE(shape.get());
  std::vector<bool> summed(static_cast<size_t>(nd), axis == Py_None);
  if (axis != Py_None) {
    py::Ref axes = PyTuple_Check(axis) ? py::Ref::borrow(axis) : py::Ref::steal(PyTuple_Pack(1, axis));
    if (!axes) return axes;
    bool ok = true;
    for (Py_ssize_t i = 0; i < PyTuple_GET_SIZE(axes.get()) && ok; ++i) {
      PyObject* a = PyTuple_GET_ITEM(axes.get(), i);
      long v = PyLong_Check(a) ? PyLong_AsLong(a) : nd;
      if (v < 0) v += nd;
      ok = v >= 0 && v < nd && !summed[static_cast<size_t>(v)];
      if (ok) summed[static_cast<size_t>(v)] = true;
    }
    if (!ok) {
      py::Ref msg = py::Ref::steal(PyUnicode_FromFormat("Invalid axis specifications: %R", axis));
      if (msg) raise_velmor_msg(VLM_ERROR_INVALID_ARGUMENT, PyUnicode_AsUTF8(msg.get()));
      return py::Ref();
    }
  }
  // Each element goes to the result position whose index drops the summed axes.
  py::Ref keep = py::Ref::steal(PyList_New(0));
  py::Ref outshape = py::Ref::steal(PyList_New(0));
  if (!keep || !outshape) return py::Ref();
  for (Py_ssize_t i = 0; i < nd; ++i) {
    PyObject* d = PyTuple_GET_ITEM(shape.get(), i);
    py::Ref one = np::integer(1);
    if (PyList_Append(keep.get(), summed[static_cast<size_t>(i)] ? one.get() : d) < 0) return py::Ref();
    if (!summed[static_cast<size_t>(i)] && PyList_Append(outshape.get(), d) < 0) return py::Ref();
  }
  py::Ref keep_t = py::Ref::steal(PyList_AsTuple(keep.get()));
  py::Ref out_t = py::Ref::steal(PyList_AsTuple(outshape.get()));
  py::Ref nout = out_t ? np::integer(np::shape_size(out_t.get())) : py::Ref();
  py::Ref target = np::fn("arange", {nout.get()});
  target = np::meth(target.get(), "reshape", {keep_t.get()});
  target = np::fn("broadcast_to", {target.get(), shape.get()});
  target = np::meth(target.get(), "ravel");
  py::Ref cols = np::fn("arange", {n.get()});
  py::Ref ones = np::fn("ones", {n.get()});
  py::Ref ij = target && cols && ones ? py::Ref::steal(Py_BuildValue("(O(OO))", ones.get(), target.get(), cols.get()))
                                      : py::Ref();
  py::Ref mshape = nout ? py::Ref::steal(PyTuple_Pack(2, nout.get(), n.get())) : py::Ref();
  py::Ref map = np::spfn("csr_matrix", {ij.get()}, {{"shape", mshape.get()}});
  if (!map) return map;
  return apply_map(self, map.get(), out_t.get());
}

int register_mlinexpr(PyObject* m) {
  ml_number.nb_add = py::guarded<&ml_add>;
  ml_number.nb_subtract = py::guarded<&mlinexpr_sub>;
  ml_number.nb_multiply = py::guarded<&mlinexpr_mul>;
  ml_number.nb_true_divide = py::guarded<&ml_div>;
  ml_number.nb_matrix_multiply = py::guarded<&ml_matmul>;
  ml_number.nb_negative = py::guarded<&ml_neg>;
  ml_number.nb_positive = ml_pos;
  ml_mapping.mp_subscript = py::guarded<&ml_subscript>;
  MLinExprType.tp_basicsize = sizeof(MLinExprObject);
  MLinExprType.tp_flags = Py_TPFLAGS_DEFAULT | Py_TPFLAGS_HAVE_GC;
  MLinExprType.tp_doc = ml_doc;
  MLinExprType.tp_dealloc = ml_dealloc;
  MLinExprType.tp_traverse = ml_traverse;
  MLinExprType.tp_clear = ml_clear;
  MLinExprType.tp_repr = py::guarded<&ml_repr>;
  MLinExprType.tp_as_number = &ml_number;
  MLinExprType.tp_as_mapping = &ml_mapping;
  MLinExprType.tp_richcompare = py::guarded<&mlinexpr_richcompare>;
  MLinExprType.tp_methods = ml_methods;
  MLinExprType.tp_getset = ml_getset;
  if (PyType_Ready(&MLinExprType) < 0) return -1;
  // NumPy and SciPy leave operators with an MLinExpr to its own methods.
  if (PyDict_SetItemString(MLinExprType.tp_dict, "__array_ufunc__", Py_None) < 0) return -1;
  Py_INCREF(&MLinExprType);
  return PyModule_AddObject(m, "MLinExpr", reinterpret_cast<PyObject*>(&MLinExprType));
}
