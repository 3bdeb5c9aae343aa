// LinExpr: a constant plus (coefficient, variable) terms, and what the other expression
// families share with it: the term storage, the operand classification every operator uses,
// and quicksum.
//
// Terms live in a C++ array of 16-byte (double, Var*) pairs; the Python-visible `_coeffs` and
// `_vars` are lists made on demand. An expression may carry a frozen tail (`_continue`): older
// terms and constant shared with other expressions and never modified again. `a + b` freezes
// its result into a tail once it holds 200 own terms, so a loop `s = s + x` copies at most 199
// terms per step. Readers that need the terms by position flatten first.
#pragma once

#include <cstddef>
#include <cstring>
#include <new>
#include <string>
#include <utility>

#include "core/py_ref.h"

// One linear term; `var` is a strong reference to a Var.
struct LinTerm {
  double coeff;
  PyObject* var;
};

// One quadratic term c * var1 * var2; both references strong.
struct QuadTerm {
  double coeff;
  PyObject* var1;
  PyObject* var2;
};

// A growable array of trivially copyable terms with room for one term inside the object, so
// that the very common one-term expression `c * x` needs no second allocation. It grows by
// half its size, which keeps a long linear expression within 24 bytes per term. Reference
// counts of the terms are the owner's business. Throws std::bad_alloc.
template <class T>
class TermVec {
 public:
  TermVec() noexcept : data_(&inline_), size_(0), cap_(1) {}
  ~TermVec() { free_heap(); }
  TermVec(const TermVec&) = delete;
  TermVec& operator=(const TermVec&) = delete;

  size_t size() const { return size_; }
  bool empty() const { return size_ == 0; }
  size_t capacity() const { return cap_; }
  T* data() { return data_; }
  const T* data() const { return data_; }
  T* begin() { return data_; }
  T* end() { return data_ + size_; }
  const T* begin() const { return data_; }
  const T* end() const { return data_ + size_; }
  T& operator[](size_t i) { return data_[i]; }
  const T& operator[](size_t i) const { return data_[i]; }

  void reserve(size_t n) {
    if (n > cap_) reallocate(n);
  }
  // Room for `extra` more terms, growing geometrically.
  void reserve_more(size_t extra) {
    size_t need = size_ + extra;
    if (need <= cap_) return;
    size_t grown = cap_ + cap_ / 2 + 2;
    reallocate(need > grown ? need : grown);
  }
  void push_back(const T& t) {
    if (size_ == cap_) reserve_more(1);
    data_[size_++] = t;
  }
  // Callers reserve first when they must not fail half way.
  void append(const T* src, size_t n) {
    reserve_more(n);
    std::memmove(data_ + size_, src, n * sizeof(T));
    size_ += n;
  }
  void erase(size_t i) {
    std::memmove(data_ + i, data_ + i + 1, (size_ - i - 1) * sizeof(T));
    --size_;
  }
  void set_size(size_t n) { size_ = n; }
  // Gives back storage beyond one eighth of slack (after quicksum and flattening).
  void shrink() {
    if (data_ == &inline_ || cap_ - size_ <= size_ / 8) return;
    if (size_ <= 1) {
      T keep = size_ ? data_[0] : T{};
      free_heap();
      data_ = &inline_;
      cap_ = 1;
      inline_ = keep;
      return;
    }
    void* p = PyMem_Realloc(data_, size_ * sizeof(T));
    if (p != nullptr) {
      data_ = static_cast<T*>(p);
      cap_ = size_;
    }
  }
  // Takes over the contents of `o` (whose references move along), leaving `o` empty. This
  // vector must be empty.
  void take(TermVec& o) {
    free_heap();
    if (o.data_ == &o.inline_) {
      data_ = &inline_;
      cap_ = 1;
      inline_ = o.inline_;
    } else {
      data_ = o.data_;
      cap_ = o.cap_;
    }
    size_ = o.size_;
    o.data_ = &o.inline_;
    o.cap_ = 1;
    o.size_ = 0;
  }
  // Drops the storage (the references must have been released).
  void reset() {
    free_heap();
    data_ = &inline_;
    cap_ = 1;
    size_ = 0;
  }

 private:
  void reallocate(size_t n) {
    if (n > PY_SSIZE_T_MAX / sizeof(T)) throw std::bad_alloc();
    T* p;
    if (data_ == &inline_) {
      p = static_cast<T*>(PyMem_Malloc(n * sizeof(T)));
      if (p != nullptr && size_) p[0] = inline_;
    } else {
      p = static_cast<T*>(PyMem_Realloc(data_, n * sizeof(T)));
    }
    if (p == nullptr) throw std::bad_alloc();
    data_ = p;
    cap_ = n;
  }
  void free_heap() {
    if (data_ != &inline_ && data_ != nullptr) PyMem_Free(data_);
  }

  T* data_;
  size_t size_;
  size_t cap_;
  T inline_;
};

struct LinExprObject {
  PyObject_HEAD
  double constant;
  PyObject* cont;  // the frozen tail (a LinExpr) or nullptr
  TermVec<LinTerm> terms;
};

extern PyTypeObject LinExprType;

inline LinExprObject* as_linexpr(PyObject* o) { return reinterpret_cast<LinExprObject*>(o); }
inline bool linexpr_check(PyObject* o) {
  return Py_IS_TYPE(o, &LinExprType) || PyType_IsSubtype(Py_TYPE(o), &LinExprType);
}

// A sum freezes into a shared tail once it holds this many own terms.
inline constexpr size_t kTailThreshold = 200;

// ---- operand classification -----------------------------------------------------------------

// What an operand of an expression operator is. kNumber also fills the value.
enum OperandKind { kOperandError = -1, kOperandOther = 0, kOperandNumber, kOperandVar,
                   kOperandLinExpr, kOperandQuadExpr };

// Numbers are the module's scalars: int, float, bool, NumPy scalars and other types that
// convert with float(); arrays and matrix types are not (see expr_is_array_like).
// kOperandError only when converting a number-like object raised something other than the
// usual TypeError/ValueError.
int expr_classify(PyObject* o, double* value);

// The hand-off hook for the matrix layer: an object whose type defines `__array_ufunc__`
// (NumPy arrays, or a matrix class that sets it, e.g. to None), or `__array_priority__`
// without converting to float, is never taken as a scalar. Operators then return
// NotImplemented so that its reflected operator runs.
bool expr_is_array_like(PyObject* o);

// The divisor of `e / c`: float(c); false with VelmorError "Divisor must be a constant" when
// that fails, or ZeroDivisionError "float division" for zero.
bool expr_divisor(PyObject* o, double* out);

// The module's scalar test (`__isscalar`): a number in the sense of expr_classify.
bool expr_is_scalar(PyObject* o);

// An object of the matrix layer (MVar, MLinExpr, MQuadExpr), recognised by class name.
bool expr_is_matrix(PyObject* o);
bool expr_is_mvar(PyObject* o);

// A tupledict (a dict subclass of that name; the class itself is written elsewhere).
bool expr_is_tupledict(PyObject* o);

// ---- building and reading (C++ side of the Model, tupledict and the other expressions) -----

// A new empty LinExpr, or the copies the constructor makes.
py::Ref linexpr_new(double constant = 0.0);
py::Ref linexpr_from_term(double coeff, PyObject* var);
py::Ref linexpr_copy(PyObject* e);  // LinExpr(e): own terms copied, tail shared

// Makes `e` self-contained (no tail). Throws std::bad_alloc.
void linexpr_flatten(PyObject* e);

// Number of terms and the constant, over the whole chain, without flattening.
size_t linexpr_total_size(PyObject* e);
double linexpr_total_constant(PyObject* e);

// Calls f(const LinExprObject*) for each node of e's chain, oldest tail first, e last.
template <class F>
void linexpr_for_each_node(PyObject* e, F&& f) {
  PyObject* small[16];
  PyObject** nodes = small;
  size_t n = 0, cap = 16;
  for (PyObject* p = e; p != nullptr; p = as_linexpr(p)->cont) {
    if (n == cap) {
      PyObject** bigger = static_cast<PyObject**>(PyMem_Malloc(2 * cap * sizeof(PyObject*)));
      if (bigger == nullptr) {
        if (nodes != small) PyMem_Free(nodes);
        throw std::bad_alloc();
      }
      std::memcpy(bigger, nodes, n * sizeof(PyObject*));
      if (nodes != small) PyMem_Free(nodes);
      nodes = bigger;
      cap *= 2;
    }
    nodes[n++] = p;
  }
  for (size_t i = n; i-- > 0;) f(static_cast<const LinExprObject*>(as_linexpr(nodes[i])));
  if (nodes != small) PyMem_Free(nodes);
}

// Appends mult times every term of `src`'s chain (in order) to `dst`, adding references, and
// returns mult times src's total constant. Throws std::bad_alloc (leaving dst unchanged).
double linexpr_append_all(TermVec<LinTerm>& dst, PyObject* src, double mult);

// self += mult * other in place (LinExpr.add): 1 done, 0 when `other` is not a Var, LinExpr
// or number (nothing changed, no exception), -1 with an exception set.
int linexpr_add(PyObject* self, PyObject* other, double mult);

// Replaces e's terms, constant and tail by `terms` (whose references move in, leaving it
// empty) and `constant`.
void linexpr_replace(PyObject* e, TermVec<LinTerm>& terms, double constant);

// The readable text of a LinExpr (flattening it): "-3.0 + x + 2.0 y".
bool linexpr_pretty_text(PyObject* e, std::string& out);

// Scales in place (LinExpr._mul); -1 with VelmorError for a NaN or infinite multiplier.
int linexpr_scale(PyObject* self, double mult);

// `a * b` for linear operands (Var, LinExpr, number): a LinExpr, a QuadExpr, or
// NotImplemented.
py::Ref linexpr_multiply(PyObject* a, PyObject* b);

// Hash by identity, as object's (for types that define comparisons but stay usable as keys).
inline Py_hash_t expr_identity_hash(PyObject* self) {
  size_t y = reinterpret_cast<size_t>(self);
  y = (y >> 4) | (y << (8 * sizeof(void*) - 4));
  Py_hash_t x = static_cast<Py_hash_t>(y);
  return x == -1 ? -2 : x;
}

// The shared comparison of LinExpr and QuadExpr: <=, >=, == build a TempConstr.
PyObject* expr_richcompare(PyObject* self, PyObject* other, int op);

// Appends str(v) for a float, as Python prints it.
bool expr_append_float(std::string& out, double v);
// Appends the display name of a Var (first member of Var._safename()).
bool expr_append_varname(std::string& out, PyObject* var);

// Current solution values (the X attribute) of n variables.
bool expr_var_values(PyObject* const* vars, size_t n, size_t stride, double* out);

// The 0-based position of a Python list-style index, or -1 with IndexError.
Py_ssize_t expr_index(PyObject* i, size_t size);

// Identity of a variable for _normalize: its model and position, or the handle itself while
// it has no position.
struct VarKey {
  const void* a;
  long b;
  bool operator==(const VarKey& o) const { return a == o.a && b == o.b; }
};
VarKey expr_var_key(PyObject* var);
bool expr_same_var(PyObject* a, PyObject* b);  // Var.sameAs

// quicksum(iterable): the sum as a new LinExpr (QuadExpr once a quadratic item is met), for
// tupledict.sum/prod and the module function.
py::Ref quicksum_impl(PyObject* iterable);

// The pickle exception class (pickle.PickleError), borrowed after registration.
PyObject* expr_pickle_error();

// The common start of unpickling an expression: checks `checksum` against the three accepted
// ones (PickleError "Incompatible checksums (0x.. vs (a, b, c) = (fields))" otherwise) and that
// `type` is `base` or a subclass, and returns a new empty instance of `type`. `fn` names the
// unpickling function in messages.
py::Ref expr_unpickle_start(const char* fn, PyObject* type, PyObject* checksum,
                            const unsigned long (&accepted)[3], const char* fields, PyTypeObject* base);

int register_linexpr(PyObject* m);
