// The name server on a network: found by other hosts unless its settings say otherwise, whatever
// happens to the Bonjour of its host.
#include <gtest/gtest.h>
#include <signal.h>

#include "integration/AvahiHost.h"
#include "integration/Daemon.h"

namespace sorvane::test {
namespace {

constexpr const char* kPeer = SORVANE_BINARY_DIR "/tests/programs/bonjour_peer";

class BonjourDaemon : public ::testing::Test {
 protected:
  void SetUp() override {
    if (const std::string why = whyNoOwnNetwork(); !why.empty()) {
      GTEST_SKIP() << why;
    }
  }

  /// Two hosts joined by a cable; the name server is to run on alpha, and beta looks for it.
  struct Network {
    Network() {
      connectByCable(alpha.network(), "198.51.100.1/24", beta.network(), "198.51.100.2/24");
      server.setting("BonjourDisabled", "");
    }
    void startServer() { server.launch({"-noexit"}, alpha.inside()); }
    void startLooking() {
      beta.startDaemons();
      finder = beta.start(kPeer, {"browse", "_sorvane._tcp"});
    }
    [[nodiscard]] int timesFound() const { return timesIn(finder->output(), "found alpha\n"); }

    AvahiHost alpha{"alpha"};
    AvahiHost beta{"beta"};
    Daemon server;
    std::unique_ptr<Program> finder;
  };

  /// True when the name server answers on its own host.
  static bool serves(const Network& network) {
    return waitUntil([&] {
      Program tester(
          systemProgram("bash"),
          {"-c", "exec 3<>/dev/tcp/127.0.0.1/" + std::to_string(network.server.basePort())},
          {"", network.alpha.inside()});
      return tester.wait() == 0;
    });
  }

  /// A name server that is not to be published serves, and a service that is published after it was
  /// asked to is found first and alone.
  static void isNotFound(const std::string& setting) {
    Network network;
    network.server.setting(setting, "YES");
    network.alpha.startDaemons();
    network.startServer();
    ASSERT_TRUE(serves(network)) << network.server.console();
    const auto sentinel =
        network.alpha.start(kPeer, {"publish", "sentinel", "_sorvane._tcp", "20222"});
    ASSERT_TRUE(sentinel->prints("published sentinel\n"));
    network.startLooking();
    ASSERT_TRUE(network.finder->prints("sentinel 198.51.100.1 20222\n"));
    EXPECT_EQ(network.timesFound(), 0);
  }
};

TEST_F(BonjourDaemon, IsFoundUnderItsHostsNameWithAddressAndPort) {
  Network network;
  network.alpha.startDaemons();
  network.startLooking();
  network.startServer();
  EXPECT_TRUE(network.finder->prints("alpha 198.51.100.1 20221\n")) << network.server.console();
}

TEST_F(BonjourDaemon, ThatEndsDisappears) {
  Network network;
  network.alpha.startDaemons();
  network.startLooking();
  network.startServer();
  ASSERT_TRUE(network.finder->prints("found alpha\n")) << network.server.console();
  network.server.kill();
  EXPECT_TRUE(network.finder->prints("removed alpha\n"));
}

// What the program before has published goes with its connection to D-Bus.
TEST_F(BonjourDaemon, IsFoundAfterAnUpgradeInPlace) {
  Network network;
  network.alpha.startDaemons();
  network.startServer();
  ASSERT_TRUE(serves(network)) << network.server.console();
  ASSERT_TRUE(network.server.hasTakenLock());
  kill(network.server.process(), SIGUSR2);
  ASSERT_TRUE(network.server.logs("Upgraded in place")) << network.server.console();
  network.startLooking();
  EXPECT_TRUE(network.finder->prints("alpha 198.51.100.1 20221\n")) << network.server.console();
}

TEST_F(BonjourDaemon, IsBackAfterAvahiWasRestarted) {
  Network network;
  network.alpha.startDaemons();
  network.startLooking();
  network.startServer();
  ASSERT_TRUE(network.finder->prints("found alpha\n")) << network.server.console();
  network.alpha.stopAvahi();
  ASSERT_TRUE(network.finder->prints("removed alpha\n"));
  EXPECT_TRUE(serves(network));
  network.alpha.startAvahi();
  EXPECT_TRUE(network.finder->prints("found alpha\n", 2)) << network.server.console();
}

TEST_F(BonjourDaemon, StartedBeforeAvahiIsFoundOnceThatComes) {
  Network network;
  network.startLooking();
  network.alpha.startBus();
  network.startServer();
  ASSERT_TRUE(network.server.complains("Bonjour: Avahi cannot be reached"));
  network.alpha.startAvahi();
  EXPECT_TRUE(network.finder->prints("alpha 198.51.100.1 20221\n")) << network.server.console();
}

TEST_F(BonjourDaemon, WithoutDBusServesWithOneConsoleLineAndIsFoundOnceBothCome) {
  Network network;
  network.startLooking();
  network.startServer();
  ASSERT_TRUE(network.server.complains("Bonjour: Avahi cannot be reached"));
  EXPECT_TRUE(serves(network));
  network.alpha.startDaemons();
  EXPECT_TRUE(network.finder->prints("alpha 198.51.100.1 20221\n"));
  EXPECT_EQ(timesIn(network.server.console(), "Bonjour:"), 1) << network.server.console();
}

TEST_F(BonjourDaemon, ServesWhileAvahiHangs) {
  Network network;
  network.alpha.startDaemons();
  network.alpha.hangAvahi();
  network.startServer();
  EXPECT_TRUE(serves(network)) << network.server.console();
  network.alpha.letAvahiGoOn();
  network.startLooking();
  EXPECT_TRUE(network.finder->prints("alpha 198.51.100.1 20221\n")) << network.server.console();
}

TEST_F(BonjourDaemon, ThatServesThisMachineOnlyIsNotFound) { isNotFound("LocalAccessOnly"); }

TEST_F(BonjourDaemon, WithBonjourDisabledIsNotFound) { isNotFound("BonjourDisabled"); }

}  // namespace
}  // namespace sorvane::test
