// Clients that follow the registry of the real name server while connections end and names go from
// one to another: each knows in the end what is registered.
#include <atomic>
#include <deque>
#include <string>
#include <thread>

#include "integration/Client.h"
#include "model/Asker.h"

namespace sorvane::model {
namespace {

using test::Client;
using test::waitUntil;

#ifdef SORVANE_PLAIN
constexpr int kDatabases = 24;
#else
constexpr int kDatabases = 8;
#endif
constexpr int kNames = 100;  // of each

class DaemonFollowers : public test::Served {
 protected:
  void SetUp() override {
    Served::SetUp();
    for (int number = 0; number < kDatabases; ++number) {
      registers(databases_.emplace_back(server_), "db" + std::to_string(number) + ".", "7000");
    }
  }

  /// Registers the names of a database. The requests go together.
  static void registers(Client& database, const std::string& before, const std::string& number) {
    std::string requests;
    for (int name = 0; name < kNames; ++name) {
      requests += test::frame(Client::reconnection(before + std::to_string(name), number));
    }
    EXPECT_TRUE(database.connection().send(requests));
    for (int name = 0; name < kNames; ++name) {
      EXPECT_TRUE(database.connection().receiveFrame());
    }
  }
  /// What is told of a name that is there.
  static Row row(const std::string& number, bool isLeft) {
    Row row = {{"portNumber", number}, {"portHost", "dbhost"}, {"portType", "database"}};
    if (isLeft) {
      row["left"] = "YES";
    }
    return row;
  }
  /// What is registered by the databases once the first `ended` of them have ended: each of these
  /// has left all but its last name behind.
  static Picture expected(int ended) {
    Picture picture;
    for (int number = 0; number < kDatabases; ++number) {
      const std::string before = "db" + std::to_string(number) + ".";
      const bool isLeft = number < ended;
      for (int name = 0; name < kNames - (isLeft ? 1 : 0); ++name) {
        picture[before + std::to_string(name)] = row("7000", isLeft);
      }
    }
    return picture;
  }

  std::deque<Client> databases_;
};

TEST_F(DaemonFollowers, KnowWhatIsRegisteredThoughConnectionsEndWhilePagesAreMade) {
  constexpr int kEnded = kDatabases / 2;
  std::deque<Asker> askers;
  for (const std::size_t limit : {7, 250, 10000}) {
    askers.emplace_back(server_, limit);
  }
  std::atomic<bool> isOver = false;
  std::deque<std::thread> threads;
  for (Asker& asker : askers) {
    threads.emplace_back([&] {
      bool goesOn = true;
      while (goesOn && !isOver) {
        goesOn = asker.asksForAll();
      }
    });
  }
  for (int number = 0; number < kEnded; ++number) {
    databases_[static_cast<std::size_t>(number)].closes();
  }
  Client further(server_);
  const std::string last = "db" + std::to_string(kDatabases - 1) + ".";
  registers(further, last, "7001");
  Picture picture = expected(kEnded);
  for (int name = 0; name < kNames; ++name) {
    picture[last + std::to_string(name)] = row("7001", false);
  }
  EXPECT_TRUE(waitUntil([&] {
    Asker fresh(server_, 1000);
    return fresh.asksForAll() && withoutOwn(fresh.picture()) == picture;
  }));
  isOver = true;
  for (std::thread& thread : threads) {
    thread.join();
  }
  for (Asker& asker : askers) {
    EXPECT_TRUE(asker.asksForAll());
    EXPECT_EQ(shown(withoutOwn(asker.picture())), shown(picture));
  }
}

TEST_F(DaemonFollowers, AreToldOfNamesThatAreForgotten) {
  Asker asker(server_, 50);
  EXPECT_TRUE(asker.asksForAll());
  EXPECT_EQ(tool().acts("forgetPort", {{"name", "db0.5"}}), (Texts{{"result", "failed"}}));
  databases_.front().closes();
  EXPECT_TRUE(
      waitUntil([&] { return asker.asksForAll() && withoutOwn(asker.picture()) == expected(1); }));
  (void)tool().didPortsChange();
  EXPECT_EQ(tool().didPortsChange(), "NO");
  EXPECT_EQ(tool().acts("forgetPort", {{"name", "db0.5"}}), (Texts{{"result", "success"}}));
  EXPECT_EQ(tool().didPortsChange(), "YES");
  EXPECT_EQ(tool().acts("forgetPort", {{"name", "db0.5"}}), (Texts{{"result", "failed"}}));
  EXPECT_EQ(tool().acts("forgetPort", {{"name", "VN_nameserver"}}), (Texts{{"result", "failed"}}));
  Picture picture = expected(1);
  picture.erase("db0.5");
  EXPECT_TRUE(asker.asksForAll());
  EXPECT_EQ(shown(withoutOwn(asker.picture())), shown(picture));
}

}  // namespace
}  // namespace sorvane::model
