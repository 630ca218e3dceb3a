// What a change costs the one who makes it while others wait for it: the same calls as without
// them.
#include <gtest/gtest.h>

#include <deque>
#include <string>

#include "faults/FailingDaemon.h"
#include "integration/Client.h"

namespace sorvane::test {
namespace {

class ChangeThatOthersWaitFor : public testing::TestWithParam<int> {};

// The name server is killed as soon as it has sent the reply, so that what it does afterwards is
// not counted.
TEST_P(ChangeThatOthersWaitFor, HasItsReplyAfterAsManyCallsAsAnyOther) {
  FailingDaemon daemon;
  daemon.server().setting("Threads", "2");
  daemon.start();
  Client maker(daemon.server());
  EXPECT_EQ(maker.resultOf("needsRefresh"), "success");
  std::deque<Client> watchers;
  for (int i = 0; i < GetParam(); ++i) {
    Client& watcher = watchers.emplace_back(daemon.server());
    EXPECT_EQ(watcher.resultOf("awaitPortChanges"), "YES");
    ASSERT_TRUE(watcher.connection().send(frame(request("awaitPortChanges", {}))));
    EXPECT_TRUE(watcher.connection().staysSilent(std::chrono::milliseconds(5)));
  }
  daemon.countCallsAndFail({Call::send, 1, kKilledAfter});
  EXPECT_EQ(maker.resultOf("needsRefresh"), "success");
  ASSERT_TRUE(daemon.server().waitForExit());
  EXPECT_EQ(daemon.calls(Call::receive), 1U);
  EXPECT_EQ(daemon.calls(Call::send), 1U);
  for (const Call each : {Call::wake, Call::takeWakeUp, Call::watch, Call::watchOtherwise,
                          Call::unwatch, Call::sendGathered}) {
    EXPECT_EQ(daemon.calls(each), 0U) << static_cast<int>(each);
  }
  EXPECT_LE(daemon.calls(Call::wait), 1U);
}

INSTANTIATE_TEST_SUITE_P(Watchers, ChangeThatOthersWaitFor, testing::Values(0, 100));

}  // namespace
}  // namespace sorvane::test
