// The calls that a run loop has yet to make.
#include <gtest/gtest.h>

#include <string>

#include "platform/RunLoop.h"

namespace sorvane::test {
namespace {

using namespace std::chrono_literals;

class DelayedCall : public ::testing::Test {
 protected:
  RunLoop::Call note(const std::string& name) {
    return [this, name] { made += name; };
  }

  const RunLoop::Clock::time_point start{};
  DelayedCalls calls;
  std::string made;
};

TEST_F(DelayedCall, IsNotMadeBeforeItIsDue) {
  calls.add(start + 10ms, note("a"));
  calls.makeDue(start + 9ms);
  EXPECT_EQ(made, "");
  calls.makeDue(start + 10ms);
  EXPECT_EQ(made, "a");
}

TEST_F(DelayedCall, IsMadeOnce) {
  calls.add(start, note("a"));
  calls.makeDue(start);
  calls.makeDue(start + 1s);
  EXPECT_EQ(made, "a");
}

TEST_F(DelayedCall, ComesInTheOrderOfItsTimeThenOfAsking) {
  calls.add(start + 2ms, note("c"));
  calls.add(start + 1ms, note("a"));
  calls.add(start + 1ms, note("b"));
  calls.makeDue(start + 5ms);
  EXPECT_EQ(made, "abc");
}

TEST_F(DelayedCall, AskedForDuringAPassWaitsForTheNext) {
  calls.add(start, [this] { calls.add(start, note("b")); });
  calls.makeDue(start);
  EXPECT_EQ(made, "");
  calls.makeDue(start);
  EXPECT_EQ(made, "b");
}

TEST_F(DelayedCall, TellsHowLongTheLoopMayWait) {
  EXPECT_EQ(calls.waitingTime(start), std::nullopt);
  calls.add(start + 1500us, note("a"));
  EXPECT_EQ(calls.waitingTime(start), 2ms);
  EXPECT_EQ(calls.waitingTime(start + 1500us), 0ms);
  EXPECT_EQ(calls.waitingTime(start + 1h), 0ms);
}

TEST(CancellableCalls, AreMadeWhileTheirOwnerLives) {
  int made = 0;
  CancellableCalls calls;
  calls.cancellable([&made] { ++made; })();
  EXPECT_EQ(made, 1);
}

TEST(CancellableCalls, AreNotMadeOnceTheirOwnerIsGone) {
  int made = 0;
  RunLoop::Call call;
  {
    const CancellableCalls calls;
    call = calls.cancellable([&made] { ++made; });
  }
  call();
  EXPECT_EQ(made, 0);
}

TEST(CancellableCalls, CancelsTheCallsSoFarButNotTheLaterOnes) {
  int made = 0;
  CancellableCalls calls;
  const RunLoop::Call before = calls.cancellable([&made] { made += 1; });
  calls.cancelAll();
  const RunLoop::Call after = calls.cancellable([&made] { made += 10; });
  before();
  after();
  EXPECT_EQ(made, 10);
}

}  // namespace
}  // namespace sorvane::test
