#include <thread>

#include "nameserver/NameServer.h"
#include "nameserver/SingleInstance.h"
#include "platform/VNFileLock.h"
#include "support/ScriptedPeer.h"

namespace sorvane::test {
namespace {

class SingleInstance : public NameServerTest {
 protected:
  NameServer server_;
};

TEST_F(SingleInstance, TakesTheProcessLockAndKeepsIt) {
  server_._startupLockConnection();
  const auto other = VNFileLock::fileLockWithSorvaneProcessName("sorvinfo");
  EXPECT_FALSE(other->obtainLock());
  EXPECT_EQ(console_.all(), std::vector<std::string>{});
}

TEST_F(SingleInstance, EndsWithStatusZeroWhenTheLockIsHeldElsewhere) {
  const auto other = VNFileLock::fileLockWithSorvaneProcessName("sorvinfo");
  ASSERT_TRUE(other->obtainLock());
  EXPECT_EXIT(
      {
        setConsoleSink(nullptr);
        server_._startupLockConnection();
      },
      testing::ExitedWithCode(0),
      "Process lock reports that another infoserver is running on this host.");
  EXPECT_EQ(log(), "Process lock reports that another infoserver is running on this host.\n\n");
}

TEST_F(SingleInstance, OnAStaticHostTheLookEndsAfterTheLock) {
  server_.runGlobalLook();
  EXPECT_EQ(log(), "");
  EXPECT_EQ(console_.all(), std::vector<std::string>{});
  EXPECT_FALSE(VNFileLock::fileLockWithSorvaneProcessName("sorvinfo")->obtainLock());
}

TEST_F(SingleInstance, WhenVerboseTellsThatTheLockWasTaken) {
  sorvkey_verbose = 1;
  server_.runGlobalLook();
  EXPECT_EQ(log(), "succeeded. \n");
  EXPECT_EQ(console_.all(), std::vector<std::string>{"succeeded. "});
}

TEST(AddressWatch, ChecksEveryThirtySecondsUntilTheAddressChanged) {
  std::vector<std::string> steps;
  watchAddress(
      [&] {
        steps.emplace_back("check");
        return steps.size() < 6;
      },
      [&](int seconds) { steps.push_back("sleep " + std::to_string(seconds)); });
  EXPECT_EQ(steps, (std::vector<std::string>{"check", "sleep 30", "check", "sleep 30", "check",
                                             "sleep 30", "check"}));
}

class TerminateOther : public NameServerTest {
 protected:
  // What the name server of the host "localhost" gets when this host is told of.
  std::string received(const char* host) {
    std::string request;
    {
      ScriptedPeer other([&](PeerConnection& connection) {
        request = connection.receiveRequest().value_or("(none)");
        done_ = true;
      });
      settings_.basePort = other.port();
      settingsChanged();
      sorvkeyController::terminateOtherNameserver(host);
      while (!done_) {
        std::this_thread::yield();
      }
    }
    return request;
  }
  NameServer server_;
  std::atomic<bool> done_ = false;
};

TEST_F(TerminateOther, SendsTheActionAndLogsIt) {
  const std::string body = received("localhost");
  EXPECT_EQ(body, Message({{"action", "terminate"}}).body());
  EXPECT_EQ(log(), "Process terminated by another nameserver. \n");
}

TEST_F(TerminateOther, CutsTheHostAtItsLastUnderscore) {
  EXPECT_EQ(received("localhost_1234"), Message({{"action", "terminate"}}).body());
}

TEST(HostOfNameserver, IsWhatComesBeforeTheLastUnderscore) {
  EXPECT_EQ(hostOfNameserver("hostB_1234"), "hostB");
  EXPECT_EQ(hostOfNameserver("host_a_b"), "host_a");
  EXPECT_EQ(hostOfNameserver("hostB"), "hostB");
  EXPECT_EQ(hostOfNameserver("hostB_"), "hostB");
  EXPECT_EQ(hostOfNameserver("_1"), "");
  EXPECT_EQ(hostOfNameserver(""), "");
}

TEST_F(TerminateOther, SaysNothingWhenItCannotBeReached) {
  settings_.basePort = closedPort();
  settingsChanged();
  sorvkeyController::terminateOtherNameserver("localhost");
  EXPECT_EQ(log(), "");
  EXPECT_EQ(console_.all(), std::vector<std::string>{});
}

TEST_F(SingleInstance, KnowsTheAddressOfThisHost) {
  EXPECT_EQ(sorvkeyController::nameServerIPAddress(), "10.1.2.3");
}

}  // namespace
}  // namespace sorvane::test
