#include <gtest/gtest.h>

#include <cstddef>
#include <utility>

#include "registry/HeapBytes.h"

namespace sorvane {
namespace {

TEST(HeapBytes, AreThoseOfABlockWithTheWordOfItsAllocator) {
  const std::pair<std::size_t, std::size_t> blocks[] = {
      {0, 0},   {1, 32},  {24, 32}, {25, 48}, {40, 48},     {41, 64},
      {56, 64}, {57, 80}, {72, 80}, {73, 96}, {1000, 1008}, {1001, 1024}};
  for (const auto& [bytes, cost] : blocks) {
    EXPECT_EQ(heapBytes(bytes), cost) << bytes;
  }
}

}  // namespace
}  // namespace sorvane
