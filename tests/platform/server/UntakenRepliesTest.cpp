// The memory of replies that clients have not taken: all connections together have a limit, and a
// client has a time limit.
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <limits>
#include <string>

#include "platform/server/ServedByHand.h"
#include "platform/server/UntakenReplies.h"
#include "support/WireBytes.h"

namespace sorvane::test {
namespace {

using std::chrono::milliseconds;

constexpr std::size_t kReplyBytes = 600000;  // more than a socket pair takes
constexpr std::size_t kLimit = 1000000;      // less than two of them
constexpr const char* kReason = "connection closed, replies that clients have not taken fill";

const std::string kLongAnswer = frame(Message({{"big", std::to_string(kReplyBytes)}}));

std::string replyTo(ServedByHand& server, RawConnection& client) {
  const std::string header = server.receives(client, 8);
  return server.receives(client, bodyLength(header));
}

/// Receives until nothing is there. Returns how much it was.
std::size_t takesWhatIsThere(const RawConnection& client) {
  std::string part(1 << 16, ' ');
  std::size_t taken = 0;
  ssize_t came = 0;
  while ((came = recv(client.descriptor(), part.data(), part.size(), MSG_DONTWAIT)) > 0) {
    taken += static_cast<std::size_t>(came);
  }
  return taken;
}

TEST(UntakenReplies, HaveALimitAndTheConnectionWhoseReplyWouldPassItIsClosed) {
  ServedByHand server({.unsentBytes = kLimit});
  const ConsoleLines console;
  RawConnection first = server.connect();
  first.send(kLongAnswer);
  server.turn();
  EXPECT_GE(server.context().untakenReplies.bytes(), kReplyBytes);
  RawConnection second = server.connect();
  second.send(kLongAnswer);
  server.turn();
  EXPECT_EQ(console.count(kReason), 1);
  EXPECT_EQ(server.delegate().ended, 1);

  EXPECT_EQ(replyTo(server, first), entry("data", std::string(kReplyBytes, 'x')));
  EXPECT_EQ(server.context().untakenReplies.bytes(), 0U);
  RawConnection third = server.connect();
  third.send(kLongAnswer);
  EXPECT_EQ(replyTo(server, third).size(), 6 + 4 + kReplyBytes) << "there is room again";
}

TEST(UntakenReplies, OfAFewLongOnesLeaveRoomForShortOnes) {
  UntakenTotal total(kLimit);
  UntakenReplies longOne(total);
  UntakenReplies further(total);
  UntakenReplies shortOne(total);
  ReplyBuffer most;
  most.own().append(std::string(kLimit - kLimit / 8, 'x'));
  ReplyBuffer much;
  much.own().append(std::string(5000, 'x'));
  ReplyBuffer little;
  little.own().append("little");
  EXPECT_TRUE(longOne.keep(std::move(most), 0));
  EXPECT_FALSE(further.keep(std::move(much), 0));
  EXPECT_TRUE(further.empty());
  EXPECT_TRUE(shortOne.keep(std::move(little), 0));
}

TEST(UntakenReplies, OfWaitingThreadsHaveTheSameLimit) {
  ServedByHand server({.unsentBytes = kLimit});
  server.delegate().openGate();
  const std::string request = frame(Message({{"wait", std::string(kReplyBytes, 'x')}}));
  const auto sends = [&](RawConnection& client) {
    for (std::size_t sent = 0; sent < request.size(); sent += 60000) {
      client.send(std::string_view(request).substr(sent, 60000));
      server.turn();
    }
  };
  RawConnection first = server.connect();
  sends(first);
  const std::string header = server.receives(first, 8);
  EXPECT_GE(server.context().untakenReplies.bytes(), kReplyBytes);

  RawConnection second = server.connect();
  sends(second);
  while (server.delegate().ended == 0) {
    server.turn();
  }
  EXPECT_EQ(header + server.receives(first, request.size() - 8), request);
}

TEST(UntakenReplies, GiveTheirMemoryBackWhenTheConnectionEnds) {
  ServedByHand server;
  RawConnection client = server.connect();
  client.send(kLongAnswer);
  server.turn();
  EXPECT_GE(server.context().untakenReplies.bytes(), kReplyBytes);
  client.close();
  server.turn();
  EXPECT_EQ(server.context().untakenReplies.bytes(), 0U);
}

TEST(UntakenReplies, CountATextThatManyShareOnceAsLongAsOneHoldsIt) {
  ServedByHand server({.unsentBytes = kLimit});
  const std::string shared = *server.delegate().sharedText + '\0';
  const std::string request = frame(Message({{"shared", ""}, {"echoless", ""}}));
  std::vector<RawConnection> clients;
  for (int i = 0; i < 20; ++i) {
    clients.push_back(server.connect());
    clients.back().send(request + request);
    server.turn();
  }
  EXPECT_EQ(server.delegate().ended, 0);
  EXPECT_GE(server.context().untakenReplies.bytes(), shared.size());
  EXPECT_LT(server.context().untakenReplies.bytes(), shared.size() + 20 * 1000);
  for (RawConnection& each : clients) {
    EXPECT_GE(server.context().untakenReplies.bytes(), shared.size());
    EXPECT_EQ(replyTo(server, each), entry("text", shared));
    EXPECT_EQ(replyTo(server, each), entry("text", shared));
  }
  EXPECT_EQ(server.context().untakenReplies.bytes(), 0U);
}

TEST(UntakenReplies, OfAFewBytesDoNotHoldTheMemoryOfALongOne) {
  UntakenTotal total(kLimit);
  UntakenReplies replies(total);
  ReplyBuffer buffer;
  buffer.own().append(std::string(kReplyBytes, 'x') + "the end");
  ASSERT_TRUE(replies.keep(std::move(buffer), kReplyBytes));
  EXPECT_LT(total.bytes(), 1000U);
  SocketPair pair;
  EXPECT_EQ(replies.send(pair.server.number()), 7);
  char received[8] = {};
  EXPECT_EQ(recv(pair.client.number(), received, 7, 0), 7);
  EXPECT_STREQ(received, "the end");
  EXPECT_EQ(total.bytes(), 0U);
}

// ---- Time

TEST(UntakenReplies, CloseTheConnectionWhenTheClientTakesNothingForTooLong) {
  ServedByHand server({.untakenReply = milliseconds(100)});
  const ConsoleLines console;
  RawConnection client = server.connect();
  client.send(kLongAnswer);
  const auto began = std::chrono::steady_clock::now();
  while (server.delegate().ended == 0) {
    server.turn();
  }
  EXPECT_GE(std::chrono::steady_clock::now() - began, milliseconds(100));
  EXPECT_EQ(console.count("connection closed, nothing of a reply was taken for too long"), 1);
  EXPECT_EQ(server.context().untakenReplies.bytes(), 0U);
}

TEST(UntakenReplies, HaveAllTheirTimeAgainWheneverTheClientTakesSomething) {
  ServedByHand server;
  RawConnection client = server.connect();
  client.send(kLongAnswer);
  server.turn();
  ASSERT_FALSE(server.loop().untakenReplies().empty());
  const auto due = server.loop().untakenReplies().next().due;
  const std::size_t taken = takesWhatIsThere(client);
  ASSERT_LT(taken, kReplyBytes / 2) << "the rest takes more than a turn";
  server.turn();
  ASSERT_FALSE(server.loop().untakenReplies().empty());
  EXPECT_GT(server.loop().untakenReplies().next().due, due);

  const std::size_t all = 8 + 6 + 4 + kReplyBytes;
  EXPECT_EQ(server.receives(client, all - taken).size(), all - taken);
  EXPECT_TRUE(server.loop().untakenReplies().empty());
}

TEST(UntakenReplies, AreNotGivenUpForAClientThatTakesTooLittleForThePollerToTell) {
  ServedByHand server({.untakenReply = milliseconds(100)});
  RawConnection client = server.connect();
  client.send(kLongAnswer);
  server.turn();
  // The system tells of room when most of its buffer is free, and has some before.
  std::string part(110000, ' ');
  for (int i = 0; i < 3; ++i) {
    ASSERT_GT(recv(client.descriptor(), part.data(), part.size(), MSG_DONTWAIT), 0);
    server.turn();
    ASSERT_EQ(server.delegate().ended, 0);
  }
}

}  // namespace
}  // namespace sorvane::test
