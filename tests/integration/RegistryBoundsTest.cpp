// What one peer can make the name server keep, and what that costs the others.
#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "integration/Client.h"
#include "integration/DaemonProcess.h"
#include "support/TestedBuild.h"

namespace sorvane::test {
namespace {

constexpr std::size_t kMebibyte = std::size_t{1} << 20;
constexpr long kMebibyteInKibibytes = 1024;

bool isMeasured() { return areTestedWithoutSanitizers(); }

/// A name of about a mebibyte, the largest that a request can carry.
std::string longName(const std::string& beginning) {
  return beginning + std::string(kMebibyte - 1000, 'n');
}

class RegistryBounds : public Served {
 protected:
  [[nodiscard]] long residentMebibytes() const {
    return DaemonProcess(server_.process()).residentKibibytes() / kMebibyteInKibibytes;
  }
  [[nodiscard]] Client client() const { return Client(server_); }
};

TEST_F(RegistryBounds, OneConnectionHoldsNoMoreThanItMay) {
  Client greedy = client();
  int taken = 0;
  while (taken < 100 && greedy.reconnects(longName(std::to_string(taken)))) {
    ++taken;
  }
  EXPECT_LT(taken, 64);
  EXPECT_GT(taken, 40);
  EXPECT_EQ(tool().numberOf(longName(std::to_string(taken))), "notFound");
  EXPECT_EQ(tool().numberOf(longName(std::to_string(taken - 1))), "7000");
  Client other = client();
  EXPECT_TRUE(other.reconnects(longName("other")));
}

TEST_F(RegistryBounds, WhatEndedConnectionsLeftBehindIsBoundedAndTheOldestGo) {
  constexpr int kConnections = 6;
  constexpr int kNames = 40;
  const auto nameOf = [](int connection, int number) {
    return longName(std::to_string(connection) + "." + std::to_string(number) + ".");
  };
  for (int connection = 0; connection < kConnections; ++connection) {
    Client leaving = client();
    for (int number = 0; number < kNames; ++number) {
      ASSERT_TRUE(leaving.reconnects(nameOf(connection, number)));
    }
    leaving.closes();
    ASSERT_TRUE(waitUntil([&] { return !tool().knows(nameOf(connection, kNames - 1)); }))
        << "its last name";
  }
  EXPECT_FALSE(tool().knows(nameOf(0, 0)));
  EXPECT_TRUE(tool().knows(nameOf(kConnections - 1, kNames - 2)));
  EXPECT_TRUE(server_.complains(
      " ports that ended connections had left behind were dropped: all of them together may not "
      "take that much memory\n"));
  if (isMeasured()) {
    EXPECT_LT(residentMebibytes(), 160) << "they had registered 240 MiB";
  }
}

TEST_F(RegistryBounds, AListThatNoReplyCanHoldIsRefusedWithoutBeingMade) {
  Client greedy = client();
  for (int number = 0; number < 300; ++number) {
    ASSERT_TRUE(greedy.reconnects("db" + std::to_string(number)));
  }
  ASSERT_TRUE(greedy.reconnects(longName("last")));
  EXPECT_FALSE(tool().acts("databaseStates").has_value());
  EXPECT_TRUE(server_.complains("Command could not be executed"));
  if (isMeasured()) {
    EXPECT_LT(residentMebibytes(), 100) << "the list would have 300 MiB";
  }
  greedy.closes();
  EXPECT_TRUE(waitUntil([&] { return !tool().knows(longName("last")); }));
}

TEST_F(RegistryBounds, AListThatAReplyCanJustHoldArrivesWhole) {
  Client greedy = client();
  constexpr std::size_t kEntries = 60;
  for (std::size_t number = 1; number < kEntries; ++number) {
    ASSERT_TRUE(greedy.reconnects("db" + std::to_string(number)));
  }
  const std::string name = longName("last");
  ASSERT_TRUE(greedy.reconnects(name));
  const std::string states = tool().states();
  EXPECT_EQ(states.size(), kEntries * (name.size() + 9) - 1);
}

TEST(MaxRegistryBytes, IsWhatAllConnectionsHoldTogether) {
  Daemon server;
  server.setting("MaxRegistryBytes", "8388608");
  server.start();
  std::vector<Client> clients;
  bool hasRoom = true;
  while (hasRoom && clients.size() < 20) {
    clients.emplace_back(server);
    hasRoom = clients.back().reconnects(longName(std::to_string(clients.size())));
  }
  EXPECT_LT(clients.size(), 9U);
  Client tool(server);
  EXPECT_TRUE(tool.knows(longName("1"))) << "lookups go on";
  EXPECT_EQ(tool.resultOf("setDatabaseState", {{"databaseName", longName("1")}, {"state", "s"}}),
            "success");
  clients.front().closes();
  EXPECT_TRUE(waitUntil([&] { return tool.reconnects(longName("1")); })) << "room was given back";
}

TEST(OrderOfNames, DiffersFromRunToRun) {
  std::vector<std::string> orders;
  for (int run = 0; run < 2; ++run) {
    Daemon server;
    server.start();
    Client database(server);
    std::vector<Client> databases;
    for (int number = 0; number < 30; ++number) {
      databases.emplace_back(server);
      ASSERT_TRUE(databases.back().reconnects("db" + std::to_string(number)));
    }
    orders.push_back(database.states());
  }
  EXPECT_EQ(orders[0].size(), orders[1].size());
  EXPECT_NE(orders[0], orders[1]);
}

}  // namespace
}  // namespace sorvane::test
