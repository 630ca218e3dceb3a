#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "daemon/Log.h"
#include "platform/Settings.h"
#include "support/ConsoleLines.h"
#include "support/OwnNamespaces.h"
#include "support/TestFiles.h"
#include "system/Streams.h"

namespace sorvane {
namespace {

/// A run of the daemon in an installation folder of the test's own, as far as its log is concerned.
class Log : public testing::Test {
 protected:
  void SetUp() override {
    Settings settings;
    settings.installationDirectory = folder_.path().string();
    Settings::replaceForTest(settings);
    std::filesystem::create_directory(folder_ / "Logs");
  }
  void TearDown() override { runEnds(); }

  static void runEnds() {
    if (nameserverlog != nullptr) {
      VN_fclose(nameserverlog);
      nameserverlog = nullptr;
    }
  }

  [[nodiscard]] std::filesystem::path file() const { return folder_ / "Logs/infoserver_log"; }

  const test::ConsoleLines console_;
  test::TemporaryFolder folder_;
};

TEST_F(Log, LiesInTheFolderLogsOfTheInstallation) {
  openLog();
  EXPECT_EQ(nameserverLogFile, file());
  EXPECT_TRUE(std::filesystem::exists(file()));
}

TEST_F(Log, HasEachEntryAndALineFeedOnDiskWhenTheCallReturns) {
  openLog();
  printToLog("first");
  EXPECT_EQ(test::readFile(file()), "first\n");
  printToLog("");
  printToLog("ends in one\n");
  EXPECT_EQ(test::readFile(file()), "first\n\nends in one\n\n");
}

TEST_F(Log, TakesTextsAsTheyStand) {
  openLog();
  const std::string longText(100000, 'x');
  printToLog("100%s %n \xC3\xA4");
  printToLog(longText.c_str());
  EXPECT_EQ(test::readFile(file()), "100%s %n \xC3\xA4\n" + longText + "\n");
}

TEST_F(Log, OfASecondRunFollowsThatOfTheFirst) {
  for (const char* run : {"first run", "second run"}) {
    openLog();
    printToLog(run);
    runEnds();
  }
  EXPECT_EQ(test::readFile(file()), "first run\nsecond run\n");
}

TEST_F(Log, WithoutItsFolderIsNoneAndCostsOneConsoleLine) {
  std::filesystem::remove(folder_ / "Logs");
  openLog();
  EXPECT_EQ(nameserverlog, nullptr);
  EXPECT_EQ(console_.all(), std::vector<std::string>{"Could not open nameserver log file"});
  printToLog("dropped");
  EXPECT_FALSE(std::filesystem::exists(folder_ / "Logs"));
  EXPECT_EQ(console_.all().size(), 1U);
}

TEST_F(Log, WhereAFolderHasItsNameIsNone) {
  std::filesystem::create_directory(file());
  openLog();
  EXPECT_EQ(nameserverlog, nullptr);
}

TEST_F(Log, OfNoTextIsNothing) {
  openLog();
  printToLog(nullptr);
  EXPECT_EQ(test::readFile(file()), "");
}

TEST_F(Log, GoesOnWhenAFullDiskHasRoomAgain) {
  test::inOwnMounts([this] {
    test::mountSmallDisk(folder_ / "Logs", 16);
    openLog();
    printToLog("before");
    test::fillDisk(folder_ / "Logs");
    const std::string longText(8192, 'x');
    for (int i = 0; i < 10; ++i) printToLog(longText.c_str());
    std::filesystem::remove(folder_ / "Logs/filler");
    printToLog("after");
    EXPECT_TRUE(test::readFile(file()).starts_with("before\n"));
    EXPECT_TRUE(test::readFile(file()).ends_with("after\n"));
  });
}

TEST_F(Log, KeepsTheEntriesOfManyThreadsWhole) {
  constexpr std::size_t kEntries = 100;
  constexpr std::size_t kLetters = 50;
  const std::string letters = "abcd";
  openLog();
  std::vector<std::thread> threads;
  for (const char letter : letters) {
    threads.emplace_back([letter] {
      for (std::size_t i = 0; i < kEntries; ++i) printToLog(std::string(kLetters, letter).c_str());
    });
  }
  for (std::thread& thread : threads) thread.join();
  const std::string content = test::readFile(file());
  EXPECT_EQ(content.size(), letters.size() * kEntries * (kLetters + 1));
  for (std::size_t line = 0; line < content.size(); line += kLetters + 1) {
    EXPECT_EQ(content.substr(line, kLetters + 1), std::string(kLetters, content[line]) + "\n");
  }
}

TEST_F(Log, QbSyslogWritesToTheConsoleWhateverThePriority) {
  QB_syslog(0, "text");
  QB_syslog(-7, "50%% of %s and %n");
  EXPECT_EQ(console_.all(), (std::vector<std::string>{"text", "50% of %s and %n"}));
}

TEST(FormattedWithoutArguments, PrintsTwoPercentSignsAsOneAndAllElseAsItStands) {
  const struct {
    const char* format;
    const char* printed;
  } rows[] = {{"", ""},        {"plain", "plain"},   {"%%", "%"},     {"%", "%"},
              {"%%%", "%%"},   {"%%%%", "%%"},       {"%d%%", "%d%"}, {"%s", "%s"},
              {"%-5", "%-5"},  {"a%%b%%c", "a%b%c"}, {"%%n", "%n"},   {"%@", "%@"},
              {"100%", "100%"}};
  for (const auto& row : rows) {
    EXPECT_EQ(formattedWithoutArguments(row.format), row.printed) << row.format;
  }
}

}  // namespace
}  // namespace sorvane
