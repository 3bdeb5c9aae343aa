// Model lifecycle, building, deletion and the readers of the model's data.
#include <algorithm>
#include <cstring>
#include <memory>
#include <string>

#include "attrs/attr_engine.h"
#include "capi/capi_guard.h"
#include "capi/capi_model.h"
#include "velmor_c.h"

using vlm::Model;
using vlm::ModelData;
using vlm::Status;
using vlm::capi::env_call;
using vlm::capi::model_call;
using vlm::capi::require;

namespace vlm::capi {

VLMmodel* wrap_model(std::unique_ptr<Model> m) { return new VLMmodel(std::move(m)); }

}  // namespace vlm::capi

namespace {

Status check_range(int start, int len, int count, const char* what) {
  if (start < 0 || len < 0 || start + len > count) {
    return Status(VLM_ERROR_INDEX_OUT_OF_RANGE,
                  std::string(what) + " range [" + std::to_string(start) + ", " +
                      std::to_string(start + len) + ") is outside [0, " + std::to_string(count) + ")");
  }
  return Status::Ok();
}

Status check_index(int i, int count, const char* what) {
  if (i < 0 || i >= count) {
    return Status(VLM_ERROR_INDEX_OUT_OF_RANGE, std::string(what) + " index " + std::to_string(i) +
                                                    " is out of range (the model has " +
                                                    std::to_string(count) + ")");
  }
  return Status::Ok();
}

// Compressed rows (or columns) of `len` lines starting at `start`, with `line(i, emit)`
// calling emit(index, value) for each entry.
template <class Size, class Line>
Status compressed(Size* numnzP, Size* beg, int* ind, double* val, int start, int len, Line&& line) {
  VLM_RETURN_IF_ERROR(require(numnzP, "numnzP"));
  Size n = 0;
  for (int i = 0; i < len; ++i) {
    if (beg) beg[i] = n;
    line(start + i, [&](int j, double v) {
      if (ind) ind[n] = j;
      if (val) val[n] = v;
      ++n;
    });
  }
  *numnzP = n;
  return Status::Ok();
}

template <class Size>
Status get_constrs(Model& m, Size* numnzP, Size* cbeg, int* cind, double* cval, int start, int len) {
  const ModelData& d = m.data();
  VLM_RETURN_IF_ERROR(check_range(start, len, d.num_constrs(), "Constraint"));
  return compressed(numnzP, cbeg, cind, cval, start, len, [&](int i, auto emit) {
    // Rows keep entries unordered; report them by variable index.
    const vlm::Row& r = d.rows[i];
    std::vector<std::size_t> order(r.ind.size());
    for (std::size_t k = 0; k < order.size(); ++k) order[k] = k;
    std::sort(order.begin(), order.end(), [&](std::size_t a, std::size_t b) { return r.ind[a] < r.ind[b]; });
    for (std::size_t k : order) emit(r.ind[k], r.val[k]);
  });
}

template <class Size>
Status get_vars(Model& m, Size* numnzP, Size* vbeg, int* vind, double* vval, int start, int len) {
  const ModelData& d = m.data();
  VLM_RETURN_IF_ERROR(check_range(start, len, d.num_vars(), "Variable"));
  // Build the column view of the requested range in one pass over the rows.
  std::vector<std::vector<std::pair<int, double>>> cols(static_cast<std::size_t>(len));
  for (int i = 0; i < d.num_constrs(); ++i) {
    const vlm::Row& r = d.rows[i];
    for (std::size_t k = 0; k < r.ind.size(); ++k) {
      int j = r.ind[k];
      if (j >= start && j < start + len) cols[j - start].push_back({i, r.val[k]});
    }
  }
  return compressed(numnzP, vbeg, vind, vval, start, len, [&](int j, auto emit) {
    for (const auto& [i, v] : cols[j - start]) emit(i, v);
  });
}

}  // namespace

extern "C" {

VLM_API int VLMnewmodel(VLMenv* env, VLMmodel** modelP, const char* Pname, int numvars,
                        const double* obj, const double* lb, const double* ub, const char* vtype,
                        const char* const* varnames) {
  if (modelP != nullptr) *modelP = nullptr;
  return env_call(env, [&](vlm::Env& e) {
    VLM_RETURN_IF_ERROR(require(modelP, "modelP"));
    if (!e.started()) {
      return Status(VLM_ERROR_INVALID_ARGUMENT, "The environment has not been started");
    }
    auto m = std::make_unique<Model>(e, Pname ? Pname : "");
    if (numvars != 0) {
      VLM_RETURN_IF_ERROR(m->add_vars(numvars, 0, nullptr, nullptr, nullptr, obj, lb, ub, vtype, varnames));
      VLM_RETURN_IF_ERROR(m->update());
    }
    *modelP = vlm::capi::wrap_model(std::move(m));
    return Status::Ok();
  });
}

VLM_API VLMmodel* VLMcopymodel(VLMmodel* model) {
  VLMmodel* copy = nullptr;
  model_call(model, [&](Model& m) {
    copy = vlm::capi::wrap_model(std::make_unique<Model>(m));
    return Status::Ok();
  });
  return copy;
}

VLM_API int VLMfreemodel(VLMmodel* model) {
  delete model;
  return VLM_OK;
}

VLM_API VLMenv* VLMgetenv(VLMmodel* model) { return model ? &model->env : nullptr; }

VLM_API const char* VLMgetmerrormsg(VLMmodel* model) {
  if (model == nullptr) return "NULL model";
  return model->model->errors().c_str();
}

VLM_API int VLMupdatemodel(VLMmodel* model) {
  return model_call(model, [](Model& m) { return m.update(); });
}

VLM_API int VLMreset(VLMmodel* model, int clearall) {
  return model_call(model, [&](Model& m) {
    m.reset(clearall != 0);
    if (clearall) vlm::clear_guidance(m);
    return Status::Ok();
  });
}

VLM_API int VLMsetlogcallbackfunc(VLMmodel* model, VLMlogcallback cb, void* usrdata) {
  return model_call(model, [&](Model& m) {
    m.env().log().set_callback(cb, usrdata);
    return Status::Ok();
  });
}

// ---- building ------------------------------------------------------------------------------

VLM_API int VLMaddvar(VLMmodel* model, int numnz, const int* vind, const double* vval, double obj,
                      double lb, double ub, char vtype, const char* varname) {
  return model_call(model, [&](Model& m) {
    const int beg = 0;
    const char* names[] = {varname};
    return m.add_vars(1, numnz, &beg, vind, vval, &obj, &lb, &ub, &vtype, names);
  });
}

VLM_API int VLMaddvars(VLMmodel* model, int numvars, int numnz, const int* vbeg, const int* vind,
                       const double* vval, const double* obj, const double* lb, const double* ub,
                       const char* vtype, const char* const* varnames) {
  return model_call(model, [&](Model& m) {
    return m.add_vars(numvars, numnz, vbeg, vind, vval, obj, lb, ub, vtype, varnames);
  });
}

VLM_API int VLMaddconstr(VLMmodel* model, int numnz, const int* cind, const double* cval,
                         char sense, double rhs, const char* constrname) {
  return model_call(model, [&](Model& m) {
    const int beg = 0;
    const char* names[] = {constrname};
    return m.add_constrs(1, numnz, &beg, cind, cval, &sense, &rhs, names);
  });
}

VLM_API int VLMaddconstrs(VLMmodel* model, int numconstrs, int numnz, const int* cbeg,
                          const int* cind, const double* cval, const char* sense,
                          const double* rhs, const char* const* constrnames) {
  return model_call(model, [&](Model& m) {
    return m.add_constrs(numconstrs, numnz, cbeg, cind, cval, sense, rhs, constrnames);
  });
}

VLM_API int VLMaddrangeconstr(VLMmodel* model, int numnz, const int* cind, const double* cval,
                              double lower, double upper, const char* constrname) {
  return model_call(model, [&](Model& m) {
    VLM_RETURN_IF_ERROR(vlm::capi::require_arrays(numnz, "nonzeros", {{cind, "cind"}, {cval, "cval"}}));
    return m.add_range_constr(numnz, cind, cval, lower, upper, constrname);
  });
}

VLM_API int VLMaddqconstr(VLMmodel* model, int numlnz, const int* lind, const double* lval,
                          int numqnz, const int* qrow, const int* qcol, const double* qval,
                          char sense, double rhs, const char* QCname) {
  return model_call(model, [&](Model& m) {
    VLM_RETURN_IF_ERROR(vlm::capi::require_arrays(numlnz, "linear terms", {{lind, "lind"}, {lval, "lval"}}));
    VLM_RETURN_IF_ERROR(
        vlm::capi::require_arrays(numqnz, "quadratic terms", {{qrow, "qrow"}, {qcol, "qcol"}, {qval, "qval"}}));
    vlm::QConstrData q;
    q.lind.assign(lind, lind + numlnz);
    q.lval.assign(lval, lval + numlnz);
    q.qrow.assign(qrow, qrow + numqnz);
    q.qcol.assign(qcol, qcol + numqnz);
    q.qval.assign(qval, qval + numqnz);
    q.sense = sense;
    q.rhs = rhs;
    if (QCname) q.name = QCname;
    return m.add_qconstr(std::move(q));
  });
}

VLM_API int VLMaddqconstrs(VLMmodel* model, int numqconstrs, int numlnz, const int* lbeg, const int* lind,
                           const double* lval, int numqnz, const int* qbeg, const int* qrow, const int* qcol,
                           const double* qval, const char* sense, const double* rhs,
                           const char* const* QCnames) {
  return model_call(model, [&](Model& m) {
    VLM_RETURN_IF_ERROR(vlm::capi::require_arrays(numqconstrs, "quadratic constraints",
                                                  {{sense, "sense"}, {rhs, "rhs"}}));
    VLM_RETURN_IF_ERROR(
        vlm::capi::require_arrays(numlnz, "linear terms", {{lbeg, "lbeg"}, {lind, "lind"}, {lval, "lval"}}));
    VLM_RETURN_IF_ERROR(vlm::capi::require_arrays(
        numqnz, "quadratic terms", {{qbeg, "qbeg"}, {qrow, "qrow"}, {qcol, "qcol"}, {qval, "qval"}}));
    // Block i spans beg[i] .. beg[i + 1] (the last up to the total); no starts means no terms.
    auto span = [numqconstrs](const int* beg, int total, int i, int* b, int* e) {
      *b = beg ? beg[i] : 0;
      *e = beg ? (i + 1 < numqconstrs ? beg[i + 1] : total) : 0;
      return *b >= 0 && *b <= *e && *e <= total;
    };
    std::vector<vlm::QConstrData> qs(static_cast<std::size_t>(numqconstrs));
    for (int i = 0; i < numqconstrs; ++i) {
      int lb = 0, le = 0, qb = 0, qe = 0;
      if (!span(numlnz > 0 ? lbeg : nullptr, numlnz, i, &lb, &le) ||
          !span(numqnz > 0 ? qbeg : nullptr, numqnz, i, &qb, &qe)) {
        return Status(VLM_ERROR_INVALID_ARGUMENT,
                      "Term starts of quadratic constraint " + std::to_string(i) + " are not within the terms");
      }
      vlm::QConstrData& q = qs[static_cast<std::size_t>(i)];
      if (le > lb) {
        q.lind.assign(lind + lb, lind + le);
        q.lval.assign(lval + lb, lval + le);
      }
      if (qe > qb) {
        q.qrow.assign(qrow + qb, qrow + qe);
        q.qcol.assign(qcol + qb, qcol + qe);
        q.qval.assign(qval + qb, qval + qe);
      }
      q.sense = sense[i];
      q.rhs = rhs[i];
      if (QCnames && QCnames[i]) q.name = QCnames[i];
    }
    return m.add_qconstrs(std::move(qs));
  });
}

VLM_API int VLMaddsos(VLMmodel* model, int numsos, int nummembers, const int* types,
                      const int* beg, const int* ind, const double* weight) {
  return model_call(model, [&](Model& m) { return m.add_sos(numsos, nummembers, types, beg, ind, weight); });
}

VLM_API int VLMaddqpterms(VLMmodel* model, int numqnz, const int* qrow, const int* qcol,
                          const double* qval) {
  return model_call(model, [&](Model& m) { return m.add_qpterms(numqnz, qrow, qcol, qval); });
}

VLM_API int VLMdelq(VLMmodel* model) {
  return model_call(model, [](Model& m) { return m.del_q(); });
}

VLM_API int VLMchgcoeffs(VLMmodel* model, int cnt, const int* cind, const int* vind,
                         const double* val) {
  return model_call(model, [&](Model& m) { return m.chg_coeffs(cnt, cind, vind, val); });
}

VLM_API int VLMdelvars(VLMmodel* model, int numdel, const int* ind) {
  return model_call(model, [&](Model& m) { return m.del_elements(VLM_KIND_VAR, numdel, ind); });
}
VLM_API int VLMdelconstrs(VLMmodel* model, int numdel, const int* ind) {
  return model_call(model, [&](Model& m) { return m.del_elements(VLM_KIND_CONSTR, numdel, ind); });
}
VLM_API int VLMdelqconstrs(VLMmodel* model, int numdel, const int* ind) {
  return model_call(model, [&](Model& m) { return m.del_elements(VLM_KIND_QCONSTR, numdel, ind); });
}
VLM_API int VLMdelsos(VLMmodel* model, int numdel, const int* ind) {
  return model_call(model, [&](Model& m) { return m.del_elements(VLM_KIND_SOS, numdel, ind); });
}
VLM_API int VLMdelgenconstrs(VLMmodel* model, int numdel, const int* ind) {
  return model_call(model, [&](Model& m) { return m.del_elements(VLM_KIND_GENCONSTR, numdel, ind); });
}

VLM_API int VLMsetpwlobj(VLMmodel* model, int var, int npoints, const double* x, const double* y) {
  return model_call(model, [&](Model& m) { return m.set_pwlobj(var, npoints, x, y); });
}

VLM_API int VLMsetobjective(VLMmodel* model, int sense, double constant, int lnz, const int* lind,
                            const double* lval, int qnz, const int* qrow, const int* qcol,
                            const double* qval) {
  return model_call(model, [&](Model& m) {
    return m.set_objective(sense, constant, lnz, lind, lval, qnz, qrow, qcol, qval);
  });
}

VLM_API int VLMgetpwlobj(VLMmodel* model, int var, int* npointsP, double* x, double* y) {
  return model_call(model, [&](Model& m) {
    VLM_RETURN_IF_ERROR(require(npointsP, "npointsP"));
    VLM_RETURN_IF_ERROR(check_index(var, m.data().num_vars(), "Variable"));
    auto it = m.data().pwlobj.find(var);
    *npointsP = it == m.data().pwlobj.end() ? 0 : static_cast<int>(it->second.x.size());
    if (it != m.data().pwlobj.end()) {
      if (x) std::copy(it->second.x.begin(), it->second.x.end(), x);
      if (y) std::copy(it->second.y.begin(), it->second.y.end(), y);
    }
    return Status::Ok();
  });
}

VLM_API int VLMsetobjectiven(VLMmodel* model, int index, int priority, double weight,
                             double abstol, double reltol, const char* name, double constant,
                             int lnz, const int* lind, const double* lval) {
  return model_call(model, [&](Model& m) {
    return m.set_objectiven(index, priority, weight, abstol, reltol, name, constant, lnz, lind, lval);
  });
}

// ---- readers -------------------------------------------------------------------------------

VLM_API int VLMgetcoeff(VLMmodel* model, int constr, int var, double* valP) {
  return model_call(model, [&](Model& m) {
    VLM_RETURN_IF_ERROR(require(valP, "valP"));
    const ModelData& d = m.data();
    VLM_RETURN_IF_ERROR(check_index(constr, d.num_constrs(), "Constraint"));
    VLM_RETURN_IF_ERROR(check_index(var, d.num_vars(), "Variable"));
    const vlm::Row& r = d.rows[constr];
    auto it = std::find(r.ind.begin(), r.ind.end(), var);
    *valP = it == r.ind.end() ? 0.0 : r.val[static_cast<std::size_t>(it - r.ind.begin())];
    return Status::Ok();
  });
}

VLM_API int VLMgetconstrs(VLMmodel* model, int* numnzP, int* cbeg, int* cind, double* cval,
                          int start, int len) {
  return model_call(model, [&](Model& m) {
    std::size_t n = 0;
    std::vector<std::size_t> beg(cbeg ? len : 0);
    VLM_RETURN_IF_ERROR(get_constrs<std::size_t>(m, &n, cbeg ? beg.data() : nullptr, cind, cval, start, len));
    if (n > 2000000000u) return Status(VLM_ERROR_EXCEED_2B_NONZEROS, "More than 2 billion nonzeros: use VLMXgetconstrs");
    VLM_RETURN_IF_ERROR(require(numnzP, "numnzP"));
    *numnzP = static_cast<int>(n);
    for (int i = 0; cbeg && i < len; ++i) cbeg[i] = static_cast<int>(beg[i]);
    return Status::Ok();
  });
}

VLM_API int VLMXgetconstrs(VLMmodel* model, size_t* numnzP, size_t* cbeg, int* cind, double* cval,
                           int start, int len) {
  return model_call(model, [&](Model& m) { return get_constrs<size_t>(m, numnzP, cbeg, cind, cval, start, len); });
}

VLM_API int VLMgetvars(VLMmodel* model, int* numnzP, int* vbeg, int* vind, double* vval, int start,
                       int len) {
  return model_call(model, [&](Model& m) {
    std::size_t n = 0;
    std::vector<std::size_t> beg(vbeg ? len : 0);
    VLM_RETURN_IF_ERROR(get_vars<std::size_t>(m, &n, vbeg ? beg.data() : nullptr, vind, vval, start, len));
    if (n > 2000000000u) return Status(VLM_ERROR_EXCEED_2B_NONZEROS, "More than 2 billion nonzeros: use VLMXgetvars");
    VLM_RETURN_IF_ERROR(require(numnzP, "numnzP"));
    *numnzP = static_cast<int>(n);
    for (int i = 0; vbeg && i < len; ++i) vbeg[i] = static_cast<int>(beg[i]);
    return Status::Ok();
  });
}

VLM_API int VLMXgetvars(VLMmodel* model, size_t* numnzP, size_t* vbeg, int* vind, double* vval,
                        int start, int len) {
  return model_call(model, [&](Model& m) { return get_vars<size_t>(m, numnzP, vbeg, vind, vval, start, len); });
}

VLM_API int VLMgetq(VLMmodel* model, int* numqnzP, int* qrow, int* qcol, double* qval) {
  return model_call(model, [&](Model& m) {
    VLM_RETURN_IF_ERROR(require(numqnzP, "numqnzP"));
    const ModelData& d = m.data();
    *numqnzP = static_cast<int>(d.qval.size());
    if (qrow) std::copy(d.qrow.begin(), d.qrow.end(), qrow);
    if (qcol) std::copy(d.qcol.begin(), d.qcol.end(), qcol);
    if (qval) std::copy(d.qval.begin(), d.qval.end(), qval);
    return Status::Ok();
  });
}

VLM_API int VLMgetqconstr(VLMmodel* model, int qconstr, int* numlnzP, int* lind, double* lval,
                          int* numqnzP, int* qrow, int* qcol, double* qval) {
  return model_call(model, [&](Model& m) {
    const ModelData& d = m.data();
    VLM_RETURN_IF_ERROR(check_index(qconstr, d.num_qconstrs(), "Quadratic constraint"));
    const vlm::QConstrData& q = d.qconstrs[qconstr];
    if (numlnzP) *numlnzP = static_cast<int>(q.lind.size());
    if (numqnzP) *numqnzP = static_cast<int>(q.qval.size());
    if (lind) std::copy(q.lind.begin(), q.lind.end(), lind);
    if (lval) std::copy(q.lval.begin(), q.lval.end(), lval);
    if (qrow) std::copy(q.qrow.begin(), q.qrow.end(), qrow);
    if (qcol) std::copy(q.qcol.begin(), q.qcol.end(), qcol);
    if (qval) std::copy(q.qval.begin(), q.qval.end(), qval);
    return Status::Ok();
  });
}

VLM_API int VLMgetsos(VLMmodel* model, int* nummembersP, int* sostype, int* beg, int* ind,
                      double* weight, int start, int len) {
  return model_call(model, [&](Model& m) {
    const ModelData& d = m.data();
    VLM_RETURN_IF_ERROR(check_range(start, len, d.num_sos(), "SOS"));
    VLM_RETURN_IF_ERROR(require(nummembersP, "nummembersP"));
    int n = 0;
    for (int i = 0; i < len; ++i) {
      const vlm::SosData& s = d.sos[start + i];
      if (sostype) sostype[i] = s.type;
      if (beg) beg[i] = n;
      for (std::size_t k = 0; k < s.ind.size(); ++k, ++n) {
        if (ind) ind[n] = s.ind[k];
        if (weight) weight[n] = s.weight[k];
      }
    }
    *nummembersP = n;
    return Status::Ok();
  });
}

namespace {
int by_name(VLMmodel* model, int kind, const char* name, int* indexP) {
  return model_call(model, [&](Model& m) {
    VLM_RETURN_IF_ERROR(require(name, "name"));
    VLM_RETURN_IF_ERROR(require(indexP, "indexP"));
    *indexP = m.find_by_name(kind, name);
    return Status::Ok();
  });
}
}  // namespace

VLM_API int VLMgetvarbyname(VLMmodel* model, const char* name, int* indexP) {
  return by_name(model, VLM_KIND_VAR, name, indexP);
}
VLM_API int VLMgetconstrbyname(VLMmodel* model, const char* name, int* indexP) {
  return by_name(model, VLM_KIND_CONSTR, name, indexP);
}
VLM_API int VLMgetqconstrbyname(VLMmodel* model, const char* name, int* indexP) {
  return by_name(model, VLM_KIND_QCONSTR, name, indexP);
}
VLM_API int VLMgetgenconstrbyname(VLMmodel* model, const char* name, int* indexP) {
  return by_name(model, VLM_KIND_GENCONSTR, name, indexP);
}

}  // extern "C"
