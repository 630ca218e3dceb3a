// The word that stops every name server of a host. It runs only where it can reach nothing else: in
// a PID namespace of the test's own.
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include "integration/Daemon.h"
#include "support/OwnNamespaces.h"

namespace sorvane::test {
namespace {

class KillWord : public testing::TestWithParam<std::vector<std::string>> {
 protected:
  void SetUp() override {
    if (geteuid() != 0) {
      GTEST_SKIP() << "needs root, for a PID namespace that the word cannot leave";
    }
  }
};

TEST_P(KillWord, EndsEveryNameServerOfTheHostAndItsOwnProcessWithStatusZero) {
  inOwnPids([] {
    Daemon foreground;
    Daemon verbose;
    Daemon detached;
    foreground.start();
    verbose.start({"-verbose"});
    detached.launch({});
    ASSERT_EQ(detached.waitForExit(), 0);
    ASSERT_TRUE(detached.answers());

    Daemon caller;
    caller.setting("BasePort", "nonsense");  // the word needs no settings
    caller.launch(GetParam());
    EXPECT_EQ(caller.waitForExit(), 0);
    EXPECT_EQ(foreground.waitForExit(), 128 + SIGTERM);
    EXPECT_EQ(verbose.waitForExit(), 128 + SIGTERM);
    EXPECT_TRUE(waitUntil([&] { return detached.processes().empty(); }));
    EXPECT_EQ(caller.standardOutput() + caller.console() + caller.log(), "");
  });
}

TEST_P(KillWord, WithoutANameServerEndsWithStatusZero) {
  inOwnPids([] {
    Daemon caller;
    caller.launch(GetParam());
    EXPECT_EQ(caller.waitForExit(), 0);
    EXPECT_EQ(caller.standardOutput() + caller.log(), "");
  });
}

INSTANTIATE_TEST_SUITE_P(Words, KillWord,
                         testing::Values(std::vector<std::string>{"kill", "extra"},
                                         std::vector<std::string>{"-kill"}));

}  // namespace
}  // namespace sorvane::test
