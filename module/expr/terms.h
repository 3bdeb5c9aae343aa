// The term storage of the expression families: linear and quadratic terms held in a compact
// growable array, shared by LinExpr and QuadExpr (and read by the Model when it builds rows).
#pragma once

#include <cstddef>
#include <cstring>
#include <new>

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
