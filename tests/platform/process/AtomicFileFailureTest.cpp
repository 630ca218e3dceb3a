// Whole-file replacement on disks that fail: the file stays as it was, and nothing is left beside
// it.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "platform/AtomicFile.h"
#include "support/OwnNamespaces.h"
#include "support/TestFiles.h"

namespace {

/// What the calls below do and have seen, for this file's tests.
struct FileCalls {
  bool recording = false;
  std::vector<std::string> seen;
  std::string failing;  // the call that fails with EIO
} calls;

bool fails(const std::string& call) {
  if (!calls.recording) {
    return false;
  }
  calls.seen.push_back(call);
  if (calls.failing == call) {
    errno = EIO;
    return true;
  }
  return false;
}

template <typename Function>
Function* systemCall(const char* name) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

}  // namespace

// The program's own definitions stand before the C library's.
extern "C" int fsync(int descriptor) {
  struct stat status {};
  ::fstat(descriptor, &status);
  static auto* const next = systemCall<int(int)>("fsync");
  return fails(S_ISDIR(status.st_mode) ? "flush the folder" : "flush the file") ? -1
                                                                                : next(descriptor);
}

extern "C" int rename(const char* from, const char* to) noexcept {
  static auto* const next = systemCall<int(const char*, const char*)>("rename");
  return fails("rename") ? -1 : next(from, to);
}

namespace sorvane {
namespace {

namespace fs = std::filesystem;
using test::fillDisk;
using test::inOwnMounts;
using test::mountSmallDisk;
using test::readFile;
using test::setReadOnly;
using test::writeFile;

std::size_t filesIn(const fs::path& folder) {
  return static_cast<std::size_t>(
      std::distance(fs::directory_iterator(folder), fs::directory_iterator()));
}

class ReplaceFileThatFails : public ::testing::Test {
 protected:
  ~ReplaceFileThatFails() override { calls = {}; }

  test::TemporaryFolder folder_;
  const fs::path file_ = folder_ / "file";
};

TEST_F(ReplaceFileThatFails, FlushesTheFileBeforeItTakesTheNameAndTheFolderAfterwards) {
  calls.recording = true;
  EXPECT_FALSE(replaceFile(file_.string(), "new"));
  EXPECT_EQ(calls.seen, (std::vector<std::string>{"flush the file", "rename", "flush the folder"}));
}

TEST_F(ReplaceFileThatFails, FlushesTheFoldersThatItMakesIntoTheirOwn) {
  calls.recording = true;
  EXPECT_FALSE(replaceFile((folder_ / "a" / "b" / "file").string(), "new"));
  EXPECT_EQ(calls.seen, (std::vector<std::string>{"flush the folder", "flush the folder",
                                                  "flush the file", "rename", "flush the folder"}));
}

TEST_F(ReplaceFileThatFails, KeepsTheOldContentWhenTheNewOneCannotBeFlushedOrNamed) {
  for (const char* call : {"flush the file", "rename"}) {
    writeFile(file_, "old");
    calls = {.recording = true, .seen = {}, .failing = call};
    EXPECT_EQ(replaceFile(file_.string(), "new"), std::errc::io_error) << call;
    calls = {};
    EXPECT_EQ(readFile(file_), "old") << call;
    EXPECT_EQ(filesIn(folder_.path()), 1U) << call;
  }
}

TEST_F(ReplaceFileThatFails, TellsThatTheFolderCouldNotBeFlushed) {
  writeFile(file_, "old");
  calls = {.recording = true, .seen = {}, .failing = "flush the folder"};
  EXPECT_EQ(replaceFile(file_.string(), "new"), std::errc::io_error);
  EXPECT_EQ(readFile(file_), "new");
  EXPECT_EQ(filesIn(folder_.path()), 1U);
}

TEST_F(ReplaceFileThatFails, KeepsTheOldContentOnAFullDisk) {
  inOwnMounts([&] {
    mountSmallDisk(folder_.path(), 64);
    const std::string old(10000, 'o');
    ASSERT_FALSE(replaceFile(file_.string(), old));
    fillDisk(folder_.path());
    EXPECT_EQ(replaceFile(file_.string(), std::string(20000, 'n')), std::errc::no_space_on_device);
    EXPECT_EQ(readFile(file_), old);
    EXPECT_EQ(filesIn(folder_.path()), 2U) << "the file, the filler and nothing else";

    fs::remove(folder_ / "filler");
    EXPECT_FALSE(replaceFile(file_.string(), "new"));
    EXPECT_EQ(readFile(file_), "new");
  });
}

TEST_F(ReplaceFileThatFails, KeepsTheOldContentWhenTheDiskFillsInTheMiddle) {
  inOwnMounts([&] {
    mountSmallDisk(folder_.path(), 64);
    const std::string old(10000, 'o');
    ASSERT_FALSE(replaceFile(file_.string(), old));
    EXPECT_EQ(replaceFile(file_.string(), std::string(200000, 'n')), std::errc::no_space_on_device);
    EXPECT_EQ(readFile(file_), old);
    EXPECT_EQ(filesIn(folder_.path()), 1U);
  });
}

TEST_F(ReplaceFileThatFails, KeepsTheOldContentInAReadOnlyFolder) {
  inOwnMounts([&] {
    mountSmallDisk(folder_.path(), 64);
    ASSERT_FALSE(replaceFile(file_.string(), "old"));
    setReadOnly(folder_.path(), true);
    EXPECT_EQ(replaceFile(file_.string(), "new"), std::errc::read_only_file_system);
    EXPECT_EQ(replaceFile((folder_ / "folder" / "file").string(), "new"),
              std::errc::read_only_file_system);
    EXPECT_EQ(readFile(file_), "old");
    EXPECT_EQ(filesIn(folder_.path()), 1U);
    setReadOnly(folder_.path(), false);
    EXPECT_FALSE(replaceFile(file_.string(), "new"));
    EXPECT_EQ(readFile(file_), "new");
  });
}

}  // namespace
}  // namespace sorvane
