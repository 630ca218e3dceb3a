#include <gtest/gtest.h>

#include "platform/Guarded.h"
#include "support/WatchedThread.h"

namespace sorvane {
namespace {

TEST(Guarded, ThatThisThreadHasLockedIsUsedWithoutWaiting) {
  Guarded<int> number(1);
  number.lock();
  number.with([](int& value) { ++value; });
  EXPECT_EQ(number.with([](const int& value) { return value; }), 2);
  number.unlock();
  EXPECT_EQ(number.with([](const int& value) { return value; }), 2);
}

TEST(Guarded, ThatAnotherThreadHasLockedIsWaitedFor) {
  Guarded<int> number(1);
  number.lock();
  test::WatchedThread other([&] { number.with([](int& value) { value = 3; }); });
  EXPECT_TRUE(other.comesToAWait());
  EXPECT_EQ(number.with([](const int& value) { return value; }), 1);
  number.unlock();
  other.join();
  EXPECT_EQ(number.with([](const int& value) { return value; }), 3);
}

TEST(Guarded, ThatIsUnlockedIsWaitedForAgain) {
  Guarded<int> number(1);
  number.lock();
  number.unlock();
  test::WatchedThread* waiting = nullptr;
  number.with([&](const int&) {
    waiting = new test::WatchedThread([&] { number.with([](int& value) { value = 3; }); });
    EXPECT_TRUE(waiting->comesToAWait());
  });
  delete waiting;
  EXPECT_EQ(number.with([](const int& value) { return value; }), 3);
}

}  // namespace
}  // namespace sorvane
