// "sorvctl upgrade" at servers that play the part of a name server: with its lock and its port, in
// processes of their own that get real signals.
#include <fcntl.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/mount.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <string>

#include "integration/Daemon.h"
#include "integration/Sorvctl.h"
#include "integration/UpgradeHost.h"
#include "support/ForkedPart.h"
#include "support/OwnNamespaces.h"
#include "support/Program.h"
#include "support/TestFiles.h"

namespace sorvane::test {
namespace {

namespace fs = std::filesystem;

class SorvctlUpgrade : public testing::Test, protected UpgradeHost {};

/// Who holds a lock, who listens on a port, and of what program a process is.
class SorvctlUpgradeWhereTheSystemTells : public SorvctlUpgrade {
 protected:
  void SetUp() override {
    if (SORVANE_PORTABLE_HOST_NETWORK) {
      GTEST_SKIP() << "on this system nobody is told who holds a lock or listens on a port";
    }
    SorvctlUpgrade::SetUp();
  }
};

TEST_F(SorvctlUpgrade, WaitsForTheNewProgramAndTellsBothVersions) {
  starts("upgrades");
  const std::string process = std::to_string(server().process());
  const Outcome first = tool({"upgrade"});
  EXPECT_EQ(first.status, 0) << first.errors;
  EXPECT_EQ(first.output, "upgraded from 1.0 to 1.1\n");
  EXPECT_EQ(first.errors, "");
  const Outcome second = tool({"--json", "upgrade"});
  EXPECT_EQ(second.output,
            "{\"process\":" + process + R"(,"from":"1.1","to":"1.2","upgrades":2})" + "\n");
  EXPECT_TRUE(server().isRunning());
}

TEST_F(SorvctlUpgrade, TellsThatTheVersionIsTheSame) {
  starts("repeats");
  const Outcome outcome = tool({"upgrade"});
  EXPECT_EQ(outcome.status, 0) << outcome.errors;
  EXPECT_EQ(outcome.output, "upgraded in place, still version 1.0: the settings were read anew\n");
}

TEST_F(SorvctlUpgrade, ConnectsAnewIfTheConnectionDoesNotSurvive) {
  starts("drops");
  const Outcome outcome = tool({"upgrade"});
  EXPECT_EQ(outcome.status, 0) << outcome.errors;
  EXPECT_EQ(outcome.output, "upgraded from 1.0 to 1.1\n");
}

TEST_F(SorvctlUpgrade, TellsWhyItIsRefused) {
  starts("refuses");
  for (int attempt = 0; attempt < 2; ++attempt) {
    expectFailure(tool({"upgrade"}), 1, "not upgraded: the new program does not know\\nversion 7");
  }
  EXPECT_TRUE(server().isRunning());
}

TEST_F(SorvctlUpgradeWhereTheSystemTells, EndsWithTheTimeAndTellsHowFarItIs) {
  starts("hangs");
  const auto begin = std::chrono::steady_clock::now();
  expectFailure(tool({"upgrade", "--timeout", "1.5"}), 1,
                "the time is over: sorvinfo (process " + std::to_string(server().process()) +
                    ") has begun the upgrade and not finished it");
  EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(1500));
}

TEST_F(SorvctlUpgrade, TellsThatItHasNotBegun) {
  starts("ignores");
  expectFailure(tool({"upgrade", "--timeout", "1.5"}), 1, "has not begun the upgrade");
}

TEST_F(SorvctlUpgrade, SendsNoSignalToAnEarlierRelease) {
  starts("earlier");
  expectFailure(tool({"upgrade"}), 4,
                "is of a release that cannot be upgraded in place: restart it");
  EXPECT_TRUE(server().isRunning());
}

TEST_F(SorvctlUpgradeWhereTheSystemTells, TellsThatTheNameServerHasEnded) {
  starts("dies");
  const auto process = server().process();
  expectFailure(tool({"upgrade"}), 1,
                "sorvinfo (process " + std::to_string(process) + ") has ended");
}

TEST_F(SorvctlUpgrade, TellsThatAnotherNameServerHasBegun) {
  starts("begins");
  expectFailure(tool({"upgrade"}), 1, "another name server has begun anew");
}

TEST_F(SorvctlUpgrade, WithoutANameServerSaysSo) {
  expectFailure(tool({"upgrade"}), 3,
                "no name server runs on this host: nobody holds " + lock().string());
  fs::create_directory(lock());
  expectFailure(tool({"upgrade"}), 1, lock().string() + ": it is no plain file");
}

TEST_F(SorvctlUpgradeWhereTheSystemTells, OfALockThatAStrangerHoldsSendsNoSignal) {
  const ForkedPart stranger([this](const ForkedPart& self) {
    const int file = open(lock().c_str(), O_RDWR | O_CREAT, 0644);
    self.tell(flock(file, LOCK_EX | LOCK_NB) == 0 ? 1 : 0);
    pause();
  });
  ASSERT_EQ(stranger.hear(), 1);
  expectFailure(tool({"upgrade"}), 1, "which is no name server");
  EXPECT_EQ(kill(stranger.process(), 0), 0);
}

TEST_F(SorvctlUpgrade, SendsNoSignalToAProcessThatDidNotAnswer) {
  starts("upgrades");
  // Of an earlier release, with a lock of its own, which the settings name by mistake.
  const FreePorts others;
  fs::create_directory(folder() / "other");
  const auto other = startsAt(folder() / "other/sorvinfo.lock", others.base(), "earlier");
  looksForLockIn(folder() / "other");
  expectFailure(tool({"upgrade"}), 1, "is served by process " + std::to_string(server().process()));
  EXPECT_TRUE(other->isRunning());
}

// As in a container, or in a unit that hides the system.
TEST_F(SorvctlUpgrade, TakesTheProcessThatTheFileNamesWhereTheSystemTellsNoHolder) {
  if (geteuid() != 0) {
    GTEST_SKIP() << "needs root";
  }
  inOwnMounts([this] {
    ASSERT_EQ(mount("proc", "/proc", "proc", 0, "subset=pid"), 0);
    starts("upgrades");
    EXPECT_EQ(tool({"upgrade"}).output, "upgraded from 1.0 to 1.1\n");
    const std::string none = std::to_string(1 << 30);
    writeFile(lock(), none);
    expectFailure(tool({"upgrade"}), 3,
                  lock().string() + " names process " + none + ", which is gone");
  });
}

TEST_F(SorvctlUpgrade, OfAnotherUsersNameServerSaysSo) {
  if (geteuid() != 0) {
    GTEST_SKIP() << "needs root";
  }
  starts("upgrades");
  const Program::Options asUser{
      .input = {}, .beforeStart = [] {
        ASSERT_TRUE(setgroups(0, nullptr) == 0 && setgid(65534) == 0 && setuid(65534) == 0);
      }};
  Program asNobody(toolPath(), {"upgrade"}, asUser);
  EXPECT_EQ(asNobody.wait(), 1);
  EXPECT_NE(asNobody.errors().find("is another user's: upgrade it as root"), std::string::npos)
      << asNobody.errors();
  fs::permissions(lock(), fs::perms::owner_all);
  Program unable(toolPath(), {"upgrade"}, asUser);
  EXPECT_EQ(unable.wait(), 1);
  EXPECT_NE(unable.errors().find(lock().string() + ": Permission denied"), std::string::npos)
      << unable.errors();
}

TEST_F(SorvctlUpgrade, IsDoneOnTheHostOfTheNameServer) {
  expectFailure(tool({"--host", "192.0.2.99", "upgrade"}), 2, "do it on 192.0.2.99");
  starts("upgrades");
  EXPECT_EQ(tool({"--host", "127.0.0.1", "upgrade"}).output, "upgraded from 1.0 to 1.1\n");
}

}  // namespace
}  // namespace sorvane::test
