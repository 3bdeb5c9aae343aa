// QuadExpr (see quadexpr.h) and its pickling.
#include "expr/quadexpr.h"

#include <cmath>
#include <cstdio>
#include <string>
#include <unordered_map>
#include <vector>

#include "elements/handle.h"
#include "core/py_error.h"
#include "elements/var.h"
#include "expr/linexpr.h"
#include "velmor_c.h"

PyTypeObject QuadExprType = {PyVarObject_HEAD_INIT(nullptr, 0) "velmorpy.QuadExpr"};

namespace {

PyObject* g_unpickle = nullptr;  // velmorpy._unpickle_QuadExpr

// The checksums of the pickled field layout (__linexpr, _coeffs, _continue, _vars1, _vars2).
constexpr unsigned long kChecksums[] = {0x5f8c98f, 0x9dece5a, 0xea41dcd};

PyObject* invalid(const char* message) { return raise_velmor_msg(VLM_ERROR_INVALID_ARGUMENT, message); }

PyObject* not_implemented() { return py::new_ref(Py_NotImplemented); }

py::Ref own(QuadExprObject* q) { return py::Ref::steal(reinterpret_cast<PyObject*>(q)); }

// ---- allocation ------------------------------------------------------------------------------

QuadExprObject* quad_alloc() {
  py::Ref lin = linexpr_new();
  if (!lin) return nullptr;
  QuadExprObject* q = PyObject_GC_New(QuadExprObject, &QuadExprType);
  if (q == nullptr) return nullptr;
  q->lin = lin.release();
  q->cont = nullptr;
  new (&q->terms) TermVec<QuadTerm>();
  PyObject_GC_Track(q);
  return q;
}

void release_terms(TermVec<QuadTerm>& terms) {
  size_t n = terms.size();
  terms.set_size(0);
  for (size_t i = 0; i < n; ++i) {
    Py_DECREF(terms[i].var1);
    Py_DECREF(terms[i].var2);
  }
}

// Drops the quadratic terms and the tail; the linear part stays.
void drop_quadratic(QuadExprObject* q) {
  TermVec<QuadTerm> old;
  old.take(q->terms);
  PyObject* cont = q->cont;
  q->cont = nullptr;
  release_terms(old);
  Py_XDECREF(cont);
}

PyObject* quad_tp_new(PyTypeObject* type, PyObject*, PyObject*) {
  py::Ref lin = linexpr_new();
  if (!lin) return nullptr;
  PyObject* self = type->tp_alloc(type, 0);
  if (self == nullptr) return nullptr;
  QuadExprObject* q = as_quadexpr(self);
  q->lin = lin.release();
  q->cont = nullptr;
  new (&q->terms) TermVec<QuadTerm>();
  return self;
}

int quad_traverse(PyObject* self, visitproc visit, void* arg) {
  QuadExprObject* q = as_quadexpr(self);
  Py_VISIT(q->lin);
  Py_VISIT(q->cont);
  for (const QuadTerm& t : q->terms) {
    Py_VISIT(t.var1);
    Py_VISIT(t.var2);
  }
  return 0;
}

// Keeps `lin` (never null by design); clearing its terms breaks any cycle through it.
int quad_tp_clear(PyObject* self) {
  QuadExprObject* q = as_quadexpr(self);
  drop_quadratic(q);
  if (q->lin != nullptr) {
    TermVec<LinTerm> none;
    linexpr_replace(q->lin, none, 0.0);
  }
  return 0;
}

void quad_dealloc(PyObject* self) {
  PyObject_GC_UnTrack(self);
  Py_TRASHCAN_BEGIN(self, quad_dealloc)
  QuadExprObject* q = as_quadexpr(self);
  drop_quadratic(q);
  Py_CLEAR(q->lin);
  q->terms.~TermVec<QuadTerm>();
  Py_TYPE(self)->tp_free(self);
  Py_TRASHCAN_END
}

// ---- building blocks -------------------------------------------------------------------------

template <class F>
void for_each_node(PyObject* q, F&& f) {
  std::vector<QuadExprObject*> nodes;
  for (PyObject* p = q; p != nullptr; p = as_quadexpr(p)->cont) nodes.push_back(as_quadexpr(p));
  for (size_t i = nodes.size(); i-- > 0;) f(nodes[i]);
}

size_t total_quad_size(PyObject* q) {
  size_t n = 0;
  for (PyObject* p = q; p != nullptr; p = as_quadexpr(p)->cont) n += as_quadexpr(p)->terms.size();
  return n;
}

size_t total_lin_size(PyObject* q) {
  size_t n = 0;
  for (PyObject* p = q; p != nullptr; p = as_quadexpr(p)->cont) n += linexpr_total_size(as_quadexpr(p)->lin);
  return n;
}

void copy_quad_terms(TermVec<QuadTerm>& dst, const QuadTerm* src, size_t n, double mult) {
  dst.reserve_more(n);
  for (size_t i = 0; i < n; ++i) {
    Py_INCREF(src[i].var1);
    Py_INCREF(src[i].var2);
    dst.push_back({mult == 1.0 ? src[i].coeff : src[i].coeff * mult, src[i].var1, src[i].var2});
  }
}

// Freezes a sum with many own terms into the tail of a new empty expression.
py::Ref apply_tail_rule(py::Ref q) {
  QuadExprObject* e = as_quadexpr(q.get());
  if (e->terms.size() < kTailThreshold && as_linexpr(e->lin)->terms.size() < kTailThreshold) return q;
  QuadExprObject* head = quad_alloc();
  if (head == nullptr) return py::Ref();
  head->cont = q.release();
  return own(head);
}

// Degree of an expression operand: 0 constant only, 1 linear, 2 quadratic.
int degree(PyObject* o, int kind) {
  switch (kind) {
    case kOperandVar:
      return 1;
    case kOperandLinExpr:
      return linexpr_total_size(o) ? 1 : 0;
    case kOperandQuadExpr:
      return total_quad_size(o) ? 2 : total_lin_size(o) ? 1 : 0;
    default:
      return 0;
  }
}

// Replaces the linear part.
void set_lin(QuadExprObject* q, py::Ref lin) {
  PyObject* old = q->lin;
  q->lin = lin.release();
  Py_XDECREF(old);
}

// Scales a flattened expression.
void scale_flat(QuadExprObject* q, double m) {
  linexpr_flatten(q->lin);
  LinExprObject* lin = as_linexpr(q->lin);
  lin->constant *= m;
  for (LinTerm& t : lin->terms) t.coeff *= m;
  for (QuadTerm& t : q->terms) t.coeff *= m;
}

// Moves the contents of `from` (a flattened QuadExpr used by nobody else) into `q`, whose
// quadratic terms must be empty.
void take_contents(QuadExprObject* q, QuadExprObject* from) {
  std::swap(q->lin, from->lin);
  drop_quadratic(q);
  q->terms.take(from->terms);
}

// ---- methods ---------------------------------------------------------------------------------

PyObject* quad_add_method(PyObject* self, PyObject* args, PyObject* kwds) {
  static const char* kwlist[] = {"expr", "mult", nullptr};
  PyObject* expr = nullptr;
  double mult = 1.0;
  if (!PyArg_ParseTupleAndKeywords(args, kwds, "O|d:add", const_cast<char**>(kwlist), &expr, &mult)) return nullptr;
  int r = quadexpr_add(self, expr, mult);
  if (r < 0) return nullptr;
  if (r == 0) return invalid("Invalid argument to QuadExpr addition");
  return py::none();
}

PyObject* quad_addconstant(PyObject* self, PyObject* arg) {
  return PyObject_CallMethod(as_quadexpr(self)->lin, "addConstant", "O", arg);
}

bool list_arg(PyObject* o) {
  if (PyList_Check(o) || PyTuple_Check(o)) return true;
  if (PyUnicode_Check(o) || PyBytes_Check(o) || PyDict_Check(o) || var_check(o)) return false;
  return PySequence_Check(o) && !linexpr_check(o) && !quadexpr_check(o);
}

PyObject* quad_addterms(PyObject* self, PyObject* args, PyObject* kwds) {
  static const char* kwlist[] = {"coeffs", "vars", "vars2", nullptr};
  PyObject* coeffs = nullptr;
  PyObject* vars = nullptr;
  PyObject* vars2 = Py_None;
  if (!PyArg_ParseTupleAndKeywords(args, kwds, "OO|O:addTerms", const_cast<char**>(kwlist), &coeffs, &vars, &vars2)) {
    return nullptr;
  }
  QuadExprObject* q = as_quadexpr(self);
  if (vars2 == Py_None) return PyObject_CallMethod(q->lin, "addTerms", "OO", coeffs, vars);
  double c = 0;
  int k = expr_classify(coeffs, &c);
  if (k < 0) return nullptr;
  if (k == kOperandNumber) {
    if (!var_check(vars)) return invalid("Second argument should be a list of Var");
    if (!var_check(vars2)) return invalid("Third argument should be a list of Var");
    if (!std::isfinite(c)) return invalid("Coefficient is Nan or Inf");
    q->terms.reserve_more(1);
    Py_INCREF(vars);
    Py_INCREF(vars2);
    q->terms.push_back({c, vars, vars2});
    return py::none();
  }
  if (!list_arg(coeffs)) return invalid("Unrecognized arguments");
  if (!list_arg(vars)) return invalid("Second argument should be a list of Var");
  if (!list_arg(vars2)) return invalid("Third argument should be a list of Var");
  py::Ref cs = py::Ref::steal(PySequence_Fast(coeffs, "First argument should be a list of floats"));
  py::Ref v1 = cs ? py::Ref::steal(PySequence_Fast(vars, "Second argument should be a list of Var")) : py::Ref();
  py::Ref v2 = v1 ? py::Ref::steal(PySequence_Fast(vars2, "Third argument should be a list of Var")) : py::Ref();
  if (!v2) return nullptr;
  Py_ssize_t n = PySequence_Fast_GET_SIZE(cs.get());
  if (n != PySequence_Fast_GET_SIZE(v1.get()) || n != PySequence_Fast_GET_SIZE(v2.get())) {
    return invalid("Quadratic expression arguments of different length");
  }
  PyObject** ci = PySequence_Fast_ITEMS(cs.get());
  PyObject** a = PySequence_Fast_ITEMS(v1.get());
  PyObject** b = PySequence_Fast_ITEMS(v2.get());
  std::vector<double> values(static_cast<size_t>(n));
  for (Py_ssize_t i = 0; i < n; ++i) {
    if (!var_check(a[i])) return invalid("Second argument should be a list of Var");
    if (!var_check(b[i])) return invalid("Third argument should be a list of Var");
    int kc = expr_classify(ci[i], &values[i]);
    if (kc < 0) return nullptr;
    if (kc != kOperandNumber) return invalid("First argument should be a list of floats");
    if (!std::isfinite(values[i])) return invalid("Coefficient is Nan or Inf");
  }
  q->terms.reserve_more(static_cast<size_t>(n));
  for (Py_ssize_t i = 0; i < n; ++i) {
    Py_INCREF(a[i]);
    Py_INCREF(b[i]);
    q->terms.push_back({values[i], a[i], b[i]});
  }
  return py::none();
}

PyObject* quad_size(PyObject* self, PyObject*) {
  quadexpr_flatten(self);
  return PyLong_FromSize_t(as_quadexpr(self)->terms.size());
}

PyObject* quad_getlinexpr(PyObject* self, PyObject*) {
  quadexpr_flatten(self);
  return py::new_ref(as_quadexpr(self)->lin);
}

// Quadratic term i after flattening, or nullptr with IndexError.
const QuadTerm* term_at(PyObject* self, PyObject* i) {
  quadexpr_flatten(self);
  QuadExprObject* q = as_quadexpr(self);
  Py_ssize_t k = expr_index(i, q->terms.size());
  return k < 0 ? nullptr : &q->terms[static_cast<size_t>(k)];
}

PyObject* quad_getcoeff(PyObject* self, PyObject* i) {
  const QuadTerm* t = term_at(self, i);
  return t ? PyFloat_FromDouble(t->coeff) : nullptr;
}

PyObject* quad_getvar1(PyObject* self, PyObject* i) {
  const QuadTerm* t = term_at(self, i);
  return t ? py::new_ref(t->var1) : nullptr;
}

PyObject* quad_getvar2(PyObject* self, PyObject* i) {
  const QuadTerm* t = term_at(self, i);
  return t ? py::new_ref(t->var2) : nullptr;
}

PyObject* quad_getvalue(PyObject* self, PyObject*) {
  quadexpr_flatten(self);
  QuadExprObject* q = as_quadexpr(self);
  py::Ref linval = py::Ref::steal(PyObject_CallMethod(q->lin, "getValue", nullptr));
  if (!linval) return nullptr;
  double value = PyFloat_AsDouble(linval.get());
  size_t n = q->terms.size();
  std::vector<double> x1(n), x2(n);
  if (n != 0) {
    if (!expr_var_values(&q->terms[0].var1, n, sizeof(QuadTerm), x1.data())) return nullptr;
    if (!expr_var_values(&q->terms[0].var2, n, sizeof(QuadTerm), x2.data())) return nullptr;
  }
  for (size_t i = 0; i < n; ++i) value += q->terms[i].coeff * x1[i] * x2[i];
  return PyFloat_FromDouble(value);
}

PyObject* quad_remove(PyObject* self, PyObject* which) {
  quadexpr_flatten(self);
  QuadExprObject* q = as_quadexpr(self);
  if (PyLong_Check(which)) {
    Py_ssize_t k = expr_index(which, q->terms.size());
    if (k < 0) return nullptr;
    QuadTerm t = q->terms[static_cast<size_t>(k)];
    q->terms.erase(static_cast<size_t>(k));
    Py_DECREF(t.var1);
    Py_DECREF(t.var2);
    return py::none();
  }
  if (!var_check(which)) {
    return PyErr_Format(PyExc_TypeError, "QuadExpr.remove() takes an int or a Var, not %.200s", Py_TYPE(which)->tp_name);
  }
  std::vector<QuadTerm> dropped;
  size_t w = 0;
  for (size_t r = 0; r < q->terms.size(); ++r) {
    const QuadTerm& t = q->terms[r];
    if (expr_same_var(t.var1, which) || expr_same_var(t.var2, which)) {
      dropped.push_back(t);
    } else {
      q->terms[w++] = t;
    }
  }
  q->terms.set_size(w);
  for (const QuadTerm& t : dropped) {
    Py_DECREF(t.var1);
    Py_DECREF(t.var2);
  }
  return PyObject_CallMethod(q->lin, "remove", "O", which);
}

PyObject* quad_clear(PyObject* self, PyObject*) {
  QuadExprObject* q = as_quadexpr(self);
  drop_quadratic(q);
  TermVec<LinTerm> none;
  linexpr_replace(q->lin, none, 0.0);
  return py::none();
}

PyObject* quad_copy(PyObject* self, PyObject*) { return quadexpr_from(self).release(); }

PyObject* quad_copy_memo(PyObject* self, PyObject*) { return quadexpr_from(self).release(); }

PyObject* quad_flatten_method(PyObject* self, PyObject*) {
  quadexpr_flatten(self);
  return py::none();
}

struct PairKey {
  VarKey a, b;
  bool operator==(const PairKey& o) const { return a == o.a && b == o.b; }
};
struct PairKeyHash {
  size_t operator()(const PairKey& k) const {
    auto h = [](const VarKey& v) { return std::hash<const void*>()(v.a) * 1000003u ^ std::hash<long>()(v.b); };
    return h(k.a) * 31u ^ h(k.b);
  }
};

// x*y and y*x are one monomial: the key orders the pair.
PairKey pair_key(PyObject* v1, PyObject* v2) {
  VarKey a = expr_var_key(v1), b = expr_var_key(v2);
  if (std::less<const void*>()(b.a, a.a) || (a.a == b.a && b.b < a.b)) std::swap(a, b);
  return {a, b};
}

PyObject* quad_normalize(PyObject* self, PyObject*) {
  quadexpr_flatten(self);
  QuadExprObject* q = as_quadexpr(self);
  py::Ref r = py::Ref::steal(PyObject_CallMethod(q->lin, "_normalize", nullptr));
  if (!r) return nullptr;
  std::unordered_map<PairKey, size_t, PairKeyHash> first;
  first.reserve(q->terms.size());
  std::vector<QuadTerm> dropped;
  size_t w = 0;
  for (size_t i = 0; i < q->terms.size(); ++i) {
    QuadTerm t = q->terms[i];
    auto [pos, inserted] = first.try_emplace(pair_key(t.var1, t.var2), w);
    if (inserted) {
      q->terms[w++] = t;
    } else {
      q->terms[pos->second].coeff += t.coeff;
      dropped.push_back(t);
    }
  }
  q->terms.set_size(w);
  for (const QuadTerm& t : dropped) {
    Py_DECREF(t.var1);
    Py_DECREF(t.var2);
  }
  return py::none();
}

PyObject* quad_mul_method(PyObject* self, PyObject* arg) {
  if (quadexpr_mul(self, arg) < 0) return nullptr;
  return py::new_ref(self);
}

py::Ref pretty(PyObject* self) {
  quadexpr_flatten(self);
  QuadExprObject* q = as_quadexpr(self);
  std::string out;
  if (!linexpr_pretty_text(q->lin, out)) return py::Ref();
  if (!q->terms.empty()) {
    out += " + [ ";
    bool first = true;
    for (const QuadTerm& t : q->terms) {
      if (!first) out += " + ";
      first = false;
      if (t.coeff != 1.0) {
        if (!expr_append_float(out, t.coeff)) return py::Ref();
        out += ' ';
      }
      if (!expr_append_varname(out, t.var1)) return py::Ref();
      if (expr_same_var(t.var1, t.var2)) {
        out += " ^ 2";
      } else {
        out += " * ";
        if (!expr_append_varname(out, t.var2)) return py::Ref();
      }
    }
    out += " ]";
  }
  return py::str(out);
}

PyObject* quad_prettystring(PyObject* self, PyObject*) { return pretty(self).release(); }

PyObject* quad_str(PyObject* self) { return pretty(self).release(); }

PyObject* quad_repr(PyObject* self) {
  py::Ref text = pretty(self);
  if (!text) return nullptr;
  return PyUnicode_FromFormat("<velmor.QuadExpr: %U>", text.get());
}

PyObject* quad_dbgprint(PyObject* self, PyObject*) {
  for (PyObject* p = self; p != nullptr; p = as_quadexpr(p)->cont) {
    QuadExprObject* q = as_quadexpr(p);
    std::string line = "<DBGQuadExpr len=" + std::to_string(q->terms.size()) +
                       " linlen=" + std::to_string(linexpr_total_size(q->lin)) + ">\n";
    PySys_WriteStdout("%s", line.c_str());
  }
  return py::none();
}

py::Ref var_list(const TermVec<QuadTerm>& terms, PyObject* QuadTerm::*member) {
  py::Ref list = py::Ref::steal(PyList_New(static_cast<Py_ssize_t>(terms.size())));
  if (!list) return list;
  for (size_t i = 0; i < terms.size(); ++i) {
    PyList_SET_ITEM(list.get(), static_cast<Py_ssize_t>(i), py::new_ref(terms[i].*member));
  }
  return list;
}

py::Ref coeff_list(const TermVec<QuadTerm>& terms) {
  py::Ref list = py::Ref::steal(PyList_New(static_cast<Py_ssize_t>(terms.size())));
  if (!list) return list;
  for (size_t i = 0; i < terms.size(); ++i) {
    PyObject* c = PyFloat_FromDouble(terms[i].coeff);
    if (c == nullptr) return py::Ref();
    PyList_SET_ITEM(list.get(), static_cast<Py_ssize_t>(i), c);
  }
  return list;
}

// The state is a flattened snapshot (see LinExpr's pickling): (__linexpr, _coeffs, _continue,
// _vars1, _vars2).
PyObject* quad_reduce(PyObject* self, PyObject*) {
  py::Ref snap = quadexpr_from(self);
  if (!snap) return nullptr;
  quadexpr_flatten(snap.get());
  QuadExprObject* q = as_quadexpr(snap.get());
  py::Ref coeffs = coeff_list(q->terms);
  py::Ref v1 = coeffs ? var_list(q->terms, &QuadTerm::var1) : py::Ref();
  py::Ref v2 = v1 ? var_list(q->terms, &QuadTerm::var2) : py::Ref();
  if (!v2) return nullptr;
  return Py_BuildValue("O(Ok(OOOOO))", g_unpickle, reinterpret_cast<PyObject*>(Py_TYPE(self)), kChecksums[0], q->lin,
                       coeffs.get(), Py_None, v1.get(), v2.get());
}

PyObject* get_linexpr(PyObject* self, void*) { return py::new_ref(as_quadexpr(self)->lin); }
PyObject* get_coeffs(PyObject* self, void*) { return coeff_list(as_quadexpr(self)->terms).release(); }
PyObject* get_vars1(PyObject* self, void*) { return var_list(as_quadexpr(self)->terms, &QuadTerm::var1).release(); }
PyObject* get_vars2(PyObject* self, void*) { return var_list(as_quadexpr(self)->terms, &QuadTerm::var2).release(); }
PyObject* get_continue(PyObject* self, void*) {
  PyObject* c = as_quadexpr(self)->cont;
  return py::new_ref(c ? c : Py_None);
}

// ---- number protocol -------------------------------------------------------------------------

bool usable(int kind) { return kind >= kOperandNumber; }

// `a + mult * b` with at least one QuadExpr operand; the tail rule as for LinExpr.
PyObject* quad_sum(PyObject* a, PyObject* b, double mult) {
  double v = 0;
  int ka = expr_classify(a, &v);
  if (ka < 0) return nullptr;
  int kb = expr_classify(b, &v);
  if (kb < 0) return nullptr;
  if (!usable(ka) || !usable(kb)) return not_implemented();
  py::Ref e = quadexpr_from(a);
  if (!e || quadexpr_add(e.get(), b, mult) < 0) return nullptr;
  return apply_tail_rule(std::move(e)).release();
}

PyObject* quad_nb_add(PyObject* a, PyObject* b) { return quad_sum(a, b, 1.0); }
PyObject* quad_nb_subtract(PyObject* a, PyObject* b) { return quad_sum(a, b, -1.0); }

PyObject* quad_inplace(PyObject* self, PyObject* other, double mult) {
  if (!quadexpr_check(self)) return not_implemented();
  int r = quadexpr_add(self, other, mult);
  if (r < 0) return nullptr;
  if (r == 0) return not_implemented();
  return py::new_ref(self);
}

PyObject* quad_nb_iadd(PyObject* self, PyObject* other) { return quad_inplace(self, other, 1.0); }
PyObject* quad_nb_isub(PyObject* self, PyObject* other) { return quad_inplace(self, other, -1.0); }

PyObject* quad_nb_multiply(PyObject* a, PyObject* b) {
  double va = 0, vb = 0;
  int ka = expr_classify(a, &va);
  if (ka < 0) return nullptr;
  int kb = expr_classify(b, &vb);
  if (kb < 0) return nullptr;
  if (!usable(ka) || !usable(kb)) return not_implemented();
  // The number, if any, is the multiplier.
  bool swap = ka == kOperandNumber;
  py::Ref q = quadexpr_from(swap ? b : a);
  if (!q || quadexpr_mul(q.get(), swap ? a : b) < 0) return nullptr;
  return q.release();
}

PyObject* quad_nb_imul(PyObject* self, PyObject* other) {
  if (!quadexpr_check(self)) return not_implemented();
  double v = 0;
  int k = expr_classify(other, &v);
  if (k < 0) return nullptr;
  if (!usable(k)) return not_implemented();
  if (quadexpr_mul(self, other) < 0) return nullptr;
  return py::new_ref(self);
}

PyObject* quad_nb_true_divide(PyObject* a, PyObject* b) {
  if (!quadexpr_check(a) || expr_is_array_like(b)) return not_implemented();
  double c = 0;
  if (!expr_divisor(b, &c)) return nullptr;
  py::Ref q = quadexpr_from(a);
  if (!q) return nullptr;
  quadexpr_flatten(q.get());
  scale_flat(as_quadexpr(q.get()), 1.0 / c);
  return q.release();
}

PyObject* quad_nb_negative(PyObject* self) {
  py::Ref q = quadexpr_from(self);
  if (!q) return nullptr;
  quadexpr_flatten(q.get());
  scale_flat(as_quadexpr(q.get()), -1.0);
  return q.release();
}

PyObject* quad_nb_power(PyObject* a, PyObject* b, PyObject* mod) {
  if (!quadexpr_check(a) || mod != Py_None) return not_implemented();
  double v = 0;
  int k = expr_classify(b, &v);
  if (k < 0) return nullptr;
  if (k != kOperandNumber || v != 2.0) return not_implemented();
  return quad_nb_multiply(a, a);
}

PyNumberMethods quad_as_number = {
    .nb_add = py::guarded<&quad_nb_add>,
    .nb_subtract = py::guarded<&quad_nb_subtract>,
    .nb_multiply = py::guarded<&quad_nb_multiply>,
    .nb_power = py::guarded<&quad_nb_power>,
    .nb_negative = py::guarded<&quad_nb_negative>,
    .nb_inplace_add = py::guarded<&quad_nb_iadd>,
    .nb_inplace_subtract = py::guarded<&quad_nb_isub>,
    .nb_inplace_multiply = py::guarded<&quad_nb_imul>,
    .nb_true_divide = py::guarded<&quad_nb_true_divide>,
};

int quad_init_impl(PyObject* self, PyObject* args, PyObject* kwds) {
  static const char* kwlist[] = {"expr", nullptr};
  PyObject* expr = Py_None;
  if (!PyArg_ParseTupleAndKeywords(args, kwds, "|O:QuadExpr", const_cast<char**>(kwlist), &expr)) return -1;
  double v = 0;
  int k = expr_classify(expr, &v);
  if (k < 0) return -1;
  if (expr != Py_None && k != kOperandVar && k != kOperandLinExpr && k != kOperandQuadExpr) {
    py::Ref text = py::Ref::steal(PyUnicode_FromFormat("No constructor available for QuadExpr(%S)", expr));
    if (text) invalid(PyUnicode_AsUTF8(text.get()));
    return -1;
  }
  py::Ref made = quadexpr_from(expr);
  if (!made) return -1;
  QuadExprObject* q = as_quadexpr(self);
  drop_quadratic(q);
  std::swap(q->lin, as_quadexpr(made.get())->lin);
  q->terms.take(as_quadexpr(made.get())->terms);
  std::swap(q->cont, as_quadexpr(made.get())->cont);
  return 0;
}

PyObject* unpickle_fn(PyObject*, PyObject* const* args, Py_ssize_t nargs) {
  if (nargs != 3) return py::raise(PyExc_TypeError, "_unpickle_QuadExpr() takes exactly 3 arguments");
  py::Ref result = expr_unpickle_start("_unpickle_QuadExpr", args[0], args[1], kChecksums,
                                       "__linexpr, _coeffs, _continue, _vars1, _vars2", &QuadExprType);
  if (!result) return nullptr;
  PyObject* state = args[2];
  if (state == Py_None) return result.release();
  if (!PyTuple_Check(state) || PyTuple_GET_SIZE(state) < 5) {
    return py::raise(PyExc_TypeError, "QuadExpr state must be a tuple (__linexpr, _coeffs, _continue, _vars1, _vars2)");
  }
  PyObject* lin = PyTuple_GET_ITEM(state, 0);
  PyObject* coeffs = PyTuple_GET_ITEM(state, 1);
  PyObject* cont = PyTuple_GET_ITEM(state, 2);
  PyObject* vars1 = PyTuple_GET_ITEM(state, 3);
  PyObject* vars2 = PyTuple_GET_ITEM(state, 4);
  if (!linexpr_check(lin)) return py::raise(PyExc_TypeError, "QuadExpr state: __linexpr must be a LinExpr");
  if (cont != Py_None && !quadexpr_check(cont)) {
    return py::raise(PyExc_TypeError, "QuadExpr state: _continue must be a QuadExpr or None");
  }
  if (!PyList_Check(coeffs) || !PyList_Check(vars1) || !PyList_Check(vars2) ||
      PyList_GET_SIZE(coeffs) != PyList_GET_SIZE(vars1) || PyList_GET_SIZE(coeffs) != PyList_GET_SIZE(vars2)) {
    return py::raise(PyExc_TypeError, "QuadExpr state: _coeffs, _vars1 and _vars2 must be lists of one length");
  }
  Py_ssize_t n = PyList_GET_SIZE(coeffs);
  std::vector<double> c(static_cast<size_t>(n));
  for (Py_ssize_t i = 0; i < n; ++i) {
    c[i] = PyFloat_AsDouble(PyList_GET_ITEM(coeffs, i));
    if (c[i] == -1.0 && PyErr_Occurred()) return nullptr;
    if (!var_check(PyList_GET_ITEM(vars1, i)) || !var_check(PyList_GET_ITEM(vars2, i))) {
      return py::raise(PyExc_TypeError, "QuadExpr state: _vars1 and _vars2 must hold Var objects");
    }
  }
  QuadExprObject* q = as_quadexpr(result.get());
  // The linear part is copied so that no other object can reach it.
  py::Ref linpart = linexpr_copy(lin);
  if (!linpart) return nullptr;
  set_lin(q, std::move(linpart));
  q->terms.reserve(static_cast<size_t>(n));
  for (Py_ssize_t i = 0; i < n; ++i) {
    PyObject* a = PyList_GET_ITEM(vars1, i);
    PyObject* b = PyList_GET_ITEM(vars2, i);
    Py_INCREF(a);
    Py_INCREF(b);
    q->terms.push_back({c[i], a, b});
  }
  if (cont != Py_None) py::assign(q->cont, cont);
  return result.release();
}

PyMethodDef quad_methods[] = {
    {"add", (PyCFunction)(void (*)(void))py::guarded<&quad_add_method>, METH_VARARGS | METH_KEYWORDS,
     "add($self, expr, mult=1.0)\n--\n\nAdds mult times expr in place: a Var, number, LinExpr or QuadExpr."},
    {"addConstant", py::guarded<&quad_addconstant>, METH_O,
     "addConstant($self, constant)\n--\n\nAdds a number to the constant of the linear part."},
    {"addTerms", (PyCFunction)(void (*)(void))py::guarded<&quad_addterms>, METH_VARARGS | METH_KEYWORDS,
     "addTerms($self, coeffs, vars, vars2=None)\n--\n\nAdds linear terms (without vars2) or quadratic terms\n"
     "coeffs[i] * vars[i] * vars2[i]:\n\n    q.addTerms([1.0, 2.0], [x, y], [x, z])   # x^2 + 2 y z\n"},
    {"size", py::guarded<&quad_size>, METH_NOARGS, "size($self)\n--\n\nThe number of quadratic terms."},
    {"getLinExpr", py::guarded<&quad_getlinexpr>, METH_NOARGS,
     "getLinExpr($self)\n--\n\nThe linear part (the expression's own LinExpr, not a copy)."},
    {"getCoeff", py::guarded<&quad_getcoeff>, METH_O, "getCoeff($self, i)\n--\n\nThe coefficient of quadratic term i."},
    {"getVar1", py::guarded<&quad_getvar1>, METH_O, "getVar1($self, i)\n--\n\nThe first variable of quadratic term i."},
    {"getVar2", py::guarded<&quad_getvar2>, METH_O, "getVar2($self, i)\n--\n\nThe second variable of quadratic term i."},
    {"getValue", py::guarded<&quad_getvalue>, METH_NOARGS,
     "getValue($self)\n--\n\nThe value of the expression in the current solution (the variables' X)."},
    {"remove", py::guarded<&quad_remove>, METH_O,
     "remove($self, which)\n--\n\nRemoves quadratic term which (an int), or every term of a Var, linear ones\nincluded."},
    {"clear", py::guarded<&quad_clear>, METH_NOARGS, "clear($self)\n--\n\nMakes the expression empty."},
    {"copy", py::guarded<&quad_copy>, METH_NOARGS, "copy($self)\n--\n\nA copy of the expression."},
    {"_mul", py::guarded<&quad_mul_method>, METH_O, "_mul($self, other)\n--\n\nMultiplies in place; returns the expression."},
    {"_flatten", py::guarded<&quad_flatten_method>, METH_NOARGS,
     "_flatten($self)\n--\n\nMoves the terms of the shared tail into the expression itself."},
    {"_normalize", py::guarded<&quad_normalize>, METH_NOARGS,
     "_normalize($self)\n--\n\nMerges the terms of each variable and of each pair of variables."},
    {"_asprettystring", py::guarded<&quad_prettystring>, METH_NOARGS, "_asprettystring($self)\n--\n\nThe readable text."},
    {"_dbgprint", py::guarded<&quad_dbgprint>, METH_NOARGS, "_dbgprint($self)\n--\n\nPrints the chain of tails."},
    {"__reduce__", py::guarded<&quad_reduce>, METH_NOARGS, "Pickle support."},
    {"__copy__", py::guarded<&quad_copy>, METH_NOARGS, "copy.copy(): same as copy()."},
    {"__deepcopy__", py::guarded<&quad_copy_memo>, METH_O,
     "copy.deepcopy(): same as copy(); variables are handles and are never duplicated."},
    {nullptr, nullptr, 0, nullptr}};

PyGetSetDef quad_getset[] = {
    {"_QuadExpr__linexpr", get_linexpr, nullptr, "The linear part.", nullptr},
    {"_coeffs", get_coeffs, nullptr, "The coefficients of the own quadratic terms (a new list).", nullptr},
    {"_vars1", get_vars1, nullptr, "The first variables of the own quadratic terms (a new list).", nullptr},
    {"_vars2", get_vars2, nullptr, "The second variables of the own quadratic terms (a new list).", nullptr},
    {"_continue", get_continue, nullptr, "The frozen shared tail (a QuadExpr) or None.", nullptr},
    {nullptr, nullptr, nullptr, nullptr, nullptr}};

PyMethodDef module_functions[] = {
    {"_unpickle_QuadExpr", (PyCFunction)(void (*)(void))py::guarded<&unpickle_fn>, METH_FASTCALL,
     "Rebuilds a pickled QuadExpr."},
    {nullptr, nullptr, 0, nullptr}};

const char quad_doc[] =
    "QuadExpr(expr=None)\n--\n\n"
    "A quadratic expression: a linear part (a LinExpr, constant included) plus terms\n"
    "coefficient * var1 * var2. Usually built with operators:\n\n"
    "    q = x * x + 2 * x * y + 3      # 3.0 + [ x ^ 2 + 2.0 x * y ]\n\n"
    "QuadExpr(x), QuadExpr(linexpr) and QuadExpr(quadexpr) start from a variable, a linear\n"
    "expression or a copy. Comparisons (<=, >=, ==) build a TempConstr for Model.addConstr.";

}  // namespace

// ---- shared entry points ---------------------------------------------------------------------

py::Ref quadexpr_from(PyObject* o) {
  QuadExprObject* q = quad_alloc();
  if (q == nullptr) return py::Ref();
  py::Ref r = own(q);
  if (o == nullptr || o == Py_None) return r;
  double v = 0;
  switch (expr_classify(o, &v)) {
    case kOperandError:
      return py::Ref();
    case kOperandNumber:
      if (std::isnan(v)) return py::Ref::steal(invalid("Constant is Nan"));
      as_linexpr(q->lin)->constant = v;
      return r;
    case kOperandVar:
      if (linexpr_add(q->lin, o, 1.0) < 0) return py::Ref();
      return r;
    case kOperandLinExpr: {
      py::Ref lin = linexpr_copy(o);
      if (!lin) return lin;
      set_lin(q, std::move(lin));
      return r;
    }
    case kOperandQuadExpr: {
      QuadExprObject* src = as_quadexpr(o);
      py::Ref lin = linexpr_copy(src->lin);
      if (!lin) return lin;
      set_lin(q, std::move(lin));
      copy_quad_terms(q->terms, src->terms.data(), src->terms.size(), 1.0);
      py::assign(q->cont, src->cont);
      return r;
    }
    default: {
      py::Ref text = py::Ref::steal(PyUnicode_FromFormat("No constructor available for QuadExpr(%S)", o));
      if (text) invalid(PyUnicode_AsUTF8(text.get()));
      return py::Ref();
    }
  }
}

int quadexpr_add(PyObject* self, PyObject* other, double mult) {
  QuadExprObject* q = as_quadexpr(self);
  double v = 0;
  int k = expr_classify(other, &v);
  switch (k) {
    case kOperandError:
      return -1;
    case kOperandVar:
    case kOperandLinExpr:
    case kOperandNumber:
      return linexpr_add(q->lin, other, mult);
    case kOperandQuadExpr:
      break;
    default:
      return 0;
  }
  // Adding an expression to itself reads a snapshot.
  py::Ref snapshot;
  if (other == self) {
    snapshot = quadexpr_from(other);
    if (!snapshot) return -1;
    other = snapshot.get();
  }
  q->terms.reserve_more(total_quad_size(other));
  bool ok = true;
  for_each_node(other, [&](QuadExprObject* node) {
    if (ok && linexpr_add(q->lin, node->lin, mult) < 0) ok = false;
    copy_quad_terms(q->terms, node->terms.data(), node->terms.size(), mult);
  });
  return ok ? 1 : -1;
}

int quadexpr_mul(PyObject* self, PyObject* other) {
  double v = 0;
  int k = expr_classify(other, &v);
  if (k < 0) return -1;
  QuadExprObject* q = as_quadexpr(self);
  if (k == kOperandNumber) {
    if (std::isnan(v)) {
      invalid("Constant is Nan");
      return -1;
    }
    quadexpr_flatten(self);
    scale_flat(q, v);
    return 0;
  }
  if (k == kOperandOther) {
    invalid("Invalid argument to QuadExpr multiplication");
    return -1;
  }
  // A QuadExpr operand is read from a flattened snapshot (it may be this very expression).
  py::Ref snapshot;
  if (k == kOperandQuadExpr) {
    snapshot = quadexpr_from(other);
    if (!snapshot) return -1;
    quadexpr_flatten(snapshot.get());
    other = snapshot.get();
  }
  quadexpr_flatten(self);
  int ds = degree(self, kOperandQuadExpr);
  int dother = degree(other, k);
  if (ds + dother > 2) {
    invalid("Invalid argument to QuadExpr multiplication");
    return -1;
  }
  if (dother == 0) {
    double c = k == kOperandLinExpr ? linexpr_total_constant(other) : as_linexpr(as_quadexpr(other)->lin)->constant;
    scale_flat(q, c);
    return 0;
  }
  LinExprObject* lin = as_linexpr(q->lin);
  if (ds == 0) {
    double c = lin->constant;
    py::Ref copy = snapshot ? std::move(snapshot) : quadexpr_from(other);
    if (!copy) return -1;
    quadexpr_flatten(copy.get());
    scale_flat(as_quadexpr(copy.get()), c);
    take_contents(q, as_quadexpr(copy.get()));
    return 0;
  }
  // Linear times linear: every pair of terms, the first operand's terms in the outer loop;
  // each constant times the other side's terms; the product of the constants.
  std::vector<LinTerm> right;
  double c2 = 0.0;
  if (k == kOperandVar) {
    right.push_back({1.0, other});
  } else {
    PyObject* rl = k == kOperandLinExpr ? other : as_quadexpr(other)->lin;
    linexpr_for_each_node(rl, [&](const LinExprObject* node) {
      right.insert(right.end(), node->terms.begin(), node->terms.end());
      c2 += node->constant;
    });
  }
  double c1 = lin->constant;
  const size_t n1 = lin->terms.size(), n2 = right.size();
  TermVec<QuadTerm> products;
  products.reserve(n1 * n2);
  TermVec<LinTerm> linear;
  linear.reserve((c2 != 0.0 ? n1 : 0) + (c1 != 0.0 ? n2 : 0));
  for (size_t i = 0; i < n1; ++i) {
    const LinTerm& a = lin->terms[i];
    for (size_t j = 0; j < n2; ++j) {
      Py_INCREF(a.var);
      Py_INCREF(right[j].var);
      products.push_back({a.coeff * right[j].coeff, a.var, right[j].var});
    }
  }
  if (c2 != 0.0) {
    for (size_t i = 0; i < n1; ++i) {
      Py_INCREF(lin->terms[i].var);
      linear.push_back({c2 * lin->terms[i].coeff, lin->terms[i].var});
    }
  }
  if (c1 != 0.0) {
    for (size_t j = 0; j < n2; ++j) {
      Py_INCREF(right[j].var);
      linear.push_back({c1 * right[j].coeff, right[j].var});
    }
  }
  linexpr_replace(q->lin, linear, c1 * c2);
  drop_quadratic(q);
  q->terms.take(products);
  return 0;
}

void quadexpr_flatten(PyObject* self) {
  QuadExprObject* q = as_quadexpr(self);
  if (q->cont == nullptr) {
    linexpr_flatten(q->lin);
    return;
  }
  TermVec<QuadTerm> quad;
  quad.reserve(total_quad_size(self));
  TermVec<LinTerm> lin;
  lin.reserve(total_lin_size(self));
  double constant = 0.0;
  for_each_node(self, [&](QuadExprObject* node) {
    constant += linexpr_append_all(lin, node->lin, 1.0);
    if (node == q) {
      quad.append(node->terms.data(), node->terms.size());  // the own references move
      node->terms.set_size(0);
    } else {
      copy_quad_terms(quad, node->terms.data(), node->terms.size(), 1.0);
    }
  });
  linexpr_replace(q->lin, lin, constant);
  drop_quadratic(q);
  q->terms.take(quad);
}

int register_quadexpr(PyObject* m) {
  QuadExprType.tp_basicsize = sizeof(QuadExprObject);
  QuadExprType.tp_flags = Py_TPFLAGS_DEFAULT | Py_TPFLAGS_BASETYPE | Py_TPFLAGS_HAVE_GC;
  QuadExprType.tp_doc = quad_doc;
  QuadExprType.tp_new = py::guarded<&quad_tp_new>;
  QuadExprType.tp_init = py::guarded<&quad_init_impl>;
  QuadExprType.tp_dealloc = quad_dealloc;
  QuadExprType.tp_traverse = quad_traverse;
  QuadExprType.tp_clear = quad_tp_clear;
  QuadExprType.tp_free = PyObject_GC_Del;
  QuadExprType.tp_repr = py::guarded<&quad_repr>;
  QuadExprType.tp_str = py::guarded<&quad_str>;
  QuadExprType.tp_hash = PyObject_HashNotImplemented;
  QuadExprType.tp_richcompare = py::guarded<&expr_richcompare>;
  QuadExprType.tp_as_number = &quad_as_number;
  QuadExprType.tp_methods = quad_methods;
  QuadExprType.tp_getset = quad_getset;
  if (PyType_Ready(&QuadExprType) < 0) return -1;
  Py_INCREF(&QuadExprType);
  if (PyModule_AddObject(m, "QuadExpr", reinterpret_cast<PyObject*>(&QuadExprType)) < 0) {
    Py_DECREF(&QuadExprType);
    return -1;
  }
  if (PyModule_AddFunctions(m, module_functions) < 0) return -1;
  g_unpickle = PyObject_GetAttrString(m, "_unpickle_QuadExpr");
  return g_unpickle == nullptr ? -1 : 0;
}
