// What goes on while a disk hangs: the log's, that of the preferences, or both.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <thread>
#include <vector>

#include "integration/Daemon.h"
#include "integration/Upgrading.h"

namespace sorvane::test {
namespace {

namespace fs = std::filesystem;

/// More than there are threads that wait for anything.
constexpr int kWaiting = 20;

const Message kChange{{"action", "set_userpreferences"}, {"key", "anna"}, {"databases", "db1"}};

/// A request that raises. What is logged of it is longer than the pipe takes.
Message failingRequest() { return {{"findPort", std::string(8192, 'x')}}; }

/// A name server whose log is a pipe that is read when the test likes, and whose preferences take
/// as long to flush as the test likes: see preload/SlowDisk.cpp.
class HangingDisk : public testing::Test {
 protected:
  void starts(const std::string& word = "-noexit") {
    const fs::path log = server_.tree() / "Logs/infoserver_log";
    ASSERT_EQ(mkfifo(log.c_str(), 0600), 0);
    log_ = open(log.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
    ASSERT_GE(log_, 0);
    ASSERT_GT(fcntl(log_, F_SETPIPE_SZ, 4096), 0);
    server_.setting("Threads", "1");
    server_.launch({word}, [gate = gate_.string()] {
      ::setenv("LD_PRELOAD", SORVANE_BINARY_DIR "/tests/libslow_disk.so", 1);
      ::setenv("ASAN_OPTIONS", "verify_asan_link_order=0", 1);
      ::setenv("SLOW_DISK_GATE", gate.c_str(), 1);
    });
    ASSERT_TRUE(server_.answers());
  }
  ~HangingDisk() override { close(log_); }

  /// From now on that many connections wait for the disk of the preferences.
  void preferencesHang() {
    writeFile(gate_, "");
    send(changes_, kChange);
    ASSERT_TRUE(comesToHold(gate_.string() + ".waiting", "waiting"));
  }
  /// From now on that many connections wait for the log.
  void logHangs(const Message& request = failingRequest()) {
    send(logged_, request);
    ASSERT_TRUE(waitUntil([this] { return logIsFull(); }));
  }

  void expectThatTheOthersAreServed() {
    for (int i = 0; i < 10; ++i) {
      const std::string name = "db" + std::to_string(i);
      ASSERT_TRUE(server_.registers(name));
      EXPECT_TRUE(server_.finds(name));
      ASSERT_TRUE(server_.ask({{"action", "hostInfo"}}));
      const auto states = server_.ask({{"action", "databaseStates"}});
      ASSERT_TRUE(states);
      EXPECT_NE(states->text("result")->find(name), std::string::npos);
      const auto changed =
          server_.ask({{"action", "setDatabaseState"}, {"databaseName", name}, {"state", "s"}});
      ASSERT_TRUE(changed);
      EXPECT_EQ(changed->text("result"), "success");
      server_.unregisters(name);
    }
    for (RawConnection& each : changes_) {
      ASSERT_TRUE(each.staysSilent(std::chrono::milliseconds(0))) << "the disk did not hang";
    }
    for (RawConnection& each : logged_) {
      ASSERT_TRUE(each.staysSilent(std::chrono::milliseconds(0))) << "the log did not hang";
    }
  }

  void releaseDisks() {
    fs::remove(gate_);
    for (RawConnection& each : changes_) {
      const auto reply = each.receiveFrame();
      ASSERT_TRUE(reply);
      EXPECT_EQ(reply->message().text("result"), "succeed");
    }
    EXPECT_TRUE(waitUntil([this] {
      readLog();
      return timesIn(logText_, std::string(8192, 'x')) == std::ssize(logged_);
    })) << "an entry is lost";
    for (RawConnection& each : logged_) {
      EXPECT_TRUE(each.receiveFrame());
    }
  }

  Daemon server_;

 private:
  void send(std::vector<RawConnection>& connections, const Message& request) {
    for (int i = 0; i < kWaiting; ++i) {
      connections.push_back(server_.rawConnection());
      ASSERT_TRUE(connections.back().send(frame(request)));
    }
  }
  [[nodiscard]] bool logIsFull() const {
    pollfd question{log_, POLLOUT, 0};
    return poll(&question, 1, 0) == 0;
  }
  void readLog() {
    char bytes[65536];
    ssize_t length = 0;
    while ((length = read(log_, bytes, sizeof bytes)) > 0) {
      logText_.append(bytes, static_cast<std::size_t>(length));
    }
  }

  const TemporaryFolder folder_;
  const fs::path gate_ = folder_ / "gate";
  int log_ = -1;
  std::string logText_;
  std::vector<RawConnection> changes_;
  std::vector<RawConnection> logged_;
};

TEST_F(HangingDisk, OfThePreferencesDelaysNoOtherCommand) {
  starts();
  preferencesHang();
  expectThatTheOthersAreServed();
  releaseDisks();
}

TEST_F(HangingDisk, OfTheLogDelaysNoCommandThatWritesNothingThere) {
  starts();
  logHangs();
  expectThatTheOthersAreServed();
  releaseDisks();
}

TEST_F(HangingDisk, OfEitherKindDelaysNobodyWhoNeedsNone) {
  starts();
  logHangs();
  preferencesHang();
  expectThatTheOthersAreServed();
  releaseDisks();
}

TEST_F(HangingDisk, OfTheLogDelaysNoPreferences) {
  starts();
  logHangs();
  const auto changed = server_.ask(kChange);
  ASSERT_TRUE(changed);
  EXPECT_EQ(changed->text("result"), "succeed");
  const auto read = server_.ask({{"action", "get_userpreferences"}, {"key", "anna"}});
  ASSERT_TRUE(read);
  EXPECT_EQ(read->text("databases"), "db1");
  releaseDisks();
}

TEST_F(HangingDisk, PutsAnUpgradeInPlaceOffAndLosesNothing) {
  starts();
  ASSERT_TRUE(server_.registers("db0"));
  Upgrading upgrading(server_);
  preferencesHang();
  logHangs();
  EXPECT_EQ(upgrading.upgrade(), "a request has waited for a lock or a disk for too long");
  EXPECT_TRUE(server_.finds("db0"));
  server_.unregisters("db0");
  expectThatTheOthersAreServed();
  releaseDisks();
  EXPECT_EQ(upgrading.upgrade(), "");
}

TEST_F(HangingDisk, ThatWorksAgainInTimeDelaysAnUpgradeInPlace) {
  starts();
  Upgrading upgrading(server_);
  preferencesHang();
  std::thread release([this] {
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    releaseDisks();
  });
  EXPECT_EQ(upgrading.upgrade(), "");
  release.join();
}

TEST_F(HangingDisk, OfTheLogOfAVerboseServerDelaysSearchesAlone) {
  starts("-verbose");
  logHangs({{"findPort", std::string(8192, 'x')}, {"portHost", "h"}});
  for (int i = 0; i < 10; ++i) {
    ASSERT_TRUE(server_.registers("db" + std::to_string(i)));
    ASSERT_TRUE(server_.ask({{"action", "databaseStates"}}));
  }
  releaseDisks();
}

}  // namespace
}  // namespace sorvane::test
