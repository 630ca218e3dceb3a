#include <errno.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <string>
#include <thread>

#include "platform/NSException.h"
#include "platform/Settings.h"
#include "platform/VNHost.h"
#include "support/ForkedPart.h"
#include "support/TestFiles.h"
#include "support/WatchedThread.h"
#include "system/ProcessInfo.h"
#include "system/Processes.h"
#include "system/Streams.h"

namespace sorvane {
namespace {

/// A host with names of the test's choice.
class HostNames : public testing::Test {
 protected:
  class FakeSystem : public ProcessInfo {
   public:
    [[nodiscard]] std::string hostName() const override { return name; }
    [[nodiscard]] std::string globallyUniqueString(const std::string& host) const override {
      ++asked;
      return ProcessInfo::globallyUniqueString(host);
    }
    std::string name;
    mutable std::atomic<int> asked{0};
  };

  void SetUp() override { ProcessInfo::replaceForTest(&system_); }

  /// The name that the host object has, and the one that the system has.
  void hostIsNamed(const std::string& hostObject, const std::string& system = "") {
    Settings settings;
    settings.hostName = hostObject;
    Settings::replaceForTest(settings);
    VNHost::resetForTest();
    system_.name = system;
  }

  static std::string hostName() {
    char buffer[300] = "";
    VN_hostName(buffer, sizeof buffer);
    return buffer;
  }

  FakeSystem system_;
};

TEST_F(HostNames, TheHostObjectComesFirst) {
  hostIsNamed("desk", "other");
  EXPECT_EQ(hostName(), "desk");
}

TEST_F(HostNames, TheSystemComesSecond) {
  hostIsNamed("", "other");
  EXPECT_EQ(hostName(), "other");
}

TEST_F(HostNames, WithNoNameFromEitherItIsLocalhost) {
  hostIsNamed("", "");
  char buffer[12];
  memset(buffer, '#', sizeof buffer);
  VN_hostName(buffer, 11);
  EXPECT_STREQ(buffer, "localhost");
  EXPECT_EQ(buffer[11], '#');
}

TEST_F(HostNames, ANameThatFillsTheBufferHasNoTerminator) {
  hostIsNamed("abcdef");
  for (const int length : {7, 6, 4, 0, -1}) {
    std::string buffer(10, '#');
    VN_hostName(buffer.data(), length);
    std::string expected = std::string("abcdef").substr(0, std::max(length, 0));
    if (length > 6) expected += '\0';
    expected.resize(10, '#');
    EXPECT_EQ(buffer, expected) << length;
  }
}

TEST_F(HostNames, TheSystemsOwnIsThatOfTheKernel) {
  ProcessInfo::replaceForTest(nullptr);
  char name[256] = "";
  ASSERT_EQ(gethostname(name, sizeof name - 1), 0);
  EXPECT_EQ(ProcessInfo::processInfo().hostName(), name);
}

TEST_F(HostNames, TheProcessIDIsTheNameAndTheProcessNumber) {
  const std::string number = "_" + std::to_string(getpid());
  for (const std::string& name : {std::string("desk"), std::string("desk_of_the_house"),
                                  std::string("_"), std::string(90, '_')}) {
    hostIsNamed(name);
    resetProcessIDForTest();
    EXPECT_EQ(VN_processID(), name + number);
  }
  hostIsNamed("");
  resetProcessIDForTest();
  EXPECT_EQ(VN_processID(), "localhost" + number);
}

TEST_F(HostNames, TheProcessIDHasTheFirst100BytesOfALongName) {
  hostIsNamed(std::string(100, 'x') + "y_z");
  EXPECT_EQ(VN_processID(), std::string(100, 'x') + "_" + std::to_string(getpid()));
}

TEST_F(HostNames, TheProcessIDIsAskedForOnce) {
  hostIsNamed("desk");
  const char* first = VN_processID();
  hostIsNamed("other");
  EXPECT_EQ(VN_processID(), first);
  EXPECT_EQ(system_.asked, 1);
}

TEST_F(HostNames, TheProcessIDIsAskedForOnceByThreadsTogether) {
  hostIsNamed("desk");
  std::thread first([] { static_cast<void>(VN_processID()); });
  std::thread second([] { static_cast<void>(VN_processID()); });
  first.join();
  second.join();
  EXPECT_EQ(system_.asked, 1);
}

TEST(ProcessInfo, UniqueStringsDiffer) {
  const ProcessInfo& info = ProcessInfo::processInfo();
  EXPECT_NE(info.globallyUniqueString("desk"), info.globallyUniqueString("desk"));
}

using Clock = std::chrono::steady_clock;

TEST(Sleep, GoesOnAfterASignal) {
  const auto start = Clock::now();
  test::WatchedThread sleeper([] { VN_sleep(1); });
  sleeper.interrupt();
  sleeper.interrupt();
  sleeper.join();
  EXPECT_GE(Clock::now() - start, std::chrono::seconds(1));
}

TEST(Sleep, OfNoTimeOrLessReturnsAtOnce) {
  const auto start = Clock::now();
  VN_sleep(0);
  VN_sleep(-1000);
  EXPECT_LT(Clock::now() - start, std::chrono::seconds(10));
}

class Launch : public testing::Test {
 protected:
  /// A program made of shell `lines`.
  std::string program(const std::string& lines) {
    const std::string path = (folder_ / "program").string();
    test::writeFile(path, "#!/bin/sh\ncd '" + folder_.path().string() + "'\n" + lines);
    chmod(path.c_str(), 0700);
    return path;
  }

  test::TemporaryFolder folder_;
};

TEST_F(Launch, StartsTheProgramWithoutArgumentsAndTellsItsNumber) {
  const auto task = QB_launch(program("echo $$ $# > result").c_str());
  task->waitUntilExit();
  EXPECT_FALSE(task->isRunning());
  EXPECT_EQ(test::readFile(folder_ / "result"), std::to_string(task->processIdentifier()) + " 0\n");
}

TEST_F(Launch, DoesNotWaitForTheProgram) {
  ASSERT_EQ(mkfifo((folder_ / "gate").c_str(), 0600), 0);
  const auto task = QB_launch(program("read line < gate").c_str());
  EXPECT_TRUE(task->isRunning());
  FILE* gate = VN_fopen((folder_ / "gate").c_str(), "w");
  fputs("go\n", gate);
  VN_fclose(gate);
  task->waitUntilExit();
  EXPECT_FALSE(task->isRunning());
}

TEST_F(Launch, OfWhatIsNoProgramRaises) {
  test::writeFile(folder_ / "text", "no program");
  EXPECT_THROW(static_cast<void>(QB_launch((folder_ / "missing").c_str())), NSException);
  EXPECT_THROW(static_cast<void>(QB_launch((folder_ / "text").c_str())), NSException);
}

TEST_F(Launch, WithoutAThreadRaisesAndStartsNothing) {
  test::inOwnProcess([this] {
    const std::string path = program("exit 0");
    // No thread can have so large a stack.
    pthread_attr_t attributes;
    ASSERT_EQ(pthread_getattr_default_np(&attributes), 0);
    ASSERT_EQ(pthread_attr_setstacksize(&attributes, std::size_t{1} << 46), 0);
    ASSERT_EQ(pthread_setattr_default_np(&attributes), 0);
    EXPECT_THROW(static_cast<void>(QB_launch(path.c_str())), NSException);
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);
    EXPECT_EQ(errno, ECHILD) << "a program was started";
  });
}

TEST_F(Launch, LeavesNoDeadProcessBehind) {
  const int number = QB_launch(program("exit 3").c_str())->processIdentifier();
  EXPECT_TRUE(test::waitUntil([&] { return kill(number, 0) != 0 && errno == ESRCH; }));
}

TEST_F(Launch, WorksWhereEndedChildrenAreReapedByTheSystem) {
  test::inOwnProcess([this] {
    signal(SIGCHLD, SIG_IGN);
    const auto task = QB_launch(program("echo done > result").c_str());
    task->waitUntilExit();
    EXPECT_EQ(test::readFile(folder_ / "result"), "done\n");
  });
}

TEST_F(Launch, GivesTheProgramNoneOfTheDescriptorsAndSignals) {
  test::inOwnProcess([this] {
    signal(SIGHUP, SIG_IGN);
    ASSERT_GE(dup2(0, 77), 0);
    QB_launch(program("ls /proc/$$/fd > result; grep SigIgn /proc/$$/status >> result").c_str())
        ->waitUntilExit();
    const std::string result = test::readFile(folder_ / "result");
    EXPECT_EQ(result.find("77"), std::string::npos) << result;
    const std::size_t ignored = result.find("SigIgn:\t") + strlen("SigIgn:\t");
    const auto signals = std::stoull(result.substr(ignored, 16), nullptr, 16);
    EXPECT_EQ(signals & (1U << (SIGHUP - 1)), 0U) << result;
  });
}

TEST_F(Launch, SystemRunsTheCommandAndWaitsForIt) {
  const std::string result = (folder_ / "result").string();
  EXPECT_EQ(QB_system(("echo $((6*7)) > '" + result + "'; exit 5").c_str()), 0);
  EXPECT_EQ(test::readFile(result), "42\n");
}

TEST_F(Launch, SystemHoldsTheSystemLock) {
  const std::string gate = (folder_ / "gate").string();
  ASSERT_EQ(mkfifo(gate.c_str(), 0600), 0);
  VN_rclose(-1);  // makes the lock
  std::atomic<bool> ended = false;
  test::WatchedThread command([&] {
    QB_system(("read line < '" + gate + "'").c_str());
    ended = true;
  });
  ASSERT_TRUE(test::waitUntil([] {
    const bool free = pthread_mutex_trylock(systemLock) == 0;
    if (free) {
      pthread_mutex_unlock(systemLock);
    }
    return !free;
  }));
  std::atomic<bool> opened = false;
  test::WatchedThread opener([&] {
    VN_rclose(VN_ropen((folder_ / "file").c_str()));
    opened = true;
  });
  EXPECT_TRUE(opener.comesToAWait());
  EXPECT_FALSE(ended);
  EXPECT_FALSE(opened);
  FILE* stream = fopen(gate.c_str(), "w");  // not by the wrapper, which would wait
  ASSERT_NE(stream, nullptr);
  EXPECT_FALSE(opened);
  fputs("go\n", stream);
  fclose(stream);
  command.join();
  opener.join();
  EXPECT_TRUE(opened);
}

}  // namespace
}  // namespace sorvane
