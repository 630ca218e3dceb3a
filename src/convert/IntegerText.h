// Text of 64-bit integers, and back.
#pragma once

#include <cstdint>

namespace sorvane {

// Buffers belong to the caller. Nothing allocates memory or fails. Overflow wraps in 64 bits.

/// Returns the absolute value. The most negative value is returned unchanged.
[[nodiscard]] std::int64_t vn_llabs(std::int64_t value);

/// Returns the hexadecimal number at the start of a text. A "-" and then a "0x" (lower case only)
/// may come before its digits. Reading stops at the first character that is not a digit. Null and a
/// text without digits give 0. On purpose, the digits "A" to "F" count as -22 to -17; stored texts
/// hold lower-case digits.
[[nodiscard]] std::int64_t vn_ahextoll(const char* text);

/// Writes the decimal digits with `separator` between groups of three: "-1,234,567". A separator of
/// 0 means none. `buffer` needs 28 bytes with a separator, 21 without.
void vn_lltoas(std::int64_t value, char* buffer, char separator);

/// The same without a separator.
void vn_lltoa(std::int64_t value, char* buffer);

/// Returns the number in a text that holds only digits and "-", such as
/// `VNConvertTypes::stripNumber` leaves of a number without a point. A "-" anywhere makes the
/// number negative. On purpose nothing is skipped and nothing ends the number: any other character
/// counts as a digit whose value is its code (0 to 255) less 48.
[[nodiscard]] std::int64_t vn_atoll(const char* text);

}  // namespace sorvane
