// What a cache miss costs, measured without a name server.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace sorvane::bench {

/// Cache lines in random order, each with the index of the next. With many of them, each step from
/// one to the next is a cache miss.
class PointerChase {
 public:
  /// About as much memory as that many registered connections take.
  explicit PointerChase(std::size_t connections);

  /// Goes so many steps from the line that `start` selects; returns the index of the last.
  [[nodiscard]] std::size_t follow(std::size_t start, int steps) const {
    std::size_t at = start % lines_.size();
    for (int i = 0; i < steps; ++i) {
      at = lines_[at][0];
    }
    return at;
  }

 private:
  using Line = std::array<std::uint32_t, 16>;  // as long as a line of the cache
  std::vector<Line> lines_;
};

}  // namespace sorvane::bench
