#include <atomic>
#include <thread>

#include "nameserver/NameServer.h"

namespace sorvane::test {
namespace {

using Concurrency = ServerTest;

TEST_F(Concurrency, ServersComeAndGoWhileWatchersPollAndEveryCountAddsUp) {
  constexpr int kThreads = 4;
  constexpr int kRounds = 150;
  std::atomic<int> numbersHandedOut = 0;
  const auto actsLikeAServer = [&](int thread) {
    for (int round = 0; round < kRounds; ++round) {
      const std::string name = "db" + std::to_string(thread);
      Peer peer(server_);
      peer.registers(name);
      ++numbersHandedOut;
      EXPECT_NE(peer.finds(name), "(none)");
      (void)peer.answer({{"action", "setDatabaseState"},
                         {"databaseName", "db" + std::to_string((thread + 1) % kThreads)},
                         {"state", "busy"}});
      (void)peer.answer(
          {{"action", "setAlertState"}, {"databaseName", name}, {"state", "disk full"}});
      if (round % 3 == 0) {
        (void)peer.action("watchPortChanges");
        (void)peer.action("get_userpreferences_key");
      }
    }
  };
  const auto actsLikeATool = [&] {
    Peer tool(server_);
    for (int round = 0; round < kRounds; ++round) {
      (void)tool.action("didPortsChange");
      (void)tool.action("databaseStates");
      (void)tool.action("changeTimestamp");
      (void)tool.action("hostList");
      (void)tool.answer({{"action", "needsRefresh"}, {"force", "YES"}});
      EXPECT_TRUE(tool.sends({{"ping", ""}}).has_value());
    }
  };
  std::vector<std::thread> threads;
  for (int thread = 0; thread < kThreads; ++thread) {
    threads.emplace_back(actsLikeAServer, thread);
  }
  threads.emplace_back(actsLikeATool);
  threads.emplace_back(actsLikeATool);
  for (std::thread& thread : threads) {
    thread.join();
  }

  EXPECT_EQ(server_.registry().portCount(), 0U);
  EXPECT_EQ(server_.registry().watchingPortsList().count(), 0U);
  EXPECT_EQ(server_.registry().changeStamp().forceRefreshNumber, 2 * kRounds);
  Peer last(server_);
  EXPECT_EQ(last.asksForPort("last"), std::to_string(5001 + numbersHandedOut));
  server_.setWatchToDirty();
  EXPECT_EQ(last.action("databaseStates"), "");
}

}  // namespace
}  // namespace sorvane::test
