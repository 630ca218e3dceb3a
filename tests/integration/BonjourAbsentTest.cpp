// The name server of a build without Bonjour.
#include <gtest/gtest.h>

#include "integration/Daemon.h"

namespace sorvane::test {
namespace {

TEST(BonjourAbsent, CostsOneConsoleLineAndNothingElse) {
  Daemon server;
  server.setting("BonjourDisabled", "");
  server.start();
  ASSERT_TRUE(server.complains("Bonjour: this program was built without Bonjour"));
  EXPECT_TRUE(server.registers("db1"));
  EXPECT_TRUE(server.finds("db1"));
  EXPECT_EQ(timesIn(server.console(), "Bonjour:"), 1) << server.console();
}

}  // namespace
}  // namespace sorvane::test
