// What the real name server tells of its host and of launchers, and how it is told to end.
#include <gtest/gtest.h>

#include <ostream>
#include <regex>

#include "integration/Client.h"

namespace sorvane::test {
namespace {

constexpr const char* kOwnEthernetAddress = "02:00:00:00:00:ab";

/// A name server on a host with the network address 192.0.2.10.
class HostCommands : public Served {
 protected:
  void SetUp() override {
    server_.setting("EthernetAddress", '"' + std::string(kOwnEthernetAddress) + '"');
    server_.setting("Aliases", R"({ "10.1.2.3" = outside; })");
    Served::SetUp();
  }
  std::string hostInfo(const Texts& texts = {}) { return tool().resultOf("hostInfo", texts); }
  std::string hostList(const Texts& texts = {}) { return tool().resultOf("hostList", texts); }
};

const std::regex kFiveFields(R"(testhost\|02:00:00:00:00:(ab|01)\|(192\.0\.2\.10|127\.0\.0\.1)\|)"
                             R"(\d+\.\d+\.\d+ \(build #\d+\) \d+\.\d+\.\d+\|[^|]+)");

TEST_F(HostCommands, HostInfoAnswersTheFiveFieldsToEveryAddress) {
  const std::string fields = hostInfo();
  EXPECT_TRUE(std::regex_match(fields, kFiveFields)) << fields;
  EXPECT_EQ(fields.rfind("testhost|02:00:00:00:00:ab|192.0.2.10|", 0), 0U);
  for (const char* address : {"", "localhost", "127.0.0.1", "10.0.0.5", "10.1.2.3", "no address"}) {
    EXPECT_EQ(hostInfo({{"hostAddress", address}}), fields) << address;
  }
}

TEST(LocalOnlyHost, TellsAboutItselfToItsOwnMachineAlone) {
  Daemon server;
  server.setting("LocalAccessOnly", "YES").setting("Address", "");
  server.start();
  Client tool(server);
  const auto hostInfo = [&tool](const Texts& texts) { return tool.resultOf("hostInfo", texts); };
  EXPECT_EQ(hostInfo({}), "local only");
  for (const char* address : {"", "10.0.0.5", "LOCALHOST", "127.0.0.2", "::1", "testhost"}) {
    EXPECT_EQ(hostInfo({{"hostAddress", address}}), "local only") << address;
  }
  for (const char* address : {"localhost", "127.0.0.1"}) {
    const std::string fields = hostInfo({{"hostAddress", address}});
    EXPECT_TRUE(std::regex_match(fields, kFiveFields)) << fields;
  }
  EXPECT_EQ(tool.resultOf("hostList", {{"hostAddress", "10.0.0.5"}}), "") << "asks no such thing";
}

TEST_F(HostCommands, HostListOfAFreshServerIsTheEmptyText) {
  EXPECT_EQ(tool().connection().ask(request("hostList", {}))->body,
            entry("result", std::string(1, '\0')));
  for (const char* address : {"", "10.1.2.3", "10.0.0.5"}) {
    EXPECT_EQ(hostList({{"hostAddress", address}}), "") << address;
  }
}

TEST_F(HostCommands, HostListForAnAliasIsEmptyWhenHostInfoCameFirst) {
  EXPECT_NE(hostInfo(), "");
  EXPECT_EQ(hostList({{"hostAddress", "10.1.2.3"}}), "");
}

class LauncherReports : public HostCommands {
 protected:
  std::optional<Texts> reports(const std::string& ethernetAddress) {
    return tool().acts("sorvexecConnectHost", {{"hostName", "far"},
                                               {"portHostAddress", "10.0.0.5"},
                                               {"ethernetAddress", ethernetAddress}});
  }
  const std::optional<Texts> kConnected = Texts{{"result", "connected"}};
  const std::optional<Texts> kFailed = Texts{{"result", "failed"}};
};

TEST_F(LauncherReports, ConnectFromThisMachineAndAreNotListed) {
  for (int times = 0; times < 3; ++times) {
    EXPECT_EQ(reports(kOwnEthernetAddress), kConnected);
    EXPECT_EQ(hostList(), "") << "a host is added only where it is listed already";
  }
}

TEST_F(LauncherReports, FailFromAnotherMachine) {
  for (const char* address :
       {"02:00:00:00:00:ac", "02:00:00:00:00:AB", "02:00:00:00:00:ab ", "", "localhost"}) {
    EXPECT_EQ(reports(address), kFailed) << address;
  }
  EXPECT_EQ(server_.log().find("ERROR CONNECTING"), std::string::npos) << "only when verbose";
}

TEST_F(LauncherReports, WithoutAHostOrItsAddressGetNoDictionary) {
  EXPECT_EQ(tool().acts("sorvexecConnectHost"), kNil);
  EXPECT_EQ(tool().acts("sorvexecConnectHost", {{"hostName", "h"}}), kNil);
  EXPECT_EQ(tool().acts("sorvexecConnectHost",
                        {{"portHostAddress", "a"}, {"ethernetAddress", kOwnEthernetAddress}}),
            kNil);
}

TEST_F(LauncherReports, WithoutAnEthernetAddressFailAndAreReported) {
  EXPECT_EQ(tool().acts("sorvexecConnectHost", {{"hostName", "h"}, {"portHostAddress", "a"}}),
            kFailed);
  EXPECT_TRUE(server_.complains("ethernetAddress missing from sorvexec communication\n"));
}

TEST_F(LauncherReports, EndWithTheirConnectionWithoutALogLineForAnUnlistedHost) {
  Client launcher(server_);
  launcher.registers("sorvexec");
  EXPECT_EQ(reports(kOwnEthernetAddress), kConnected);
  launcher.closes();
  EXPECT_TRUE(waitUntil([&] { return !tool().knows("sorvexec"); }));
  tool().acts("hostList");
  EXPECT_EQ(server_.log().find("REMOVE HOST"), std::string::npos);
}

TEST(VerboseServer, LogsWhoIsSoughtAndWhichLauncherIsRefused) {
  Daemon server;
  server.start({"-verbose"});
  Client tool(server);
  EXPECT_EQ(
      tool.resultOf("sorvexecConnectHost",
                    {{"hostName", "%s%n"}, {"portHostAddress", "a"}, {"ethernetAddress", "%s%n"}}),
      "failed");
  EXPECT_TRUE(server.logs(
      "ERROR CONNECTING sorvexec, ethernet address does not match (%s%n != 02:00:00:00:00:01)\n"));
  EXPECT_FALSE(tool.knows("db1"));
  EXPECT_TRUE(server.logs("FIND PORT = {\n    findPort = db1;\n    portHost = localhost;\n}\n"));
}

constexpr const char* kTerminated = "sorvinfo was asked to terminate.\n";
constexpr const char* kRestarted = "sorvinfo was asked to restart.\n";

struct Ending {
  const char* name;
  Texts request;
  const char* logLine;
};

void PrintTo(const Ending& ending, std::ostream* out) { *out << ending.name; }

/// Ends of the process, also where a request fits several commands.
const Ending kEndings[] = {
    {"TerminateKey", {{"terminate", ""}}, kTerminated},
    {"TerminateKeyOfAnyValue", {{"terminate", "NO"}, {"portHost", "h"}}, kTerminated},
    {"RestartAction", {{"action", "restart"}}, kRestarted},
    {"RestartActionInOtherCase", {{"action", "ReStArT"}}, kRestarted},
    {"TerminateBeforeRestart", {{"action", "restart"}, {"terminate", ""}}, kTerminated},
    {"TerminateBeforeAnAction", {{"action", "databaseStates"}, {"terminate", ""}}, kTerminated},
    {"RestartBeforeNewPort",
     {{"newPort", ""},
      {"portName", "n"},
      {"portHost", "h"},
      {"portType", "t"},
      {"action", "restart"}},
     kRestarted},
};

class EndOfTheServer : public Served, public ::testing::WithParamInterface<Ending> {};

TEST_P(EndOfTheServer, HasStatusZeroOneLogLineAndNoReply) {
  Client other(server_);
  other.registers("db1");
  ASSERT_TRUE(tool().connection().send(frame(textsMessage(GetParam().request))));
  EXPECT_TRUE(tool().connection().isClosedByPeer()) << "without a reply";
  EXPECT_TRUE(other.connection().isClosedByPeer());
  EXPECT_EQ(server_.waitForExit(), 0);
  const std::string log = server_.log();
  const bool terminated = log.find(kTerminated) != std::string::npos;
  const bool restarted = log.find(kRestarted) != std::string::npos;
  EXPECT_NE(log.find(GetParam().logLine), std::string::npos) << log;
  EXPECT_NE(terminated, restarted) << log;
  EXPECT_TRUE(server_.processes().empty()) << "it does not start again by itself";
}

INSTANTIATE_TEST_SUITE_P(For, EndOfTheServer, ::testing::ValuesIn(kEndings),
                         [](const auto& ending) { return std::string(ending.param.name); });

TEST_F(HostCommands, ServeOnAfterWordsThatEndNothing) {
  Client database(server_);
  database.asksForPort("db1");
  EXPECT_EQ(database.asks(Message({{"action", "terminate"}})), kEmptyDictionary);
  EXPECT_EQ(database.asks(Message({{"restart", ""}})), kEmptyDictionary);
  EXPECT_EQ(database.asks(Message({{"Terminate", ""}})), kEmptyDictionary);
  EXPECT_EQ(database.asks(Message({{"terminate", ""}, {"ping", ""}})), kEmptyDictionary)
      << "a ping";
  const Texts accept = {{"terminate", ""}, {"action", "restart"}, {"acceptPort", ""}};
  EXPECT_EQ(database.asks(accept), accept) << "registering comes before ending";
  const Texts find = {{"terminate", ""}, {"findPort", "nobody"}, {"portHost", "h"}};
  EXPECT_EQ(database.asks(find), (Texts{{"notFound", "notFound"}}));
  EXPECT_TRUE(tool().knows("db1"));
  EXPECT_EQ(server_.log().find("asked to"), std::string::npos);
}

}  // namespace
}  // namespace sorvane::test
