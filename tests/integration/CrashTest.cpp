// What a crash of the serving process leaves: everything of a connection at rest, and nothing of
// one that was at work.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <iostream>
#include <list>
#include <random>
#include <thread>

#include "integration/Client.h"
#include "integration/LookupLoad.h"
#include "integration/ShiftedClock.h"
#include "integration/Upgrading.h"
#include "integration/WatchedDaemon.h"

namespace sorvane::test {
namespace {

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

const Message kPing{{"ping", ""}};

class Crash : public SurviveCrashes {
 protected:
  void SetUp() override {
    SurviveCrashes::SetUp();
    if (!IsSkipped()) {
      server_.start();
    }
  }
  /// The serving process dies while the watching one is stopped, so that nobody serves until
  /// `watchingGoesOn`.
  void diesWithoutAnother() const {
    const pid_t dying = serving();
    EXPECT_TRUE(waitUntil([&] { return DaemonProcess(dying).sleeps(); }));
    kill(server_.process(), SIGSTOP);
    kill(dying, SIGKILL);
    EXPECT_TRUE(waitUntil([&] { return DaemonProcess(dying).isZombie(); }));
  }
  void watchingGoesOn() const { kill(server_.process(), SIGCONT); }
};

TEST_F(Crash, LeavesConnectionsAtRestAllThatTheyHave) {
  Client database(server_);
  const int number = std::stoi(database.registers("db1"));
  Upgrading figures(server_);
  Client& tool = figures.tool();
  tool.acts("setDatabaseState", {{"databaseName", "db1"}, {"state", "backup"}});
  tool.acts("setAlertState", {{"databaseName", "db1"}, {"state", "disk"}});
  Client watcher(server_);
  EXPECT_EQ(watcher.didPortsChange(), "YES");
  const auto found = tool.finds("db1");
  const std::string states = tool.states();
  const std::string alerts = tool.alerts();
  EXPECT_THAT(states, testing::HasSubstr("backup"));
  EXPECT_THAT(alerts, testing::HasSubstr("disk"));
  const std::string changes = tool.connection().ask(request("portChanges", {}))->body;
  for (const int signal : {SIGKILL, signalOfAFault()}) {
    diesOf(signal);
    EXPECT_EQ(tool.finds("db1"), found);
    EXPECT_EQ(tool.states(), states);
    EXPECT_EQ(tool.alerts(), alerts);
    EXPECT_EQ(tool.connection().ask(request("portChanges", {}))->body, changes);
  }
  EXPECT_EQ(figures.told("crashes"), "2");
  EXPECT_EQ(database.asks(kPing), kEmptyDictionary);
  EXPECT_EQ(watcher.didPortsChange(), "YES") << "probes of this test have come and gone";
  EXPECT_EQ(watcher.didPortsChange(), "NO");
  EXPECT_EQ(Client(server_).registers("db2"), std::to_string(number + 1)) << "numbers go on";
  EXPECT_EQ(watcher.didPortsChange(), "YES");
  database.closes();
  EXPECT_TRUE(waitUntil([&] { return !tool.knows("db1"); })) << "an entry goes with its connection";
  EXPECT_TRUE(server_.logs("Goes on after the death of the serving process"));
}

TEST_F(Crash, ClosesEachConnectionThatWasAtWorkAndForgetsItsEntry) {
  Client rests(server_);
  rests.registers("rests");
  std::list<Client> atWork;
  const auto registers = [&](const std::string& name) -> RawConnection& {
    atWork.emplace_back(server_).registers(name);
    return atWork.back().connection();
  };
  RawConnection& half = registers("half");
  half.send(frame(kPing).substr(0, 5));
  RawConnection& slow = registers("slow");
  rests.acts("setDatabaseState", {{"databaseName", "rests"}, {"state", std::string(50000, 's')}});
  constexpr int kListsAtOnce = 400;  // more than the sockets take
  for (int i = 0; i < kListsAtOnce; ++i) {
    slow.send(frame(request("databaseStates", {})));
  }
  RawConnection& waits = registers("waits");
  EXPECT_EQ(atWork.back().resultOf("awaitPortChanges"), "YES");
  waits.send(frame(request("awaitPortChanges", {{"timeout", "300"}})));
  EXPECT_TRUE(waits.staysSilent(50ms));
  diesOf(SIGKILL);
  Client tool(server_);
  EXPECT_TRUE(half.isClosedByPeer());
  EXPECT_TRUE(waits.isClosedByPeer());
  while (slow.receiveFrame()) {
  }
  EXPECT_TRUE(slow.isClosedByPeer());
  for (const char* const name : {"half", "waits", "slow"}) {
    EXPECT_FALSE(tool.knows(name)) << name;
  }
  EXPECT_TRUE(tool.knows("rests"));
  EXPECT_EQ(rests.asks(kPing), kEmptyDictionary);
}

TEST_F(Crash, WhatComesWhileNobodyServesIsAnsweredByTheNextProcess) {
  Client database(server_);
  database.registers("db1");
  Client gone(server_);
  gone.registers("gone");
  diesWithoutAnother();
  database.connection().send(frame(kPing));
  Client further(server_);
  EXPECT_TRUE(further.connection().send(frame(kPing)));
  gone.closes();
  watchingGoesOn();
  EXPECT_TRUE(database.connection().receiveFrame());
  EXPECT_TRUE(further.connection().receiveFrame());
  EXPECT_TRUE(further.knows("db1"));
  EXPECT_TRUE(waitUntil([&] { return !further.knows("gone"); }));
}

TEST_F(Crash, ThreeWithinAMinuteLeaveNothing) {
  Client database(server_);
  database.registers("db1");
  diesOf(SIGKILL);
  diesOf(SIGKILL);
  EXPECT_EQ(database.asks(kPing), kEmptyDictionary);
  diesOf(SIGKILL);
  EXPECT_TRUE(database.connection().isClosedByPeer());
  Upgrading figures(server_);
  EXPECT_FALSE(figures.tool().knows("db1"));
  EXPECT_TRUE(figures.tool().knows("VN_nameserver"));
  EXPECT_EQ(figures.told("crashes"), "3");
  // The one that has started anew goes on after a death, too.
  Client second(server_);
  second.registers("db2");
  diesOf(SIGKILL);
  EXPECT_EQ(second.asks(kPing), kEmptyDictionary);
  EXPECT_TRUE(figures.tool().knows("db2"));
}

TEST_F(Crash, BeforeAndAfterAnUpgradeInPlaceLosesNothing) {
  Client database(server_);
  database.registers("db1");
  Client waits(server_);
  Upgrading upgrading(server_);
  const Pair before = processesOf(server_);
  for (int round = 1; round <= 2; ++round) {
    const pid_t servingBefore = serving();
    EXPECT_EQ(waits.resultOf("awaitPortChanges"), "YES");
    waits.connection().send(frame(request("awaitPortChanges", {{"timeout", "300"}})));
    ASSERT_EQ(upgrading.upgrade(), "") << server_.console();
    const Pair pair = processesOf(server_, servingBefore);
    EXPECT_EQ(pair.watching, before.watching);
    EXPECT_NE(pair.serving, servingBefore);
    EXPECT_EQ(upgrading.told("upgrades"), std::to_string(round));
    Client(server_).registers("other");
    EXPECT_TRUE(waits.connection().receiveFrame()) << "it was held on";
    diesOf(SIGKILL);
    EXPECT_EQ(database.asks(kPing), kEmptyDictionary);
    EXPECT_TRUE(upgrading.tool().knows("db1"));
    EXPECT_EQ(upgrading.told("upgrades"), std::to_string(round));
    EXPECT_EQ(upgrading.told("crashes"), std::to_string(round));
  }
  EXPECT_EQ(timesIn(server_.console(), "starts anew"), 0) << server_.console();
}

TEST_F(Crash, UpgradeThatCannotBeDoneIsPutOffAndLosesNothing) {
  Client database(server_);
  database.registers("db1");
  Upgrading upgrading(server_);
  Client waits(server_);
  EXPECT_EQ(waits.resultOf("awaitPortChanges"), "YES");
  waits.connection().send(frame(request("awaitPortChanges", {{"timeout", "300"}})));
  const std::string partOfPing = frame(kPing);
  Client half(server_);
  half.connection().send(partOfPing.substr(0, 5));
  EXPECT_TRUE(half.connection().staysSilent(20ms));
  upgrading.putScript("#!/bin/sh\necho \"understands $2\"\nrm -f \"$0\"\n");
  const std::string reason = upgrading.upgrade();
  EXPECT_THAT(reason, testing::HasSubstr("cannot be run: No such file"));
  EXPECT_TRUE(server_.complains("the upgrade in place was put off: " + reason));
  EXPECT_EQ(upgrading.told("upgrades"), "0");
  EXPECT_TRUE(upgrading.tool().knows("db1"));
  half.connection().send(partOfPing.substr(5));
  EXPECT_TRUE(half.connection().receiveFrame());
  EXPECT_EQ(database.asks(kPing), kEmptyDictionary);
  EXPECT_TRUE(waits.connection().staysSilent(0ms));
  upgrading.putProgram();
  EXPECT_EQ(upgrading.upgrade(), "");
  EXPECT_TRUE(upgrading.tool().knows("db1"));
  Client(server_).registers("other");
  EXPECT_TRUE(waits.connection().receiveFrame());
}

TEST_F(Crash, SettingIsReadAnewByAnUpgradeInPlace) {
  Client database(server_);
  database.registers("db1");
  Upgrading upgrading(server_);
  const pid_t started = server_.process();
  const auto set = [this](const char* value) {
    server_.setting("SurviveCrashes", value).writeSettings();
  };
  set("NO");
  ASSERT_EQ(upgrading.upgrade(), "");
  EXPECT_EQ(server_.processes(), std::vector{started});
  set("YES");
  ASSERT_EQ(upgrading.upgrade(), "");
  EXPECT_EQ(processesOf(server_).watching, started);
  diesOf(SIGKILL);
  EXPECT_TRUE(upgrading.tool().knows("db1"));
  EXPECT_EQ(database.asks(kPing), kEmptyDictionary);
  // A new start needs nothing of what was handed over, and holds the lock.
  diesOf(SIGKILL);
  diesOf(SIGKILL);
  EXPECT_EQ(server_.process(), started);
  EXPECT_FALSE(Client(server_).knows("db1"));
}

/// Sends requests a byte at a time, one after the other, on a new connection when one is closed.
class SlowSpeaker {
 public:
  explicit SlowSpeaker(const Daemon& server) : thread_([this, &server] { run(server); }) {}
  ~SlowSpeaker() { end(); }
  void end() {
    ends_ = true;
    if (thread_.joinable()) {
      thread_.join();
    }
  }
  [[nodiscard]] bool isWrong() const { return isWrong_; }
  [[nodiscard]] int replies() const { return replies_; }

 private:
  void run(const Daemon& server) {
    const std::string bytes = frame(kPing);
    RawConnection connection = server.rawConnection();
    while (!ends_) {
      for (const char each : bytes) {
        connection.send({&each, 1});
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
      }
      const std::string header = connection.receive(8);
      if (header.empty()) {
        connection = server.rawConnection();
      } else if (header != frameOfBody("")) {
        isWrong_ = true;
        return;
      } else {
        ++replies_;
      }
    }
  }

  std::atomic<bool> ends_ = false;
  std::atomic<bool> isWrong_ = false;
  std::atomic<int> replies_ = 0;
  std::thread thread_;
};

/// Asks for a list again and again and takes little of it, on a new connection when one is closed.
class SlowReader {
 public:
  SlowReader(const Daemon& server, std::string list) : server_(server), list_(std::move(list)) {}

  /// Asks for more than the sockets take.
  void asks() {
    connection_.emplace(server_.rawConnection());
    const int small = 65536;
    setsockopt(connection_->descriptor(), SOL_SOCKET, SO_RCVBUF, &small, sizeof small);
    connection_->send(requests_);
  }
  /// Takes all that comes. Returns false if that is something else, or if something is missing that
  /// is not cut off by the end of the connection.
  [[nodiscard]] bool takesRest() {
    for (int i = 0; i < kLists; ++i) {
      const auto next = connection_->receiveFrame();
      if (!next) {
        return connection_->isClosedByPeer();
      }
      if (next->body != list_) {
        return false;
      }
    }
    return true;
  }

 private:
  static constexpr int kLists = 100;

  static std::string requests() {
    std::string all;
    for (int i = 0; i < kLists; ++i) {
      all += frame(request("databaseStates", {}));
    }
    return all;
  }

  const Daemon& server_;
  const std::string list_;  // the body of the reply
  const std::string requests_ = requests();
  std::optional<RawConnection> connection_;
};

TEST(CrashUnderLoad, CostsOnlyTheConnectionsThatAreAtWork) {
  if (testedSanitizers().find("thread") != std::string::npos) {
    GTEST_SKIP() << kUnknownToThreadSanitizer;
  }
  constexpr int kRegistrations = 1000;
  constexpr int kWatchers = 200;
  constexpr int kWaiting = 20;
  Daemon server;
  const ShiftedClock watchingClock(ShiftedClock::Clock::steadyOfStarted);
  server.setting("SurviveCrashes", "YES");
  watchingClock.launch(server);
  ASSERT_TRUE(server.answers());
  std::vector<std::string> names;
  std::list<Client> databases;
  std::string lastNumber;
  for (int i = 0; i < kRegistrations; ++i) {
    lastNumber =
        databases.emplace_back(server).registers(names.emplace_back("db" + std::to_string(i)));
  }
  Client first(server);
  first.acts("setDatabaseState", {{"databaseName", "db7"}, {"state", std::string(50000, 's')}});
  first.acts("setAlertState", {{"databaseName", "db8"}, {"state", "disk"}});
  const std::string states = first.states();
  const std::string alerts = first.alerts();
  std::list<Client> watchers;
  for (int i = 0; i < kWatchers; ++i) {
    EXPECT_EQ(watchers.emplace_back(server).didPortsChange(), "YES");
  }
  SlowReader slowReader(server, first.connection().ask(request("databaseStates", {}))->body);
  LookupLoad load(server, 50, names, LookupLoad::WhenClosed::comesAnew);
  SlowSpeaker speaker(server);
  std::mt19937 random(7);
  std::vector<std::chrono::microseconds> silences;
  const int number = areTestedWithoutSanitizers() ? 200 : 40;
  for (int death = 1; death <= number; ++death) {
    std::list<Client> waiting;
    for (int i = 0; i < kWaiting; ++i) {
      waiting.emplace_back(server).connection().send(
          frame(request("awaitPortChanges", {{"timeout", "300"}})));
    }
    slowReader.asks();
    std::this_thread::sleep_for(std::chrono::microseconds(random() % 20000));
    watchingClock.setAhead(61L * death);
    static_cast<void>(load.takeLongestSilence());
    const pid_t dying = processesOf(server).serving;
    kill(dying, random() % 2 == 0 ? SIGKILL : signalOfAFault());
    const long before = load.replies();
    // A request that comes earlier may be one of those that the dying process has taken.
    ASSERT_TRUE(
        waitUntil([&] { return !std::filesystem::exists("/proc/" + std::to_string(dying)); }));
    Upgrading figures(server);
    ASSERT_TRUE(waitUntil([&] { return figures.told("crashes") == std::to_string(death); }))
        << server.console();
    ASSERT_TRUE(waitUntil([&] { return load.replies() > before + 200; }));
    silences.push_back(load.takeLongestSilence());
    EXPECT_TRUE(slowReader.takesRest());
    // One that rests since long, and whatever a tool can see of all of them.
    EXPECT_EQ(std::next(databases.begin(), death * 4 % kRegistrations)->asks(kPing),
              kEmptyDictionary);
    ASSERT_EQ(figures.tool().states(), states) << death;
    ASSERT_EQ(figures.tool().alerts(), alerts) << death;
  }
  speaker.end();
  EXPECT_FALSE(speaker.isWrong());
  EXPECT_GT(speaker.replies(), 0);
  EXPECT_EQ(load.end(), "");
  for (Client& each : databases) {
    ASSERT_EQ(each.asks(kPing), kEmptyDictionary);
  }
  for (Client& each : watchers) {
    ASSERT_EQ(each.didPortsChange(), "YES") << "others have come and gone";
  }
  Client last(server);
  for (const std::string& name : names) {
    ASSERT_TRUE(last.knows(name)) << name;
  }
  EXPECT_EQ(Client(server).registers("further"), std::to_string(std::stoi(lastNumber) + 1));
  EXPECT_EQ(timesIn(server.console(), "starts anew"), 0) << server.console();
  std::sort(silences.begin(), silences.end());
  std::cout << number << " deaths, " << load.replies() << " lookups, the longest silence of each: "
            << static_cast<double>(silences[silences.size() / 2].count()) / 1000 << " ms (half), "
            << static_cast<double>(silences.back().count()) / 1000 << " ms (longest)\n";
  if (areTestedWithoutSanitizers()) {
    EXPECT_LT(silences[silences.size() / 2], 200ms);
  }
}

TEST(CrashDuringAnUpgrade, LosesNothing) {
  if (!areTestedWithoutSanitizers()) {
    GTEST_SKIP() << "a sanitizer takes too long for deaths at these moments";
  }
  Daemon server;
  const ShiftedClock watchingClock(ShiftedClock::Clock::steadyOfStarted);
  server.setting("SurviveCrashes", "YES");
  watchingClock.launch(server);
  ASSERT_TRUE(server.answers());
  std::list<Client> databases;
  for (int i = 0; i < 200; ++i) {
    databases.emplace_back(server).registers("db" + std::to_string(i));
  }
  std::mt19937 random(11);
  constexpr int kRounds = 40;
  for (int round = 1; round <= kRounds; ++round) {
    watchingClock.setAhead(61L * round);
    EXPECT_TRUE(waitUntil([&] { return DaemonProcess(processesOf(server).serving).sleeps(); }));
    kill(server.process(), SIGUSR2);
    std::this_thread::sleep_for(std::chrono::microseconds(random() % 60000));
    for (const pid_t each : server.processes()) {
      if (each != server.process()) {
        kill(each, SIGKILL);
      }
    }
    ASSERT_TRUE(server.answers()) << server.console();
    for (Client& each : databases) {
      ASSERT_EQ(each.asks(kPing), kEmptyDictionary) << round << '\n' << server.console();
    }
    ASSERT_TRUE(Client(server).knows("db" + std::to_string(round))) << round;
  }
  EXPECT_EQ(timesIn(server.console(), "starts anew"), 0) << server.console();
}

}  // namespace
}  // namespace sorvane::test
