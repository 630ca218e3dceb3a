// A buffer of bytes that is filled, sent and emptied again and again.
#pragma once

#include <cstddef>
#include <cstring>
#include <string_view>
#include <utility>

namespace sorvane {

/// The output of a connection. Unlike std::string, it hands out room at its end without filling it
/// first, so that a reply is written only once. Can be moved but not copied. A view or pointer into
/// it is valid until it grows. Raises std::bad_alloc if there is no memory.
class ByteBuffer {
 public:
  ByteBuffer() = default;
  ByteBuffer(ByteBuffer&& other) noexcept { swap(other); }
  ByteBuffer& operator=(ByteBuffer&& other) noexcept {
    ByteBuffer(std::move(other)).swap(*this);
    return *this;
  }
  ~ByteBuffer();

  [[nodiscard]] const char* data() const { return bytes_; }
  [[nodiscard]] char* data() { return bytes_; }
  [[nodiscard]] std::size_t size() const { return size_; }
  [[nodiscard]] std::size_t capacity() const { return capacity_; }
  [[nodiscard]] bool empty() const { return size_ == 0; }
  [[nodiscard]] std::string_view view() const { return {bytes_, size_}; }

  /// Makes the buffer `bytes` longer and returns where they begin. The caller must write all of
  /// them.
  [[nodiscard]] char* extend(std::size_t bytes) {
    if (capacity_ - size_ < bytes) {
      grow(bytes);
    }
    char* const begin = bytes_ + size_;
    size_ += bytes;
    return begin;
  }
  void append(std::string_view bytes) {
    if (!bytes.empty()) {
      std::memcpy(extend(bytes.size()), bytes.data(), bytes.size());
    }
  }

  /// Cuts off what lies beyond `size`, which must not exceed the present size. Keeps the memory.
  void truncate(std::size_t size) { size_ = size; }
  void clear() { size_ = 0; }

  void swap(ByteBuffer& other) noexcept {
    std::swap(bytes_, other.bytes_);
    std::swap(size_, other.size_);
    std::swap(capacity_, other.capacity_);
  }

 private:
  void grow(std::size_t bytes);

  char* bytes_ = nullptr;  // from malloc: realloc can often grow a long block in place
  std::size_t size_ = 0;
  std::size_t capacity_ = 0;
};

}  // namespace sorvane
