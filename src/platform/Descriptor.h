// An open file, pipe or socket that has an owner.
#pragma once

#include <utility>

namespace sorvane {

/// Owns a file descriptor and closes it at the end of its life. Moved from, it owns none. Closing
/// leaves `errno` as it is, so that the reason of an earlier failure survives it.
class Descriptor {
 public:
  Descriptor() = default;
  /// Takes what a system call returned; a negative number means none.
  explicit Descriptor(int number) : number_(number) {}
  ~Descriptor() { close(); }
  Descriptor(Descriptor&& other) noexcept : number_(other.release()) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    if (this != &other) {
      close();
      number_ = other.release();
    }
    return *this;
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;

  [[nodiscard]] bool isOpen() const { return number_ >= 0; }
  /// Negative when there is none.
  [[nodiscard]] int number() const { return number_; }

  /// Closes the descriptor now; nothing happens when there is none.
  void close() {
    if (isOpen()) {
      closeNumber(release());
    }
  }
  /// Hands the number over to the caller, who closes it.
  [[nodiscard]] int release() { return std::exchange(number_, -1); }

 private:
  static void closeNumber(int number);

  int number_ = -1;
};

}  // namespace sorvane
