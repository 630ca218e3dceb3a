// An open file, pipe or socket that has an owner.
#pragma once

#include <cstddef>
#include <string_view>
#include <system_error>
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

/// Writes all of it, waiting as long as that takes. Returns why that failed.
[[nodiscard]] std::error_code writeAll(int descriptor, std::string_view bytes);

/// Returns a number that is higher than all descriptors that this process may have, as its limit is
/// now; 2^20 at most.
[[nodiscard]] std::size_t endOfDescriptors();

// ---- process/DescriptorLinux.cpp, process/DescriptorMacos.cpp. Programs that this process starts
// do not inherit what these functions open. On Linux this holds also for a program that another
// thread starts meanwhile.

/// Opens a socket as socket(2) does, with the default protocol. Returns none on failure and sets
/// `errno`.
[[nodiscard]] Descriptor openSocket(int family, int type);

struct PipeEnds {
  Descriptor reading;
  Descriptor writing;
};

/// Opens a pipe whose ends do not wait. Both ends are none on failure; `errno` has the reason.
[[nodiscard]] PipeEnds openPipe();

}  // namespace sorvane
