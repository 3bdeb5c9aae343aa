// Small text helpers shared by the library: case-insensitive comparison and hashing (parameter
// and attribute names), trimming, and number parsing that reports failure instead of throwing.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace vlm {

// ASCII lower-case copy; names are ASCII, other bytes are kept.
std::string to_lower(std::string_view s);

bool iequals(std::string_view a, std::string_view b);

// Removes leading and trailing blanks (space, tab, CR, LF).
std::string_view trim(std::string_view s);

// Parses a whole token as a double; accepts "inf", "-inf", "infinity" (any case).
std::optional<double> parse_double(std::string_view s);

// Parses a whole token as an integer that fits in int; also accepts a double text with an
// integral value ("5.0", "1e3").
std::optional<long long> parse_integer(std::string_view s);

// A number for messages, in the short form of printf's %.6g ("3", "0.1", "1e+300", "inf",
// "-inf", "NaN"): a value given as 1e300 never turns into a 300-digit text.
std::string short_number(double v);

// A number for log lines, printf's %.10g: objective values and bounds keep the digits that
// tell two incumbents apart ("inf", "-inf", "nan" for the special values). O(1).
std::string log_number(double v);

}  // namespace vlm
