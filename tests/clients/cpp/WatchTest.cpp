// A Watch against the real name server, and against scripted ones of other versions.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "clients/cpp/ScriptedNameServer.h"
#include "integration/Daemon.h"
#include "sorvane/client.h"
#include "support/ScriptedPeer.h"
#include "support/WireBytes.h"

namespace sorvane::client {
namespace {

using namespace std::chrono_literals;
using test::entry;
using test::frameOfBody;
using test::frameOfTexts;
using test::RequestTexts;
using test::ScriptedNameServer;
using Clock = std::chrono::steady_clock;
using Texts = std::vector<std::string>;

/// What a watch has told, as lines such as "registered db1 running".
class Told {
 public:
  void add(const std::string& line) {
    const std::lock_guard<std::mutex> hold(mutex_);
    lines_.push_back(line);
    changed_.notify_all();
  }
  /// Waits until it has told this line so many times.
  [[nodiscard]] bool has(const std::string& line, int times = 1) {
    std::unique_lock<std::mutex> hold(mutex_);
    return changed_.wait_for(hold, test::kPatience, [&] {
      return std::count(lines_.begin(), lines_.end(), line) >= times;
    });
  }
  [[nodiscard]] Texts take() {
    const std::lock_guard<std::mutex> hold(mutex_);
    return std::exchange(lines_, {});
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  Texts lines_;
};

class AWatch : public testing::Test {
 protected:
  void watches(int port) {
    NameServer server;
    server.port = static_cast<std::uint16_t>(port);
    Watch::Options options;
    options.pollEvery = 10ms;
    options.onChange = [this](const Change& change) {
      const char* const kinds[] = {"registered ", "changed ", "gone "};
      told_.add(kinds[static_cast<int>(change.kind)] + change.entry.name + " " +
                change.entry.state);
    };
    options.onStatus = [this](const Watch::Status& status) {
      told_.add(status.current ? "current" : "away");
    };
    auto watch = Watch::start(server, options);
    ASSERT_TRUE(watch) << watch.error().reason;
    watch_.emplace(std::move(*watch));
  }

  Told told_;
  std::optional<Watch> watch_;
};

TEST_F(AWatch, FirstTellsWhatIsThereAndThenEachChange) {
  test::Daemon server;
  server.start();
  ASSERT_TRUE(server.registers("db1"));
  watches(server.basePort());
  ASSERT_TRUE(told_.has("current"));
  const Texts first = told_.take();
  ASSERT_EQ(first.size(), 2U);
  EXPECT_TRUE(first[0].starts_with("registered db1"));
  EXPECT_TRUE(watch_->status().current);

  auto client = Client::connect({.port = static_cast<std::uint16_t>(server.basePort())});
  ASSERT_TRUE(client);
  EXPECT_TRUE(client->setState("db1", "starting"));
  EXPECT_TRUE(told_.has("changed db1 starting"));
  server.unregisters("db1");
  EXPECT_TRUE(told_.has("gone db1 starting"));
}

TEST_F(AWatch, TellsTheDifferenceAfterARestart) {
  test::Daemon server;
  server.start();
  Registration::Options options;
  options.name = "db1";
  auto registration =
      Registration::start({.port = static_cast<std::uint16_t>(server.basePort())}, options);
  ASSERT_TRUE(registration && registration->setState("up"));
  ASSERT_TRUE(registration->waitUntilRegistered(test::kPatience));
  ASSERT_TRUE(server.registers("db2"));
  watches(server.basePort());
  ASSERT_TRUE(told_.has("current"));
  static_cast<void>(told_.take());
  server.kill();
  ASSERT_TRUE(told_.has("away"));
  server.start();
  ASSERT_TRUE(told_.has("current"));
  // Which of the two comes back first is left to chance; what is told of db1 comes out even.
  ASSERT_TRUE(test::waitUntil(
      [&] { return registration->status().kind == Registration::Status::Kind::registered; }));
  Texts all = told_.take();
  EXPECT_EQ(std::count_if(all.begin(), all.end(),
                          [](const std::string& line) { return line.starts_with("gone db2"); }),
            1);
  EXPECT_EQ(std::count_if(
                all.begin(), all.end(),
                [](const std::string& line) { return line.find(" db2 ") != std::string::npos; }),
            1);
}

std::string text(const std::string& key, const std::string& value) {
  return entry(key, value + std::string(1, '\0'));
}

/// A reply to "portChanges".
std::string page(const std::string& sequence, bool restart, const std::string& rows,
                 bool more = false) {
  return frameOfBody(text("instance", "i") + text("sequence", sequence) +
                     text("more", more ? "YES" : "NO") + text("restart", restart ? "YES" : "NO") +
                     rows);
}

std::string row(int place, const std::string& name, const std::string& state) {
  return entry(std::to_string(place), text("name", name) + text("portStatus", state));
}

/// A name server whose registry is two lists, which the test replaces. It tells changes and holds
/// requests as far as it is told.
struct Script {
  bool hasPages = true;
  bool hasWaits = true;
  std::atomic<int> version = 1;  // the lists' version; a change is a new one

  std::string operator()(const RequestTexts& request) {
    const std::string action = request.contains("action") ? request.at("action") : "";
    if (action == "portChanges" && hasPages) {
      const bool fresh = !request.contains("since");
      if (version == 1)
        return page("1", fresh, fresh ? row(0, "db1", "a") + row(1, "db2", "a") : "");
      return page("2", fresh, row(0, "db1", "b"));
    }
    if (action == "databaseStates") {
      return frameOfTexts(
          {{"result", version == 1 ? "db1:a|db2:a" : "db1:b|db2:a"}, {"alerts", ""}});
    }
    if (request.contains("findPort")) {
      return frameOfTexts({{"portNumber", "20300"}, {"portName", request.at("findPort")}});
    }
    if (action == "didPortsChange" || (action == "awaitPortChanges" && hasWaits)) {
      const bool changed = told != version;
      told = version;
      return frameOfTexts({{"result", changed ? "YES" : "NO"}});
    }
    return frameOfBody("");
  }
  int told = 0;
};

class AWatchOf : public AWatch, public testing::WithParamInterface<std::pair<bool, bool>> {};

TEST_P(AWatchOf, ANameServerWithOrWithoutPagesAndWaits) {
  auto script = std::make_shared<Script>();
  std::tie(script->hasPages, script->hasWaits) = GetParam();
  ScriptedNameServer server([script](const RequestTexts& request) { return (*script)(request); });
  watches(server.port());
  ASSERT_TRUE(told_.has("current"));
  EXPECT_EQ(told_.take(), (Texts{"registered db1 a", "registered db2 a", "current"}));
  script->version = 2;
  ASSERT_TRUE(told_.has("changed db1 b"));
  EXPECT_EQ(told_.take(), Texts{"changed db1 b"});
  EXPECT_EQ(server.timesAsked("didPortsChange") > 0, !script->hasWaits);
  EXPECT_EQ(server.timesAsked("databaseStates") > 0, !script->hasPages);
}

INSTANTIATE_TEST_SUITE_P(Versions, AWatchOf,
                         testing::Values(std::pair(true, true), std::pair(true, false),
                                         std::pair(false, true), std::pair(false, false)));

TEST_F(AWatch, GoesOnWhereItWasWhenOnlyTheConnectionWasLost) {
  auto script = std::make_shared<Script>();
  ScriptedNameServer server([script](const RequestTexts& request) { return (*script)(request); });
  watches(server.port());
  ASSERT_TRUE(told_.has("current"));
  static_cast<void>(told_.take());
  script->version = 2;
  server.hangUp();
  ASSERT_TRUE(told_.has("changed db1 b"));
  for (const std::string& line : told_.take()) {
    EXPECT_TRUE(line == "away" || line == "current" || line == "changed db1 b") << line;
  }
}

TEST_F(AWatch, TakesPagesUntilThereAreNoMore) {
  int asked = 0;
  ScriptedNameServer server([&](const RequestTexts& request) {
    if (request.at("action") == "awaitPortChanges") {
      return ++asked == 1 ? frameOfTexts({{"result", "YES"}}) : std::string();
    }
    const std::string since = request.contains("since") ? request.at("since") : "0";
    return since == "0" ? page("1", true, row(0, "db1", ""), true)
                        : page("2", false, row(0, "db2", ""));
  });
  watches(server.port());
  ASSERT_TRUE(told_.has("current"));
  EXPECT_EQ(told_.take(), (Texts{"registered db1 ", "registered db2 ", "current"}));
}

TEST_F(AWatch, DoesNotAskANameServerForEverThatTellsNothing) {
  ScriptedNameServer server([](const RequestTexts& request) {
    return request.at("action") == "portChanges" ? page("1", true, "", true)
                                                 : frameOfTexts({{"result", "YES"}});
  });
  watches(server.port());
  ASSERT_TRUE(told_.has("away"));
  EXPECT_EQ(server.timesAsked("portChanges"), 1);
  EXPECT_FALSE(watch_->status().current);
  EXPECT_NE(watch_->status().reason, "");
}

TEST_F(AWatch, DoesNotFloodANameServerThatAlwaysSaysYes) {
  ScriptedNameServer server([](const RequestTexts& request) {
    return request.at("action") == "portChanges" ? page("1", false, "")
                                                 : frameOfTexts({{"result", "YES"}});
  });
  watches(server.port());
  const auto begin = Clock::now();
  ASSERT_TRUE(server.isAsked("portChanges", 6));
  EXPECT_GE(Clock::now() - begin, 45ms);
}

TEST_F(AWatch, DoesNotFloodANameServerThatAlwaysSaysNo) {
  ScriptedNameServer server([](const RequestTexts&) { return frameOfTexts({{"result", "NO"}}); });
  watches(server.port());
  const auto begin = Clock::now();
  ASSERT_TRUE(server.isAsked("awaitPortChanges", 6));
  EXPECT_GE(Clock::now() - begin, 45ms);
}

TEST_F(AWatch, EndsAtOnceWhileItsRequestIsHeld) {
  ScriptedNameServer server([](const RequestTexts&) { return std::string(); });
  watches(server.port());
  ASSERT_TRUE(server.isAsked("awaitPortChanges"));
  const auto begin = Clock::now();
  watch_.reset();
  EXPECT_LT(Clock::now() - begin, 100ms);
}

TEST_F(AWatch, MayBeDestroyedByItsOwnCallback) {
  auto script = std::make_shared<Script>();
  ScriptedNameServer server([script](const RequestTexts& request) { return (*script)(request); });
  std::mutex mutex;
  std::optional<Watch> watch;
  std::atomic<int> calls = 0;
  Watch::Options options;
  options.onChange = [&](const Change&) {
    const std::lock_guard<std::mutex> hold(mutex);
    watch.reset();
    ++calls;
  };
  options.onStatus = [&](const Watch::Status&) { ++calls; };
  {
    const std::lock_guard<std::mutex> hold(mutex);
    auto made = Watch::start({.port = static_cast<std::uint16_t>(server.port())}, options);
    ASSERT_TRUE(made);
    watch.emplace(std::move(*made));
  }
  // The first of two databases is told, and nothing after it. Both connections end then.
  ASSERT_TRUE(test::waitUntil([&] { return calls > 0 && server.connections() == 0; }));
  EXPECT_EQ(calls, 1);
  const std::lock_guard<std::mutex> hold(mutex);
  EXPECT_FALSE(watch);
}

TEST(WatchOptions, NeedSomebodyToTell) {
  EXPECT_EQ(Watch::start({}, {}).error().code, ErrorCode::invalidArgument);
}

}  // namespace
}  // namespace sorvane::client
