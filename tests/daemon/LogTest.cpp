#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "daemon/Log.h"
#include "platform/Settings.h"
#include "support/ConsoleLines.h"
#include "support/ForkedPart.h"
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

// ---- Files that change under it

TEST_F(Log, ThatIsMovedGoesOnInANewFile) {
  openLog();
  printToLog("first");
  std::filesystem::rename(file(), folder_ / "Logs/moved");
  printToLog("second");
  printToLog("third");
  EXPECT_EQ(test::readFile(folder_ / "Logs/moved"), "first\n");
  EXPECT_EQ(test::readFile(file()), "second\nthird\n");
}

TEST_F(Log, ThatIsReplacedGoesOnInTheOneThatIsThere) {
  openLog();
  printToLog("first");
  std::filesystem::rename(file(), folder_ / "Logs/moved");
  test::writeFile(file(), "made by another program\n");
  printToLog("second");
  EXPECT_EQ(test::readFile(file()), "made by another program\nsecond\n");
}

TEST_F(Log, ThatIsRemovedComesBack) {
  openLog();
  printToLog("first");
  std::filesystem::remove(file());
  printToLog("second");
  EXPECT_EQ(test::readFile(file()), "second\n");
}

TEST_F(Log, ThatIsCopiedAndTruncatedGoesOnAtItsStart) {
  openLog();
  printToLog("first");
  std::filesystem::copy_file(file(), folder_ / "Logs/copy");
  std::filesystem::resize_file(file(), 0);
  printToLog("second");
  EXPECT_EQ(test::readFile(folder_ / "Logs/copy"), "first\n");
  EXPECT_EQ(test::readFile(file()), "second\n");
}

TEST_F(Log, WhoseFolderIsMovedGoesOnThereUntilThereIsAnother) {
  openLog();
  printToLog("first");
  std::filesystem::rename(folder_ / "Logs", folder_ / "moved");
  printToLog("second");
  EXPECT_EQ(test::readFile(folder_ / "moved/infoserver_log"), "first\nsecond\n");
  std::filesystem::create_directory(folder_ / "Logs");
  printToLog("third");
  EXPECT_EQ(test::readFile(file()), "third\n");
}

// ---- The largest size

class LogOfLimitedSize : public Log {
 protected:
  static constexpr std::size_t kMost = 1000;

  void SetUp() override {
    Log::SetUp();
    Settings settings;
    settings.installationDirectory = folder_.path().string();
    settings.maxLogBytes = kMost;
    Settings::replaceForTest(settings);
  }

  void fill() {
    for (int i = 0; i < 100; ++i) {
      printToLog("one of a hundred entries");
    }
  }
  /// Prints an entry that is longer than the log may be.
  static void stopAtOnce() { printToLog(std::string(kMost, 'x').c_str()); }
  [[nodiscard]] std::string content() const { return test::readFile(file()); }
  [[nodiscard]] int entries() const {
    return test::timesIn(content(), "one of a hundred entries\n");
  }

  const std::string stopLine_ =
      "The log has reached MaxLogBytes. It goes on when the file is shorter or another one.\n";
};

TEST_F(LogOfLimitedSize, StopsThereWithALastLineAndALineOnTheConsole) {
  openLog();
  fill();
  EXPECT_LE(content().size(), kMost);
  EXPECT_GT(content().size(), kMost - 50);
  EXPECT_TRUE(content().ends_with("one of a hundred entries\n" + stopLine_)) << content();
  const std::string before = content();
  printToLog("x");
  EXPECT_EQ(content(), before) << "a short entry that follows a long one would look like the next";
  EXPECT_EQ(console_.all(),
            std::vector<std::string>{"the log " + file().string() +
                                     " has reached MaxLogBytes; entries are left out"});
}

TEST_F(LogOfLimitedSize, GoesOnWhenItIsShorterAndTellsWhatWasLeftOut) {
  openLog();
  fill();
  const int leftOut = 100 - entries();
  std::filesystem::resize_file(file(), 0);
  printToLog("after");
  printToLog("and so on");
  EXPECT_EQ(content(), std::to_string(leftOut) + " log entries were left out\nafter\nand so on\n");
  fill();
  EXPECT_TRUE(content().ends_with(stopLine_));
  EXPECT_LE(content().size(), kMost);
}

TEST_F(LogOfLimitedSize, GoesOnWhenItIsAnotherFile) {
  openLog();
  fill();
  const int leftOut = 100 - entries();
  std::filesystem::rename(file(), folder_ / "Logs/moved");
  printToLog("after");
  EXPECT_EQ(content(), std::to_string(leftOut) + " log entries were left out\nafter\n");
}

TEST_F(LogOfLimitedSize, GoesOnWhenItIsAnotherFileThatIsLonger) {
  openLog();
  stopAtOnce();
  std::filesystem::rename(file(), folder_ / "Logs/moved");
  const std::string longer(kMost / 2, 'x');
  test::writeFile(file(), longer);
  printToLog("after");
  EXPECT_EQ(content(), longer + "1 log entries were left out\nafter\n");
}

TEST_F(LogOfLimitedSize, GoesOnWhenItIsShorterByAByte) {
  openLog();
  stopAtOnce();
  std::filesystem::resize_file(file(), stopLine_.size() - 1);
  printToLog("after");
  EXPECT_TRUE(content().ends_with("1 log entries were left out\nafter\n")) << content();
}

TEST_F(LogOfLimitedSize, CostsAFewConsoleLinesHoweverOftenItStops) {
  test::inOwnProcess([&] {  // the limit of the rate is the process's
    openLog();
    for (int i = 0; i < 100; ++i) {
      stopAtOnce();
      std::filesystem::resize_file(file(), 0);
      printToLog("it goes on");
    }
    EXPECT_GT(console_.all().size(), 0U);
    EXPECT_LT(console_.all().size(), 80U) << "20 in 10 seconds";
  });
}

TEST_F(LogOfLimitedSize, StopsAtAnEntryThatIsTooLong) {
  openLog();
  printToLog("before");
  stopAtOnce();
  printToLog("after");
  EXPECT_EQ(content(), "before\n" + stopLine_);
}

TEST_F(LogOfLimitedSize, ThatIsFullAtTheStartStaysAsItIs) {
  const std::string full(kMost - 10, 'x');
  test::writeFile(file(), full);
  openLog();
  fill();
  EXPECT_EQ(content(), full);
  test::writeFile(file(), full + full);
  printToLog("longer than allowed");
  EXPECT_EQ(content(), full + full);
  EXPECT_EQ(console_.all().size(), 1U);
}

TEST_F(LogOfLimitedSize, HasNoLimitWhenThatIsZero) {
  Settings settings;
  settings.installationDirectory = folder_.path().string();
  settings.maxLogBytes = 0;
  Settings::replaceForTest(settings);
  openLog();
  fill();
  EXPECT_EQ(entries(), 100);
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
