// Owns a descriptor.
#pragma once

#include <unistd.h>

#include <utility>

namespace sorvane::client::detail {

class Descriptor {
 public:
  explicit Descriptor(int number = -1) : number_(number) {}
  ~Descriptor() { reset(); }
  Descriptor(Descriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    std::swap(number_, other.number_);
    return *this;
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;

  [[nodiscard]] bool isOpen() const { return number_ >= 0; }
  [[nodiscard]] int number() const { return number_; }
  void reset() {
    if (isOpen()) {
      close(std::exchange(number_, -1));
    }
  }

 private:
  int number_;
};

}  // namespace sorvane::client::detail
