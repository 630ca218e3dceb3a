// Upgrades in place: the program is replaced in its process, and nobody notices.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <chrono>
#include <iostream>
#include <list>
#include <thread>

#include "integration/DaemonProcess.h"
#include "integration/LookupLoad.h"
#include "integration/Upgrading.h"
#include "integration/WatchedDaemon.h"
#include "platform/TimeSource.h"
#include "support/OwnNamespaces.h"
#include "support/TestedBuild.h"

namespace sorvane::test {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

constexpr int kRegistrations = 1000;
constexpr int kWatchers = 200;
constexpr int kWaiting = 20;

const Message kPing{{"ping", ""}};

/// Sends requests a byte at a time, one after the other, and takes their replies.
class SlowSpeaker {
 public:
  explicit SlowSpeaker(const Daemon& server) : connection_(server.rawConnection()) {}
  ~SlowSpeaker() { end(); }

  void begin() {
    thread_ = std::thread([this] {
      const std::string bytes = frame(kPing);
      while (!ends_) {
        for (const char each : bytes) {
          connection_.send({&each, 1});
          std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        const auto reply = connection_.receiveFrame();
        if (!reply || reply->kind != 1 || !reply->body.empty()) {
          isWrong_ = true;
          return;
        }
        ++replies_;
      }
    });
  }
  void end() {
    ends_ = true;
    if (thread_.joinable()) {
      thread_.join();
    }
  }
  [[nodiscard]] bool isWrong() const { return isWrong_; }
  [[nodiscard]] int replies() const { return replies_; }

 private:
  RawConnection connection_;
  std::atomic<bool> ends_ = false;
  std::atomic<bool> isWrong_ = false;
  std::atomic<int> replies_ = 0;
  std::thread thread_;
};

std::vector<std::string> namesOfDatabases(int count) {
  std::vector<std::string> names;
  for (int i = 0; i < count; ++i) {
    names.push_back("db" + std::to_string(i));
  }
  return names;
}

/// All that a tool can ask about the databases.
Texts pictureOf(Client& tool, const std::vector<std::string>& names) {
  Texts picture{
      {"states", tool.states()}, {"alerts", tool.alerts()}, {"stamp", tool.changeTimestamp()}};
  for (const std::string& name : names) {
    for (const auto& [key, text] : tool.finds(name).value_or(Texts())) {
      picture.emplace_back(name + "." + key, text);
    }
  }
  return picture;
}

TEST(UpgradeInPlace, TwentyInARowUnderLoadLoseNothing) {
  Daemon server;
  server.start();
  const std::vector<std::string> names = namesOfDatabases(kRegistrations);
  std::list<Client> databases;
  int lastNumber = 0;
  for (const std::string& name : names) {
    lastNumber = std::stoi(databases.emplace_back(server).registers(name));
  }
  Upgrading upgrading(server);
  Client& tool = upgrading.tool();
  tool.acts("setDatabaseState", {{"databaseName", "db7"}, {"state", "backup"}});
  tool.acts("setAlertState", {{"databaseName", "db8"}, {"state", "disk"}});
  RawConnection slowReader = server.rawConnection();
  const std::string states = frame(request("databaseStates", {}));
  slowReader.send(states);
  const auto list = slowReader.receiveFrame();
  ASSERT_TRUE(list);
  SlowSpeaker speaker(server);
  LookupLoad load(server, 50, names);
  std::list<Client> watchers;
  for (int i = 0; i < kWatchers; ++i) {
    EXPECT_EQ(watchers.emplace_back(server).didPortsChange(), "YES");
    EXPECT_EQ(watchers.back().didPortsChange(), "NO");
  }
  std::list<RawConnection> waiting;
  for (int i = 0; i < kWaiting; ++i) {
    Client first(server);
    EXPECT_EQ(first.resultOf("awaitPortChanges"), "YES") << "the first time";
    first.connection().send(frame(request("awaitPortChanges", {{"timeout", "300"}})));
    waiting.push_back(std::move(first.connection()));
  }
  // More than the sockets take, so that replies are left over.
  constexpr int kListsAtOnce = 400;
  for (int i = 0; i < kListsAtOnce; ++i) {
    slowReader.send(states);
  }
  const Texts before = pictureOf(tool, names);
  EXPECT_THAT(before[1].second, testing::HasSubstr("disk"));
  const pid_t process = server.process();
  speaker.begin();

  std::chrono::microseconds longest{0};
  constexpr int kUpgrades = 20;
  int listsTaken = 0;
  for (int i = 1; i <= kUpgrades; ++i) {
    static_cast<void>(load.takeLongestSilence());
    ASSERT_EQ(upgrading.upgrade(), "") << server.console();
    EXPECT_EQ(upgrading.upgrades(), i);
    longest = std::max(longest, load.takeLongestSilence());
    for (; listsTaken < kListsAtOnce * i / kUpgrades; ++listsTaken) {
      const auto next = slowReader.receiveFrame();
      ASSERT_TRUE(next) << listsTaken;
      ASSERT_EQ(next->body, list->body) << listsTaken;
    }
  }
  std::cout << "longest silence: " << longest.count() / 1000.0 << " ms with "
            << kRegistrations + kWatchers + kWaiting + 50 << " connections, " << load.replies()
            << " lookups\n";
  EXPECT_LT(longest, areTestedWithoutSanitizers() ? 2s : 10s);

  speaker.end();
  EXPECT_FALSE(speaker.isWrong());
  EXPECT_GT(speaker.replies(), 0);
  EXPECT_EQ(load.end(), "");
  EXPECT_EQ(server.process(), process);
  EXPECT_EQ(pictureOf(tool, names), before);
  for (Client& each : databases) {
    EXPECT_EQ(each.asks(kPing), kEmptyDictionary);
  }
  for (Client& each : watchers) {
    ASSERT_EQ(each.didPortsChange(), "NO");
  }
  for (RawConnection& each : waiting) {
    EXPECT_TRUE(each.staysSilent(std::chrono::milliseconds(0)));
  }
  // The next change reaches everybody, and the numbers go on.
  Client further(server);
  EXPECT_EQ(further.registers("further"), std::to_string(lastNumber + 1));
  for (Client& each : watchers) {
    EXPECT_EQ(each.didPortsChange(), "YES");
  }
  for (RawConnection& each : waiting) {
    const auto reply = each.receiveFrame();
    ASSERT_TRUE(reply);
    EXPECT_EQ(reply->message().text("result"), "YES");
  }
  databases.pop_front();
  EXPECT_TRUE(waitUntil([&] { return !tool.knows("db0"); })) << "it goes with its connection";
}

/// A name server with a database, whose upgrade fails.
class FailingUpgrade : public testing::Test {
 protected:
  void SetUp() override {
    server_.start();
    database_.emplace(server_).registers("db1");
    upgrading_.emplace(server_);
  }
  void expectPutOffBecause(const std::string& text) {
    const std::string reason = upgrading_->upgrade();
    EXPECT_THAT(reason, testing::HasSubstr(text));
    EXPECT_TRUE(server_.complains("the upgrade in place was put off: " + reason));
    EXPECT_TRUE(server_.logs("the upgrade in place was put off: " + reason));
    EXPECT_EQ(upgrading_->upgrades(), 0);
    EXPECT_EQ(database_->asks(kPing), kEmptyDictionary);
    EXPECT_TRUE(upgrading_->tool().knows("db1"));
    EXPECT_TRUE(Client(server_).knows("db1")) << "new connections are accepted";
  }
  void TearDown() override {
    upgrading_->putProgram();
    EXPECT_EQ(upgrading_->upgrade(), "") << "the next one is done";
    EXPECT_TRUE(upgrading_->tool().knows("db1"));
  }

  Daemon server_;
  std::optional<Client> database_;
  std::optional<Upgrading> upgrading_;
};

TEST_F(FailingUpgrade, ToAFileThatIsNoProgram) {
  upgrading_->putScript("this is no program\n");
  expectPutOffBecause("cannot be launched");
}

TEST_F(FailingUpgrade, ToAFileThatIsNotThere) {
  fs::remove(server_.executable());
  expectPutOffBecause("No such file");
}

TEST_F(FailingUpgrade, ToAProgramThatDoesNotUnderstand) {
  upgrading_->putScript("#!/bin/sh\necho \"does not understand $2\"\n");
  expectPutOffBecause("does not understand what this program keeps");
}

TEST_F(FailingUpgrade, ToAProgramThatPrintsMuchAndAnything) {
  upgrading_->putScript("#!/bin/sh\necho first >&2; printf 'a\\tb\\377' >&2; printf %9999s >&2\n");
  expectPutOffBecause("the new program says: a\\x09b\\xff   ");
}

TEST_F(FailingUpgrade, ToAProgramThatDiesWhileItIsAsked) {
  upgrading_->putScript("#!/bin/sh\nkill -KILL $$\n");
  expectPutOffBecause("does not understand what this program keeps");
}

TEST_F(FailingUpgrade, ToAProgramThatHangsWhileItIsAsked) {
  upgrading_->putScript("#!/bin/sh\nexec sleep 1000\n");
  expectPutOffBecause("did not answer in time");
}

TEST_F(FailingUpgrade, ToAProgramThatCannotBeRunAfterItHasAnswered) {
  upgrading_->putScript("#!/bin/sh\necho \"understands $2\"\nrm -f \"$0\"\n");
  expectPutOffBecause("cannot be run: No such file");
}

TEST_F(FailingUpgrade, WithSettingsThatCannotBeRead) {
  const std::string settings = readFile(server_.tree() / "etc/sorvane.conf");
  writeFile(server_.tree() / "etc/sorvane.conf", "Unknown = 1;\nBasePort = many;\n");
  expectPutOffBecause("etc/sorvane.conf:2: BasePort: ");
  writeFile(server_.tree() / "etc/sorvane.conf", settings);
}

TEST_F(FailingUpgrade, WhenWhatIsKeptIsLongerThanAFileMayBe) {
  Client large(server_);
  large.acts("set_userpreferences", {{"key", "anna"}, {"databases", std::string(200000, 'x')}});
  rlimit before{};
  ASSERT_EQ(prlimit(server_.process(), RLIMIT_FSIZE, nullptr, &before), 0);
  const rlimit small{.rlim_cur = 100000, .rlim_max = before.rlim_max};
  ASSERT_EQ(prlimit(server_.process(), RLIMIT_FSIZE, &small, nullptr), 0);
  expectPutOffBecause("what is kept cannot be written: File too large");
  ASSERT_EQ(prlimit(server_.process(), RLIMIT_FSIZE, &before, nullptr), 0);
}

TEST(UpgradeInPlace, KeepsPreferencesThatAFullDiskDidNotTake) {
  inOwnMounts([] {
    Daemon server;
    for (const char* folder : {"Users", "Logs"}) {
      mountSmallDisk(server.tree() / folder, 64);
    }
    server.start();
    Upgrading upgrading(server);
    for (const char* folder : {"Users", "Logs"}) {
      fillDisk(server.tree() / folder);
    }
    const std::string change(9000, 'x');
    upgrading.tool().acts("set_userpreferences", {{"key", "anna"}, {"databases", change}});
    ASSERT_EQ(upgrading.upgrade(), "");
    EXPECT_EQ(upgrading.tool().acts("get_userpreferences", {{"key", "anna"}}),
              (Texts{{"databases", change}}));
    EXPECT_TRUE(server.registers("db1"));
    fs::remove(server.tree() / "Users/filler");
    upgrading.tool().acts("set_userpreferences", {{"key", "bert"}, {"databases", "db1"}});
    EXPECT_THAT(readFile(server.tree() / "Users/SorvPreferences"), testing::HasSubstr(change));
  });
}

TEST(UpgradeInPlace, TellsWhenTheProgramThatServesBegan) {
  const double before = timeIntervalSinceReferenceDate();
  Daemon server;
  server.start();
  Upgrading upgrading(server);
  const double first = std::stod(upgrading.told("begun"));
  EXPECT_GE(first, before);
  EXPECT_LE(first, timeIntervalSinceReferenceDate());
  EXPECT_EQ(upgrading.told("process"), std::to_string(server.process()));
  const double between = timeIntervalSinceReferenceDate();
  ASSERT_EQ(upgrading.upgrade(), "");
  EXPECT_GE(std::stod(upgrading.told("begun")), between);
  EXPECT_EQ(upgrading.told("process"), std::to_string(server.process()));
}

class UpgradeOfAWatchedServer : public SurviveCrashes {};

TEST_F(UpgradeOfAWatchedServer, BeginsAProgramAndADeathDoesNot) {
  server_.start();
  Upgrading upgrading(server_);
  const std::string begun = upgrading.told("begun");
  EXPECT_EQ(upgrading.told("process"), std::to_string(serving()));
  diesOf(SIGKILL);
  EXPECT_EQ(upgrading.told("begun"), begun) << "the next process has the settings of that one";
  EXPECT_EQ(upgrading.told("process"), std::to_string(serving()));
  ASSERT_EQ(upgrading.upgrade(), "");
  EXPECT_GT(std::stod(upgrading.told("begun")), std::stod(begun));
}

TEST(UpgradeInPlace, KeepsTheLockOfTheHost) {
  Daemon server;
  server.start();
  ASSERT_TRUE(server.hasTakenLock());
  Upgrading upgrading(server);
  ASSERT_EQ(upgrading.upgrade(), "");
  EXPECT_TRUE(server.hasTakenLock());
  Program second(server.executable(), {"-noexit"});
  EXPECT_EQ(second.wait(), 0) << "there is one name server on a host";
}

TEST(UpgradeInPlace, LeavesNoDescriptorOfTheOldProgram) {
  Daemon server;
  server.start();
  Upgrading upgrading(server);
  ASSERT_EQ(upgrading.upgrade(), "");
  const int once = DaemonProcess(server.process()).openDescriptors();
  for (int i = 0; i < 3; ++i) {
    ASSERT_EQ(upgrading.upgrade(), "");
  }
  EXPECT_TRUE(waitUntil([&] { return DaemonProcess(server.process()).openDescriptors() == once; }));
  const std::string maps = readFile("/proc/" + std::to_string(server.process()) + "/maps");
  EXPECT_THAT(maps, testing::Not(testing::HasSubstr("sorvinfo-kept"))) << "nor its description";
}

TEST(UpgradeInPlace, IsDoneOnceMoreWhenTheSignalComesInTheMiddle) {
  Daemon server;
  server.start();
  Upgrading upgrading(server);
  fs::copy_file(builtProgram("sorvinfo"), server.tree() / "bin/next");
  upgrading.putScript(
      "#!/bin/sh\nmv \"${0%/*}/next\" \"$0\"\nkill -USR2 $PPID\nexec \"$0\" \"$@\"\n");
  ASSERT_EQ(upgrading.upgrade(), "");
  EXPECT_TRUE(waitUntil([&] { return upgrading.told("upgrades") == "2"; })) << server.console();
}

TEST(UpgradeInPlace, GoesOnAsTheCommandLineSays) {
  Daemon server;
  server.start({"-verbose"});
  Upgrading upgrading(server);
  for (const char* const name : {"first", "second"}) {
    ASSERT_EQ(upgrading.upgrade(), "");
    EXPECT_FALSE(upgrading.tool().knows(name));
    EXPECT_TRUE(server.logs(name)) << "a verbose one logs each lookup";
  }
  EXPECT_EQ(timesIn(server.log(), "succeeded. "), 1) << "the lock is taken once";
}

TEST(UpgradeInPlace, ServesOnInTheBackgroundAfterADetachedStart) {
  Daemon server;
  server.start({});
  const std::vector<pid_t> processes = server.processes();
  ASSERT_EQ(processes.size(), 1U);
  Client tool(server);
  ::kill(processes.front(), SIGUSR2);
  EXPECT_TRUE(waitUntil([&] {
    return tool.resultOf("continuity") != "(none)" &&
           server.log().find("Upgraded in place") != std::string::npos;
  }));
  EXPECT_EQ(server.processes(), processes);
}

TEST(UpgradeInPlace, AsksTheNewProgramWhatItUnderstands) {
  const fs::path program = builtProgram("sorvinfo");
  EXPECT_THAT(run(program, {"-understands", "1"}).output, testing::StartsWith("understands 1\n"));
  for (const char* version : {"0", "2", "1x", "", "-1", "99999999999999999999"}) {
    const Outcome outcome = run(program, {"-understands", version});
    EXPECT_THAT(outcome.output,
                testing::StartsWith("does not understand " + std::string(version) + "\n"));
    EXPECT_EQ(outcome.status, 0);
  }
  EXPECT_THAT(run(program, {"-understands"}).output, testing::StartsWith("does not understand \n"));
}

TEST(UpgradeInPlace, StartsAnewWhenWhatWasKeptIsDamaged) {
  Daemon server;
  server.launch({"-noexit"}, [] { ::setenv("SORVINFO_KEPT", "900", 1); });
  ASSERT_TRUE(server.answers()) << server.console();
  EXPECT_TRUE(server.complains("the name server starts anew"));
  EXPECT_TRUE(server.registers("db1"));
}

}  // namespace
}  // namespace sorvane::test
