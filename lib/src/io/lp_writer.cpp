#include "io/lp_writer.h"

#include <algorithm>
#include <cmath>
#include <numeric>
#include <string>
#include <functional>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "io/file_format.h"
#include "io/lp_names.h"

namespace vlm::io {

namespace {

constexpr std::size_t kLineWidth = 100;

std::string num(double v) {
  if (v >= VLM_INFINITY) return "inf";
  if (v <= -VLM_INFINITY) return "-inf";
  return format_number(v);
}

bool nonzero(double v) { return v != 0.0 || std::signbit(v); }

const char* sense_op(char s) { return s == '<' ? "<=" : s == '>' ? ">=" : "="; }

// Text with line wrapping: pieces are put whole, a new line starts (indented) when the current
// one is full. Continuation lines therefore start with a term's sign or a list item, never
// with something that could be taken for a section header.
class Text {
 public:
  void begin(std::string_view head) {
    s_ += ' ';
    s_ += head;
    col_ = head.size() + 1;
  }
  void put(std::string_view piece) {
    if (col_ + 1 + piece.size() > kLineWidth && col_ > 4) {
      s_ += "\n   ";
      col_ = 3;
    }
    s_ += ' ';
    s_ += piece;
    col_ += piece.size() + 1;
  }
  // Appends to the current line whatever its length (option texts must stay on their line).
  void put_same_line(std::string_view piece) {
    s_ += ' ';
    s_ += piece;
    col_ += piece.size() + 1;
  }
  void end() {
    s_ += '\n';
    col_ = 0;
  }
  void line(std::string_view text) {
    s_ += text;
    s_ += '\n';
    col_ = 0;
  }
  std::string& str() { return s_; }

 private:
  std::string s_;
  std::size_t col_ = 0;
};

class LpWriter {
 public:
  LpWriter(const ModelData& d, bool generic)
      : d_(d),
        generic_(generic),
        parens_(!d.genconstrs.empty() || !d.pwlobj.empty()),
        seen_(d.num_vars(), 0) {
    if (!generic_) plan_var_names();
  }

  std::string write();

 private:
  // The name of variable j, noting the order in which the file first mentions variables.
  const std::string& vname(int j) {
    if (!seen_[j]) {
      seen_[j] = 1;
      order_.push_back(j);
    }
    return raw_vname(j);
  }
  // A variable's own name is returned in place; generic, default and escaped names are built.
  const std::string& raw_vname(int j) {
    if (!written_.empty() && !written_[j].empty()) return written_[j];
    if (!generic_ && !d_.varname.given(j).empty()) return d_.varname.given(j);
    scratch_ = generic_ ? indexed_name("C", j) : d_.varname[j];
    return scratch_;
  }
  // Constraint and objective names label their item; equal labels do no harm, so only names
  // the format cannot hold are escaped.
  std::string label(const std::string& name) const {
    return name.empty() ? name : lp_written_name(name, parens_);
  }
  std::string cname(int i) const { return generic_ ? indexed_name("R", i) : label(d_.constrname[i]); }
  std::string qname(int i) const { return generic_ ? indexed_name("QC", i) : label(d_.qconstrs[i].name); }
  std::string gname(int i) const { return generic_ ? indexed_name("GC", i) : label(d_.genconstrs[i].name); }
  std::string oname(int k) const { return generic_ ? indexed_name("OBJ", k) : label(d_.objn[k].name); }

  // Variables are identified by their names in an LP file: a name the format cannot hold is
  // escaped, and the k-th repeat of a name (k >= 1, in index order) is written as the escaped
  // name plus "~k", so that no two variables merge on reading (lp_names.h). The forms are
  // unique without a lookup: plain names never start with "~~", escapes are one-to-one and
  // hold no '~' of their own. Repeats are found by sorting (hash, index) pairs, which costs
  // far less than a set of a million strings. Fills written_ only when some name needs it.
  // O(n log n + total name length).
  void plan_var_names() {
    const int n = d_.num_vars();
    std::vector<std::string> made;  // default names of unnamed variables
    for (int j = 0; j < n; ++j) {
      if (!d_.varname.given(j).empty()) continue;
      if (made.empty()) made.resize(static_cast<std::size_t>(n));
      made[j] = d_.varname[j];
    }
    auto name = [&](int j) -> std::string_view {
      const std::string& g = d_.varname.given(j);
      return g.empty() ? std::string_view(made[j]) : std::string_view(g);
    };
    std::vector<std::pair<std::size_t, int>> keyed(static_cast<std::size_t>(n));
    for (int j = 0; j < n; ++j) keyed[j] = {std::hash<std::string_view>{}(name(j)), j};
    std::sort(keyed.begin(), keyed.end());
    std::vector<int> repeat;  // the k of each variable's name; empty when no name repeats
    for (std::size_t a = 0; a < keyed.size();) {
      std::size_t b = a + 1;
      while (b < keyed.size() && keyed[b].first == keyed[a].first) ++b;
      if (b - a > 1) {
        // Equal hashes: group by name (then index), and number the repeats of each name.
        std::sort(keyed.begin() + a, keyed.begin() + b, [&](const auto& x, const auto& y) {
          const int c = name(x.second).compare(name(y.second));
          return c != 0 ? c < 0 : x.second < y.second;
        });
        for (std::size_t k = a + 1; k < b; ++k) {
          if (name(keyed[k].second) != name(keyed[k - 1].second)) continue;
          if (repeat.empty()) repeat.resize(static_cast<std::size_t>(n), 0);
          repeat[keyed[k].second] = repeat[keyed[k - 1].second] + 1;
        }
      }
      a = b;
    }
    for (int j = 0; j < n; ++j) {
      const int k = repeat.empty() ? 0 : repeat[j];
      if (k == 0 && lp_plain_name(name(j), parens_)) continue;
      if (written_.empty()) written_.resize(static_cast<std::size_t>(n));
      written_[j] = lp_escape_name(name(j));
      if (k > 0) written_[j] += "~" + std::to_string(k);
    }
  }

  // "+ 2 x", "- x", or without the leading "+" for the first term.
  std::string term(double c, const std::string& name, bool first) const {
    std::string s = std::signbit(c) ? "- " : first ? "" : "+ ";
    double a = std::fabs(c);
    if (a != 1.0) s += num(a) + " ";
    return s + name;
  }
  std::string constant(double c, bool first) const {
    return (std::signbit(c) ? "- " : first ? "" : "+ ") + num(std::fabs(c));
  }
  // Linear terms sorted by variable; returns whether anything was written.
  bool linear(Text& t, const std::vector<int>& ind, const std::vector<double>& val) {
    std::vector<std::size_t> order(ind.size());
    std::iota(order.begin(), order.end(), 0);
    std::sort(order.begin(), order.end(), [&](std::size_t a, std::size_t b) { return ind[a] < ind[b]; });
    bool first = true;
    for (std::size_t k : order) {
      t.put(term(val[k], vname(ind[k]), first));
      first = false;
    }
    return !first;
  }
  void quadratic(Text& t, const std::vector<int>& qi, const std::vector<int>& qj,
                 const std::vector<double>& qv, double factor, bool first) {
    t.put(first ? "[" : "+ [");
    for (std::size_t k = 0; k < qv.size(); ++k) {
      std::string x = vname(qi[k]);
      std::string piece = term(factor * qv[k], x, k == 0);
      piece += qi[k] == qj[k] ? " ^ 2" : " * " + vname(qj[k]);
      t.put(piece);
    }
    t.put(factor == 1.0 ? "]" : "] / 2");
  }

  void write_objn(Text& t);
  void write_constraints(Text& t);
  void write_bounds(Text& t);
  void write_types(Text& t);
  void write_sos(Text& t);
  void write_pwlobj(Text& t);
  void write_genconstrs(Text& t);
  void write_genconstr(Text& t, int i);
  void write_scenarios(Text& t);

 public:
  // Scenarios name the constraints whose right-hand side they change, so such a constraint's
  // label must be its own: fails with VLM_ERROR_FILE_WRITE naming the two constraints.
  Status check_scenario_rows() const;

 private:

  const ModelData& d_;
  bool generic_;
  bool parens_;  // ( ) , are operators in some section of this file
  std::vector<char> seen_;
  std::vector<std::string> written_;  // escaped variable names; empty when none is needed
  std::vector<int> order_;
  std::string scratch_;
};

void LpWriter::write_objn(Text& t) {
  for (int k = 0; k < static_cast<int>(d_.objn.size()); ++k) {
    const ObjectiveN& o = d_.objn[k];
    std::string name = oname(k);
    t.begin(name.empty() ? std::string() : name + ":");
    t.put(indexed_name("Priority=", o.priority));
    t.put("Weight=" + num(o.weight));
    t.put("AbsTol=" + num(o.abstol));
    t.put("RelTol=" + num(o.reltol));
    t.end();
    t.begin("");
    bool first = true;
    for (int j = 0; j < static_cast<int>(o.coef.size()); ++j) {
      if (!nonzero(o.coef[j])) continue;
      t.put(term(o.coef[j], vname(j), first));
      first = false;
    }
    if (nonzero(o.con)) t.put(constant(o.con, first));
    t.end();
  }
}

void LpWriter::write_constraints(Text& t) {
  for (int i = 0; i < d_.num_constrs(); ++i) {
    t.begin(cname(i) + ":");
    if (!linear(t, d_.rows[i].ind, d_.rows[i].val)) t.put("0");
    t.put(sense_op(d_.csense[i]));
    t.put(num(d_.rhs[i]));
    t.end();
  }
  for (int i = 0; i < d_.num_qconstrs(); ++i) {
    const QConstrData& q = d_.qconstrs[i];
    t.begin(qname(i) + ":");
    bool any = linear(t, q.lind, q.lval);
    quadratic(t, q.qrow, q.qcol, q.qval, 1.0, !any);
    t.put(sense_op(q.sense));
    t.put(num(q.rhs));
    t.end();
  }
}

void LpWriter::write_bounds(Text& t) {
  std::string body;
  for (int j = 0; j < d_.num_vars(); ++j) {
    const double lb = d_.lb[j], ub = d_.ub[j];
    const double def_ub = d_.vtype[j] == 'B' ? 1.0 : VLM_INFINITY;
    const bool lb_differs = lb != 0.0 || std::signbit(lb);
    const bool ub_differs = ub != def_ub;
    if (!lb_differs && !ub_differs) continue;
    const std::string& x = vname(j);
    if (lb <= -VLM_INFINITY && ub >= VLM_INFINITY) {
      t.line(" " + x + " free");
    } else if (lb == ub) {
      t.line(" " + x + " = " + num(lb));
    } else if (lb_differs && ub_differs) {
      t.line(" " + num(lb) + " <= " + x + " <= " + num(ub));
    } else if (lb_differs) {
      t.line(" " + x + " >= " + num(lb));
    } else {
      t.line(" " + x + " <= " + num(ub));
    }
  }
}

void LpWriter::write_types(Text& t) {
  struct List {
    const char* header;
    bool (*member)(char);
  };
  static const List kLists[] = {
      {"Binaries", [](char c) { return c == 'B'; }},
      {"Generals", [](char c) { return c == 'I' || c == 'N'; }},
      {"Semi-Continuous", [](char c) { return c == 'S' || c == 'N'; }},
  };
  for (const List& l : kLists) {
    bool any = false;
    for (int j = 0; j < d_.num_vars(); ++j) {
      if (!l.member(d_.vtype[j])) continue;
      if (!any) t.line(l.header);
      any = true;
      t.line(" " + vname(j));
    }
  }
}

void LpWriter::write_sos(Text& t) {
  if (d_.sos.empty()) return;
  t.line("SOS");
  for (int i = 0; i < d_.num_sos(); ++i) {
    const SosData& s = d_.sos[i];
    t.begin(indexed_name("s", i) + ": S" + std::to_string(s.type) + " ::");
    for (std::size_t k = 0; k < s.ind.size(); ++k) t.put(vname(s.ind[k]) + ":" + num(s.weight[k]));
    t.end();
  }
}

void LpWriter::write_pwlobj(Text& t) {
  if (d_.pwlobj.empty()) return;
  t.line("PWLObj");
  for (const auto& [j, p] : d_.pwlobj) {
    t.begin(vname(j) + ":");
    for (std::size_t k = 0; k < p.x.size(); ++k) t.put("(" + num(p.x[k]) + ", " + num(p.y[k]) + ")");
    t.end();
  }
}

void LpWriter::write_genconstr(Text& t, int i) {
  const GenConstrData& g = d_.genconstrs[i];
  t.begin(gname(i) + ":");
  auto list = [&](const std::vector<std::string>& items) {
    t.put("(");
    for (std::size_t k = 0; k < items.size(); ++k) t.put(items[k] + (k + 1 < items.size() ? " ," : ""));
    t.put(")");
  };
  auto var_items = [&](const std::vector<int>& vars) {
    std::vector<std::string> items;
    for (int v : vars) items.push_back(vname(v));
    return items;
  };
  if (g.type == GenType::kIndicator) {
    t.put(vname(g.res));
    t.put(indexed_name("= ", g.binval) + " ->");
    if (!linear(t, g.vars, g.vals)) t.put("0");
    t.put(sense_op(g.sense));
    t.put(num(g.rhs));
    t.end();
    return;
  }
  t.put(vname(g.res));
  t.put("=");
  t.put(gen_type_name(g.type));
  switch (g.type) {
    case GenType::kMax:
    case GenType::kMin: {
      std::vector<std::string> items = var_items(g.vars);
      bool absent = g.type == GenType::kMax ? g.a <= -VLM_INFINITY : g.a >= VLM_INFINITY;
      if (!absent) items.push_back(num(g.a));
      list(items);
      break;
    }
    case GenType::kAnd:
    case GenType::kOr:
      list(var_items(g.vars));
      break;
    case GenType::kNorm:
      list({num(g.a)});
      list(var_items(g.vars));
      break;
    default:
      list({vname(g.arg)});
      if (g.type == GenType::kPwl) {
        t.put(":");
        for (std::size_t k = 0; k < g.vals.size(); ++k) {
          t.put("(" + num(g.vals[k]) + ", " + num(g.ypts[k]) + ")");
        }
      } else if (g.type == GenType::kPoly) {
        t.put(":");
        std::string s = "(";
        for (std::size_t k = 0; k < g.vals.size(); ++k) {
          t.put(s + num(g.vals[k]) + (k + 1 < g.vals.size() ? "," : ")"));
          s.clear();
        }
        if (g.vals.empty()) t.put("( )");
      } else if (g.type == GenType::kExpA || g.type == GenType::kLogA || g.type == GenType::kPow) {
        t.put(num(g.a));
      }
      if (g.type != GenType::kAbs && g.type != GenType::kPwl && !g.options.empty()) {
        t.put_same_line(g.options);
      }
      break;
  }
  t.end();
}

void LpWriter::write_genconstrs(Text& t) {
  if (d_.genconstrs.empty()) return;
  t.line("General Constraints");
  for (int i = 0; i < d_.num_genconstrs(); ++i) write_genconstr(t, i);
}

Status LpWriter::check_scenario_rows() const {
  bool any = false;
  for (const Scenario& sc : d_.scenarios) any = any || !sc.rhs.empty();
  if (!any) return Status::Ok();
  std::unordered_map<std::string, int> count;
  for (int i = 0; i < d_.num_constrs(); ++i) ++count[cname(i)];
  for (std::size_t k = 0; k < d_.scenarios.size(); ++k) {
    for (const auto& [i, v] : d_.scenarios[k].rhs) {
      const std::string name = cname(i);
      if (count[name] < 2) continue;
      int other = 0;
      while (other == i || cname(other) != name) ++other;
      return Status(VLM_ERROR_FILE_WRITE,
                    "Unable to write LP: scenario " + std::to_string(k) + " changes the right-hand side of constraint " +
                        std::to_string(i) + " named '" + d_.constrname[i] + "', a name constraint " +
                        std::to_string(other) + " has too (LP files refer to constraints by name)");
    }
  }
  return Status::Ok();
}

// One "name: Scenario" header per scenario (no label when it has no name), then one change per
// line; lines are never wrapped, so a record cut short is seen as such. The reader creates no
// variable here, so these mentions do not count in the order of first mention (raw_vname).
void LpWriter::write_scenarios(Text& t) {
  if (d_.scenarios.empty()) return;
  t.line("Scenarios");
  for (int k = 0; k < static_cast<int>(d_.scenarios.size()); ++k) {
    const Scenario& sc = d_.scenarios[k];
    const std::string name = generic_ ? indexed_name("S", k) : label(sc.name);
    t.line(name.empty() ? " Scenario" : " " + name + ": Scenario");
    for (const auto& [j, v] : sc.lb) t.line("  LB " + raw_vname(j) + " = " + num(v));
    for (const auto& [j, v] : sc.ub) t.line("  UB " + raw_vname(j) + " = " + num(v));
    for (const auto& [j, v] : sc.obj) t.line("  Obj " + raw_vname(j) + " = " + num(v));
    for (const auto& [i, v] : sc.rhs) t.line("  RHS " + cname(i) + " = " + num(v));
  }
}

std::string LpWriter::write() {
  const int n = d_.num_vars();
  const bool multi = !d_.objn.empty();

  // Everything after the objective's linear part first, to learn the order in which it
  // mentions variables.
  Text quad, objn, body;
  if (!d_.qval.empty()) quadratic(quad, d_.qrow, d_.qcol, d_.qval, 2.0, false);
  write_objn(objn);
  body.line("Subject To");
  write_constraints(body);
  {
    Text b;
    write_bounds(b);
    if (!b.str().empty()) {
      body.line("Bounds");
      body.str() += b.str();
    }
  }
  write_types(body);
  write_sos(body);
  write_pwlobj(body);
  write_genconstrs(body);
  write_scenarios(body);
  body.line("End");

  // The objective names variables 0..r-1 (coefficient 0 where need be) so that, with the
  // later mentions of r..n-1 in increasing order, the reader numbers them as we do.
  std::vector<int> pos(n, -1);
  for (int k = 0; k < static_cast<int>(order_.size()); ++k) pos[order_[k]] = k;
  int r = n;
  while (r > 0) {
    const int j = r - 1;
    if (nonzero(d_.obj[j]) || pos[j] < 0 || (r < n && pos[j] > pos[r])) break;
    --r;
  }

  Text head;
  if (!generic_ && !d_.name.empty()) {
    // A model name with a line break would end the comment early: such names are escaped.
    const bool one_line = d_.name.find_first_of("\r\n") == std::string::npos;
    head.line("\\ Model: " + (one_line ? d_.name : lp_escape_name(d_.name)));
  }
  const char* sense = d_.sense == -1 ? "Maximize" : "Minimize";
  head.line(multi ? std::string(sense) + " multi-objectives" : std::string(sense));
  head.begin("obj:");
  bool first = true;
  for (int j = 0; j < r; ++j) {
    head.put(term(d_.obj[j], raw_vname(j), first));
    first = false;
  }
  std::string out = head.str();
  if (!d_.qval.empty()) {
    // The bracket was laid out on its own; glue it to the objective line.
    std::string q = quad.str();
    if (first && q.rfind(" + [", 0) == 0) q = " [" + q.substr(4);
    out += q;
    first = false;
  }
  if (nonzero(d_.objcon)) {
    out += " " + constant(d_.objcon, first);
  }
  out += "\n";
  out += objn.str();
  out += body.str();
  return out;
}

}  // namespace

Status write_lp(const ModelData& data, std::ostream& out, bool generic_names) {
  LpWriter w(data, generic_names);
  VLM_RETURN_IF_ERROR(w.check_scenario_rows());
  out << w.write();
  if (!out) return Status(VLM_ERROR_FILE_WRITE, "Error while writing LP text");
  return Status::Ok();
}

}  // namespace vlm::io
