#include "model/model.h"

#include "core/text.h"
#include "model/data_edit.h"
#include "model/value_checks.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <numeric>
#include <set>

namespace vlm {

namespace {

Status invalid(std::string msg) { return Status(VLM_ERROR_INVALID_ARGUMENT, std::move(msg)); }

const char* kind_word(int kind) {
  switch (kind) {
    case VLM_KIND_VAR:
      return "Variable";
    case VLM_KIND_CONSTR:
      return "Constraint";
    case VLM_KIND_QCONSTR:
      return "Quadratic constraint";
    case VLM_KIND_SOS:
      return "SOS constraint";
    case VLM_KIND_GENCONSTR:
      return "General constraint";
    default:
      return "Element";
  }
}

Status index_error(int kind, int index, int limit) {
  return Status(VLM_ERROR_INDEX_OUT_OF_RANGE,
                std::string(kind_word(kind)) + " index " + std::to_string(index) +
                    " is out of range (the model has " + std::to_string(limit) + ")");
}

bool valid_sense(char s) { return s == '<' || s == '>' || s == '='; }

bool valid_vtype(char t) { return t == 'C' || t == 'B' || t == 'I' || t == 'S' || t == 'N'; }

std::string sense_text(char s) {
  if (s >= 32 && s < 127) return std::string("'") + s + "'";
  return "code " + std::to_string(static_cast<int>(static_cast<unsigned char>(s)));
}

// Sorts terms by index, sums duplicates and drops zeros, in place.
void merge_terms(std::vector<int>& ind, std::vector<double>& val) {
  bool sorted = true;
  for (std::size_t k = 1; k < ind.size(); ++k) {
    if (ind[k] <= ind[k - 1]) {
      sorted = false;
      break;
    }
  }
  if (!sorted) {
    std::vector<std::size_t> order(ind.size());
    std::iota(order.begin(), order.end(), 0);
    std::stable_sort(order.begin(), order.end(), [&](std::size_t a, std::size_t b) { return ind[a] < ind[b]; });
    std::vector<int> ni;
    std::vector<double> nv;
    ni.reserve(ind.size());
    nv.reserve(ind.size());
    for (std::size_t k : order) {
      if (!ni.empty() && ni.back() == ind[k]) {
        nv.back() += val[k];
      } else {
        ni.push_back(ind[k]);
        nv.push_back(val[k]);
      }
    }
    ind.swap(ni);
    val.swap(nv);
  }
  std::size_t out = 0;
  for (std::size_t k = 0; k < ind.size(); ++k) {
    if (val[k] != 0.0) {
      ind[out] = ind[k];
      val[out] = val[k];
      ++out;
    }
  }
  ind.resize(out);
  val.resize(out);
  ind.shrink_to_fit();
  val.shrink_to_fit();
}

// Quadratic terms to (i <= j) pairs, summed and without zeros.
void merge_quad(std::vector<int>& qi, std::vector<int>& qj, std::vector<double>& qv) {
  std::vector<std::size_t> order(qi.size());
  for (std::size_t k = 0; k < qi.size(); ++k) {
    if (qi[k] > qj[k]) std::swap(qi[k], qj[k]);
    order[k] = k;
  }
  std::stable_sort(order.begin(), order.end(), [&](std::size_t a, std::size_t b) {
    return qi[a] != qi[b] ? qi[a] < qi[b] : qj[a] < qj[b];
  });
  std::vector<int> ni, nj;
  std::vector<double> nv;
  for (std::size_t k : order) {
    if (!ni.empty() && ni.back() == qi[k] && nj.back() == qj[k]) {
      nv.back() += qv[k];
    } else {
      ni.push_back(qi[k]);
      nj.push_back(qj[k]);
      nv.push_back(qv[k]);
    }
  }
  std::size_t out = 0;
  for (std::size_t k = 0; k < ni.size(); ++k) {
    if (nv[k] != 0.0) {
      ni[out] = ni[k];
      nj[out] = nj[k];
      nv[out] = nv[k];
      ++out;
    }
  }
  ni.resize(out);
  nj.resize(out);
  nv.resize(out);
  qi.swap(ni);
  qj.swap(nj);
  qv.swap(nv);
}

template <class T>
void append(std::vector<T>& dst, std::vector<T>& src) {
  if (dst.empty()) {
    dst.swap(src);
  } else {
    dst.insert(dst.end(), std::make_move_iterator(src.begin()), std::make_move_iterator(src.end()));
  }
  src.clear();
}

void append(NameColumn& dst, NameColumn& src) { dst.append(src); }
void compact(NameColumn& names, const std::vector<char>& keep) { names.compact(keep); }

void grow_extra(ExtraColumns& extra, std::size_t n) {
  for (auto& [index, col] : extra.num) col.v.resize(n, col.def);
  for (auto& [index, col] : extra.str) col.v.resize(n);
}

// Old index -> new index (-1 for deleted) from a keep mask.
std::vector<int> remap_of(const std::vector<char>& keep) {
  std::vector<int> map(keep.size(), -1);
  int next = 0;
  for (std::size_t k = 0; k < keep.size(); ++k) {
    if (keep[k]) map[k] = next++;
  }
  return map;
}

template <class V>
void remap_keys(std::map<int, V>& m, const std::vector<int>& map) {
  std::map<int, V> next;
  for (auto& [k, v] : m) {
    if (k >= 0 && k < static_cast<int>(map.size()) && map[k] >= 0) next.emplace(map[k], std::move(v));
  }
  m.swap(next);
}

}  // namespace

double clamp_inf(double v) {
  if (v >= VLM_INFINITY) return VLM_INFINITY;
  if (v <= -VLM_INFINITY) return -VLM_INFINITY;
  return v;
}

bool Model::Pending::empty() const {
  if (add.num_vars() || add.num_constrs() || add.num_qconstrs() || add.num_sos() || !slacks.empty() ||
      add.num_genconstrs() || !col_entries.empty() || !changes.empty()) {
    return false;
  }
  for (const auto& d : del) {
    if (!d.empty()) return false;
  }
  return true;
}

Model::Model(const Env& env, std::string name) : env_(env) {
  env_.errors() = ErrorState();
  data_.name = std::move(name);
}

Model::Model(const Model& other) : env_(other.env_), data_(other.data_) {
  // A copy starts without solution information, as a newly read model does.
  env_.errors() = ErrorState();
}

Model::Model(const Model& other, ModelData data) : env_(other.env_), data_(std::move(data)) {
  env_.errors() = ErrorState();
}

bool Model::updatemode_immediate() const {
  // Asked once per coefficient while checking input: look the parameter up only once.
  static const int kUpdateMode = find_param("UpdateMode");
  return env_.params().get_int(kUpdateMode) == 1;
}

int Model::limit(int kind) const {
  int n = data_.count(kind);
  if (updatemode_immediate()) n += pending_.add.count(kind);
  return n;
}

bool Model::has_pending() const { return !pending_.empty(); }

Status Model::check_var(int v, const char* what) const {
  int lim = limit(VLM_KIND_VAR);
  if (v < 0 || v >= lim) {
    return Status(VLM_ERROR_INDEX_OUT_OF_RANGE, std::string(what) + " index " + std::to_string(v) +
                                                    " is out of range (the model has " +
                                                    std::to_string(lim) + " variables)");
  }
  return Status::Ok();
}

std::string Model::var_label(int v) const {
  const int n = data_.num_vars();
  const std::string& name = v < n ? data_.varname.given(v) : pending_.add.varname.given(v - n);
  return name.empty() ? "variable " + std::to_string(v) : "variable '" + name + "'";
}

Status Model::check_coef(double v, const char* what) const {
  if (!std::isfinite(v) || std::fabs(v) >= VLM_INFINITY) {
    return invalid(std::string(what) + " " + short_number(v) + " is not a finite number");
  }
  return Status::Ok();
}

void Model::queue_change(std::function<void(ModelData&)> change) {
  pending_.changes.push_back(std::move(change));
  pending_.touch_other = true;
}

void Model::queue_change(std::function<void(ModelData&)> change, Touch what, int index) {
  pending_.changes.push_back(std::move(change));
  if (what == Touch::kVar) pending_.touch_vars.push_back(index);
  if (what == Touch::kConstr) pending_.touch_constrs.push_back(index);
}

// ---- variables --------------------------------------------------------------------------------

Status Model::add_vars(int n, int numnz, const int* beg, const int* ind, const double* val,
                       const double* obj, const double* lb, const double* ub, const char* vtype,
                       const char* const* names) {
  if (n < 0) return invalid("Number of variables " + std::to_string(n) + " is negative");
  if (numnz < 0) return invalid("Number of nonzeros " + std::to_string(numnz) + " is negative");
  if (numnz > 0 && (beg == nullptr || ind == nullptr || val == nullptr)) {
    return Status(VLM_ERROR_NULL_ARGUMENT, "Column arrays are NULL but nonzeros were given");
  }
  const int constr_limit = limit(VLM_KIND_CONSTR);
  for (int j = 0; j < n && numnz > 0; ++j) {
    int b = beg[j], e = j + 1 < n ? beg[j + 1] : numnz;
    if (b < 0 || e < b || e > numnz) {
      return invalid("Column start " + std::to_string(b) + " of variable " + std::to_string(j) +
                     " is not within the nonzeros");
    }
    for (int k = b; k < e; ++k) {
      if (ind[k] < 0 || ind[k] >= constr_limit) return index_error(VLM_KIND_CONSTR, ind[k], constr_limit);
      if (!finite_coef(val[k])) {
        return coef_error(val[k], "Coefficient",
                          "of " + labelled("new variable", names ? names[j] : nullptr, j) + " in constraint " +
                              std::to_string(ind[k]));
      }
    }
  }
  for (int j = 0; j < n; ++j) {
    if (obj && !finite_coef(obj[j])) {
      return coef_error(obj[j], "Objective coefficient", "of " + labelled("new variable", names ? names[j] : nullptr, j));
    }
    if ((lb && std::isnan(lb[j])) || (ub && std::isnan(ub[j]))) return invalid("Variable bound is NaN");
    if (lb && lb[j] >= VLM_INFINITY) return invalid("Variable lower bound is +infinity");
    if (ub && ub[j] <= -VLM_INFINITY) return invalid("Variable upper bound is -infinity");
    if (vtype && !valid_vtype(vtype[j])) {
      return invalid("Invalid variable type " + sense_text(vtype[j]) +
                     " (expected 'C', 'B', 'I', 'S' or 'N')");
    }
  }
  ModelData& a = pending_.add;
  const int first = data_.num_vars() + a.num_vars();
  // Columns are filled in bulk: this is the path of large addVars calls.
  const std::size_t old = a.lb.size(), total = old + static_cast<std::size_t>(n);
  a.lb.resize(total);
  a.ub.resize(total);
  a.obj.resize(total);
  a.vtype.resize(total);
  if (names == nullptr) {
    a.varname.push_unnamed(static_cast<std::size_t>(n));
  } else if (std::any_of(names, names + n, [](const char* s) { return s != nullptr && *s != '\0'; })) {
    a.varname.reserve_named(static_cast<std::size_t>(n));
  }
  for (int j = 0; j < n; ++j) {
    const std::size_t k = old + static_cast<std::size_t>(j);
    const char t = vtype ? vtype[j] : 'C';
    a.vtype[k] = t;
    a.lb[k] = lb ? clamp_inf(lb[j]) : 0.0;
    a.ub[k] = ub ? clamp_inf(ub[j]) : (t == 'B' ? 1.0 : VLM_INFINITY);
    a.obj[k] = obj ? obj[j] : 0.0;
    if (names) a.varname.push_back(names[j] ? names[j] : "");
    if (numnz > 0) {
      int b = beg[j], e = j + 1 < n ? beg[j + 1] : numnz;
      std::vector<int> ci(ind + b, ind + e);
      std::vector<double> cv(val + b, val + e);
      merge_terms(ci, cv);
      for (std::size_t q = 0; q < ci.size(); ++q) pending_.col_entries.push_back({first + j, ci[q], cv[q]});
    }
  }
  return Status::Ok();
}

// ---- linear constraints -------------------------------------------------------------------

Status Model::add_constrs(int n, int numnz, const int* beg, const int* ind, const double* val,
                          const char* sense, const double* rhs, const char* const* names) {
  if (n < 0) return invalid("Number of constraints " + std::to_string(n) + " is negative");
  if (numnz < 0) return invalid("Number of nonzeros " + std::to_string(numnz) + " is negative");
  if (numnz > 0 && (beg == nullptr || ind == nullptr || val == nullptr)) {
    return Status(VLM_ERROR_NULL_ARGUMENT, "Row arrays are NULL but nonzeros were given");
  }
  if (n > 0 && (sense == nullptr || rhs == nullptr)) {
    return Status(VLM_ERROR_NULL_ARGUMENT, "Senses and right-hand sides are required");
  }
  for (int i = 0; i < n; ++i) {
    if (!valid_sense(sense[i])) {
      return invalid("Invalid constraint sense " + sense_text(sense[i]) + " (expected '<', '>' or '=')");
    }
    if (!finite_coef(rhs[i])) {
      VLM_RETURN_IF_ERROR(check_rhs(rhs[i], sense[i], labelled("new constraint", names ? names[i] : nullptr, i)));
    }
    if (numnz > 0) {
      int b = beg[i], e = i + 1 < n ? beg[i + 1] : numnz;
      if (b < 0 || e < b || e > numnz) {
        return invalid("Row start " + std::to_string(b) + " of constraint " + std::to_string(i) +
                       " is not within the nonzeros");
      }
      for (int k = b; k < e; ++k) {
        VLM_RETURN_IF_ERROR(check_var(ind[k], "Variable"));
        if (!finite_coef(val[k])) {
          return coef_error(val[k], "Coefficient",
                            "of " + var_label(ind[k]) + " in " +
                                labelled("new constraint", names ? names[i] : nullptr, i));
        }
      }
    }
  }
  ModelData& a = pending_.add;
  for (int i = 0; i < n; ++i) {
    Row row;
    if (numnz > 0) {
      int b = beg[i], e = i + 1 < n ? beg[i + 1] : numnz;
      row.ind.assign(ind + b, ind + e);
      row.val.assign(val + b, val + e);
      merge_terms(row.ind, row.val);
    }
    a.rows.push_back(std::move(row));
    a.csense.push_back(sense[i]);
    a.rhs.push_back(clamp_inf(rhs[i]));
    a.constrname.push_back(names && names[i] ? names[i] : "");
  }
  return Status::Ok();
}

Status Model::add_range_constr(int numnz, const int* ind, const double* val, double lower,
                               double upper, const char* name) {
  const std::string element = labelled("range constraint", name, data_.num_constrs() + pending_.add.num_constrs());
  if (std::isnan(lower) || std::isnan(upper)) return invalid("Range bound NaN of " + element + " is not a number");
  lower = clamp_inf(lower);
  upper = clamp_inf(upper);
  if (lower >= VLM_INFINITY || upper <= -VLM_INFINITY) {
    return invalid("Range [" + short_number(lower) + ", " + short_number(upper) + "] of " + element +
                   " can never be met");
  }
  if (lower > upper) {
    return invalid("Range lower bound " + short_number(lower) + " exceeds upper bound " + short_number(upper) +
                   " in " + element);
  }
  // The slack s turns lower <= a'x <= upper into a'x - s = rhs: rhs is the finite end of
  // the range, and s spans the range relative to it.
  double rhs = 0.0, slb = -VLM_INFINITY, sub = VLM_INFINITY;
  if (lower > -VLM_INFINITY) {
    rhs = lower;
    slb = 0.0;
    sub = upper >= VLM_INFINITY ? VLM_INFINITY : upper - lower;
  } else if (upper < VLM_INFINITY) {
    rhs = upper;
    slb = -VLM_INFINITY;
    sub = 0.0;
  }
  const int row_index = data_.num_constrs() + pending_.add.num_constrs();
  std::string cname = name ? std::string(name) : std::string();
  for (int k = 0; k < numnz; ++k) {
    VLM_RETURN_IF_ERROR(check_var(ind[k], "Variable"));
    if (!finite_coef(val[k])) return coef_error(val[k], "Coefficient", "of " + var_label(ind[k]) + " in " + element);
  }
  pending_.slacks.push_back(
      {pending_.add.num_constrs(), "Rg" + (name ? cname : "R" + std::to_string(row_index)), slb, sub});
  Row row;
  row.ind.assign(ind, ind + numnz);
  row.val.assign(val, val + numnz);
  merge_terms(row.ind, row.val);
  pending_.add.rows.push_back(std::move(row));
  pending_.add.csense.push_back('=');
  pending_.add.rhs.push_back(rhs);
  pending_.add.constrname.push_back(cname);
  return Status::Ok();
}

// ---- quadratic, SOS and general constraints ---------------------------------------------------

Status Model::check_qconstr(const QConstrData& q) const {
  if (!valid_sense(q.sense)) {
    return invalid("Invalid constraint sense " + sense_text(q.sense) + " (expected '<', '>' or '=')");
  }
  const std::string element =
      labelled("quadratic constraint", q.name.c_str(), data_.num_qconstrs() + pending_.add.num_qconstrs());
  VLM_RETURN_IF_ERROR(check_rhs(q.rhs, q.sense, element));
  if (q.lind.size() != q.lval.size() || q.qrow.size() != q.qcol.size() || q.qrow.size() != q.qval.size()) {
    return invalid("Quadratic constraint term arrays differ in length");
  }
  for (std::size_t k = 0; k < q.lind.size(); ++k) {
    VLM_RETURN_IF_ERROR(check_var(q.lind[k], "Variable"));
    if (!finite_coef(q.lval[k])) {
      return coef_error(q.lval[k], "Coefficient", "of " + var_label(q.lind[k]) + " in " + element);
    }
  }
  for (std::size_t k = 0; k < q.qrow.size(); ++k) {
    VLM_RETURN_IF_ERROR(check_var(q.qrow[k], "Variable"));
    VLM_RETURN_IF_ERROR(check_var(q.qcol[k], "Variable"));
    if (!finite_coef(q.qval[k])) {
      return coef_error(q.qval[k], "Quadratic coefficient",
                        "of " + var_label(q.qrow[k]) + " * " + var_label(q.qcol[k]) + " in " + element);
    }
  }
  return Status::Ok();
}

Status Model::add_qconstr(QConstrData q) {
  std::vector<QConstrData> one;
  one.push_back(std::move(q));
  return add_qconstrs(std::move(one));
}

Status Model::add_qconstrs(std::vector<QConstrData> qs) {
  for (const QConstrData& q : qs) VLM_RETURN_IF_ERROR(check_qconstr(q));
  for (QConstrData& q : qs) {
    merge_terms(q.lind, q.lval);
    merge_quad(q.qrow, q.qcol, q.qval);
    q.rhs = clamp_inf(q.rhs);
    if (q.name.empty()) q.name = "QC" + std::to_string(data_.num_qconstrs() + pending_.add.num_qconstrs());
    pending_.add.qconstrs.push_back(std::move(q));
  }
  return Status::Ok();
}

Status Model::add_sos(int numsos, int nummembers, const int* types, const int* beg,
                      const int* ind, const double* weight) {
  if (numsos < 0 || nummembers < 0) return invalid("Negative SOS count");
  if (numsos > 0 && (types == nullptr || beg == nullptr)) {
    return Status(VLM_ERROR_NULL_ARGUMENT, "SOS types and starts are required");
  }
  if (nummembers > 0 && (ind == nullptr || weight == nullptr)) {
    return Status(VLM_ERROR_NULL_ARGUMENT, "SOS members and weights are required");
  }
  std::vector<SosData> sets;
  for (int i = 0; i < numsos; ++i) {
    if (types[i] != 1 && types[i] != 2) {
      return invalid("Invalid SOS type " + std::to_string(types[i]) + " (expected 1 or 2)");
    }
    int b = beg[i], e = i + 1 < numsos ? beg[i + 1] : nummembers;
    if (b < 0 || e < b || e > nummembers) return invalid("SOS start is not within the members");
    SosData s;
    s.type = types[i];
    std::set<int> seen;
    for (int k = b; k < e; ++k) {
      VLM_RETURN_IF_ERROR(check_var(ind[k], "SOS member"));
      VLM_RETURN_IF_ERROR(check_coef(weight[k], "SOS weight"));
      if (!seen.insert(ind[k]).second) {
        return Status(VLM_ERROR_DUPLICATES,
                      "Variable " + std::to_string(ind[k]) + " appears twice in an SOS constraint");
      }
      s.ind.push_back(ind[k]);
      s.weight.push_back(weight[k]);
    }
    sets.push_back(std::move(s));
  }
  for (auto& s : sets) pending_.add.sos.push_back(std::move(s));
  return Status::Ok();
}

namespace {

// Parses "FuncPieces=5 FuncPieceError=0.01 ..." (names ignore case) and checks the values.
Status check_options(const std::string& options) {
  std::size_t pos = 0;
  while (pos < options.size()) {
    while (pos < options.size() && (options[pos] == ' ' || options[pos] == ',' || options[pos] == '\t')) ++pos;
    if (pos >= options.size()) break;
    std::size_t end = options.find_first_of(" ,\t", pos);
    std::string word = options.substr(pos, end == std::string::npos ? std::string::npos : end - pos);
    pos = end == std::string::npos ? options.size() : end;
    std::size_t eq = word.find('=');
    if (eq == std::string::npos) {
      return invalid("Invalid option '" + word + "' in options text (expected Name=value)");
    }
    std::string key = word.substr(0, eq), value = word.substr(eq + 1);
    std::string low;
    for (char c : key) low.push_back(static_cast<char>(std::tolower(static_cast<unsigned char>(c))));
    static const char* const known[] = {"funcpieces", "funcpieceerror", "funcpiecelength",
                                        "funcpieceratio", "funcnonlinear"};
    bool ok = false;
    for (const char* k : known) ok = ok || low == k;
    if (!ok) {
      return invalid("Unknown option '" + key +
                     "' in options text (expected FuncPieces, FuncPieceError, FuncPieceLength, "
                     "FuncPieceRatio or FuncNonlinear)");
    }
    char* endp = nullptr;
    double v = std::strtod(value.c_str(), &endp);
    if (value.empty() || *endp != '\0' || std::isnan(v)) {
      return invalid("Option '" + key + "' has the non-numeric value '" + value + "'");
    }
  }
  return Status::Ok();
}

}  // namespace

Status Model::add_genconstr(GenConstrData g) {
  const int t = static_cast<int>(g.type);
  if (t < 0 || t >= kNumGenTypes) return invalid("Invalid general constraint type " + std::to_string(t));
  auto is_binary = [&](int v) {
    int n = data_.num_vars();
    char vt = v < n ? data_.vtype[v] : pending_.add.vtype[v - n];
    double l = v < n ? data_.lb[v] : pending_.add.lb[v - n];
    double u = v < n ? data_.ub[v] : pending_.add.ub[v - n];
    return vt == 'B' || (vt == 'I' && l >= 0.0 && u <= 1.0);
  };
  for (int v : g.vars) VLM_RETURN_IF_ERROR(check_var(v, "Variable"));
  const auto gen_label = [this](const GenConstrData& c) {
    return labelled("general constraint", c.name.c_str(), data_.num_genconstrs() + pending_.add.num_genconstrs());
  };
  for (double v : g.vals) {
    if (!finite_coef(v)) return coef_error(v, "Coefficient", "of " + gen_label(g));
  }
  switch (g.type) {
    case GenType::kMax:
    case GenType::kMin:
      VLM_RETURN_IF_ERROR(check_var(g.res, "Result variable"));
      if (std::isnan(g.a)) return invalid("Constant is NaN");
      g.a = clamp_inf(g.a);
      break;
    case GenType::kAbs:
      VLM_RETURN_IF_ERROR(check_var(g.res, "Result variable"));
      VLM_RETURN_IF_ERROR(check_var(g.arg, "Argument variable"));
      break;
    case GenType::kAnd:
    case GenType::kOr:
      VLM_RETURN_IF_ERROR(check_var(g.res, "Result variable"));
      if (!is_binary(g.res)) {
        return invalid("Result variable " + std::to_string(g.res) + " of an AND/OR constraint must be binary");
      }
      for (int v : g.vars) {
        if (!is_binary(v)) {
          return invalid("Variable " + std::to_string(v) + " of an AND/OR constraint must be binary");
        }
      }
      break;
    case GenType::kNorm:
      VLM_RETURN_IF_ERROR(check_var(g.res, "Result variable"));
      if (g.a >= VLM_INFINITY) g.a = VLM_INFINITY;
      if (!(g.a == 0.0 || g.a == 1.0 || g.a == 2.0 || g.a == VLM_INFINITY)) {
        return invalid("Invalid norm " + short_number(g.a) + " (expected 0, 1, 2 or infinity)");
      }
      break;
    case GenType::kIndicator:
      VLM_RETURN_IF_ERROR(check_var(g.res, "Indicator variable"));
      if (!is_binary(g.res)) {
        return invalid("Indicator variable " + std::to_string(g.res) + " must be binary");
      }
      if (g.binval != 0 && g.binval != 1) {
        return invalid("Indicator value " + std::to_string(g.binval) + " must be 0 or 1");
      }
      if (!valid_sense(g.sense)) {
        return invalid("Invalid constraint sense " + sense_text(g.sense) + " (expected '<', '>' or '=')");
      }
      if (g.vars.size() != g.vals.size()) return invalid("Indicator term arrays differ in length");
      VLM_RETURN_IF_ERROR(check_rhs(g.rhs, g.sense, labelled("indicator constraint", g.name.c_str(),
                                                             data_.num_genconstrs() + pending_.add.num_genconstrs())));
      g.rhs = clamp_inf(g.rhs);
      merge_terms(g.vars, g.vals);
      break;
    case GenType::kPwl:
      VLM_RETURN_IF_ERROR(check_var(g.arg, "x variable"));
      VLM_RETURN_IF_ERROR(check_var(g.res, "y variable"));
      if (g.vals.size() != g.ypts.size()) return invalid("PWL x and y points differ in number");
      if (g.vals.size() < 2) return invalid("A PWL constraint needs at least two points");
      for (double y : g.ypts) VLM_RETURN_IF_ERROR(check_coef(y, "PWL y value"));
      for (std::size_t k = 1; k < g.vals.size(); ++k) {
        if (g.vals[k] < g.vals[k - 1]) {
          return invalid("PWL x values must not decrease (point " + std::to_string(k) + ")");
        }
      }
      break;
    default:  // the function constraints y = f(x)
      VLM_RETURN_IF_ERROR(check_var(g.arg, "x variable"));
      VLM_RETURN_IF_ERROR(check_var(g.res, "y variable"));
      if (g.type == GenType::kPoly && g.vals.empty()) return invalid("A polynomial needs coefficients");
      if (g.type == GenType::kExpA || g.type == GenType::kLogA) {
        if (!(g.a > 0.0) || !finite_coef(g.a)) {
          return invalid("Base " + short_number(g.a) + " of " + gen_label(g) + " must be positive and finite");
        }
        if (g.type == GenType::kLogA && g.a == 1.0) return invalid("Base of a logarithm must not be 1");
      }
      if (g.type == GenType::kPow && !finite_coef(g.a)) {
        return invalid("Exponent " + short_number(g.a) + " of " + gen_label(g) + " is not a finite number");
      }
      VLM_RETURN_IF_ERROR(check_options(g.options));
      break;
  }
  if (g.name.empty()) g.name = "GC" + std::to_string(data_.num_genconstrs() + pending_.add.num_genconstrs());
  pending_.add.genconstrs.push_back(std::move(g));
  return Status::Ok();
}

Status Model::add_genconstrs(std::vector<GenConstrData> gs) {
  // add_genconstr checks everything before it queues, so cutting the queue back to its old
  // length undoes the records already taken.
  const std::size_t mark = pending_.add.genconstrs.size();
  for (GenConstrData& g : gs) {
    Status s = add_genconstr(std::move(g));
    if (!s.ok()) {
      pending_.add.genconstrs.resize(mark);
      return s;
    }
  }
  return Status::Ok();
}

// ---- objective and coefficient changes --------------------------------------------------------

Status Model::add_qpterms(int n, const int* qrow, const int* qcol, const double* qval) {
  if (n < 0) return invalid("Number of quadratic terms is negative");
  if (n > 0 && (qrow == nullptr || qcol == nullptr || qval == nullptr)) {
    return Status(VLM_ERROR_NULL_ARGUMENT, "Quadratic term arrays are NULL");
  }
  for (int k = 0; k < n; ++k) {
    VLM_RETURN_IF_ERROR(check_var(qrow[k], "Variable"));
    VLM_RETURN_IF_ERROR(check_var(qcol[k], "Variable"));
    if (!finite_coef(qval[k])) {
      return coef_error(qval[k], "Quadratic coefficient",
                        "of " + var_label(qrow[k]) + " * " + var_label(qcol[k]) + " in the objective");
    }
  }
  std::vector<int> i(qrow, qrow + n), j(qcol, qcol + n);
  std::vector<double> v(qval, qval + n);
  queue_change([i = std::move(i), j = std::move(j), v = std::move(v)](ModelData& d) {
    d.qrow.insert(d.qrow.end(), i.begin(), i.end());
    d.qcol.insert(d.qcol.end(), j.begin(), j.end());
    d.qval.insert(d.qval.end(), v.begin(), v.end());
    merge_quad(d.qrow, d.qcol, d.qval);
  });
  return Status::Ok();
}

Status Model::del_q() {
  queue_change([](ModelData& d) {
    d.qrow.clear();
    d.qcol.clear();
    d.qval.clear();
  });
  return Status::Ok();
}

Status Model::chg_coeffs(int n, const int* cind, const int* vind, const double* val) {
  if (n < 0) return invalid("Number of coefficient changes is negative");
  if (n > 0 && (cind == nullptr || vind == nullptr || val == nullptr)) {
    return Status(VLM_ERROR_NULL_ARGUMENT, "Coefficient change arrays are NULL");
  }
  const int climit = limit(VLM_KIND_CONSTR);
  for (int k = 0; k < n; ++k) {
    if (cind[k] < 0 || cind[k] >= climit) return index_error(VLM_KIND_CONSTR, cind[k], climit);
    VLM_RETURN_IF_ERROR(check_var(vind[k], "Variable"));
    VLM_RETURN_IF_ERROR(check_coef(val[k], "Coefficient"));
  }
  std::vector<int> c(cind, cind + n), v(vind, vind + n);
  std::vector<double> x(val, val + n);
  queue_change([c = std::move(c), v = std::move(v), x = std::move(x)](ModelData& d) {
    for (std::size_t k = 0; k < c.size(); ++k) {
      Row& row = d.rows[c[k]];
      auto it = std::find(row.ind.begin(), row.ind.end(), v[k]);
      if (it != row.ind.end()) {
        std::size_t p = static_cast<std::size_t>(it - row.ind.begin());
        if (x[k] == 0.0) {
          row.ind.erase(row.ind.begin() + p);
          row.val.erase(row.val.begin() + p);
        } else {
          row.val[p] = x[k];
        }
      } else if (x[k] != 0.0) {
        row.ind.push_back(v[k]);
        row.val.push_back(x[k]);
      }
    }
  });
  return Status::Ok();
}

Status Model::set_pwlobj(int var, int n, const double* x, const double* y) {
  VLM_RETURN_IF_ERROR(check_var(var, "Variable"));
  if (n < 0) return invalid("Number of PWL points is negative");
  if (n > 0 && (x == nullptr || y == nullptr)) return Status(VLM_ERROR_NULL_ARGUMENT, "PWL points are NULL");
  if (n == 1) {
    return Status(VLM_ERROR_INVALID_PIECEWISE_OBJ, "A piecewise-linear objective needs at least two points");
  }
  for (int k = 0; k < n; ++k) {
    if (!std::isfinite(x[k]) || !std::isfinite(y[k])) {
      return Status(VLM_ERROR_INVALID_PIECEWISE_OBJ, "PWL objective points must be finite");
    }
    if (k > 0 && x[k] < x[k - 1]) {
      return Status(VLM_ERROR_INVALID_PIECEWISE_OBJ,
                    "PWL objective x values must not decrease (point " + std::to_string(k) + ")");
    }
  }
  PwlObj p{std::vector<double>(x, x + n), std::vector<double>(y, y + n)};
  queue_change([var, p = std::move(p)](ModelData& d) {
    if (p.x.empty()) {
      d.pwlobj.erase(var);
    } else {
      d.pwlobj[var] = p;
    }
  });
  return Status::Ok();
}

Status Model::set_objective(int sense, double constant, int lnz, const int* lind,
                            const double* lval, int qnz, const int* qrow, const int* qcol,
                            const double* qval) {
  if (sense != 0 && sense != 1 && sense != -1) {
    return invalid("Objective sense " + std::to_string(sense) + " must be 1 (minimize), -1 (maximize) or 0");
  }
  VLM_RETURN_IF_ERROR(check_coef(constant, "Objective constant"));
  if (lnz < 0 || (lnz > 0 && (lind == nullptr || lval == nullptr))) return invalid("Invalid linear objective arrays");
  for (int k = 0; k < lnz; ++k) {
    VLM_RETURN_IF_ERROR(check_var(lind[k], "Variable"));
    VLM_RETURN_IF_ERROR(check_coef(lval[k], "Objective coefficient"));
  }
  if (qnz < 0 || (qnz > 0 && (qrow == nullptr || qcol == nullptr || qval == nullptr))) {
    return invalid("Invalid quadratic objective arrays");
  }
  for (int k = 0; k < qnz; ++k) {
    VLM_RETURN_IF_ERROR(check_var(qrow[k], "Variable"));
    VLM_RETURN_IF_ERROR(check_var(qcol[k], "Variable"));
    VLM_RETURN_IF_ERROR(check_coef(qval[k], "Quadratic coefficient"));
  }
  std::vector<int> li(lind, lind + lnz), qi(qrow, qrow + qnz), qj(qcol, qcol + qnz);
  std::vector<double> lv(lval, lval + lnz), qv(qval, qval + qnz);
  queue_change([=](ModelData& d) mutable {
    if (sense != 0) d.sense = sense;
    d.objcon = constant;
    std::fill(d.obj.begin(), d.obj.end(), 0.0);
    for (std::size_t k = 0; k < li.size(); ++k) d.obj[li[k]] += lv[k];
    merge_quad(qi, qj, qv);
    d.qrow = std::move(qi);
    d.qcol = std::move(qj);
    d.qval = std::move(qv);
  });
  return Status::Ok();
}

Status Model::set_objectiven(int index, int priority, double weight, double abstol, double reltol,
                             const char* name, double constant, int lnz, const int* lind,
                             const double* lval) {
  if (index < 0 || index >= 10000) {
    return Status(VLM_ERROR_INDEX_OUT_OF_RANGE, "Objective index " + std::to_string(index) + " is out of range");
  }
  VLM_RETURN_IF_ERROR(check_coef(weight, "Objective weight"));
  VLM_RETURN_IF_ERROR(check_coef(constant, "Objective constant"));
  if (std::isnan(abstol) || abstol < 0 || std::isnan(reltol) || reltol < 0) {
    return invalid("Objective tolerances must be non-negative");
  }
  if (lnz < 0 || (lnz > 0 && (lind == nullptr || lval == nullptr))) {
    return invalid("Invalid objective coefficient arrays");
  }
  for (int k = 0; k < lnz; ++k) {
    VLM_RETURN_IF_ERROR(check_var(lind[k], "Variable"));
    VLM_RETURN_IF_ERROR(check_coef(lval[k], "Objective coefficient"));
  }
  std::vector<int> i(lind, lind + lnz);
  std::vector<double> v(lval, lval + lnz);
  std::string nm = name ? name : "";
  queue_change([=](ModelData& d) {
    if (static_cast<int>(d.objn.size()) <= index) d.objn.resize(index + 1);
    ObjectiveN& o = d.objn[index];
    o.priority = priority;
    o.weight = weight;
    o.abstol = abstol;
    o.reltol = reltol;
    o.con = constant;
    o.name = nm;
    o.coef.assign(d.num_vars(), 0.0);
    for (std::size_t k = 0; k < i.size(); ++k) o.coef[i[k]] += v[k];
  });
  return Status::Ok();
}

// ---- deletion ----------------------------------------------------------------------------------

Status Model::del_elements(int kind, int n, const int* ind) {
  if (kind < VLM_KIND_VAR || kind > VLM_KIND_GENCONSTR) return invalid("Invalid element kind");
  if (n < 0) return invalid("Number of deletions is negative");
  if (n > 0 && ind == nullptr) return Status(VLM_ERROR_NULL_ARGUMENT, "Deletion index array is NULL");
  const int lim = limit(kind);
  for (int k = 0; k < n; ++k) {
    if (ind[k] < 0 || ind[k] >= lim) return index_error(kind, ind[k], lim);
  }
  pending_.del[kind].insert(pending_.del[kind].end(), ind, ind + n);
  return Status::Ok();
}

// ---- update ------------------------------------------------------------------------------------

Status Model::update() {
  if (pending_.empty()) return Status::Ok();
  ++data_version_;
  solution_.reset();  // a changed model has no solution
  iis_.reset();
  ModelData& d = data_;
  ModelData& a = pending_.add;
  const bool only_additions = pending_.changes.empty() &&
                              std::all_of(std::begin(pending_.del), std::end(pending_.del),
                                          [](const std::vector<int>& v) { return v.empty(); });
  const int old_vars = d.num_vars(), old_constrs = d.num_constrs();
  const int old_q = d.num_qconstrs(), old_gen = d.num_genconstrs();

  // The engine's record of what changed: precise only while nothing is added or deleted and
  // every change said what it touches. A record far longer than the model (many updates
  // without a solve) says "anything" instead, which costs the engine one compare.
  const bool only_touches = !pending_.touch_other && a.num_vars() == 0 && a.num_constrs() == 0 &&
                            a.num_qconstrs() == 0 && a.num_sos() == 0 && a.num_genconstrs() == 0 &&
                            pending_.slacks.empty() && pending_.col_entries.empty() &&
                            std::all_of(std::begin(pending_.del), std::end(pending_.del),
                                        [](const std::vector<int>& v) { return v.empty(); });
  const std::size_t var_cap = 2 * static_cast<std::size_t>(old_vars) + 64;
  const std::size_t constr_cap = 2 * static_cast<std::size_t>(old_constrs) + 64;
  if (!only_touches || touched_.vars.size() + pending_.touch_vars.size() > var_cap ||
      touched_.constrs.size() + pending_.touch_constrs.size() > constr_cap) {
    touched_.other = true;
  }
  if (touched_.other) {
    touched_.vars.clear();
    touched_.constrs.clear();
  } else {
    append(touched_.vars, pending_.touch_vars);
    append(touched_.constrs, pending_.touch_constrs);
  }
  pending_.touch_vars.clear();
  pending_.touch_constrs.clear();
  pending_.touch_other = false;

  // 1. Additions.
  append(d.lb, a.lb);
  append(d.ub, a.ub);
  append(d.obj, a.obj);
  append(d.vtype, a.vtype);
  append(d.varname, a.varname);
  for (const auto& sl : pending_.slacks) {
    d.lb.push_back(sl.lb);
    d.ub.push_back(sl.ub);
    d.obj.push_back(0.0);
    d.vtype.push_back('C');
    d.varname.push_back(sl.name);
  }
  for (std::size_t k = 0; k < pending_.slacks.size(); ++k) {
    Row& r = a.rows[pending_.slacks[k].row];
    r.ind.push_back(d.num_vars() - static_cast<int>(pending_.slacks.size()) + static_cast<int>(k));
    r.val.push_back(-1.0);
  }
  pending_.slacks.clear();
  append(d.rows, a.rows);
  append(d.csense, a.csense);
  append(d.rhs, a.rhs);
  append(d.constrname, a.constrname);
  append(d.qconstrs, a.qconstrs);
  append(d.sos, a.sos);
  append(d.genconstrs, a.genconstrs);
  for (int kind = VLM_KIND_VAR; kind <= VLM_KIND_GENCONSTR; ++kind) {
    grow_extra(d.extra[kind], static_cast<std::size_t>(d.count(kind)));
  }
  for (ObjectiveN& o : d.objn) o.coef.resize(d.num_vars(), 0.0);
  for (const auto& e : pending_.col_entries) {
    d.rows[e.constr].ind.push_back(e.var);
    d.rows[e.constr].val.push_back(e.val);
  }
  pending_.col_entries.clear();

  // 2. Modifications in the order they were made.
  for (auto& change : pending_.changes) change(d);
  pending_.changes.clear();

  // The kept basis follows the additions: new variables start nonbasic at a finite bound (or
  // free), new rows basic.
  if (warm_) {
    for (int j = static_cast<int>(warm_->vbasis.size()); j < d.num_vars(); ++j) {
      warm_->vbasis.push_back(d.lb[j] > -VLM_INFINITY ? -1 : d.ub[j] < VLM_INFINITY ? -2 : -3);
    }
    warm_->cbasis.resize(d.num_constrs(), 0);
  }

  // 3. Deletions, variables first: a general constraint whose result or argument variable
  // goes is deleted with it.
  sync_ids();
  std::vector<int>* del = pending_.del;
  if (!del[VLM_KIND_VAR].empty() || !del[VLM_KIND_CONSTR].empty()) warm_.reset();
  if (!del[VLM_KIND_VAR].empty()) {
    std::vector<char> keep(d.num_vars(), 1);
    for (int v : del[VLM_KIND_VAR]) keep[v] = 0;
    std::vector<int> map = remap_of(keep);
    compact(ids_[0], keep);
    compact(d.lb, keep);
    compact(d.ub, keep);
    compact(d.obj, keep);
    compact(d.vtype, keep);
    compact(d.varname, keep);
    compact_extra(d.extra[VLM_KIND_VAR], keep);
    for (Row& r : d.rows) remap_terms(r.ind, r.val, map);
    for (ObjectiveN& o : d.objn) compact(o.coef, keep);
    remap_quad_terms(d.qrow, d.qcol, d.qval, map);
    for (QConstrData& q : d.qconstrs) {
      remap_terms(q.lind, q.lval, map);
      remap_quad_terms(q.qrow, q.qcol, q.qval, map);
    }
    for (SosData& s : d.sos) remap_terms(s.ind, s.weight, map);
    for (int g = 0; g < d.num_genconstrs(); ++g) {
      GenConstrData& gc = d.genconstrs[g];
      bool gone = (gc.res >= 0 && map[gc.res] < 0) || (gc.arg >= 0 && map[gc.arg] < 0);
      if (gone) {
        del[VLM_KIND_GENCONSTR].push_back(g);
        continue;
      }
      if (gc.res >= 0) gc.res = map[gc.res];
      if (gc.arg >= 0) gc.arg = map[gc.arg];
      if (gc.type == GenType::kIndicator) {
        remap_terms(gc.vars, gc.vals, map);
      } else if (gc.type != GenType::kPwl && gc.type != GenType::kPoly) {
        std::size_t out = 0;
        for (int v : gc.vars) {
          if (map[v] >= 0) gc.vars[out++] = map[v];
        }
        gc.vars.resize(out);
      }
    }
    remap_keys(d.pwlobj, map);
    for (Scenario& s : d.scenarios) {
      remap_keys(s.lb, map);
      remap_keys(s.ub, map);
      remap_keys(s.obj, map);
    }
  }
  if (!del[VLM_KIND_CONSTR].empty()) {
    std::vector<char> keep(d.num_constrs(), 1);
    for (int c : del[VLM_KIND_CONSTR]) keep[c] = 0;
    std::vector<int> map = remap_of(keep);
    compact(ids_[1], keep);
    compact(d.rows, keep);
    compact(d.csense, keep);
    compact(d.rhs, keep);
    compact(d.constrname, keep);
    compact_extra(d.extra[VLM_KIND_CONSTR], keep);
    for (Scenario& s : d.scenarios) remap_keys(s.rhs, map);
  }
  auto drop = [&](int kind, auto& list) {
    if (del[kind].empty()) return;
    std::vector<char> keep(list.size(), 1);
    for (int i : del[kind]) keep[i] = 0;
    compact(list, keep);
    compact_extra(d.extra[kind], keep);
  };
  drop(VLM_KIND_QCONSTR, d.qconstrs);
  drop(VLM_KIND_SOS, d.sos);
  drop(VLM_KIND_GENCONSTR, d.genconstrs);
  for (int kind = 0; kind < 6; ++kind) del[kind].clear();

  // The name indices follow additions cheaply; anything else may rename or renumber.
  if (only_additions) {
    auto extend = [&](int kind, int from, auto name_of) {
      if (!names_built_[kind]) return;
      for (int i = from; i < d.count(kind); ++i) names_[kind].emplace(name_of(i), i);
    };
    extend(VLM_KIND_VAR, old_vars, [&](int i) { return d.varname[i]; });
    extend(VLM_KIND_CONSTR, old_constrs, [&](int i) { return d.constrname[i]; });
    extend(VLM_KIND_QCONSTR, old_q, [&](int i) { return d.qconstrs[i].name; });
    extend(VLM_KIND_GENCONSTR, old_gen, [&](int i) { return d.genconstrs[i].name; });
  } else {
    for (int kind = 0; kind < 6; ++kind) drop_name_index(kind);
  }
  a = ModelData();
  return Status::Ok();
}

void Model::reset(bool clearall) {
  // The guiding inputs are the attribute layer's (clear_guidance); the kept basis is one too.
  solution_.reset();
  iis_.reset();
  cold_start_ = true;
  if (clearall) warm_.reset();
}

void Model::sync_ids() {
  const int counts[2] = {data_.num_vars(), data_.num_constrs()};
  for (int k = 0; k < 2; ++k) {
    auto n = static_cast<std::size_t>(counts[k]);
    if (ids_[k].size() > n) ids_[k].clear();  // out of step: nothing is known to survive
    while (ids_[k].size() < n) ids_[k].push_back(next_id_++);
  }
}

const std::vector<std::uint64_t>& Model::element_ids(int kind) {
  static const std::vector<std::uint64_t> kNone;
  if (kind != VLM_KIND_VAR && kind != VLM_KIND_CONSTR) return kNone;
  sync_ids();
  return ids_[kind == VLM_KIND_VAR ? 0 : 1];
}

void Model::drop_name_index(int kind) {
  names_[kind].clear();
  names_built_[kind] = false;
}

int Model::find_by_name(int kind, std::string_view name) {
  if (kind < 0 || kind >= 6) return -1;
  if (!names_built_[kind]) {
    auto& index = names_[kind];
    index.clear();
    const ModelData& d = data_;
    for (int i = 0; i < d.count(kind); ++i) {
      switch (kind) {
        case VLM_KIND_VAR:
          index.emplace(d.varname[i], i);
          break;
        case VLM_KIND_CONSTR:
          index.emplace(d.constrname[i], i);
          break;
        case VLM_KIND_QCONSTR:
          index.emplace(d.qconstrs[i].name, i);
          break;
        case VLM_KIND_GENCONSTR:
          index.emplace(d.genconstrs[i].name, i);
          break;
        default:
          break;
      }
    }
    names_built_[kind] = true;
  }
  auto it = names_[kind].find(std::string(name));
  return it == names_[kind].end() ? -1 : it->second;
}

}  // namespace vlm
