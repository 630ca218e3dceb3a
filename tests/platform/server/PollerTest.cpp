#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <set>
#include <vector>

#include "platform/Descriptor.h"
#include "platform/server/Poller.h"

namespace sorvane::test {
namespace {

/// Many descriptors that can be read: of a pipe whose writing end is closed.
std::vector<Descriptor> readableDescriptors(int number) {
  int ends[2];
  EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0);
  const Descriptor writing(ends[1]);
  std::vector<Descriptor> descriptors;
  descriptors.emplace_back(ends[0]);
  while (static_cast<int>(descriptors.size()) < number) {
    descriptors.emplace_back(fcntl(ends[0], F_DUPFD_CLOEXEC, 0));
    EXPECT_TRUE(descriptors.back().isOpen());
  }
  return descriptors;
}

TEST(Poller, ReportsEachOfMoreReadyDescriptorsThanGoAtOnceInTurn) {
  std::vector<Descriptor> ready = readableDescriptors(3 * Poller::kEventsAtOnce - 10);
  Poller poller;
  for (Descriptor& each : ready) {
    ASSERT_TRUE(poller.add(each.number(), Poller::Interest::readable, &each));
  }
  for (int round = 0; round < 3; ++round) {
    std::set<void*> reported;
    for (int wait = 0; wait < 3; ++wait) {
      for (const Poller::Event& event : poller.wait(Poller::kForever)) {
        EXPECT_TRUE(event.owner == nullptr || event.readable);
        reported.insert(event.owner);
      }
    }
    reported.erase(nullptr);  // a wake-up
    EXPECT_EQ(reported.size(), ready.size()) << "in round " << round;
  }
}

TEST(Poller, WakesUpHoweverManyDescriptorsAreReady) {
  std::vector<Descriptor> ready = readableDescriptors(2 * Poller::kEventsAtOnce);
  Poller poller;
  for (Descriptor& each : ready) {
    ASSERT_TRUE(poller.add(each.number(), Poller::Interest::readable, &each));
  }
  poller.wake();
  bool isAwake = false;
  for (int wait = 0; wait < 3; ++wait) {
    for (const Poller::Event& event : poller.wait(Poller::kForever)) {
      isAwake = isAwake || event.owner == nullptr;
    }
  }
  EXPECT_TRUE(isAwake);
}

TEST(Poller, ForgetsADescriptorThatIsNoLongerWatched) {
  std::vector<Descriptor> ready = readableDescriptors(3);
  Poller poller;
  for (Descriptor& each : ready) {
    ASSERT_TRUE(poller.add(each.number(), Poller::Interest::readable, &each));
  }
  poller.remove(ready[1].number());
  std::set<void*> reported;
  for (int wait = 0; wait < 3; ++wait) {
    for (const Poller::Event& event : poller.wait(Poller::kForever)) {
      reported.insert(event.owner);
    }
  }
  reported.erase(nullptr);
  EXPECT_EQ(reported, (std::set<void*>{&ready[0], &ready[2]}));
}

}  // namespace
}  // namespace sorvane::test
