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
