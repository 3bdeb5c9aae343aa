#include "io/lp_reader.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <optional>
#include <unordered_map>
#include <vector>

#include "core/text.h"
#include "io/lp_names.h"
#include "io/lp_tokens.h"

namespace vlm::io {

namespace {

using namespace lp;  // NOLINT: the tokens are this reader's own vocabulary

struct Expr {
  std::vector<int> ind;
  std::vector<double> val;
  std::vector<int> qi, qj;
  std::vector<double> qv;
  double constant = 0.0;
  bool bracket = false;

  bool no_terms() const { return ind.empty() && !bracket; }
};

char flip(char sense) { return sense == '<' ? '>' : sense == '>' ? '<' : '='; }

double bound_value(double v) {
  if (v >= kFileInfinity) return VLM_INFINITY;
  if (v <= -kFileInfinity) return -VLM_INFINITY;
  return v;
}

bool is_attr_key(std::string_view s) {
  return iequals(s, "priority") || iequals(s, "weight") || iequals(s, "abstol") || iequals(s, "reltol");
}

class LpParser {
 public:
  LpParser(const std::string& filename, ReadModel& out) : filename_(filename), out_(out), d_(out.data) {}

  Status parse(std::string_view text);

 private:
  // --- the token cursor of the section being parsed -----------------------------------------
  bool done() const { return pos_ >= toks_->size(); }
  const Token* peek(std::size_t k = 0) const {
    return pos_ + k < toks_->size() ? &(*toks_)[pos_ + k] : nullptr;
  }
  bool peek_op(std::string_view op, std::size_t k = 0) const {
    const Token* t = peek(k);
    return t != nullptr && t->kind == Kind::kOp && t->text == op;
  }
  bool peek_kind(Kind kind, std::size_t k = 0) const {
    const Token* t = peek(k);
    return t != nullptr && t->kind == kind;
  }
  bool peek_sign(std::size_t k = 0) const { return peek_op("+", k) || peek_op("-", k); }
  bool peek_sense(std::size_t k = 0) const {
    const Token* t = peek(k);
    if (t == nullptr || t->kind != Kind::kOp) return false;
    const std::string& s = t->text;
    return s == "<=" || s == "=<" || s == "<" || s == ">=" || s == "=>" || s == ">" || s == "=";
  }
  // A name followed by ':' starts the next labelled item.
  bool peek_label(std::size_t k = 0) const { return peek_kind(Kind::kName, k) && peek_op(":", k + 1); }
  // Consumes a leading "name:" and returns the name ("" when there is none).
  std::string take_label() {
    if (!peek_label()) return std::string();
    std::string label = lp_read_name(peek()->text);
    pos_ += 2;
    return label;
  }
  int current_line() const {
    if (const Token* t = peek()) return t->line;
    return toks_->empty() ? section_line_ : toks_->back().line;
  }
  std::string found() const {
    if (const Token* t = peek()) return "'" + t->text + "'";
    return "the end of the " + std::string(section_name(section_)) + " section";
  }
  // The text of the tokens from `from` to the cursor, for messages.
  std::string since(std::size_t from) const {
    std::string s;
    for (std::size_t k = from; k < pos_ && k < toks_->size(); ++k) {
      if (!s.empty()) s.push_back(' ');
      s += (*toks_)[k].text;
    }
    if (s.size() > 60) s = "..." + s.substr(s.size() - 57);
    return s;
  }
  Status expected(const std::string& what) const {
    return parse_error(filename_, current_line(), "expected " + what + ", found " + found());
  }
  Status expect_op(std::string_view op, const std::string& context) {
    if (!peek_op(op)) return expected("'" + std::string(op) + "' " + context);
    ++pos_;
    return Status::Ok();
  }

  // A number with optional signs; "inf"/"infinity" count when `inf_names`.
  bool parse_number(double& v, bool inf_names = true) {
    std::size_t save = pos_;
    double sign = 1.0;
    while (peek_sign()) {
      if (peek_op("-")) sign = -sign;
      ++pos_;
    }
    const Token* t = peek();
    if (t != nullptr && t->kind == Kind::kNumber) {
      v = sign * t->value;
      ++pos_;
      return true;
    }
    if (inf_names && t != nullptr && t->kind == Kind::kName &&
        (iequals(t->text, "inf") || iequals(t->text, "infinity"))) {
      v = sign * HUGE_VAL;
      ++pos_;
      return true;
    }
    pos_ = save;
    return false;
  }
  bool peek_number() {
    std::size_t save = pos_;
    double v;
    bool ok = parse_number(v);
    pos_ = save;
    return ok;
  }
  bool parse_sense(char& sense) {
    if (!peek_sense()) return false;
    const std::string& s = peek()->text;
    sense = s[0] == '<' || s == "=<" ? '<' : s[0] == '>' || s == "=>" ? '>' : '=';
    ++pos_;
    return true;
  }
  Status expect_name(std::string& name, const std::string& what) {
    if (!peek_kind(Kind::kName)) return expected(what);
    name = peek()->text;
    ++pos_;
    return Status::Ok();
  }
  Status expect_var(int& v, const std::string& what) {
    std::string name;
    VLM_RETURN_IF_ERROR(expect_name(name, what));
    v = var(name);
    return Status::Ok();
  }

  // --- model pieces -------------------------------------------------------------------------
  int var(const std::string& name) {
    auto [it, added] = var_index_.emplace(name, d_.num_vars());
    if (added) {
      d_.lb.push_back(0.0);
      d_.ub.push_back(VLM_INFINITY);
      d_.obj.push_back(0.0);
      d_.vtype.push_back('C');
      d_.varname.push_back(lp_read_name(name));
      lb_set_.push_back(0);
      ub_set_.push_back(0);
      binary_.push_back(0);
      integer_.push_back(0);
      semi_.push_back(0);
    }
    return it->second;
  }

  Status parse_expr(Expr& e, bool allow_quad, bool stop_at_attrs = false);
  Status parse_bracket(Expr& e, double sign);
  Status parse_rhs(Expr& rhs, std::size_t from);

  bool peek_indicator() const {
    if (!peek_kind(Kind::kName) || !peek_op("=", 1)) return false;
    std::size_t k = 2;
    while (peek_sign(k)) ++k;
    return peek_kind(Kind::kNumber, k) && peek_op("->", k + 1);
  }
  Status parse_indicator(const std::string& label);

  Status parse_objective(const SectionText& s);
  Status parse_multi_objective(const SectionText& s);
  Status parse_constraints();
  Status parse_bounds();
  Status parse_type_list(std::vector<char>& flags);
  Status parse_sos();
  Status parse_pwlobj();
  Status parse_genconstrs();
  Status parse_scenarios();
  Status parse_points(std::vector<double>& x, std::vector<double>& y);
  void take_options(GenConstrData& g);
  void finish();

  const std::string& filename_;
  ReadModel& out_;
  ModelData& d_;
  std::vector<std::string> lines_;  // comment-free lines, for option texts
  const std::vector<Token>* toks_ = nullptr;
  std::size_t pos_ = 0;
  int section_line_ = 0;
  Section section_ = Section::kObjective;
  std::unordered_map<std::string, int> var_index_;
  std::vector<char> lb_set_, ub_set_, binary_, integer_, semi_;
  std::vector<std::pair<std::vector<int>, std::vector<double>>> objn_terms_;
  bool seen_objective_ = false;
};

Status LpParser::parse(std::string_view text) {
  // Pass 1: split into sections of tokens.
  std::vector<SectionText> sections;
  int lineno = 0;
  int last_text_line = 0;
  std::size_t at = 0;
  bool ended = false;
  while (at <= text.size() && !ended) {
    std::size_t nl = text.find('\n', at);
    std::string_view raw = text.substr(at, nl == std::string_view::npos ? std::string_view::npos : nl - at);
    at = nl == std::string_view::npos ? text.size() + 1 : nl + 1;
    ++lineno;
    std::string_view line = raw;
    std::size_t bs = line.find('\\');
    if (bs != std::string_view::npos) {
      if (sections.empty()) {
        if (auto name = name_in_comment(line.substr(bs + 1))) d_.name = lp_read_name(*name);
      }
      line = line.substr(0, bs);
    }
    if (!trim(raw).empty()) last_text_line = lineno;
    lines_.emplace_back(line);
    if (trim(line).empty()) continue;
    // Headers normally start their line; indented, only the unmistakable long forms count,
    // so that a variable called "bin" or "end" in a list is not taken for a header.
    const bool indented = is_blank(line[0]);
    std::optional<SectionText> header = header_of(normalise(line));
    if (header && indented && !long_header(normalise(line))) header.reset();
    std::string_view content = line;
    if (header) {
      content = {};
    } else if (!indented) {
      // A header may start a line that goes on with content: "Maximize obj: x + y".
      std::string_view lead = trim(line);
      std::size_t sp = 0;
      while (sp < lead.size() && !is_blank(lead[sp])) ++sp;
      std::string first = normalise(lead.substr(0, sp));
      std::string_view rest = trim(lead.substr(sp));
      if (objective_word(first) != 0) {
        header = header_of(first);
        content = rest;
      } else if (first == "subject" || first == "such") {
        std::size_t sp2 = 0;
        while (sp2 < rest.size() && !is_blank(rest[sp2])) ++sp2;
        std::string second = normalise(rest.substr(0, sp2));
        if ((first == "subject" && second == "to") || (first == "such" && second == "that")) {
          header = header_of(first + " " + second);
          content = trim(rest.substr(sp2));
        }
      }
      // Token columns are kept relative to the text that is tokenised.
      if (header) lines_.back() = std::string(content);
    }
    if (header) {
      header->line = lineno;
      if (header->kind == Section::kEnd) {
        ended = true;
        break;
      }
      sections.push_back(std::move(*header));
      if (content.empty()) continue;
    }
    if (sections.empty()) {
      std::vector<Token> t;
      tokenize(content, lineno, false, t);
      return parse_error(filename_, lineno,
                         "expected a section such as 'Minimize' or 'Subject To', found '" +
                             (t.empty() ? std::string(trim(content)) : t.front().text) + "'");
    }
    Section k = sections.back().kind;
    bool parens = k == Section::kGenConstrs || k == Section::kPwlObj;
    tokenize(lines_.back(), lineno, parens, sections.back().tokens);
  }

  // Pass 2: parse section by section, in file order (variables are numbered as they appear).
  for (const SectionText& s : sections) {
    toks_ = &s.tokens;
    pos_ = 0;
    section_line_ = s.line;
    section_ = s.kind;
    Status st;
    switch (s.kind) {
      case Section::kObjective:
      case Section::kMultiObjective:
        if (seen_objective_) {
          return parse_error(filename_, s.line, "expected one objective section, found a second");
        }
        seen_objective_ = true;
        d_.sense = s.sense;
        st = s.kind == Section::kObjective ? parse_objective(s) : parse_multi_objective(s);
        break;
      case Section::kConstraints:
        st = parse_constraints();
        break;
      case Section::kBounds:
        st = parse_bounds();
        break;
      case Section::kBinaries:
        st = parse_type_list(binary_);
        break;
      case Section::kGenerals:
        st = parse_type_list(integer_);
        break;
      case Section::kSemis:
        st = parse_type_list(semi_);
        break;
      case Section::kSos:
        st = parse_sos();
        break;
      case Section::kPwlObj:
        st = parse_pwlobj();
        break;
      case Section::kGenConstrs:
        st = parse_genconstrs();
        break;
      case Section::kScenarios:
        st = parse_scenarios();
        break;
      case Section::kEnd:
        break;
    }
    VLM_RETURN_IF_ERROR(st);
  }
  // A file without End was cut short (or never finished): refusing it is the only way not to
  // pass off part of a model as the whole. Errors in the text come first, as they say more.
  if (!ended) {
    return parse_error(filename_, last_text_line,
                       "expected 'End' after this line, found the end of the file (is the file cut short?)");
  }
  finish();
  return Status::Ok();
}

Status LpParser::parse_expr(Expr& e, bool allow_quad, bool stop_at_attrs) {
  bool first = true;
  for (;;) {
    std::size_t save = pos_;
    double sign = 1.0;
    bool had_sign = false;
    while (peek_sign()) {
      if (peek_op("-")) sign = -sign;
      had_sign = true;
      ++pos_;
    }
    // After the first term, every term starts with a sign; anything else ends the expression.
    if (!first && !had_sign) {
      pos_ = save;
      return Status::Ok();
    }
    auto starts_next_item = [&](std::size_t k) {
      return peek_label(k) || (stop_at_attrs && peek_kind(Kind::kName, k) && is_attr_key(peek(k)->text) &&
                               peek_op("=", k + 1));
    };
    const Token* t = peek();
    if (t != nullptr && t->kind == Kind::kOp && t->text == "[") {
      if (!allow_quad) return expected("a linear term (no quadratic terms here)");
      VLM_RETURN_IF_ERROR(parse_bracket(e, sign));
    } else if (t != nullptr && t->kind == Kind::kNumber) {
      double c = sign * t->value;
      ++pos_;
      if (peek_kind(Kind::kName) && !starts_next_item(0)) {
        e.ind.push_back(var(peek()->text));
        e.val.push_back(c);
        ++pos_;
      } else {
        e.constant += c;
      }
    } else if (t != nullptr && t->kind == Kind::kName && !starts_next_item(0)) {
      e.ind.push_back(var(t->text));
      e.val.push_back(sign);
      ++pos_;
    } else {
      if (had_sign) return expected("a term after '+' or '-'");
      pos_ = save;
      return Status::Ok();
    }
    first = false;
  }
}

Status LpParser::parse_bracket(Expr& e, double sign) {
  ++pos_;  // '['
  e.bracket = true;
  std::vector<int> qi, qj;
  std::vector<double> qv;
  bool first = true;
  for (;;) {
    if (peek_op("]")) {
      ++pos_;
      break;
    }
    double s = 1.0;
    bool had_sign = false;
    while (peek_sign()) {
      if (peek_op("-")) s = -s;
      had_sign = true;
      ++pos_;
    }
    if (!first && !had_sign) return expected("'+', '-' or ']' in a quadratic expression");
    double c = s;
    if (peek_kind(Kind::kNumber)) {
      c = s * peek()->value;
      ++pos_;
    }
    int v1 = -1;
    VLM_RETURN_IF_ERROR(expect_var(v1, "a variable in a quadratic term"));
    int v2 = v1;
    if (peek_op("^")) {
      ++pos_;
      if (!peek_kind(Kind::kNumber) || peek()->value != 2.0) return expected("2 after '^'");
      ++pos_;
    } else if (peek_op("*")) {
      ++pos_;
      VLM_RETURN_IF_ERROR(expect_var(v2, "a variable after '*'"));
    } else {
      return expected("'^ 2' or '* variable' in a quadratic term");
    }
    qi.push_back(v1);
    qj.push_back(v2);
    qv.push_back(c);
    first = false;
  }
  double divisor = 1.0;
  if (peek_op("/")) {
    ++pos_;
    if (!peek_kind(Kind::kNumber) || peek()->value == 0.0) return expected("a non-zero divisor after '/'");
    divisor = peek()->value;
    ++pos_;
  }
  for (std::size_t k = 0; k < qv.size(); ++k) {
    e.qi.push_back(qi[k]);
    e.qj.push_back(qj[k]);
    e.qv.push_back(sign * qv[k] / divisor);
  }
  return Status::Ok();
}

// The right-hand side after a sense. A constant ends the constraint unless more terms follow
// on the same line, so that an unlabelled constraint starting "- x" on the next line is not
// taken for more of it.
Status LpParser::parse_rhs(Expr& rhs, std::size_t from) {
  double v;
  if (parse_number(v)) {
    rhs.constant = v;
    if (peek_sign() && peek()->line == (*toks_)[pos_ - 1].line) return parse_expr(rhs, true);
    return Status::Ok();
  }
  std::size_t before = pos_;
  VLM_RETURN_IF_ERROR(parse_expr(rhs, true));
  if (pos_ == before) return expected("a right-hand side after '" + since(from) + "'");
  return Status::Ok();
}

// Moves everything to "lhs sense rhs-constant" form.
void combine(Expr& lhs, Expr& rhs, char& sense, double& value) {
  if (lhs.no_terms() && !rhs.no_terms()) {
    std::swap(lhs, rhs);
    sense = flip(sense);
  }
  for (std::size_t k = 0; k < rhs.ind.size(); ++k) {
    lhs.ind.push_back(rhs.ind[k]);
    lhs.val.push_back(-rhs.val[k]);
  }
  for (std::size_t k = 0; k < rhs.qv.size(); ++k) {
    lhs.qi.push_back(rhs.qi[k]);
    lhs.qj.push_back(rhs.qj[k]);
    lhs.qv.push_back(-rhs.qv[k]);
  }
  lhs.bracket = lhs.bracket || rhs.bracket;
  value = rhs.constant - lhs.constant;
}

Status LpParser::parse_indicator(const std::string& label) {
  std::size_t from = pos_;
  GenConstrData g;
  g.type = GenType::kIndicator;
  g.name = label;
  g.res = var(peek()->text);
  pos_ += 2;  // name '='
  double binval = 0.0;
  parse_number(binval, false);
  if (binval != 0.0 && binval != 1.0) {
    return parse_error(filename_, current_line(),
                       "expected 0 or 1 as the indicator value in '" + since(from) + "'");
  }
  g.binval = static_cast<int>(binval);
  ++pos_;  // '->'
  Expr lhs, rhs;
  VLM_RETURN_IF_ERROR(parse_expr(lhs, false));
  char sense = '=';
  if (!parse_sense(sense)) {
    return expected("a constraint sense '<=', '>=' or '=' after '" + since(from) + "'");
  }
  VLM_RETURN_IF_ERROR(parse_rhs(rhs, from));
  if (rhs.bracket) return parse_error(filename_, current_line(), "an indicator constraint must be linear");
  double value = 0.0;
  combine(lhs, rhs, sense, value);
  g.vars = std::move(lhs.ind);
  g.vals = std::move(lhs.val);
  g.sense = sense;
  g.rhs = value;
  d_.genconstrs.push_back(std::move(g));
  return Status::Ok();
}

Status LpParser::parse_objective(const SectionText&) {
  if (peek_label()) pos_ += 2;
  Expr e;
  VLM_RETURN_IF_ERROR(parse_expr(e, true));
  if (!done()) return expected("'+' or '-' or the end of the objective");
  for (std::size_t k = 0; k < e.ind.size(); ++k) d_.obj[e.ind[k]] += e.val[k];
  d_.objcon = e.constant;
  d_.qrow = std::move(e.qi);
  d_.qcol = std::move(e.qj);
  d_.qval = std::move(e.qv);
  return Status::Ok();
}

// Entries "name: Priority=2 Weight=1 AbsTol=1e-06 RelTol=0 expr" are the objectives n in
// order; the one entry without attributes is the primary objective.
Status LpParser::parse_multi_objective(const SectionText&) {
  bool primary = false;
  while (!done()) {
    std::string label = take_label();
    ObjectiveN o;
    bool has_attrs = false;
    while (peek_kind(Kind::kName) && is_attr_key(peek()->text) && peek_op("=", 1)) {
      std::string key = to_lower(peek()->text);
      pos_ += 2;
      double v = 0.0;
      if (!parse_number(v)) return expected("a number after '" + key + "='");
      if (key == "priority") {
        if (v != std::floor(v) || std::fabs(v) > VLM_MAXINT) return expected("an integer priority");
        o.priority = static_cast<int>(v);
      } else if (key == "weight") {
        o.weight = v;
      } else if (key == "abstol") {
        o.abstol = v;
      } else {
        o.reltol = v;
      }
      has_attrs = true;
    }
    Expr e;
    std::size_t before = pos_;
    VLM_RETURN_IF_ERROR(parse_expr(e, !has_attrs, true));
    if (!has_attrs) {
      if (primary) return expected("'Priority=' in an objective after the first");
      if (pos_ == before && label.empty()) return expected("an objective");
      primary = true;
      for (std::size_t k = 0; k < e.ind.size(); ++k) d_.obj[e.ind[k]] += e.val[k];
      d_.objcon = e.constant;
      d_.qrow = std::move(e.qi);
      d_.qcol = std::move(e.qj);
      d_.qval = std::move(e.qv);
      continue;
    }
    o.name = label;
    o.con = e.constant;
    d_.objn.push_back(std::move(o));
    objn_terms_.emplace_back(std::move(e.ind), std::move(e.val));
  }
  return Status::Ok();
}

Status LpParser::parse_constraints() {
  while (!done()) {
    std::string label = take_label();
    if (peek_indicator()) {
      VLM_RETURN_IF_ERROR(parse_indicator(label));
      continue;
    }
    std::size_t from = pos_;
    Expr lhs, rhs;
    VLM_RETURN_IF_ERROR(parse_expr(lhs, true));
    if (pos_ == from) return expected(label.empty() ? "a constraint" : "an expression after '" + label + ":'");
    char sense = '=';
    if (!parse_sense(sense)) {
      return expected("a constraint sense '<=', '>=' or '=' after '" + since(from) + "'");
    }
    VLM_RETURN_IF_ERROR(parse_rhs(rhs, from));
    if (peek_sense()) {
      // lo <= expr <= hi
      char sense2 = '=';
      parse_sense(sense2);
      double bound2 = 0.0;
      if (!parse_number(bound2)) return expected("a number after '" + since(from) + "'");
      if (!lhs.no_terms() || rhs.no_terms() || rhs.bracket || sense != sense2 || sense == '=') {
        return parse_error(filename_, current_line(),
                           "expected a range 'lo <= expression <= hi' or 'hi >= expression >= lo', "
                           "found '" + since(from) + "'");
      }
      double lo = lhs.constant - rhs.constant, hi = bound2 - rhs.constant;
      if (sense == '>') std::swap(lo, hi);
      const int row = d_.num_constrs();
      d_.rows.push_back(Row{std::move(rhs.ind), std::move(rhs.val)});
      d_.csense.push_back('=');
      d_.rhs.push_back(lo);
      d_.constrname.push_back(label);
      out_.range_upper[row] = hi;
      continue;
    }
    double value = 0.0;
    combine(lhs, rhs, sense, value);
    if (lhs.bracket) {
      QConstrData q;
      q.lind = std::move(lhs.ind);
      q.lval = std::move(lhs.val);
      q.qrow = std::move(lhs.qi);
      q.qcol = std::move(lhs.qj);
      q.qval = std::move(lhs.qv);
      q.sense = sense;
      q.rhs = value;
      q.name = label;
      d_.qconstrs.push_back(std::move(q));
    } else {
      d_.rows.push_back(Row{std::move(lhs.ind), std::move(lhs.val)});
      d_.csense.push_back(sense);
      d_.rhs.push_back(value);
      d_.constrname.push_back(label);
    }
  }
  return Status::Ok();
}

Status LpParser::parse_bounds() {
  while (!done()) {
    std::size_t from = pos_;
    if (peek_kind(Kind::kName) && peek_kind(Kind::kName, 1) && iequals(peek(1)->text, "free")) {
      int v = var(peek()->text);
      pos_ += 2;
      d_.lb[v] = -VLM_INFINITY;
      d_.ub[v] = VLM_INFINITY;
      lb_set_[v] = ub_set_[v] = 1;
      continue;
    }
    double lead = 0.0;
    char lead_sense = 0;
    // "inf" as a leading number only when a sense follows; otherwise it may be a variable.
    {
      std::size_t save = pos_;
      if (parse_number(lead)) {
        if (!parse_sense(lead_sense)) {
          pos_ = save;
          if (peek_kind(Kind::kNumber) || peek_sign()) {
            parse_number(lead);
            return expected("a sense after '" + since(from) + "'");
          }
        }
      }
    }
    int v = -1;
    VLM_RETURN_IF_ERROR(expect_var(v, lead_sense ? "a variable after '" + since(from) + "'"
                                                 : "a bound such as 'x <= 5', 'x free' or '-inf <= x <= 5'"));
    auto apply = [&](char sense, double value, bool var_on_left) {
      value = bound_value(value);
      if (!var_on_left) sense = flip(sense);
      if (sense == '<' || sense == '=') {
        d_.ub[v] = value;
        ub_set_[v] = 1;
      }
      if (sense == '>' || sense == '=') {
        d_.lb[v] = value;
        lb_set_[v] = 1;
      }
    };
    if (lead_sense) apply(lead_sense, lead, false);
    char sense = 0;
    if (parse_sense(sense)) {
      double value = 0.0;
      if (!parse_number(value)) return expected("a number after '" + since(from) + "'");
      apply(sense, value, true);
    } else if (!lead_sense) {
      return expected("a bound after '" + since(from) + "' ('<=', '>=', '=' or 'free')");
    }
  }
  return Status::Ok();
}

Status LpParser::parse_type_list(std::vector<char>& flags) {
  while (!done()) {
    int v = -1;
    VLM_RETURN_IF_ERROR(expect_var(v, "a variable name"));
    flags[v] = 1;
  }
  return Status::Ok();
}

// "s1: S1 :: x:1 y:2" (the set's label is optional and not kept).
Status LpParser::parse_sos() {
  auto is_type = [&](std::size_t k) {
    return peek_kind(Kind::kName, k) && (iequals(peek(k)->text, "S1") || iequals(peek(k)->text, "S2")) &&
           peek_op("::", k + 1);
  };
  while (!done()) {
    if (peek_label() && is_type(2)) pos_ += 2;
    if (!is_type(0)) return expected("an SOS set 'name: S1 :: x:1 y:2'");
    SosData s;
    s.type = peek()->text[1] - '0';
    pos_ += 2;
    while (peek_label() && !is_type(2)) {
      int v = var(peek()->text);
      pos_ += 2;
      double w = 0.0;
      if (!parse_number(w, false)) return expected("a weight after '" + (*toks_)[pos_ - 2].text + ":'");
      s.ind.push_back(v);
      s.weight.push_back(w);
    }
    d_.sos.push_back(std::move(s));
  }
  return Status::Ok();
}

Status LpParser::parse_points(std::vector<double>& x, std::vector<double>& y) {
  while (peek_op("(")) {
    ++pos_;
    double a = 0.0, b = 0.0;
    if (!parse_number(a)) return expected("an x value in a point '(x, y)'");
    VLM_RETURN_IF_ERROR(expect_op(",", "between the values of a point"));
    if (!parse_number(b)) return expected("a y value in a point '(x, y)'");
    VLM_RETURN_IF_ERROR(expect_op(")", "after a point"));
    x.push_back(a);
    y.push_back(b);
  }
  return Status::Ok();
}

// "x: (0, 0) (1, 2)".
Status LpParser::parse_pwlobj() {
  while (!done()) {
    int v = -1;
    VLM_RETURN_IF_ERROR(expect_var(v, "a variable 'x: (0, 0) (1, 2)'"));
    VLM_RETURN_IF_ERROR(expect_op(":", "after the variable"));
    PwlObj p;
    VLM_RETURN_IF_ERROR(parse_points(p.x, p.y));
    if (d_.pwlobj.count(v)) {
      return parse_error(filename_, current_line(),
                         "variable '" + d_.varname[v] + "' has a second piecewise-linear objective");
    }
    d_.pwlobj[v] = std::move(p);
  }
  return Status::Ok();
}

// Whatever follows a function constraint on its line is its option text.
void LpParser::take_options(GenConstrData& g) {
  const Token& last = (*toks_)[pos_ - 1];
  if (done() || peek()->line != last.line) return;
  const std::string& line = lines_[last.line - 1];
  g.options = std::string(trim(std::string_view(line).substr(std::min(last.end, line.size()))));
  while (!done() && peek()->line == last.line) ++pos_;
}

Status LpParser::parse_genconstrs() {
  static const struct {
    const char* word;
    GenType type;
  } kFuncs[] = {{"MAX", GenType::kMax},   {"MIN", GenType::kMin},   {"ABS", GenType::kAbs},
                {"AND", GenType::kAnd},   {"OR", GenType::kOr},     {"NORM", GenType::kNorm},
                {"PWL", GenType::kPwl},   {"POLY", GenType::kPoly}, {"EXP", GenType::kExp},
                {"EXPA", GenType::kExpA}, {"LOG", GenType::kLog},   {"LOGA", GenType::kLogA},
                {"POW", GenType::kPow},   {"SIN", GenType::kSin},   {"COS", GenType::kCos},
                {"TAN", GenType::kTan},   {"LOGISTIC", GenType::kLogistic}};
  while (!done()) {
    std::string label = take_label();
    if (peek_indicator()) {
      VLM_RETURN_IF_ERROR(parse_indicator(label));
      continue;
    }
    GenConstrData g;
    g.name = label;
    int res = -1;
    VLM_RETURN_IF_ERROR(expect_var(res, "a general constraint 'r = FUNCTION ( ... )'"));
    VLM_RETURN_IF_ERROR(expect_op("=", "after the result variable"));
    const Token* f = peek();
    bool known = false;
    if (f != nullptr && f->kind == Kind::kName) {
      for (const auto& k : kFuncs) {
        if (iequals(f->text, k.word)) {
          g.type = k.type;
          known = true;
        }
      }
    }
    if (!known) {
      return expected("a function MAX, MIN, ABS, AND, OR, NORM, PWL, POLY, EXP, EXPA, LOG, LOGA, "
                      "POW, SIN, COS, TAN or LOGISTIC");
    }
    const std::string fname = to_lower(f->text);
    ++pos_;
    switch (g.type) {
      case GenType::kMax:
      case GenType::kMin: {
        const bool is_max = g.type == GenType::kMax;
        g.res = res;
        g.a = is_max ? -VLM_INFINITY : VLM_INFINITY;
        VLM_RETURN_IF_ERROR(expect_op("(", "after " + fname));
        while (!peek_op(")")) {
          double c = 0.0;
          if (parse_number(c)) {
            g.a = is_max ? std::max(g.a, c) : std::min(g.a, c);
          } else {
            int v = -1;
            VLM_RETURN_IF_ERROR(expect_var(v, "a variable or a constant"));
            g.vars.push_back(v);
          }
          if (!peek_op(")")) VLM_RETURN_IF_ERROR(expect_op(",", "or ')' in the list"));
        }
        ++pos_;
        break;
      }
      case GenType::kAnd:
      case GenType::kOr:
      case GenType::kNorm: {
        g.res = res;
        if (g.type == GenType::kNorm) {
          VLM_RETURN_IF_ERROR(expect_op("(", "after norm"));
          if (!parse_number(g.a)) return expected("the norm 0, 1, 2 or inf");
          VLM_RETURN_IF_ERROR(expect_op(")", "after the norm"));
        }
        VLM_RETURN_IF_ERROR(expect_op("(", "before the variables"));
        while (!peek_op(")")) {
          int v = -1;
          VLM_RETURN_IF_ERROR(expect_var(v, "a variable"));
          g.vars.push_back(v);
          if (!peek_op(")")) VLM_RETURN_IF_ERROR(expect_op(",", "or ')' in the list"));
        }
        ++pos_;
        break;
      }
      default: {
        // One argument variable: ABS, PWL and the function constraints y = f(x).
        g.res = res;
        VLM_RETURN_IF_ERROR(expect_op("(", "after " + fname));
        VLM_RETURN_IF_ERROR(expect_var(g.arg, "the argument variable"));
        VLM_RETURN_IF_ERROR(expect_op(")", "after the argument variable"));
        if (g.type == GenType::kPwl) {
          VLM_RETURN_IF_ERROR(expect_op(":", "before the points"));
          VLM_RETURN_IF_ERROR(parse_points(g.vals, g.ypts));
        } else if (g.type == GenType::kPoly) {
          VLM_RETURN_IF_ERROR(expect_op(":", "before the coefficients"));
          VLM_RETURN_IF_ERROR(expect_op("(", "before the coefficients"));
          while (!peek_op(")")) {
            double c = 0.0;
            if (!parse_number(c)) return expected("a coefficient");
            g.vals.push_back(c);
            if (!peek_op(")")) VLM_RETURN_IF_ERROR(expect_op(",", "or ')' in the coefficients"));
          }
          ++pos_;
        } else if (g.type == GenType::kExpA || g.type == GenType::kLogA || g.type == GenType::kPow) {
          if (!parse_number(g.a)) return expected(g.type == GenType::kPow ? "the exponent" : "the base");
        }
        if (g.type != GenType::kAbs && g.type != GenType::kPwl) take_options(g);
        break;
      }
    }
    d_.genconstrs.push_back(std::move(g));
  }
  return Status::Ok();
}

// "name: Scenario" (or "Scenario" alone) starts a scenario; each change is one line
// "LB|UB|Obj|RHS name = value" naming a variable or a linear constraint read before.
Status LpParser::parse_scenarios() {
  std::unordered_map<std::string, int> rows;  // constraint name -> index; -1 when shared
  for (int i = 0; i < d_.num_constrs(); ++i) {
    auto [it, fresh] = rows.emplace(d_.constrname[i], i);
    if (!fresh) it->second = -1;
  }
  while (!done()) {
    const int line = peek()->line;
    auto on_line = [&](std::size_t k) {
      const Token* t = peek(k);
      return t != nullptr && t->line == line;
    };
    // A record cut short, or with more on its line, is named by its own line.
    auto want = [&](const std::string& what) {
      const Token* t = peek();
      return parse_error(filename_, line,
                         "expected " + what + ", found " + (on_line(0) ? "'" + t->text + "'" : std::string("the end of the line")));
    };
    if (peek_label() && on_line(1)) {
      std::string name = take_label();
      if (!on_line(0) || !peek_kind(Kind::kName) || !iequals(peek()->text, "scenario")) {
        return want("'Scenario' after the scenario's name");
      }
      ++pos_;
      d_.scenarios.emplace_back().name = std::move(name);
    } else {
      if (!peek_kind(Kind::kName)) return want("'Scenario', 'LB', 'UB', 'Obj' or 'RHS'");
      const std::string key = to_lower(peek()->text);
      if (key == "scenario") {
        ++pos_;
        d_.scenarios.emplace_back();
      } else {
        if (key != "lb" && key != "ub" && key != "obj" && key != "rhs") {
          return want("'Scenario', 'LB', 'UB', 'Obj' or 'RHS'");
        }
        if (d_.scenarios.empty()) return want("a 'Scenario' header before the first change");
        const std::string word = peek()->text;
        ++pos_;
        const bool row = key == "rhs";
        if (!on_line(0) || !peek_kind(Kind::kName)) {
          return want(row ? "a constraint name after 'RHS'" : "a variable name after '" + word + "'");
        }
        const std::string name = peek()->text;
        ++pos_;
        if (!on_line(0) || !peek_op("=")) return want("'=' after '" + name + "'");
        ++pos_;
        double v = 0.0;
        if (!on_line(0) || !parse_number(v)) return want("a number after '" + name + " ='");
        Scenario& sc = d_.scenarios.back();
        if (row) {
          auto it = rows.find(lp_read_name(name));
          if (it == rows.end()) return parse_error(filename_, line, "no linear constraint named '" + name + "'");
          if (it->second < 0) {
            return parse_error(filename_, line, "more than one constraint is named '" + name + "'");
          }
          if (!std::isfinite(v) || std::fabs(v) >= kFileInfinity) {
            return parse_error(filename_, line, "the right-hand side of '" + name + "' is infinite");
          }
          sc.rhs[it->second] = v;
        } else {
          auto it = var_index_.find(name);
          if (it == var_index_.end()) return parse_error(filename_, line, "no variable named '" + name + "'");
          if (key == "obj") {
            if (!std::isfinite(v) || std::fabs(v) >= kFileInfinity) {
              return parse_error(filename_, line, "the objective coefficient of '" + name + "' is infinite");
            }
            sc.obj[it->second] = v;
          } else {
            (key == "lb" ? sc.lb : sc.ub)[it->second] = bound_value(v);
          }
        }
      }
    }
    if (on_line(0)) return want("the end of the line");
  }
  return Status::Ok();
}

void LpParser::finish() {
  const int n = d_.num_vars();
  for (int j = 0; j < n; ++j) {
    if (semi_[j]) {
      d_.vtype[j] = (integer_[j] || binary_[j]) ? 'N' : 'S';
    } else if (binary_[j]) {
      d_.vtype[j] = 'B';
      if (!ub_set_[j]) d_.ub[j] = 1.0;
    } else if (integer_[j]) {
      d_.vtype[j] = 'I';
    }
  }
  for (std::size_t k = 0; k < d_.objn.size(); ++k) {
    std::vector<double>& coef = d_.objn[k].coef;
    coef.assign(n, 0.0);
    const auto& [ind, val] = objn_terms_[k];
    for (std::size_t t = 0; t < ind.size(); ++t) coef[ind[t]] += val[t];
  }
}

}  // namespace

Status read_lp(std::string_view text, const std::string& filename, ReadModel& out) {
  VLM_RETURN_IF_ERROR(refuse_nul(text, filename));
  LpParser parser(filename, out);
  return parser.parse(text);
}

}  // namespace vlm::io
