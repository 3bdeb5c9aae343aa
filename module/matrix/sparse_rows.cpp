// Row-wise operations on scipy.sparse CSR matrices (see sparse_rows.h).
#include "matrix/sparse_rows.h"

#include <vector>

#include "elements/handle.h"
#include "matrix/np_call.h"

namespace {

py::Ref csr(py::Ref m) { return m ? np::spfn("csr_matrix", {m.get()}) : py::Ref(); }

py::Ref dtype(const char* name) { return np::text(name); }

long long dim_of(PyObject* m, Py_ssize_t i) {
  py::Ref shape = np::shape_of(m);
  return shape ? PyLong_AsLongLong(PyTuple_GET_ITEM(shape.get(), i)) : -1;
}

}  // namespace

py::Ref csr_from(const std::vector<long long>& rows, const std::vector<long long>& cols, const std::vector<double>& vals,
                 Py_ssize_t n, long long width) {
  const Py_ssize_t nnz = static_cast<Py_ssize_t>(vals.size());
  py::Ref r = np::array_from(rows.data(), nnz, "int64");
  py::Ref c = np::array_from(cols.data(), nnz, "int64");
  py::Ref v = np::array_from(vals.data(), nnz, "float64");
  py::Ref ij = r && c && v ? py::Ref::steal(Py_BuildValue("(O(OO))", v.get(), r.get(), c.get())) : py::Ref();
  py::Ref shape = py::Ref::steal(Py_BuildValue("(nL)", n, width));
  return csr(np::spfn("coo_matrix", {ij.get()}, {{"shape", shape.get()}}));
}

py::Ref scale_rows(PyObject* m, const double* f) {
  np::CsrView v;
  if (!v.open(m)) return py::Ref();
  const Py_ssize_t rows = v.ptr.size() - 1;
  std::vector<double> data(static_cast<size_t>(v.val.size()));
  for (Py_ssize_t r = 0; r < rows; ++r) {
    for (long long t = v.begin(r); t < v.end(r); ++t) data[static_cast<size_t>(t)] = v.value(t) * f[r];
  }
  py::Ref arr = np::array_from(data.data(), static_cast<Py_ssize_t>(data.size()), "float64");
  py::Ref ind = np::attr(m, "indices"), ptr = np::attr(m, "indptr");
  py::Ref parts = arr && ind && ptr ? py::Ref::steal(PyTuple_Pack(3, arr.get(), ind.get(), ptr.get())) : py::Ref();
  return np::spfn("csr_matrix", {parts.get()}, {{"shape", np::shape_of(m).get()}});
}

py::Ref map_rows(PyObject* map, PyObject* q) {
  py::Ref by_source = csr(np::meth(map, "transpose"));
  np::CsrView M, Q;
  if (!by_source || !M.open(by_source.get()) || !Q.open(q)) return py::Ref();
  const long long nout = dim_of(map, 0), width = dim_of(q, 1);
  std::vector<long long> rows, cols;
  std::vector<double> vals;
  for (Py_ssize_t e = 0; e + 1 < M.ptr.size(); ++e) {
    for (long long s = M.begin(e); s < M.end(e); ++s) {
      for (long long t = Q.begin(e); t < Q.end(e); ++t) {
        rows.push_back(M.col(s));
        cols.push_back(Q.col(t));
        vals.push_back(M.value(s) * Q.value(t));
      }
    }
  }
  return csr_from(rows, cols, vals, static_cast<Py_ssize_t>(nout), width);
}

py::Ref add_rows(PyObject* a, PyObject* b) {
  np::CsrView A, B;
  if (!A.open(a) || !B.open(b)) return py::Ref();
  std::vector<long long> rows, cols;
  std::vector<double> vals;
  for (const np::CsrView* m : {&A, &B}) {
    for (Py_ssize_t r = 0; r + 1 < m->ptr.size(); ++r) {
      for (long long t = m->begin(r); t < m->end(r); ++t) {
        rows.push_back(r);
        cols.push_back(m->col(t));
        vals.push_back(m->value(t));
      }
    }
  }
  return csr_from(rows, cols, vals, static_cast<Py_ssize_t>(dim_of(a, 0)), dim_of(a, 1));
}

namespace {

// Positions of objects by identity: open addressing with linear probing, about four times
// faster than std::unordered_map for the millions of handles of a large MVar.
class PointerTable {
 public:
  explicit PointerTable(size_t n) {
    size_t cap = 16;
    while (cap < 2 * n) cap <<= 1;
    keys_.assign(cap, nullptr);
    values_.resize(cap);
    mask_ = cap - 1;
  }
  // The position stored for `key`, storing `value` first when there is none.
  long long insert(PyObject* key, long long value) {
    size_t h = (reinterpret_cast<size_t>(key) >> 4) * 0x9E3779B97F4A7C15ull;
    for (size_t i = (h >> 20) & mask_;; i = (i + 1) & mask_) {
      if (keys_[i] == key) return values_[i];
      if (keys_[i] == nullptr) {
        keys_[i] = key;
        values_[i] = value;
        return value;
      }
    }
  }

 private:
  std::vector<PyObject*> keys_;
  std::vector<long long> values_;
  size_t mask_ = 0;
};

// Positions of variables by their place in the model: an array over the range of their
// indices, read in the order the variables come (slices of one MVar come nearly sorted), so much
// faster than hashing. It applies when all are placed variables of one model whose indices
// span a range not much larger than their count; init() says whether it does.
class PositionTable {
 public:
  bool init(const np::View& a, const np::View& b) {
    ModelCore* core = nullptr;
    long long lo = -1, hi = -1;
    for (const np::View* v : {&a, &b}) {
      for (Py_ssize_t i = 0; i < v->size(); ++i) {
        PyObject* h = v->data<PyObject*>()[i];
        if (handle_kind(h) != VLM_KIND_VAR || as_handle(h)->index < 0) return false;
        if (core == nullptr) core = as_handle(h)->core;
        if (as_handle(h)->core != core) return false;
        const long long idx = as_handle(h)->index;
        if (lo < 0 || idx < lo) lo = idx;
        if (idx > hi) hi = idx;
      }
    }
    if (lo < 0 || hi - lo + 1 > 4 * (a.size() + b.size()) + 64) return false;
    lo_ = lo;
    values_.assign(static_cast<size_t>(hi - lo + 1), -1);
    return true;
  }
  long long insert(PyObject* key, long long value) {
    long long& slot = values_[static_cast<size_t>(as_handle(key)->index - lo_)];
    if (slot < 0) slot = value;
    return slot;
  }

 private:
  long long lo_ = 0;
  std::vector<long long> values_;
};

// csr_matrix((data, indices, indptr), shape=(rows of m, width)) with new column indices.
py::Ref with_columns(PyObject* m, const std::vector<long long>& cols, long long width) {
  py::Ref newind = np::array_from(cols.data(), static_cast<Py_ssize_t>(cols.size()), "int64");
  py::Ref ptr = np::fn("asarray", {np::attr(m, "indptr").get()}, {{"dtype", dtype("int64").get()}});
  py::Ref data = np::attr(m, "data");
  py::Ref parts = newind && ptr && data ? py::Ref::steal(PyTuple_Pack(3, data.get(), newind.get(), ptr.get())) : py::Ref();
  py::Ref shape = py::Ref::steal(Py_BuildValue("(LL)", dim_of(m, 0), width));
  return np::spfn("csr_matrix", {parts.get()}, {{"shape", shape.get()}});
}

}  // namespace

py::Ref remap_columns(PyObject* m, const std::vector<long long>& map, long long width) {
  np::View ind;
  if (!ind.open(np::attr(m, "indices").get(), "int64")) return py::Ref();
  std::vector<long long> cols(static_cast<size_t>(ind.size()));
  for (Py_ssize_t t = 0; t < ind.size(); ++t) cols[static_cast<size_t>(t)] = map[static_cast<size_t>(ind.data<long long>()[t])];
  return with_columns(m, cols, width);
}

py::Ref remap_quadratic(PyObject* q, long long k, const std::vector<long long>* map, long long knew) {
  if (map == nullptr && k == knew) return py::Ref::borrow(q);
  np::View ind;
  if (!ind.open(np::attr(q, "indices").get(), "int64")) return py::Ref();
  std::vector<long long> cols(static_cast<size_t>(ind.size()));
  for (Py_ssize_t t = 0; t < ind.size(); ++t) {
    const long long c = ind.data<long long>()[t], i = c / k, j = c % k;
    cols[static_cast<size_t>(t)] =
        map ? (*map)[static_cast<size_t>(i)] * knew + (*map)[static_cast<size_t>(j)] : i * knew + j;
  }
  return with_columns(q, cols, knew * knew);
}

py::Ref widen(PyObject* m, long long width) {
  py::Ref data = np::attr(m, "data"), ind = np::attr(m, "indices"), ptr = np::attr(m, "indptr");
  py::Ref parts = data && ind && ptr ? py::Ref::steal(PyTuple_Pack(3, data.get(), ind.get(), ptr.get())) : py::Ref();
  py::Ref shape = py::Ref::steal(Py_BuildValue("(LL)", dim_of(m, 0), width));
  return np::spfn("csr_matrix", {parts.get()}, {{"shape", shape.get()}});
}

bool var_union(PyObject* va, PyObject* vb, VarUnion* u) {
  np::View a, b;
  if (!a.open(va, "O") || !b.open(vb, "O")) return false;
  std::vector<PyObject*> extra;
  u->map_b.resize(static_cast<size_t>(b.size()));
  auto merge = [&](auto& table) {
    for (Py_ssize_t i = 0; i < a.size(); ++i) table.insert(a.data<PyObject*>()[i], i);  // first occurrence wins
    for (Py_ssize_t j = 0; j < b.size(); ++j) {
      PyObject* v = b.data<PyObject*>()[j];
      const long long next = a.size() + static_cast<long long>(extra.size());
      const long long at = table.insert(v, next);
      if (at == next) extra.push_back(v);
      u->map_b[static_cast<size_t>(j)] = at;
    }
  };
  PositionTable dense;
  if (dense.init(a, b)) {
    merge(dense);
  } else {
    PointerTable pos(static_cast<size_t>(a.size() + b.size()));
    merge(pos);
  }
  u->k = a.size() + static_cast<long long>(extra.size());
  if (extra.empty()) {
    u->vars = py::Ref::borrow(va);
    return true;
  }
  u->vars = np::fn("empty", {np::integer(u->k).get()}, {{"dtype", dtype("O").get()}});
  np::View out;
  if (!u->vars || !out.open(u->vars.get(), "O") || out.array() != u->vars.get()) return false;
  PyObject** slots = out.data<PyObject*>();
  for (Py_ssize_t i = 0; i < a.size(); ++i) py::assign(slots[i], a.data<PyObject*>()[i]);
  for (size_t e = 0; e < extra.size(); ++e) py::assign(slots[a.size() + static_cast<Py_ssize_t>(e)], extra[e]);
  return true;
}
