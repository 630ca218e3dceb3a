// A running server is paused between two requests, and goes on: nothing is lost, and nobody can put
// the pause off for ever but a disk that hangs.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <ostream>
#include <string>
#include <thread>
#include <vector>

#include "platform/server/HandingOn.h"
#include "platform/server/Pipelining.h"
#include "platform/server/ServedByHand.h"
#include "platform/server/ServedDelegate.h"
#include "support/ForkedPart.h"
#include "support/WireBytes.h"

namespace sorvane::test {
namespace {

using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

Settings threeThreads() {
  Settings settings;
  settings.threads = 3;
  return settings;
}

Clock::time_point patience() { return Clock::now() + kPatience; }

TEST(Pause, LosesDoublesAndDisordersNothingUnderLoad) {
  ServedDelegate server(threeThreads());
  server.delegate().openGate();
  std::vector<std::unique_ptr<Pipelining>> clients;
  for (int i = 0; i < 6; ++i) {
    clients.push_back(std::make_unique<Pipelining>(server.connect()));
  }
  for (int i = 0; i < 15; ++i) {
    ASSERT_TRUE(clients.front()->getsOn());
    ASSERT_TRUE(server.running().pause(patience()));
    const int delivered = server.delegate().delivered;
    std::this_thread::sleep_for(milliseconds(5));
    EXPECT_EQ(server.delegate().delivered, delivered) << "nothing is delivered in a pause";
    server.running().goOn();
  }
  clients.clear();
  EXPECT_EQ(server.delegate().overlaps, 0);
}

TEST(Pause, ComesAtOnceWhileNothingHappensAndTheServerGoesOnAfterIt) {
  ServedDelegate server(threeThreads());
  RawConnection client = server.connect();
  for (int i = 0; i < 3; ++i) {
    ASSERT_TRUE(client.ask(Message()));
    ASSERT_TRUE(server.running().pause(patience()));
    client.send(frame(Message({{"count", ""}})));
    EXPECT_TRUE(client.staysSilent(milliseconds(10)));
    server.running().goOn();
    EXPECT_TRUE(client.receiveFrame());
  }
}

TEST(Pause, LetsNewConnectionsWait) {
  ServedDelegate server;
  ASSERT_TRUE(server.running().pause(patience()));
  RawConnection client = server.connect();
  client.send(numbered(0));
  EXPECT_TRUE(client.staysSilent(milliseconds(10)));
  EXPECT_EQ(server.delegate().started, 0);
  server.running().goOn();
  EXPECT_EQ(client.receive(numbered(0).size()), numbered(0));
}

TEST(Pause, MayComeWhileNoDescriptorIsLeftForAConnection) {
  inOwnProcess([] {
    ServedDelegate server;
    RawConnection first = server.connect();
    ASSERT_TRUE(first.ask(Message()));
    // The sanitizer needs a descriptor to look at an object for the first time.
    ASSERT_EQ(server.running().connections(), 1);
    rlimit before{};
    getrlimit(RLIMIT_NOFILE, &before);
    const rlimit limit{4096, before.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
    std::vector<Descriptor> others;
    do {
      others.emplace_back(open("/dev/null", O_RDONLY | O_CLOEXEC));
    } while (others.back().isOpen());
    others.resize(others.size() - 2);  // one for the client, and none for the other end
    const ConsoleLines console;
    RawConnection late = server.connect();
    ASSERT_TRUE(late.isConnected());
    ASSERT_TRUE(console.hold("connections cannot be accepted for now"));
    ASSERT_TRUE(server.running().pause(patience()));
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &before), 0);
    server.running().goOn();
    EXPECT_TRUE(first.ask(Message()));
    EXPECT_TRUE(late.ask(Message()));
  });
}

/// What keeps one thread of the server busy.
struct Hanging {
  const char* key;
};

void PrintTo(const Hanging& each, std::ostream* out) { *out << each.key; }

class PauseWhileARequestHangs : public testing::TestWithParam<Hanging> {};

TEST_P(PauseWhileARequestHangs, IsPutOffWhileTheOthersAreServedAndNothingIsLost) {
  ServedDelegate server(threeThreads());
  RawConnection other = server.connect();
  ASSERT_TRUE(other.ask(Message()));  // the loop of the first connection accepts the next one
  RawConnection hanging = server.connect();
  const std::string hangs = frame(Message({{GetParam().key, ""}}));
  hanging.send(hangs + numbered(0));
  ASSERT_TRUE(server.delegate().arriveAtGate(1));
  std::atomic<bool> isOver = false;
  std::atomic<int> served = 0;
  std::thread thread([&] {
    while (!isOver) {
      served += other.ask(Message()) ? 1 : 0;
    }
  });
  const auto begin = Clock::now();
  EXPECT_FALSE(server.running().pause(begin + milliseconds(100)));
  EXPECT_GE(Clock::now(), begin + milliseconds(100));
  EXPECT_GT(served, 0) << "between the tries";
  const int before = served;
  EXPECT_TRUE(waitUntil([&] { return served > before; })) << "and after them";
  isOver = true;
  thread.join();
  EXPECT_TRUE(hanging.staysSilent(milliseconds(1)));
  server.delegate().openGate();
  if (GetParam().key != std::string("stop")) {
    EXPECT_EQ(hanging.receive(hangs.size()), hangs);
  } else {
    EXPECT_TRUE(hanging.receiveFrame());
  }
  EXPECT_EQ(hanging.receive(numbered(0).size()), numbered(0));
  EXPECT_TRUE(server.running().pause(patience()));
  server.running().goOn();
  EXPECT_TRUE(other.ask(Message()));
}

INSTANTIATE_TEST_SUITE_P(On, PauseWhileARequestHangs,
                         testing::Values(Hanging{"wait"}, Hanging{"log"}, Hanging{"preferences"},
                                         Hanging{"stop"}),
                         [](const auto& each) { return each.param.key; });

/// Pauses a server and returns what it would hand on. It stays paused.
std::string keptInAPause(const ServedDelegate& server) {
  EXPECT_TRUE(server.running().pause(patience()));
  KeptWriter writer;
  server.running().keep(writer);
  return whole(writer);
}

// One after the other, the requests that wait take longer than any try to pause. So it must be kept
// from being asked for more.
TEST(Pause, IsNotPutOffByClientsThatPipelineRequestsForADisk) {
  constexpr int kClients = 60;  // so that the disk has 300 ms to do at any time
  constexpr int kRequests = 40;
  ServedDelegate server(threeThreads());
  server.delegate().openGate();
  server.delegate().diskTime = 5;
  std::string requests;
  for (int i = 0; i < kRequests; ++i) {
    requests += frame(Message({{"log", std::to_string(i)}}));
  }
  std::vector<RawConnection> clients;
  for (int i = 0; i < kClients; ++i) {
    clients.push_back(server.connect());
    clients.back().send(requests);
  }
  ASSERT_TRUE(server.delegate().arriveAtGate(1));
  const std::string description = keptInAPause(server);
  EXPECT_LT(server.delegate().delivered, kClients * kRequests / 2);
  KeptReader reader(description);
  for (const KeptConnection& each : readKeptServer(reader).connections) {
    EXPECT_EQ(each.phase, KeptConnection::Phase::sending);
    EXPECT_TRUE(each.replies.empty());
    EXPECT_FALSE(each.input.empty());
  }
  server.delegate().diskTime = 0;
  server.running().goOn();
  for (RawConnection& each : clients) {
    EXPECT_EQ(each.receive(requests.size()), requests);
  }
}

TEST(Pause, LeavesTheRestOfATurnForLater) {
  ServedByHand server;
  RawConnection client = server.connect();
  client.send(numbered(0));
  server.context().pause.askToStand();
  server.turn();
  EXPECT_EQ(server.delegate().delivered, 0) << "a turn of many events ends soon";
  server.context().pause.goOn();
  EXPECT_EQ(server.receives(client, numbered(0).size()), numbered(0));
}

TEST(Pause, LetsARequestThatHasToWaitWaitWhereItIsUntilItIsOver) {
  ServedByHand server;
  server.delegate().openGate();
  RawConnection client = server.connect();
  const std::string waits = frame(Message({{"wait", ""}}));
  server.context().pause.beginSettingAside();
  client.send(numbered(0) + waits + numbered(1));
  EXPECT_EQ(server.receives(client, numbered(0).size()), numbered(0)) << "others do not";
  EXPECT_TRUE(server.context().deliveries.waitUntilIdle(patience()));
  EXPECT_EQ(server.delegate().delivered, 1);
  server.loop().wake();
  server.turn();
  EXPECT_EQ(server.delegate().delivered, 1) << "a wake-up for another reason changes nothing";
  server.context().pause.goOn();
  server.loop().wake();
  EXPECT_EQ(server.receives(client, waits.size() + numbered(1).size()), waits + numbered(1));
}

TEST(Pause, LetsTheRequestsBehindOneThatHadToWaitWaitUntilItIsOver) {
  ServedByHand server;
  server.delegate().openGate();
  RawConnection client = server.connect();
  const std::string waits = frame(Message({{"wait", ""}}));
  client.send(waits + numbered(0));
  server.turn();
  server.context().pause.askToStand();
  EXPECT_EQ(server.receives(client, waits.size()), waits);
  EXPECT_EQ(server.delegate().delivered, 1);
  server.context().pause.goOn();
  EXPECT_EQ(server.receives(client, numbered(0).size()), numbered(0));
}

TEST(Pause, LetsClientsWaitForAShortTimeOnlyWhileADiskHangs) {
  ServedDelegate server(threeThreads());
  RawConnection hanging = server.connect();
  hanging.send(frame(Message({{"log", ""}})));
  ASSERT_TRUE(server.delegate().arriveAtGate(1));
  std::atomic<bool> isOver = false;
  Clock::duration longest{};
  RawConnection client = server.connect();
  std::thread thread([&] {
    while (!isOver) {
      const auto begin = Clock::now();
      EXPECT_TRUE(client.ask(Message()));
      longest = std::max(longest, Clock::now() - begin);
    }
  });
  EXPECT_FALSE(server.running().pause(Clock::now() + milliseconds(500)));
  isOver = true;
  thread.join();
  EXPECT_LT(longest, milliseconds(350));
  server.delegate().openGate();
  EXPECT_TRUE(hanging.receiveFrame());
}

TEST(Pause, SetsNothingAsideAnyMoreWhenItIsPutOff) {
  ServedDelegate server(threeThreads());
  RawConnection hanging = server.connect();
  hanging.send(frame(Message({{"log", ""}})));
  ASSERT_TRUE(server.delegate().arriveAtGate(1));
  RawConnection client = server.connect();
  std::atomic<bool> isOver = false;
  std::thread thread([&] {
    while (!isOver) {
      EXPECT_TRUE(client.ask(Message({{"raise", "on a waiting thread"}})));
    }
  });
  EXPECT_FALSE(server.running().pause(Clock::now() + milliseconds(30)));
  isOver = true;
  thread.join();
  server.delegate().openGate();
  EXPECT_TRUE(hanging.receiveFrame());
}

/// A round that tells when it begins and when it is back.
struct Round {
  std::atomic<int> begun{0};
  std::atomic<int> back{0};
  const RunningServer::Round round{[this] { ++begun; }, [this] { ++back; }};
};

TEST(Pause, PutsARoundOff) {
  ServedDelegate server(threeThreads());
  auto& round = *new Round;  // the server may still look at it after the test
  ASSERT_TRUE(server.running().pause(patience()));
  server.running().goRound(round.round);
  std::this_thread::sleep_for(milliseconds(10));
  EXPECT_EQ(round.begun, 0);
  server.running().goOn();
  EXPECT_TRUE(waitUntil([&] { return round.back == 1; }));
}

TEST(Pause, LosesNoRoundThatIsOnItsWay) {
  ServedDelegate server(threeThreads());
  auto& round = *new Round;
  for (int i = 1; i <= 100; ++i) {
    server.running().goRound(round.round);
    ASSERT_TRUE(server.running().pause(patience()));
    const int back = round.back;
    std::this_thread::yield();
    EXPECT_EQ(round.back, back);
    server.running().goOn();
    ASSERT_TRUE(waitUntil([&] { return round.back == i; }));
  }
}

}  // namespace
}  // namespace sorvane::test
