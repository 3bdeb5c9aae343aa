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

// Quadratic coefficients over k variables moved to a list of `knew` variables in which the old
// ones start at `offset`: column i*k + j becomes (i+offset)*knew + (j+offset).
py::Ref remap_quadratic(PyObject* q, long long k, long long knew, long long offset);
