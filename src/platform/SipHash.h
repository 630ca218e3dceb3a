// SipHash-1-3: a hash of texts whose collisions cannot be found without its key.
//
// Published by J.-P. Aumasson and D. J. Bernstein, "SipHash: a fast short-input PRF" (2012); this
// is the variant with one round a block and three at the end.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace sorvane {

struct SipKey {
  std::uint64_t low = 0;   ///< its first 8 bytes, little-endian
  std::uint64_t high = 0;  ///< the other 8 bytes

  /// Returns the key of this process. The first call draws it at random, unless it was set. Any
  /// thread.
  [[nodiscard]] static const SipKey& ofThisProcess();
  /// Makes `key` the key of this process. Returns false and changes nothing if another one is in
  /// use already. Any thread.
  [[nodiscard]] static bool setOfThisProcess(const SipKey& key);

  bool operator==(const SipKey&) const = default;
};

namespace sip {

template <typename Integer>
[[nodiscard]] inline std::uint64_t loadLittleEndian(const char* bytes) {
  Integer value;
  std::memcpy(&value, bytes, sizeof value);
  if constexpr (std::endian::native == std::endian::big) {
    value = sizeof value == 8 ? static_cast<Integer>(__builtin_bswap64(value))
                              : static_cast<Integer>(__builtin_bswap32(value));
  }
  return value;
}

/// Returns the bytes beyond the last whole block, up to 7 of them, as a little-endian integer.
[[nodiscard]] inline std::uint64_t loadTail(std::string_view text) {
  const std::size_t bytes = text.size() % 8;
  const char* const end = text.data() + text.size();
  if (bytes == 0) {
    return 0;
  }
  if (text.size() > 8) {  // a load that begins in the block before
    return loadLittleEndian<std::uint64_t>(end - 8) >> (8 * (8 - bytes));
  }
  const char* const begin = end - bytes;
  if (bytes >= 4) {  // two loads that overlap
    return loadLittleEndian<std::uint32_t>(begin) | loadLittleEndian<std::uint32_t>(end - 4)
                                                        << (8 * (bytes - 4));
  }
  const auto at = [&](std::size_t index) {
    return std::uint64_t{static_cast<unsigned char>(begin[index])} << (8 * index);
  };
  return at(0) | at(bytes / 2) | at(bytes - 1);
}

struct State {
  std::uint64_t v0, v1, v2, v3;

  explicit State(const SipKey& key)
      : v0(key.low ^ 0x736f6d6570736575U),
        v1(key.high ^ 0x646f72616e646f6dU),
        v2(key.low ^ 0x6c7967656e657261U),
        v3(key.high ^ 0x7465646279746573U) {}

  void round() {
    v0 += v1;
    v1 = std::rotl(v1, 13) ^ v0;
    v0 = std::rotl(v0, 32);
    v2 += v3;
    v3 = std::rotl(v3, 16) ^ v2;
    v0 += v3;
    v3 = std::rotl(v3, 21) ^ v0;
    v2 += v1;
    v1 = std::rotl(v1, 17) ^ v2;
    v2 = std::rotl(v2, 32);
  }
  template <int rounds>
  void absorb(std::uint64_t block) {
    v3 ^= block;
    for (int i = 0; i < rounds; ++i) {
      round();
    }
    v0 ^= block;
  }
  template <int rounds>
  void absorbWholeBlocks(std::string_view text) {
    const char* at = text.data();
    for (std::size_t blocks = text.size() / 8; blocks > 0; --blocks, at += 8) {
      absorb<rounds>(loadLittleEndian<std::uint64_t>(at));
    }
  }
  /// Returns the hash of a text of so many bytes whose whole blocks have been absorbed.
  template <int blockRounds, int endRounds>
  [[nodiscard]] std::uint64_t finish(std::uint64_t bytes, std::uint64_t tail) {
    absorb<blockRounds>(bytes << 56 | tail);
    v2 ^= 0xff;
    for (int i = 0; i < endRounds; ++i) {
      round();
    }
    return v0 ^ v1 ^ v2 ^ v3;
  }
};

/// The hash with `blockRounds` rounds a block and `endRounds` at the end.
template <int blockRounds, int endRounds>
[[nodiscard]] inline std::uint64_t hash(const SipKey& key, std::string_view text) {
  State state(key);
  state.absorbWholeBlocks<blockRounds>(text);
  return state.finish<blockRounds, endRounds>(text.size(), loadTail(text));
}

}  // namespace sip

[[nodiscard]] inline std::uint64_t sipHash13(const SipKey& key, std::string_view text) {
  return sip::hash<1, 3>(key, text);
}

/// The same hash of a text that comes in pieces. One thread at a time.
class SipHash13 {
 public:
  explicit SipHash13(const SipKey& key) : state_(key) {}

  /// Adds the next piece, of any length.
  void add(std::string_view piece) {
    const std::size_t waiting = bytes_ % 8;
    bytes_ += piece.size();
    if (waiting > 0) {
      const std::string_view first = piece.substr(0, 8 - waiting);
      tail_ |= sip::loadTail(first) << (8 * waiting);
      if (waiting + first.size() < 8) {
        return;
      }
      state_.absorb<1>(tail_);
      piece.remove_prefix(first.size());
    }
    state_.absorbWholeBlocks<1>(piece);
    tail_ = sip::loadTail(piece);
  }
  /// Returns the hash of all pieces so far, one behind the other. More may be added.
  [[nodiscard]] std::uint64_t value() const {
    return sip::State(state_).finish<1, 3>(bytes_, tail_);
  }
  /// Number of bytes so far.
  [[nodiscard]] std::uint64_t bytes() const { return bytes_; }

 private:
  sip::State state_;
  std::uint64_t bytes_ = 0;
  std::uint64_t tail_ = 0;  // the bytes beyond the last whole block, little-endian
};

}  // namespace sorvane
