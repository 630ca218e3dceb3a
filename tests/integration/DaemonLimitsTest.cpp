// What a client can cost the name server: memory, time, descriptors, connections.
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/socket.h>

#include <algorithm>
#include <chrono>
#include <ostream>

#include "integration/Daemon.h"
#include "integration/DaemonProcess.h"
#include "integration/Preferences.h"
#include "support/TestedBuild.h"

namespace sorvane::test {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

const std::string kPing = frame(Message({{"ping", ""}}));

bool answersAPing(RawConnection& client) {
  return client.send(kPing) && client.receive(8) == frameOfBody("");
}

// ---- A peer that does not read

/// Sends until nothing more is taken for a while; returns how many bytes were.
std::size_t sendsUntilStuck(RawConnection& client, const std::string& bytes) {
  std::size_t sent = 0;
  pollfd ready{client.descriptor(), POLLOUT, 0};
  while (sent < bytes.size() && poll(&ready, 1, 200) > 0) {
    const ssize_t taken = send(client.descriptor(), bytes.data() + sent, bytes.size() - sent,
                               MSG_DONTWAIT | MSG_NOSIGNAL);
    if (taken < 0) {
      break;
    }
    sent += static_cast<std::size_t>(taken);
  }
  return sent;
}

/// Waits until no more replies arrive: the system's buffers are full. Nothing tells of that, so it
/// is what has not changed for a while.
void waitForFullBuffers(const RawConnection& client) {
  int before = -1;
  ASSERT_TRUE(waitUntil([&] {
    int waiting = 0;
    ioctl(client.descriptor(), FIONREAD, &waiting);
    pollfd never{-1, 0, 0};
    poll(&never, 1, 50);
    return waiting > 0 && waiting == std::exchange(before, waiting);
  }));
}

constexpr std::size_t kReplyBytes = 500000;

/// A short request with a long reply, once another one has seen to that.
struct LongReply {
  const char* name;
  Message (*preparation)();
  Message (*request)();
};

void PrintTo(const LongReply& each, std::ostream* out) { *out << each.name; }

class PeerThatNeverReads : public testing::TestWithParam<LongReply> {};

TEST_P(PeerThatNeverReads, CostsABoundedAmountOfMemoryAndNobodyElseAnything) {
  constexpr int kPeers = 20;
  constexpr int kRequests = 5000;  // of each peer: fifty gigabytes of replies in all
  Daemon server;
  server.start();
  RawConnection owner = server.rawConnection();
  ASSERT_TRUE(owner.ask(GetParam().preparation()));
  ASSERT_GE(owner.ask(GetParam().request())->body.size(), kReplyBytes);
  const DaemonProcess process(server.process());
  const long before = process.residentKibibytes();

  const std::string asking = frame(GetParam().request());
  std::string many;
  for (int i = 0; i < kRequests; ++i) {
    many += asking;
  }
  std::vector<RawConnection> deaf;
  for (int i = 0; i < kPeers; ++i) {
    deaf.push_back(server.rawConnection());
    ASSERT_GE(sendsUntilStuck(deaf.back(), many), asking.size() * 100);
  }
  for (const RawConnection& each : deaf) {
    waitForFullBuffers(each);
  }
  // An allocator that checks its users keeps what they have freed.
  if (areTestedWithoutSanitizers()) {
    EXPECT_LT(process.residentKibibytes() - before, 3 * kPeers * kReplyBytes / 1024);
  }
  for (int i = 0; i < 100; ++i) {
    ASSERT_TRUE(answersAPing(owner));
  }
  for (int i = 0; i < 60; ++i) {  // and whoever begins to read at last has missed nothing
    const auto reply = deaf.front().receiveFrame();
    ASSERT_TRUE(reply);
    ASSERT_GE(reply->body.size(), kReplyBytes);
  }
}

INSTANTIATE_TEST_SUITE_P(
    Each, PeerThatNeverReads,
    testing::Values(LongReply{"OfAServingThread",
                              [] {
                                return Message({{"reconnectPort", "db1"},
                                                {"portNumber", "1"},
                                                {"portHost", "h"},
                                                {"portType", std::string(kReplyBytes, 'x')}});
                              },
                              [] {
                                return Message({{"findPort", "db1"}, {"portHost", "h"}});
                              }},
                    LongReply{
                        "OfAWaitingThread",
                        [] {
                          return Message({{"action", "set_userpreferences"},
                                          {"key", "anna"},
                                          {"databases", std::string(kReplyBytes, 'x')}});
                        },
                        [] {
                          return Message({{"action", "get_userpreferences"}, {"key", "anna"}});
                        }}),
    [](const auto& each) { return each.param.name; });

// ---- A frame that never ends

TEST(FrameThatNeverEnds, CostsItsSenderTheConnectionAfterTheTimeoutFromItsFirstByte) {
  Daemon server;
  server.setting("PartialMessageTimeout", "1");
  server.start();
  RawConnection quiet = server.rawConnection();
  RawConnection slow = server.rawConnection();
  const std::string registering = frame(Message(
      {{"reconnectPort", "db1"}, {"portNumber", "1"}, {"portHost", "h"}, {"portType", "t"}}));
  const auto began = Clock::now();
  ASSERT_TRUE(slow.send(registering + registering.substr(0, 5)));
  ASSERT_TRUE(slow.receiveFrame());
  EXPECT_TRUE(server.finds("db1"));
  std::size_t next = 5;
  while (slow.staysSilent(milliseconds(50))) {  // a byte now and then buys no time
    ASSERT_LT(next, registering.size());
    static_cast<void>(slow.send(registering.substr(next++, 1)));
  }
  EXPECT_TRUE(slow.isClosedByPeer());
  const auto took = Clock::now() - began;
  EXPECT_GE(took, milliseconds(990));
  EXPECT_LT(took, milliseconds(2500));
  EXPECT_TRUE(server.complains("connection closed, a frame was not complete in time\n"));
  EXPECT_FALSE(server.finds("db1"));
  EXPECT_TRUE(answersAPing(quiet)) << "a connection without a frame may be quiet";
}

TEST(FrameThatNeverEnds, OnAThousandConnectionsDelaysNobody) {
  Daemon server;
  server.setting("PartialMessageTimeout", "1");
  server.start();
  std::vector<RawConnection> slow;
  for (int i = 0; i < 1000; ++i) {
    slow.push_back(server.rawConnection());
    ASSERT_TRUE(slow.back().send("SV"));
  }
  RawConnection client = server.rawConnection();
  for (RawConnection& each : slow) {
    ASSERT_TRUE(each.isClosedByPeer());
    ASSERT_TRUE(answersAPing(client));
  }
}

// ---- Descriptors

void limitDescriptors(rlim_t number) {
  const rlimit limit{number, number};
  setrlimit(RLIMIT_NOFILE, &limit);
}

TEST(DescriptorsUsedUp, PauseTheAcceptingWithoutSpinningAndItGoesOnWhenSomeAreFree) {
  constexpr int kDescriptors = 64;
  Daemon server;
  server.setting("MaxConnections", "1000");
  server.launch({"-noexit"}, [] { limitDescriptors(kDescriptors); });
  ASSERT_TRUE(server.answers());
  PreferenceClient preferences(server);
  preferences.sets("anna", {{"databases", "before"}});
  const std::string complaint = "connections cannot be accepted for now: Too many open files\n";
  const auto complains = [&] { return server.console().find(complaint) != std::string::npos; };
  std::vector<RawConnection> served;
  std::vector<RawConnection> waiting;
  while (waiting.size() < 20) {
    RawConnection client = server.rawConnection();
    ASSERT_TRUE(client.isConnected()) << "the system's queue takes it";
    ASSERT_TRUE(client.send(kPing));
    ASSERT_TRUE(waitUntil([&] { return !client.staysSilent(milliseconds(1)) || complains(); }));
    (client.staysSilent(milliseconds(0)) ? waiting : served).push_back(std::move(client));
  }
  EXPECT_GT(served.size(), kDescriptors - 32U) << "no more than a few are kept for others";

  const DaemonProcess process(server.process());
  // Time has to pass, for what it costs. Trying without a pause would take most of it.
  const double used = process.seconds();
  EXPECT_TRUE(waiting.front().staysSilent(milliseconds(400)));
  EXPECT_LT(process.seconds() - used, 0.1);
  EXPECT_TRUE(waitUntil([&] {
    preferences.sets("anna", {{"databases", "meanwhile"}});
    return readFile(preferenceFile(server)).find("meanwhile") != std::string::npos;
  })) << "files cannot be opened any more";
  for (RawConnection& each : served) {
    EXPECT_EQ(each.receive(8), frameOfBody(""));
    EXPECT_TRUE(answersAPing(each)) << "those that are connected are served";
  }

  served.clear();
  for (RawConnection& each : waiting) {
    EXPECT_EQ(each.receive(8), frameOfBody("")) << "those that waited are served in their turn";
  }
}

// ---- Connections

/// As many connections as are served; the one that asked whether the server answers may still be
/// there.
std::vector<RawConnection> servedConnections(const Daemon& server, std::size_t number) {
  std::vector<RawConnection> clients;
  EXPECT_TRUE(waitUntil([&] {
    RawConnection client = server.rawConnection();
    if (answersAPing(client)) {
      clients.push_back(std::move(client));
    }
    return clients.size() == number;
  }));
  return clients;
}

TEST(ConnectionBeyondTheLimit, IsClosedAtOnceAndTheNextOneIsTakenWhenOneHasLeft) {
  Daemon server;
  server.setting("MaxConnections", "5");
  server.start();
  std::vector<RawConnection> clients = servedConnections(server, 5);
  EXPECT_TRUE(server.rawConnection().isClosedByPeer());
  EXPECT_TRUE(server.complains(": closed, 5 connections are open already\n"));
  for (RawConnection& each : clients) {
    EXPECT_TRUE(answersAPing(each));
  }
  clients.pop_back();
  EXPECT_EQ(servedConnections(server, 1).size(), 1U);
}

TEST(ConnectionsBeyondTheLimit, WriteAFewLinesHoweverManyTheyAre) {
  Daemon server;
  server.setting("MaxConnections", "1");
  server.start();
  std::vector<RawConnection> clients = servedConnections(server, 1);
  for (int i = 0; i < 500; ++i) {
    EXPECT_TRUE(server.rawConnection().isClosedByPeer());
  }
  EXPECT_LE(timesIn(server.console(), "\n"), 20);
  EXPECT_TRUE(answersAPing(clients.front()));
}

TEST(ConnectionLimit, UnlessSetIsTheRaisedDescriptorLimitLess32AndTwoForEachServingThread) {
  Daemon server;
  server.setting("Threads", "3");
  server.launch({"-noexit"}, [] {
    const rlimit limit{40, 72};
    setrlimit(RLIMIT_NOFILE, &limit);
  });
  ASSERT_TRUE(server.answers());
  const std::vector<RawConnection> clients = servedConnections(server, 72 - 32 - 3 * 2);
  EXPECT_TRUE(server.rawConnection().isClosedByPeer());
  EXPECT_TRUE(server.complains(": closed, 34 connections are open already\n"));
}

}  // namespace
}  // namespace sorvane::test
