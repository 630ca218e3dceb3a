// Requests that are held until something changes: who is told, when, and what it costs the others.
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <atomic>
#include <chrono>
#include <future>
#include <iterator>
#include <random>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "platform/server/HeldRequests.h"
#include "platform/server/ServedByHand.h"
#include "platform/server/ServedDelegate.h"
#include "support/ForkedPart.h"
#include "support/WaitUntil.h"
#include "support/WireBytes.h"

namespace sorvane::test {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

const std::string kChanged = frame(Message({{"result", "changed"}}));
const std::string kOver = frame(Message({{"result", "over"}}));
const std::string kEcho = frame(Message({{"echo", "behind"}}));
const std::string kChange = frame(Message({{"change", ""}}));
const std::string kEmpty = frameOfBody("");

std::string hold(int time = 300) { return frame(Message({{"hold", std::to_string(time)}})); }

/// A request with a text of `bytes`, which is its own reply.
std::string echo(std::size_t bytes) { return frame(Message({{"echo", std::string(bytes, 'x')}})); }

/// What a client has received without waiting; nothing is left then.
std::string received(RawConnection& client) {
  std::string bytes(1 << 16, ' ');
  const ssize_t came = recv(client.descriptor(), bytes.data(), bytes.size(), MSG_DONTWAIT);
  bytes.resize(came < 0 ? 0 : static_cast<std::size_t>(came));
  return bytes;
}

class Held : public testing::Test {
 protected:
  /// A connection that holds a request and has been sent nothing.
  RawConnection holds(int time = 300, const std::string& behind = "") {
    RawConnection client = server_.connect();
    client.send(hold(time) + behind);
    server_.turn();
    EXPECT_EQ(received(client), "");
    return client;
  }
  /// Another connection makes a change and gets its reply.
  void changes() {
    maker_.send(kChange);
    EXPECT_EQ(server_.receives(maker_, kEmpty.size()), kEmpty);
  }

  ServedByHand server_;
  RawConnection maker_ = server_.connect();
};

TEST_F(Held, IsAnsweredWhenSomethingChanges) {
  RawConnection client = holds();
  changes();
  EXPECT_EQ(received(client), kChanged) << "in the turn of the change";
  client.send(hold());
  server_.turn();
  EXPECT_EQ(received(client), "") << "each change is told once";
  changes();
  EXPECT_EQ(received(client), kChanged);
}

TEST_F(Held, IsAnsweredAtOnceIfThereWasAChangeBefore) {
  changes();
  RawConnection client = server_.connect();
  client.send(hold());
  EXPECT_EQ(server_.receives(client, kChanged.size()), kChanged);
}

TEST_F(Held, IsAnsweredOnceForChangesThatComeTogether) {
  RawConnection client = holds();
  maker_.send(kChange + kChange + kChange);
  EXPECT_EQ(server_.receives(maker_, 3 * kEmpty.size()), kEmpty + kEmpty + kEmpty);
  EXPECT_EQ(received(client), kChanged);
  EXPECT_EQ(server_.delegate().askedHeld, 1);
}

TEST_F(Held, IsNotAskedWhileNothingChanges) {
  changes();  // while none is held
  RawConnection client = server_.connect();
  client.send(hold() + hold());
  EXPECT_EQ(server_.receives(client, kChanged.size()), kChanged);
  for (int i = 0; i < 10; ++i) {
    maker_.send(kEcho);
    EXPECT_EQ(server_.receives(maker_, kEcho.size()), kEcho);
  }
  EXPECT_EQ(server_.delegate().askedHeld, 0);
}

TEST_F(Held, IsOverAfterItsTimeWhateverTimeOthersHaveAndManyAreOverInSlices) {
  const RawConnection patient = holds(300);
  const auto begin = std::chrono::steady_clock::now();
  std::vector<RawConnection> clients;
  for (int i = 0; i < 2 * ServingLoop::kHeldAtOnce; ++i) {
    clients.push_back(holds(1));
  }
  std::this_thread::sleep_until(begin + milliseconds(1150));  // the time of all is over
  for (int slice = 1; slice <= 2; ++slice) {
    server_.turn();
    EXPECT_EQ(server_.delegate().askedHeld, slice * ServingLoop::kHeldAtOnce);
  }
  for (RawConnection& each : clients) {
    EXPECT_EQ(received(each), kOver);
  }
}

TEST_F(Held, KeepsTheRequestsBehindItInOrder) {
  RawConnection client = holds(300, kEcho + kEcho.substr(0, 5));
  client.send(kEcho.substr(5) + kEcho);
  server_.turn();
  EXPECT_EQ(received(client), "");
  changes();
  EXPECT_EQ(received(client), kChanged + kEcho + kEcho + kEcho);
}

TEST_F(Held, ComesBehindTheRepliesBeforeIt) {
  RawConnection client = server_.connect();
  client.send(kEcho + hold());
  EXPECT_EQ(server_.receives(client, kEcho.size()), kEcho);
  changes();
  EXPECT_EQ(received(client), kChanged);
}

TEST_F(Held, BeginsWhenTheClientHasTakenTheRepliesBeforeIt) {
  // The first reply leaves room for the next request in the turn, the second does not. Neither fits
  // into the socket.
  for (const std::size_t bytes : {std::size_t{250000}, std::size_t{3000000}}) {
    RawConnection client = server_.connect();
    changes();
    client.send(hold() + frame(Message({{"big", std::to_string(bytes)}})) + hold() + kEcho);
    EXPECT_EQ(server_.receives(client, kChanged.size()), kChanged);
    const std::string reply = server_.receives(client, 8 + 6 + 4 + bytes);
    EXPECT_EQ(reply.size(), 8 + 6 + 4 + bytes);
    EXPECT_EQ(received(client), "");
    changes();
    EXPECT_EQ(server_.receives(client, kChanged.size() + kEcho.size()), kChanged + kEcho);
  }
}

TEST_F(Held, LetsASecondOneWaitBehindIt) {
  RawConnection client = holds(300, hold());
  changes();
  EXPECT_EQ(received(client), kChanged);
  changes();
  EXPECT_EQ(received(client), kChanged);
}

TEST_F(Held, CountsWhatComesBehindItToTheLimitOfUnfinishedInput) {
  const std::string behind = echo(20000);
  RawConnection client = holds(300, behind);
  EXPECT_GE(server_.context().unfinishedInput.now(), behind.size());
  client.send(behind);
  server_.turn();
  EXPECT_GE(server_.context().unfinishedInput.now(), 2 * behind.size());
  client.close();
  while (server_.delegate().ended == 0) {
    server_.turn();
  }
  EXPECT_EQ(server_.context().unfinishedInput.now(), 0U);
}

TEST(HeldWithALimit, IsAnsweredAndClosedWhenWhatComesBehindItPassesTheLimit) {
  const ConsoleLines console;
  ServedByHand server({.unfinishedBytes = 30000});
  for (const std::size_t first : {std::size_t{0}, std::size_t{20000}, std::size_t{40000}}) {
    RawConnection client = server.connect();
    client.send(hold() + (first > 0 ? echo(first) : ""));
    server.turn();
    if (first <= 30000) {
      EXPECT_EQ(received(client), "");
      client.send(echo(40000));
    }
    EXPECT_EQ(server.receives(client, 1000), kOver) << first;
  }
  EXPECT_EQ(console.count("connection closed, unfinished requests fill the memory"), 3);
}

TEST_F(Held, HasRoomBehindItForOneRequestOfTheGreatestLength) {
  const ConsoleLines console;
  const std::size_t most = server_.context().maximumBodyBytes;
  const std::string longest = echo(most - 11);
  ASSERT_EQ(longest.size(), most + 8);
  RawConnection client = holds();
  const auto comes = [&](const std::string& bytes) {
    for (std::size_t sent = 0; sent < bytes.size(); sent += 50000) {
      client.send(bytes.substr(sent, 50000));
      server_.turn();
    }
  };
  comes(longest);
  EXPECT_EQ(received(client), "");
  changes();
  EXPECT_EQ(server_.receives(client, kChanged.size() + longest.size()), kChanged + longest);
  client.send(hold());
  server_.turn();
  comes(longest + longest.substr(0, ServingLoop::kInputBytes + 1));
  EXPECT_EQ(server_.receives(client, 1000), kOver) << "and then the end";
  EXPECT_EQ(console.count("connection closed, too much came behind a request that is held"), 1);
  EXPECT_EQ(server_.delegate().ended, 1);
}

TEST(HeldWithALimit, IsAnsweredAndClosedWhenAFrameBehindItIsNotCompleteInTime) {
  const ConsoleLines console;
  ServedByHand server({.partialMessage = milliseconds(100)});
  RawConnection complete = server.connect();
  complete.send(hold() + kEcho + kEcho.substr(0, 9));
  server.turn();
  complete.send(kEcho.substr(9));
  server.turn();
  int closed = 0;
  for (const std::string& before : {std::string(), kEcho, kEcho + hold() + kEcho}) {
    RawConnection atOnce = server.connect();
    atOnce.send(hold() + before + kEcho.substr(0, 9));
    EXPECT_EQ(server.receives(atOnce, 1000), kOver) << "and then the end";
    RawConnection later = server.connect();
    later.send(hold() + before.substr(0, before.size() / 2));
    server.turn();
    later.send(before.substr(before.size() / 2) + kEcho.substr(0, 9));
    EXPECT_EQ(server.receives(later, 1000), kOver) << "and then the end";
    closed += 2;
    EXPECT_EQ(console.count("connection closed, a frame was not complete in time"), closed);
  }
  EXPECT_EQ(received(complete), "") << "is held on";
}

TEST(HeldWithALimit, GivesEachFrameBehindItATimeOfItsOwn) {
  ServedByHand server({.partialMessage = milliseconds(400)});
  RawConnection client = server.connect();
  client.send(hold() + kEcho.substr(0, 9));
  server.turn();
  for (int i = 0; i < 3; ++i) {
    std::this_thread::sleep_for(milliseconds(200));
    client.send(kEcho.substr(9) + kEcho.substr(0, 9));
    server.turn();
    EXPECT_EQ(received(client), "") << i;
  }
}

TEST_F(Held, IsAnsweredAtOnceBeforeABadFrameThatEndsTheConnection) {
  const ConsoleLines console;
  const std::string garbage = "garbage that is no frame";
  const std::pair<std::string, std::string> cases[] = {
      {"", ""}, {kEcho, kEcho}, {kEcho + hold() + kEcho, kEcho + kOver + kEcho}};
  int ended = 0;
  for (const auto& [before, replies] : cases) {
    for (const bool isLater : {false, true}) {
      RawConnection client = server_.connect();
      client.send(hold() + (isLater ? "" : before + garbage));
      if (isLater) {
        server_.turn();
        EXPECT_EQ(received(client), "");
        client.send(before + garbage);
      }
      const std::string all = kOver + replies;
      EXPECT_EQ(server_.receives(client, all.size() + 1), all) << "and then the end";
      EXPECT_EQ(server_.delegate().ended, ++ended);
    }
  }
  EXPECT_EQ(console.count("connection closed, wrong mark"), ended);
}

TEST_F(Held, OfManyBeforeABadFrameNoneIsAnsweredInsideTheAnswerToTheOneBefore) {
  constexpr int kMany = 10 * ServingLoop::kHeldAtOnce;
  std::string requests;
  std::string replies;
  for (int i = 0; i < kMany; ++i) {
    requests += hold();
    replies += kOver;
  }
  RawConnection client = server_.connect();
  client.send(requests + "garbage that is no frame");
  server_.turn();
  EXPECT_LE(server_.delegate().askedHeld, ServingLoop::kHeldAtOnce) << "in a turn";
  EXPECT_EQ(server_.receives(client, replies.size() + 1), replies) << "and then the end";
}

TEST_F(Held, OfAPeerThatSendsNothingMoreIsAnsweredAtOnceAndThenClosed) {
  for (const std::string& behind : {std::string(), kEcho}) {
    RawConnection client = holds();
    client.send(behind);
    client.shutdownWriting();
    EXPECT_EQ(server_.receives(client, 1000), kOver + behind);
    EXPECT_TRUE(client.isClosedByPeer());
  }
  EXPECT_EQ(server_.delegate().ended, 2);
}

TEST_F(Held, OfAPeerThatEndedWithItsRequestIsAnsweredAtOnce) {
  RawConnection client = server_.connect();
  client.send(hold() + hold());
  client.shutdownWriting();
  EXPECT_EQ(server_.receives(client, 1000), kOver + kOver);
}

TEST_F(Held, OfAPeerThatHasGoneIsForgottenAtOnce) {
  int ended = 0;
  for (const std::string& behind : {std::string(), kEcho, kEcho.substr(0, 9)}) {
    RawConnection client = holds();
    if (!behind.empty()) {
      client.send(behind);
      server_.turn();
    }
    client.close();
    for (int i = 0; i < 3 && server_.delegate().ended == ended; ++i) {
      server_.turn();
    }
    EXPECT_EQ(server_.delegate().ended, ++ended);
  }
  EXPECT_EQ(server_.context().connections, 1);
  changes();
}

TEST_F(Held, OfManyAreAskedInSlicesWithTheRequestsOfOthersBetween) {
  constexpr int kSlices = 4;
  std::vector<RawConnection> clients;
  for (int i = 0; i < kSlices * ServingLoop::kHeldAtOnce; ++i) {
    clients.push_back(holds());
  }
  maker_.send(kChange);
  server_.turn();
  for (int slice = 1; slice < kSlices; ++slice) {
    EXPECT_EQ(server_.delegate().askedHeld, slice * ServingLoop::kHeldAtOnce);
    maker_.send(kEcho);
    server_.turn();
  }
  const std::size_t replies = kEmpty.size() + (kSlices - 1) * kEcho.size();
  EXPECT_EQ(received(maker_).size(), replies) << "each in the turn of its request";
  for (RawConnection& each : clients) {
    EXPECT_EQ(received(each), kChanged);
  }
}

TEST_F(Held, IsToldOfAChangeThatARequestBehindAnotherOneMakes) {
  RawConnection first = server_.connect();
  first.send(hold() + hold());
  server_.turn();
  RawConnection second = holds(300, kChange);
  changes();  // tells both; the first holds again before the second goes on with its change
  EXPECT_EQ(received(second), kChanged + kEmpty);
  EXPECT_EQ(received(first), kChanged);
  server_.turn();  // waits for nothing
  EXPECT_EQ(received(first), kChanged);
}

TEST_F(Held, ThatIsAskedOnAnotherThreadIsToldOfAChangeMeanwhile) {
  server_.delegate().changesMade = 0;
  RawConnection client = server_.connect();
  client.send(frame(Message({{"wait", ""}, {"hold", "300"}})));
  server_.turn();
  ASSERT_TRUE(server_.delegate().arriveAtGate(1)) << "and has found no change";
  RawConnection other = holds();
  changes();
  EXPECT_EQ(received(other), kChanged) << "this loop has told its others";
  server_.delegate().openGate();
  EXPECT_EQ(server_.receives(client, kChanged.size()), kChanged);
}

TEST_F(Held, IsHeldOnAfterItWasDeliveredOnAnotherThread) {
  RawConnection client = server_.connect();
  server_.delegate().openGate();
  client.send(frame(Message({{"wait", ""}, {"hold", "300"}})) + kEcho);
  while (server_.delegate().askedHeld == 0) {  // once more by the loop
    server_.turn();
  }
  EXPECT_EQ(received(client), "");
  changes();
  EXPECT_EQ(received(client), kChanged + kEcho);
}

TEST_F(Held, IsToldOfAChangeOnAWaitingThreadThoughADiskHangs) {
  constexpr int kWaitingThreads = 4;
  RawConnection client = holds();
  std::promise<void> release;
  const std::shared_future<void> released = release.get_future().share();
  std::atomic<int> busy = 0;
  for (int i = 0; i < kWaitingThreads; ++i) {
    server_.context().deliveries.run([&busy, released] {
      ++busy;
      released.wait();
    });
  }
  ASSERT_TRUE(waitUntil([&] { return busy == kWaitingThreads; }));
  maker_.send(frame(Message({{"log", ""}, {"change", ""}})));
  server_.turn();
  release.set_value();  // now the change is made, in no turn of the loop
  server_.turn();
  EXPECT_EQ(received(client), kChanged);
  EXPECT_EQ(received(maker_), "");
  server_.delegate().openGate();
  EXPECT_EQ(server_.receives(maker_, 8).size(), 8U);
}

// In each round there is one change, so a round in which it is missed does not end. The change
// comes before some of the requests and after others, and the loops find it on their own threads or
// on waiting ones.
TEST(HeldByAServer, NoneMissesAChangeThatComesWhileItBegins) {
  inOwnProcess([] {
    constexpr int kRounds = 300;
    constexpr std::size_t kWatchers = 24;
    Settings settings;
    settings.threads = 3;
    ServedDelegate server(settings);
    server.delegate().openGate();
    std::vector<RawConnection> watchers;
    for (std::size_t i = 0; i < kWatchers; ++i) {
      watchers.push_back(server.connect());
    }
    RawConnection maker = server.connect();
    const std::string changes[] = {kChange, frame(Message({{"wait", ""}, {"change", ""}}))};
    const std::string holds[] = {hold(), hold(), frame(Message({{"wait", ""}, {"hold", "300"}}))};
    std::mt19937 random(7);
    for (int round = 0; round < kRounds; ++round) {
      const std::size_t before = random() % (kWatchers + 1);
      for (std::size_t i = 0; i <= kWatchers; ++i) {
        if (i == before) {
          maker.send(changes[random() % std::size(changes)]);
        }
        if (i < kWatchers) {
          watchers[i].send(holds[random() % std::size(holds)]);
        }
      }
      for (RawConnection& each : watchers) {
        ASSERT_EQ(each.receive(kChanged.size()), kChanged) << "in round " << round;
      }
      ASSERT_TRUE(maker.receiveFrame());
    }
  });
}

}  // namespace
}  // namespace sorvane::test
