#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <string>

#include "support/OwnNamespaces.h"
#include "support/TestFiles.h"
#include "system/Files.h"
#include "system/PathText.h"
#include "system/ProcessInfo.h"

namespace sorvane {
namespace {

namespace fs = std::filesystem;
using test::readFile;
using test::writeFile;

class Files : public testing::Test {
 protected:
  [[nodiscard]] std::string at(std::string_view name) const { return (folder_ / name).string(); }

  /// A path of exactly `length` bytes that means the same as `at(name)`: "./" does nothing.
  [[nodiscard]] std::string longPathTo(std::string_view name, std::size_t length) const {
    std::string path = folder_.path().string() + "/";
    const std::string end(name);
    while (path.size() + 2 + end.size() <= length) path += "./";
    while (path.size() + end.size() < length) path += "/";
    return path + end;
  }

  test::TemporaryFolder folder_;
};

TEST_F(Files, AnythingAtThePathExists) {
  writeFile(at("plain"), "text");
  fs::create_symlink("plain", at("link"));
  fs::create_symlink("nowhere", at("dangling"));
  EXPECT_TRUE(VN_directoryExists(folder_.path().c_str()));
  EXPECT_TRUE(VN_directoryExists(at("plain").c_str()));
  EXPECT_TRUE(VN_directoryExists(at("link").c_str()));
  EXPECT_FALSE(VN_directoryExists(at("dangling").c_str()));
  EXPECT_FALSE(VN_directoryExists(at("missing").c_str()));
  EXPECT_FALSE(VN_directoryExists(""));
}

TEST_F(Files, CreatesOneFolderAndRefusesAnExistingOne) {
  EXPECT_TRUE(VN_createDirectory(at("new").c_str()));
  EXPECT_TRUE(fs::is_directory(at("new")));
  EXPECT_FALSE(VN_createDirectory(at("new").c_str()));
  EXPECT_FALSE(VN_createDirectory(at("missing/new").c_str()));
}

TEST_F(Files, RemovesAFileALinkAndATree) {
  writeFile(at("tree/sub/file"), "text");
  fs::create_symlink(at("tree"), at("link"));
  EXPECT_TRUE(VN_removeFile(at("link").c_str()));
  EXPECT_TRUE(fs::exists(at("tree/sub/file"))) << "what the link leads to stays";
  EXPECT_TRUE(VN_removeFile(at("tree/sub/file").c_str()));
  EXPECT_TRUE(VN_removeFile(at("tree").c_str()));
  EXPECT_FALSE(fs::exists(at("tree")));
}

TEST_F(Files, RemovingALinkWithASlashAtItsEndLeavesTheFolderBehindIt) {
  for (const char* slashes : {"/", "//"}) {
    writeFile(at("tree/file"), "text");
    fs::create_symlink("tree", at("link"));
    EXPECT_TRUE(VN_removeFile((at("link") + slashes).c_str()));
    EXPECT_FALSE(fs::exists(fs::symlink_status(at("link"))));
    EXPECT_EQ(readFile(at("tree/file")), "text");
    fs::create_symlink("tree", at("link"));
    EXPECT_EQ(VN_removeDirectory((at("link") + slashes).c_str()), 1);
    EXPECT_FALSE(fs::exists(fs::symlink_status(at("link"))));
    EXPECT_EQ(readFile(at("tree/file")), "text");
  }
}

TEST_F(Files, RemovingTakesASlashAtTheEndForFoldersOnly) {
  writeFile(at("tree/file"), "text");
  EXPECT_FALSE(VN_removeFile((at("tree/file") + "/").c_str())) << "nothing exists there";
  fs::create_symlink("nowhere", at("dangling"));
  EXPECT_FALSE(VN_removeFile((at("dangling") + "/").c_str())) << "nothing exists there";
  EXPECT_EQ(readFile(at("tree/file")), "text");
  EXPECT_TRUE(VN_removeFile((at("tree") + "//").c_str()));
  EXPECT_FALSE(fs::exists(at("tree")));
}

TEST_F(Files, RemovingWhatIsMissingAnswersNoForAFileAnd1ForAFolder) {
  EXPECT_FALSE(VN_removeFile(at("missing").c_str()));
  EXPECT_EQ(VN_removeDirectory(at("missing").c_str()), 1);
}

TEST_F(Files, RemoveDirectoryTakesATreeOrAFileAndAnswers1) {
  writeFile(at("tree/file"), "text");
  writeFile(at("file"), "text");
  EXPECT_EQ(VN_removeDirectory(at("tree").c_str()), 1);
  EXPECT_EQ(VN_removeDirectory(at("file").c_str()), 1);
  EXPECT_TRUE(fs::is_empty(folder_.path()));
}

TEST_F(Files, NeverRemovesTheFolderItStandsIn) {
  writeFile(at("sub/file"), "text");
  for (const char* name : {".", "./", "sub/.", "sub/..", "sub/../"}) {
    EXPECT_FALSE(VN_removeFile(at(name).c_str())) << name;
  }
  EXPECT_FALSE(VN_removeFile(""));
  EXPECT_EQ(readFile(at("sub/file")), "text");
}

TEST_F(Files, CopiesAFileWithPermissionsAndTime) {
  writeFile(at("from"), "text");
  fs::permissions(at("from"), fs::perms(0640));
  const auto time = fs::file_time_type::clock::now() - std::chrono::hours(48);
  fs::last_write_time(at("from"), time);
  EXPECT_TRUE(VN_copyFile(at("from").c_str(), at("to").c_str()));
  EXPECT_EQ(readFile(at("to")), "text");
  EXPECT_EQ(fs::status(at("to")).permissions(), fs::perms(0640));
  EXPECT_EQ(fs::last_write_time(at("to")), fs::last_write_time(at("from")));
}

TEST_F(Files, BothCopiesTakeWholeTreesLinksAsLinks) {
  writeFile(at("from/deep/file"), "text");
  fs::create_symlink("deep/file", at("from/link"));
  fs::create_symlink("nowhere", at("from/dangling"));
  fs::create_directory(at("from/empty"));
  fs::permissions(at("from/deep"), fs::perms(0550));
  for (auto copy : {&VN_copyFile, &VN_copyDirectory}) {
    const std::string to = copy == &VN_copyFile ? at("to1") : at("to2");
    EXPECT_TRUE(copy(at("from").c_str(), to.c_str()));
    EXPECT_EQ(readFile(to + "/deep/file"), "text");
    EXPECT_EQ(fs::read_symlink(to + "/link"), "deep/file");
    EXPECT_EQ(fs::read_symlink(to + "/dangling"), "nowhere");
    EXPECT_TRUE(fs::is_empty(to + "/empty"));
    EXPECT_EQ(fs::status(to + "/deep").permissions(), fs::perms(0550));
    fs::permissions(to + "/deep", fs::perms(0750));
  }
  fs::permissions(at("from/deep"), fs::perms(0750));
}

TEST_F(Files, ACopyOfALinkIsALink) {
  writeFile(at("file"), "text");
  fs::create_symlink("file", at("link"));
  EXPECT_TRUE(VN_copyFile(at("link").c_str(), at("copy").c_str()));
  EXPECT_TRUE(fs::is_symlink(at("copy")));
}

TEST_F(Files, CopiesRefuseAnExistingDestination) {
  writeFile(at("from"), "new");
  writeFile(at("file"), "old");
  fs::create_directory(at("folder"));
  fs::create_symlink("nowhere", at("dangling"));
  for (const char* name : {"file", "folder", "dangling", "from"}) {
    EXPECT_FALSE(VN_copyFile(at("from").c_str(), at(name).c_str())) << name;
    EXPECT_FALSE(VN_copyDirectory(at("from").c_str(), at(name).c_str())) << name;
  }
  EXPECT_EQ(readFile(at("file")), "old");
  EXPECT_TRUE(fs::is_empty(at("folder")));
  EXPECT_FALSE(fs::exists(at("nowhere")));
}

TEST_F(Files, ACopyIntoItselfIsRefused) {
  writeFile(at("tree/file"), "text");
  EXPECT_FALSE(VN_copyDirectory(at("tree").c_str(), at("tree/copy").c_str()));
  EXPECT_FALSE(fs::exists(at("tree/copy")));
  EXPECT_TRUE(VN_copyDirectory(at("tree").c_str(), at("tree2").c_str())) << "only a like name";
}

TEST_F(Files, ACopyOfWhatIsMissingOrIntoAMissingFolderFails) {
  writeFile(at("file"), "text");
  EXPECT_FALSE(VN_copyFile(at("missing").c_str(), at("to").c_str()));
  EXPECT_FALSE(VN_copyFile(at("file").c_str(), at("missing/to").c_str()));
}

TEST_F(Files, ACopyThatFailsLeavesNothing) {
  writeFile(at("tree/a"), "text");
  writeFile(at("tree/z"), "text");
  ASSERT_EQ(mkfifo(at("tree/m").c_str(), 0600), 0);
  EXPECT_FALSE(VN_copyDirectory(at("tree").c_str(), at("copy").c_str()));
  EXPECT_FALSE(fs::exists(at("copy")));
}

TEST_F(Files, ACopyOntoAFullDiskFailsAndLeavesNothing) {
  writeFile(at("big"), std::string(256 << 10, 'x'));
  fs::create_directory(at("disk"));
  test::inOwnMounts([this] {
    test::mountSmallDisk(at("disk"), 64);
    EXPECT_FALSE(VN_copyFile(at("big").c_str(), at("disk/big").c_str()));
    EXPECT_TRUE(fs::is_empty(at("disk")));
  });
}

TEST_F(Files, ChangesTheCurrentFolder) {
  fs::create_directory(at("here"));
  writeFile(at("file"), "text");
  test::inOwnProcess([this] {
    EXPECT_TRUE(VN_changeDirectory(at("here").c_str()));
    EXPECT_EQ(fs::current_path(), fs::canonical(at("here")));
    EXPECT_FALSE(VN_changeDirectory(at("missing").c_str()));
    EXPECT_FALSE(VN_changeDirectory(at("file").c_str()));
    EXPECT_FALSE(VN_changeDirectory(nullptr));
    EXPECT_EQ(fs::current_path(), fs::canonical(at("here")));
  });
}

TEST_F(Files, CreateAndRemoveTakeTheFirst1999BytesOfAPathTheOthersAllOfIt) {
  const std::string whole = longPathTo("folder", kLongestCopiedPath) + "tail";
  EXPECT_TRUE(VN_createDirectory(whole.c_str()));
  EXPECT_TRUE(fs::is_directory(at("folder")));
  EXPECT_FALSE(VN_directoryExists(whole.c_str())) << "not cut";
  VN_removeDirectory(whole.c_str());
  EXPECT_TRUE(fs::is_directory(at("folder"))) << "not cut";
  EXPECT_TRUE(VN_removeFile(whole.c_str()));
  EXPECT_FALSE(fs::exists(at("folder")));

  fs::create_directory(at("foldertail"));
  EXPECT_TRUE(VN_directoryExists(whole.c_str()));
  EXPECT_EQ(VN_removeDirectory(whole.c_str()), 1);
  EXPECT_FALSE(fs::exists(at("foldertail")));
}

TEST_F(Files, APathThatIsNullOrNoUtf8IsLikeNothing) {
  for (const char* path : {static_cast<const char*>(nullptr), "\xFF\xFE"}) {
    EXPECT_FALSE(VN_directoryExists(path));
    EXPECT_FALSE(VN_createDirectory(path));
    EXPECT_FALSE(VN_removeFile(path));
    EXPECT_EQ(VN_removeDirectory(path), 1);
    EXPECT_FALSE(VN_copyFile(path, at("to").c_str()));
    EXPECT_FALSE(VN_copyDirectory(folder_.path().c_str(), path));
  }
}

TEST_F(Files, NamesBeyondAsciiAreTakenAsTheyAre) {
  EXPECT_TRUE(VN_createDirectory(at("D\xC3\xA4ten \xE2\x82\xAC").c_str()));
  EXPECT_TRUE(VN_directoryExists(at("D\xC3\xA4ten \xE2\x82\xAC").c_str()));
}

/// A system whose paths are written with backslashes.
class Backslashes : public Files {
 protected:
  class Windows : public ProcessInfo {
    [[nodiscard]] OperatingSystem operatingSystem() const override {
      return OperatingSystem::NSWindowsNT;
    }
  };

  void SetUp() override { ProcessInfo::replaceForTest(&windows_); }

  Windows windows_;
};

TEST_F(Backslashes, StandForSlashesInEveryPath) {
  EXPECT_EQ(adaptedPath("/a/b\\c/", PathCopy::whereChanged), "\\a\\b\\c\\");
  EXPECT_EQ(adaptedPath("/a/b", PathCopy::always), "\\a\\b");
}

TEST_F(Backslashes, AreWhatTheFunctionsHandOn) {
  test::inOwnProcess([this] {
    fs::current_path(folder_.path());  // there, a backslash is a letter like any other
    EXPECT_TRUE(VN_createDirectory("a/b"));
    EXPECT_TRUE(fs::is_directory("a\\b"));
    EXPECT_TRUE(VN_directoryExists("a/b"));
    EXPECT_TRUE(VN_copyDirectory("a/b", "c/d"));
    EXPECT_TRUE(fs::is_directory("c\\d"));
    EXPECT_TRUE(VN_removeFile("a/b"));
    EXPECT_FALSE(fs::exists("a\\b"));
    EXPECT_EQ(VN_removeDirectory("c/d"), 1);
    EXPECT_FALSE(fs::exists("c\\d"));
  });
}

TEST_F(Backslashes, ComeWithPathsOf1999BytesAtMost) {
  const std::string longest(kLongestCopiedPath, 'x');
  EXPECT_EQ(adaptedPath((longest + "y").c_str(), PathCopy::whereChanged), longest);
  EXPECT_EQ(adaptedPath((longest + "y").c_str(), PathCopy::always), longest);
}

TEST(PathText, IsTakenAsItIsElsewhere) {
  const std::string longest(kLongestCopiedPath, 'x');
  EXPECT_EQ(adaptedPath("/a\\b/c", PathCopy::whereChanged), "/a\\b/c");
  EXPECT_EQ(adaptedPath((longest + "y").c_str(), PathCopy::whereChanged), longest + "y");
  EXPECT_EQ(adaptedPath((longest + "y").c_str(), PathCopy::always), longest);
}

TEST(PathText, CutWithinACharacterIsNoUtf8) {
  const std::string cut = std::string(kLongestCopiedPath - 1, 'x') + "\xC3\xA4";
  EXPECT_EQ(adaptedPath(cut.c_str(), PathCopy::always), std::nullopt);
  EXPECT_EQ(adaptedPath(cut.c_str(), PathCopy::whereChanged), cut);
}

}  // namespace
}  // namespace sorvane
