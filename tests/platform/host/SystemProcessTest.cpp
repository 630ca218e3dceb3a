#include <grp.h>
#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/Descriptor.h"
#include "platform/Settings.h"
#include "platform/SystemProcess.h"
#include "support/ForkedPart.h"

namespace sorvane {
namespace {

using std::chrono::system_clock;

/// The Linux tests are for what other systems do not tell.
class SystemProcessOnLinux : public testing::Test {
 protected:
  void SetUp() override {
    if (SORVANE_PORTABLE_HOST_NETWORK) {
      GTEST_SKIP() << "this build knows only whether a process is alive";
    }
  }
};

TEST(SystemProcess, IsThereAsLongAsItLives) {
  test::ForkedPart child([] { pause(); });
  const auto process = systemProcess(child.process());
  ASSERT_TRUE(process.has_value());
  EXPECT_EQ(process->number, child.process());
  child.end();
  EXPECT_EQ(systemProcess(child.process()), std::nullopt);
}

TEST(SystemProcess, NumberThatIsNoneHasNone) {
  EXPECT_EQ(systemProcess(0), std::nullopt);
  EXPECT_EQ(systemProcess(-1), std::nullopt);
}

TEST(SystemProcess, UserWithoutANameIsItsNumber) {
  EXPECT_EQ(userName(0), "root");
  EXPECT_EQ(userName(65001), "65001");
}

TEST_F(SystemProcessOnLinux, TellsItsProgram) {
  const auto self = systemProcess(getpid());
  ASSERT_TRUE(self.has_value());
  EXPECT_EQ(self->executable, executableFolder() + "/platform_tests");
  test::ForkedPart child([](const test::ForkedPart& part) {
    prctl(PR_SET_NAME, "a) b (c");
    part.tell(1);
    pause();
  });
  ASSERT_EQ(child.hear(), 1);
  const auto process = systemProcess(child.process());
  EXPECT_EQ(process->name, "a) b (c");
  EXPECT_TRUE(process->started.has_value()) << "whatever its name";
}

TEST_F(SystemProcessOnLinux, TellsItsParent) {
  const test::ForkedPart child([] { pause(); });
  EXPECT_EQ(systemProcess(child.process())->parent, getpid());
}

TEST_F(SystemProcessOnLinux, TellsWhenItStarted) {
  const auto before = system_clock::now();
  test::ForkedPart child([] { pause(); });
  const auto after = system_clock::now();
  const auto started = systemProcess(child.process())->started;
  ASSERT_TRUE(started.has_value());
  EXPECT_GE(*started, before - std::chrono::seconds(1));
  EXPECT_LE(*started, after + std::chrono::seconds(1));
}

TEST_F(SystemProcessOnLinux, TellsItsOwnerAndItsLimit) {
  if (geteuid() != 0) {
    GTEST_SKIP() << "only root can become another user";
  }
  test::ForkedPart child([](const test::ForkedPart& part) {
    const gid_t groups[] = {65003, 65004};
    const rlimit limit{321, 321};
    const bool done = setrlimit(RLIMIT_NOFILE, &limit) == 0 && setgroups(2, groups) == 0 &&
                      setgid(65002) == 0 && setuid(65001) == 0;
    part.tell(done ? 1 : 0);
    pause();
  });
  ASSERT_EQ(child.hear(), 1);
  const auto process = systemProcess(child.process());
  ASSERT_TRUE(process && process->owner);
  EXPECT_EQ(process->owner->user, 65001U);
  EXPECT_EQ(process->owner->group, 65002U);
  EXPECT_EQ(process->owner->groups, (std::vector<gid_t>{65003, 65004}));
  EXPECT_EQ(process->openFileLimit, 321U);
}

TEST_F(SystemProcessOnLinux, RootOfAnotherUsersProcessIsNotOpened) {
  const Descriptor own = openRootOfProcess(getpid());
  struct stat here {};
  struct stat there {};
  ASSERT_TRUE(own.isOpen());
  ASSERT_EQ(stat("/", &here), 0);
  ASSERT_EQ(fstat(own.number(), &there), 0);
  EXPECT_EQ(here.st_ino, there.st_ino);
  test::inOwnProcess([] {
    ASSERT_TRUE(geteuid() != 0 || setuid(65001) == 0);
    EXPECT_FALSE(openRootOfProcess(1).isOpen());
  });
}

}  // namespace
}  // namespace sorvane
