// Writes decimal digits into a caller's buffer. Each `write` function returns the place behind the
// last character that it wrote, and writes no terminator.
#pragma once

#include <cstdint>

namespace sorvane {

/// Writes two digits; `value` is 0 to 99.
char* writeTwoDigits(char* out, unsigned value);
/// Writes all digits of the value.
char* writeUnsigned(char* out, std::uint64_t value);
/// Writes the digits with `separator` between groups of three.
char* writeGrouped(char* out, std::uint64_t value, char separator);
/// Writes the value with zeros after its sign until it is `width` characters long.
char* writeZeroPadded(char* out, int value, int width);
/// Writes the value with blanks before its sign until it is `width` characters long.
char* writeBlankPadded(char* out, int value, int width);
/// Writes the characters of a text.
char* writeText(char* out, const char* text);

/// Returns the distance of a value from 0. This is right for the most negative value, too.
[[nodiscard]] constexpr std::uint64_t magnitude(std::int64_t value) {
  const auto bits = static_cast<std::uint64_t>(value);
  return value < 0 ? std::uint64_t{0} - bits : bits;
}

}  // namespace sorvane
