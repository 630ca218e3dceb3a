// The number at the start of a text.
#pragma once

#include <limits>
#include <type_traits>

namespace sorvane {

/// Returns the number at the start of `text`, which ends with a NUL. Reads white space, a sign and
/// digits, and stops at the first other character. Returns 0 when there are no digits. A number
/// outside the range of the type gives the nearest end of that range.
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
  using Distance = std::make_unsigned_t<Integer>;
  constexpr auto kMost = static_cast<Distance>(Limits::max());
  Distance distance = 0;
  for (; *text >= '0' && *text <= '9'; ++text) {
    const auto digit = static_cast<Distance>(*text - '0');
    if (distance >= kMost / 10 && (distance > kMost / 10 || digit > kMost % 10)) {
      return negative ? Limits::min() : Limits::max();
    }
    distance = distance * 10 + digit;
  }
  return static_cast<Integer>(negative ? Distance{0} - distance : distance);
}

}  // namespace sorvane
