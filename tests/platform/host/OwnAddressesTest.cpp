#include <gtest/gtest.h>

#include "platform/OwnAddresses.h"
#include "support/OwnNamespaces.h"

namespace sorvane {
namespace {

IPAddress address(const std::string& text) { return *IPAddress::parse(text); }

TEST(OwnAddresses, AreTheLoopbackAddressesAndThoseOfTheInterfaces) {
  if (const std::string why = test::whyNoOwnNetwork(); !why.empty()) {
    GTEST_SKIP() << why;
  }
  test::inOwnNetwork([] {
    test::shell("ip address add 192.0.2.1/24 dev lo");
    test::shell("ip address add 2001:db8::1/64 dev lo nodad");
    OwnAddresses own;
    for (const std::string text :
         {"127.0.0.1", "127.9.9.9", "::1", "192.0.2.1", "::ffff:192.0.2.1", "2001:db8::1"}) {
      EXPECT_TRUE(own.contains(address(text))) << text;
    }
    for (const std::string text : {"192.0.2.2", "2001:db8::2", "203.0.113.1"}) {
      EXPECT_FALSE(own.contains(address(text))) << text;
    }
  });
}

// A stranger who connects a thousand times a second costs one listing of the interfaces.
TEST(OwnAddresses, AreAskedAgainOnlyAfterAWhile) {
  if (const std::string why = test::whyNoOwnNetwork(); !why.empty()) {
    GTEST_SKIP() << why;
  }
  test::inOwnNetwork([] {
    OwnAddresses own;
    const auto start = OwnAddresses::Clock::now();
    EXPECT_FALSE(own.contains(address("192.0.2.1"), start));
    test::shell("ip address add 192.0.2.1/24 dev lo");
    const auto justBefore = start + OwnAddresses::kRemembered - OwnAddresses::Clock::duration(1);
    EXPECT_FALSE(own.contains(address("192.0.2.1"), justBefore));
    EXPECT_TRUE(own.contains(address("192.0.2.1"), start + OwnAddresses::kRemembered));
  });
}

}  // namespace
}  // namespace sorvane
