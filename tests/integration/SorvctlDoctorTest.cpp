// What `sorvctl doctor` tells of a host on which all is well, and how it tells what is not.
#include <gtest/gtest.h>

#include <filesystem>
#include <map>

#include "integration/PatientHost.h"

namespace sorvane::test {
namespace {

namespace fs = std::filesystem;

class SorvctlDoctor : public DoctorTest {
 protected:
  /// All that lies in the installation, with its content.
  [[nodiscard]] std::map<std::string, std::string> installation() const {
    std::map<std::string, std::string> files;
    for (const auto& each : fs::recursive_directory_iterator(host->server.tree())) {
      files[each.path()] =
          each.is_regular_file() && each.path().extension() != "" ? readFile(each.path()) : "";
    }
    return files;
  }
};

TEST_F(SorvctlDoctor, FindsNothingWhereAllIsWellAndSaysSoInOneLine) {
  host->startServer();
  const Outcome outcome = host->sorvctl({"doctor", "--timeout", "60"});
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.errors, "");
  EXPECT_EQ(outcome.output,
            "all is well: settings, lock, port, addresses, host name, host file, Bonjour, "
            "connections, names, files, clock, version\n");
}

TEST_F(SorvctlDoctor, TellsInJsonWhatEachCheckHasSeen) {
  host->startServer();
  const Examination told = host->examine();
  EXPECT_EQ(told.status, 0);
  EXPECT_EQ(told.report.at("well"), true);
  EXPECT_EQ(told.found(), Ids());
  EXPECT_EQ(told.notLookedAt(), Ids());
  const std::string process = std::to_string(host->server.process());
  EXPECT_EQ(told.seen("settings").find((host->server.tree() / "etc/sorvane.conf").string()), 0U);
  EXPECT_EQ(told.seen("lock"), (host->server.tree() / "lock/sorvinfo.lock").string() +
                                   " is held by sorvinfo (process " + process + ")");
  EXPECT_EQ(told.seen("port"), "port " + std::to_string(host->server.basePort()) +
                                   ": sorvinfo (process " + process + ") listens and answers");
  EXPECT_EQ(told.seen("addresses"), "the name server listens on ::");
  EXPECT_EQ(told.seen("host name"), "dbhost means 192.0.2.7");
  EXPECT_EQ(told.seen("Bonjour"), "is off: BonjourDisabled = YES");
  EXPECT_TRUE(told.seen("connections").ends_with(" are taken")) << told.seen("connections");
}

TEST_F(SorvctlDoctor, VerboseTellsALineForEachCheck) {
  host->startServer();
  const Outcome outcome = host->sorvctl({"doctor", "--verbose", "--timeout", "60"});
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(std::count(outcome.output.begin(), outcome.output.end(), '\n'), 13) << outcome.output;
  EXPECT_NE(outcome.output.find("\nhost name: dbhost means 192.0.2.7\n"), std::string::npos);
  EXPECT_NE(outcome.output.find("\nall is well: "), std::string::npos);
}

TEST_F(SorvctlDoctor, TellsALineForEachFindingWithItsRemedyWhatIsWrongFirst) {
  host->startServer();
  host->changeSettings("Threds = 4;\n");
  host->namesAre("198.51.100.9 dbhost\n");
  const Outcome outcome = host->sorvctl({"doctor", "--timeout", "60"});
  EXPECT_EQ(outcome.status, 1);
  const std::string file = (host->server.tree() / "etc/sorvane.conf").string();
  const auto wrong = outcome.output.find(
      "wrong: the name of this host, dbhost, means 198.51.100.9, which is another host. Correct "
      "the DNS, /etc/hosts or HostName: clients look for its databases there. "
      "[host-name-elsewhere]\n");
  const auto doubtful = outcome.output.find("\ndoubtful: " + file + ":");
  EXPECT_EQ(wrong, 0U) << outcome.output;
  EXPECT_NE(doubtful, std::string::npos) << outcome.output;
  EXPECT_EQ(std::count(outcome.output.begin(), outcome.output.end(), '\n'), 2) << outcome.output;
}

TEST_F(SorvctlDoctor, StatusIsZeroForWhatIsOnlyDoubtful) {
  host->startServer();
  host->changeSettings("Threds = 4;\n");
  const Examination told = host->examine();
  EXPECT_EQ(told.found(), Ids{"settings-unknown"});
  EXPECT_EQ(told.report.at("well"), true);
  EXPECT_EQ(told.status, 0);
}

TEST_F(SorvctlDoctor, OfAnotherHostIsWrongUsage) {
  host->startServer();
  const Outcome outcome = host->sorvctl({"doctor", "--host", "198.51.100.9"});
  EXPECT_EQ(outcome.status, 2);
  EXPECT_EQ(outcome.output, "");
  EXPECT_NE(outcome.errors.find("run it on 198.51.100.9"), std::string::npos) << outcome.errors;
  EXPECT_EQ(host->sorvctl({"doctor", "--host", "dbhost", "--timeout", "60"}).status, 0);
}

TEST_F(SorvctlDoctor, ChangesNothingAndLeavesNothingBehind) {
  host->startServer();
  const auto before = installation();
  const Outcome databases = host->sorvctl({"--json", "list"});
  EXPECT_EQ(host->examine().status, 0);
  EXPECT_EQ(installation(), before);
  EXPECT_EQ(host->sorvctl({"--json", "list"}).output, databases.output);
  host->server.kill();
  const auto withoutServer = installation();
  EXPECT_EQ(host->examine().status, 1);
  EXPECT_EQ(installation(), withoutServer);
}

TEST_F(SorvctlDoctor, OfAnOrdinaryUserSaysWhatItCouldNotLookAt) {
  host->startServer();
  const Examination told = host->examine({}, asUser(65002));
  EXPECT_EQ(told.status, 0);
  EXPECT_EQ(told.found(), Ids()) << "what cannot be seen is no finding";
  const std::string log = (host->server.tree() / "Logs/infoserver_log").string();
  const std::string preferences = (host->server.tree() / "Users/SorvPreferences").string();
  EXPECT_EQ(told.notLookedAt(),
            (Ids{"settings: which settings file the name server reads",
                 "files: whether " + log + " and " + preferences + " can be written",
                 "files: whether the log has reached MaxLogBytes"}));
  const Outcome text = host->sorvctl({"doctor", "--timeout", "60"}, asUser(65002));
  EXPECT_NE(text.output.find("\nnot looked at: "), std::string::npos) << text.output;
}

}  // namespace
}  // namespace sorvane::test
