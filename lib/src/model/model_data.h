// ModelData: the updated state of one model, held column-wise per element kind.
//
// Invariants (hold after every update):
// - vars.size() == every per-variable column's size; constrs likewise; rows[i] lists each
//   variable at most once, with a non-zero finite coefficient, in no particular order;
// - every variable index stored anywhere (rows, qobj, qconstrs, sos, genconstrs, pwl, objn,
//   scenarios) is in [0, num_vars()); constraint indices in scenarios are in [0, num_constrs());
// - qobj holds each pair once with row <= col and a non-zero value;
// - doubles at or beyond VLM_INFINITY in magnitude are stored as exactly +-VLM_INFINITY.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <unordered_map>
#include <vector>

#include "velmor_codes.h"

namespace vlm {

enum class GenType : int {
  kMax = 0,
  kMin = 1,
  kAbs = 2,
  kAnd = 3,
  kOr = 4,
  kNorm = 5,
  kIndicator = 6,
  kPwl = 7,
  kPoly = 8,
  kExp = 9,
  kExpA = 10,
  kLog = 11,
  kLogA = 12,
  kPow = 13,
  kSin = 14,
  kCos = 15,
  kTan = 16,
  kLogistic = 17,
};
inline constexpr int kNumGenTypes = 18;

// Name of a general constraint type as files show it ("MAX", "INDICATOR", "LOGISTIC", ...).
const char* gen_type_name(GenType t);

struct Row {
  std::vector<int> ind;
  std::vector<double> val;
};

struct QConstrData {
  std::vector<int> lind;
  std::vector<double> lval;
  std::vector<int> qrow, qcol;
  std::vector<double> qval;
  char sense = '<';
  double rhs = 0.0;
  std::string name;
};

struct SosData {
  int type = 1;
  std::vector<int> ind;
  std::vector<double> weight;
};

// One general constraint, a tagged record. Field use by type:
// - MAX/MIN: res = resvar, vars = operands, a = constant (-inf/+inf when absent);
// - ABS: res = resvar, arg = argvar;  AND/OR: res, vars;  NORM: res, vars, a = which;
// - INDICATOR: res = binvar, binval, vars/vals = the linear terms, sense, rhs;
// - PWL: arg = xvar, res = yvar, vals = x points, ypts = y points;
// - POLY: arg = x, res = y, vals = coefficients (highest degree first);
// - EXP/LOG/SIN/COS/TAN/LOGISTIC: arg = x, res = y;  EXPA/LOGA/POW: also a.
// Function constraints keep their option text (FuncPieces=... etc.) in `options`.
struct GenConstrData {
  GenType type = GenType::kMax;
  std::string name;
  int res = -1;
  int arg = -1;
  std::vector<int> vars;
  std::vector<double> vals;
  std::vector<double> ypts;
  double a = 0.0;
  int binval = 1;
  char sense = '<';
  double rhs = 0.0;
  std::string options;
};

struct PwlObj {
  std::vector<double> x, y;
};

// One objective of a multi-objective model (index = ObjNumber). Coefficients are dense over
// the variables.
struct ObjectiveN {
  int priority = 0;
  double weight = 1.0;
  double abstol = 1e-6;
  double reltol = 0.0;
  double con = 0.0;
  std::string name;
  std::vector<double> coef;
};

// One scenario (index = ScenarioNumber): changes to bounds, objective and right-hand sides.
// Entries absent from a map keep the base model's value.
struct Scenario {
  std::string name;
  std::map<int, double> lb, ub, obj, rhs;
};

// Values of settable element attributes that have no structural meaning (starts, hints,
// priorities, tags, IIS forces, ...): one column per attribute, created on first write and
// kept aligned with the element count.
struct NumColumn {
  double def = 0.0;
  std::vector<double> v;
};
struct StrColumn {
  std::vector<std::string> v;  // default ""
};
struct ExtraColumns {
  std::unordered_map<int, NumColumn> num;  // int and double attributes, by attribute index
  std::unordered_map<int, StrColumn> str;  // string attributes, by attribute index
};

// Names of variables or linear constraints. An element without a name of its own shows the
// default name: the prefix ("C" or "R") followed by its current index. Nothing is stored while
// no element has a name of its own, so a million unnamed variables cost no name storage.
class NameColumn {
 public:
  explicit NameColumn(char prefix) : prefix_(prefix) {}

  int size() const { return static_cast<int>(n_); }
  // The name shown for element i: its own, else the default.
  // (A const value, so that assigning to it does not compile: use set.)
  const std::string operator[](int i) const;
  // Every element's shown name, in order.
  std::vector<std::string> all() const;
  // Element i's own name; "" when it has none.
  const std::string& given(int i) const;
  void set(int i, std::string name);
  // Appends an element with `name` ("" for none) / `count` elements without names.
  void push_back(std::string name);
  void push_unnamed(std::size_t count);
  // Makes room for `count` more elements with names of their own, so that a bulk add does not
  // move the names already pushed each time the column grows. Cost: one allocation.
  void reserve_named(std::size_t count);
  // Moves `src`'s elements to the end of this column and empties `src`.
  void append(NameColumn& src);
  // Keeps the elements whose `keep` entry is non-zero, in order.
  void compact(const std::vector<char>& keep);
  void clear();
  // Equal when every element shows the same name.
  bool operator==(const NameColumn& o) const;

 private:
  void materialize();
  char prefix_;
  std::size_t n_ = 0;
  std::vector<std::string> own_;  // empty while no element has a name, else n_ entries
};

struct ModelData {
  std::string name;
  int sense = 1;  // 1 minimise, -1 maximise
  double objcon = 0.0;

  // Variables.
  std::vector<double> lb, ub, obj;
  std::vector<char> vtype;
  NameColumn varname{'C'};

  // Linear constraints.
  std::vector<Row> rows;
  std::vector<char> csense;
  std::vector<double> rhs;
  NameColumn constrname{'R'};

  std::vector<QConstrData> qconstrs;
  std::vector<SosData> sos;
  std::vector<GenConstrData> genconstrs;

  // Quadratic objective: (i, j, v) with i <= j, each pair once.
  std::vector<int> qrow, qcol;
  std::vector<double> qval;

  std::map<int, PwlObj> pwlobj;
  std::vector<ObjectiveN> objn;
  std::vector<Scenario> scenarios;

  // Extra attribute columns per element kind (indexed by VLM_KIND_*).
  ExtraColumns extra[6];

  int num_vars() const { return static_cast<int>(lb.size()); }
  int num_constrs() const { return static_cast<int>(rhs.size()); }
  int num_qconstrs() const { return static_cast<int>(qconstrs.size()); }
  int num_sos() const { return static_cast<int>(sos.size()); }
  int num_genconstrs() const { return static_cast<int>(genconstrs.size()); }
  // Element count of a kind (VLM_KIND_*); 1 for the model itself.
  int count(int kind) const;
};

}  // namespace vlm
