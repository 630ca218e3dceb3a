// Which name server sorvctl asks.
#include <nlohmann/json.hpp>
#include <string>

#include "integration/Sorvctl.h"
#include "platform/NetConnection.h"

namespace sorvane::test {
namespace {

class SorvctlHost : public Sorvctl {
 protected:
  [[nodiscard]] std::string port() const { return std::to_string(server.basePort()); }
  [[nodiscard]] static Outcome ctl(const Arguments& arguments) {
    return run(builtProgram("sorvctl"), arguments);
  }
};

TEST_F(SorvctlHost, IsWrittenWithItsPortBeforeOrAfterTheCommand) {
  for (const Arguments& arguments :
       {Arguments{"--host", "127.0.0.1:" + port(), "ping", "--json"},
        Arguments{"ping", "--json", "--host", "127.0.0.1:" + port()},
        Arguments{"--json", "--host=127.0.0.1:" + port(), "ping", "--port", port()}}) {
    const Outcome outcome = ctl(arguments);
    ASSERT_EQ(outcome.status, 0) << outcome.errors;
    const auto reply = nlohmann::json::parse(outcome.output);
    EXPECT_EQ(reply["host"], "127.0.0.1");
    EXPECT_EQ(reply["port"], server.basePort());
  }
}

TEST_F(SorvctlHost, MayBeAnAddressOfIPv6InBrackets) {
  if (!NetConnection().connectToPort("::1", server.basePort())) {
    GTEST_SKIP() << "this machine has no IPv6";
  }
  for (const Arguments& arguments : {Arguments{"--host", "[::1]:" + port(), "ping"},
                                     Arguments{"--host", "[::1]", "--port", port(), "ping"},
                                     Arguments{"--host", "::1", "--port", port(), "ping"}}) {
    const Outcome outcome = ctl(arguments);
    EXPECT_EQ(outcome.status, 0) << outcome.errors;
    EXPECT_EQ(outcome.output.rfind("::1 port " + port() + " answers", 0), 0U) << outcome.output;
  }
}

TEST_F(SorvctlHost, WithTwoPortsIsWrongUsage) {
  expectFailure(ctl({"--host", "127.0.0.1:" + port(), "--port", "20221", "ping"}), 2,
                "another port than --port");
  expectFailure(ctl({"ping", "--host", "127.0.0.1:1"}), 2, "no host");
  expectFailure(ctl({"ping", "--host", "[::1"}), 2, "no host");
  expectFailure(ctl({"defaults", "list", "--of", "127.0.0.1:" + port()}), 2, "--of takes no port");
}

TEST_F(SorvctlHost, OfDefaultsMayStandInBrackets) {
  expectFailure(tool({"defaults", "list", "--of", "[::1]"}), 3, "the launcher of ::1 ");
}

// The parser would take such a word for a list.
TEST_F(SorvctlHost, IsNoListAndNeitherIsAnyOtherWord) {
  EXPECT_EQ(tool({"register", "db1", "--", "printf", "<%s>", "[a,b]", "[]", "[", "\x01[c]"}).output,
            std::to_string(server.basePort() + 1) + "\n<[a,b]><[]><[><\x01[c]>");
  expectFailure(tool({"find", "[db1]"}), 1, "\"[db1]\"");
  expectFailure(tool({"ping", "[db1]"}), 2, "[db1]");
}

}  // namespace
}  // namespace sorvane::test
