// The memory of requests that are unfinished or wait: all connections together have a limit.
#include <gtest/gtest.h>

#include <ostream>
#include <string>

#include "platform/server/ServedByHand.h"
#include "support/WireBytes.h"

namespace sorvane::test {
namespace {

constexpr std::size_t kLimit = 100000;
constexpr std::size_t kPart = 60000;  // two of them pass the limit
constexpr const char* kReason = "connection closed, unfinished requests fill the memory";

const std::string kRequest = frame(Message({{"echo", std::string(70000, 'x')}}));
const std::string kShort = frame(Message({{"echo", "short"}}));

TEST(UnfinishedInput, HasALimitAndTheConnectionThatWouldPassItIsClosedLikeOneWithABadFrame) {
  ServedByHand server({.unfinishedBytes = kLimit});
  const ConsoleLines console;
  RawConnection first = server.connect();
  constexpr std::size_t kFirst = 40000;  // twice that has room for the whole request
  first.send(kRequest.substr(0, kFirst));
  server.turn();
  first.send(kRequest.substr(kFirst, kPart - kFirst));
  server.turn();
  EXPECT_GE(server.context().unfinishedInput.now(), kPart);

  RawConnection second = server.connect();
  second.send(kShort + kRequest.substr(0, kPart));
  server.turn();
  EXPECT_EQ(second.receive(kShort.size()), kShort) << "complete requests before it are answered";
  EXPECT_TRUE(second.isClosedByPeer());
  EXPECT_EQ(server.delegate().ended, 1);
  EXPECT_EQ(console.count(kReason), 1);

  first.send(kRequest.substr(kPart));
  EXPECT_EQ(server.receives(first, kRequest.size()), kRequest) << "the others go on";
  EXPECT_EQ(server.context().unfinishedInput.now(), 0U);
}

TEST(UnfinishedInput, OfAFewLongRequestsLeavesRoomForShortOnes) {
  ServedByHand server({.unfinishedBytes = kLimit});
  RawConnection first = server.connect();
  RawConnection second = server.connect();
  RawConnection third = server.connect();
  first.send(kRequest.substr(0, kPart));
  server.turn();
  second.send(kRequest.substr(0, kLimit - kLimit / 8 - kPart));
  server.turn();
  EXPECT_EQ(server.delegate().ended, 0);
  third.send(kRequest.substr(0, 5000));
  server.turn();
  EXPECT_EQ(server.delegate().ended, 1) << "no further long one";

  const std::string waiting = frame(Message({{"wait", std::string(1000, 'x')}}));
  std::vector<RawConnection> others;
  server.delegate().openGate();
  for (int i = 0; i < 5; ++i) {
    others.push_back(server.connect());
    others.back().send(waiting);
    EXPECT_EQ(server.receives(others.back(), waiting.size()), waiting);
  }
}

TEST(UnfinishedInput, CountsWithTheMemoryThatItHolds) {
  ServedByHand server;
  RawConnection client = server.connect();
  const std::string long_ = frame(Message({{"echo", std::string(300000, 'x')}}));
  std::size_t sent = 0;
  while (sent < 250000) {
    client.send(long_.substr(sent, 50000));
    sent += 50000;
    server.turn();
    EXPECT_GE(server.context().unfinishedInput.now(), sent);
  }
  // The rest, and the first bytes of a further frame: those alone are kept.
  client.send(long_.substr(sent) + kShort.substr(0, 20));
  EXPECT_EQ(server.receives(client, long_.size()), long_);
  EXPECT_GE(server.context().unfinishedInput.now(), 20U);
  EXPECT_LT(server.context().unfinishedInput.now(), 10000U);
  client.close();
  server.turn();
  EXPECT_EQ(server.context().unfinishedInput.now(), 0U);
}

/// A request after which the complete requests behind it have to wait.
struct Obstacle {
  const char* name;
  Message (*request)();
};

void PrintTo(const Obstacle& each, std::ostream* out) { *out << each.name; }

class InputThatWaits : public testing::TestWithParam<Obstacle> {};

TEST_P(InputThatWaits, CountsToTheSameLimit) {
  ServedByHand server({.unfinishedBytes = kLimit});
  std::string requests = frame(GetParam().request());
  const std::size_t obstacle = requests.size();
  while (requests.size() < kPart) {
    requests += kShort;
  }
  RawConnection first = server.connect();
  RawConnection second = server.connect();
  first.send(requests);
  server.turn();
  EXPECT_GE(server.context().unfinishedInput.now(), kPart - obstacle);
  second.send(requests);
  server.turn();
  EXPECT_LT(server.context().unfinishedInput.now(), kLimit);

  server.delegate().openGate();
  std::string replies = server.receives(first, 8);
  replies += server.receives(first, bodyLength(replies));
  EXPECT_EQ(server.receives(first, kShort.size()), kShort);
  const std::string ofTheSecond = server.receives(second, 2000000);  // until it is closed
  EXPECT_EQ(ofTheSecond.find(kShort), std::string::npos);
}

INSTANTIATE_TEST_SUITE_P(Each, InputThatWaits,
                         testing::Values(Obstacle{"ForAWaitingThread",
                                                  [] {
                                                    return Message({{"wait", ""}});
                                                  }},
                                         Obstacle{"ForTheClientToTakeItsReplies",
                                                  [] {
                                                    return Message({{"big", "1000000"}});
                                                  }}),
                         [](const auto& each) { return each.param.name; });

}  // namespace
}  // namespace sorvane::test
