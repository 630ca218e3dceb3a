#include <gtest/gtest.h>

#include <string_view>

#include "platform/wire/WireInteger.h"

namespace sorvane {
namespace {

TEST(WireInteger, OfSixteenBitsHasItsHighByteFirst) {
  char bytes[] = "----";
  storeBigEndian16(bytes + 1, 0x81f2);
  EXPECT_EQ(std::string_view(bytes, 4), "-\x81\xf2-");
  EXPECT_EQ(loadBigEndian16(bytes + 1), 0x81f2);
  storeBigEndian16(bytes + 1, 0xffff);
  EXPECT_EQ(loadBigEndian16(bytes + 1), 0xffff);
}

TEST(WireInteger, OfThirtyTwoBitsHasItsHighestByteFirst) {
  char bytes[] = "------";
  storeBigEndian32(bytes + 1, 0x81f2c3e4);
  EXPECT_EQ(std::string_view(bytes, 6), "-\x81\xf2\xc3\xe4-");
  EXPECT_EQ(loadBigEndian32(bytes + 1), 0x81f2c3e4);
  storeBigEndian32(bytes + 1, 0xffffffff);
  EXPECT_EQ(loadBigEndian32(bytes + 1), 0xffffffff);
}

}  // namespace
}  // namespace sorvane
