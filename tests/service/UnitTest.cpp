// The files that tell other programs of the platform about the name server.
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <regex>

#include "daemon/CommandLine.h"
#include "platform/Settings.h"
#include "service/UnitFile.h"
#include "support/Program.h"
#include "support/TestFiles.h"

namespace sorvane::test {
namespace {

namespace fs = std::filesystem;

constexpr const char* kAnalyze = "/usr/bin/systemd-analyze";

/// A copy of the unit, and of what changes it for a folder of its own, whose program exists.
class UnitCopy {
 public:
  UnitCopy() {
    copy("sorvinfo.service", "sorvinfo.service");
    copy("sorvinfo-opt.conf", "sorvinfo.service.d/opt.conf");
  }
  [[nodiscard]] std::string path() const { return folder_ / "sorvinfo.service"; }

 private:
  void copy(const std::string& from, const std::string& to) const {
    writeFile(folder_ / to,
              std::regex_replace(readFile(packagingFile(from)),
                                 std::regex("/[a-z/]*bin/sorv(info|ctl)"), "/bin/true"));
  }
  TemporaryFolder folder_;
};

TEST(Unit, IsUnderstoodWholeBySystemd) {
  const UnitCopy unit;
  const Outcome verified = run(kAnalyze, {"verify", "--man=no", unit.path()});
  EXPECT_EQ(verified.status, 0);
  EXPECT_EQ(verified.errors, "");
}

// The scale of systemd-analyze goes from 0 to 10, its threshold from 0 to 100.
TEST(Unit, LeavesTheNameServerOpenToLittle) {
  const Outcome judged = run(kAnalyze, {"security", "--offline=true", "--threshold=15",
                                        "--no-pager", packagingFile("sorvinfo.service")});
  EXPECT_EQ(judged.status, 0) << judged.output << judged.errors;
}

// The status tells no start that has found another name server from any other end.
TEST(Unit, TriesAgainForEverButNotInATightLoop) {
  const UnitFile& unit = unitOfNameServer();
  EXPECT_EQ(unit.value("Service", "Restart"), "always");
  EXPECT_GE(std::stoi(unit.value("Service", "RestartSec")), 5);
  EXPECT_EQ(unit.value("Unit", "StartLimitIntervalSec"), "0");
}

TEST(Unit, StartsTheNameServerInTheForegroundAndIsToldWhenItServes) {
  const std::vector<std::string> words = unitOfNameServer().words("Service", "ExecStart");
  ASSERT_EQ(words.size(), 2U);
  EXPECT_EQ(startMode(words[1].c_str()), StartMode::foreground);
  EXPECT_EQ(unitOfNameServer().value("Service", "Type"), "notify");
  EXPECT_EQ(unitOfNameServer().value("Service", "NotifyAccess"), "all") << "see SurviveCrashes";
  EXPECT_GE(std::stoi(unitOfNameServer().value("Service", "WatchdogSec")), 30);
}

// By root, and outside of the unit: its processes do not see each other.
TEST(Unit, IsReloadedByAnUpgradeInPlaceWhoseReasonsGoToTheJournal) {
  EXPECT_EQ(unitOfNameServer().value("Service", "ExecReload"),
            "+/bin/sh -c 'exec /usr/bin/sorvctl upgrade 2>&1'");
}

// Killing the serving process for its memory is not to end the one that replaces it.
TEST(Unit, GoesOnWhenAProcessIsKilledForItsMemory) {
  EXPECT_EQ(unitOfNameServer().value("Service", "OOMPolicy"), "continue");
}

TEST(FirewallService, OpensTheDefaultPort) {
  const Outcome port =
      run("/usr/bin/python3", {"-c",
                               "import sys, xml.etree.ElementTree as tree\n"
                               "service = tree.parse(sys.argv[1]).getroot()\n"
                               "assert service.tag == 'service' and service.find('short').text\n"
                               "print(*[(each.get('protocol'), each.get('port')) "
                               "for each in service.findall('port')])",
                               packagingFile("firewalld/sorvane.xml")});
  EXPECT_EQ(port.errors, "");
  EXPECT_EQ(port.output, "('tcp', '" + std::to_string(Settings().basePort) + "')\n");
}

// launchd itself is on another system; plutil is the judge where there is one.
TEST(LaunchdPropertyList, StartsTheNameServerAgainWheneverItEnds) {
  const std::string file = packagingFile("launchd/sorvane.sorvinfo.plist");
  if (fs::exists("/usr/bin/plutil")) {
    EXPECT_EQ(run("/usr/bin/plutil", {"-lint", file}).status, 0);
  }
  const Outcome read =
      run("/usr/bin/python3", {"-c",
                               "import plistlib, sys\n"
                               "job = plistlib.load(open(sys.argv[1], 'rb'))\n"
                               "assert job['Label'] == 'sorvane.sorvinfo' and job['UserName']\n"
                               "assert job['KeepAlive'] is True and job['RunAtLoad'] is True\n"
                               "assert job['ThrottleInterval'] >= 5\n"
                               "program, word = job['ProgramArguments']\n"
                               "assert program.endswith('/bin/sorvinfo')\n"
                               "print(word, end='')",
                               file});
  EXPECT_EQ(read.errors, "");
  EXPECT_NE(startMode(read.output.c_str()), StartMode::detached);
  EXPECT_NE(startMode(read.output.c_str()), StartMode::stopAll);
}

}  // namespace
}  // namespace sorvane::test
