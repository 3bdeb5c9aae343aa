#include "io/mps_reader.h"

#include "io/mps_layout.h"

#include <array>
#include <cmath>
#include <map>
#include <optional>
#include <unordered_map>
#include <vector>

#include "core/text.h"

namespace vlm::io {

namespace {

constexpr double kMpsInfinity = 1e30;

double inf_value(double v) {
  if (v >= kMpsInfinity) return VLM_INFINITY;
  if (v <= -kMpsInfinity) return -VLM_INFINITY;
  return v;
}

using mps::cols;
using mps::fixed_number;
using mps::is_blank;
using mps::split;
using mps::Words;

enum class Sec {
  kNone,
  kObjsense,
  kObjname,
  kRows,
  kColumns,
  kRhs,
  kRanges,
  kBounds,
  kSos,
  kQuadobj,
  kQmatrix,
  kQcmatrix,
  kPwlobj,
  kObjectives,
  kGencons,
  kScenarios,
};

struct RowInfo {
  char type = 'N';
  std::string name;
  std::vector<int> ind;
  std::vector<double> val;
  double rhs = 0.0;
  bool has_range = false;
  double range = 0.0;
  int range_line = 0;
  bool quadratic = false;
  // Quadratic terms keyed (i <= j), summed as read.
  std::map<std::pair<int, int>, double> q;
};

// A scenario's right-hand side change, resolved to a linear constraint once the rows' kinds
// are final (QCMATRIX may come later).
struct ScenarioRhs {
  int scenario = 0, row = -1, line = 0;
  double value = 0.0;
};

struct ObjRecord {
  int row = -1;
  ObjectiveN o;
};

class MpsParser {
 public:
  MpsParser(std::string_view text, const std::string& filename, bool fixed)
      : text_(text), filename_(filename), fixed_(fixed) {}

  Status parse(ReadModel& out);
  int line() const { return line_; }

 private:
  Status error(const std::string& what) const { return parse_error(filename_, line_, what); }

  Status header(std::string_view line);
  Status data(std::string_view line);

  // The six standard fields of a data line.
  Status fields(std::string_view line, std::array<std::string, 6>& f);
  // A record of our own sections: code, `n_names` names, then the rest of the line.
  struct Record {
    std::string code;
    std::vector<std::string> names;
    std::string rest;
    std::vector<std::string> words;
  };
  Status record(std::string_view line, bool has_code, int n_names, Record& r);

  Status number(std::string_view text, double& v, const char* what) const {
    std::optional<double> d = parse_double(text);
    if (!d) {
      return error("expected a number for " + std::string(what) + ", found '" + std::string(text) + "'");
    }
    v = *d;
    return Status::Ok();
  }
  // Coefficients cannot be infinite, and values of 1e30 or more mean infinity in MPS files.
  Status finite(const char* what, double v, const std::string& where) const {
    if (std::fabs(v) < kMpsInfinity) return Status::Ok();
    return error(std::string(what) + " " + short_number(v) + " " + where + " is infinite (1e30 or more)");
  }
  Status row_of(const std::string& name, int& r) const {
    auto it = row_index_.find(name);
    if (it == row_index_.end()) return error("unknown row '" + name + "'");
    r = it->second;
    return Status::Ok();
  }
  Status col_of(const std::string& name, int& j) const {
    auto it = col_index_.find(name);
    if (it == col_index_.end()) return error("unknown column '" + name + "'");
    j = it->second;
    return Status::Ok();
  }
  // Only the first of several RHS / RANGES / BOUNDS vectors counts.
  // A blank vector name (fixed layout) goes with whichever vector is used.
  bool first_set(std::optional<std::string>& chosen, const std::string& set) {
    if (set.empty()) return true;
    if (!chosen) chosen = set;
    return *chosen == set;
  }
  Status sense_word(std::string_view w) {
    if (iequals(w, "MAX") || iequals(w, "MAXIMIZE") || iequals(w, "MAXIMISE")) {
      sense_ = -1;
    } else if (iequals(w, "MIN") || iequals(w, "MINIMIZE") || iequals(w, "MINIMISE")) {
      sense_ = 1;
    } else {
      return error("expected MAX or MIN as the objective sense, found '" + std::string(w) + "'");
    }
    return Status::Ok();
  }

  Status rows_line(std::string_view line);
  Status columns_line(std::string_view line);
  Status rhs_line(std::string_view line, bool ranges);
  Status bounds_line(std::string_view line);
  Status sos_line(std::string_view line);
  Status quad_line(std::string_view line);
  Status pwlobj_line(std::string_view line);
  Status objectives_line(std::string_view line);
  Status gencons_line(std::string_view line);
  Status scenarios_line(std::string_view line);
  Status finish_genconstr();
  Status finish(ReadModel& out);

  std::string_view text_;
  const std::string& filename_;
  bool fixed_;
  int line_ = 0;
  Sec sec_ = Sec::kNone;

  std::string name_;
  std::string full_name_;  // the NAME line's text, before a sense word was taken off
  int sense_ = 1;
  std::string obj_name_;
  std::vector<RowInfo> rows_;
  std::unordered_map<std::string, int> row_index_;
  int obj_row_ = -1;
  ModelData vars_;  // lb, ub, obj, vtype, varname
  std::vector<char> lb_set_;
  std::unordered_map<std::string, int> col_index_;
  int last_col_ = -1;
  bool in_integer_ = false;
  std::optional<std::string> rhs_set_, range_set_, bound_set_;
  std::vector<SosData> sos_;
  bool sos_open_ = false;
  bool qmatrix_full_ = false;
  int qrow_ = -1;
  std::map<int, PwlObj> pwl_;
  int pwl_last_ = -1;
  std::vector<ObjRecord> objectives_;
  std::map<std::pair<int, int>, double> objq_;
  std::vector<std::pair<int, int>> objq_order_;
  std::vector<GenConstrData> gens_;
  int gen_line_ = 0;  // line of the open GENCONS header, 0 when none is open
  bool gen_has_sense_ = false;
  std::vector<Scenario> scenarios_;
  std::vector<ScenarioRhs> scenario_rhs_;
};

std::string upper(std::string s) {
  for (char& c : s) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  return s;
}

Status MpsParser::fields(std::string_view line, std::array<std::string, 6>& f) {
  for (auto& s : f) s.clear();
  if (!fixed_) return Status::Ok();  // free lines are split by each section
  for (std::size_t i : {0u, 3u, 12u, 13u, 22u, 23u}) {
    if (i < line.size() && !is_blank(line[i])) {
      return error("expected fixed MPS fields in columns 2-3, 5-12, 15-22, 25-36, 40-47 and 50-61");
    }
  }
  f[0] = std::string(trim(cols(line, 1, 3)));
  f[1] = std::string(trim(cols(line, 4, 12)));
  f[2] = std::string(trim(cols(line, 14, 22)));
  std::size_t end4 = 24;
  f[3] = std::string(fixed_number(line, 24, 36, end4));
  if (line.size() > 39 && end4 <= 39) {
    f[4] = std::string(trim(cols(line, 39, 47)));
    std::size_t end6 = 49;
    f[5] = std::string(fixed_number(line, 49, 61, end6));
    if (!trim(cols(line, end6, line.size())).empty()) {
      return error("unexpected text after field 6: '" + std::string(trim(line.substr(end6))) + "'");
    }
  } else if (!trim(cols(line, end4, line.size())).empty()) {
    return error("unexpected text after field 4: '" + std::string(trim(line.substr(end4))) + "'");
  }
  return Status::Ok();
}

Status MpsParser::record(std::string_view line, bool has_code, int n_names, Record& r) {
  r = Record();
  std::size_t rest_from = 0;
  if (fixed_) {
    if (has_code) r.code = std::string(trim(cols(line, 1, 3)));
    for (int k = 0; k < n_names; ++k) r.names.emplace_back(trim(cols(line, 4 + 10 * k, 12 + 10 * k)));
    rest_from = 4 + 10 * static_cast<std::size_t>(n_names);
  } else {
    Words w = split(line);
    std::size_t need = static_cast<std::size_t>(n_names) + (has_code ? 1 : 0);
    if (w.w.size() < need) {
      return error("expected " + std::to_string(need) + " fields, found " + std::to_string(w.w.size()));
    }
    std::size_t k = 0;
    if (has_code) r.code = std::string(w.w[k++]);
    for (int n = 0; n < n_names; ++n) r.names.emplace_back(w.w[k++]);
    rest_from = k > 0 ? w.end[k - 1] : 0;
  }
  for (const std::string& n : r.names) {
    if (n.empty()) return error("expected a name in every name field");
  }
  r.rest = std::string(trim(cols(line, rest_from, line.size())));
  for (std::string_view w : split(r.rest).w) r.words.emplace_back(w);
  return Status::Ok();
}

Status MpsParser::parse(ReadModel& out) {
  std::size_t at = 0;
  bool ended = false;
  int last_text_line = 0;
  while (at < text_.size() && !ended) {
    std::size_t nl = text_.find('\n', at);
    std::string_view line = text_.substr(at, nl == std::string_view::npos ? std::string_view::npos : nl - at);
    at = nl == std::string_view::npos ? text_.size() : nl + 1;
    ++line_;
    while (!line.empty() && (line.back() == '\r' || line.back() == ' ' || line.back() == '\t')) {
      line.remove_suffix(1);
    }
    if (line.empty() || line[0] == '*') continue;
    last_text_line = line_;
    if (!is_blank(line[0])) {
      if (sec_ == Sec::kGencons) VLM_RETURN_IF_ERROR(finish_genconstr());
      Words w = split(line);
      if (iequals(w.w[0], "ENDATA")) {
        ended = true;
        break;
      }
      VLM_RETURN_IF_ERROR(header(line));
      continue;
    }
    VLM_RETURN_IF_ERROR(data(line));
  }
  // A file without ENDATA was cut short (or never finished): refusing it is the only way not
  // to pass off part of a model as the whole.
  if (!ended) {
    return parse_error(filename_, last_text_line,
                       "expected 'ENDATA' after this line, found the end of the file (is the file cut short?)");
  }
  if (sec_ == Sec::kGencons) VLM_RETURN_IF_ERROR(finish_genconstr());
  return finish(out);
}

Status MpsParser::header(std::string_view line) {
  Words w = split(line);
  const std::string key = to_lower(w.w[0]);
  std::string_view arg = trim(line.substr(w.end[0]));
  sec_ = Sec::kNone;
  if (key == "name") {
    name_ = std::string(arg);
    full_name_ = name_;
    if (!fixed_) {
      Words a = split(arg);
      if (a.w.size() >= 2 && sense_word(a.w.back()).ok()) {
        name_ = std::string(trim(arg.substr(0, a.end[a.w.size() - 2])));
      }
    }
  } else if (key == "objsense") {
    // With an OBJSENSE section a last word MAX/MIN on the NAME line is part of the name.
    name_ = full_name_;
    if (!arg.empty()) return sense_word(arg);
    sec_ = Sec::kObjsense;
  } else if (key == "objname") {
    if (!arg.empty()) {
      obj_name_ = std::string(arg);
    } else {
      sec_ = Sec::kObjname;
    }
  } else if (key == "rows") {
    sec_ = Sec::kRows;
  } else if (key == "columns") {
    sec_ = Sec::kColumns;
  } else if (key == "rhs") {
    sec_ = Sec::kRhs;
  } else if (key == "ranges") {
    sec_ = Sec::kRanges;
  } else if (key == "bounds") {
    sec_ = Sec::kBounds;
  } else if (key == "sos") {
    sec_ = Sec::kSos;
  } else if (key == "quadobj" || key == "qmatrix") {
    sec_ = key == "quadobj" ? Sec::kQuadobj : Sec::kQmatrix;
  } else if (key == "qcmatrix") {
    if (arg.empty()) return error("expected a row name after QCMATRIX");
    VLM_RETURN_IF_ERROR(row_of(std::string(arg), qrow_));
    if (rows_[qrow_].type == 'N') return error("QCMATRIX of the free row '" + std::string(arg) + "'");
    rows_[qrow_].quadratic = true;
    sec_ = Sec::kQcmatrix;
  } else if (key == "pwlobj") {
    sec_ = Sec::kPwlobj;
  } else if (key == "objectives") {
    sec_ = Sec::kObjectives;
  } else if (key == "gencons") {
    sec_ = Sec::kGencons;
  } else if (key == "scenarios") {
    sec_ = Sec::kScenarios;
  } else {
    return error("unknown section '" + std::string(w.w[0]) + "'");
  }
  return Status::Ok();
}

Status MpsParser::data(std::string_view line) {
  switch (sec_) {
    case Sec::kNone:
      return error("expected a section header (NAME, ROWS, COLUMNS, ...) before '" +
                   std::string(trim(line)) + "'");
    case Sec::kObjsense:
      return sense_word(trim(line));
    case Sec::kObjname:
      obj_name_ = std::string(trim(line));
      return Status::Ok();
    case Sec::kRows:
      return rows_line(line);
    case Sec::kColumns:
      return columns_line(line);
    case Sec::kRhs:
      return rhs_line(line, false);
    case Sec::kRanges:
      return rhs_line(line, true);
    case Sec::kBounds:
      return bounds_line(line);
    case Sec::kSos:
      return sos_line(line);
    case Sec::kQuadobj:
    case Sec::kQmatrix:
    case Sec::kQcmatrix:
      return quad_line(line);
    case Sec::kPwlobj:
      return pwlobj_line(line);
    case Sec::kObjectives:
      return objectives_line(line);
    case Sec::kGencons:
      return gencons_line(line);
    case Sec::kScenarios:
      return scenarios_line(line);
  }
  return Status::Ok();
}

Status MpsParser::rows_line(std::string_view line) {
  std::array<std::string, 6> f;
  VLM_RETURN_IF_ERROR(fields(line, f));
  if (!fixed_) {
    Words w = split(line);
    if (w.w.size() != 2) {
      return error("expected a row type and a row name, found '" + std::string(trim(line)) + "'");
    }
    f[0] = std::string(w.w[0]);
    f[1] = std::string(w.w[1]);
  }
  std::string type = to_lower(f[0]);
  if (type != "n" && type != "l" && type != "g" && type != "e") {
    return error("expected a row type N, L, G or E, found '" + f[0] + "'");
  }
  if (f[1].empty()) return error("expected a row name");
  RowInfo r;
  r.type = static_cast<char>(std::toupper(static_cast<unsigned char>(type[0])));
  r.name = f[1];
  const int index = static_cast<int>(rows_.size());
  if (!row_index_.emplace(r.name, index).second) return error("row '" + r.name + "' is defined twice");
  if (r.type == 'N' && obj_row_ < 0 && (obj_name_.empty() || obj_name_ == r.name)) obj_row_ = index;
  rows_.push_back(std::move(r));
  return Status::Ok();
}

Status MpsParser::columns_line(std::string_view line) {
  // "name 'MARKER' 'INTORG'" in either layout (the marker's name has no blanks).
  Words marker = split(line);
  if (marker.w.size() >= 2 && marker.w[1] == "'MARKER'") {
    if (marker.w.size() >= 3 && marker.w[2] == "'INTORG'") {
      in_integer_ = true;
    } else if (marker.w.size() >= 3 && marker.w[2] == "'INTEND'") {
      in_integer_ = false;
    } else {
      return error("expected 'INTORG' or 'INTEND' in a MARKER line");
    }
    return Status::Ok();
  }
  std::array<std::string, 6> f;
  VLM_RETURN_IF_ERROR(fields(line, f));
  if (!fixed_) {
    Words w = split(line);
    if (w.w.size() != 3 && w.w.size() != 5) {
      return error("expected 'column row value [row value]', found '" + std::string(trim(line)) + "'");
    }
    for (std::size_t k = 0; k < w.w.size(); ++k) f[k + 1] = std::string(w.w[k]);
  }
  if (f[1].empty()) return error("expected a column name");
  // A fixed reading of a short free line ("    x c1 1" has "x c1 1" in columns 5-12) sees a
  // column name and nothing else; a coefficient line without a coefficient is no line at all.
  if (f[2].empty() && f[3].empty()) {
    return error("expected 'column row value [row value]', found '" + std::string(trim(line)) + "'");
  }
  int j = last_col_;
  if (j < 0 || vars_.varname[j] != f[1]) {
    auto [it, fresh] = col_index_.emplace(f[1], vars_.num_vars());
    j = it->second;
    if (fresh) {
      vars_.lb.push_back(0.0);
      vars_.ub.push_back(VLM_INFINITY);
      vars_.obj.push_back(0.0);
      vars_.vtype.push_back(in_integer_ ? 'I' : 'C');
      vars_.varname.push_back(f[1]);
      lb_set_.push_back(0);
    }
    last_col_ = j;
  }
  for (int k = 2; k <= 4; k += 2) {
    if (f[k].empty() && f[k + 1].empty()) continue;
    int r = -1;
    VLM_RETURN_IF_ERROR(row_of(f[k], r));
    double v = 0.0;
    VLM_RETURN_IF_ERROR(number(f[k + 1], v, "the coefficient"));
    VLM_RETURN_IF_ERROR(finite("coefficient", v, "of '" + f[1] + "' in row '" + f[k] + "'"));
    if (r == obj_row_) {
      vars_.obj[j] += v;
    } else {
      rows_[r].ind.push_back(j);
      rows_[r].val.push_back(v);
    }
  }
  return Status::Ok();
}

Status MpsParser::rhs_line(std::string_view line, bool ranges) {
  std::array<std::string, 6> f;
  VLM_RETURN_IF_ERROR(fields(line, f));
  if (!fixed_) {
    // "row value [row value]", optionally after a vector name.
    Words w = split(line);
    std::size_t k = 0;
    if (w.w.size() == 3 || w.w.size() == 5) {
      f[1] = std::string(w.w[k++]);
    } else if (w.w.size() != 2 && w.w.size() != 4) {
      return error("expected '[name] row value [row value]', found '" + std::string(trim(line)) + "'");
    }
    for (int p = 2; k < w.w.size(); ++k, ++p) f[p] = std::string(w.w[k]);
  }
  if (!first_set(ranges ? range_set_ : rhs_set_, f[1])) return Status::Ok();
  for (int k = 2; k <= 4; k += 2) {
    if (f[k].empty() && f[k + 1].empty()) continue;
    int r = -1;
    VLM_RETURN_IF_ERROR(row_of(f[k], r));
    double v = 0.0;
    VLM_RETURN_IF_ERROR(number(f[k + 1], v, ranges ? "the range" : "the right-hand side"));
    v = inf_value(v);
    if (ranges) {
      if (rows_[r].type == 'N') return error("RANGES on the free row '" + f[k] + "'");
      rows_[r].has_range = true;
      rows_[r].range = v;
      rows_[r].range_line = line_;
    } else {
      rows_[r].rhs = v;
    }
  }
  return Status::Ok();
}

Status MpsParser::bounds_line(std::string_view line) {
  std::array<std::string, 6> f;
  VLM_RETURN_IF_ERROR(fields(line, f));
  std::string type;
  if (fixed_) {
    type = to_lower(f[0]);
  } else {
    Words w = split(line);
    if (w.w.size() < 2 || w.w.size() > 4) {
      return error("expected 'type [name] column [value]', found '" + std::string(trim(line)) + "'");
    }
    type = to_lower(w.w[0]);
    const bool needs_value = type == "up" || type == "lo" || type == "fx" || type == "li" ||
                             type == "ui" || type == "si";
    auto word = [&](std::size_t k) { return std::string(w.w[k]); };
    if (w.w.size() == 4) {
      f[1] = word(1), f[2] = word(2), f[3] = word(3);
    } else if (w.w.size() == 2) {
      f[2] = word(1);
    } else if (needs_value && !(col_index_.count(word(2)) && !col_index_.count(word(1)))) {
      f[2] = word(1), f[3] = word(2);
    } else if (!col_index_.count(word(2)) && col_index_.count(word(1)) && parse_double(w.w[2])) {
      f[2] = word(1), f[3] = word(2);  // "BV x 1" or "SC x 5" without a vector name
    } else {
      f[1] = word(1), f[2] = word(2);
    }
  }
  if (!first_set(bound_set_, f[1])) return Status::Ok();
  int j = -1;
  VLM_RETURN_IF_ERROR(col_of(f[2], j));
  double v = 0.0;
  const bool has_value = !f[3].empty();
  auto value = [&]() -> Status {
    if (!has_value) return error("expected a value for the " + type + " bound of '" + f[2] + "'");
    VLM_RETURN_IF_ERROR(number(f[3], v, "the bound"));
    v = inf_value(v);
    return Status::Ok();
  };
  double& lb = vars_.lb[j];
  double& ub = vars_.ub[j];
  char& t = vars_.vtype[j];
  // A negative upper bound alone frees the lower bound, as MPS files have long assumed.
  auto set_ub = [&](double u) {
    ub = u;
    if (u < 0.0 && !lb_set_[j] && lb == 0.0) lb = -VLM_INFINITY;
  };
  if (type == "up" || type == "ui") {
    VLM_RETURN_IF_ERROR(value());
    set_ub(v);
    if (type == "ui") t = t == 'S' ? 'N' : (t == 'C' ? 'I' : t);
  } else if (type == "lo" || type == "li") {
    VLM_RETURN_IF_ERROR(value());
    lb = v;
    lb_set_[j] = 1;
    if (type == "li") t = t == 'S' ? 'N' : (t == 'C' ? 'I' : t);
  } else if (type == "fx") {
    VLM_RETURN_IF_ERROR(value());
    lb = ub = v;
    lb_set_[j] = 1;
  } else if (type == "fr") {
    lb = -VLM_INFINITY;
    ub = VLM_INFINITY;
    lb_set_[j] = 1;
  } else if (type == "mi") {
    lb = -VLM_INFINITY;
    lb_set_[j] = 1;
  } else if (type == "pl") {
    ub = VLM_INFINITY;
  } else if (type == "bv") {
    t = 'B';
    lb = 0.0;
    ub = 1.0;
    lb_set_[j] = 1;
  } else if (type == "sc" || type == "si") {
    if (has_value) {
      VLM_RETURN_IF_ERROR(value());
      ub = v;
    } else if (type == "si") {
      return value();
    } else {
      ub = VLM_INFINITY;
    }
    t = (type == "si" || t == 'I' || t == 'B' || t == 'N') ? 'N' : 'S';
  } else {
    return error("expected a bound type UP, LO, FX, FR, MI, PL, BV, LI, UI, SC or SI, found '" +
                 (fixed_ ? f[0] : type) + "'");
  }
  return Status::Ok();
}

// " S1 name" opens a set; "    name column weight" adds a member.
Status MpsParser::sos_line(std::string_view line) {
  bool is_header;
  if (fixed_) {
    is_header = !trim(cols(line, 1, 3)).empty();
  } else {
    Words w = split(line);
    is_header = w.w.size() == 2;
  }
  Record r;
  if (is_header) {
    VLM_RETURN_IF_ERROR(record(line, true, 1, r));
    if (!iequals(r.code, "S1") && !iequals(r.code, "S2")) {
      return error("expected an SOS set header 'S1 name' or 'S2 name', found '" + std::string(trim(line)) + "'");
    }
    SosData s;
    s.type = r.code[1] - '0';
    sos_.push_back(std::move(s));
    return Status::Ok();
  }
  VLM_RETURN_IF_ERROR(record(line, false, 2, r));
  if (sos_.empty()) return error("SOS member before any set header 'S1 name'");
  if (r.words.size() != 1) return error("expected 'set column weight', found '" + std::string(trim(line)) + "'");
  int j = -1;
  VLM_RETURN_IF_ERROR(col_of(r.names[1], j));
  double w = 0.0;
  VLM_RETURN_IF_ERROR(number(r.words[0], w, "the SOS weight"));
  sos_.back().ind.push_back(j);
  sos_.back().weight.push_back(w);
  return Status::Ok();
}

Status MpsParser::quad_line(std::string_view line) {
  std::array<std::string, 6> f;
  VLM_RETURN_IF_ERROR(fields(line, f));
  if (!fixed_) {
    Words w = split(line);
    if (w.w.size() != 3) return error("expected 'column column value', found '" + std::string(trim(line)) + "'");
    for (int k = 0; k < 3; ++k) f[k + 1] = std::string(w.w[k]);
  }
  int i = -1, j = -1;
  VLM_RETURN_IF_ERROR(col_of(f[1], i));
  VLM_RETURN_IF_ERROR(col_of(f[2], j));
  double v = 0.0;
  VLM_RETURN_IF_ERROR(number(f[3], v, "the quadratic coefficient"));
  VLM_RETURN_IF_ERROR(finite("quadratic coefficient", v, "of '" + f[1] + "' * '" + f[2] + "'"));
  std::pair<int, int> key(std::min(i, j), std::max(i, j));
  if (sec_ == Sec::kQcmatrix) {
    // x'Qx: both halves of an off-diagonal pair are listed and add up.
    rows_[qrow_].q[key] += v;
    return Status::Ok();
  }
  // 1/2 x'Qx: a diagonal entry halves; an off-diagonal one is listed once (QUADOBJ) or
  // twice (QMATRIX).
  double term = (i == j || sec_ == Sec::kQmatrix) ? 0.5 * v : v;
  auto [it, fresh] = objq_.emplace(key, term);
  if (!fresh) it->second += term;
  if (fresh) objq_order_.push_back(key);
  return Status::Ok();
}

Status MpsParser::pwlobj_line(std::string_view line) {
  Record r;
  VLM_RETURN_IF_ERROR(record(line, false, 1, r));
  if (r.words.size() != 2) return error("expected 'column x y', found '" + std::string(trim(line)) + "'");
  int j = -1;
  VLM_RETURN_IF_ERROR(col_of(r.names[0], j));
  if (j != pwl_last_ && pwl_.count(j)) {
    return error("the points of column '" + r.names[0] + "' must be consecutive");
  }
  pwl_last_ = j;
  double x = 0.0, y = 0.0;
  VLM_RETURN_IF_ERROR(number(r.words[0], x, "x"));
  VLM_RETURN_IF_ERROR(number(r.words[1], y, "y"));
  pwl_[j].x.push_back(x);
  pwl_[j].y.push_back(y);
  return Status::Ok();
}

Status MpsParser::objectives_line(std::string_view line) {
  Record r;
  VLM_RETURN_IF_ERROR(record(line, false, 1, r));
  ObjRecord o;
  VLM_RETURN_IF_ERROR(row_of(r.names[0], o.row));
  if (rows_[o.row].type != 'N' || o.row == obj_row_) {
    return error("objective '" + r.names[0] + "' must be an N row other than the objective");
  }
  for (const ObjRecord& other : objectives_) {
    if (other.row == o.row) return error("objective row '" + r.names[0] + "' is listed twice");
  }
  o.o.name = r.names[0];
  std::string_view rest = r.rest;
  while (!rest.empty()) {
    Words w = split(rest);
    std::string_view word = w.w[0];
    std::size_t eq = word.find('=');
    if (eq == std::string_view::npos) return error("expected Name=value, found '" + std::string(word) + "'");
    std::string key = to_lower(word.substr(0, eq));
    if (key == "name") {
      // The name is the rest of the line, blanks and all.
      o.o.name = std::string(trim(rest.substr(rest.find('=') + 1)));
      break;
    }
    double v = 0.0;
    VLM_RETURN_IF_ERROR(number(word.substr(eq + 1), v, key.c_str()));
    if (key == "priority") {
      if (v != std::floor(v) || std::fabs(v) > VLM_MAXINT) return error("expected an integer priority");
      o.o.priority = static_cast<int>(v);
    } else if (key == "weight") {
      o.o.weight = v;
    } else if (key == "abstol") {
      o.o.abstol = v;
    } else if (key == "reltol") {
      o.o.reltol = v;
    } else {
      return error("expected Priority, Weight, AbsTol, RelTol or Name, found '" + std::string(word) + "'");
    }
    rest = trim(rest.substr(w.end[0]));
  }
  objectives_.push_back(std::move(o));
  return Status::Ok();
}

Status MpsParser::gencons_line(std::string_view line) {
  std::string code;
  if (fixed_) {
    code = to_lower(trim(cols(line, 1, 3)));
  } else {
    Words w = split(line);
    code = to_lower(w.w[0]);
  }
  static const std::map<std::string, int> kNames = {{"gc", 1}, {"rv", 1}, {"xv", 1}, {"op", 1},
                                                    {"iv", 1}, {"co", 0}, {"se", 0}, {"pt", 0},
                                                    {"pc", 0}, {"ot", 0}};
  auto known = kNames.find(code);
  if (known == kNames.end()) {
    return error("expected a GENCONS record GC, RV, XV, OP, IV, CO, SE, PT, PC or OT, found '" + code + "'");
  }
  Record r;
  VLM_RETURN_IF_ERROR(record(line, true, known->second, r));
  if (code == "gc") {
    VLM_RETURN_IF_ERROR(finish_genconstr());
    if (r.words.size() != 1) return error("expected 'GC name TYPE'");
    GenConstrData g;
    g.name = r.names[0];
    bool found = false;
    for (int t = 0; t < kNumGenTypes; ++t) {
      if (iequals(r.words[0], gen_type_name(static_cast<GenType>(t)))) {
        g.type = static_cast<GenType>(t);
        found = true;
      }
    }
    if (!found) return error("unknown general constraint type '" + r.words[0] + "'");
    if (g.type == GenType::kMax) g.a = -VLM_INFINITY;
    if (g.type == GenType::kMin) g.a = VLM_INFINITY;
    gens_.push_back(std::move(g));
    gen_line_ = line_;
    gen_has_sense_ = false;
    return Status::Ok();
  }
  if (gen_line_ == 0) return error("GENCONS record before any 'GC name TYPE' header");
  GenConstrData& g = gens_.back();
  const bool indicator = g.type == GenType::kIndicator;
  auto words = [&](std::size_t lo, std::size_t hi) -> Status {
    if (r.words.size() < lo || r.words.size() > hi) {
      return error("wrong number of values in the " + upper(code) + " record");
    }
    return Status::Ok();
  };
  auto misplaced = [&]() {
    return error("record " + upper(code) + " does not belong to a " + gen_type_name(g.type) + " constraint");
  };
  double v = 0.0;
  if (code == "rv" || code == "xv") {
    const bool has_arg = g.type == GenType::kAbs || g.type >= GenType::kPwl;
    if (indicator || (code == "xv" && !has_arg)) return misplaced();
    VLM_RETURN_IF_ERROR(words(0, 0));
    VLM_RETURN_IF_ERROR(col_of(r.names[0], code == "rv" ? g.res : g.arg));
  } else if (code == "op") {
    if (!(g.type <= GenType::kIndicator) || g.type == GenType::kAbs) return misplaced();
    int j = -1;
    VLM_RETURN_IF_ERROR(col_of(r.names[0], j));
    g.vars.push_back(j);
    if (indicator) {
      VLM_RETURN_IF_ERROR(words(1, 1));
      VLM_RETURN_IF_ERROR(number(r.words[0], v, "the coefficient"));
      g.vals.push_back(v);
    } else {
      VLM_RETURN_IF_ERROR(words(0, 0));
    }
  } else if (code == "iv") {
    if (!indicator) return misplaced();
    VLM_RETURN_IF_ERROR(words(1, 1));
    VLM_RETURN_IF_ERROR(col_of(r.names[0], g.res));
    VLM_RETURN_IF_ERROR(number(r.words[0], v, "the indicator value"));
    if (v != 0.0 && v != 1.0) return error("expected 0 or 1 as the indicator value");
    g.binval = static_cast<int>(v);
  } else if (code == "co") {
    const bool takes = g.type == GenType::kMax || g.type == GenType::kMin || g.type == GenType::kNorm ||
                       g.type == GenType::kExpA || g.type == GenType::kLogA || g.type == GenType::kPow;
    if (!takes) return misplaced();
    VLM_RETURN_IF_ERROR(words(1, 1));
    VLM_RETURN_IF_ERROR(number(r.words[0], v, "the constant"));
    g.a = inf_value(v);
  } else if (code == "se") {
    if (!indicator) return misplaced();
    VLM_RETURN_IF_ERROR(words(2, 2));
    std::string s = to_lower(r.words[0]);
    if (s != "l" && s != "g" && s != "e") return error("expected the sense L, G or E, found '" + r.words[0] + "'");
    g.sense = s == "l" ? '<' : s == "g" ? '>' : '=';
    VLM_RETURN_IF_ERROR(number(r.words[1], v, "the right-hand side"));
    g.rhs = inf_value(v);
    gen_has_sense_ = true;
  } else if (code == "pt") {
    if (g.type != GenType::kPwl) return misplaced();
    VLM_RETURN_IF_ERROR(words(2, 2));
    double x = 0.0, y = 0.0;
    VLM_RETURN_IF_ERROR(number(r.words[0], x, "x"));
    VLM_RETURN_IF_ERROR(number(r.words[1], y, "y"));
    g.vals.push_back(x);
    g.ypts.push_back(y);
  } else if (code == "pc") {
    if (g.type != GenType::kPoly) return misplaced();
    VLM_RETURN_IF_ERROR(words(1, 1));
    VLM_RETURN_IF_ERROR(number(r.words[0], v, "the coefficient"));
    g.vals.push_back(v);
  } else {  // "ot"
    if (g.type <= GenType::kPwl) return misplaced();
    g.options = r.rest;
  }
  return Status::Ok();
}

Status MpsParser::scenarios_line(std::string_view line) {
  std::string code;
  if (fixed_) {
    code = to_lower(trim(cols(line, 1, 3)));
  } else {
    code = to_lower(split(line).w[0]);
  }
  const bool header = code == "sc";
  if (!header && code != "lo" && code != "up" && code != "ob" && code != "rh") {
    return error("expected a SCENARIOS record SC, LO, UP, OB or RH, found '" + code + "'");
  }
  Record r;
  VLM_RETURN_IF_ERROR(record(line, true, header ? 0 : 1, r));
  if (header) {
    Scenario sc;
    sc.name = r.rest;
    scenarios_.push_back(std::move(sc));
    return Status::Ok();
  }
  if (scenarios_.empty()) return error("SCENARIOS record before any 'SC name' header");
  if (r.words.size() != 1) return error("expected one value in the " + upper(code) + " record");
  double v = 0.0;
  VLM_RETURN_IF_ERROR(number(r.words[0], v, "the scenario's value"));
  Scenario& sc = scenarios_.back();
  if (code == "rh") {
    int row = -1;
    VLM_RETURN_IF_ERROR(row_of(r.names[0], row));
    VLM_RETURN_IF_ERROR(finite("right-hand side", v, "of scenario row '" + r.names[0] + "'"));
    scenario_rhs_.push_back({static_cast<int>(scenarios_.size()) - 1, row, line_, v});
    return Status::Ok();
  }
  int j = -1;
  VLM_RETURN_IF_ERROR(col_of(r.names[0], j));
  if (code == "ob") {
    VLM_RETURN_IF_ERROR(finite("objective coefficient", v, "of scenario column '" + r.names[0] + "'"));
    sc.obj[j] = v;
  } else {
    (code == "lo" ? sc.lb : sc.ub)[j] = inf_value(v);
  }
  return Status::Ok();
}

// Checks that the general constraint just read names the variables its type needs.
Status MpsParser::finish_genconstr() {
  if (gens_.empty() || gen_line_ == 0) return Status::Ok();
  const GenConstrData& g = gens_.back();
  const bool needs_arg = g.type == GenType::kAbs || g.type >= GenType::kPwl;
  std::string missing;
  if (g.res < 0) missing = g.type == GenType::kIndicator ? "IV" : "RV";
  else if (needs_arg && g.arg < 0) missing = "XV";
  else if (g.type == GenType::kIndicator && !gen_has_sense_) missing = "SE";
  const int header_line = gen_line_;
  gen_line_ = 0;
  if (!missing.empty()) {
    return parse_error(filename_, header_line,
                       "general constraint '" + g.name + "' has no " + missing + " record");
  }
  return Status::Ok();
}

Status MpsParser::finish(ReadModel& out) {
  ModelData& d = out.data;
  d.name = name_;
  d.sense = sense_;
  d.lb = std::move(vars_.lb);
  d.ub = std::move(vars_.ub);
  d.obj = std::move(vars_.obj);
  d.vtype = std::move(vars_.vtype);
  d.varname = std::move(vars_.varname);
  const int n = d.num_vars();

  std::vector<int> objn_of(rows_.size(), -1);
  for (int k = 0; k < static_cast<int>(objectives_.size()); ++k) objn_of[objectives_[k].row] = k;
  d.objn.resize(objectives_.size());
  for (int k = 0; k < static_cast<int>(objectives_.size()); ++k) {
    d.objn[k] = objectives_[k].o;
    d.objn[k].coef.assign(n, 0.0);
  }

  // The objective constant is minus the objective row's right-hand side (no -0 when absent).
  auto constant_of = [](const RowInfo& row) { return row.rhs == 0.0 ? 0.0 : -row.rhs; };
  for (int r = 0; r < static_cast<int>(rows_.size()); ++r) {
    RowInfo& row = rows_[r];
    if (row.type == 'N') {
      if (r == obj_row_) {
        d.objcon = constant_of(row);
      } else if (objn_of[r] >= 0) {
        ObjectiveN& o = d.objn[objn_of[r]];
        o.con = constant_of(row);
        for (std::size_t k = 0; k < row.ind.size(); ++k) o.coef[row.ind[k]] += row.val[k];
      }
      continue;
    }
    const char sense = row.type == 'L' ? '<' : row.type == 'G' ? '>' : '=';
    if (row.quadratic) {
      if (row.has_range) {
        line_ = row.range_line;
        return error("RANGES on the quadratic constraint '" + row.name + "'");
      }
      QConstrData q;
      q.lind = std::move(row.ind);
      q.lval = std::move(row.val);
      for (const auto& [key, v] : row.q) {
        q.qrow.push_back(key.first);
        q.qcol.push_back(key.second);
        q.qval.push_back(v);
      }
      q.sense = sense;
      q.rhs = row.rhs;
      q.name = row.name;
      d.qconstrs.push_back(std::move(q));
      continue;
    }
    const int i = d.num_constrs();
    d.rows.push_back(Row{std::move(row.ind), std::move(row.val)});
    d.constrname.push_back(row.name);
    d.csense.push_back(sense);
    d.rhs.push_back(row.rhs);
    if (row.has_range) {
      const double b = row.rhs, R = row.range;
      double lo = b, hi = b;
      if (R == 0.0) {
        d.csense.back() = '=';
        continue;
      }
      if (row.type == 'L') {
        lo = b - std::fabs(R);
      } else if (row.type == 'G') {
        hi = b + std::fabs(R);
      } else if (R > 0.0) {
        hi = b + R;
      } else {
        lo = b + R;
      }
      d.csense.back() = '=';
      d.rhs.back() = lo;
      out.range_upper[i] = hi;
    }
  }

  for (const auto& key : objq_order_) {
    d.qrow.push_back(key.first);
    d.qcol.push_back(key.second);
    d.qval.push_back(objq_.at(key));
  }
  d.sos = std::move(sos_);
  d.pwlobj = std::move(pwl_);
  d.genconstrs = std::move(gens_);

  // Linear constraints are numbered in row order, leaving out N rows and quadratic ones.
  std::vector<int> linear_of(rows_.size(), -1);
  int next = 0;
  for (std::size_t r = 0; r < rows_.size(); ++r) {
    if (rows_[r].type != 'N' && !rows_[r].quadratic) linear_of[r] = next++;
  }
  for (const ScenarioRhs& c : scenario_rhs_) {
    if (linear_of[c.row] < 0) {
      line_ = c.line;
      return error("scenario right-hand side of '" + rows_[c.row].name + "', which is not a linear constraint");
    }
    scenarios_[c.scenario].rhs[linear_of[c.row]] = c.value;
  }
  d.scenarios = std::move(scenarios_);
  return Status::Ok();
}

}  // namespace

Status read_mps(std::string_view text, const std::string& filename, ReadModel& out) {
  VLM_RETURN_IF_ERROR(refuse_nul(text, filename));
  MpsParser free_parser(text, filename, false);
  ReadModel free_model;
  Status free_status = free_parser.parse(free_model);
  const bool try_fixed = !free_status.ok() || fixed_name_field_has_blank(text);
  if (!try_fixed) {
    out = std::move(free_model);
    return Status::Ok();
  }
  MpsParser fixed_parser(text, filename, true);
  ReadModel fixed_model;
  Status fixed_status = fixed_parser.parse(fixed_model);
  if (free_status.ok() && (!fixed_status.ok() || !has_name_with_blank(fixed_model.data))) {
    out = std::move(free_model);
    return Status::Ok();
  }
  if (fixed_status.ok()) {
    out = std::move(fixed_model);
    return Status::Ok();
  }
  return fixed_parser.line() > free_parser.line() ? fixed_status : free_status;
}

}  // namespace vlm::io
