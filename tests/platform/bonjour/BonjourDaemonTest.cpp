#include <gtest/gtest.h>
#include <stdlib.h>

#include "platform/BonjourDaemon.h"
#include "support/ForkedPart.h"
#include "support/WaitUntil.h"

namespace sorvane {
namespace {

TEST(BonjourDaemon, WithoutDBusIsNotReached) {
  test::inOwnProcess([] {
    setenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/nowhere/bus", 1);
    const BonjourDaemon daemon =
        askBonjourDaemon(std::chrono::steady_clock::now() + test::kPatience);
    if (daemon.state != BonjourDaemon::State::notBuiltIn) {
      EXPECT_EQ(daemon.state, BonjourDaemon::State::noBus);
    }
    EXPECT_EQ(daemon.hostName, "");
  });
}

}  // namespace
}  // namespace sorvane
