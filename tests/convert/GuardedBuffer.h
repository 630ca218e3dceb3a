// A caller's buffer whose surroundings show whether anything was written beyond it.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

namespace sorvane::test {

/// Holds a text in a buffer of `size` bytes with guard bytes before and after. A guard that was
/// written over fails the running test at the end of the buffer's life.
class GuardedBuffer {
 public:
  explicit GuardedBuffer(std::size_t size, std::string_view text = {})
      : size_(size), bytes_(size + 2 * kGuardBytes, kGuard) {
    std::copy(text.begin(), text.end(), data());
    data()[text.size()] = '\0';
  }
  ~GuardedBuffer() { EXPECT_TRUE(guardsAreWhole()) << "written beyond the buffer: " << data(); }
  GuardedBuffer(const GuardedBuffer&) = delete;
  GuardedBuffer& operator=(const GuardedBuffer&) = delete;

  [[nodiscard]] char* data() { return bytes_.data() + kGuardBytes; }
  [[nodiscard]] std::string text() { return data(); }

 private:
  static constexpr std::size_t kGuardBytes = 16;
  static constexpr char kGuard = '\x5a';

  [[nodiscard]] bool guardsAreWhole() const {
    const auto isGuard = [](char byte) { return byte == kGuard; };
    return std::all_of(bytes_.begin(), bytes_.begin() + kGuardBytes, isGuard) &&
           std::all_of(bytes_.begin() + static_cast<std::ptrdiff_t>(kGuardBytes + size_),
                       bytes_.end(), isGuard);
  }

  std::size_t size_;
  std::vector<char> bytes_;
};

}  // namespace sorvane::test
