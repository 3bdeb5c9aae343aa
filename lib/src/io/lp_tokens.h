// The lexical side of the LP reader: tokens, section headers and the names hidden in
// comments. lp_reader.cpp parses the token streams into a model.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vlm::io::lp {

// Values at or beyond this magnitude in a bound are infinite, as in other LP writers' files.
constexpr double kFileInfinity = 1e30;

enum class Kind { kName, kNumber, kOp };

struct Token {
  Kind kind;
  std::string text;
  double value = 0.0;
  int line = 0;          // 1-based
  std::size_t end = 0;   // column just after the token in its (comment-free) line
};

enum class Section {
  kObjective,
  kMultiObjective,
  kConstraints,
  kBounds,
  kBinaries,
  kGenerals,
  kSemis,
  kSos,
  kPwlObj,
  kGenConstrs,
  kScenarios,
  kEnd,
};

struct SectionText {
  Section kind;
  int sense = 1;  // objective sections
  int line = 0;
  std::vector<Token> tokens;
};

// A blank of the format (space, tab, line breaks, form feeds).
bool is_blank(char c);

// Splits one comment-free line into tokens. In `parens` mode ( ) , are operators too. The
// format lets names hold / (other writers use it freely), so '/' is an operator only right
// after the ']' of a quadratic bracket ("[ ... ] / 2"), the one place it divides.
void tokenize(std::string_view s, int lineno, bool parens, std::vector<Token>& out);

// Lower-case copy with runs of blanks turned into one space and no blanks at the ends.
std::string normalise(std::string_view s);

// 1 for a minimising word, -1 for a maximising one, 0 otherwise.
int objective_word(std::string_view w);

// The section a whole (normalised) line announces.
std::optional<SectionText> header_of(const std::string& h);

// Headers recognised also on an indented line.
bool long_header(const std::string& h);

const char* section_name(Section s);

// The model name in a comment before the first section: "\ Model: name" (ours) or
// "\* Problem: name *\".
std::optional<std::string> name_in_comment(std::string_view comment);

}  // namespace vlm::io::lp
