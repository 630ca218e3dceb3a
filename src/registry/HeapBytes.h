// What a block of memory costs.
#pragma once

#include <algorithm>
#include <cstddef>

namespace sorvane {

/// Returns what a block of `bytes` takes of the heap: an allocator adds a word to it and rounds it
/// up. No block takes nothing.
[[nodiscard]] constexpr std::size_t heapBytes(std::size_t bytes) {
  constexpr std::size_t kWord = 8;
  constexpr std::size_t kLeast = 32;
  constexpr std::size_t kStep = 16;
  return bytes == 0 ? 0 : std::max(kLeast, (bytes + kWord + kStep - 1) / kStep * kStep);
}

}  // namespace sorvane
