// Cuts a stream into the pieces in which it arrives.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace sorvane::fuzz {

/// Seed 0 leaves the stream whole, seed 1 cuts it into single bytes. With any other seed, a piece
/// has 1 to `seed` bytes, the same at each run.
class Pieces {
 public:
  Pieces(std::string_view stream, std::uint8_t seed) : left_(stream), seed_(seed), state_(seed) {}

  [[nodiscard]] bool atEnd() const { return left_.empty(); }
  [[nodiscard]] std::string_view next() {
    std::size_t length = left_.size();
    if (seed_ > 0) {
      state_ = state_ * 1103515245U + 12345U;
      length = std::min<std::size_t>(length, 1 + (state_ >> 16) % seed_);
    }
    const std::string_view piece = left_.substr(0, length);
    left_.remove_prefix(length);
    return piece;
  }

 private:
  std::string_view left_;
  std::uint8_t seed_;
  std::uint32_t state_;
};

}  // namespace sorvane::fuzz
