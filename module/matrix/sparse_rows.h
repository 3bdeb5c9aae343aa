// Row-wise operations on scipy.sparse CSR matrices, for the coefficient matrices of matrix
// expressions (mexpr.h).
//
// Quadratic coefficient matrices have K² columns (K variables), so they never go through
// SciPy's sparse products or general sums, whose workspace holds one entry per column
// (gigabytes for K of a few thousand). These functions cost O(rows + nonzeros) in time and
// memory; only the conversion of COO triplets to CSR (row by row) is left to SciPy. Each
// returns an empty Ref with a Python exception set on failure.
#pragma once

#include <vector>

#include "core/py_ref.h"

// A CSR matrix of n rows and `width` columns from COO triplets, duplicates summed.
py::Ref csr_from(const std::vector<long long>& rows, const std::vector<long long>& cols, const std::vector<double>& vals,
                 Py_ssize_t n, long long width);

// m with row r multiplied by f[r] (f has one entry per row).
py::Ref scale_rows(PyObject* m, const double* f);

// map @ q: every map entry (o, e, w) and q entry (e, c, v) give (o, c, w v).
py::Ref map_rows(PyObject* map, PyObject* q);

// a + b for two matrices of one shape.
py::Ref add_rows(PyObject* a, PyObject* b);

// m with column c renamed map[c], `width` columns wide. O(nonzeros).
py::Ref remap_columns(PyObject* m, const std::vector<long long>& map, long long width);

// Quadratic coefficients over k variables moved to a list of `knew`: column i*k + j becomes
// map[i]*knew + map[j], or i*knew + j without a map (the old variables first). O(nonzeros).
py::Ref remap_quadratic(PyObject* q, long long k, const std::vector<long long>* map, long long knew);

// m with `width` columns (at least its own), sharing its arrays.
py::Ref widen(PyObject* m, long long width);

// The union of two variable lists by object identity: the entries of `a` keep their positions
// and the variables of `b` that `a` lacks follow in order; map_b[j] is the position of b's
// entry j. `vars` is `a` itself when it holds all of b's variables. O(len a + len b).
struct VarUnion {
  py::Ref vars;
  std::vector<long long> map_b;
  long long k = 0;
};
bool var_union(PyObject* a, PyObject* b, VarUnion* u);
