// Databases and tools behind a cable that loses, delays, repeats and reorders packets, or that is
// cut for a while.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "faults/BadCable.h"
#include "integration/Client.h"
#include "integration/Daemon.h"

namespace sorvane::test {
namespace {

constexpr const char* kServer = "192.0.2.1";
constexpr int kDatabases = 8;
constexpr int kLookups = 20;

class BadNetwork : public ::testing::Test {
 protected:
  void SetUp() override {
    if (const std::string why = whyNoCable(); !why.empty()) {
      GTEST_SKIP() << why;
    }
    here_ = std::make_unique<NetworkNamespace>();
    there_ = std::make_unique<NetworkNamespace>();
  }

  void start(const CableFaults& faults) {
    cable_ = std::make_unique<BadCable>(*here_, std::string(kServer) + "/24", *there_,
                                        "192.0.2.2/24", faults);
    server_.launch({"-verbose"}, [this] { here_->enter(); });
    ASSERT_TRUE(server_.logs("succeeded. "));
    near_ = connects(*here_);
  }

  /// A connection to the server; tried again when the network has lost too much of one.
  [[nodiscard]] std::unique_ptr<NetConnection> connects(const NetworkNamespace& host) const {
    auto made = std::make_unique<NetConnection>();
    onNetworkOf(host, [&] {
      EXPECT_TRUE(waitUntil([&] {
        made = std::make_unique<NetConnection>();
        return made->connectToPort(kServer, server_.basePort());
      })) << made->lastError();
    });
    return made;
  }

  static Texts asks(NetConnection& connection, const Message& request) {
    const auto reply = connection.sendDictionary(request);
    EXPECT_TRUE(reply) << connection.lastError();
    return textsOf(reply).value_or(Texts());
  }
  /// The first text of the reply, with its key; empty where no reply came.
  static Texts::value_type firstOf(NetConnection& connection, const Message& request) {
    const Texts reply = asks(connection, request);
    return reply.empty() ? Texts::value_type() : reply.front();
  }
  static std::string states(NetConnection& connection) {
    return firstOf(connection, request("databaseStates", {})).second;
  }
  static Message searchFor(const std::string& name) {
    return {{"findPort", name}, {"portHost", "h"}};
  }
  static bool knows(NetConnection& connection, const std::string& name) {
    return asks(connection, searchFor(name)) != Texts{{"notFound", "notFound"}};
  }

  [[nodiscard]] std::unique_ptr<NetConnection> registers(const std::string& name) const {
    auto database = connects(*there_);
    asks(*database, textsMessage({{"reconnectPort", name},
                                  {"portNumber", "1"},
                                  {"portHost", "h"},
                                  {"portType", std::string(5000, 't')}}));
    return database;
  }

  std::unique_ptr<NetworkNamespace> here_;
  std::unique_ptr<NetworkNamespace> there_;
  std::unique_ptr<BadCable> cable_;
  Daemon server_;
  std::unique_ptr<NetConnection> near_;  // not behind the cable
};

TEST_F(BadNetwork, ChangesNoReplyAndLosesNoRegistration) {
  ASSERT_NO_FATAL_FAILURE(
      start({.lost = 0.03, .repeated = 0.03, .longestDelay = std::chrono::milliseconds(8)}));
  std::vector<std::unique_ptr<NetConnection>> databases(kDatabases);
  std::vector<std::thread> threads;
  for (int i = 0; i < kDatabases; ++i) {
    threads.emplace_back([&, i] {
      const std::string name = "db" + std::to_string(i);
      auto database = registers(name);
      for (int lookup = 0; lookup < kLookups; ++lookup) {
        const std::string state = "state " + std::to_string(lookup);
        EXPECT_EQ(asks(*database,
                       request("setDatabaseState", {{"databaseName", name}, {"state", state}})),
                  (Texts{{"result", "success"}}));
        EXPECT_EQ(firstOf(*database, searchFor(name)), (Texts::value_type{"portNumber", "1"}));
        EXPECT_NE(states(*database).find(name + ":" + state), std::string::npos);
      }
      databases[static_cast<std::size_t>(i)] = std::move(database);
    });
  }
  for (std::thread& each : threads) {
    each.join();
  }
  for (int i = 0; i < kDatabases; ++i) {
    EXPECT_TRUE(knows(*near_, "db" + std::to_string(i)));
  }
  databases.clear();
  for (int i = 0; i < kDatabases; ++i) {
    EXPECT_TRUE(waitUntil([&] { return !knows(*near_, "db" + std::to_string(i)); })) << i;
  }
  EXPECT_GT(cable_->counts().lost, 0);
  EXPECT_GT(cable_->counts().repeated, 0);
  EXPECT_GT(cable_->counts().overtaken, 0);
  std::printf("%d packets: %d lost, %d repeated, %d overtaken\n", cable_->counts().carried.load(),
              cable_->counts().lost.load(), cable_->counts().repeated.load(),
              cable_->counts().overtaken.load());
}

TEST_F(BadNetwork, ThatIsCutForAShortWhileCostsNobodyTheRegistration) {
  ASSERT_NO_FATAL_FAILURE(start({}));
  const auto database = registers("db1");
  cable_->cut();
  ASSERT_TRUE(database->sendRequest(
      request("setDatabaseState", {{"databaseName", "db1"}, {"state", "sent while it was cut"}})));
  // The pauses before a packet is sent again grow: these are some seconds.
  const int lost = cable_->counts().lost;
  EXPECT_TRUE(waitUntil([&] { return cable_->counts().lost >= lost + 5; }))
      << "nothing is sent again";
  EXPECT_TRUE(knows(*near_, "db1"));
  EXPECT_EQ(states(*near_), "db1:running");
  cable_->mend();
  EXPECT_EQ(textsOf(database->receiveReply()), (Texts{{"result", "success"}}));
  EXPECT_EQ(states(*near_), "db1:sent while it was cut");
}

}  // namespace
}  // namespace sorvane::test
