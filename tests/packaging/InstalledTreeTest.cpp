#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/wait.h>

#include <algorithm>
#include <filesystem>
#include <regex>
#include <string>
#include <vector>

#include "platform/Settings.h"
#include "support/TestFiles.h"

namespace sorvane {
namespace {

namespace fs = std::filesystem;

/// What `cmake --install` of this build makes, by the paths below its prefix.
std::vector<std::string> installedTree(const fs::path& prefix) {
  const std::string command =
      "cmake --install '" SORVANE_BINARY_DIR "' --prefix '" + prefix.string() + "' > /dev/null";
  EXPECT_EQ(system(command.c_str()), 0) << command;
  std::vector<std::string> tree;
  for (const auto& entry : fs::recursive_directory_iterator(prefix)) {
    tree.push_back(entry.path().lexically_relative(prefix).string() +
                   (entry.is_directory() ? "/" : ""));
  }
  std::sort(tree.begin(), tree.end());
  return tree;
}

TEST(InstalledTree, HasTheProgramsTheExamplesAndTheEmptyFolders) {
  const test::TemporaryFolder folder;
  EXPECT_EQ(installedTree(folder / "moved here"),
            (std::vector<std::string>{"Config/", "Logs/", "Users/", "bin/", "bin/sorvctl",
                                      "bin/sorvinfo", "etc/", "etc/sorvane.conf.example", "share/",
                                      "share/sorvinfo/", "share/sorvinfo/sorvinfo.service"}));
}

/// The example of the settings file, as it stands and with every setting in force.
class SettingsExample : public testing::Test {
 protected:
  [[nodiscard]] Settings settingsOf(const std::string& text) const {
    test::writeFile(folder_ / "sorvane.conf", text);
    return Settings::read((folder_ / "sorvane.conf").c_str(), "/opt/sorvane/bin");
  }

  test::TemporaryFolder folder_;
  std::string example_ =
      test::readFile(fs::path(SORVANE_SOURCE_DIR) / "packaging/sorvane.conf.example");
  /// The comment marks taken away wherever a setting stands behind them.
  std::string allInForce_ =
      std::regex_replace(example_, std::regex("(^|\n)// (\\w+ = [^\n]*;)(?=\n)"), "$1$2");
};

TEST_F(SettingsExample, UsedAsItIsChangesNothing) {
  const Settings settings = settingsOf(example_);
  const Settings defaults = Settings::read(nullptr, "/opt/sorvane/bin");
  EXPECT_EQ(settings.basePort, defaults.basePort);
  EXPECT_EQ(settings.installationDirectory, defaults.installationDirectory);
  EXPECT_EQ(settings.hostName, defaults.hostName);
  EXPECT_TRUE(settings.aliases.empty());
}

TEST_F(SettingsExample, ShowsEverySettingWithItsDefault) {
  const Settings settings = settingsOf(allInForce_);
  const Settings defaults = Settings::read(nullptr, "/opt/sorvane/bin");
  EXPECT_EQ(settings.basePort, defaults.basePort);
  EXPECT_EQ(settings.installationDirectory, defaults.installationDirectory);
  EXPECT_EQ(settings.serverConfigDirectory, defaults.serverConfigDirectory);
  EXPECT_EQ(settings.userPreferenceFile, defaults.userPreferenceFile);
  EXPECT_EQ(settings.nameServerHostFile, defaults.nameServerHostFile);
  EXPECT_EQ(settings.lockDirectory, "/run/lock");
  EXPECT_EQ(settings.localAccessOnly, defaults.localAccessOnly);
  EXPECT_EQ(settings.bonjourDisabled, defaults.bonjourDisabled);
  EXPECT_EQ(settings.dynamicAddress, defaults.dynamicAddress);
  EXPECT_EQ(settings.hostName, "dbhost");
  EXPECT_EQ(settings.address, "192.0.2.7");
  EXPECT_EQ(settings.ethernetAddress, "02:00:5e:10:00:07");
  EXPECT_EQ(settings.aliases.size(), 1U);
  EXPECT_EQ(settings.maxMessageBytes, defaults.maxMessageBytes);
  EXPECT_EQ(settings.maxConnections, defaults.maxConnections);
  EXPECT_EQ(settings.partialMessageTimeout, defaults.partialMessageTimeout);
  EXPECT_EQ(settings.threads, defaults.threads);
  for (const char* key :
       {"BasePort", "InstallationDirectory", "ServerConfigDirectory", "UserPreferenceFile",
        "NameServerHostFile", "LockDirectory", "LocalAccessOnly", "BonjourDisabled",
        "DynamicAddress", "HostName", "Address", "EthernetAddress", "Aliases", "MaxMessageBytes",
        "MaxConnections", "PartialMessageTimeout", "Threads"}) {
    EXPECT_NE(("\n" + allInForce_).find("\n" + std::string(key) + " = "), std::string::npos) << key;
  }
}

}  // namespace
}  // namespace sorvane
