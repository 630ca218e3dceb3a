// What goes on while a command holds the lock under which all commands run.
#include <gtest/gtest.h>

#include <chrono>

#include "integration/HeldServerLock.h"

namespace sorvane::test {
namespace {

using Clock = std::chrono::steady_clock;

const Message kCommand{{"action", "changeTimestamp"}};
const std::string kPing = frame(Message({{"ping", ""}}));

bool answersAPing(RawConnection& client) {
  return client.send(kPing) && client.receive(8) == frameOfBody("");
}

class ServerLock : public testing::Test {
 protected:
  /// Commands on connections of their own, of which none is answered before the lock is free.
  void waitsOn(int connections) {
    for (int i = 0; i < connections; ++i) {
      waiting_.push_back(server_.rawConnection());
      ASSERT_TRUE(waiting_.back().send(frame(kCommand)));
    }
  }

  void expectThatPingsAreAnsweredAtOnce() const {
    RawConnection client = server_.rawConnection();
    const auto began = Clock::now();
    for (int i = 0; i < 100; ++i) {
      RawConnection newcomer = server_.rawConnection();
      ASSERT_TRUE(answersAPing(client));
      ASSERT_TRUE(answersAPing(newcomer));
    }
    EXPECT_LT(Clock::now() - began, std::chrono::seconds(5)) << "at once, but for a busy machine";
  }

  void expectThatTheLockWasHeldAllTheTime() {
    for (RawConnection& each : waiting_) {
      ASSERT_TRUE(each.staysSilent(std::chrono::milliseconds(0)));
    }
    lock_.release();
    for (RawConnection& each : waiting_) {
      ASSERT_TRUE(each.receiveFrame()) << "and nobody was forgotten";
    }
  }

  Daemon server_;
  // Of one serving thread: if a command held it up, it would hold everybody up.
  HeldServerLock lock_{server_.setting("Threads", "1")};
  std::vector<RawConnection> waiting_;
};

TEST_F(ServerLock, HeldByOneCommandDelaysNoPing) {
  lock_.hold();
  waitsOn(1);
  expectThatPingsAreAnsweredAtOnce();
  expectThatTheLockWasHeldAllTheTime();
}

TEST_F(ServerLock, HeldByOneCommandAndWaitedForByAThousandDelaysNoPing) {
  lock_.hold();
  waitsOn(1000);
  expectThatPingsAreAnsweredAtOnce();
  expectThatTheLockWasHeldAllTheTime();
}

TEST_F(ServerLock, HeldByACommandDelaysNoPingBeforeACommandOnTheSameConnection) {
  lock_.hold();
  waitsOn(1);
  RawConnection client = server_.rawConnection();
  ASSERT_TRUE(client.send(kPing + kPing + frame(kCommand) + kPing));
  EXPECT_EQ(client.receive(16), frameOfBody("") + frameOfBody(""));
  expectThatPingsAreAnsweredAtOnce();
  EXPECT_TRUE(client.staysSilent(std::chrono::milliseconds(0))) << "replies keep their order";
  expectThatTheLockWasHeldAllTheTime();
  EXPECT_TRUE(client.receiveFrame()->message().contains("result"));
  EXPECT_EQ(client.receive(8), frameOfBody(""));
}

TEST(ServerLockAtTheConnectionLimit, DelaysNoEndOfAConnection) {
  constexpr int kConnections = 40;
  Daemon server;
  server.setting("MaxConnections", std::to_string(kConnections));
  HeldServerLock lock(server);
  std::vector<RawConnection> databases;
  for (int i = 0; i < kConnections - 2; ++i) {  // one holds the lock, one waits for it
    databases.push_back(server.rawConnection());
    ASSERT_TRUE(databases.back().ask(Message({{"reconnectPort", "db" + std::to_string(i)},
                                              {"portNumber", "1"},
                                              {"portHost", "h"},
                                              {"portType", "t"}})));
  }
  lock.hold();
  // An end makes room for a new connection: one by one they are all replaced while the lock is
  // held, some that leave, some that are sent away.
  for (std::size_t i = 0; i < databases.size(); ++i) {
    if (i % 2 == 0) {
      ASSERT_TRUE(databases[i].send("nonsense"));
      EXPECT_TRUE(databases[i].isClosedByPeer());
    }
    databases[i].close();
    ASSERT_TRUE(waitUntil([&] {
      RawConnection newcomer = server.rawConnection();
      return answersAPing(newcomer);
    })) << "the end of connection "
        << i << " is held up";
  }
  lock.release();
  for (std::size_t i = 0; i < databases.size(); ++i) {
    EXPECT_FALSE(server.finds("db" + std::to_string(i)));
  }
}

}  // namespace
}  // namespace sorvane::test
