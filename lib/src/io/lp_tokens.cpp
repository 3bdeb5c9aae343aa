#include "io/lp_tokens.h"

#include <algorithm>
#include <charconv>
#include <cmath>

#include "core/text.h"
#include "io/lp_names.h"

namespace vlm::io::lp {

bool is_blank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n' || c == '\f' || c == '\v'; }

namespace {

bool is_digit(char c) { return c >= '0' && c <= '9'; }

bool is_delim(char c, bool parens) {
  switch (c) {
    case '+': case '-': case '*': case '^': case '[': case ']':
    case ':': case '<': case '>': case '=':
      return true;
    case '(': case ')': case ',':
      return parens;
    default:
      return is_blank(c);
  }
}

}  // namespace

// Splits one comment-free line into tokens. In `parens` mode ( ) , are operators too. The
// format lets names hold / (other writers use it freely), so '/' is an operator only right
// after the ']' of a quadratic bracket ("[ ... ] / 2"), the one place it divides.
void tokenize(std::string_view s, int lineno, bool parens, std::vector<Token>& out) {
  std::size_t i = 0;
  const std::size_t n = s.size();
  while (i < n) {
    char c = s[i];
    if (is_blank(c)) {
      ++i;
      continue;
    }
    Token t;
    t.line = lineno;
    std::size_t b = i;
    if (is_digit(c) || (c == '.' && i + 1 < n && is_digit(s[i + 1]))) {
      while (i < n && is_digit(s[i])) ++i;
      if (i < n && s[i] == '.') {
        ++i;
        while (i < n && is_digit(s[i])) ++i;
      }
      if (i < n && (s[i] == 'e' || s[i] == 'E')) {
        std::size_t k = i + 1;
        if (k < n && (s[k] == '+' || s[k] == '-')) ++k;
        if (k < n && is_digit(s[k])) {
          while (k < n && is_digit(s[k])) ++k;
          i = k;
        }
      }
      t.kind = Kind::kNumber;
      t.text = std::string(s.substr(b, i - b));
      std::from_chars(t.text.data(), t.text.data() + t.text.size(), t.value);
    } else if (is_delim(c, parens) || (c == '/' && !out.empty() && out.back().kind == Kind::kOp && out.back().text == "]")) {
      t.kind = Kind::kOp;
      char d = i + 1 < n ? s[i + 1] : '\0';
      std::size_t len = 1;
      if ((c == '<' || c == '>') && d == '=') len = 2;
      if (c == '=' && (d == '<' || d == '>' || d == '=')) len = 2;
      if (c == '-' && d == '>') len = 2;
      if (c == ':' && d == ':') len = 2;
      t.text = std::string(s.substr(i, len));
      if (t.text == "==") t.text = "=";
      i += len;
    } else {
      // Square brackets opened inside a name belong to it ("x[0]", "y[1][2]"); a '[' that
      // starts a token opens a quadratic expression instead.
      int depth = 0;
      while (i < n) {
        if (s[i] == '[') {
          ++depth;
        } else if (s[i] == ']' && depth > 0) {
          --depth;
        } else if (is_delim(s[i], parens)) {
          break;
        }
        ++i;
      }
      t.kind = Kind::kName;
      t.text = std::string(s.substr(b, i - b));
    }
    t.end = i;
    out.push_back(std::move(t));
  }
}

// Lower-case copy with runs of blanks turned into one space and no blanks at the ends.
std::string normalise(std::string_view s) {
  std::string out;
  bool space = false;
  for (char c : trim(s)) {
    if (is_blank(c)) {
      space = true;
      continue;
    }
    if (space) out.push_back(' ');
    space = false;
    out.push_back(static_cast<char>(std::tolower(static_cast<unsigned char>(c))));
  }
  return out;
}

// 1 for a minimising word, -1 for a maximising one, 0 otherwise.
int objective_word(std::string_view w) {
  for (const char* k : {"minimize", "minimise", "minimum", "min"}) {
    if (w == k) return 1;
  }
  for (const char* k : {"maximize", "maximise", "maximum", "max"}) {
    if (w == k) return -1;
  }
  return 0;
}

// The section a whole (normalised) line announces.
std::optional<SectionText> header_of(const std::string& h) {
  SectionText s;
  auto is = [&](std::initializer_list<const char*> words) {
    for (const char* w : words) {
      if (h == w) return true;
    }
    return false;
  };
  if (int sense = objective_word(h)) {
    s.kind = Section::kObjective;
    s.sense = sense;
    return s;
  }
  std::size_t sp = h.find(' ');
  if (sp != std::string::npos && h.substr(sp + 1) == "multi-objectives") {
    if (int sense = objective_word(h.substr(0, sp))) {
      s.kind = Section::kMultiObjective;
      s.sense = sense;
      return s;
    }
  }
  if (is({"subject to", "such that", "st", "s.t."})) {
    s.kind = Section::kConstraints;
  } else if (is({"bounds", "bound"})) {
    s.kind = Section::kBounds;
  } else if (is({"binaries", "binary", "bin"})) {
    s.kind = Section::kBinaries;
  } else if (is({"generals", "general", "gen", "integers", "integer"})) {
    s.kind = Section::kGenerals;
  } else if (is({"semi-continuous", "semi-continuous", "semicontinuous", "semis", "semi"})) {
    s.kind = Section::kSemis;
  } else if (is({"sos"})) {
    s.kind = Section::kSos;
  } else if (is({"pwlobj"})) {
    s.kind = Section::kPwlObj;
  } else if (is({"general constraints", "general constraint"})) {
    s.kind = Section::kGenConstrs;
  } else if (is({"scenarios"})) {
    s.kind = Section::kScenarios;
  } else if (is({"end"})) {
    s.kind = Section::kEnd;
  } else {
    return std::nullopt;
  }
  return s;
}

// Headers recognised also on an indented line.
bool long_header(const std::string& h) {
  for (const char* w : {"maximize", "maximise", "minimize", "minimise", "maximum", "minimum",
                        "subject to", "such that", "bounds", "binaries", "generals", "integers",
                        "semi-continuous", "general constraints", "pwlobj"}) {
    if (h == w) return true;
  }
  return h.find(" multi-objectives") != std::string::npos;
}

const char* section_name(Section s) {
  switch (s) {
    case Section::kObjective:
    case Section::kMultiObjective:
      return "objective";
    case Section::kConstraints:
      return "Subject To";
    case Section::kBounds:
      return "Bounds";
    case Section::kBinaries:
      return "Binaries";
    case Section::kGenerals:
      return "Generals";
    case Section::kSemis:
      return "Semi-Continuous";
    case Section::kSos:
      return "SOS";
    case Section::kPwlObj:
      return "PWLObj";
    case Section::kGenConstrs:
      return "General Constraints";
    case Section::kScenarios:
      return "Scenarios";
    case Section::kEnd:
      return "End";
  }
  return "";
}

// The model name in a comment before the first section: "\ Model: name" (ours) or
// "\* Problem: name *\".
std::optional<std::string> name_in_comment(std::string_view comment) {
  std::string_view c = trim(comment);
  if (!c.empty() && c.front() == '*') c = trim(c.substr(1));
  if (c.size() >= 2 && c.substr(c.size() - 2) == "*\\") c = trim(c.substr(0, c.size() - 2));
  for (std::string_view key : {std::string_view("Model:"), std::string_view("Problem:")}) {
    if (c.size() >= key.size() && iequals(c.substr(0, key.size()), key)) {
      return std::string(trim(c.substr(key.size())));
    }
  }
  return std::nullopt;
}

// A linear expression with an optional bracketed quadratic part, as parsed (terms may repeat).

}  // namespace vlm::io::lp
