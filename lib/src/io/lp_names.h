// Names in LP files: which names the LP format holds as they are, and the escaped form in which
// the writer puts every other name so that the reader restores it exactly.
//
// A name is written as it is ("plain") when it is not empty; consists of ASCII letters, digits
// and the characters ! " # $ % & ' . / ; ? @ _ ` { | } ~, plus ( ) , when the file has no
// section that uses them as operators (General Constraints, PWLObj), plus square brackets that
// open after the first character and are balanced ("x[0]", "y[1][2]"); does not start with a
// digit, '.', '/' or "~~"; and is not a word the reader would take for something else (inf,
// infinity, free, and the section headers recognised on indented lines).
//
// Every other name is escaped: "~~" followed by the name's bytes, where letters, digits, '_'
// and '.' stand for themselves and every other byte is '#' and two upper-case hex digits
// ("my var" -> "~~my#20var", "a:b" -> "~~a#3Ab"). When a variable's name is already taken by
// an earlier variable (duplicates, or a default name such as "C3" that a user also gave), the
// written form gets "~" and a number, the first that makes it unique ("x", "~~x~1", "~~x~2"):
// LP files name variables, so equal names would merge them. The reader turns any name of this
// form back into the original bytes and drops the "~number" suffix; other names read as they
// stand.
#pragma once

#include <string>
#include <string_view>

namespace vlm::io {

// True when `name` can be written as it stands (rules above). `parens_are_operators` is true
// for a file with General Constraints or PWLObj. O(length).
bool lp_plain_name(std::string_view name, bool parens_are_operators);

// The escaped form of `name`, without a uniqueness suffix. O(length).
std::string lp_escape_name(std::string_view name);

// `name` itself when plain, else its escaped form.
std::string lp_written_name(std::string_view name, bool parens_are_operators);

// The original of a name as read: the decoded bytes for a well-formed escaped form (suffix
// dropped), otherwise `written` unchanged. O(length).
std::string lp_read_name(std::string_view written);

}  // namespace vlm::io
