// Latencies: counted in buckets that are at most 1.6 % wide.
#pragma once

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>

namespace sorvane::bench {

/// Counts of durations in nanoseconds. Adding costs a few instructions and never allocates.
class Histogram {
 public:
  void add(std::uint64_t nanoseconds) {
    ++counts_[bucketOf(nanoseconds)];
    ++total_;
  }
  void add(const Histogram& other);

  [[nodiscard]] std::uint64_t total() const { return total_; }
  /// The duration, in microseconds, that this share (0 to 1) of all does not exceed; 0 when empty.
  [[nodiscard]] double quantile(double share) const;

 private:
  static constexpr int kStepBits = 6;  // 64 buckets for each power of two
  static constexpr std::size_t kSteps = std::size_t{1} << kStepBits;
  static constexpr std::size_t kBuckets = kSteps * (64 - kStepBits + 1);

  static std::size_t bucketOf(std::uint64_t value) {
    if (value < kSteps) {
      return static_cast<std::size_t>(value);
    }
    const int shift = std::bit_width(value) - kStepBits - 1;
    return (static_cast<std::size_t>(shift) << kStepBits) +
           static_cast<std::size_t>(value >> shift);
  }
  static double upperEnd(std::size_t bucket);

  std::array<std::uint64_t, kBuckets> counts_{};
  std::uint64_t total_ = 0;
};

}  // namespace sorvane::bench
