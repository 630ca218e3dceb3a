// What `sorvctl doctor` finds about Bonjour.
#include <gtest/gtest.h>
#include <stdlib.h>

#include <memory>

#include "integration/AvahiHost.h"
#include "integration/PatientHost.h"

namespace sorvane::test {
namespace {

constexpr const char* kPeer = SORVANE_BINARY_DIR "/tests/programs/bonjour_peer";

/// The network is the test's own, so the port that Bonjour tells is free there.
class SorvctlDoctorBonjour : public testing::Test {
 protected:
  void SetUp() override {
    if (const std::string why = whyNoOwnNetwork(); !why.empty()) {
      GTEST_SKIP() << why;
    }
    alpha = std::make_unique<AvahiHost>("alpha");
    connectToNothing(alpha->network(), "192.0.2.7/24");
    host = std::make_unique<PatientHost>(alpha->network(), alpha->inside());
    host->server.setting("BonjourDisabled", "").setting("BasePort", "20221");
  }

  /// Hides the programs of a folder of the system from this host.
  void hide(const char* folder) const { host->run("mount", {"-t", "tmpfs", "tmpfs", folder}); }

  std::unique_ptr<AvahiHost> alpha;
  std::unique_ptr<PatientHost> host;
};

TEST_F(SorvctlDoctorBonjour, IsWellWhereTheNameServerIsSeenUnderItsName) {
  alpha->startDaemons();
  host->startServer();
  const Examination told = host->examine();
  EXPECT_EQ(told.status, 0);
  EXPECT_EQ(told.found(), Ids());
  EXPECT_TRUE(
      told.seen("Bonjour").ends_with("runs as alpha, and publishes the name server as alpha"))
      << told.seen("Bonjour");
}

TEST_F(SorvctlDoctorBonjour, ThatIsSwitchedOffIsNotLookedFor) {
  host->server.setting("BonjourDisabled", "YES");
  host->startServer();
  EXPECT_EQ(host->examine().found(), Ids());
}

TEST_F(SorvctlDoctorBonjour, WithoutDBusIsDoubtful) {
  host->startServer();
  Examination told = host->examine();
  EXPECT_EQ(told.status, 0);
  EXPECT_EQ(told.found(), Ids{"dbus-stopped"});
  hide("/usr/bin");
  told = host->examine();
  EXPECT_EQ(told.found(), Ids{"dbus-missing"});
}

TEST_F(SorvctlDoctorBonjour, WithoutAvahiIsDoubtful) {
  alpha->startBus();
  host->startServer();
  Examination told = host->examine();
  EXPECT_EQ(told.status, 0);
  EXPECT_EQ(told.found(), Ids{"avahi-stopped"});
  hide("/usr/sbin");
  told = host->examine();
  EXPECT_EQ(told.found(), Ids{"avahi-missing"});
}

TEST_F(SorvctlDoctorBonjour, ThatHangsIsDoubtful) {
  alpha->startDaemons();
  host->startServer();
  alpha->hangAvahi();
  EXPECT_EQ(host->examine({"--timeout", "5"}).found(), Ids{"avahi-silent"});
  alpha->letAvahiGoOn();
}

TEST_F(SorvctlDoctorBonjour, ThatDoesNotKnowTheNameServerIsWrong) {
  alpha->startDaemons();
  // The name server finds no D-Bus where it is told to look.
  host->startServer({"-noexit"}, [] { setenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/none", 1); });
  const Examination told = host->examine({"--timeout", "5"});
  EXPECT_EQ(told.status, 1);
  EXPECT_EQ(told.found(), Ids{"bonjour-unseen"});
}

TEST_F(SorvctlDoctorBonjour, ThatKnowsTheNameServerUnderAnotherNameIsDoubtful) {
  alpha->startDaemons();
  const auto first = alpha->start(kPeer, {"publish", "alpha", "_sorvane._tcp", "20222"});
  ASSERT_TRUE(first->prints("published alpha\n"));
  host->startServer();
  const Examination told = host->examine();
  EXPECT_EQ(told.status, 0);
  EXPECT_EQ(told.found(), Ids{"bonjour-renamed"});
  EXPECT_EQ(told.what("bonjour-renamed"),
            "Bonjour knows this host as alpha (2): another one is alpha");
}

TEST_F(SorvctlDoctorBonjour, ThatTellsAnotherPortThanTheBasePortIsDoubtful) {
  alpha->startDaemons();
  host->server.setting("BasePort", "20231");
  host->startServer();
  EXPECT_EQ(host->examine().found(), Ids{"bonjour-port"});
}

}  // namespace
}  // namespace sorvane::test
