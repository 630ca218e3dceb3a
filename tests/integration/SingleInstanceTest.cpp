// One name server for each host, one host that serves for others, and the address that a server was
// started with.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <functional>
#include <vector>

#include "integration/Daemon.h"
#include "integration/NetworkNamespace.h"

namespace sorvane::test {
namespace {

using Clock = std::chrono::steady_clock;

constexpr const char* kLockHeld =
    "Process lock reports that another infoserver is running on this host.\n";
constexpr const char* kOtherHost = "nameserver TCPIP socket found on another computer";

std::string quoted(const std::filesystem::path& path) { return "\"" + path.string() + "\""; }

// ---- The process lock

TEST(ProcessLock, ASecondNameServerOfTheHostEndsWithItsMessageAndStatusZero) {
  Daemon first;
  first.start();
  Daemon second;  // on ports of its own, so that it gets as far as the lock
  second.setting("LockDirectory", quoted(first.tree() / "lock"));
  second.launch();
  EXPECT_EQ(second.waitForExit(), 0);
  EXPECT_NE(second.console().find(
                "Process lock reports that another infoserver is running on this host.\n"),
            std::string::npos);
  EXPECT_EQ(second.log(), std::string(kLockHeld) + "\n");
  EXPECT_TRUE(first.registers("db1")) << "the first one serves on";
}

TEST(ProcessLock, OfAKilledNameServerIsFreeAtOnce) {
  Daemon first;
  first.start();
  Daemon second;
  second.setting("LockDirectory", quoted(first.tree() / "lock"));
  first.kill();
  second.launch({"-verbose"});
  EXPECT_TRUE(second.logs("succeeded. "));
  EXPECT_TRUE(second.answers());
}

TEST(ProcessLock, AFileThatAnotherUserLeftDoesNotHoldUpTheStart) {
  if (geteuid() != 0) {
    GTEST_SKIP() << "only root can leave a file in another user's name";
  }
  Daemon server;
  const auto file = server.tree() / "lock/sorvinfo.lock";
  writeFile(file, "4711\n");
  ASSERT_EQ(chown(file.c_str(), 12345, 12345), 0);
  ASSERT_EQ(chmod((server.tree() / "lock").c_str(), 01777), 0);
  server.launch({"-verbose"});
  EXPECT_TRUE(server.logs("succeeded. "));
}

// ---- The name server host file

/// A program of the test's own that listens on a port of a host and treats each caller as told.
class Listener {
 public:
  Listener(const NetworkNamespace& host, int port, const std::function<void(int caller)>& treat)
      : process_([&](const ForkedPart& self) {
          host.enter();
          const int listener = socket(AF_INET, SOCK_STREAM, 0);
          sockaddr_in address{};
          address.sin_family = AF_INET;
          address.sin_port = htons(static_cast<std::uint16_t>(port));
          ASSERT_EQ(bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
          ASSERT_EQ(listen(listener, 5), 0);
          self.tell(0);
          for (;;) {
            treat(accept(listener, nullptr, nullptr));
          }
        }) {
    EXPECT_EQ(process_.hear(), 0) << "it does not listen";
  }

 private:
  ForkedPart process_;
};

class HostFile : public ::testing::Test {
 protected:
  static constexpr const char* kAlpha = "192.0.2.1";

  void SetUp() override {
    if (const std::string why = whyNoOwnNetwork(); !why.empty()) {
      GTEST_SKIP() << why;
    }
    connectByCable(alpha_, "192.0.2.1/24", beta_, "192.0.2.2/24");
    there_.setting("Address", "").setting("HostName", "alpha");
    here_.setting("Address", "").setting("HostName", "beta");
    here_.setting("BasePort", std::to_string(there_.basePort()));
  }

  void hostFileSays(const std::string& text) { writeFile(hostFile(), text); }
  [[nodiscard]] std::filesystem::path hostFile() const {
    return here_.tree() / "Config/SorvNameServerHost";
  }

  void startThere() {
    there_.launch({"-verbose"}, [this] { alpha_.enter(); });
    ASSERT_TRUE(there_.logs("succeeded. "));
  }
  void launchHere() {
    here_.launch({"-verbose"}, [this] { beta_.enter(); });
  }
  /// It serves, and the search did not hold it up beyond its limit (and what a busy machine adds).
  void expectThatItServesInTime() {
    const auto began = Clock::now();
    launchHere();
    EXPECT_TRUE(here_.logs("succeeded. ")) << here_.console();
    EXPECT_LT(Clock::now() - began, std::chrono::seconds(5 + 4));
    EXPECT_EQ(here_.log().find(kOtherHost), std::string::npos);
  }

  NetworkNamespace alpha_;
  NetworkNamespace beta_;
  Daemon there_;
  Daemon here_;
};

TEST_F(HostFile, ThatNamesAHostWithANameServerMakesThisOneGiveWay) {
  startThere();
  hostFileSays("# who serves\n\n192.0.2.1 and nobody else\n");
  launchHere();
  EXPECT_EQ(here_.waitForExit(), 0);
  EXPECT_NE(here_.standardOutput().find(kOtherHost), std::string::npos);
  EXPECT_EQ(here_.log(), std::string(kOtherHost) + "\n");
}

TEST_F(HostFile, ThatNamesADeadHostDoesNot) {
  hostFileSays("192.0.2.77\n");
  expectThatItServesInTime();
}

TEST_F(HostFile, ThatNamesAHostWithoutANameServerDoesNot) {
  hostFileSays(kAlpha);
  expectThatItServesInTime();
}

TEST_F(HostFile, ThatNamesAHostWhoseServiceIsSilentDoesNot) {
  const Listener silent(alpha_, there_.basePort(), [](int /*caller*/) {});
  hostFileSays(kAlpha);
  expectThatItServesInTime();
}

TEST_F(HostFile, ThatNamesAHostWithAForeignServiceDoesNot) {
  const Listener foreign(alpha_, there_.basePort(), [](int caller) {
    const char answer[] = "HTTP/1.1 400 Bad Request\r\n\r\n";
    [[maybe_unused]] const ssize_t sent = write(caller, answer, sizeof answer - 1);
    close(caller);
  });
  hostFileSays(kAlpha);
  expectThatItServesInTime();
}

TEST_F(HostFile, ThatNamesThisHostDoesNot) {
  for (const char* name : {"beta", "192.0.2.2", "localhost", "127.0.0.1"}) {
    hostFileSays(name);
    Daemon server;
    server.setting("HostName", "beta").setting("NameServerHostFile", quoted(hostFile()));
    server.launch({"-verbose"}, [this] { beta_.enter(); });
    EXPECT_TRUE(server.logs("succeeded. ")) << name;
  }
}

TEST_F(HostFile, IsMadeReadableByEverybodyWhateverItsPath) {
  const auto file = here_.tree() / "Config/it's the host file";
  writeFile(file, "beta\n");
  ASSERT_EQ(chmod(file.c_str(), 0600), 0);
  here_.setting("NameServerHostFile", quoted(file));
  launchHere();
  ASSERT_TRUE(here_.logs("succeeded. "));
  struct stat status {};
  ASSERT_EQ(stat(file.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777U, 0644U);
}

// ---- The address watch

TEST(AddressWatch, EndsTheProcessOfADynamicHostWhoseAddressChangesAndNoOther) {
  if (const std::string why = whyNoOwnNetwork(); !why.empty()) {
    GTEST_SKIP() << why;
  }
  const NetworkNamespace host;
  connectToNothing(host, "192.0.2.5/24");
  host.run("ip", {"route", "add", "default", "via", "192.0.2.254", "dev", "eth0"});
  host.run("ip", {"address", "change", "192.0.2.5/24", "dev", "eth0", "valid_lft", "1000",
                  "preferred_lft", "1000"});
  Daemon fixed;
  fixed.setting("Address", "").setting("DynamicAddress", "NO");
  Daemon told;
  told.setting("Address", "").setting("DynamicAddress", "YES");
  Daemon asked;  // finds out by itself that the address was given for a time, or may have been
  asked.setting("Address", "").setting("DynamicAddress", "AUTO");
  Daemon upgraded;
  upgraded.setting("Address", "").setting("DynamicAddress", "YES");
  const std::vector<Daemon*> dynamic = {&told, &asked, &upgraded};
  const std::vector<Daemon*> lasting = {&fixed};
  // Those that go on first: if they looked at the address, they would do so before the others do.
  for (const std::vector<Daemon*>& group : {lasting, dynamic}) {
    for (Daemon* const each : group) {
      each->launch({"-verbose"}, [&host] { host.enter(); });
      ASSERT_TRUE(each->logs("succeeded. ")) << each->console();
    }
  }
  kill(upgraded.process(), SIGUSR2);
  ASSERT_TRUE(upgraded.logs("Upgraded in place")) << upgraded.console();
  host.run("ip", {"address", "add", "192.0.2.6/24", "dev", "eth0"});
  host.run("ip", {"address", "del", "192.0.2.5/24", "dev", "eth0"});
  const auto oneSleep = std::chrono::seconds(30 + 10);
  for (Daemon* const each : dynamic) {
    EXPECT_EQ(each->waitForExit(oneSleep), 0);
    EXPECT_TRUE(each->complains("ipaddress changed.  Resetting sorvinfo.\n"));
    EXPECT_EQ(each->log().find("ipaddress"), std::string::npos);
  }
  for (Daemon* const each : lasting) {
    EXPECT_FALSE(each->waitForExit(std::chrono::milliseconds(0)).has_value());
    EXPECT_EQ(each->console().find("ipaddress"), std::string::npos);
  }
}

}  // namespace
}  // namespace sorvane::test
