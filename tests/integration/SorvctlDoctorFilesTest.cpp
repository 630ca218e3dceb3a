// What `sorvctl doctor` finds about the files of the name server, their disk, and the clock.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "integration/PatientHost.h"
#include "integration/ShiftedClock.h"

namespace sorvane::test {
namespace {

namespace fs = std::filesystem;

constexpr unsigned kUser = 65001;

class SorvctlDoctorFiles : public DoctorTest {
 protected:
  [[nodiscard]] fs::path folder(const char* name) const { return host->server.tree() / name; }
  [[nodiscard]] fs::path log() const { return folder("Logs") / "infoserver_log"; }

  /// Starts the name server as a user of its own, who may write to these folders.
  void startAsUser(std::initializer_list<const char*> folders) {
    for (const char* each : folders) {
      ASSERT_EQ(chown(folder(each).c_str(), kUser, kUser), 0);
    }
    host->startServer({"-noexit"}, asUser(kUser));
  }

  /// Puts the log on a disk of its own.
  void mountDisk(const std::string& size) const {
    host->run("mount", {"-t", "tmpfs", "-o", "size=" + size, "tmpfs", folder("Logs")});
  }
  void fillDisk(const std::string& kibibytes) const {
    host->run("sh", {"-c", "dd if=/dev/zero of=" + (folder("Logs") / "filler").string() +
                               " bs=1k count=" + kibibytes + " || true"});
  }
};

TEST_F(SorvctlDoctorFiles, ThatTheUserOfTheNameServerMayWriteAreWellForRootAndForThatUser) {
  startAsUser({"Logs", "Users", "lock"});
  EXPECT_EQ(host->examine().found(), Ids());
  EXPECT_EQ(host->examine().notLookedAt(), Ids());
  const Examination told = host->examine({}, asUser(kUser));
  EXPECT_EQ(told.found(), Ids());
  EXPECT_EQ(told.notLookedAt(), Ids());
}

TEST_F(SorvctlDoctorFiles, LogThatTheUserOfTheNameServerMayNotWriteIsWrong) {
  startAsUser({"Users", "lock"});
  for (const auto& look : {std::function<void()>(), asUser(kUser)}) {
    const Examination told = host->examine({}, look);
    EXPECT_EQ(told.status, 1);
    EXPECT_EQ(told.found(), Ids{"log-unwritable"});
    EXPECT_EQ(told.what("log-unwritable"),
              "the user 65001 cannot write the log, " + log().string() + ": Permission denied");
  }
}

TEST_F(SorvctlDoctorFiles, LogWithoutAFolderIsWrong) {
  host->startServer();
  fs::remove_all(folder("Logs"));
  const Examination told = host->examine();
  EXPECT_EQ(told.found(), Ids{"log-unwritable"});
  EXPECT_NE(told.what("log-unwritable").find("No such file"), std::string::npos);
}

TEST_F(SorvctlDoctorFiles, PreferencesThatTheUserOfTheNameServerMayNotWriteAreWrong) {
  startAsUser({"Logs", "lock"});
  const Examination told = host->examine();
  EXPECT_EQ(told.status, 1);
  EXPECT_EQ(told.found(), Ids{"preferences-unwritable"});
}

TEST_F(SorvctlDoctorFiles, PreferencesInAFolderThatIsStillMissingAreWell) {
  fs::remove_all(folder("Users"));
  host->startServer();
  EXPECT_EQ(host->examine().found(), Ids());
}

TEST_F(SorvctlDoctorFiles, OnADiskThatTheNameServerSeesAsReadOnlyAreWrong) {
  host->run("mount", {"-t", "tmpfs", "-o", "ro", "tmpfs", folder("Logs")});
  host->startServer();
  const Examination told = host->examine();
  EXPECT_EQ(told.found(), (Ids{"log-unwritable"}));
  EXPECT_NE(told.what("log-unwritable").find("Read-only"), std::string::npos)
      << told.what("log-unwritable");
}

TEST_F(SorvctlDoctorFiles, LogThatHasStoppedAtItsLimitIsWrong) {
  host->server.setting("MaxLogBytes", "200");
  host->startServer({"-verbose"});
  ASSERT_TRUE(waitUntil([this] {
    static_cast<void>(host->sorvctl({"--timeout", "10", "find", "db1"}));
    return readFile(log()).find("The log has reached MaxLogBytes.") != std::string::npos;
  }));
  const Examination told = host->examine();
  EXPECT_EQ(told.status, 1);
  EXPECT_EQ(told.found(), Ids{"log-full"});
}

TEST_F(SorvctlDoctorFiles, DiskThatIsFullIsWrong) {
  mountDisk("1m");
  host->startServer();
  EXPECT_EQ(host->examine().found(), Ids());
  fillDisk("2048");
  const Examination told = host->examine();
  EXPECT_EQ(told.status, 1);
  EXPECT_EQ(told.found(), Ids{"disk-full"});
}

TEST_F(SorvctlDoctorFiles, DiskThatIsNearlyFullIsDoubtful) {
  mountDisk("4m");  // a twentieth is 205 KiB, and 64 KiB count as nothing
  host->startServer();
  fillDisk("3968");
  const Examination told = host->examine();
  EXPECT_EQ(told.status, 0);
  EXPECT_EQ(told.found(), Ids{"disk-nearly-full"});
}

// ---- The clock

class SorvctlDoctorClock : public DoctorTest {};

TEST_F(SorvctlDoctorClock, ThatIsBeforeTheBuildIsWrong) {
  host->startServer();
  const ShiftedClock clock;
  clock.setAhead(-10LL * 365 * 86400);
  const Examination told = host->examine({}, clock.use());
  EXPECT_EQ(told.status, 1);
  EXPECT_EQ(told.found(), Ids{"clock-before-build"});
}

TEST_F(SorvctlDoctorClock, ThatIsBehindTheLogIsDoubtful) {
  host->startServer();
  const fs::path log = host->server.tree() / "Logs/infoserver_log";
  fs::last_write_time(log, fs::file_time_type::clock::now() + std::chrono::hours(30));
  const Examination told = host->examine();
  EXPECT_EQ(told.status, 0);
  EXPECT_EQ(told.found(), Ids{"clock-behind-files"});
}

}  // namespace
}  // namespace sorvane::test
