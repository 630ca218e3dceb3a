// Whole-file replacement: what a file and its folder look like afterwards.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "platform/AtomicFile.h"
#include "support/ForkedPart.h"
#include "support/TestFiles.h"

namespace sorvane {
namespace {

namespace fs = std::filesystem;
using test::readFile;
using test::writeFile;

struct stat statusOf(const fs::path& path) {
  struct stat status {};
  EXPECT_EQ(::stat(path.c_str(), &status), 0) << path;
  return status;
}

int modeOf(const fs::path& path) { return static_cast<int>(statusOf(path).st_mode & 07777); }

std::vector<std::string> namesIn(const fs::path& folder) {
  std::vector<std::string> names;
  for (const fs::directory_entry& entry : fs::directory_iterator(folder)) {
    names.push_back(entry.path().filename().string());
  }
  std::sort(names.begin(), names.end());
  return names;
}

class ReplaceFile : public ::testing::Test {
 protected:
  void replaces(const fs::path& path, std::string_view content) {
    const std::error_code error = replaceFile(path.string(), content);
    EXPECT_FALSE(error) << error.message();
  }

  test::TemporaryFolder folder_;
  const fs::path file_ = folder_ / "file";
  using Names = std::vector<std::string>;
};

TEST_F(ReplaceFile, MakesAFileThatIsNotThere) {
  replaces(file_, "content");
  EXPECT_EQ(readFile(file_), "content");
  EXPECT_EQ(namesIn(folder_.path()), Names{"file"});
}

TEST_F(ReplaceFile, MakesTheMissingFoldersAboveIt) {
  const fs::path deep = folder_ / "a" / "b" / "c" / "file";
  replaces(deep, "content");
  EXPECT_EQ(readFile(deep), "content");
}

TEST_F(ReplaceFile, ReplacesLongerShorterAndEmptyContent) {
  for (const std::string& content : {std::string(100000, 'x'), std::string("short"), std::string(),
                                     std::string("with\0NUL", 8)}) {
    replaces(file_, content);
    EXPECT_EQ(readFile(file_), content);
  }
  EXPECT_EQ(namesIn(folder_.path()), Names{"file"});
}

TEST_F(ReplaceFile, TakesAPathRelativeToTheWorkingFolder) {
  fs::current_path(folder_.path());
  replaces("file", "content");
  EXPECT_EQ(readFile(file_), "content");
}

TEST_F(ReplaceFile, KeepsTheModeOfTheFile) {
  for (const mode_t mode : {0600, 0640, 0664, 0444, 04755}) {
    writeFile(file_, "old");
    ASSERT_EQ(::chmod(file_.c_str(), mode), 0);
    replaces(file_, "new");
    EXPECT_EQ(modeOf(file_), static_cast<int>(mode));
    EXPECT_EQ(readFile(file_), "new");
    fs::remove(file_);
  }
}

TEST_F(ReplaceFile, KeepsTheOwnerAndGroupOfTheFileForTheSuperuser) {
  if (geteuid() != 0) {
    GTEST_SKIP() << "only the superuser may give files away";
  }
  writeFile(file_, "old");
  ASSERT_EQ(::chown(file_.c_str(), 4711, 4712), 0);
  ASSERT_EQ(::chmod(file_.c_str(), 06750), 0);
  replaces(file_, "new");
  EXPECT_EQ(statusOf(file_).st_uid, 4711U);
  EXPECT_EQ(statusOf(file_).st_gid, 4712U);
  EXPECT_EQ(modeOf(file_), 06750);
}

TEST_F(ReplaceFile, ShrinksTheRightsOfAGroupThatCannotBeKept) {
  if (geteuid() != 0) {
    GTEST_SKIP() << "only the superuser may give files away";
  }
  writeFile(file_, "old");
  ASSERT_EQ(::chown(file_.c_str(), 4711, 4712), 0);
  ASSERT_EQ(::chmod(file_.c_str(), 0664), 0);
  ASSERT_EQ(::chmod(folder_.path().c_str(), 0777), 0);
  test::inOwnProcess([this] {
    ASSERT_EQ(::setgid(4800), 0);
    ASSERT_EQ(::setuid(4800), 0);
    replaces(file_, "new");
  });
  EXPECT_EQ(statusOf(file_).st_uid, 4800U);
  EXPECT_EQ(modeOf(file_), 0644);
  EXPECT_EQ(readFile(file_), "new");
}

TEST_F(ReplaceFile, GivesANewFileTheUsualModeLessTheMask) {
  ::umask(0);
  replaces(folder_ / "open", "");
  ::umask(077);
  replaces(folder_ / "masked", "");
  EXPECT_EQ(modeOf(folder_ / "open"), 0644) << "nobody else may write it, whatever the mask";
  EXPECT_EQ(modeOf(folder_ / "masked"), 0600);
}

TEST_F(ReplaceFile, KeepsASymbolicLinkAndReplacesWhatItNames) {
  writeFile(folder_ / "elsewhere" / "target", "old");
  ASSERT_EQ(::chmod((folder_ / "elsewhere" / "target").c_str(), 0640), 0);
  fs::create_symlink("elsewhere/target", folder_ / "second");
  fs::create_symlink(folder_ / "second", file_);
  replaces(file_, "new");
  EXPECT_TRUE(fs::is_symlink(file_));
  EXPECT_TRUE(fs::is_symlink(folder_ / "second"));
  EXPECT_EQ(readFile(folder_ / "elsewhere" / "target"), "new");
  EXPECT_EQ(modeOf(folder_ / "elsewhere" / "target"), 0640);
  EXPECT_EQ(namesIn(folder_ / "elsewhere"), Names{"target"});
}

TEST_F(ReplaceFile, MakesWhatADanglingLinkNames) {
  fs::create_symlink("missing/target", file_);
  replaces(file_, "new");
  EXPECT_TRUE(fs::is_symlink(file_));
  EXPECT_EQ(readFile(folder_ / "missing" / "target"), "new");
}

TEST_F(ReplaceFile, RefusesLinksThatGoInACircle) {
  fs::create_symlink("file", folder_ / "other");
  fs::create_symlink("other", file_);
  EXPECT_EQ(replaceFile(file_.string(), "new"), std::errc::too_many_symbolic_link_levels);
  EXPECT_EQ(namesIn(folder_.path()), (Names{"file", "other"}));
}

TEST_F(ReplaceFile, RefusesAFolderAndAPipe) {
  fs::create_directory(folder_ / "folder");
  ASSERT_EQ(::mkfifo((folder_ / "pipe").c_str(), 0600), 0);
  EXPECT_EQ(replaceFile((folder_ / "folder").string(), "new"), std::errc::is_a_directory);
  EXPECT_EQ(replaceFile((folder_ / "pipe").string(), "new"), std::errc::invalid_argument);
  EXPECT_TRUE(fs::is_fifo(folder_ / "pipe"));
  EXPECT_EQ(namesIn(folder_.path()), (Names{"folder", "pipe"}));
}

TEST_F(ReplaceFile, TellsThatAFileStandsWhereAFolderShould) {
  writeFile(file_, "old");
  EXPECT_EQ(replaceFile((file_ / "below").string(), "new"), std::errc::not_a_directory);
  EXPECT_EQ(readFile(file_), "old");
}

TEST_F(ReplaceFile, OfSeveralWritersLeavesOneWholeContentAtAnyMoment) {
  constexpr int kWriters = 4;
  constexpr int kRounds = 50;
  constexpr std::size_t kLength = 20000;
  replaces(file_, std::string(kLength, 'a'));
  std::atomic<int> writing = kWriters;
  std::vector<std::thread> writers;
  for (int i = 0; i < kWriters; ++i) {
    writers.emplace_back([&, letter = static_cast<char>('a' + i)] {
      for (int round = 0; round < kRounds; ++round) {
        EXPECT_FALSE(replaceFile(file_.string(), std::string(kLength, letter)));
        removeAbandonedTemporaries(file_.string());
      }
      --writing;
    });
  }
  while (writing > 0) {
    const std::string content = readFile(file_);
    ASSERT_EQ(content, std::string(kLength, content.empty() ? '?' : content[0]));
  }
  for (std::thread& writer : writers) {
    writer.join();
  }
  EXPECT_EQ(namesIn(folder_.path()), Names{"file"});
}

TEST_F(ReplaceFile, EndedAtAnyMomentLeavesAWholeFileAndAtMostOneTemporary) {
  const std::string first(300000, 'a');
  const std::string second(300000, 'b');
  replaces(file_, first);
  for (int round = 0; round < 40; ++round) {
    test::ForkedPart writing([&](const test::ForkedPart& self) {
      self.tell(0);
      for (;;) {
        (void)replaceFile(file_.string(), second);
        (void)replaceFile(file_.string(), first);
      }
    });
    ASSERT_EQ(writing.hear(), 0);
    // Nothing is waited for here: each round hits the writer at another moment.
    ::usleep(static_cast<useconds_t>(round * 137));
    writing.end();
    const std::string content = readFile(file_);
    EXPECT_TRUE(content == first || content == second) << "a part of a content is left";
    EXPECT_LE(namesIn(folder_.path()).size(), 2U);
    removeAbandonedTemporaries(file_.string());
    ASSERT_EQ(namesIn(folder_.path()), Names{"file"});
  }
}

TEST(RemoveAbandonedTemporaries, RemovesThoseOfTheFileAndNothingElse) {
  const test::TemporaryFolder folder;
  const std::vector<std::string> others = {".file.tmp-", ".file.tmp-12-3x", ".other.tmp-12-3",
                                           "file",       "file.tmp-12-3",   ".file"};
  for (const std::string& name : others) {
    writeFile(folder / name, "");
  }
  writeFile(folder / ".file.tmp-12-3", "");
  writeFile(folder / ".file.tmp-4711-1", "");
  fs::create_directory(folder / ".file.tmp-1-1");
  ASSERT_EQ(::mkfifo((folder / ".file.tmp-1-2").c_str(), 0600), 0);
  fs::create_symlink("file", folder / ".file.tmp-1-3");
  removeAbandonedTemporaries((folder / "file").string());

  std::vector<std::string> expected = others;
  expected.erase(expected.begin());
  expected.insert(expected.end(), {".file.tmp-1-1", ".file.tmp-1-2", ".file.tmp-1-3"});
  std::sort(expected.begin(), expected.end());
  EXPECT_EQ(namesIn(folder.path()), expected);
}

TEST(RemoveAbandonedTemporaries, LeavesThatOfAWriterAtWork) {
  const test::TemporaryFolder folder;
  const fs::path temporary = folder / ".file.tmp-12-3";
  const int writer = ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
  ASSERT_NE(writer, -1);
  ASSERT_EQ(::flock(writer, LOCK_EX), 0);
  removeAbandonedTemporaries((folder / "file").string());
  EXPECT_TRUE(fs::exists(temporary));
  ::close(writer);
  removeAbandonedTemporaries((folder / "file").string());
  EXPECT_FALSE(fs::exists(temporary));
}

TEST(RemoveAbandonedTemporaries, FindsThemBesideWhatALinkNames) {
  const test::TemporaryFolder folder;
  writeFile(folder / "elsewhere" / ".target.tmp-12-3", "");
  fs::create_symlink("elsewhere/target", folder / "file");
  removeAbandonedTemporaries((folder / "file").string());
  EXPECT_FALSE(fs::exists(folder / "elsewhere" / ".target.tmp-12-3"));
}

TEST(RemoveAbandonedTemporaries, DoesNothingWhereThereIsNoFolder) {
  const test::TemporaryFolder folder;
  removeAbandonedTemporaries((folder / "missing" / "file").string());
  EXPECT_FALSE(fs::exists(folder / "missing"));
}

}  // namespace
}  // namespace sorvane
