#include "io/mps_writer.h"

#include <algorithm>
#include <cmath>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "io/file_format.h"

namespace vlm::io {

namespace {

// What an MPS reader takes as infinite.
constexpr double kMpsInfinity = 1e30;

std::string num(double v) {
  if (v >= VLM_INFINITY) return format_number(kMpsInfinity);
  if (v <= -VLM_INFINITY) return format_number(-kMpsInfinity);
  return format_number(v);
}

bool nonzero(double v) { return v != 0.0 || std::signbit(v); }

char row_type(char sense) { return sense == '<' ? 'L' : sense == '>' ? 'G' : 'E'; }

std::string pad(const std::string& s, std::size_t width) {
  return s.size() >= width ? s : s + std::string(width - s.size(), ' ');
}

class MpsWriter {
 public:
  MpsWriter(const ModelData& d, bool generic) : d_(d), generic_(generic) {}

  Status write(std::ostream& out, MpsLayout layout);

 private:
  std::string vname(int j) const { return generic_ ? indexed_name("C", j) : d_.varname[j]; }
  std::string cname(int i) const { return generic_ ? indexed_name("R", i) : d_.constrname[i]; }
  std::string qname(int i) const { return generic_ ? indexed_name("QC", i) : d_.qconstrs[i].name; }
  std::string gname(int i) const { return generic_ ? indexed_name("GC", i) : d_.genconstrs[i].name; }

  Status check_names();

  // A line of the standard sections: type code, then up to five fields. Fixed layout puts
  // them in their columns; free layout separates them by blanks.
  void field_line(const std::string& code, const std::string& f2, const std::string& f3 = "",
                  const std::string& f4 = "", const std::string& f5 = "") {
    std::string s;
    if (fixed_) {
      s = " " + pad(code, 2) + " " + pad(f2, 8);
      if (!f3.empty() || !f4.empty() || !f5.empty()) s += "  " + pad(f3, 8);
      if (!f4.empty() || !f5.empty()) s += "  " + pad(f4, 12);
      if (!f5.empty()) s += "   " + f5;
    } else {
      s = code.empty() ? "   " : " " + pad(code, 2);
      for (const std::string* f : {&f2, &f3, &f4, &f5}) {
        if (!f->empty()) s += " " + *f;
      }
    }
    while (!s.empty() && s.back() == ' ') s.pop_back();
    text_ += s;
    text_ += '\n';
  }
  // A line of our own sections: code, names in name fields, then blank-separated words.
  void record(const std::string& code, std::initializer_list<std::string> names, const std::string& words) {
    std::string s = " " + pad(code, 2);
    for (const std::string& n : names) s += " " + (fixed_ ? pad(n, 8) + " " : n);
    if (!words.empty()) s += " " + words;
    while (!s.empty() && s.back() == ' ') s.pop_back();
    text_ += s;
    text_ += '\n';
  }
  void section(const std::string& header) {
    text_ += header;
    text_ += '\n';
  }

  void write_rows();
  void write_columns();
  void write_rhs();
  void write_bounds();
  void write_sos();
  void write_quadratic();
  void write_pwlobj();
  void write_genconstrs();
  void write_scenarios();

  const ModelData& d_;
  bool generic_;
  MpsLayout layout_ = MpsLayout::kAuto;
  bool fixed_ = false;
  std::string text_;
  std::string obj_row_;
  std::vector<std::string> objn_rows_;
};

Status MpsWriter::check_names() {
  auto bad = [](const std::string& what) {
    return Status(VLM_ERROR_FILE_WRITE, "Unable to write MPS: " + what);
  };
  bool blanks = false;
  std::size_t longest = 0;
  std::string long_name;
  std::string unfit;  // the first name MPS cannot hold in any layout, with the reason
  // Fields are cut at blanks (free) or trimmed (fixed), and lines end at line breaks: a name
  // with a control character or with a blank at either end would not read back as itself.
  auto holdable = [&](const std::string& s) {
    if (!unfit.empty()) return;
    for (char c : s) {
      const auto b = static_cast<unsigned char>(c);
      if (b < 0x20 || b == 0x7f) {
        unfit = "name '" + s + "' holds a control character (code " + std::to_string(b) +
                "), which MPS cannot hold";
        return;
      }
    }
    if (!s.empty() && (s.front() == ' ' || s.back() == ' ')) {
      unfit = "name '" + s + "' starts or ends with a blank, which MPS cannot hold";
    }
  };
  auto look = [&](const std::string& s) {
    holdable(s);
    if (s.find(' ') != std::string::npos) blanks = true;
    if (s.size() > longest) {
      longest = s.size();
      long_name = s;
    }
  };
  std::unordered_map<std::string, int> cols;
  for (int j = 0; j < d_.num_vars(); ++j) {
    std::string n = vname(j);
    if (n.empty()) return bad(indexed_name("variable ", j) + " has an empty name");
    auto [it, fresh] = cols.emplace(n, j);
    if (!fresh) {
      return bad(indexed_name("variables ", it->second) + indexed_name(" and ", j) +
                 " are both named '" + n + "'");
    }
    look(n);
  }
  std::unordered_map<std::string, std::string> rows;
  auto add_row = [&](const std::string& n, const std::string& what) -> Status {
    if (n.empty()) return bad(what + " has an empty name");
    auto [it, fresh] = rows.emplace(n, what);
    if (!fresh) return bad(it->second + " and " + what + " are both named '" + n + "'");
    look(n);
    return Status::Ok();
  };
  for (int i = 0; i < d_.num_constrs(); ++i) {
    VLM_RETURN_IF_ERROR(add_row(cname(i), indexed_name("constraint ", i)));
  }
  for (int i = 0; i < d_.num_qconstrs(); ++i) {
    VLM_RETURN_IF_ERROR(add_row(qname(i), indexed_name("quadratic constraint ", i)));
  }
  for (int i = 0; i < d_.num_genconstrs(); ++i) {
    if (gname(i).empty()) return bad(indexed_name("general constraint ", i) + " has an empty name");
    look(gname(i));
  }
  // The objective rows take names no constraint uses.
  auto fresh_row = [&](const std::string& base) {
    std::string n = base;
    for (int k = 1; rows.count(n); ++k) n = base + indexed_name("_", k);
    rows.emplace(n, "objective");
    return n;
  };
  obj_row_ = fresh_row("OBJ");
  for (int k = 0; k < static_cast<int>(d_.objn.size()); ++k) {
    objn_rows_.push_back(fresh_row(indexed_name("OBJ", k)));
  }

  if (!generic_) {
    holdable(d_.name);
    for (const ObjectiveN& o : d_.objn) holdable(o.name);
    for (const Scenario& sc : d_.scenarios) holdable(sc.name);
  }
  if (!unfit.empty()) return bad(unfit);

  if (layout_ == MpsLayout::kAuto) layout_ = blanks ? MpsLayout::kFixed : MpsLayout::kFree;
  fixed_ = layout_ == MpsLayout::kFixed;
  if (!fixed_ && blanks) {
    return bad("a name contains a blank, which free MPS cannot hold; use fixed MPS");
  }
  if (fixed_ && longest > 8) {
    return bad("name '" + long_name + "' is longer than the 8 characters fixed MPS allows");
  }
  return Status::Ok();
}

void MpsWriter::write_rows() {
  section("ROWS");
  field_line("N", obj_row_);
  for (const std::string& r : objn_rows_) field_line("N", r);
  for (int i = 0; i < d_.num_constrs(); ++i) field_line(std::string(1, row_type(d_.csense[i])), cname(i));
  for (int i = 0; i < d_.num_qconstrs(); ++i) {
    field_line(std::string(1, row_type(d_.qconstrs[i].sense)), qname(i));
  }
  if (!d_.objn.empty()) {
    section("OBJECTIVES");
    for (int k = 0; k < static_cast<int>(d_.objn.size()); ++k) {
      const ObjectiveN& o = d_.objn[k];
      std::string name = generic_ ? indexed_name("OBJ", k) : o.name;
      record("", {objn_rows_[k]},
             indexed_name("Priority=", o.priority) + " Weight=" + num(o.weight) +
                 " AbsTol=" + num(o.abstol) + " RelTol=" + num(o.reltol) + " Name=" + name);
    }
  }
}

void MpsWriter::write_columns() {
  // Column-wise view of the constraint rows (linear part of quadratic rows included), by row
  // position: linear rows first, then quadratic ones.
  const int n = d_.num_vars();
  const int m = d_.num_constrs();
  std::vector<std::vector<std::pair<int, double>>> col(n);
  for (int i = 0; i < m; ++i) {
    const Row& r = d_.rows[i];
    for (std::size_t k = 0; k < r.ind.size(); ++k) col[r.ind[k]].emplace_back(i, r.val[k]);
  }
  for (int i = 0; i < d_.num_qconstrs(); ++i) {
    const QConstrData& q = d_.qconstrs[i];
    for (std::size_t k = 0; k < q.lind.size(); ++k) col[q.lind[k]].emplace_back(m + i, q.lval[k]);
  }
  auto row_name = [&](int pos) { return pos < m ? cname(pos) : qname(pos - m); };
  section("COLUMNS");
  bool in_int = false;
  int markers = 0;
  auto marker = [&](const char* which) {
    std::string name = indexed_name("M", ++markers);
    if (fixed_) {
      text_ += "    " + pad(name, 8) + "  'MARKER'                 '" + which + "'\n";
    } else {
      text_ += "    " + name + " 'MARKER' '" + which + "'\n";
    }
  };
  for (int j = 0; j < n; ++j) {
    const bool is_int = d_.vtype[j] == 'I';
    if (is_int != in_int) {
      marker(is_int ? "INTORG" : "INTEND");
      in_int = is_int;
    }
    const std::string x = vname(j);
    bool any = false;
    if (nonzero(d_.obj[j])) {
      field_line("", x, obj_row_, num(d_.obj[j]));
      any = true;
    }
    for (int k = 0; k < static_cast<int>(d_.objn.size()); ++k) {
      double c = j < static_cast<int>(d_.objn[k].coef.size()) ? d_.objn[k].coef[j] : 0.0;
      if (nonzero(c)) {
        field_line("", x, objn_rows_[k], num(c));
        any = true;
      }
    }
    for (const auto& [pos, v] : col[j]) {
      field_line("", x, row_name(pos), num(v));
      any = true;
    }
    if (!any) field_line("", x, obj_row_, "0");
  }
  if (in_int) marker("INTEND");
}

void MpsWriter::write_rhs() {
  bool any = false;
  auto put = [&](const std::string& row, double v) {
    if (!any) section("RHS");
    any = true;
    field_line("", "RHS", row, num(v));
  };
  if (nonzero(d_.objcon)) put(obj_row_, -d_.objcon);
  for (int k = 0; k < static_cast<int>(d_.objn.size()); ++k) {
    if (nonzero(d_.objn[k].con)) put(objn_rows_[k], -d_.objn[k].con);
  }
  for (int i = 0; i < d_.num_constrs(); ++i) {
    if (nonzero(d_.rhs[i])) put(cname(i), d_.rhs[i]);
  }
  for (int i = 0; i < d_.num_qconstrs(); ++i) {
    if (nonzero(d_.qconstrs[i].rhs)) put(qname(i), d_.qconstrs[i].rhs);
  }
}

void MpsWriter::write_bounds() {
  bool any = false;
  auto put = [&](const char* type, const std::string& x, const std::string& v = "") {
    if (!any) section("BOUNDS");
    any = true;
    field_line(type, "BND", x, v);
  };
  for (int j = 0; j < d_.num_vars(); ++j) {
    const std::string x = vname(j);
    const double lb = d_.lb[j], ub = d_.ub[j];
    const char t = d_.vtype[j];
    const bool lb_differs = nonzero(lb);
    if (t == 'S' || t == 'N') {
      if (lb_differs) lb <= -VLM_INFINITY ? put("MI", x) : put("LO", x, num(lb));
      put(t == 'S' ? "SC" : "SI", x, num(ub));
      continue;
    }
    if (t == 'B') put("BV", x);
    const double def_ub = t == 'B' ? 1.0 : VLM_INFINITY;
    const bool ub_differs = ub != def_ub;
    if (!lb_differs && !ub_differs) continue;
    if (lb <= -VLM_INFINITY && ub >= VLM_INFINITY) {
      put("FR", x);
    } else if (lb == ub) {
      put("FX", x, num(lb));
    } else {
      if (lb_differs) {
        lb <= -VLM_INFINITY ? put("MI", x) : put("LO", x, num(lb));
      } else if (ub < 0.0) {
        // A negative upper bound alone would make the reader free the lower bound.
        put("LO", x, "0");
      }
      if (ub_differs) ub >= VLM_INFINITY ? put("PL", x) : put("UP", x, num(ub));
    }
  }
}

void MpsWriter::write_sos() {
  if (d_.sos.empty()) return;
  section("SOS");
  for (int i = 0; i < d_.num_sos(); ++i) {
    const SosData& s = d_.sos[i];
    const std::string set = indexed_name("s", i);
    record(indexed_name("S", s.type), {set}, "");
    for (std::size_t k = 0; k < s.ind.size(); ++k) record("", {set, vname(s.ind[k])}, num(s.weight[k]));
  }
}

void MpsWriter::write_quadratic() {
  if (!d_.qval.empty()) {
    section("QUADOBJ");
    for (std::size_t k = 0; k < d_.qval.size(); ++k) {
      const int i = d_.qrow[k], j = d_.qcol[k];
      if (i == j) {
        field_line("", vname(i), vname(i), num(2.0 * d_.qval[k]));
      } else {
        field_line("", vname(std::max(i, j)), vname(std::min(i, j)), num(d_.qval[k]));
      }
    }
  }
  for (int r = 0; r < d_.num_qconstrs(); ++r) {
    const QConstrData& q = d_.qconstrs[r];
    section("QCMATRIX   " + qname(r));
    for (std::size_t k = 0; k < q.qval.size(); ++k) {
      const int i = q.qrow[k], j = q.qcol[k];
      if (i == j) {
        field_line("", vname(i), vname(i), num(q.qval[k]));
      } else {
        field_line("", vname(i), vname(j), num(0.5 * q.qval[k]));
        field_line("", vname(j), vname(i), num(0.5 * q.qval[k]));
      }
    }
  }
}

void MpsWriter::write_pwlobj() {
  if (d_.pwlobj.empty()) return;
  section("PWLOBJ");
  for (const auto& [j, p] : d_.pwlobj) {
    for (std::size_t k = 0; k < p.x.size(); ++k) record("", {vname(j)}, num(p.x[k]) + " " + num(p.y[k]));
  }
}

void MpsWriter::write_genconstrs() {
  if (d_.genconstrs.empty()) return;
  section("GENCONS");
  for (int i = 0; i < d_.num_genconstrs(); ++i) {
    const GenConstrData& g = d_.genconstrs[i];
    record("GC", {gname(i)}, gen_type_name(g.type));
    switch (g.type) {
      case GenType::kMax:
      case GenType::kMin: {
        record("RV", {vname(g.res)}, "");
        for (int v : g.vars) record("OP", {vname(v)}, "");
        bool absent = g.type == GenType::kMax ? g.a <= -VLM_INFINITY : g.a >= VLM_INFINITY;
        if (!absent) record("CO", {}, num(g.a));
        break;
      }
      case GenType::kAnd:
      case GenType::kOr:
      case GenType::kNorm:
        record("RV", {vname(g.res)}, "");
        for (int v : g.vars) record("OP", {vname(v)}, "");
        if (g.type == GenType::kNorm) record("CO", {}, num(g.a));
        break;
      case GenType::kIndicator:
        record("IV", {vname(g.res)}, std::to_string(g.binval));
        for (std::size_t k = 0; k < g.vars.size(); ++k) record("OP", {vname(g.vars[k])}, num(g.vals[k]));
        record("SE", {}, std::string(1, row_type(g.sense)) + " " + num(g.rhs));
        break;
      default:
        record("RV", {vname(g.res)}, "");
        record("XV", {vname(g.arg)}, "");
        if (g.type == GenType::kPwl) {
          for (std::size_t k = 0; k < g.vals.size(); ++k) record("PT", {}, num(g.vals[k]) + " " + num(g.ypts[k]));
        } else if (g.type == GenType::kPoly) {
          for (double c : g.vals) record("PC", {}, num(c));
        } else if (g.type == GenType::kExpA || g.type == GenType::kLogA || g.type == GenType::kPow) {
          record("CO", {}, num(g.a));
        }
        if (!g.options.empty()) record("OT", {}, g.options);
        break;
    }
  }
}

// One SC header per scenario (its name is the rest of the line), then its changes in index
// order; changes to the same element come in the order LO, UP, OB.
void MpsWriter::write_scenarios() {
  if (d_.scenarios.empty()) return;
  section("SCENARIOS");
  for (int k = 0; k < static_cast<int>(d_.scenarios.size()); ++k) {
    const Scenario& sc = d_.scenarios[k];
    record("SC", {}, generic_ ? indexed_name("S", k) : sc.name);
    for (const auto& [j, v] : sc.lb) record("LO", {vname(j)}, num(v));
    for (const auto& [j, v] : sc.ub) record("UP", {vname(j)}, num(v));
    for (const auto& [j, v] : sc.obj) record("OB", {vname(j)}, num(v));
    for (const auto& [i, v] : sc.rhs) record("RH", {cname(i)}, num(v));
  }
}

Status MpsWriter::write(std::ostream& out, MpsLayout layout) {
  layout_ = layout;
  VLM_RETURN_IF_ERROR(check_names());
  if (!generic_ && !d_.name.empty()) {
    text_ += (fixed_ ? "NAME          " : "NAME ") + d_.name + "\n";
  } else {
    text_ += "NAME\n";
  }
  // A free NAME line ending in MAX or MIN sets the sense unless OBJSENSE follows: a model
  // name ending in such a word gets OBJSENSE whatever the sense.
  bool name_ends_in_sense = false;
  if (!generic_) {
    std::size_t sp = d_.name.find_last_of(' ');
    if (sp != std::string::npos) {
      std::string last = d_.name.substr(sp + 1);
      for (char& c : last) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
      for (const char* w : {"MAX", "MAXIMIZE", "MAXIMISE", "MIN", "MINIMIZE", "MINIMISE"}) {
        if (last == w) name_ends_in_sense = true;
      }
    }
  }
  if (d_.sense == -1 || name_ends_in_sense) {
    section("OBJSENSE");
    text_ += d_.sense == -1 ? "    MAX\n" : "    MIN\n";
  }
  write_rows();
  write_columns();
  write_rhs();
  write_bounds();
  write_sos();
  write_quadratic();
  write_pwlobj();
  write_genconstrs();
  write_scenarios();
  section("ENDATA");
  out << text_;
  if (!out) return Status(VLM_ERROR_FILE_WRITE, "Error while writing MPS text");
  return Status::Ok();
}

}  // namespace

Status write_mps(const ModelData& data, std::ostream& out, MpsLayout layout, bool generic_names) {
  MpsWriter w(data, generic_names);
  return w.write(out, layout);
}

}  // namespace vlm::io
