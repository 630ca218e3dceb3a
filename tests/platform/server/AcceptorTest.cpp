// How connections are accepted: how many in a turn, and what an error costs the others.
#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <string.h>
#include <unistd.h>

#include <deque>
#include <vector>

#include "platform/server/Acceptor.h"
#include "platform/server/ServedByHand.h"
#include "support/WireBytes.h"

namespace sorvane::test {
namespace {

/// What accepting meets: a connection, or an error in its place.
using Coming = std::deque<int>;
constexpr int kConnection = 0;

/// A server by hand, with an acceptor whose listening socket is always ready and whose connections
/// are those that `coming` names.
class Accepting : public ::testing::Test {
 protected:
  Accepting() {
    int ends[2];
    EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0);
    listener_ = Descriptor(ends[0]);
    const Descriptor writing(ends[1]);  // closed again: the end of a pipe can be read for ever
    acceptor_ = std::make_unique<Acceptor>(listener_.number(), 10000, server_.context(),
                                           server_.loops(), accept);
    EXPECT_TRUE(server_.loop().poller().add(listener_.number(), Poller::Interest::readable,
                                            acceptor_.get()));
    current = this;
  }
  ~Accepting() override { current = nullptr; }

  void stopWatching() { server_.loop().poller().remove(listener_.number()); }
  /// Returns false if the poller refuses.
  bool watchAgain() {
    return server_.loop().poller().add(listener_.number(), Poller::Interest::none, acceptor_.get());
  }
  [[nodiscard]] bool pollerRefuses() {
    return !server_.loop().poller().modify(listener_.number(), Poller::Interest::none,
                                           acceptor_.get());
  }
  void turn() { server_.loop().takeTurn(acceptor_.get()); }
  [[nodiscard]] int accepted() const { return static_cast<int>(accepted_.size()); }

  /// So many connections that have sent a request.
  [[nodiscard]] std::vector<RawConnection> busyClients(int number) {
    std::vector<RawConnection> clients;
    for (int i = 0; i < number; ++i) {
      clients.push_back(server_.connect());
      clients.back().send(frame(Message()));
    }
    return clients;
  }

  ServedByHand server_;
  const ConsoleLines console_;
  Coming coming_;
  int calls_ = 0;
  std::unique_ptr<Acceptor> acceptor_;

 private:
  static int accept(int /*listener*/) { return current->next(); }
  int next() {
    ++calls_;
    const int error = coming_.empty() ? EAGAIN : coming_.front();
    if (!coming_.empty()) {
      coming_.pop_front();
    }
    if (error != kConnection) {
      errno = error;
      return -1;
    }
    SocketPair pair;
    accepted_.push_back(std::move(pair.client));
    return pair.server.release();
  }

  static Accepting* current;
  Descriptor listener_;
  std::vector<Descriptor> accepted_;  // the clients' ends
};

Accepting* Accepting::current = nullptr;

TEST_F(Accepting, TakesSixteenConnectionsAtMostInATurn) {
  const std::vector<RawConnection> busy = busyClients(200);
  coming_.assign(100, kConnection);
  turn();
  EXPECT_EQ(server_.delegate().delivered, 200) << "one turn serves them all";
  EXPECT_EQ(accepted(), 16);
}

TEST_F(Accepting, LetsAHundredWaitForSevenTurnsOfTwoHundredBusyConnections) {
  std::vector<RawConnection> busy = busyClients(200);
  coming_.assign(100, kConnection);
  int turns = 0;
  while (accepted() < 100) {
    turn();
    ++turns;
    ASSERT_LE(turns, 7);
    for (RawConnection& each : busy) {
      each.send(frame(Message()));
    }
  }
}

TEST_F(Accepting, AsksForNoSecondConnectionInVainWhenLittleElseIsToDo) {
  const std::vector<RawConnection> busy = busyClients(6);
  coming_.assign(1, kConnection);
  turn();
  EXPECT_EQ(accepted(), 1);
  EXPECT_EQ(calls_, 1);
}

TEST_F(Accepting, TakesTwiceAsManyInEachTurnOfAFlood) {
  coming_.assign(40, kConnection);
  for (const int after : {1, 3, 7, 15, 31, 40}) {
    turn();
    EXPECT_EQ(accepted(), after);
  }
}

TEST_F(Accepting, BeginsAnewWithOneWhenAFloodIsOver) {
  coming_.assign(5, kConnection);
  for (const int after : {1, 3, 5}) {
    turn();
    EXPECT_EQ(accepted(), after);
  }
  turn();
  coming_.assign(5, kConnection);
  turn();
  EXPECT_EQ(accepted(), 6);
}

TEST_F(Accepting, PassesOverAnErrorOfOneConnectionAndTakesTheNextOne) {
  const Coming errors = {ECONNABORTED, EHOSTDOWN,   EHOSTUNREACH, ENETDOWN, ENETUNREACH,
                         ENONET,       ENOPROTOOPT, EOPNOTSUPP,   EPERM,    EPROTO};
  for (const int error : errors) {
    coming_ = {error, kConnection};
    const int before = accepted();
    turn();
    EXPECT_FALSE(acceptor_->isPaused()) << strerror(error);
    turn();
    EXPECT_EQ(accepted(), before + 1) << strerror(error);
  }
  EXPECT_TRUE(console_.all().empty());
}

TEST_F(Accepting, PassesOverErrorsInABoundedNumberATurn) {
  std::vector<RawConnection> busy = busyClients(200);
  coming_.assign(1000, EPROTO);
  turn();
  EXPECT_EQ(calls_, 16);
  EXPECT_FALSE(acceptor_->isPaused());
  for (RawConnection& each : busy) {
    EXPECT_EQ(each.receive(8), frameOfBody("")) << "the others are served in the same turn";
  }
}

TEST_F(Accepting, PausesAtAnErrorOfTheWholeSystem) {
  for (const int error : {EMFILE, ENFILE, ENOBUFS, ENOMEM}) {
    coming_ = {error, kConnection};
    const int before = accepted();
    turn();
    EXPECT_TRUE(acceptor_->isPaused()) << strerror(error);
    EXPECT_EQ(accepted(), before) << strerror(error);
    while (acceptor_->isPaused()) {  // a turn ends with the pause
      turn();
    }
    turn();
    EXPECT_EQ(accepted(), before + 1) << strerror(error);
  }
  EXPECT_EQ(console_.count("connections cannot be accepted for now: "), 4);
}

TEST_F(Accepting, GoesOnPausingWhileThePollerRefusesToWatch) {
  coming_ = {EMFILE, kConnection};
  turn();
  ASSERT_TRUE(acceptor_->isPaused());
  stopWatching();  // the poller does not know the listening socket any more
  if (!pollerRefuses()) {
    GTEST_SKIP() << "poll(2) refuses nothing";
  }
  acceptor_->goOn(server_.loop().poller());
  EXPECT_TRUE(acceptor_->isPaused()) << "nobody would ever be accepted again";
  ASSERT_TRUE(watchAgain());
  while (acceptor_->isPaused()) {
    turn();
  }
  turn();
  EXPECT_EQ(accepted(), 1);
}

TEST_F(Accepting, ThatCannotStopBeingWatchedTriesItAgainInThePause) {
  coming_ = {EMFILE, kConnection};
  turn();
  ASSERT_TRUE(acceptor_->isPaused());
  acceptor_->acceptSome(1, 1, server_.loop().poller());
  EXPECT_EQ(accepted(), 0) << "the pause is for freeing descriptors";
}

}  // namespace
}  // namespace sorvane::test
