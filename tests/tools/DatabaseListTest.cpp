#include <gtest/gtest.h>

#include "sorvctl/DatabaseList.h"
#include "sorvctl/Failure.h"
#include "support/ScriptedPeer.h"
#include "support/WireBytes.h"
#include "tools/FakeNameServer.h"

namespace sorvctl {
namespace {

using sorvane::test::frameOfTexts;
using sorvane::test::PeerConnection;
using sorvane::test::ScriptedPeer;

Session sessionWith(const ScriptedPeer& peer) {
  Options options;
  options.port = peer.port();
  return Session(options);
}

TEST(DatabaseList, IsThatOfAServerThatTellsWhatHasChanged) {
  test::FakeNameServer server;
  const std::vector<std::string> names{"a b", "c|d:e", "f:g|h", "\xE6\x97\xA5\xE6\x9C\xAC"};
  for (const std::string& name : names) {
    server.has(name, {{"portStatus", "x:y|z"}});
  }
  server.has("gone");
  server.loses("gone");
  Session session(server.options());
  DatabaseReader reader;
  const std::vector<Database> databases = reader.read(session);
  ASSERT_EQ(databases.size(), names.size());
  for (std::size_t index = 0; index < names.size(); ++index) {
    EXPECT_EQ(databases[index].port.name, names[index]);
    EXPECT_EQ(databases[index].port.address, "127.0.0.1") << "by which the server was called";
    EXPECT_EQ(databases[index].state, "x:y|z");
  }
  EXPECT_EQ(server.asked("portChanges"), 3) << "pages";
  server.loses(names[1]);
  EXPECT_EQ(reader.read(session).size(), names.size() - 1);
  EXPECT_EQ(server.asked("portChanges"), 4) << "only what has changed";
  EXPECT_EQ(server.asked("findPort") + server.asked("databaseStates"), 0);
}

TEST(DatabaseList, OfAServerOfAnEarlierVersionIsReadFromItsLists) {
  test::FakeNameServer server(test::FakeNameServer::Version::earlier);
  server.has("db1");
  server.has("db2");
  Session session(server.options());
  const std::vector<Database> databases = readDatabases(session);
  ASSERT_EQ(databases.size(), 2U);
  EXPECT_EQ(databases[1].port.name, "db2");
  EXPECT_EQ(databases[1].port.number, "20222");
  EXPECT_FALSE(databases[1].left);
}

TEST(DatabaseList, OfAServerOfAnEarlierVersionShowsWhatCameOfANameThatCannotBeRecognised) {
  test::FakeNameServer server(test::FakeNameServer::Version::earlier);
  server.has("e:f|g:h");
  Session session(server.options());
  const std::vector<Database> databases = readDatabases(session);
  ASSERT_EQ(databases.size(), 2U);
  EXPECT_EQ(databases[0].port.name, "e");
  EXPECT_EQ(databases[1].port.name, "g");
}

/// A server that lists these states and alerts, and knows no port.
ScriptedPeer::Script listing(std::string states, std::string alerts = {}) {
  return [states = std::move(states), alerts = std::move(alerts)](PeerConnection& client) {
    while (const auto request = client.receiveRequest()) {
      client.send(request->find("databaseStates") != std::string::npos
                      ? frameOfTexts({{"result", states}, {"alerts", alerts}})
                      : frameOfTexts({{"notFound", "notFound"}}));
    }
  };
}

TEST(DatabaseList, RefusesMoreDatabasesThanWanted) {
  const ScriptedPeer peer(listing("a:r|b:r|c:r"));
  Session session = sessionWith(peer);
  EXPECT_EQ(readDatabases(session, {3}).size(), 3U);
  try {
    (void)readDatabases(session, {2});
    ADD_FAILURE() << "a list of three is read";
  } catch (const Failure& failure) {
    EXPECT_EQ(failure.status(), Status::saidNo);
    EXPECT_STREQ(failure.what(), "the server lists more than 2 databases");
  }
}

TEST(DatabaseList, CountsPartsWithoutAColonTowardsTheMost) {
  const ScriptedPeer peer(listing("a:r||||||||"));
  Session session = sessionWith(peer);
  EXPECT_THROW((void)readDatabases(session, {4}), Failure);
}

TEST(DatabaseList, AsksForManyPortsWithoutWaitingForEachReply) {
  constexpr int kNames = 3000;
  constexpr int kTogether = 1000;
  std::string states;
  for (int index = 0; index < kNames; ++index) {
    states += (index == 0 ? "" : "|") + std::string("db") + std::to_string(index) + ":running";
  }
  // Replies to none of the first thousand requests before it has all of them.
  const ScriptedPeer peer([&](PeerConnection& client) {
    (void)client.receiveRequest();
    client.send(frameOfTexts({}));  // it does not tell what has changed
    (void)client.receiveRequest();
    client.send(frameOfTexts({{"result", states}, {"alerts", ""}}));
    const std::string reply = frameOfTexts({{"portNumber", "1"}, {"portName", "x"}});
    std::string due;
    for (int asked = 1; client.receiveRequest(); ++asked) {
      due += reply;
      if (asked >= kTogether) {
        client.send(due);
        due.clear();
      }
    }
  });
  Session session = sessionWith(peer);
  EXPECT_EQ(readDatabases(session).size(), static_cast<std::size_t>(kNames));
}

TEST(DatabaseList, AsksForNoNameOfMoreThanAMebibyte) {
  const std::string longName(std::size_t{1} << 20, 'x');
  std::size_t longest = 0;
  const ScriptedPeer peer([&](PeerConnection& client) {
    while (const auto request = client.receiveRequest()) {
      longest = std::max(longest, request->size());
      client.send(request->find("databaseStates") != std::string::npos
                      ? frameOfTexts({{"result", "y" + longName + ":a|" + longName + ":b"}})
                      : frameOfTexts({{"notFound", "notFound"}}));
    }
  });
  Session session = sessionWith(peer);
  const std::vector<Database> databases = readDatabases(session);
  ASSERT_EQ(databases.size(), 2U);
  EXPECT_EQ(databases[0].port.name, "y" + longName);
  EXPECT_EQ(databases[0].state, "a");
  EXPECT_EQ(databases[1].state, "b");
  EXPECT_LT(longest, longName.size() + 200);
}

}  // namespace
}  // namespace sorvctl
