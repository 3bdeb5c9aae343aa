// General constraints: one add and one reader per type, all through Model::add_genconstr and
// the stored GenConstrData record.
#include <algorithm>
#include <string>

#include "capi/capi_guard.h"
#include "velmor_c.h"

using vlm::GenConstrData;
using vlm::GenType;
using vlm::Model;
using vlm::Status;
using vlm::capi::model_call;
using vlm::capi::require;

namespace {

GenConstrData make(GenType t, const char* name) {
  GenConstrData g;
  g.type = t;
  if (name) g.name = name;
  return g;
}

int add(VLMmodel* model, GenConstrData g) {
  return model_call(model, [&](Model& m) { return m.add_genconstr(std::move(g)); });
}

int add_list(VLMmodel* model, GenType t, const char* name, int resvar, int nvars, const int* vars,
             double a) {
  return model_call(model, [&](Model& m) {
    VLM_RETURN_IF_ERROR(vlm::capi::require_arrays(nvars, "operands", {{vars, "vars"}}));
    GenConstrData g = make(t, name);
    g.res = resvar;
    g.vars.assign(vars, vars + nvars);
    g.a = a;
    return m.add_genconstr(std::move(g));
  });
}

int add_func(VLMmodel* model, GenType t, const char* name, int xvar, int yvar, double a,
             const char* options) {
  GenConstrData g = make(t, name);
  g.arg = xvar;
  g.res = yvar;
  g.a = a;
  if (options) g.options = options;
  return add(model, std::move(g));
}

// Runs `read(g)` on general constraint `id` after checking that it has type `t`.
template <class Read>
int get(VLMmodel* model, int id, GenType t, Read&& read) {
  return model_call(model, [&](Model& m) {
    const auto& gs = m.data().genconstrs;
    if (id < 0 || id >= static_cast<int>(gs.size())) {
      return Status(VLM_ERROR_INDEX_OUT_OF_RANGE, "General constraint index " + std::to_string(id) +
                                                      " is out of range (the model has " +
                                                      std::to_string(gs.size()) + ")");
    }
    const GenConstrData& g = gs[id];
    if (g.type != t) {
      return Status(VLM_ERROR_INVALID_ARGUMENT, "General constraint " + std::to_string(id) + " is of type " +
                                                    vlm::gen_type_name(g.type) + ", not " +
                                                    vlm::gen_type_name(t));
    }
    read(g);
    return Status::Ok();
  });
}

int get_list(VLMmodel* model, int id, GenType t, int* resvarP, int* nvarsP, int* vars, double* aP) {
  return get(model, id, t, [&](const GenConstrData& g) {
    if (resvarP) *resvarP = g.res;
    if (nvarsP) *nvarsP = static_cast<int>(g.vars.size());
    if (vars) std::copy(g.vars.begin(), g.vars.end(), vars);
    if (aP) *aP = g.a;
  });
}

int get_func(VLMmodel* model, int id, GenType t, int* xvarP, int* yvarP, double* aP) {
  return get(model, id, t, [&](const GenConstrData& g) {
    if (xvarP) *xvarP = g.arg;
    if (yvarP) *yvarP = g.res;
    if (aP) *aP = g.a;
  });
}

// The block entries share their frame: argument checks, then one add_genconstrs.
Status block_frame(int count, const int* beg) {
  if (count < 0) return Status(VLM_ERROR_INVALID_ARGUMENT, "Number of general constraints is negative");
  if (count > 0 && beg != nullptr && beg[0] != 0) {
    return Status(VLM_ERROR_INVALID_ARGUMENT, "Operand offsets must start at 0");
  }
  return Status::Ok();
}

GenConstrData block_record(GenType t, const char* const* names, int k) {
  return make(t, names != nullptr ? names[k] : nullptr);
}

// The operands of record k of a block: beg[k] .. beg[k+1]-1, offsets non-decreasing.
Status block_span(const int* beg, int k, int* from, int* to) {
  *from = beg[k];
  *to = beg[k + 1];
  if (*to < *from) {
    return Status(VLM_ERROR_INVALID_ARGUMENT, "Operand offsets decrease at general constraint " + std::to_string(k));
  }
  return Status::Ok();
}

bool is_list_type(int t) {
  return t == static_cast<int>(GenType::kMax) || t == static_cast<int>(GenType::kMin) ||
         t == static_cast<int>(GenType::kAnd) || t == static_cast<int>(GenType::kOr) ||
         t == static_cast<int>(GenType::kNorm);
}

}  // namespace

extern "C" {

VLM_API int VLMaddgenconstrMax(VLMmodel* model, const char* name, int resvar, int nvars,
                               const int* vars, double constant) {
  return add_list(model, GenType::kMax, name, resvar, nvars, vars, constant);
}
VLM_API int VLMaddgenconstrMin(VLMmodel* model, const char* name, int resvar, int nvars,
                               const int* vars, double constant) {
  return add_list(model, GenType::kMin, name, resvar, nvars, vars, constant);
}
VLM_API int VLMaddgenconstrAbs(VLMmodel* model, const char* name, int resvar, int argvar) {
  GenConstrData g = make(GenType::kAbs, name);
  g.res = resvar;
  g.arg = argvar;
  return add(model, std::move(g));
}
VLM_API int VLMaddgenconstrAnd(VLMmodel* model, const char* name, int resvar, int nvars,
                               const int* vars) {
  return add_list(model, GenType::kAnd, name, resvar, nvars, vars, 0.0);
}
VLM_API int VLMaddgenconstrOr(VLMmodel* model, const char* name, int resvar, int nvars,
                              const int* vars) {
  return add_list(model, GenType::kOr, name, resvar, nvars, vars, 0.0);
}
VLM_API int VLMaddgenconstrNorm(VLMmodel* model, const char* name, int resvar, int nvars,
                                const int* vars, double which) {
  return add_list(model, GenType::kNorm, name, resvar, nvars, vars, which);
}
VLM_API int VLMaddgenconstrIndicator(VLMmodel* model, const char* name, int binvar, int binval,
                                     int nvars, const int* ind, const double* val, char sense,
                                     double rhs) {
  return model_call(model, [&](Model& m) {
    VLM_RETURN_IF_ERROR(vlm::capi::require_arrays(nvars, "terms", {{ind, "ind"}, {val, "val"}}));
    GenConstrData g = make(GenType::kIndicator, name);
    g.res = binvar;
    g.binval = binval;
    g.vars.assign(ind, ind + nvars);
    g.vals.assign(val, val + nvars);
    g.sense = sense;
    g.rhs = rhs;
    return m.add_genconstr(std::move(g));
  });
}
VLM_API int VLMaddgenconstrPWL(VLMmodel* model, const char* name, int xvar, int yvar, int npts,
                               const double* xpts, const double* ypts) {
  return model_call(model, [&](Model& m) {
    VLM_RETURN_IF_ERROR(vlm::capi::require_arrays(npts, "points", {{xpts, "xpts"}, {ypts, "ypts"}}));
    GenConstrData g = make(GenType::kPwl, name);
    g.arg = xvar;
    g.res = yvar;
    g.vals.assign(xpts, xpts + npts);
    g.ypts.assign(ypts, ypts + npts);
    return m.add_genconstr(std::move(g));
  });
}
VLM_API int VLMaddgenconstrPoly(VLMmodel* model, const char* name, int xvar, int yvar, int plen,
                                const double* p, const char* options) {
  return model_call(model, [&](Model& m) {
    VLM_RETURN_IF_ERROR(vlm::capi::require_arrays(plen, "coefficients", {{p, "p"}}));
    GenConstrData g = make(GenType::kPoly, name);
    g.arg = xvar;
    g.res = yvar;
    g.vals.assign(p, p + plen);
    if (options) g.options = options;
    return m.add_genconstr(std::move(g));
  });
}
VLM_API int VLMaddgenconstrExp(VLMmodel* model, const char* name, int xvar, int yvar, const char* options) {
  return add_func(model, GenType::kExp, name, xvar, yvar, 0.0, options);
}
VLM_API int VLMaddgenconstrExpA(VLMmodel* model, const char* name, int xvar, int yvar, double a,
                                const char* options) {
  return add_func(model, GenType::kExpA, name, xvar, yvar, a, options);
}
VLM_API int VLMaddgenconstrLog(VLMmodel* model, const char* name, int xvar, int yvar, const char* options) {
  return add_func(model, GenType::kLog, name, xvar, yvar, 0.0, options);
}
VLM_API int VLMaddgenconstrLogA(VLMmodel* model, const char* name, int xvar, int yvar, double a,
                                const char* options) {
  return add_func(model, GenType::kLogA, name, xvar, yvar, a, options);
}
VLM_API int VLMaddgenconstrLogistic(VLMmodel* model, const char* name, int xvar, int yvar,
                                    const char* options) {
  return add_func(model, GenType::kLogistic, name, xvar, yvar, 0.0, options);
}
VLM_API int VLMaddgenconstrPow(VLMmodel* model, const char* name, int xvar, int yvar, double a,
                               const char* options) {
  return add_func(model, GenType::kPow, name, xvar, yvar, a, options);
}
VLM_API int VLMaddgenconstrSin(VLMmodel* model, const char* name, int xvar, int yvar, const char* options) {
  return add_func(model, GenType::kSin, name, xvar, yvar, 0.0, options);
}
VLM_API int VLMaddgenconstrCos(VLMmodel* model, const char* name, int xvar, int yvar, const char* options) {
  return add_func(model, GenType::kCos, name, xvar, yvar, 0.0, options);
}
VLM_API int VLMaddgenconstrTan(VLMmodel* model, const char* name, int xvar, int yvar, const char* options) {
  return add_func(model, GenType::kTan, name, xvar, yvar, 0.0, options);
}

VLM_API int VLMaddgenconstrlists(VLMmodel* model, int type, int count, const char* const* names,
                                 const int* resvar, const int* beg, const int* vars, const double* a) {
  return model_call(model, [&](Model& m) {
    if (!is_list_type(type)) {
      return Status(VLM_ERROR_INVALID_ARGUMENT,
                    "General constraint type " + std::to_string(type) + " does not take an operand list");
    }
    VLM_RETURN_IF_ERROR(block_frame(count, beg));
    VLM_RETURN_IF_ERROR(vlm::capi::require_arrays(count, "general constraints", {{resvar, "resvar"}, {beg, "beg"}}));
    const GenType t = static_cast<GenType>(type);
    // No constant: the neutral element of the maximum (minimum); a norm defaults to 2.
    const double dflt = t == GenType::kMax ? -VLM_INFINITY : t == GenType::kMin ? VLM_INFINITY
                        : t == GenType::kNorm ? 2.0 : 0.0;
    std::vector<GenConstrData> gs;
    gs.reserve(static_cast<std::size_t>(count));
    for (int k = 0; k < count; ++k) {
      int from = 0, to = 0;
      VLM_RETURN_IF_ERROR(block_span(beg, k, &from, &to));
      if (to > from) VLM_RETURN_IF_ERROR(require(vars, "vars"));
      GenConstrData g = block_record(t, names, k);
      g.res = resvar[k];
      if (to > from) g.vars.assign(vars + from, vars + to);
      g.a = a != nullptr ? a[k] : dflt;
      gs.push_back(std::move(g));
    }
    return m.add_genconstrs(std::move(gs));
  });
}

VLM_API int VLMaddgenconstrfuncs(VLMmodel* model, int type, int count, const char* const* names,
                                 const int* xvar, const int* yvar, const double* a, int npts,
                                 const double* xpts, const double* ypts, const char* options) {
  return model_call(model, [&](Model& m) {
    if (type < static_cast<int>(GenType::kAbs) || type >= vlm::kNumGenTypes || is_list_type(type) ||
        type == static_cast<int>(GenType::kIndicator)) {
      return Status(VLM_ERROR_INVALID_ARGUMENT,
                    "General constraint type " + std::to_string(type) + " is not a function of one variable");
    }
    const GenType t = static_cast<GenType>(type);
    VLM_RETURN_IF_ERROR(block_frame(count, nullptr));
    VLM_RETURN_IF_ERROR(vlm::capi::require_arrays(count, "general constraints", {{xvar, "xvar"}, {yvar, "yvar"}}));
    const bool needs_a = t == GenType::kExpA || t == GenType::kLogA || t == GenType::kPow;
    if (needs_a && count > 0) VLM_RETURN_IF_ERROR(require(a, "a"));
    if (t == GenType::kPwl || t == GenType::kPoly) {
      VLM_RETURN_IF_ERROR(vlm::capi::require_arrays(npts, "points", {{xpts, "xpts"}}));
      if (t == GenType::kPwl) VLM_RETURN_IF_ERROR(vlm::capi::require_arrays(npts, "points", {{ypts, "ypts"}}));
    }
    std::vector<GenConstrData> gs;
    gs.reserve(static_cast<std::size_t>(count));
    for (int k = 0; k < count; ++k) {
      GenConstrData g = block_record(t, names, k);
      g.arg = xvar[k];
      g.res = yvar[k];
      if (needs_a) g.a = a[k];
      if (t == GenType::kPwl || t == GenType::kPoly) g.vals.assign(xpts, xpts + npts);
      if (t == GenType::kPwl) g.ypts.assign(ypts, ypts + npts);
      if (options) g.options = options;
      gs.push_back(std::move(g));
    }
    return m.add_genconstrs(std::move(gs));
  });
}

VLM_API int VLMaddgenconstrIndicators(VLMmodel* model, int count, const char* const* names,
                                      const int* binvar, const int* binval, const int* beg,
                                      const int* ind, const double* val, const char* sense,
                                      const double* rhs) {
  return model_call(model, [&](Model& m) {
    VLM_RETURN_IF_ERROR(block_frame(count, beg));
    VLM_RETURN_IF_ERROR(vlm::capi::require_arrays(
        count, "general constraints",
        {{binvar, "binvar"}, {binval, "binval"}, {beg, "beg"}, {sense, "sense"}, {rhs, "rhs"}}));
    std::vector<GenConstrData> gs;
    gs.reserve(static_cast<std::size_t>(count));
    for (int k = 0; k < count; ++k) {
      int from = 0, to = 0;
      VLM_RETURN_IF_ERROR(block_span(beg, k, &from, &to));
      if (to > from) {
        VLM_RETURN_IF_ERROR(require(ind, "ind"));
        VLM_RETURN_IF_ERROR(require(val, "val"));
      }
      GenConstrData g = block_record(GenType::kIndicator, names, k);
      g.res = binvar[k];
      g.binval = binval[k];
      if (to > from) {
        g.vars.assign(ind + from, ind + to);
        g.vals.assign(val + from, val + to);
      }
      g.sense = sense[k];
      g.rhs = rhs[k];
      gs.push_back(std::move(g));
    }
    return m.add_genconstrs(std::move(gs));
  });
}

VLM_API int VLMgetgenconstrvars(VLMmodel* model, int id, int* resvarP, int* argvarP) {
  return model_call(model, [&](Model& m) {
    const auto& gs = m.data().genconstrs;
    if (id < 0 || id >= static_cast<int>(gs.size())) {
      return Status(VLM_ERROR_INDEX_OUT_OF_RANGE, "General constraint index " + std::to_string(id) +
                                                      " is out of range (the model has " +
                                                      std::to_string(gs.size()) + ")");
    }
    if (resvarP) *resvarP = gs[id].res;
    if (argvarP) *argvarP = gs[id].arg;
    return Status::Ok();
  });
}

VLM_API int VLMgetgenconstrMax(VLMmodel* model, int id, int* resvarP, int* nvarsP, int* vars,
                               double* constantP) {
  return get_list(model, id, GenType::kMax, resvarP, nvarsP, vars, constantP);
}
VLM_API int VLMgetgenconstrMin(VLMmodel* model, int id, int* resvarP, int* nvarsP, int* vars,
                               double* constantP) {
  return get_list(model, id, GenType::kMin, resvarP, nvarsP, vars, constantP);
}
VLM_API int VLMgetgenconstrAbs(VLMmodel* model, int id, int* resvarP, int* argvarP) {
  return get(model, id, GenType::kAbs, [&](const GenConstrData& g) {
    if (resvarP) *resvarP = g.res;
    if (argvarP) *argvarP = g.arg;
  });
}
VLM_API int VLMgetgenconstrAnd(VLMmodel* model, int id, int* resvarP, int* nvarsP, int* vars) {
  return get_list(model, id, GenType::kAnd, resvarP, nvarsP, vars, nullptr);
}
VLM_API int VLMgetgenconstrOr(VLMmodel* model, int id, int* resvarP, int* nvarsP, int* vars) {
  return get_list(model, id, GenType::kOr, resvarP, nvarsP, vars, nullptr);
}
VLM_API int VLMgetgenconstrNorm(VLMmodel* model, int id, int* resvarP, int* nvarsP, int* vars,
                                double* whichP) {
  return get_list(model, id, GenType::kNorm, resvarP, nvarsP, vars, whichP);
}
VLM_API int VLMgetgenconstrIndicator(VLMmodel* model, int id, int* binvarP, int* binvalP,
                                     int* nvarsP, int* ind, double* val, char* senseP, double* rhsP) {
  return get(model, id, GenType::kIndicator, [&](const GenConstrData& g) {
    if (binvarP) *binvarP = g.res;
    if (binvalP) *binvalP = g.binval;
    if (nvarsP) *nvarsP = static_cast<int>(g.vars.size());
    if (ind) std::copy(g.vars.begin(), g.vars.end(), ind);
    if (val) std::copy(g.vals.begin(), g.vals.end(), val);
    if (senseP) *senseP = g.sense;
    if (rhsP) *rhsP = g.rhs;
  });
}
VLM_API int VLMgetgenconstrPWL(VLMmodel* model, int id, int* xvarP, int* yvarP, int* nptsP,
                               double* xpts, double* ypts) {
  return get(model, id, GenType::kPwl, [&](const GenConstrData& g) {
    if (xvarP) *xvarP = g.arg;
    if (yvarP) *yvarP = g.res;
    if (nptsP) *nptsP = static_cast<int>(g.vals.size());
    if (xpts) std::copy(g.vals.begin(), g.vals.end(), xpts);
    if (ypts) std::copy(g.ypts.begin(), g.ypts.end(), ypts);
  });
}
VLM_API int VLMgetgenconstrPoly(VLMmodel* model, int id, int* xvarP, int* yvarP, int* plenP, double* p) {
  return get(model, id, GenType::kPoly, [&](const GenConstrData& g) {
    if (xvarP) *xvarP = g.arg;
    if (yvarP) *yvarP = g.res;
    if (plenP) *plenP = static_cast<int>(g.vals.size());
    if (p) std::copy(g.vals.begin(), g.vals.end(), p);
  });
}
VLM_API int VLMgetgenconstrExp(VLMmodel* model, int id, int* xvarP, int* yvarP) {
  return get_func(model, id, GenType::kExp, xvarP, yvarP, nullptr);
}
VLM_API int VLMgetgenconstrExpA(VLMmodel* model, int id, int* xvarP, int* yvarP, double* aP) {
  return get_func(model, id, GenType::kExpA, xvarP, yvarP, aP);
}
VLM_API int VLMgetgenconstrLog(VLMmodel* model, int id, int* xvarP, int* yvarP) {
  return get_func(model, id, GenType::kLog, xvarP, yvarP, nullptr);
}
VLM_API int VLMgetgenconstrLogA(VLMmodel* model, int id, int* xvarP, int* yvarP, double* aP) {
  return get_func(model, id, GenType::kLogA, xvarP, yvarP, aP);
}
VLM_API int VLMgetgenconstrLogistic(VLMmodel* model, int id, int* xvarP, int* yvarP) {
  return get_func(model, id, GenType::kLogistic, xvarP, yvarP, nullptr);
}
VLM_API int VLMgetgenconstrPow(VLMmodel* model, int id, int* xvarP, int* yvarP, double* aP) {
  return get_func(model, id, GenType::kPow, xvarP, yvarP, aP);
}
VLM_API int VLMgetgenconstrSin(VLMmodel* model, int id, int* xvarP, int* yvarP) {
  return get_func(model, id, GenType::kSin, xvarP, yvarP, nullptr);
}
VLM_API int VLMgetgenconstrCos(VLMmodel* model, int id, int* xvarP, int* yvarP) {
  return get_func(model, id, GenType::kCos, xvarP, yvarP, nullptr);
}
VLM_API int VLMgetgenconstrTan(VLMmodel* model, int id, int* xvarP, int* yvarP) {
  return get_func(model, id, GenType::kTan, xvarP, yvarP, nullptr);
}

}  // extern "C"
