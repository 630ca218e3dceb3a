// What waiting for the memory costs, apart from any name server.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace sorvane::bench {

/// Places in memory, in no order, each of which tells where the next one is. Going from one to the
/// next costs a cache miss when there are many of them.
class Chain {
 public:
  /// About as much memory as that many registered connections take.
  explicit Chain(std::size_t connections);

  /// Reads so many places, the first of which depends on `start`; answers where it ended.
  [[nodiscard]] std::size_t follow(std::size_t start, int places) const {
    std::size_t at = start % lines_.size();
    for (int i = 0; i < places; ++i) {
      at = lines_[at][0];
    }
    return at;
  }

 private:
  using Line = std::array<std::uint32_t, 16>;  // of the cache
  std::vector<Line> lines_;
};

}  // namespace sorvane::bench
