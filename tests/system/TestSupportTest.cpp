// The tests' own means: what all other tests rely on.
#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <filesystem>
#include <future>
#include <thread>

#include "platform/Console.h"
#include "platform/NetService.h"
#include "platform/Settings.h"
#include "platform/TimeSource.h"
#include "platform/VNHost.h"
#include "platform/bonjour/scripted/ScriptedServiceDiscovery.h"
#include "support/ConsoleLines.h"
#include "support/ForkedPart.h"
#include "support/ProcessState.h"
#include "support/TestFiles.h"
#include "support/WatchedThread.h"
#include "system/ProcessInfo.h"
#include "system/Processes.h"

namespace sorvane::test {
namespace {

mode_t currentMask() {
  const mode_t mask = umask(0);
  umask(mask);
  return mask;
}

long secondsEastOfGreenwich() {
  const time_t now = 0;
  tm local{};
  localtime_r(&now, &local);
  return local.tm_gmtoff;
}

// Every test program does this after each of its tests.
TEST(ResetProcessState, PutsBackWhatATestHasChanged) {
  const mode_t mask = currentMask();
  const long zone = secondsEastOfGreenwich();
  const std::filesystem::path folder = std::filesystem::current_path();
  const ProcessInfo& system = ProcessInfo::processInfo();
  const std::string processID = VN_processID();
  class OtherSystem : public ProcessInfo {
  } otherSystem;

  Settings settings;
  settings.basePort = 4711;
  settings.hostName = "other";
  Settings::replaceForTest(settings);
  VNHost::resetForTest();
  ASSERT_EQ(VNHost::currentHost().name(), "other");
  ProcessInfo::replaceForTest(&otherSystem);
  resetProcessIDForTest();
  ASSERT_NE(VN_processID(), processID);
  ScriptedServiceDiscovery network;
  ServiceDiscovery::replaceForTest(&network);
  setConsoleSink([](std::string_view) {});
  setTimeSource([] { return 1.0; });
  moveToTimeZone("EAST-3");
  ASSERT_NE(secondsEastOfGreenwich(), zone);
  umask(mask ^ 077);
  std::filesystem::current_path("/");

  resetProcessState();
  EXPECT_EQ(Settings::current().basePort, Settings().basePort);
  EXPECT_NE(VNHost::currentHost().name(), "other");
  EXPECT_EQ(&ProcessInfo::processInfo(), &system);
  EXPECT_EQ(VN_processID(), processID);
  EXPECT_NE(outputOfPart([] { consoleLine("seen"); }).errors, "");
  EXPECT_NE(timeIntervalSinceReferenceDate(), 1.0);
  inOwnProcess([] {  // since looking at it starts a thread
    EXPECT_EQ(&ServiceDiscovery::current(), &ServiceDiscovery::ofPlatform());
  });
  EXPECT_EQ(secondsEastOfGreenwich(), zone);
  EXPECT_EQ(currentMask(), mask);
  EXPECT_EQ(std::filesystem::current_path(), folder);
}

TEST(ForkedPart, EndsWith0UnlessAnExpectationFailsInIt) {
  EXPECT_EQ(ForkedPart([] {}).wait(), 0);
  EXPECT_EQ(outputOfPart([] { EXPECT_EQ(1, 2); }).status, 1);
  EXPECT_EQ(outputOfPart([] { throw std::runtime_error("raised"); }).status, 1);
  EXPECT_EQ(ForkedPart([] { _exit(7); }).wait(), 7);
  EXPECT_EQ(ForkedPart([] { raise(SIGKILL); }).wait(), -SIGKILL);
}

TEST(ForkedPart, IsHeardWhileItRunsAndEndsWithItsObject) {
  pid_t process = 0;
  {
    ForkedPart part([](const ForkedPart& self) {
      self.tell(3);
      self.tell(200);
      pause();
    });
    EXPECT_EQ(part.hear(), 3);
    EXPECT_EQ(part.hear(), 200);
    EXPECT_EQ(part.wait(std::chrono::milliseconds(0)), std::nullopt);
    process = part.process();
  }
  EXPECT_EQ(kill(process, 0), -1);
  EXPECT_EQ(ForkedPart([](const ForkedPart& /*self*/) {}).hear(), std::nullopt);
}

TEST(InOwnProcess, FailsTheTestWhenItsPartFails) {
  inOwnProcess([] {});
  EXPECT_NONFATAL_FAILURE(inOwnProcess([] { _exit(1); }), "in a process of its own failed");
}

TEST(OutputOfPart, KeepsBothOutputsApart) {
  const PartEnd part = outputOfPart([] {
    printf("%s", std::string(100000, 'o').c_str());
    fprintf(stderr, "error");
  });
  EXPECT_EQ(part.output, std::string(100000, 'o'));
  EXPECT_EQ(part.errors, "error");
  EXPECT_EQ(part.status, 0);
}

TEST(ConsoleLines, AreCollectedFromAnyThread) {
  const ConsoleLines console;
  std::thread writing([] { consoleLine("one\ntwo"); });
  EXPECT_TRUE(console.hold("two"));
  writing.join();
  EXPECT_EQ(console.all(), (std::vector<std::string>{"one", "two"}));
  EXPECT_EQ(console.count("o"), 2);
}

TEST(TimesIn, CountsWhatStandsOneAfterTheOther) {
  EXPECT_EQ(timesIn("", "a"), 0);
  EXPECT_EQ(timesIn("aba", "a"), 2);
  EXPECT_EQ(timesIn("aaaa", "aa"), 2);
}

TEST(WithoutProgramName, TakesItFromEachLineAndFailsWhereThereIsNone) {
  EXPECT_EQ(withoutProgramName("name[12]: one\nname[3]: a[4]: b\n"), "one\na[4]: b\n");
  EXPECT_EQ(withoutProgramName(""), "");
  EXPECT_NONFATAL_FAILURE(static_cast<void>(withoutProgramName("one\n")), "one");
}

TEST(ComesToHold, WaitsForAFileThatIsWrittenMeanwhile) {
  const TemporaryFolder folder;
  std::promise<void> end;
  WatchedThread waiting([&] {
    EXPECT_TRUE(comesToHold(folder / "file", "text", 2));
    end.set_value();
  });
  EXPECT_TRUE(waiting.comesToAWait()) << "it waits for the file";
  writeFile(folder / "file", "text");
  EXPECT_TRUE(waiting.comesToAWait()) << "it waits for the second text";
  writeFile(folder / "file", "text and text");
  EXPECT_EQ(end.get_future().wait_for(kPatience), std::future_status::ready);
}

TEST(ComesToHold, IsFalseWithoutAFolder) {
  const TemporaryFolder folder;
  EXPECT_FALSE(comesToHold(folder / "missing" / "file", ""));
}

TEST(WatchedThread, IsNotSeenWaitingWhenItGetsThrough) {
  const WatchedThread thread([] {});
  EXPECT_FALSE(thread.comesToAWait());
}

}  // namespace
}  // namespace sorvane::test
