// The number at the start of a text.
#pragma once

#include <limits>

namespace sorvane {

/// Reads white space, a sign and digits, and stops at the first other character; no digits give 0.
/// A number beyond the type is held at the type's end. `text` ends with a NUL.
template <typename Integer>
[[nodiscard]] inline Integer leadingInteger(const char* text) {
  using Limits = std::numeric_limits<Integer>;
  while (*text == ' ' || (*text >= '\t' && *text <= '\r')) {
    ++text;
  }
  const bool negative = *text == '-';
  if (negative || *text == '+') {
    ++text;
  }
  // Counted downwards, because the negative range is the longer one.
  Integer value = 0;
  for (; *text >= '0' && *text <= '9'; ++text) {
    const int digit = *text - '0';
    if (value < (Limits::min() + digit) / 10) {
      return negative ? Limits::min() : Limits::max();
    }
    value = static_cast<Integer>(value * 10 - digit);
  }
  if (negative) {
    return value;
  }
  return value == Limits::min() ? Limits::max() : static_cast<Integer>(-value);
}

}  // namespace sorvane
