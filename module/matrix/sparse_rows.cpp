// Row-wise operations on scipy.sparse CSR matrices (see sparse_rows.h).
#include "matrix/sparse_rows.h"

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
  py::Ref parts = arr ? py::Ref::steal(PyTuple_Pack(3, arr.get(), np::attr(m, "indices").get(), np::attr(m, "indptr").get()))
                      : py::Ref();
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

py::Ref remap_quadratic(PyObject* q, long long k, long long knew, long long offset) {
  if (offset == 0 && k == knew) return py::Ref::borrow(q);
  np::View ind;
  if (!ind.open(np::attr(q, "indices").get(), "int64")) return py::Ref();
  std::vector<long long> cols(static_cast<size_t>(ind.size()));
  for (Py_ssize_t t = 0; t < ind.size(); ++t) {
    long long c = ind.data<long long>()[t];
    cols[static_cast<size_t>(t)] = (c / k + offset) * knew + (c % k + offset);
  }
  py::Ref newind = np::array_from(cols.data(), static_cast<Py_ssize_t>(cols.size()), "int64");
  py::Ref ptr = np::fn("asarray", {np::attr(q, "indptr").get()}, {{"dtype", dtype("int64").get()}});
  py::Ref parts = newind && ptr ? py::Ref::steal(PyTuple_Pack(3, np::attr(q, "data").get(), newind.get(), ptr.get()))
                                : py::Ref();
  py::Ref rows = np::meth(np::shape_of(q).get(), "__getitem__", {np::integer(0).get()});
  py::Ref shape = rows ? py::Ref::steal(Py_BuildValue("(OL)", rows.get(), knew * knew)) : py::Ref();
  return np::spfn("csr_matrix", {parts.get()}, {{"shape", shape.get()}});
}

