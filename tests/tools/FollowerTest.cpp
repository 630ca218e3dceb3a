#include <gtest/gtest.h>

#include <atomic>
#include <mutex>
#include <string>
#include <vector>

#include "sorvctl/Follower.h"
#include "support/ScriptedPeer.h"
#include "support/WaitUntil.h"
#include "support/WireBytes.h"
#include "tools/FakeNameServer.h"

namespace sorvctl {
namespace {

using namespace std::chrono_literals;
using sorvane::test::closedPort;
using sorvane::test::frameOfTexts;
using sorvane::test::PeerConnection;
using sorvane::test::ScriptedPeer;
using sorvane::test::waitUntil;

/// What the server is asked and what it replies with.
struct Listing {
  std::atomic<int> questions = 0;  ///< whether something has changed
  std::atomic<int> readings = 0;   ///< of the states
  std::atomic<int> changes = 1;    ///< how many are still to be told
  std::atomic<int> connections = 0;
};

/// A name server of an earlier version with one database, and as many changes as the listing has.
ScriptedPeer::Script serving(Listing& listing) {
  return [&listing](PeerConnection& client) {
    ++listing.connections;
    while (const auto request = client.receiveRequest()) {
      if (request->find("didPortsChange") != std::string::npos) {
        ++listing.questions;
        const bool isChanged = listing.changes > 0;
        listing.changes -= isChanged ? 1 : 0;
        client.send(frameOfTexts({{"result", isChanged ? "YES" : "NO"}}));
      } else if (request->find("databaseStates") != std::string::npos) {
        ++listing.readings;
        client.send(frameOfTexts({{"result", "db1:running"}, {"alerts", ""}}));
      } else {
        client.send(frameOfTexts({{"portNumber", "20222"}, {"portName", "db1"}}));
      }
    }
  };
}

Options optionsFor(int port) {
  Options options;
  options.port = port;
  return options;
}

/// The next sight.
Sight next(Follower& follower) {
  std::optional<Sight> sight;
  EXPECT_TRUE(waitUntil([&] { return (sight = follower.take()).has_value(); }));
  return sight.value_or(Sight{});
}

TEST(Follower, ReadsTheDatabasesOnlyWhenSomethingHasChanged) {
  Listing listing;
  const ScriptedPeer peer(serving(listing));
  std::atomic<int> woken = 0;
  Follower follower({optionsFor(peer.port())}, {1ms, {}, [&woken] { ++woken; }});
  const Sight first = next(follower);
  EXPECT_TRUE(first.reached) << first.failure;
  ASSERT_EQ(first.databases.size(), 1U);
  EXPECT_EQ(first.databases[0].port.number, "20222");
  EXPECT_TRUE(waitUntil([&] { return listing.questions >= 20; }));
  EXPECT_EQ(listing.readings, 1);
  EXPECT_EQ(woken, 1);
  EXPECT_FALSE(follower.take());
  listing.changes = 1;
  EXPECT_TRUE(next(follower).reached);
  EXPECT_EQ(listing.readings, 2);
  EXPECT_EQ(listing.connections, 2) << "one to see that the server cannot hold a reply";
}

TEST(Follower, TellsThatTheServerIsGoneAndConnectsAgain) {
  std::atomic<bool> isThere = false;
  Listing listing;
  const auto serve = serving(listing);
  const ScriptedPeer peer([&](PeerConnection& client) {
    if (isThere) {
      serve(client);
    }
  });
  Follower follower({optionsFor(peer.port())}, {1ms, {}, [] {}});
  const Sight lost = next(follower);
  EXPECT_FALSE(lost.reached);
  EXPECT_NE(lost.failure, "");
  isThere = true;
  EXPECT_TRUE(waitUntil([&] {
    const auto sight = follower.take();
    return sight && sight->reached;
  }));
}

TEST(Follower, TriesEachWayBeforeItTellsThatNoneLeadsThere) {
  Listing listing;
  const ScriptedPeer peer(serving(listing));
  Follower follower({optionsFor(closedPort()), optionsFor(peer.port())}, {1ms, {}, [] {}});
  EXPECT_TRUE(next(follower).reached) << "the first sight is that of the second way";
}

TEST(Follower, TellsOfAListThatIsTooLong) {
  Listing listing;
  const ScriptedPeer peer(serving(listing));
  Follower follower({optionsFor(peer.port())}, {1ms, {0}, [] {}});
  EXPECT_EQ(next(follower).failure, "the server lists more than 0 databases");
}

TEST(Follower, SeesAChangeAtOnceAndReadsThatAlone) {
  test::FakeNameServer server;
  server.has("a|b:c");
  Follower follower({server.options()}, {std::chrono::hours(1), {}, [] {}});
  EXPECT_EQ(next(follower).databases.size(), 1U);
  const auto begin = std::chrono::steady_clock::now();
  server.has("db2", {{"left", "YES"}});
  const Sight seen = next(follower);
  EXPECT_LT(std::chrono::steady_clock::now() - begin, 1s);
  ASSERT_EQ(seen.databases.size(), 2U);
  EXPECT_EQ(seen.databases[0].port.name, "a|b:c");
  EXPECT_TRUE(seen.databases[1].left);
  EXPECT_EQ(server.asked("portChanges"), 2);
  EXPECT_EQ(server.asked("didPortsChange") + server.asked("databaseStates"), 0);
}

TEST(Follower, EndsWhileItWaits) {
  test::FakeNameServer server;
  Follower follower({server.options()}, {1ms, {}, [] {}});
  EXPECT_TRUE(next(follower).reached);
  EXPECT_TRUE(waitUntil([&] { return server.asked("awaitPortChanges") == 2; }));
  const auto begin = std::chrono::steady_clock::now();
  follower.stop();
  EXPECT_TRUE(follower.endsWithin(sorvane::test::kPatience));
  EXPECT_LT(std::chrono::steady_clock::now() - begin, 1s);
}

TEST(Follower, EndsWhileItPauses) {
  Listing listing;
  const ScriptedPeer peer(serving(listing));
  Follower follower({optionsFor(peer.port())}, {std::chrono::hours(1), {}, [] {}});
  EXPECT_TRUE(next(follower).reached);
  EXPECT_FALSE(follower.endsWithin(0ms));
  follower.stop();
  EXPECT_TRUE(follower.endsWithin(sorvane::test::kPatience));
}

}  // namespace
}  // namespace sorvctl
