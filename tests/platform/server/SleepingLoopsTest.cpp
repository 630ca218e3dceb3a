#include <gtest/gtest.h>

#include "platform/server/SleepingLoops.h"

namespace sorvane::test {
namespace {

/// A loop that is woken by its poller.
struct Loop {
  Poller poller;
  SleepingLoops::Sleeper sleeper{poller};

  /// Whether it was woken since the last call.
  [[nodiscard]] bool isAwake() { return !poller.wait(0).empty(); }
};

class Sleeping : public testing::Test {
 protected:
  Loop one_;
  Loop other_;
  SleepingLoops loops_;
};

TEST_F(Sleeping, LoopsAreAllWokenByAnAnnouncementOnceEach) {
  EXPECT_TRUE(loops_.maySleep(one_.sleeper, 0));
  EXPECT_TRUE(loops_.maySleep(other_.sleeper, 0));
  EXPECT_TRUE(loops_.maySleep(one_.sleeper, 0)) << "it is on the list already";
  loops_.announce(1, nullptr);
  EXPECT_TRUE(one_.isAwake());
  EXPECT_TRUE(other_.isAwake());
  loops_.announce(2, nullptr);
  EXPECT_FALSE(one_.isAwake()) << "it has not gone to sleep again";
  EXPECT_TRUE(loops_.maySleep(one_.sleeper, 2));
  loops_.announce(3, nullptr);
  EXPECT_TRUE(one_.isAwake());
  EXPECT_FALSE(other_.isAwake());
}

TEST_F(Sleeping, LoopsMayNotSleepWhenThereWasNewsBefore) {
  loops_.announce(1, nullptr);
  EXPECT_FALSE(loops_.maySleep(one_.sleeper, 0));
  EXPECT_TRUE(loops_.maySleep(one_.sleeper, 1));
}

TEST_F(Sleeping, LoopsAreNotWokenByThemselvesNorByOldNews) {
  EXPECT_TRUE(loops_.maySleep(one_.sleeper, 0));
  EXPECT_TRUE(loops_.maySleep(other_.sleeper, 0));
  loops_.announce(5, &one_.sleeper);
  EXPECT_FALSE(one_.isAwake());
  EXPECT_TRUE(other_.isAwake());
  EXPECT_TRUE(loops_.maySleep(other_.sleeper, 5));
  loops_.announce(5, nullptr);
  loops_.announce(4, nullptr);
  EXPECT_FALSE(other_.isAwake());
  EXPECT_TRUE(loops_.maySleep(one_.sleeper, 5)) << "it can go on the list again";
  loops_.announce(6, nullptr);
  EXPECT_TRUE(one_.isAwake());
}

}  // namespace
}  // namespace sorvane::test
