// LinExpr's number protocol: `a + b`, `a - b`, `a * b`, `a / c`, `-a`, `a ** 2` and the
// in-place forms, and the building blocks of sums and products of linear operands.
#include <cmath>
#include <vector>

#include "core/py_error.h"
#include "expr/linexpr.h"
#include "expr/linexpr_util.h"
#include "expr/quadexpr.h"

namespace {

// self += mult * other (linexpr_add), declared inline so that the compiler puts it into the
// operators `e += x` and `a + b` instead of calling it.
inline int add_in_place(PyObject* self, PyObject* other, double mult) {
  LinExprObject* e = as_linexpr(self);
  double v = 0;
  switch (expr_classify(other, &v)) {
    case kOperandError:
      return -1;
    case kOperandVar:
      if (!is_finite(mult)) {
        invalid("Coefficient is Nan or Inf");
        return -1;
      }
      Py_INCREF(other);
      try {
        e->terms.push_back({mult, other});
      } catch (...) {
        Py_DECREF(other);
        throw;
      }
      return 1;
    case kOperandLinExpr:
      e->constant += linexpr_append_all(e->terms, other, mult);
      return 1;
    case kOperandNumber: {
      double c = mult * v;
      if (std::isnan(c)) {
        invalid("Constant is Nan");
        return -1;
      }
      e->constant += c;
      return 1;
    }
    default:
      return 0;
  }
}

// A new LinExpr of one operand of a known kind (LinExpr(o)), with room for `extra` more terms.
py::Ref lin_of(PyObject* o, int kind, double v, size_t extra) {
  if (kind == kOperandNumber && std::isnan(v)) return py::Ref::steal(invalid("Constant is Nan"));
  LinExprObject* e = lin_alloc();
  if (e == nullptr) return py::Ref();
  py::Ref r = own(e);
  switch (kind) {
    case kOperandLinExpr:
      copy_into(e, as_linexpr(o), extra);
      break;
    case kOperandVar:
      e->terms.reserve(1 + extra);
      Py_INCREF(o);
      e->terms.push_back({1.0, o});
      break;
    default:
      e->constant = v;
      e->terms.reserve(extra);
      break;
  }
  return r;
}

// Freezes a sum with many own terms into the tail of a new empty expression.
py::Ref apply_tail_rule(py::Ref e) {
  if (as_linexpr(e.get())->terms.size() < kTailThreshold) return e;
  LinExprObject* head = lin_alloc();
  if (head == nullptr) return py::Ref();
  head->cont = e.release();
  return own(head);
}

// `a + mult * b` for linear operands: LinExpr(a), b added, then the tail rule.
py::Ref lin_sum(PyObject* a, PyObject* b, double mult) {
  double va = 0, vb = 0;
  int ka = expr_classify(a, &va);
  if (ka < 0) return py::Ref();
  int kb = expr_classify(b, &vb);
  if (kb < 0) return py::Ref();
  if (ka == kOperandOther || ka == kOperandQuadExpr || kb == kOperandOther ||
      kb == kOperandQuadExpr) {
    return py::Ref::steal(not_implemented());
  }
  size_t extra = kb == kOperandVar ? 1 : kb == kOperandLinExpr ? linexpr_total_size(b) : 0;
  py::Ref e = lin_of(a, ka, va, extra);
  if (!e) return e;
  if (add_in_place(e.get(), b, mult) < 0) return py::Ref();
  return apply_tail_rule(std::move(e));
}

// ---- number protocol -------------------------------------------------------------------------

PyObject* lin_nb_add(PyObject* a, PyObject* b) { return lin_sum(a, b, 1.0).release(); }

PyObject* lin_nb_subtract(PyObject* a, PyObject* b) { return lin_sum(a, b, -1.0).release(); }

PyObject* lin_inplace(PyObject* self, PyObject* other, double mult) {
  if (!linexpr_check(self)) return not_implemented();
  int r = add_in_place(self, other, mult);
  if (r < 0) return nullptr;
  if (r == 0) return not_implemented();
  return py::new_ref(self);
}

PyObject* lin_nb_iadd(PyObject* self, PyObject* other) { return lin_inplace(self, other, 1.0); }

PyObject* lin_nb_isub(PyObject* self, PyObject* other) { return lin_inplace(self, other, -1.0); }

PyObject* lin_nb_multiply(PyObject* a, PyObject* b) { return linexpr_multiply(a, b).release(); }

PyObject* lin_nb_imul(PyObject* self, PyObject* other) {
  if (!linexpr_check(self)) return not_implemented();
  double v = 0;
  int k = expr_classify(other, &v);
  if (k < 0) return nullptr;
  if (k == kOperandNumber) {
    if (linexpr_scale(self, v) < 0) return nullptr;
    return py::new_ref(self);
  }
  return linexpr_multiply(self, other).release();
}

PyObject* lin_nb_true_divide(PyObject* a, PyObject* b) {
  if (!linexpr_check(a) || expr_is_array_like(b)) return not_implemented();
  double c = 0;
  if (!expr_divisor(b, &c)) return nullptr;
  py::Ref e = linexpr_copy(a);
  if (!e || linexpr_scale(e.get(), 1.0 / c) < 0) return nullptr;
  return e.release();
}

PyObject* lin_nb_negative(PyObject* self) {
  py::Ref e = linexpr_copy(self);
  if (!e || linexpr_scale(e.get(), -1.0) < 0) return nullptr;
  return e.release();
}

PyObject* lin_nb_power(PyObject* a, PyObject* b, PyObject* mod) {
  if (!linexpr_check(a) || mod != Py_None) return not_implemented();
  double v = 0;
  int k = expr_classify(b, &v);
  if (k < 0) return nullptr;
  if (k != kOperandNumber || v != 2.0) return not_implemented();
  return linexpr_multiply(a, a).release();
}

}  // namespace

PyNumberMethods lin_as_number = {
    .nb_add = py::guarded<&lin_nb_add>,
    .nb_subtract = py::guarded<&lin_nb_subtract>,
    .nb_multiply = py::guarded<&lin_nb_multiply>,
    .nb_power = py::guarded<&lin_nb_power>,
    .nb_negative = py::guarded<&lin_nb_negative>,
    .nb_inplace_add = py::guarded<&lin_nb_iadd>,
    .nb_inplace_subtract = py::guarded<&lin_nb_isub>,
    .nb_inplace_multiply = py::guarded<&lin_nb_imul>,
    .nb_true_divide = py::guarded<&lin_nb_true_divide>,
};

// ---- sums and products (linexpr.h) -----------------------------------------------------------

double linexpr_append_all(TermVec<LinTerm>& dst, PyObject* src, double mult) {
  const LinExprObject* e = as_linexpr(src);
  if (e->cont == nullptr) {
    // The common case (one node, such as the `c * x` items of a sum) without the node list.
    const size_t n = e->terms.size();
    dst.reserve_more(n);
    const LinTerm* t = e->terms.data();  // stable: room was made above
    for (size_t i = 0; i < n; ++i) {
      Py_INCREF(t[i].var);
      dst.push_back({mult == 1.0 ? t[i].coeff : t[i].coeff * mult, t[i].var});
    }
    return mult == 1.0 ? e->constant : e->constant * mult;
  }
  // Sizes are taken first: `src` may be the very expression that `dst` belongs to.
  struct Node {
    const LinExprObject* e;
    size_t n;
  };
  std::vector<Node> nodes;
  size_t total = 0;
  linexpr_for_each_node(src, [&](const LinExprObject* node) {
    nodes.push_back({node, node->terms.size()});
    total += node->terms.size();
  });
  dst.reserve_more(total);
  double constant = 0.0;
  for (const Node& node : nodes) {
    constant += node.e->constant;
    const LinTerm* t = node.e->terms.data();
    for (size_t i = 0; i < node.n; ++i) {
      Py_INCREF(t[i].var);
      dst.push_back({mult == 1.0 ? t[i].coeff : t[i].coeff * mult, t[i].var});
    }
  }
  return mult == 1.0 ? constant : constant * mult;
}

int linexpr_add(PyObject* self, PyObject* other, double mult) {
  return add_in_place(self, other, mult);
}

py::Ref linexpr_multiply(PyObject* a, PyObject* b) {
  double va = 0, vb = 0;
  int ka = expr_classify(a, &va);
  if (ka < 0) return py::Ref();
  int kb = expr_classify(b, &vb);
  if (kb < 0) return py::Ref();
  auto linear = [](int k) { return k == kOperandNumber || k == kOperandVar || k == kOperandLinExpr; };
  if (!linear(ka) || !linear(kb)) return py::Ref::steal(not_implemented());
  auto scaled = [](PyObject* o, int k, double v, double m) {
    py::Ref e = lin_of(o, k, v, 0);
    if (e && linexpr_scale(e.get(), m) < 0) return py::Ref();
    return e;
  };
  if (ka == kOperandNumber) return scaled(b, kb, vb, va);
  if (kb == kOperandNumber) return scaled(a, ka, va, vb);
  if (ka == kOperandLinExpr && linexpr_total_size(a) == 0) return scaled(b, kb, vb, linexpr_total_constant(a));
  if (kb == kOperandLinExpr && linexpr_total_size(b) == 0) return scaled(a, ka, va, linexpr_total_constant(b));
  py::Ref q = quadexpr_from(a);
  if (!q || quadexpr_mul(q.get(), b) < 0) return py::Ref();
  return q;
}

