// A round of a running server comes back if everything serves, and not otherwise.
#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <memory>
#include <vector>

#include "platform/RunningServer.h"
#include "platform/server/ServedDelegate.h"
#include "platform/server/ServingLoop.h"
#include "support/WireBytes.h"

namespace sorvane::test {
namespace {

/// A round that tells where it is. It outlives the test, since the server does.
class WatchedRound {
 public:
  void begin(RunningServer& server) { server.goRound(round_); }

  /// True when it comes back, which it does on a serving thread.
  [[nodiscard]] bool comesBack() {
    std::future<bool> back = back_.get_future();
    return back.wait_for(kPatience) == std::future_status::ready && back.get();
  }
  [[nodiscard]] bool isOnItsWay() const { return begun_; }
  [[nodiscard]] bool isBack() const { return isBack_; }

 private:
  std::atomic<bool> begun_{false};
  std::atomic<bool> isBack_{false};
  std::promise<bool> back_;
  const RunningServer::Round round_{[this] { begun_ = !ServingLoop::isServingThread(); },
                                    [this] {
                                      isBack_ = true;
                                      back_.set_value(ServingLoop::isServingThread());
                                    }};
};

/// An object that lives as long as the process: the server may still look at it after the test.
template <typename Object>
Object& kept() {
  static auto& all = *new std::vector<std::unique_ptr<Object>>;
  return *all.emplace_back(std::make_unique<Object>());
}

Settings threeThreads() {
  Settings settings;
  settings.threads = 3;
  return settings;
}

TEST(RunningServer, LetsARoundBeginOnAWaitingThreadAndComeBackOnAServingThread) {
  ServedDelegate server(threeThreads());
  for (int i = 0; i < 3; ++i) {
    auto& round = kept<WatchedRound>();
    round.begin(server.running());
    EXPECT_TRUE(round.comesBack());
    EXPECT_TRUE(round.isOnItsWay());
  }
}

// Connections go to the loop with the fewest, so the three of them are on three loops.
TEST(RunningServer, LetsNoRoundComeBackWhileAnyServingLoopHangs) {
  for (int hanging = 0; hanging < 3; ++hanging) {
    ServedDelegate server(threeThreads());
    std::vector<RawConnection> clients;
    for (int i = 0; i < 3; ++i) {
      clients.push_back(server.connect());
      ASSERT_TRUE(clients.back().ask(Message()));
    }
    clients[static_cast<std::size_t>(hanging)].send(frame(Message({{"stop", ""}})));
    ASSERT_TRUE(server.delegate().arriveAtGate(1));
    auto& round = kept<WatchedRound>();
    round.begin(server.running());
    ASSERT_TRUE(waitUntil([&] { return round.isOnItsWay(); }));
    // A second request makes every other loop take a turn after the round has begun.
    for (int i = 0; i < 3; ++i) {
      EXPECT_TRUE(i == hanging || clients[static_cast<std::size_t>(i)].ask(Message()));
    }
    EXPECT_FALSE(round.isBack());
    server.delegate().openGate();
    EXPECT_TRUE(round.comesBack());
  }
}

TEST(RunningServer, LetsNoRoundBeginWhileAllWaitingThreadsHang) {
  ServedDelegate server;
  constexpr int kWaitingThreads = 4;
  std::vector<RawConnection> clients;
  for (int i = 0; i < kWaitingThreads; ++i) {
    clients.push_back(server.connect());
    clients.back().send(frame(Message({{"wait", ""}})));
  }
  ASSERT_TRUE(server.delegate().arriveAtGate(kWaitingThreads));
  auto& round = kept<WatchedRound>();
  round.begin(server.running());
  EXPECT_TRUE(server.connect().ask(Message())) << "serving goes on";
  EXPECT_FALSE(round.isOnItsWay());
  server.delegate().openGate();
  EXPECT_TRUE(round.comesBack());
}

TEST(RunningServer, LetsARoundPassTheRequestsThatWait) {
  ServedDelegate server;
  constexpr int kRequests = 50;
  std::vector<RawConnection> clients;
  for (int i = 0; i < kRequests; ++i) {
    clients.push_back(server.connect());
    clients.back().send(frame(Message({{"wait", ""}})));
  }
  ASSERT_TRUE(server.delegate().arriveAtGate(4));
  std::atomic<int> deliveredBefore{-1};
  auto& back = kept<std::promise<void>>();
  const RunningServer::Round round{[&] { deliveredBefore = server.delegate().delivered.load(); },
                                   [&] { back.set_value(); }};
  server.running().goRound(round);
  server.delegate().openGate();
  ASSERT_EQ(back.get_future().wait_for(kPatience), std::future_status::ready);
  EXPECT_LT(deliveredBefore, kRequests / 2);
  for (RawConnection& client : clients) {
    EXPECT_TRUE(client.receiveFrame());
  }
}

TEST(RunningServer, CountsTheOpenConnections) {
  ServedDelegate server;
  RawConnection first = server.connect();
  ASSERT_TRUE(first.ask(Message()));
  {
    RawConnection second = server.connect();
    ASSERT_TRUE(second.ask(Message()));
    EXPECT_EQ(server.running().connections(), 2);
  }
  EXPECT_TRUE(waitUntil([&] { return server.running().connections() == 1; }));
}

}  // namespace
}  // namespace sorvane::test
