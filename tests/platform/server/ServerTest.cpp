// The server's promises to every connection: order, completeness, independence, and what a bad one
// costs.
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <string>
#include <thread>
#include <vector>

#include "platform/server/ServedByHand.h"
#include "platform/server/ServedDelegate.h"
#include "support/WireBytes.h"

namespace sorvane::test {
namespace {

using std::chrono::milliseconds;

/// Of one serving thread: it comes to a connection when it is through with those before.
Settings oneThread() {
  Settings settings;
  settings.threads = 1;
  return settings;
}

TEST(Server, AnswersRequestsInTheirOrderHoweverManyCameAtOnce) {
  ServedDelegate server;
  RawConnection client = server.connect();
  std::string requests;
  for (int i = 0; i < 5000; ++i) {
    requests += frame(Message({{"echo", std::to_string(i)}}));
  }
  std::thread sending([&] { client.send(requests); });
  for (int i = 0; i < 5000; ++i) {
    const auto reply = client.receiveFrame();
    ASSERT_TRUE(reply) << i;
    ASSERT_EQ(reply->body, Message({{"echo", std::to_string(i)}}).body());
  }
  sending.join();
}

TEST(Server, AnswersAFrameThatComesByteByByte) {
  ServedDelegate server;
  RawConnection client = server.connect();
  const std::string request = frame(Message({{"echo", "x"}}));
  for (const char byte : request + request) {
    client.send(std::string(1, byte));
  }
  EXPECT_EQ(client.receive(request.size()), request);
  EXPECT_EQ(client.receive(request.size()), request);
}

TEST(Server, TellsNilFromAnEmptyDictionary) {
  ServedDelegate server;
  RawConnection client = server.connect();
  client.send(frame(Message({{"nil", ""}})) + frame(Message()));
  EXPECT_EQ(client.receive(8), nilFrame());
  EXPECT_EQ(client.receive(8), frameOfBody(""));
}

TEST(Server, GivesARequestBackByteForByte) {
  ServedDelegate server;
  RawConnection client = server.connect();
  const std::string body =
      entry("z", "1") + entry("echo", std::string("\0\xff\0", 3)) + entry("", "");
  client.send(frameOfBody(body));
  EXPECT_EQ(client.receive(8 + body.size()), frameOfBody(body));
}

TEST(Server, ACommandThatRaisesAnswersNilAndTheConnectionLivesOn) {
  ServedDelegate server;
  RawConnection client = server.connect();
  client.send(frame(Message({{"raise", ""}})) + frame(Message({{"echo", "1"}})));
  EXPECT_EQ(client.receive(8), nilFrame());
  EXPECT_EQ(client.receiveFrame()->body, Message({{"echo", "1"}}).body());
}

TEST(Server, StartsAndEndsEachConnectionOnceAndRunsOneOperationAtATime) {
  ServedDelegate server;
  constexpr int kThreads = 8;
  constexpr int kConnections = 40;
  std::vector<std::thread> clients;
  for (int i = 0; i < kThreads; ++i) {
    clients.emplace_back([&] {
      for (int j = 0; j < kConnections; ++j) {
        RawConnection client = server.connect();
        client.send(frame(Message()) + frame(Message({{"raise", ""}})) + frame(Message()));
        const std::string replies = frameOfBody("") + nilFrame() + frameOfBody("");
        EXPECT_EQ(client.receive(replies.size()), replies);
        if (j % 2 == 0) {
          client.send(frame(Message()));  // and leaves without waiting for the reply
        }
      }
    });
  }
  for (std::thread& each : clients) {
    each.join();
  }
  EXPECT_TRUE(server.delegate().seeEndsOf(kThreads * kConnections));
  EXPECT_EQ(server.delegate().ended, kThreads * kConnections);
  EXPECT_EQ(server.delegate().started, kThreads * kConnections);
  EXPECT_EQ(server.delegate().overlaps, 0);
}

// ---- Waiting

TEST(Server, APingIsAnsweredWhileACommandWaits) {
  ServedDelegate server;
  RawConnection waiting = server.connect();
  waiting.send(frame(Message({{"wait", ""}})));
  ASSERT_TRUE(server.delegate().arriveAtGate(1));
  RawConnection client = server.connect();
  EXPECT_TRUE(client.ask(Message({{"ping", ""}})));
  server.delegate().openGate();
  EXPECT_TRUE(waiting.receiveFrame());
}

TEST(Server, APingIsAnsweredWhileAThousandConnectionsWait) {
  ServedDelegate server;
  std::vector<RawConnection> waiting;
  for (int i = 0; i < 1000; ++i) {
    waiting.push_back(server.connect());
    waiting.back().send(frame(Message({{"wait", std::to_string(i)}})));
  }
  ASSERT_TRUE(server.delegate().arriveAtGate(1));
  RawConnection client = server.connect();
  EXPECT_TRUE(client.ask(Message({{"ping", ""}})));
  server.delegate().openGate();
  for (int i = 0; i < 1000; ++i) {
    ASSERT_EQ(waiting[static_cast<std::size_t>(i)].receiveFrame()->body,
              Message({{"wait", std::to_string(i)}}).body());
  }
}

TEST(Server, ARequestThatWaitsForALockIsDeliveredWhileBothDisksAreWaitedFor) {
  constexpr int kWaiting = 50;
  ServedDelegate server(oneThread());
  std::vector<RawConnection> waiting;
  for (int i = 0; i < kWaiting; ++i) {
    for (const char* const disk : {"log", "preferences"}) {
      waiting.push_back(server.connect());
      waiting.back().send(frame(Message({{disk, std::to_string(i)}})));
    }
  }
  ASSERT_TRUE(server.delegate().arriveAtGate(2)) << "each disk has a thread";
  RawConnection client = server.connect();
  const auto reply = client.ask(Message({{"raise", ""}}));  // waits for nothing but a thread
  ASSERT_TRUE(reply);
  EXPECT_EQ(reply->kind, 0);
  for (RawConnection& each : waiting) {
    EXPECT_TRUE(each.staysSilent(milliseconds(0)));
  }
  server.delegate().openGate();
  for (int i = 0; i < kWaiting; ++i) {
    for (const std::size_t disk : {0U, 1U}) {
      const auto late = waiting[2 * static_cast<std::size_t>(i) + disk].receiveFrame();
      ASSERT_TRUE(late);
      EXPECT_EQ(late->body,
                Message({{disk == 0 ? "log" : "preferences", std::to_string(i)}}).body());
    }
  }
  EXPECT_EQ(server.delegate().overlaps, 0);
}

TEST(Server, APeerThatLeavesWhileADiskIsWaitedForIsEndedAfterwards) {
  ServedDelegate server(oneThread());
  {
    RawConnection client = server.connect();
    client.send(frame(Message({{"log", ""}})) + frame(Message({{"count", ""}})));
    ASSERT_TRUE(server.delegate().arriveAtGate(1));
  }
  RawConnection other = server.connect();
  EXPECT_TRUE(other.ask(Message())) << "by now the serving thread has seen the first one leave";
  EXPECT_EQ(server.delegate().ended, 0);
  server.delegate().openGate();
  EXPECT_TRUE(server.delegate().seeEndsOf(1));
  EXPECT_EQ(server.delegate().overlaps, 0);
}

TEST(Server, RepliesStayInOrderWhenAnEarlierRequestWaits) {
  ServedDelegate server(oneThread());
  RawConnection other = server.connect();
  ASSERT_TRUE(other.ask(Message()));
  RawConnection client = server.connect();
  std::string requests;
  std::string replies;
  for (int i = 0; i < 20; ++i) {
    const char* const kinds[] = {"wait", "echo", "log", "preferences"};
    const std::string one = frame(Message({{kinds[i % 4], std::to_string(i)}}));
    requests += one;
    replies += one;
  }
  client.send(requests);
  ASSERT_TRUE(server.delegate().arriveAtGate(1));
  ASSERT_TRUE(other.ask(Message())) << "by now the serving thread is through with that input";
  EXPECT_TRUE(client.staysSilent(milliseconds(0))) << "nothing overtakes the waiting request";
  server.delegate().openGate();
  EXPECT_EQ(client.receive(replies.size()), replies);
}

TEST(Server, ALongPipelineLeavesTheOthersTheirTurn) {
  ServedByHand server;
  RawConnection eager = server.connect();
  RawConnection other = server.connect();
  const std::string one = frame(Message({{"echo", "x"}}));
  constexpr std::size_t kRequests = 1000;
  std::string all;
  for (std::size_t i = 0; i < kRequests; ++i) {
    all += one;
  }
  eager.send(all);
  other.send(one);
  server.turn();
  EXPECT_EQ(other.receive(one.size()), one);
  EXPECT_LT(server.delegate().delivered, 300) << "in the same turn";
  EXPECT_EQ(server.receives(eager, all.size()), all);
}

TEST(Server, ALongRequestIsReadWhereItKeepsNobodyWaiting) {
  ServedByHand server;
  RawConnection client = server.connect();
  const std::string longOne = frame(Message({{"echo", std::string(20000, 'x')}}));
  const std::string shortOne = frame(Message({{"echo", "short"}}));
  client.send(shortOne + longOne + shortOne);
  server.turn();
  EXPECT_EQ(server.delegate().deliveredWithoutWaiting, 1) << "by the serving thread";
  EXPECT_EQ(server.receives(client, 2 * shortOne.size() + longOne.size()),
            shortOne + longOne + shortOne);
}

TEST(Server, ALongRequestThatIsMalformedEndsItsConnectionLikeAShortOne) {
  const ConsoleLines console;
  ServedDelegate server(oneThread());
  RawConnection client = server.connect();
  const std::string shortOne = frame(Message({{"echo", "short"}}));
  const std::string value(20000, 'x');
  client.send(shortOne + frameOfBody(entry("a", value) + entry("a", value)) + shortOne);
  EXPECT_EQ(client.receive(shortOne.size()), shortOne) << "what came before it has its reply";
  EXPECT_TRUE(client.isClosedByPeer());
  EXPECT_EQ(server.delegate().ended, 1);
  EXPECT_EQ(server.delegate().delivered, 1);
  EXPECT_EQ(console.count("connection closed, a key is repeated"), 1);
}

TEST(Server, APeerThatLeavesWhileItsRequestWaitsIsEndedAfterwards) {
  ServedDelegate server(oneThread());
  {
    RawConnection client = server.connect();
    client.send(frame(Message({{"wait", ""}})));
    ASSERT_TRUE(server.delegate().arriveAtGate(1));
  }
  RawConnection other = server.connect();
  EXPECT_TRUE(other.ask(Message())) << "by now the serving thread has seen the first one leave";
  EXPECT_EQ(server.delegate().ended, 0);
  server.delegate().openGate();
  EXPECT_TRUE(server.delegate().seeEndsOf(1));
  EXPECT_EQ(server.delegate().ended, 1);
  EXPECT_EQ(server.delegate().overlaps, 0);
}

// ---- Peers that do not read

TEST(Server, AClientThatShutItsWritingSideIsAnsweredInFull) {
  ServedDelegate server;
  RawConnection client = server.connect();
  std::string requests;
  for (int i = 0; i < 20; ++i) {
    requests += frame(Message({{"big", "1000000"}}));
  }
  client.send(requests);
  client.shutdownWriting();
  for (int i = 0; i < 20; ++i) {
    const auto reply = client.receiveFrame();
    ASSERT_TRUE(reply) << i;
    EXPECT_EQ(reply->body.size(), 6 + 4 + 1000000U);
  }
  EXPECT_TRUE(client.isClosedByPeer());
}

TEST(Server, AReaderThatNeverReadsIsNotReadFromAndCostsNobodyElseAnything) {
  ServedDelegate server(oneThread());
  RawConnection deaf = server.connect();
  // So many requests that their replies fill every buffer in between; the sending stops with them.
  const std::string request = frame(Message({{"big", "100000"}}));
  std::string many;
  for (int i = 0; i < 2000; ++i) {
    many += request;
  }
  const ssize_t taken = send(deaf.descriptor(), many.data(), many.size(), MSG_DONTWAIT);
  ASSERT_GT(taken, 0);
  RawConnection client = server.connect();
  // Until a turn of the one serving thread, which ends with the reply here, delivers none of them.
  int asked = 0;
  int before = 0;
  int ofTheDeaf = 0;
  do {
    before = ofTheDeaf;
    ASSERT_TRUE(client.ask(Message()));
    ofTheDeaf = server.delegate().delivered - ++asked;
  } while (ofTheDeaf == 0 || ofTheDeaf != before);
  EXPECT_LT(ofTheDeaf, 500) << "replies beyond the buffers are not composed";
  for (int i = 0; i < 100; ++i) {
    EXPECT_TRUE(client.ask(Message()));
  }
}

TEST(Server, AReaderOfLongRepliesLeavesOthersTheirTurn) {
  constexpr std::size_t kReplies = 200;
  constexpr std::size_t kReplyBytes = 300000;
  ServedDelegate server(oneThread());
  RawConnection client = server.connect();
  ASSERT_TRUE(client.ask(Message()));
  RawConnection reader = server.connect();
  std::string requests = frame(Message({{"stop", ""}}));
  for (std::size_t i = 0; i < kReplies; ++i) {
    requests += frame(Message({{"big", std::to_string(kReplyBytes)}}));
  }
  reader.send(requests);
  ASSERT_TRUE(server.delegate().arriveAtGate(1));
  client.send(frame(Message({{"count", ""}})));
  std::thread reading([&] {
    std::size_t left = 8 + kReplies * (8 + kEntryHeaderBytes + 4 + kReplyBytes);
    std::string bytes(1 << 20, ' ');
    while (left > 0) {
      const ssize_t came = recv(reader.descriptor(), bytes.data(), bytes.size(), 0);
      ASSERT_GT(came, 0);
      left -= static_cast<std::size_t>(came);
    }
  });
  server.delegate().openGate();
  const auto reply = client.receiveFrame();
  reading.join();
  ASSERT_TRUE(reply);
  EXPECT_LE(std::stoi(std::string(*reply->message().text("result"))), 5);
}

// ---- Bad frames

struct BadFrame {
  const char* name;
  std::string bytes;
  const char* reason;
};

class MalformedFrame : public testing::TestWithParam<BadFrame> {};

TEST_P(MalformedFrame, ClosesTheConnectionWithOneLineAfterTheRequestsBeforeAreAnswered) {
  ServedDelegate server;
  const ConsoleLines console;
  RawConnection client = server.connect();
  client.send(frame(Message({{"echo", "before"}})) + GetParam().bytes);
  EXPECT_EQ(client.receiveFrame()->body, Message({{"echo", "before"}}).body());
  EXPECT_TRUE(client.isClosedByPeer());
  EXPECT_EQ(server.delegate().ended, 1)
      << "the delegate forgets it before the peer can see the end";
  EXPECT_TRUE(console.hold(std::string("127.0.0.1:")));
  EXPECT_EQ(console.count(GetParam().reason), 1);
  RawConnection other = server.connect();
  EXPECT_TRUE(other.ask(Message())) << "nobody else is disturbed";
}

INSTANTIATE_TEST_SUITE_P(
    Each, MalformedFrame,
    testing::Values(BadFrame{"WrongMark", "GET / HTTP/1.0\r\n\r\n", "wrong mark"},
                    BadFrame{"WrongVersion", frameWith("SV", 2, 1, 0, ""), "wrong version"},
                    BadFrame{"WrongKind", frameWith("SV", 1, 7, 0, ""), "wrong kind"},
                    BadFrame{"KindZeroFromAClient", nilFrame(), "a request without a dictionary"},
                    BadFrame{"EntryPastTheBody", frameOfBody(entry("k", "value").substr(0, 8)),
                             "an entry runs past the body"},
                    BadFrame{"RepeatedKey", frameOfBody(entry("k", "1") + entry("k", "2")),
                             "a key is repeated"},
                    BadFrame{"KeyNotUtf8", frameOfBody(entry("\xc3", "1")),
                             "a key is not UTF-8 text"},
                    BadFrame{"KeyWithNul", frameOfBody(entry(std::string("a\0", 2), "1")),
                             "a key is not UTF-8 text"},
                    BadFrame{"BodyAboveTheLimit", frameWith("SV", 1, 1, 1048577, ""),
                             "a body above the limit"}),
    [](const auto& each) { return each.param.name; });

TEST(Server, TakesABodyAtTheLimit) {
  ServedDelegate server;
  RawConnection client = server.connect();
  const std::string body = entry("echo", std::string(1048576 - 6 - 4, 'x'));
  ASSERT_EQ(body.size(), 1048576U);
  std::thread sending([&] { client.send(frameOfBody(body)); });
  EXPECT_EQ(client.receiveFrame()->body, body);
  sending.join();
}

TEST(Server, WhatARefusedPeerGoesOnToSendIsDroppedAndDoesNotKeepItOpen) {
  ServedDelegate server;
  RawConnection client = server.connect();
  client.send("nonsense");
  EXPECT_TRUE(client.isClosedByPeer());
  while (client.send(std::string(100000, 'x'))) {  // until the server has closed for good
  }
  SUCCEED();
}

TEST(Server, AFrameThatNeverEndsIsGivenUpAndABareConnectionIsNot) {
  Settings settings;
  // The time itself is what is tried: long enough that a busy machine lets some bytes be sent.
  settings.partialMessageTimeout = milliseconds(150);
  ServedDelegate server(settings);
  const ConsoleLines console;
  RawConnection idle = server.connect();
  RawConnection half = server.connect();
  const std::string request = frame(Message({{"echo", std::string(1000, 'x')}}));
  const auto began = std::chrono::steady_clock::now();
  half.send(request + request.substr(0, 14));
  EXPECT_EQ(half.receive(request.size()), request);
  std::size_t sent = 14;
  while (half.staysSilent(milliseconds(20))) {  // a byte now and then does not buy time
    ASSERT_LT(sent, request.size() - 1);
    half.send(request.substr(sent++, 1));
  }
  EXPECT_TRUE(half.isClosedByPeer());
  EXPECT_GE(std::chrono::steady_clock::now() - began, milliseconds(140));
  EXPECT_TRUE(console.hold("a frame was not complete in time"));
  EXPECT_TRUE(idle.ask(Message()));
}

}  // namespace
}  // namespace sorvane::test
