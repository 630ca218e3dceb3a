// What `sorvctl doctor` finds in the settings, and in the versions of the programs.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>

#include "integration/PatientHost.h"
#include "platform/ProductVersion.h"

namespace sorvane::test {
namespace {

namespace fs = std::filesystem;

class SorvctlDoctorSettings : public DoctorTest {
 protected:
  [[nodiscard]] fs::path file() const { return host->server.tree() / "etc/sorvane.conf"; }
};

TEST_F(SorvctlDoctorSettings, ThatCannotBeUsedComeFirst) {
  host->startServer();
  host->changeSettings("Threads = many;\n");
  const Examination told = host->examine();
  EXPECT_EQ(told.status, 1);
  EXPECT_EQ(told.found(), Ids{"settings-unusable"});
  EXPECT_NE(told.what("settings-unusable").find("Threads: a whole number"), std::string::npos);
  const Outcome text = host->sorvctl({"doctor"});
  EXPECT_NE(
      text.output.find("\nnot looked at: lock, port, addresses, host name, host file, "
                       "Bonjour, connections, names, files, version: the settings come first\n"),
      std::string::npos)
      << text.output;
}

TEST_F(SorvctlDoctorSettings, WithAnUnknownNameAreDoubtful) {
  host->startServer();
  host->changeSettings("Baseport = 1;\n");
  const Examination told = host->examine();
  EXPECT_EQ(told.found(), Ids{"settings-unknown"});
  EXPECT_EQ(told.what("settings-unknown").find(file().string() + ":"), 0U);
  EXPECT_NE(told.what("settings-unknown").find("Baseport"), std::string::npos);
}

TEST_F(SorvctlDoctorSettings, OfAnotherInstallationAreTold) {
  host->startServer();
  const TemporaryFolder other;
  fs::create_directory(other / "bin");
  fs::copy_file(builtProgram("sorvctl"), other / "bin/sorvctl");
  writeFile(other / "etc/sorvane.conf", readFile(file()) + "InstallationDirectory = \"" +
                                            host->server.tree().string() + "\";\n");
  Program program(other / "bin/sorvctl", {"--json", "doctor", "--timeout", "60"},
                  {"", [this] { network->enter(); }});
  const Examination told{program.wait().value_or(-1), nlohmann::json::parse(program.output())};
  EXPECT_EQ(told.found(), Ids{"settings-other-file"});
  EXPECT_EQ(told.what("settings-other-file"), "the name server, " +
                                                  host->server.executable().string() + ", reads " +
                                                  file().string() + ", and this command reads " +
                                                  (other / "etc/sorvane.conf").string());
}

TEST_F(SorvctlDoctorSettings, ThatAreNewerThanTheNameServerAreTold) {
  host->startServer();
  fs::last_write_time(file(), fs::file_time_type::clock::now() + std::chrono::minutes(1));
  EXPECT_EQ(host->examine().found(), Ids{"settings-newer"});
}

TEST_F(SorvctlDoctorSettings, ThatTheNameServerHasReadAnewAreNot) {
  host->startServer();
  fs::last_write_time(file(), fs::file_time_type::clock::now() + std::chrono::seconds(2));
  EXPECT_EQ(host->examine().found(), Ids{"settings-newer"});
  // At the latest when the time of that change has come.
  EXPECT_TRUE(waitUntil([&] {
    EXPECT_EQ(host->sorvctl({"upgrade"}).status, 0);
    return host->examine().found().empty();
  }));
}

TEST_F(SorvctlDoctorSettings, WithoutRoomForARequestAreTold) {
  host->server.setting("MaxUnfinishedBytes", "2097152");  // twice MaxMessageBytes
  host->startServer();
  EXPECT_EQ(host->examine().found(), Ids{"settings-memory"});
}

TEST_F(SorvctlDoctorSettings, AreTheDefaultsWithoutAFile) {
  host->startServer();
  const std::string port = std::to_string(host->server.basePort());
  fs::remove(file());
  const Examination told = host->examine({"--port", port});
  EXPECT_EQ(told.seen("settings"), "there is no file, so the defaults hold");
}

class SorvctlDoctorVersion : public DoctorTest {};

TEST_F(SorvctlDoctorVersion, ThatDiffersFromThatOfTheNameServerIsTold) {
  std::string program = readFile(host->server.executable());
  const std::size_t at = program.find(" (build #");
  ASSERT_NE(at, std::string::npos);
  const std::string mark = " (build #";
  program[at + mark.size()] = '9';
  std::string version = productVersion();
  version[version.find(mark) + mark.size()] = '9';
  fs::remove(host->server.executable());  // it may be a link to the built one
  writeFile(host->server.executable(), program);
  ASSERT_EQ(chmod(host->server.executable().c_str(), 0755), 0);
  host->startServer();
  const Examination told = host->examine();
  EXPECT_EQ(told.found(), Ids{"version-differs"});
  EXPECT_EQ(told.what("version-differs"), "the name server is version " + version +
                                              ", and this command is version " + productVersion());
}

TEST_F(SorvctlDoctorVersion, OfAProgramThatWasReplacedIsOld) {
  host->startServer();
  fs::remove(host->server.executable());
  EXPECT_EQ(host->examine().found(), Ids{"program-replaced"});
}

}  // namespace
}  // namespace sorvane::test
