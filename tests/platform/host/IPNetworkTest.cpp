#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/un.h>

#include "platform/IPNetwork.h"

namespace sorvane {
namespace {

IPAddress address(const std::string& text) {
  const auto parsed = IPAddress::parse(text);
  EXPECT_TRUE(parsed) << text;
  return parsed.value_or(*IPAddress::parse("203.0.113.255"));
}

bool isIn(const std::string& text, const std::string& network) {
  const auto parsed = IPNetwork::parse(network);
  EXPECT_TRUE(parsed) << network;
  return parsed && parsed->contains(address(text));
}

TEST(IPAddressText, IsAnAddressOfEitherKindAndNothingElse) {
  for (const std::string text : {"0.0.0.0", "192.0.2.1", "::", "2001:db8::1", "::ffff:192.0.2.1"}) {
    EXPECT_TRUE(IPAddress::parse(text)) << text;
  }
  for (const std::string text : {"", "host", "192.0.2", "192.0.2.256", "192.0.2.1 ", "fe80::1%lo",
                                 "[::1]", "1:2", "192.0.2.1/32"}) {
    EXPECT_FALSE(IPAddress::parse(text)) << text;
  }
}

TEST(IPAddressOfASocket, OfIPv4InIPv6FormIsTheIPv4Address) {
  sockaddr_in6 mapped{};
  mapped.sin6_family = AF_INET6;
  ASSERT_EQ(inet_pton(AF_INET6, "::ffff:192.0.2.1", &mapped.sin6_addr), 1);
  sockaddr_in plain{};
  plain.sin_family = AF_INET;
  ASSERT_EQ(inet_pton(AF_INET, "192.0.2.1", &plain.sin_addr), 1);
  for (const auto& found : {IPAddress::of(reinterpret_cast<const sockaddr&>(mapped)),
                            IPAddress::of(reinterpret_cast<const sockaddr&>(plain))}) {
    EXPECT_EQ(found, address("192.0.2.1"));
    EXPECT_TRUE(found && found->isIPv4());
  }
  EXPECT_FALSE(address("2001:db8::1").isIPv4());
}

TEST(IPAddressOfASocket, IsNothingForAnotherKindOfSocket) {
  sockaddr_un local{};
  local.sun_family = AF_UNIX;
  EXPECT_FALSE(IPAddress::of(reinterpret_cast<const sockaddr&>(local)));
}

TEST(Loopback, IsTheWholeNetworkOfIPv4AndOneAddressOfIPv6) {
  for (const std::string text : {"127.0.0.1", "127.255.1.2", "::ffff:127.0.0.1", "::1"}) {
    EXPECT_TRUE(address(text).isLoopback()) << text;
  }
  for (const std::string text : {"128.0.0.1", "126.0.0.1", "::", "::2", "fe80::1", "7f00::1"}) {
    EXPECT_FALSE(address(text).isLoopback()) << text;
  }
}

struct Membership {
  const char* network;
  const char* inside;
  const char* outside;
};

TEST(IPNetworkMembership, IsDecidedByTheLeadingBits) {
  const Membership cases[] = {
      {"192.0.2.0/24", "192.0.2.255", "192.0.3.0"},
      {"192.0.2.0/24", "192.0.2.0", "192.0.1.255"},
      {"192.0.2.128/25", "192.0.2.128", "192.0.2.127"},
      {"10.0.0.0/9", "10.127.255.255", "10.128.0.0"},
      {"192.0.2.7", "192.0.2.7", "192.0.2.6"},
      {"192.0.2.7/32", "192.0.2.7", "192.0.2.8"},
      {"2001:db8::/32", "2001:db8:ffff::1", "2001:db9::"},
      {"2001:db8::/33", "2001:db8:7fff::", "2001:db8:8000::"},
      {"2001:db8::5", "2001:db8::5", "2001:db8::4"},
  };
  for (const Membership& each : cases) {
    EXPECT_TRUE(isIn(each.inside, each.network)) << each.network << " " << each.inside;
    EXPECT_FALSE(isIn(each.outside, each.network)) << each.network << " " << each.outside;
  }
}

TEST(IPNetworkMembership, OfAnIPv4AddressIsTheSameInIPv6Form) {
  EXPECT_TRUE(isIn("::ffff:192.0.2.9", "192.0.2.0/24"));
  EXPECT_TRUE(isIn("192.0.2.9", "::ffff:192.0.2.0/120"));
  EXPECT_FALSE(isIn("192.0.3.9", "::ffff:192.0.2.0/120"));
}

TEST(IPNetworkMembership, OfAllOfOneKindHasNoneOfTheOther) {
  EXPECT_TRUE(isIn("203.0.113.9", "0.0.0.0/0"));
  EXPECT_FALSE(isIn("2001:db8::1", "0.0.0.0/0"));
  EXPECT_TRUE(isIn("2001:db8::1", "::/0"));
  EXPECT_FALSE(isIn("203.0.113.9", "::/0"));
}

TEST(IPNetworkText, WithoutANetworkInItIsRefused) {
  for (const std::string text :
       {"", "/", "/24", "192.0.2.0/", "192.0.2.0/33", "192.0.2.0/-1", "192.0.2.0/24 ",
        "192.0.2.0/2x", "192.0.2/24", "2001:db8::/129", "all", "192.0.2.0/24/24"}) {
    EXPECT_FALSE(IPNetwork::parse(text)) << text;
  }
}

TEST(IPNetworkText, WithBitsBehindThePrefixIsRefused) {
  for (const std::string text :
       {"192.0.2.1/24", "192.0.2.0/22", "128.0.0.0/0", "2001:db8::1/64", "2001:db8:8000::/32"}) {
    EXPECT_FALSE(IPNetwork::parse(text)) << text;
  }
}

}  // namespace
}  // namespace sorvane
