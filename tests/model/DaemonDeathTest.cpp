// Clients that follow the registry of the real name server while the process that serves dies,
// again and again: whoever rests knows afterwards what is registered, and hears of each change
// once.
#include <gtest/gtest.h>
#include <signal.h>

#include <atomic>
#include <deque>
#include <filesystem>
#include <random>
#include <string>
#include <thread>

#include "integration/Client.h"
#include "integration/ShiftedClock.h"
#include "integration/WatchedDaemon.h"
#include "model/Asker.h"

namespace sorvane::model {
namespace {

using namespace std::chrono_literals;
using test::Client;
using test::waitUntil;

// The third death within a minute leaves nothing. Only a build without sanitizers has the clock by
// which the minutes pass.
#ifdef SORVANE_PLAIN
constexpr bool kHasClock = true;
constexpr int kDeaths = 8;
#else
constexpr bool kHasClock = false;
constexpr int kDeaths = 2;
#endif
constexpr int kDatabases = kDeaths;
constexpr int kNames = 20;  // of each

/// Registers one name under one number after the other, and sets a state each time. On a new
/// connection when the server has closed the one before.
class Writer {
 public:
  Writer(const test::Daemon& server, std::string name)
      : server_(server), name_(std::move(name)), thread_([this] { run(); }) {}
  ~Writer() {
    isOver_ = true;
    goesOn();
    thread_.join();
  }
  Writer(const Writer&) = delete;
  Writer& operator=(const Writer&) = delete;

  /// Returns when it rests.
  void rests() {
    mayWrite_ = false;
    isResting_.wait(false);
  }
  void goesOn() {
    isResting_ = false;
    mayWrite_ = true;
    mayWrite_.notify_one();
  }
  [[nodiscard]] int registrations() const { return registrations_; }
  [[nodiscard]] int timesClosed() const { return timesClosed_; }
  /// Adds to the picture what must be known while it rests: of a connection that was closed,
  /// nothing.
  void addTo(Picture& picture) const {
    if (isRegistered_) {
      const std::string number = std::to_string(registrations_);
      picture[name_] = {{"portNumber", number},
                        {"portHost", "dbhost"},
                        {"portType", "database"},
                        {"portStatus", "state " + number}};
    }
  }

 private:
  void run() {
    Client client(server_);
    while (!isOver_) {
      const std::string number = std::to_string(registrations_ + 1);
      client.connection().send(
          test::frame(Client::reconnection(name_, number)) +
          test::frame(test::request("setDatabaseState",
                                    {{"databaseName", name_}, {"state", "state " + number}})));
      isRegistered_ = client.connection().receiveFrame() && client.connection().receiveFrame();
      if (isRegistered_) {
        ++registrations_;
      } else {
        ++timesClosed_;
        client = Client(server_);
      }
      if (!mayWrite_) {
        isResting_ = true;
        isResting_.notify_one();
        mayWrite_.wait(false);
      }
    }
  }

  const test::Daemon& server_;
  const std::string name_;
  std::atomic<bool> mayWrite_ = true;
  std::atomic<bool> isResting_ = false;
  std::atomic<bool> isOver_ = false;
  std::atomic<bool> isRegistered_ = false;
  std::atomic<int> registrations_ = 0;
  std::atomic<int> timesClosed_ = 0;
  std::thread thread_;
};

class DaemonDeaths : public test::SurviveCrashes {
 protected:
  void SetUp() override {
    SurviveCrashes::SetUp();
    if (IsSkipped()) {
      return;
    }
    server_.launch({"-noexit"}, kHasClock ? clock_.use() : std::function<void()>());
    ASSERT_TRUE(server_.answers()) << server_.console();
  }
  void TearDown() override {
    if (!IsSkipped()) {
      EXPECT_EQ(server_.console().find("starts anew"), std::string::npos) << server_.console();
    }
  }

  /// The serving process dies. Whatever is asked from now on, the next one answers.
  void dies() {
    clock_.setAhead(61L * ++deaths_);
    const pid_t dying = serving();
    kill(dying, SIGKILL);
    ASSERT_TRUE(
        waitUntil([&] { return !std::filesystem::exists("/proc/" + std::to_string(dying)); }));
  }
  /// Dies when nobody is at work.
  void diesAtRest() {
    const pid_t dying = serving();
    ASSERT_TRUE(waitUntil([&] { return test::DaemonProcess(dying).sleeps(); }));
    dies();
  }

 private:
  const test::ShiftedClock clock_{test::ShiftedClock::Clock::steadyOfStarted};
  int deaths_ = 0;
};

TEST_F(DaemonDeaths, LeaveFollowersWhatIsRegisteredThoughManyWereAtWork) {
  const Row row = {{"portNumber", "7000"}, {"portHost", "dbhost"}, {"portType", "database"}};
  Picture resting;
  std::deque<Client> databases;
  const auto nameOf = [](int database, int name) {
    return "db" + std::to_string(database) + "." + std::to_string(name);
  };
  for (int database = 0; database < kDatabases; ++database) {
    databases.emplace_back(server_);
    for (int name = 0; name < kNames; ++name) {
      ASSERT_TRUE(databases.back().reconnects(nameOf(database, name)));
      resting[nameOf(database, name)] = row;
    }
  }
  std::deque<Asker> followers;
  for (const std::size_t limit : {3, 50, 10000}) {
    followers.emplace_back(server_, limit);
  }
  std::deque<Writer> writers;
  for (const char* const name : {"w1", "w2", "w3", "w4"}) {
    writers.emplace_back(server_, name);
  }
  std::mt19937 random(5);
  for (int death = 0; death < kDeaths; ++death) {
    for (Asker& follower : followers) {
      ASSERT_TRUE(follower.asksOnce());  // and most have not been told all
    }
    for (Writer& writer : writers) {
      const int before = writer.registrations();
      writer.goesOn();
      ASSERT_TRUE(waitUntil([&] { return writer.registrations() > before; }));
    }
    std::this_thread::sleep_for(std::chrono::microseconds(random() % 5000));
    databases[static_cast<std::size_t>(death)].closes();
    ASSERT_NO_FATAL_FAILURE(dies());
    resting.erase(nameOf(death, kNames - 1));
    for (int name = 0; name < kNames - 1; ++name) {
      resting[nameOf(death, name)]["left"] = "YES";
    }
    Picture picture = resting;
    for (Writer& writer : writers) {
      writer.rests();
      writer.addTo(picture);
    }
    Asker fresh(server_, 1000);
    // A connection that was closed while nobody served ends a little later.
    EXPECT_TRUE(
        waitUntil([&] { return fresh.asksForAll() && withoutOwn(fresh.picture()) == picture; }));
    EXPECT_EQ(shown(withoutOwn(fresh.picture())), shown(picture)) << "death " << death;
    for (Asker& follower : followers) {
      ASSERT_TRUE(follower.asksForAll());
      ASSERT_EQ(shown(withoutOwn(follower.picture())), shown(picture)) << "death " << death;
    }
  }
  int timesClosed = 0;
  for (const Writer& writer : writers) {
    timesClosed += writer.timesClosed();
  }
  EXPECT_GT(timesClosed, 0) << "nobody was at work";
}

TEST_F(DaemonDeaths, LeaveWatchersEachChangeThatTheyDoNotKnowAndNoOther) {
  const auto waiting = test::frame(test::request("awaitPortChanges", {{"timeout", "300"}}));
  Client database(server_);
  Client watcher(server_);
  Client waits(server_);
  Asker follower(server_, 1000);
  const auto hearAll = [&] {
    EXPECT_TRUE(waitUntil([&] { return watcher.didPortsChange() == "NO"; }));
    EXPECT_TRUE(waitUntil([&] {
      return waits.resultOf("awaitPortChanges", {{"timeout", "0"}}) == "NO";
    }));
    EXPECT_TRUE(follower.asksForAll());
  };
  for (int death = 0; death < kDeaths; ++death) {
    const bool isUntold = death % 2 == 1;
    const std::string number = std::to_string(6000 + death);
    EXPECT_TRUE(database.reconnects("db1", number));
    hearAll();
    const Picture before = follower.picture();
    if (isUntold) {
      EXPECT_TRUE(database.reconnects("db2", number));
    }
    ASSERT_NO_FATAL_FAILURE(diesAtRest());
    ASSERT_EQ(watcher.didPortsChange(), isUntold ? "YES" : "NO");
    EXPECT_TRUE(waits.connection().send(waiting));
    if (!isUntold) {
      EXPECT_TRUE(waits.connection().staysSilent(20ms));
      EXPECT_TRUE(follower.asksForAll());
      EXPECT_EQ(shown(follower.picture()), shown(before));
      EXPECT_TRUE(database.reconnects("db2", number));
      EXPECT_EQ(watcher.didPortsChange(), "YES");
    }
    EXPECT_TRUE(waits.connection().receiveFrame());
    EXPECT_TRUE(follower.asksForAll());
    EXPECT_EQ(follower.picture().at("db2").at("portNumber"), number);
    EXPECT_EQ(watcher.didPortsChange(), "NO");
  }
}

}  // namespace
}  // namespace sorvane::model
