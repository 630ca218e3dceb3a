#include <gtest/gtest.h>

#include "platform/IPv4Address.h"

namespace sorvane {
namespace {

TEST(IPv4Address, IsFourDecimalNumbersJoinedByDots) {
  for (const char* text : {"0.0.0.0", "10.1.2.3", "127.0.0.1", "255.255.255.255"}) {
    EXPECT_TRUE(isIPv4Address(text)) << text;
  }
  for (const char* text :
       {"", "10", "10.0.0", "10.0.0.", "10.0.0.256", "10.0.0.1.1", "10.0.0.x", "0x0a.0.0.1",
        " 10.0.0.1", "10.0.0.1 ", "::1", "::ffff:10.0.0.1", "host"}) {
    EXPECT_FALSE(isIPv4Address(text)) << text;
  }
}

}  // namespace
}  // namespace sorvane
