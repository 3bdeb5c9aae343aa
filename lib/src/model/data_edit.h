// Editing helpers for the columnar arrays of a ModelData, shared by the store's deletions
// (model.cpp) and the analysis tools that cut a model down (analysis/submodel.cpp).
#pragma once

#include <cstddef>
#include <utility>
#include <vector>

#include "model/model_data.h"

namespace vlm {

// Keeps the entries of `v` whose keep flag is set, in order. O(size).
template <class T>
void compact(std::vector<T>& v, const std::vector<char>& keep) {
  std::size_t out = 0;
  for (std::size_t k = 0; k < v.size(); ++k) {
    if (keep[k]) {
      if (out != k) v[out] = std::move(v[k]);
      ++out;
    }
  }
  v.resize(out);
}

// The same for every extra attribute column; columns shorter than the mask (created before the
// last elements were added) are first filled with their default.
inline void compact_extra(ExtraColumns& extra, const std::vector<char>& keep) {
  for (auto& [index, col] : extra.num) {
    col.v.resize(keep.size(), col.def);
    compact(col.v, keep);
  }
  for (auto& [index, col] : extra.str) {
    col.v.resize(keep.size());
    compact(col.v, keep);
  }
}

// Drops the terms whose variable maps to -1 and renumbers the rest by `map`. `val` may be
// empty (index-only lists). O(terms).
inline void remap_terms(std::vector<int>& ind, std::vector<double>& val, const std::vector<int>& map) {
  std::size_t out = 0;
  for (std::size_t k = 0; k < ind.size(); ++k) {
    const int m = map[ind[k]];
    if (m < 0) continue;
    ind[out] = m;
    if (!val.empty()) val[out] = val[k];
    ++out;
  }
  ind.resize(out);
  if (!val.empty()) val.resize(out);
}

// The same for quadratic terms (row, col, val): a term goes when either variable does.
inline void remap_quad_terms(std::vector<int>& qrow, std::vector<int>& qcol, std::vector<double>& qval,
                             const std::vector<int>& map) {
  std::size_t out = 0;
  for (std::size_t k = 0; k < qval.size(); ++k) {
    const int i = map[qrow[k]], j = map[qcol[k]];
    if (i < 0 || j < 0) continue;
    qrow[out] = i;
    qcol[out] = j;
    qval[out] = qval[k];
    ++out;
  }
  qrow.resize(out);
  qcol.resize(out);
  qval.resize(out);
}

}  // namespace vlm
