// The algebra of matrix expressions (see mexpr.h).
#include "matrix/mexpr.h"

#include <cmath>
#include <vector>

#include "core/py_error.h"
#include "elements/handle.h"
#include "elements/var.h"
#include "expr/linexpr.h"
#include "expr/quadexpr.h"
#include "expr/tempconstr.h"
#include "matrix/mvar.h"
#include "matrix/np_call.h"
#include "matrix/sparse_rows.h"

namespace {

PyObject* not_implemented() { return py::new_ref(Py_NotImplemented); }

py::Ref dtype(const char* name) { return np::text(name); }

py::Ref shape_of(PyObject* e) { return np::shape_of(as_mexpr(e)->constant); }

Py_ssize_t count_of(PyObject* e) {
  py::Ref n = np::attr(as_mexpr(e)->constant, "size");
  return n ? PyLong_AsSsize_t(n.get()) : -1;
}

py::Ref csr(py::Ref m) { return m ? np::spfn("csr_matrix", {m.get()}) : py::Ref(); }

py::Ref raise_shapes(const char* what, PyObject* a, PyObject* b) {
  py::Ref msg = py::Ref::steal(PyUnicode_FromFormat("Incompatible shapes for %s: %S and %S", what, a, b));
  if (msg) raise_velmor_msg(VLM_ERROR_INVALID_ARGUMENT, PyUnicode_AsUTF8(msg.get()));
  return py::Ref();
}

// ---- conversion of operands ------------------------------------------------------------------

// An empty (N, cols) CSR matrix.
py::Ref empty_csr(PyObject* n, long long cols) {
  py::Ref shape = py::Ref::steal(Py_BuildValue("(OL)", n, cols));
  return shape ? np::spfn("csr_matrix", {shape.get()}) : py::Ref();
}

// A K = 0 expression: constants only.
py::Ref from_constant(PyObject* values) {
  py::Ref c = np::fn("array", {values}, {{"dtype", dtype("float64").get()}});
  py::Ref size = np::attr(c.get(), "size");
  if (!size) return py::Ref();
  py::Ref vars = np::fn("empty", {np::integer(0).get()}, {{"dtype", dtype("O").get()}});
  return mexpr_make(std::move(vars), empty_csr(size.get(), 0), std::move(c), py::Ref());
}

// A 0-d expression from a Var, LinExpr or QuadExpr.
py::Ref from_scalar_expr(PyObject* o) {
  py::Ref lin, quad;
  if (quadexpr_check(o)) {
    quad = quadexpr_from(o);
    if (!quad) return quad;
    quadexpr_flatten(quad.get());
    lin = py::Ref::borrow(as_quadexpr(quad.get())->lin);
  } else {
    lin = var_check(o) ? linexpr_from_term(1.0, o) : linexpr_copy(o);
  }
  if (!lin) return lin;
  linexpr_flatten(lin.get());
  LinExprObject* le = as_linexpr(lin.get());
  const size_t nl = le->terms.size();
  const size_t nq = quad ? as_quadexpr(quad.get())->terms.size() : 0;
  // Variables: the linear ones, then two per quadratic term.
  const Py_ssize_t k = static_cast<Py_ssize_t>(nl + 2 * nq);
  py::Ref vars = np::fn("empty", {np::integer(k).get()}, {{"dtype", dtype("O").get()}});
  np::View slots;
  if (!vars || !slots.open(vars.get(), "O")) return py::Ref();
  std::vector<long long> lcol(nl), qcol(nq);
  std::vector<double> lval(nl), qval(nq);
  for (size_t i = 0; i < nl; ++i) {
    py::assign(slots.data<PyObject*>()[i], le->terms[i].var);
    lcol[i] = static_cast<long long>(i);
    lval[i] = le->terms[i].coeff;
  }
  for (size_t t = 0; t < nq; ++t) {
    const QuadTerm& q = as_quadexpr(quad.get())->terms[t];
    const size_t a = nl + 2 * t, b = a + 1;
    py::assign(slots.data<PyObject*>()[a], q.var1);
    py::assign(slots.data<PyObject*>()[b], q.var2);
    qcol[t] = static_cast<long long>(a) * k + static_cast<long long>(b);
    qval[t] = q.coeff;
  }
  auto row = [](size_t n, const std::vector<long long>& cols, const std::vector<double>& vals, long long width) {
    std::vector<long long> zeros(n, 0);
    py::Ref r = np::array_from(zeros.data(), static_cast<Py_ssize_t>(n), "int64");
    py::Ref c = np::array_from(cols.data(), static_cast<Py_ssize_t>(n), "int64");
    py::Ref v = np::array_from(vals.data(), static_cast<Py_ssize_t>(n), "float64");
    py::Ref ij = r && c && v ? py::Ref::steal(Py_BuildValue("(O(OO))", v.get(), r.get(), c.get())) : py::Ref();
    py::Ref shape = py::Ref::steal(Py_BuildValue("(iL)", 1, width));
    return np::spfn("csr_matrix", {ij.get()}, {{"shape", shape.get()}});
  };
  py::Ref coef = row(nl, lcol, lval, k);
  py::Ref qcoef = quad ? row(nq, qcol, qval, static_cast<long long>(k) * k) : py::Ref();
  if (quad && !qcoef) return py::Ref();
  py::Ref constant = np::fn("array", {py::Ref::steal(PyFloat_FromDouble(le->constant)).get()});
  return mexpr_make(std::move(vars), std::move(coef), std::move(constant), std::move(qcoef));
}

// What the operators accept: 1 with `*out` set, 0 for an operand they leave to others (no
// exception), -1 with an exception.
int operand(PyObject* o, py::Ref* out) {
  if (mexpr_check(o)) {
    *out = py::Ref::borrow(o);
    return 1;
  }
  if (mvar_check(o)) {
    *out = mexpr_from_mvar(o);
    return *out ? 1 : -1;
  }
  if (var_check(o) || linexpr_check(o) || quadexpr_check(o)) {
    *out = from_scalar_expr(o);
    return *out ? 1 : -1;
  }
  double v = 0;
  int k = expr_classify(o, &v);
  if (k == kOperandError) return -1;
  if (k != kOperandNumber && !PyList_Check(o) && !PyTuple_Check(o) && !np::isndarray(o)) return 0;
  if (np::isndarray(o)) {
    py::Ref kind = np::attr(np::attr(o, "dtype").get(), "kind");
    if (!kind) return -1;
    if (PyUnicode_CompareWithASCIIString(kind.get(), "O") == 0) return 0;
  }
  *out = from_constant(o);
  if (*out) return 1;
  if (!PyErr_ExceptionMatches(PyExc_TypeError) && !PyErr_ExceptionMatches(PyExc_ValueError)) return -1;
  PyErr_Clear();
  return 0;
}

// Whether `o` is an expression with variables for the purpose of products.
bool has_variables(PyObject* o) {
  return mexpr_check(o) || mvar_check(o) || var_check(o) || linexpr_check(o) || quadexpr_check(o);
}

// ---- row operations --------------------------------------------------------------------------

py::Ref broadcast_shape(PyObject* a, PyObject* b) {
  py::Ref s = np::fn("broadcast_shapes", {a, b});
  if (s || !PyErr_ExceptionMatches(PyExc_ValueError)) return s;
  PyErr_Clear();
  return raise_shapes("broadcasting", a, b);
}

// Element positions 0 .. N-1 arranged in the expression's shape.
py::Ref positions(PyObject* e) {
  py::Ref r = np::fn("arange", {np::attr(as_mexpr(e)->constant, "size").get()});
  return np::meth(r.get(), "reshape", {shape_of(e).get()});
}

// The elements `rows` (an int array of any shape, positions in C order) of `e`.
py::Ref select(PyObject* e, PyObject* rows) {
  MExprObject* x = as_mexpr(e);
  py::Ref r = np::fn("asarray", {rows});
  py::Ref flat = np::meth(r.get(), "ravel");
  if (!flat) return flat;
  py::Ref coef = csr(py::Ref::steal(PyObject_GetItem(x->coef, flat.get())));
  py::Ref qcoef = x->qcoef ? csr(py::Ref::steal(PyObject_GetItem(x->qcoef, flat.get()))) : py::Ref();
  if (x->qcoef && !qcoef) return qcoef;
  py::Ref cflat = np::meth(x->constant, "ravel");
  py::Ref constant = cflat ? py::Ref::steal(PyObject_GetItem(cflat.get(), flat.get())) : py::Ref();
  constant = np::meth(constant.get(), "reshape", {np::shape_of(r.get()).get()});
  return mexpr_make(py::Ref::borrow(x->vars), std::move(coef), std::move(constant), std::move(qcoef));
}

// `e` broadcast to `shape` (itself when the shape is already that).
py::Ref broadcast_to(PyObject* e, PyObject* shape) {
  py::Ref mine = shape_of(e);
  if (!mine) return mine;
  int same = PyObject_RichCompareBool(mine.get(), shape, Py_EQ);
  if (same < 0) return py::Ref();
  if (same) return py::Ref::borrow(e);
  py::Ref rows = np::fn("broadcast_to", {positions(e).get(), shape});
  return rows ? select(e, rows.get()) : py::Ref();
}

py::Ref reshape(PyObject* e, PyObject* shape, PyObject* order = nullptr) {
  py::Ref c = np::text("C");
  py::Ref r = np::meth(positions(e).get(), "reshape", {shape}, {{"order", order ? order : c.get()}});
  return r ? select(e, r.get()) : py::Ref();
}

// The linear map `map` (Nout x N sparse) applied to `e`, giving shape `outshape`.
py::Ref apply_map(PyObject* e, PyObject* map, PyObject* outshape) {
  MExprObject* x = as_mexpr(e);
  py::Ref coef = csr(py::Ref::steal(PyNumber_MatrixMultiply(map, x->coef)));
  py::Ref qcoef = x->qcoef ? map_rows(map, x->qcoef) : py::Ref();
  if (x->qcoef && !qcoef) return qcoef;
  py::Ref flat = np::meth(x->constant, "ravel");
  py::Ref constant = flat ? py::Ref::steal(PyNumber_MatrixMultiply(map, flat.get())) : py::Ref();
  constant = np::fn("asarray", {constant.get()}, {{"dtype", dtype("float64").get()}});
  constant = np::meth(constant.get(), "reshape", {outshape});
  return mexpr_make(py::Ref::borrow(x->vars), std::move(coef), std::move(constant), std::move(qcoef));
}

// e * c for a number or an array of numbers c.
py::Ref scale(PyObject* e, PyObject* c) {
  double v = 0;
  if (expr_classify(c, &v) == kOperandNumber) {
    MExprObject* x = as_mexpr(e);
    py::Ref s = py::Ref::steal(PyFloat_FromDouble(v));
    if (!s) return s;
    py::Ref coef = py::Ref::steal(PyNumber_Multiply(x->coef, s.get()));
    py::Ref qcoef = x->qcoef ? py::Ref::steal(PyNumber_Multiply(x->qcoef, s.get())) : py::Ref();
    if (x->qcoef && !qcoef) return qcoef;
    py::Ref constant = py::Ref::steal(PyNumber_Multiply(x->constant, s.get()));
    return mexpr_make(py::Ref::borrow(x->vars), std::move(coef), std::move(constant), std::move(qcoef));
  }
  py::Ref arr = np::fn("asarray", {c}, {{"dtype", dtype("float64").get()}});
  py::Ref mine = shape_of(e);
  py::Ref shape = arr && mine ? broadcast_shape(mine.get(), np::shape_of(arr.get()).get()) : py::Ref();
  py::Ref be = shape ? broadcast_to(e, shape.get()) : py::Ref();
  if (!be) return be;
  MExprObject* x = as_mexpr(be.get());
  py::Ref factors = np::fn("broadcast_to", {arr.get(), shape.get()});
  np::View f;
  if (!f.open(factors.get(), "float64")) return py::Ref();
  py::Ref coef = scale_rows(x->coef, f.data<double>());
  py::Ref qcoef = x->qcoef ? scale_rows(x->qcoef, f.data<double>()) : py::Ref();
  if (x->qcoef && !qcoef) return qcoef;
  py::Ref constant = np::fn("multiply", {x->constant, arr.get()});
  return mexpr_make(py::Ref::borrow(x->vars), std::move(coef), std::move(constant), std::move(qcoef));
}

py::Ref add_parts(py::Ref a, py::Ref b) {
  if (!a) return b;
  if (!b) return a;
  return add_rows(a.get(), b.get());
}

// a + sign * b for two expressions.
py::Ref combine(PyObject* a0, PyObject* b0, double sign) {
  py::Ref sa = shape_of(a0), sb = shape_of(b0);
  py::Ref shape = sa && sb ? broadcast_shape(sa.get(), sb.get()) : py::Ref();
  py::Ref a = shape ? broadcast_to(a0, shape.get()) : py::Ref();
  py::Ref b = a ? broadcast_to(b0, shape.get()) : py::Ref();
  if (!b) return b;
  MExprObject* x = as_mexpr(a.get());
  MExprObject* y = as_mexpr(b.get());
  py::Ref s = py::Ref::steal(PyFloat_FromDouble(sign));
  py::Ref constant = np::fn(sign > 0 ? "add" : "subtract", {x->constant, y->constant});
  py::Ref cb = py::Ref::steal(PyNumber_Multiply(y->coef, s.get()));
  py::Ref qb = y->qcoef ? py::Ref::steal(PyNumber_Multiply(y->qcoef, s.get())) : py::Ref();
  if (!constant || !cb || (y->qcoef && !qb)) return py::Ref();
  const long long ka = mexpr_nvars(a.get()), kb = mexpr_nvars(b.get());
  py::Ref qa = x->qcoef ? py::Ref::borrow(x->qcoef) : py::Ref();
  if (kb == 0) {
    return mexpr_make(py::Ref::borrow(x->vars), py::Ref::borrow(x->coef), std::move(constant), std::move(qa));
  }
  if (ka == 0) return mexpr_make(py::Ref::borrow(y->vars), std::move(cb), std::move(constant), std::move(qb));
  if (x->vars == y->vars) {
    py::Ref coef = csr(py::Ref::steal(PyNumber_Add(x->coef, cb.get())));
    py::Ref q = add_parts(std::move(qa), std::move(qb));
    if (q) q = csr(std::move(q));
    return mexpr_make(py::Ref::borrow(x->vars), std::move(coef), std::move(constant), std::move(q));
  }
  // Different lists: their union by identity, so that pieces of one MVar (slices, shifts) keep
  // one column per variable instead of one per appearance.
  VarUnion u;
  if (!var_union(x->vars, y->vars, &u)) return py::Ref();
  py::Ref ca = u.k == ka ? py::Ref::borrow(x->coef) : widen(x->coef, u.k);
  py::Ref cbm = remap_columns(cb.get(), u.map_b, u.k);
  // The linear matrices have K columns: SciPy's sum is fine (and faster) for them.
  py::Ref coef = ca && cbm ? csr(py::Ref::steal(PyNumber_Add(ca.get(), cbm.get()))) : py::Ref();
  if (qa) qa = remap_quadratic(qa.get(), ka, nullptr, u.k);
  if (qb) qb = remap_quadratic(qb.get(), kb, &u.map_b, u.k);
  if ((x->qcoef && !qa) || (y->qcoef && !qb)) return py::Ref();
  py::Ref q = add_parts(std::move(qa), std::move(qb));
  return mexpr_make(std::move(u.vars), std::move(coef), std::move(constant), std::move(q));
}

// e @ f for two expressions, as the sum of an elementwise product over the shared axis.
py::Ref matmul_exprs(PyObject* a, PyObject* b) {
  py::Ref sa = shape_of(a), sb = shape_of(b);
  if (!sa || !sb) return py::Ref();
  const Py_ssize_t na = PyTuple_GET_SIZE(sa.get()), nb = PyTuple_GET_SIZE(sb.get());
  if (na == 0 || nb == 0) {
    py::raise(PyExc_ValueError, "Input operand does not have enough dimensions");
    return py::Ref();
  }
  if (na > 2 || nb > 2) return raise_shapes("matrix product", sa.get(), sb.get());
  auto dim = [](PyObject* s, Py_ssize_t i) { return PyLong_AsLongLong(PyTuple_GET_ITEM(s, i)); };
  const long long inner_a = dim(sa.get(), na - 1), inner_b = dim(sb.get(), 0);
  if (inner_a != inner_b) return raise_shapes("matrix product", sa.get(), sb.get());
  py::Ref left = py::Ref::borrow(a), right = py::Ref::borrow(b);
  py::Ref axis;
  if (na == 2 && nb == 2) {
    py::Ref s1 = py::Ref::steal(Py_BuildValue("(LLi)", dim(sa.get(), 0), inner_a, 1));
    py::Ref s2 = py::Ref::steal(Py_BuildValue("(iLL)", 1, inner_b, dim(sb.get(), 1)));
    left = s1 ? reshape(a, s1.get()) : py::Ref();
    right = s2 ? reshape(b, s2.get()) : py::Ref();
    axis = np::integer(1);
  } else if (na == 1 && nb == 2) {
    py::Ref s1 = py::Ref::steal(Py_BuildValue("(Li)", inner_a, 1));
    left = s1 ? reshape(a, s1.get()) : py::Ref();
    axis = np::integer(0);
  } else {
    axis = na == 2 ? np::integer(1) : py::Ref::borrow(Py_None);
  }
  if (!left || !right || !axis) return py::Ref();
  py::Ref prod = mexpr_product(left.get(), right.get());
  if (!prod) return prod;
  return mexpr_sum(prod.get(), axis.get());
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
    // A vector on the left of the expression is a row, on its right a column.
    py::Ref shape = py::Ref::steal(left ? Py_BuildValue("(ii)", -1, 1) : Py_BuildValue("(ii)", 1, -1));
    m2 = f->vector ? np::meth(arr.get(), "reshape", {shape.get()}) : std::move(arr);
  }
  f->shape = np::shape_of(M);
  f->csr = np::spfn("csr_matrix", {m2.get()});
  return static_cast<bool>(f->csr) && static_cast<bool>(f->shape);
}

// ---- slots -----------------------------------------------------------------------------------

PyObject* mexpr_pos(PyObject* a) { return py::new_ref(a); }

void mexpr_dealloc(PyObject* self) {
  PyObject_GC_UnTrack(self);
  MExprObject* e = as_mexpr(self);
  Py_CLEAR(e->vars);
  Py_CLEAR(e->coef);
  Py_CLEAR(e->constant);
  Py_CLEAR(e->qcoef);
  Py_TYPE(self)->tp_free(self);
}

int mexpr_traverse(PyObject* self, visitproc visit, void* arg) {
  Py_VISIT(as_mexpr(self)->vars);
  Py_VISIT(as_mexpr(self)->coef);
  Py_VISIT(as_mexpr(self)->constant);
  Py_VISIT(as_mexpr(self)->qcoef);
  return 0;
}

int mexpr_clear(PyObject* self) {
  Py_CLEAR(as_mexpr(self)->vars);
  Py_CLEAR(as_mexpr(self)->coef);
  Py_CLEAR(as_mexpr(self)->constant);
  Py_CLEAR(as_mexpr(self)->qcoef);
  return 0;
}

PyObject* mexpr_subscript(PyObject* self, PyObject* key) {
  py::Ref pos = positions(self);
  py::Ref rows = pos ? py::Ref::steal(PyObject_GetItem(pos.get(), key)) : py::Ref();
  return rows ? select(self, rows.get()).release() : nullptr;
}

Py_ssize_t mexpr_length(PyObject* self) { return PyObject_Length(as_mexpr(self)->constant); }

// Iterates over the first axis, as an ndarray does.
PyObject* mexpr_iter(PyObject* self) {
  const Py_ssize_t n = PyObject_Length(as_mexpr(self)->constant);
  if (n < 0) return nullptr;
  py::Ref items = py::Ref::steal(PyList_New(n));
  if (!items) return nullptr;
  for (Py_ssize_t i = 0; i < n; ++i) {
    py::Ref key = py::Ref::steal(PyLong_FromSsize_t(i));
    py::Ref item = key ? py::Ref::steal(mexpr_subscript(self, key.get())) : py::Ref();
    if (!item) return nullptr;
    PyList_SET_ITEM(items.get(), i, item.release());
  }
  return PyObject_GetIter(items.get());
}

// "<velmor.MLinExpr (2,): [x[0] + 2.0 x[1], x[2]]>", the first elements only for large ones.
PyObject* mexpr_repr(PyObject* self) {
  constexpr Py_ssize_t kShown = 6;
  py::Ref shape = shape_of(self);
  const Py_ssize_t n = count_of(self);
  if (!shape || n < 0) return nullptr;
  py::Ref flat = reshape(self, py::Ref::steal(Py_BuildValue("(i)", -1)).get());
  py::Ref parts = py::Ref::steal(PyList_New(0));
  if (!flat || !parts) return nullptr;
  for (Py_ssize_t i = 0; i < n && i < kShown; ++i) {
    py::Ref idx = np::integer(i);
    py::Ref el = py::Ref::steal(mexpr_subscript(flat.get(), idx.get()));
    py::Ref item = el ? py::Ref::steal(PyObject_CallMethod(el.get(), "item", nullptr)) : py::Ref();
    py::Ref text = item ? py::Ref::steal(PyObject_Str(item.get())) : py::Ref();
    if (!text || PyList_Append(parts.get(), text.get()) < 0) return nullptr;
  }
  if (n > kShown && PyList_Append(parts.get(), py::Ref::steal(PyUnicode_FromFormat("... (%zd more)", n - kShown)).get()) < 0) {
    return nullptr;
  }
  py::Ref sep = np::text(", ");
  py::Ref joined = sep ? py::Ref::steal(PyUnicode_Join(sep.get(), parts.get())) : py::Ref();
  if (!joined) return nullptr;
  return PyUnicode_FromFormat("<velmor.%s %S: [%U]>", mquadexpr_check(self) ? "MQuadExpr" : "MLinExpr", shape.get(),
                              joined.get());
}

// ---- methods ---------------------------------------------------------------------------------

PyObject* mexpr_sum_method(PyObject* self, PyObject* args, PyObject* kwds) {
  static const char* kwlist[] = {"axis", nullptr};
  PyObject* axis = Py_None;
  if (!PyArg_ParseTupleAndKeywords(args, kwds, "|O:sum", const_cast<char**>(kwlist), &axis)) return nullptr;
  return mexpr_sum(self, axis).release();
}

PyObject* mexpr_transpose(PyObject* self, PyObject*) {
  py::Ref t = np::meth(positions(self).get(), "transpose");
  return t ? select(self, t.get()).release() : nullptr;
}

PyObject* mexpr_reshape(PyObject* self, PyObject* args, PyObject* kwds) {
  PyObject* order = kwds ? PyDict_GetItemString(kwds, "order") : nullptr;
  PyObject* shape = PyTuple_GET_SIZE(args) == 1 ? PyTuple_GET_ITEM(args, 0) : args;
  return reshape(self, shape, order).release();
}

PyObject* mexpr_copy(PyObject* self, PyObject*) {
  MExprObject* x = as_mexpr(self);
  py::Ref q = x->qcoef ? np::meth(x->qcoef, "copy") : py::Ref();
  if (x->qcoef && !q) return nullptr;
  return mexpr_make(py::Ref::borrow(x->vars), np::meth(x->coef, "copy"), np::meth(x->constant, "copy"), std::move(q))
      .release();
}

// The values at the current solution (attribute X of the variables), in the expression's shape.
PyObject* mexpr_getvalue(PyObject* self, PyObject*) {
  MExprObject* x = as_mexpr(self);
  const Py_ssize_t k = mexpr_nvars(self);
  const Py_ssize_t n = count_of(self);
  if (k < 0 || n < 0) return nullptr;
  py::Ref values;
  if (k == 0) {
    values = np::fn("zeros", {np::integer(0).get()});
  } else {
    py::Ref mv = mvar_fromlist(x->vars);
    values = np::meth(mv.get(), "getAttr", {np::text("X").get()});
  }
  py::Ref lin = values ? py::Ref::steal(PyNumber_MatrixMultiply(x->coef, values.get())) : py::Ref();
  np::View out, xv;
  if (!lin || !out.open(lin.get(), "float64") || out.array() != lin.get() || !xv.open(values.get(), "float64")) {
    return nullptr;
  }
  if (x->qcoef) {
    np::CsrView q;
    if (!q.open(x->qcoef)) return nullptr;
    const double* X = xv.data<double>();
    for (Py_ssize_t e = 0; e < n; ++e) {
      double s = 0;
      for (long long t = q.begin(e); t < q.end(e); ++t) s += q.value(t) * X[q.col(t) / k] * X[q.col(t) % k];
      out.data<double>()[e] += s;
    }
  }
  py::Ref shaped = np::meth(lin.get(), "reshape", {shape_of(self).get()});
  return shaped ? PyNumber_Add(shaped.get(), x->constant) : nullptr;
}

PyObject* get_shape(PyObject* self, void*) { return shape_of(self).release(); }
PyObject* get_ndim(PyObject* self, void*) { return np::attr(as_mexpr(self)->constant, "ndim").release(); }
PyObject* get_size(PyObject* self, void*) { return np::attr(as_mexpr(self)->constant, "size").release(); }
PyObject* get_T(PyObject* self, void*) { return mexpr_transpose(self, nullptr); }
PyObject* get_vars(PyObject* self, void*) { return py::new_ref(as_mexpr(self)->vars); }
PyObject* get_coef(PyObject* self, void*) { return py::new_ref(as_mexpr(self)->coef); }
PyObject* get_constant(PyObject* self, void*) { return py::new_ref(as_mexpr(self)->constant); }
PyObject* get_qcoef(PyObject* self, void*) {
  return py::new_ref(as_mexpr(self)->qcoef ? as_mexpr(self)->qcoef : Py_None);
}

#define VARARGS_KW(fn) (PyCFunction)(void (*)(void))py::guarded<&fn>, METH_VARARGS | METH_KEYWORDS

PyMethodDef shared_methods[] = {
    {"sum", VARARGS_KW(mexpr_sum_method),
     "sum($self, axis=None)\n--\n\nThe sum of the elements: over all of them (a 0-d expression), or over the axis\n"
     "or tuple of axes given."},
    {"transpose", py::guarded<&mexpr_transpose>, METH_NOARGS, "transpose($self)\n--\n\nThe expressions with the axes reversed."},
    {"reshape", VARARGS_KW(mexpr_reshape), "reshape($self, *shape, order='C')\n--\n\nThe same expressions in a new shape."},
    {"copy", py::guarded<&mexpr_copy>, METH_NOARGS, "copy($self)\n--\n\nA copy of the expression array."},
    {"getValue", py::guarded<&mexpr_getvalue>, METH_NOARGS,
     "getValue($self)\n--\n\nThe values of the expressions in the current solution, as an ndarray of this shape."},
};

PyGetSetDef mexpr_getset[] = {
    {"shape", get_shape, nullptr, "The shape (a tuple).", nullptr},
    {"ndim", get_ndim, nullptr, "The number of dimensions.", nullptr},
    {"size", get_size, nullptr, "The number of expressions.", nullptr},
    {"T", get_T, nullptr, "The transpose.", nullptr},
    {"_vars", get_vars, nullptr, "The variables the coefficient columns refer to.", nullptr},
    {"_coef", get_coef, nullptr, "The linear coefficients: one CSR row per element, in C order.", nullptr},
    {"_constant", get_constant, nullptr, "The constants, in the expression's shape.", nullptr},
    {"_qcoef", get_qcoef, nullptr, "The quadratic coefficients (column i*K + j for vars i, j), or None.", nullptr},
    {nullptr, nullptr, nullptr, nullptr, nullptr}};

PyNumberMethods mexpr_number = {};
PyMappingMethods mexpr_mapping = {};

}  // namespace

// ---- exported --------------------------------------------------------------------------------

py::Ref mexpr_make(py::Ref vars, py::Ref coef, py::Ref constant, py::Ref qcoef) {
  if (!vars || !coef || !constant) return py::Ref();
  PyTypeObject* type = qcoef ? &MQuadExprType : &MLinExprType;
  PyObject* self = type->tp_alloc(type, 0);
  if (self == nullptr) return py::Ref();
  MExprObject* e = as_mexpr(self);
  e->vars = vars.release();
  e->coef = coef.release();
  e->constant = constant.release();
  e->qcoef = qcoef.release();
  return py::Ref::steal(self);
}

Py_ssize_t mexpr_nvars(PyObject* e) { return PyObject_Size(as_mexpr(e)->vars); }

py::Ref mexpr_from_mvar(PyObject* mvar) {
  PyObject* arr = as_melem(mvar)->arr;
  py::Ref vars = np::meth(arr, "ravel");
  vars = np::meth(vars.get(), "copy");
  py::Ref coef = np::spfn("identity", {np::attr(arr, "size").get()}, {{"format", np::text("csr").get()}});
  py::Ref constant = np::fn("zeros", {np::shape_of(arr).get()});
  return mexpr_make(std::move(vars), std::move(coef), std::move(constant), py::Ref());
}

PyObject* mexpr_add(PyObject* a, PyObject* b) {
  py::Ref x, y;
  int ka = operand(a, &x);
  int kb = ka > 0 ? operand(b, &y) : 0;
  if (ka < 0 || kb < 0) return nullptr;
  if (!ka || !kb) return not_implemented();
  return combine(x.get(), y.get(), 1.0).release();
}

PyObject* mexpr_sub(PyObject* a, PyObject* b) {
  py::Ref x, y;
  int ka = operand(a, &x);
  int kb = ka > 0 ? operand(b, &y) : 0;
  if (ka < 0 || kb < 0) return nullptr;
  if (!ka || !kb) return not_implemented();
  return combine(x.get(), y.get(), -1.0).release();
}

PyObject* mexpr_mul(PyObject* a, PyObject* b) {
  if (has_variables(a) && has_variables(b)) return mexpr_product(a, b).release();
  PyObject* e = has_variables(a) ? a : b;
  PyObject* c = e == a ? b : a;
  double v = 0;
  int k = expr_classify(c, &v);
  if (k == kOperandError) return nullptr;
  if (k != kOperandNumber && !np::isndarray(c) && !PyList_Check(c) && !PyTuple_Check(c)) return not_implemented();
  py::Ref x;
  int ke = operand(e, &x);
  if (ke <= 0) return ke < 0 ? nullptr : not_implemented();
  return scale(x.get(), c).release();
}

PyObject* mexpr_div(PyObject* a, PyObject* b) {
  if (!has_variables(a) || has_variables(b)) return not_implemented();
  double v = 0;
  int k = expr_classify(b, &v);
  if (k == kOperandError) return nullptr;
  if (k != kOperandNumber && !np::isndarray(b) && !PyList_Check(b) && !PyTuple_Check(b)) return not_implemented();
  py::Ref x;
  int ke = operand(a, &x);
  if (ke <= 0) return ke < 0 ? nullptr : not_implemented();
  // Division by zero fails as it does for LinExpr, instead of making infinite coefficients.
  if (k == kOperandNumber) {
    if (!expr_divisor(b, &v)) return nullptr;
    py::Ref inv = py::Ref::steal(PyFloat_FromDouble(1.0 / v));
    return inv ? scale(x.get(), inv.get()).release() : nullptr;
  }
  py::Ref zero = np::fn("any", {np::fn("equal", {b, py::Ref::steal(PyFloat_FromDouble(0.0)).get()}).get()});
  if (!zero) return nullptr;
  if (zero.get() == Py_True || PyObject_IsTrue(zero.get()) == 1) {
    return py::raise(PyExc_ZeroDivisionError, "float division");
  }
  py::Ref inv = np::fn("divide", {py::Ref::steal(PyFloat_FromDouble(1.0)).get(), b});
  return inv ? scale(x.get(), inv.get()).release() : nullptr;
}

PyObject* mexpr_matmul(PyObject* a, PyObject* b) {
  const bool ma = mexpr_check(a) || mvar_check(a), mb = mexpr_check(b) || mvar_check(b);
  if (ma && mb) {
    py::Ref x, y;
    if (operand(a, &x) < 0 || operand(b, &y) < 0) return nullptr;
    return matmul_exprs(x.get(), y.get()).release();
  }
  if (!ma && !mb) return not_implemented();
  PyObject* other = ma ? b : a;
  if (has_variables(other)) return not_implemented();
  py::Ref m;
  if (np::isndarray(other) || np::issparse(other)) {
    m = py::Ref::borrow(other);
  } else {
    // Lists and other array-likes of numbers, as an ndarray.
    m = np::fn("asarray", {other}, {{"dtype", dtype("float64").get()}});
    if (!m) {
      if (!PyErr_ExceptionMatches(PyExc_TypeError) && !PyErr_ExceptionMatches(PyExc_ValueError)) return nullptr;
      PyErr_Clear();
      return not_implemented();
    }
  }
  return mexpr_matmul_const(ma ? a : b, m.get(), !ma).release();
}

PyObject* mexpr_neg(PyObject* a) {
  py::Ref x;
  int k = operand(a, &x);
  if (k <= 0) return k < 0 ? nullptr : not_implemented();
  py::Ref s = py::Ref::steal(PyFloat_FromDouble(-1.0));
  return s ? scale(x.get(), s.get()).release() : nullptr;
}

PyObject* mexpr_richcompare(PyObject* a, PyObject* b, int op) {
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

py::Ref mexpr_matmul_const(PyObject* exprlike, PyObject* M, bool right) {
  py::Ref e;
  int k = operand(exprlike, &e);
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
  auto dim = [](PyObject* s, Py_ssize_t i) { return PyLong_AsLong(PyTuple_GET_ITEM(s, i)); };
  // As a map on the flattened elements: M @ e is kron(M, I_k), e @ M is kron(I_m, M^T).
  const long m0 = dim(ms.get(), 0), m1 = dim(ms.get(), 1);
  const long inner = right ? dim(es.get(), 0) : dim(es.get(), endim - 1);
  if ((right ? m1 : m0) != inner) {
    return right ? raise_shapes("matrix product", f.shape.get(), es.get())
                 : raise_shapes("matrix product", es.get(), f.shape.get());
  }
  const long other = endim == 2 ? (right ? dim(es.get(), 1) : dim(es.get(), 0)) : 1;
  py::Ref eye = np::spfn("identity", {np::integer(other).get()}, {{"format", np::text("csr").get()}});
  py::Ref base = right ? py::Ref::borrow(f.csr.get()) : csr(np::meth(f.csr.get(), "transpose"));
  py::Ref map;
  if (endim == 1) {
    map = std::move(base);
  } else if (right) {
    map = np::spfn("kron", {base.get(), eye.get()}, {{"format", np::text("csr").get()}});
  } else {
    map = np::spfn("kron", {eye.get(), base.get()}, {{"format", np::text("csr").get()}});
  }
  const long outer = right ? m0 : m1;
  py::Ref outshape;
  if (endim == 2) {
    outshape = py::Ref::steal(f.vector ? Py_BuildValue("(l)", other)
                                       : (right ? Py_BuildValue("(ll)", outer, other) : Py_BuildValue("(ll)", other, outer)));
  } else {
    outshape = py::Ref::steal(f.vector ? PyTuple_New(0) : Py_BuildValue("(l)", outer));
  }
  if (!map || !outshape) return py::Ref();
  return apply_map(e.get(), map.get(), outshape.get());
}

py::Ref mexpr_product(PyObject* a0, PyObject* b0) {
  py::Ref a, b;
  int ka = operand(a0, &a);
  int kb = ka > 0 ? operand(b0, &b) : 0;
  if (ka < 0 || kb < 0) return py::Ref();
  if (!ka || !kb) return py::Ref::borrow(Py_NotImplemented);
  if (as_mexpr(a.get())->qcoef || as_mexpr(b.get())->qcoef) {
    raise_velmor_msg(VLM_ERROR_INVALID_ARGUMENT, "Products of matrix expressions can be at most quadratic");
    return py::Ref();
  }
  py::Ref sa = shape_of(a.get()), sb = shape_of(b.get());
  py::Ref shape = sa && sb ? broadcast_shape(sa.get(), sb.get()) : py::Ref();
  if (shape) a = broadcast_to(a.get(), shape.get());
  if (a) b = broadcast_to(b.get(), shape.get());
  if (!b) return b;
  MExprObject* x = as_mexpr(a.get());
  MExprObject* y = as_mexpr(b.get());
  // b's columns in the union of both variable lists (identity when they share one).
  VarUnion u;
  if (x->vars == y->vars) {
    u.vars = py::Ref::borrow(x->vars);
    u.k = mexpr_nvars(a.get());
    u.map_b.resize(static_cast<size_t>(u.k));
    for (long long j = 0; j < u.k; ++j) u.map_b[static_cast<size_t>(j)] = j;
  } else if (!var_union(x->vars, y->vars, &u)) {
    return py::Ref();
  }
  const long long k = u.k;
  py::Ref vars = std::move(u.vars);
  auto bcol = [&u](long long c) { return u.map_b[static_cast<size_t>(c)]; };
  np::CsrView A, B;
  np::View ca, cb;
  if (!vars || !A.open(x->coef) || !B.open(y->coef) || !ca.open(x->constant, "float64") ||
      !cb.open(y->constant, "float64")) {
    return py::Ref();
  }
  const Py_ssize_t n = ca.size();
  std::vector<long long> lrow, lcol, qrow, qcol;
  std::vector<double> lval, qval, constant(static_cast<size_t>(n));
  // (a + A v)(b + B w) = ab + b A v + a B w + (A v)(B w), element by element.
  for (Py_ssize_t e = 0; e < n; ++e) {
    const double av = ca.data<double>()[e], bv = cb.data<double>()[e];
    constant[static_cast<size_t>(e)] = av * bv;
    for (long long s = A.begin(e); s < A.end(e); ++s) {
      if (bv != 0) {
        lrow.push_back(e);
        lcol.push_back(A.col(s));
        lval.push_back(A.value(s) * bv);
      }
      for (long long t = B.begin(e); t < B.end(e); ++t) {
        qrow.push_back(e);
        qcol.push_back(A.col(s) * k + bcol(B.col(t)));
        qval.push_back(A.value(s) * B.value(t));
      }
    }
    if (av == 0) continue;
    for (long long t = B.begin(e); t < B.end(e); ++t) {
      lrow.push_back(e);
      lcol.push_back(bcol(B.col(t)));
      lval.push_back(B.value(t) * av);
    }
  }
  py::Ref coef = csr_from(lrow, lcol, lval, n, k);
  py::Ref qcoef = csr_from(qrow, qcol, qval, n, k * k);
  py::Ref c = np::array_from(constant.data(), n, "float64");
  c = np::meth(c.get(), "reshape", {shape.get()});
  if (!qcoef) return qcoef;
  return mexpr_make(std::move(vars), std::move(coef), std::move(c), std::move(qcoef));
}

py::Ref mexpr_sum(PyObject* self, PyObject* axis) {
  py::Ref shape = shape_of(self);
  py::Ref n = np::attr(as_mexpr(self)->constant, "size");
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
  py::Ref one = np::integer(1);
  if (!keep || !outshape || !one) return py::Ref();
  for (Py_ssize_t i = 0; i < nd; ++i) {
    PyObject* d = PyTuple_GET_ITEM(shape.get(), i);
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

int mexpr_register(PyObject* m, PyTypeObject* type, const char* name, const char* doc, PyMethodDef* extra) {
  if (mexpr_number.nb_add == nullptr) {
    mexpr_number.nb_add = py::guarded<&mexpr_add>;
    mexpr_number.nb_subtract = py::guarded<&mexpr_sub>;
    mexpr_number.nb_multiply = py::guarded<&mexpr_mul>;
    mexpr_number.nb_true_divide = py::guarded<&mexpr_div>;
    mexpr_number.nb_matrix_multiply = py::guarded<&mexpr_matmul>;
    mexpr_number.nb_negative = py::guarded<&mexpr_neg>;
    mexpr_number.nb_positive = mexpr_pos;
    mexpr_mapping.mp_subscript = py::guarded<&mexpr_subscript>;
    mexpr_mapping.mp_length = py::guarded<&mexpr_length>;
  }
  // The tables live as long as the type, that is for the whole process.
  size_t n_extra = 0;
  while (extra != nullptr && extra[n_extra].ml_name != nullptr) ++n_extra;
  const size_t n_shared = sizeof(shared_methods) / sizeof(shared_methods[0]);
  auto* methods = new PyMethodDef[n_shared + n_extra + 1];
  for (size_t i = 0; i < n_shared; ++i) methods[i] = shared_methods[i];
  for (size_t i = 0; i < n_extra; ++i) methods[n_shared + i] = extra[i];
  methods[n_shared + n_extra] = {nullptr, nullptr, 0, nullptr};
  type->tp_basicsize = sizeof(MExprObject);
  type->tp_flags = Py_TPFLAGS_DEFAULT | Py_TPFLAGS_HAVE_GC;
  type->tp_doc = doc;
  type->tp_dealloc = mexpr_dealloc;
  type->tp_traverse = mexpr_traverse;
  type->tp_clear = mexpr_clear;
  type->tp_repr = py::guarded<&mexpr_repr>;
  type->tp_as_number = &mexpr_number;
  type->tp_as_mapping = &mexpr_mapping;
  type->tp_richcompare = py::guarded<&mexpr_richcompare>;
  type->tp_iter = py::guarded<&mexpr_iter>;
  type->tp_methods = methods;
  type->tp_getset = mexpr_getset;
  if (PyType_Ready(type) < 0) return -1;
  // NumPy and SciPy leave operators with a matrix expression to its own methods.
  if (PyDict_SetItemString(type->tp_dict, "__array_ufunc__", Py_None) < 0) return -1;
  Py_INCREF(type);
  return PyModule_AddObject(m, name, reinterpret_cast<PyObject*>(type));
}
