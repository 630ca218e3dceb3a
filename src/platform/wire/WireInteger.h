// Big-endian integers, as the frame and its entries carry them.
#pragma once

#include <cstdint>

namespace sorvane {

[[nodiscard]] inline std::uint16_t loadBigEndian16(const char* bytes) {
  const auto* const b = reinterpret_cast<const unsigned char*>(bytes);
  return static_cast<std::uint16_t>((b[0] << 8) | b[1]);
}

[[nodiscard]] inline std::uint32_t loadBigEndian32(const char* bytes) {
  const auto* const b = reinterpret_cast<const unsigned char*>(bytes);
  return (std::uint32_t{b[0]} << 24) | (std::uint32_t{b[1]} << 16) | (std::uint32_t{b[2]} << 8) |
         b[3];
}

inline void storeBigEndian16(char* bytes, std::uint16_t value) {
  bytes[0] = static_cast<char>(value >> 8);
  bytes[1] = static_cast<char>(value);
}

inline void storeBigEndian32(char* bytes, std::uint32_t value) {
  bytes[0] = static_cast<char>(value >> 24);
  bytes[1] = static_cast<char>(value >> 16);
  bytes[2] = static_cast<char>(value >> 8);
  bytes[3] = static_cast<char>(value);
}

}  // namespace sorvane
