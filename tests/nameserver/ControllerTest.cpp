#include <regex>

#include "nameserver/NameServer.h"
#include "nameserver/Version.h"
#include "system/ProcessInfo.h"

namespace sorvane::test {
namespace {

using Controller = NameServerTest;
using LogMessage = NameServerTest;
using VersionTexts = NameServerTest;

TEST_F(Controller, IsTheGlobalObjectFromItsCreationOn) {
  EXPECT_EQ(sorvkeyController::globalObject(), nullptr);
  const NameServer server;
  EXPECT_EQ(sorvkeyController::globalObject(), &server);
  EXPECT_EQ(sorvkeyController::globalObject(), &server);
}

TEST_F(Controller, BeginsWithoutPortsHostsOrInfoServer) {
  NameServer server;
  EXPECT_EQ(server.hostList(), nullptr);
  EXPECT_EQ(server.infoserver(), nullptr);
  EXPECT_EQ(server.registry().portCount(), 0U);
  EXPECT_EQ(server.registry().watchingPortsList().count(), 0U);
  EXPECT_EQ(server.registry().changeStamp().forceRefreshNumber, 0);
  EXPECT_FALSE(server.startupFlag());
}

TEST_F(Controller, BeginsWithTheTimeOfItsCreation) {
  setTimeSource([] { return 4321.0; });
  NameServer server;
  EXPECT_EQ(server.registry().changeStamp().timestampFlag, 4321.0);
}

TEST_F(Controller, ConnectsLaunchersWithTheAnswerOne) {
  NameServer server;
  EXPECT_EQ(server.sorvexecConnectHost("localhost", "127.0.0.1"), 1);
  ASSERT_NE(server.hostList(), nullptr);
  EXPECT_TRUE(server.hostList()->empty());
  server.registry().with([](RegistryState& state) { state.hosts.hostList->push_back("a@1"); });
  EXPECT_EQ(server.sorvexecConnectHost("a", "1"), 1);
  EXPECT_EQ(*server.hostList(), (HostLists::List{"a@1", "a@1"}));
}

TEST_F(Controller, NeverAsksToReconnect) {
  NameServer server;
  EXPECT_FALSE(server.reconnect());
  EXPECT_FALSE(server.lazyreconnect());
  server.cleanupAfterMessage();
}

TEST_F(Controller, MarksAndForcesRefreshes) {
  NameServer server;
  Peer watcher(server);
  (void)watcher.action("didPortsChange");
  server.setWatchToDirty();
  EXPECT_EQ(watcher.action("didPortsChange"), "YES");
  server._setWatchToDirty();
  EXPECT_EQ(watcher.action("didPortsChange"), "YES");
  server.setForceRefreshToDirty();
  EXPECT_EQ(watcher.action("didPortsChange"), "NO");
  EXPECT_EQ(watcher.action("changeTimestamp", "force_refresh"), "1");
}

TEST_F(Controller, RegistersItsOwnTwoPorts) {
  NameServer server;
  server.registerOwnPorts();
  EXPECT_EQ(server.registry().portCount(), 2U);
  for (const std::string name : {"VN_infoserver", "VN_nameserver"}) {
    const auto record = server.registry().port(name);
    ASSERT_NE(record, nullptr);
    EXPECT_EQ(record->portName(), name);
    EXPECT_EQ(record->portKey(), name + "@testhost");
    EXPECT_EQ(record->portNumber(), "5000");
    EXPECT_EQ(record->portHost(), "testhost");
    EXPECT_EQ(record->portHostAddress(), "10.1.2.3");
    EXPECT_FALSE(record->portType().has_value());
  }
  EXPECT_EQ(Peer(server).finds("VN_nameserver"), "5000");
  EXPECT_EQ(Peer(server).asksForPort("db1"), "5001");
}

TEST_F(Controller, RunsWithoutALogWhenItCannotBeOpened) {
  std::filesystem::remove_all(folder_ / "Logs");
  NameServer server;
  EXPECT_EQ(console_.all(), std::vector<std::string>{"Could not open nameserver log file"});
  sorvkeyController::logMessage("dropped");
  EXPECT_EQ(Peer(server).registers("db1"), "5001");
  EXPECT_FALSE(std::filesystem::exists(folder_ / "Logs"));
}

TEST_F(LogMessage, WritesALineATextAndNothingForNil) {
  const NameServer server;
  sorvkeyController::logMessage("first");
  sorvkeyController::logMessage(std::nullopt);
  sorvkeyController::logMessage("");
  sorvkeyController::logMessage("100% of %s");
  EXPECT_EQ(log(), "first\n\n100% of %s\n");
}

TEST_F(LogMessage, OfASecondRunIsAppended) {
  {
    const NameServer first;
    sorvkeyController::logMessage("first");
  }
  const NameServer second;
  sorvkeyController::logMessage("second");
  EXPECT_EQ(log(), "first\nsecond\n");
}

TEST_F(VersionTexts, OfTheProductHaveTheirForm) {
  const std::string& version = sorvkeyController::sorvaneVersion();
  EXPECT_TRUE(std::regex_match(
      version, std::regex(R"(\d+\.\d+\.\d+ \(build #\d+\) \d{1,2}\.\d{1,2}\.\d{4})")))
      << version;
  EXPECT_EQ(&sorvkeyController::sorvaneVersion(), &version);
}

TEST_F(VersionTexts, OfTheSystemAreWhatTheProcessInformationTells) {
  class Fake : public ProcessInfo {
   public:
    std::optional<std::string> text;
    std::optional<std::string> operatingSystemVersionString() const override { return text; }
  };
  Fake system;
  EXPECT_EQ(platformNameOf(system), "MacOS X 10.?");
  system.text = "Version 1 (Build 2)";
  EXPECT_EQ(platformNameOf(system), "Version 1 (Build 2)");
}

TEST_F(VersionTexts, OfTheRunningSystemAreKept) {
  const std::string& name = sorvkeyController::platformName();
  EXPECT_EQ(name, ProcessInfo::processInfo().operatingSystemVersionString().value_or(""));
  EXPECT_FALSE(name.empty());
  EXPECT_EQ(&sorvkeyController::platformName(), &name);
}

}  // namespace
}  // namespace sorvane::test
