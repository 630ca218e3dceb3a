#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <thread>

#include "platform/PlainFile.h"
#include "support/ForkedPart.h"
#include "support/TestFiles.h"

namespace sorvane {
namespace {

namespace fs = std::filesystem;
using Kind = PlainFileFailure::Kind;

class PlainFile : public testing::Test {
 protected:
  /// The content; fails the test when there is none.
  [[nodiscard]] std::string contentOf(const fs::path& path, std::size_t maximumBytes) const {
    auto file = readPlainFile(path, maximumBytes);
    const auto* content = std::get_if<std::string>(&file);
    EXPECT_NE(content, nullptr) << path;
    return content != nullptr ? *content : "";
  }
  /// Why there is no content; nothing when there is.
  [[nodiscard]] std::optional<Kind> failureOf(const fs::path& path,
                                              std::size_t maximumBytes) const {
    const auto file = readPlainFile(path, maximumBytes);
    const auto* failure = std::get_if<PlainFileFailure>(&file);
    return failure != nullptr ? std::optional(failure->kind) : std::nullopt;
  }
  /// The error of the system for a path that it refuses.
  [[nodiscard]] std::error_code errorOf(const fs::path& path) const {
    const auto file = readPlainFile(path, 1000);
    const auto* failure = std::get_if<PlainFileFailure>(&file);
    EXPECT_TRUE(failure != nullptr && failure->kind == Kind::systemError) << path;
    return failure != nullptr ? failure->error : std::error_code();
  }

  test::TemporaryFolder folder_;
  const fs::path path_ = folder_ / "file";
};

TEST_F(PlainFile, IsReadWholeWithEveryByte) {
  for (const std::size_t length : {0, 1, 16383, 16384, 16385, 100000}) {
    std::string content(length, 'x');
    for (std::size_t at = 0; at < length; at += 7) {
      content[at] = static_cast<char>(at);
    }
    test::writeFile(path_, content);
    EXPECT_EQ(contentOf(path_, 100000), content) << length;
  }
}

TEST_F(PlainFile, MayBeAsLongAsTheBoundAndNoLonger) {
  for (const std::size_t bound : {0, 10, 16384, 50000}) {
    test::writeFile(path_, std::string(bound, 'x'));
    EXPECT_EQ(contentOf(path_, bound).size(), bound);
    test::writeFile(path_, std::string(bound + 1, 'x'));
    EXPECT_EQ(failureOf(path_, bound), Kind::tooLong) << bound;
  }
}

TEST_F(PlainFile, IsBoundedByWhatIsReadAndNotByTheLengthThatTheSystemTells) {
  ASSERT_EQ(fs::file_size("/proc/self/maps"), 0U);
  EXPECT_GT(contentOf("/proc/self/maps", 1 << 20).size(), 100U);
  EXPECT_EQ(failureOf("/proc/self/maps", 100), Kind::tooLong);
}

TEST_F(PlainFile, ThatIsMissingOrMayNotBeReadTellsTheReasonOfTheSystem) {
  EXPECT_EQ(errorOf(path_), std::errc::no_such_file_or_directory);
  test::writeFile(path_, "text");
  EXPECT_EQ(errorOf(path_ / "below"), std::errc::not_a_directory);
  fs::create_symlink("loop", folder_ / "loop");
  EXPECT_EQ(errorOf(folder_ / "loop"), std::errc::too_many_symbolic_link_levels);
}

TEST_F(PlainFile, ThatThisUserMayNotReadTellsTheReasonOfTheSystem) {
  test::writeFile(path_, "text");
  ASSERT_EQ(chmod(path_.c_str(), 0), 0);
  ASSERT_EQ(chmod(folder_.path().c_str(), 0755), 0);
  test::inOwnProcess([this] {
    if (geteuid() == 0) {
      ASSERT_EQ(seteuid(65534), 0);
    }
    EXPECT_EQ(errorOf(path_), std::errc::permission_denied);
  });
}

TEST_F(PlainFile, MayBeReachedThroughALink) {
  test::writeFile(folder_ / "elsewhere", "text");
  fs::create_symlink("elsewhere", path_);
  EXPECT_EQ(contentOf(path_, 10), "text");
}

TEST_F(PlainFile, IsNoFolderPipeOrDevice) {
  fs::create_directory(folder_ / "folder");
  ASSERT_EQ(mkfifo((folder_ / "pipe").c_str(), 0600), 0);
  EXPECT_EQ(failureOf(folder_ / "folder", 10), Kind::noPlainFile);
  EXPECT_EQ(failureOf("/dev/null", 10), Kind::noPlainFile);
  test::inOwnProcess([this] { EXPECT_EQ(failureOf(folder_ / "pipe", 10), Kind::noPlainFile); });
}

TEST_F(PlainFile, IsNotWaitedForWhileAPipeTakesItsPlace) {
  const fs::path pipe = folder_ / "pipe";
  const fs::path text = folder_ / "text";
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  test::writeFile(text, "text");
  fs::create_symlink(text, path_);
  test::inOwnProcess([&] {
    std::atomic<bool> stop = false;
    std::thread exchanging([&] {
      for (bool isPipe = true; !stop; isPipe = !isPipe) {
        fs::create_symlink(isPipe ? pipe : text, folder_ / "next");
        fs::rename(folder_ / "next", path_);
      }
    });
    // Often enough that a reader that looks first and opens then meets the pipe.
    int files = 0;
    int pipes = 0;
    while (files < 20000 || pipes < 20000) {
      const std::optional<Kind> failure = failureOf(path_, 10);
      (failure ? pipes : files) += 1;
      ASSERT_EQ(failure.value_or(Kind::noPlainFile), Kind::noPlainFile);
    }
    stop = true;
    exchanging.join();
  });
}

}  // namespace
}  // namespace sorvane
