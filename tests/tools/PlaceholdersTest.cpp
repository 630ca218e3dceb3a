#include <gtest/gtest.h>

#include "sorvctl/Failure.h"
#include "sorvctl/Placeholders.h"

namespace sorvctl {
namespace {

const Target kTarget{"dbhost", "20222", "192.0.2.7"};
const Target kIPv6{"2001:db8::7", "20222", "::1"};

TEST(Placeholders, AreReplacedWhereverTheyStand) {
  EXPECT_EQ(filledIn("tcp://{host}:{number}/", kTarget), "tcp://dbhost:20222/");
  EXPECT_EQ(filledIn("{number}{number}", kTarget), "2022220222");
  EXPECT_EQ(filledIn("{address}", kTarget), "192.0.2.7");
  EXPECT_EQ(filledIn("", kTarget), "");
}

TEST(Placeholders, AreNothingElseInBraces) {
  const char* const text = "{port} {host {} {HOST} awk '{print}' {{}}";
  EXPECT_EQ(filledIn(text, kTarget), text);
  EXPECT_EQ(filledIn("{{host}}", kTarget), "{dbhost}");
}

TEST(Placeholders, PutAnAddressOfIPv6InBracketsInAUrlAlone) {
  EXPECT_EQ(filledIn("tcp://{host}:{number}/", kIPv6), "tcp://[2001:db8::7]:20222/");
  EXPECT_EQ(filledIn("http://{address}/", kIPv6), "http://[::1]/");
  EXPECT_EQ(filledIn("{host}:{number}", kIPv6), "[2001:db8::7]:20222");
  EXPECT_EQ(filledIn("{host} {number}", kIPv6), "2001:db8::7 20222");
}

TEST(Target, IsTheRegisteredHostOrThatOfTheNameServer) {
  const Session session(Options{"nameserver", {}, false});
  const auto hostOf = [&session](const char* registered) {
    return targetOf(session, Port{"db1", "20222", registered, "nameserver", ""}).host;
  };
  EXPECT_EQ(hostOf("dbhost"), "dbhost");
  EXPECT_EQ(hostOf("fe80::1%eth0"), "fe80::1%eth0");
  for (const char* registered : {"", "localhost", "LocalHost", "127.0.0.1", "127.9.9.9", "::1"}) {
    EXPECT_EQ(hostOf(registered), "nameserver") << registered;
  }
}

TEST(Target, IsRefusedWhenItCannotBeOne) {
  const Session session(Options{});
  for (const Port& port :
       {Port{"", "20222", "-x", "a", ""}, Port{"", "20222", "a b", "a", ""},
        Port{"", "20222", "a;b", "a", ""}, Port{"", "20222", std::string(256, 'a'), "a", ""},
        Port{"", "20222", "a", "-a", ""}, Port{"", "20222", "a", "$a", ""},
        Port{"", "", "a", "a", ""}, Port{"", "0", "a", "a", ""}, Port{"", "65536", "a", "a", ""},
        Port{"", "1x", "a", "a", ""}, Port{"", "-1", "a", "a", ""}}) {
    EXPECT_THROW((void)targetOf(session, port), Failure)
        << port.host << " " << port.number << " " << port.address;
  }
}

}  // namespace
}  // namespace sorvctl
