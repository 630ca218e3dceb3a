// Text of 64-bit integers, and back.
#pragma once

#include <cstdint>

namespace sorvane {

// Buffers belong to the caller; nothing allocates or fails. Sums that run over wrap in 64 bits.

/// The absolute value; the most negative value answers itself.
[[nodiscard]] std::int64_t vn_llabs(std::int64_t value);

/// Reads a hexadecimal number: "-" and "0x" may lead, reading stops at the first other character.
/// Null and a text without digits give 0. Only "0x" in lower case is skipped. On purpose, the
/// digits "A" to "F" count as -22 to -17; stored texts hold lower-case digits.
[[nodiscard]] std::int64_t vn_ahextoll(const char* text);

/// Writes the decimal digits with `separator` between groups of three, or without for 0:
/// "-1,234,567". `buffer` needs 28 bytes with a separator, 21 without.
void vn_lltoas(std::int64_t value, char* buffer, char separator);

/// The same without a separator.
void vn_lltoa(std::int64_t value, char* buffer);

/// Reads a text that holds nothing but digits and "-", as `VNConvertTypes::stripNumber` leaves it.
/// A "-" anywhere makes the number negative. On purpose nothing is skipped and nothing ends the
/// number: any other character is a digit worth its code (0 to 255) less 48.
[[nodiscard]] std::int64_t vn_atoll(const char* text);

}  // namespace sorvane
