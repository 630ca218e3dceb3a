#include <gtest/gtest.h>

#include "sorvctl/Failure.h"
#include "sorvctl/HostAndPort.h"

namespace sorvctl {
namespace {

TEST(HostAndPort, IsReadAsPeopleWriteIt) {
  const struct {
    const char* text;
    const char* host;
    std::optional<int> port;
  } rows[] = {
      {"db.example", "db.example", {}},
      {"db.example:20221", "db.example", 20221},
      {"192.0.2.7", "192.0.2.7", {}},
      {"192.0.2.7:2", "192.0.2.7", 2},
      {"[::1]", "::1", {}},
      {"[::1]:65534", "::1", 65534},
      {"::1", "::1", {}},
      {"fe80::1%eth0", "fe80::1%eth0", {}},
      {"[fe80::1%eth0]:20221", "fe80::1%eth0", 20221},
      {"2001:db8::7", "2001:db8::7", {}},
      {"::", "::", {}},
  };
  for (const auto& row : rows) {
    const HostAndPort read = readHostAndPort(row.text);
    EXPECT_EQ(read.host, row.host) << row.text;
    EXPECT_EQ(read.port, row.port) << row.text;
  }
}

TEST(HostAndPort, ThatMakesNoSenseIsWrongUsage) {
  for (const char* text :
       {"",           ":20221",    "db:",       "db:x",      "db:1",
        "db:65535",   "db:-20221", "db:20221x", "db: 20221", "db:99999999999999999999",
        "[::1",       "[]",        "[]:20221",  "[db]",      "[db]:20221",
        "[::1]20221", "[::1]:",    "[::1]:1",   "[::1]x",    "[::1]]",
        "["}) {
    try {
      const HostAndPort read = readHostAndPort(text);
      ADD_FAILURE() << text << " is read as " << read.host;
    } catch (const Failure& failure) {
      EXPECT_EQ(failure.status(), Status::wrongUsage) << text;
      EXPECT_NE(std::string(failure.what()).find(text), std::string::npos) << failure.what();
    }
  }
}

TEST(HostAndPort, PutsAnAddressOfIPv6InBrackets) {
  EXPECT_EQ(inBrackets("::1"), "[::1]");
  EXPECT_EQ(inBrackets("192.0.2.7"), "192.0.2.7");
  EXPECT_EQ(inBrackets("db.example"), "db.example");
}

}  // namespace
}  // namespace sorvctl
