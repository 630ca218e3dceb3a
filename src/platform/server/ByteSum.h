// A sum of bytes that many hold together, with a limit.
#pragma once

#include <atomic>
#include <cstddef>

namespace sorvane {

/// Changed at each addition and removal, never counted anew. The last eighth of the limit is for
/// holders of little: a few that hold much cannot take the room from those who need next to none.
/// Any thread.
class ByteSum {
 public:
  /// A holder of so many bytes at most holds little.
  static constexpr std::size_t kLittle = 4096;

  explicit ByteSum(std::size_t limit) : limit_(limit) {}

  /// Adds `bytes` for a holder that then holds `bytesOfHolder`. Returns false and adds nothing if
  /// the sum would pass the limit.
  [[nodiscard]] bool add(std::size_t bytes, std::size_t bytesOfHolder) {
    const std::size_t limit = bytesOfHolder <= kLittle ? limit_ : limit_ - limit_ / 8;
    std::size_t before = sum_.load(std::memory_order_relaxed);
    do {
      if (before > limit || bytes > limit - before) {
        return false;
      }
    } while (!sum_.compare_exchange_weak(before, before + bytes, std::memory_order_relaxed));
    return true;
  }
  /// Adds `bytes` even beyond the limit.
  void addAnyway(std::size_t bytes) { sum_.fetch_add(bytes, std::memory_order_relaxed); }
  /// Takes away what was added before.
  void subtract(std::size_t bytes) { sum_.fetch_sub(bytes, std::memory_order_relaxed); }

  [[nodiscard]] std::size_t now() const { return sum_.load(std::memory_order_relaxed); }

 private:
  const std::size_t limit_;
  std::atomic<std::size_t> sum_{0};
};

/// What one holder has added to a sum. Gives it back at its end. Not synchronised.
class ByteShare {
 public:
  explicit ByteShare(ByteSum& sum) : sum_(sum) {}
  ~ByteShare() { sum_.subtract(bytes_); }
  ByteShare(const ByteShare&) = delete;
  ByteShare& operator=(const ByteShare&) = delete;

  /// The holder holds `bytes` from now on. Returns false and changes nothing if the sum would pass
  /// its limit.
  [[nodiscard]] bool change(std::size_t bytes) {
    if (bytes > bytes_) {
      if (!sum_.add(bytes - bytes_, bytes)) {
        return false;
      }
    } else {
      sum_.subtract(bytes_ - bytes);
    }
    bytes_ = bytes;
    return true;
  }

  /// The holder holds so many `bytes` more from now on, even beyond the limit.
  void addAnyway(std::size_t bytes) {
    sum_.addAnyway(bytes);
    bytes_ += bytes;
  }

 private:
  ByteSum& sum_;
  std::size_t bytes_ = 0;
};

}  // namespace sorvane
