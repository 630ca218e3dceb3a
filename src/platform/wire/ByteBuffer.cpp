#include "platform/wire/ByteBuffer.h"

#include <algorithm>
#include <cstdlib>
#include <limits>
#include <new>

namespace sorvane {
namespace {

constexpr std::size_t kLeastCapacity = 256;

}  // namespace

ByteBuffer::~ByteBuffer() { std::free(bytes_); }

void ByteBuffer::grow(std::size_t bytes) {
  constexpr std::size_t kMostBytes = std::numeric_limits<std::size_t>::max() / 2;
  if (bytes > kMostBytes - size_) {
    throw std::bad_alloc();
  }
  const std::size_t capacity = std::max({kLeastCapacity, size_ + bytes, 2 * capacity_});
  void* const grown = std::realloc(bytes_, capacity);
  if (grown == nullptr) {
    throw std::bad_alloc();
  }
  bytes_ = static_cast<char*>(grown);
  capacity_ = capacity;
}

}  // namespace sorvane
