#include <gtest/gtest.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "platform/Settings.h"
#include "platform/VNFileLock.h"
#include "support/ConsoleLines.h"
#include "support/OwnNamespaces.h"
#include "support/TestFiles.h"

namespace sorvane {
namespace {

constexpr uid_t kOneUser = 65001;
constexpr uid_t kOtherUser = 65002;

/// A process that takes the lock and keeps it until it is ended.
class Holder {
 public:
  explicit Holder(uid_t user = getuid())
      : process_([user](const test::ForkedPart& self) {
          const bool may = setuid(user) == 0;
          const auto lock = VNFileLock::fileLockWithSorvaneProcessName("program");
          self.tell(may && lock->obtainLock() ? 1 : 0);
          pause();
        }) {
    EXPECT_EQ(process_.hear(), 1) << "the holder did not get the lock";
  }

  void end() { process_.end(); }
  [[nodiscard]] std::string number() const { return std::to_string(process_.process()); }

 private:
  test::ForkedPart process_;
};

class VNFileLockTest : public testing::Test {
 protected:
  VNFileLockTest() { useFolder(folder_.path().string()); }

  static void useFolder(const std::string& folder) {
    Settings settings;
    settings.lockDirectory = folder;
    Settings::replaceForTest(settings);
  }

  static bool obtains(uid_t user = getuid()) { return errorsOfObtaining(user) == "obtained"; }

  /// What a fresh process says to the console when it tries the lock; "obtained", "held" when it
  /// says nothing.
  static std::string errorsOfObtaining(uid_t user = getuid()) {
    const test::PartEnd part = test::outputOfPart([&] {
      ASSERT_EQ(setuid(user), 0);
      printf("%s", VNFileLock::fileLockWithSorvaneProcessName("program")->obtainLock() ? "obtained"
                                                                                       : "held");
    });
    EXPECT_EQ(part.status, 0) << part.output;
    if (part.errors.empty()) {
      return part.output;
    }
    EXPECT_EQ(part.output, "held");
    return test::withoutProgramName(part.errors);
  }

  mode_t modeOf(const std::filesystem::path& path) const {
    struct stat status {};
    EXPECT_EQ(lstat(path.c_str(), &status), 0);
    return status.st_mode & 07777;
  }

  const test::TemporaryFolder folder_;
  const std::filesystem::path file_ = folder_ / "program.lock";
};

TEST_F(VNFileLockTest, IsHeldByOneProcessAtATime) {
  Holder holder;
  EXPECT_FALSE(obtains());
  EXPECT_FALSE(obtains());
  holder.end();
  EXPECT_TRUE(obtains());
}

TEST_F(VNFileLockTest, GoesWithAKilledProcess) {
  { const Holder killed; }
  EXPECT_TRUE(std::filesystem::exists(file_));
  EXPECT_TRUE(obtains());
}

TEST_F(VNFileLockTest, StaysWithTheObjectThatHoldsIt) {
  auto lock = VNFileLock::fileLockWithSorvaneProcessName("program");
  EXPECT_TRUE(lock->obtainLock());
  EXPECT_TRUE(lock->obtainLock());
  EXPECT_FALSE(obtains());
  lock.reset();
  EXPECT_TRUE(obtains());
}

TEST_F(VNFileLockTest, IsNotInheritedByACommandThatTheHolderStarts) {
  auto lock = VNFileLock::fileLockWithSorvaneProcessName("program");
  ASSERT_TRUE(lock->obtainLock());
  FILE* command = popen("read ending", "w");
  ASSERT_NE(command, nullptr);
  lock.reset();
  EXPECT_TRUE(obtains());
  pclose(command);
}

TEST_F(VNFileLockTest, OfAnotherProgramIsAnotherLock) {
  const Holder holder;
  EXPECT_TRUE(VNFileLock::fileLockWithSorvaneProcessName("other")->obtainLock());
}

TEST_F(VNFileLockTest, TellsTheProcessNumberOfItsHolderToEverybody) {
  umask(077);
  test::writeFile(file_, "1234567890123\n");
  std::filesystem::remove(file_);
  const Holder holder;
  EXPECT_EQ(test::readFile(file_), holder.number() + "\n");
  EXPECT_EQ(modeOf(file_), 0644U);
}

TEST_F(VNFileLockTest, ReplacesALongerNumberOfAnEarlierHolder) {
  test::writeFile(file_, "1234567890123\n");
  const Holder holder;
  EXPECT_EQ(test::readFile(file_), holder.number() + "\n");
}

TEST_F(VNFileLockTest, CreatesAMissingFolderThatEveryUserMayUse) {
  umask(077);
  useFolder(folder_ / "a/b");
  EXPECT_TRUE(obtains());
  EXPECT_EQ(modeOf(folder_ / "a"), 0755U);
  EXPECT_EQ(modeOf(folder_ / "a/b"), 01777U);
}

TEST_F(VNFileLockTest, DoesNotFollowALink) {
  test::writeFile(folder_ / "target", "precious");
  std::filesystem::create_symlink(folder_ / "target", file_);
  EXPECT_EQ(errorsOfObtaining(), "the process lock " + file_.string() +
                                     " cannot be taken: Too many levels of symbolic links\n");
  EXPECT_EQ(test::readFile(folder_ / "target"), "precious");
}

TEST_F(VNFileLockTest, DoesNotWriteIntoAFileThatHasAnotherName) {
  test::writeFile(folder_ / "target", "precious");
  std::filesystem::create_hard_link(folder_ / "target", file_);
  const Holder holder;
  EXPECT_FALSE(obtains());
  EXPECT_EQ(test::readFile(folder_ / "target"), "precious");
}

TEST_F(VNFileLockTest, ThatIsNoPlainFileCountsAsHeldElsewhere) {
  ASSERT_EQ(mkfifo(file_.c_str(), 0666), 0);
  EXPECT_EQ(errorsOfObtaining(),
            "the process lock " + file_.string() + " cannot be taken: Invalid argument\n");
  std::filesystem::remove(file_);
  std::filesystem::create_directory(file_);
  EXPECT_EQ(errorsOfObtaining(),
            "the process lock " + file_.string() + " cannot be taken: Is a directory\n");
}

TEST_F(VNFileLockTest, WhoseFolderCannotBeMadeCountsAsHeldElsewhere) {
  test::writeFile(folder_ / "file", "");
  useFolder(folder_ / "file");
  EXPECT_EQ(errorsOfObtaining(), "the process lock " + (folder_ / "file/program.lock").string() +
                                     " cannot be taken: Not a directory\n");
}

TEST_F(VNFileLockTest, OnARemovedFileHoldsNobodyOff) {
  const Holder holder;
  std::filesystem::remove(file_);
  EXPECT_TRUE(obtains());
  EXPECT_TRUE(std::filesystem::exists(file_));
}

/// Two users in a folder like /tmp.
class VNFileLockOfTwoUsers : public VNFileLockTest {
 protected:
  void SetUp() override {
    if (getuid() != 0) {
      GTEST_SKIP() << "only root can act as two users";
    }
    ASSERT_EQ(chmod(folder_.path().c_str(), 01777), 0);
  }
};

TEST_F(VNFileLockOfTwoUsers, ServesAUserWhoDidNotCreateTheFile) {
  {
    const Holder creator(kOneUser);
    EXPECT_FALSE(obtains(kOtherUser));
    EXPECT_FALSE(obtains(0));
  }
  EXPECT_TRUE(obtains(kOtherUser));
  EXPECT_TRUE(obtains(0));
  const Holder other(kOtherUser);
  EXPECT_FALSE(obtains(kOneUser));
  EXPECT_NE(test::readFile(file_), other.number() + "\n") << "the other user could write";
}

TEST_F(VNFileLockOfTwoUsers, LeftByRootServesAnyUser) {
  EXPECT_TRUE(obtains(0));
  const Holder user(kOneUser);
  EXPECT_FALSE(obtains(0));
}

TEST_F(VNFileLockOfTwoUsers, ThatMayNotBeReadCountsAsHeldElsewhere) {
  test::writeFile(file_, "");
  ASSERT_EQ(chmod(file_.c_str(), 0600), 0);
  EXPECT_EQ(errorsOfObtaining(kOneUser),
            "the process lock " + file_.string() + " cannot be taken: Permission denied\n");
}

TEST_F(VNFileLockOfTwoUsers, InAFolderThatMayNotBeWrittenCountsAsHeldElsewhere) {
  ASSERT_EQ(chmod(folder_.path().c_str(), 0755), 0);
  EXPECT_EQ(errorsOfObtaining(kOneUser),
            "the process lock " + file_.string() + " cannot be taken: Permission denied\n");
}

TEST_F(VNFileLockOfTwoUsers, ServesOnAFileSystemThatIsReadOnly) {
  if (const std::string why = test::whyNoOwnNetwork(); !why.empty()) {
    GTEST_SKIP() << why;
  }
  test::inOwnNetwork([&] {
    const std::string folder = folder_ / "readonly";
    std::filesystem::create_directory(folder);
    ASSERT_EQ(mount("none", folder.c_str(), "tmpfs", 0, nullptr), 0);
    test::writeFile(folder + "/program.lock", "");
    ASSERT_EQ(mount("none", folder.c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr), 0);
    useFolder(folder);
    const Holder holder;
    EXPECT_FALSE(obtains());
  });
}

// ---- Looking at a lock

using State = FileLockLook::State;

FileLockLook look() { return VNFileLock::look("program"); }

TEST_F(VNFileLockTest, LookAtALockWithoutAFileFindsItFreeAndCreatesNothing) {
  EXPECT_EQ(look().state, State::free);
  EXPECT_EQ(look().path, file_.string());
  EXPECT_FALSE(std::filesystem::exists(file_));
  useFolder((folder_ / "none").string());
  EXPECT_EQ(look().state, State::free);
  EXPECT_FALSE(std::filesystem::exists(folder_ / "none"));
}

TEST_F(VNFileLockTest, LookTellsItsHolder) {
  Holder holder;
  const FileLockLook seen = look();
  EXPECT_EQ(std::to_string(seen.written.value_or(0)), holder.number());
  if (SORVANE_PORTABLE_HOST_NETWORK) {
    EXPECT_EQ(seen.state, State::unknown);
    return;
  }
  EXPECT_EQ(seen.state, State::held);
  EXPECT_EQ(std::to_string(seen.holder.value_or(0)), holder.number());
  holder.end();
  EXPECT_EQ(look().state, State::free);
  EXPECT_EQ(look().holder, std::nullopt);
  EXPECT_EQ(std::to_string(look().written.value_or(0)), holder.number()) << "it stays in the file";
}

TEST_F(VNFileLockTest, LookTakesTheLockNotEvenForAMoment) {
  { const Holder left; }
  const test::ForkedPart looking([](const test::ForkedPart& self) {
    static_cast<void>(look());
    self.tell(1);
    for (;;) {
      static_cast<void>(look());
    }
  });
  ASSERT_EQ(looking.hear(), 1);
  for (int attempt = 0; attempt < 50; ++attempt) {
    EXPECT_TRUE(VNFileLock::fileLockWithSorvaneProcessName("program")->obtainLock()) << attempt;
  }
}

TEST_F(VNFileLockTest, LookAtWhatIsNoLockFileTellsTheReason) {
  std::filesystem::create_directory(file_);
  EXPECT_EQ(look().state, State::unusable);
  EXPECT_EQ(look().reason, "it is no plain file");
  std::filesystem::remove(file_);
  std::filesystem::create_symlink("elsewhere", file_);
  EXPECT_EQ(look().state, State::unusable);
  EXPECT_NE(look().reason, "");
}

TEST_F(VNFileLockTest, LookByAUserWhoMayNotReadItDoesNotKnow) {
  test::writeFile(file_, "");
  std::filesystem::permissions(file_, std::filesystem::perms::none);
  test::inOwnProcess([] {
    ASSERT_TRUE(geteuid() != 0 || setuid(kOneUser) == 0);
    EXPECT_EQ(look().state, State::unknown);
    EXPECT_NE(look().reason, "");
  });
}

TEST_F(VNFileLockTest, OfWhichADescriptorIsLeftIsFoundAmongOthers) {
  const auto lock = VNFileLock::fileLockWithSorvaneProcessName("program");
  EXPECT_LT(VNFileLock::descriptorOfHeldLock("program", {STDERR_FILENO}), 0);
  ASSERT_TRUE(lock->obtainLock());
  const Descriptor other(open("/dev/null", O_RDONLY | O_CLOEXEC));
  const std::vector<int> all{STDERR_FILENO, other.number(), lock->descriptor()};
  EXPECT_EQ(VNFileLock::descriptorOfHeldLock("program", all), lock->descriptor());
  EXPECT_LT(VNFileLock::descriptorOfHeldLock("other", all), 0);
  EXPECT_LT(VNFileLock::descriptorOfHeldLock("program", {other.number()}), 0);
}

TEST_F(VNFileLockTest, ThatIsTakenOverIsClosedInOtherPrograms) {
  const auto lock = VNFileLock::fileLockWithSorvaneProcessName("program");
  ASSERT_TRUE(lock->obtainLock());
  const int descriptor = dup(lock->descriptor());
  ASSERT_EQ(fcntl(descriptor, F_GETFD), 0);
  const auto held = VNFileLock::heldLock("program", Descriptor(descriptor));
  ASSERT_NE(held, nullptr);
  EXPECT_EQ(fcntl(descriptor, F_GETFD), FD_CLOEXEC);
}

}  // namespace
}  // namespace sorvane
