// Decimal digits into a caller's buffer. Each writer answers the place after what it wrote; none
// writes a terminator.
#pragma once

#include <cstdint>

namespace sorvane {

/// Two digits; `value` is 0 to 99.
char* writeTwoDigits(char* out, unsigned value);
/// All digits of the value.
char* writeUnsigned(char* out, std::uint64_t value);
/// The digits with `separator` between groups of three.
char* writeGrouped(char* out, std::uint64_t value, char separator);
/// The value, filled up with zeros after the sign until it is `width` characters long.
char* writeZeroPadded(char* out, int value, int width);
/// The value, filled up with blanks before it until it is `width` characters long.
char* writeBlankPadded(char* out, int value, int width);
/// The characters of a text.
char* writeText(char* out, const char* text);

/// The distance of a value from 0, also for the most negative one.
[[nodiscard]] constexpr std::uint64_t magnitude(std::int64_t value) {
  const auto bits = static_cast<std::uint64_t>(value);
  return value < 0 ? std::uint64_t{0} - bits : bits;
}

}  // namespace sorvane
