#include "scale/PointerChase.h"

#include <algorithm>
#include <numeric>
#include <random>

namespace sorvane::bench {
namespace {

constexpr std::size_t kLinesOfAConnection = 6;  // a slot and a free one, a record, its texts

}  // namespace

PointerChase::PointerChase(std::size_t connections) : lines_(connections * kLinesOfAConnection) {
  std::vector<std::uint32_t> order(lines_.size());
  std::iota(order.begin(), order.end(), 0U);
  std::shuffle(order.begin(), order.end(), std::minstd_rand(1));
  for (std::size_t i = 0; i < order.size(); ++i) {
    lines_[order[i]][0] = order[(i + 1) % order.size()];
  }
}

}  // namespace sorvane::bench
