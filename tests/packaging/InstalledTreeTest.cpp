#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/wait.h>

#include <algorithm>
#include <filesystem>
#include <regex>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include "packaging/EverySetting.h"
#include "platform/Settings.h"
#include "support/ConsoleLines.h"
#include "support/TestFiles.h"
#include "support/TestedBuild.h"

namespace sorvane {
namespace {

namespace fs = std::filesystem;

/// What `cmake --install` of this build makes, by the paths below its prefix.
std::vector<std::string> installedTree(const fs::path& prefix) {
  const std::string command = "cmake --install '" + test::testedBuild().string() + "' --prefix '" +
                              prefix.string() + "' > /dev/null";
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
            (std::vector<std::string>{"Config/",
                                      "Logs/",
                                      "Users/",
                                      "bin/",
                                      "bin/sorvctl",
                                      "bin/sorvinfo",
                                      "etc/",
                                      "etc/sorvane.conf.example",
                                      "share/",
                                      "share/bash-completion/",
                                      "share/bash-completion/completions/",
                                      "share/bash-completion/completions/sorvctl",
                                      "share/fish/",
                                      "share/fish/vendor_completions.d/",
                                      "share/fish/vendor_completions.d/sorvctl.fish",
                                      "share/man/",
                                      "share/man/man1/",
                                      "share/man/man1/sorvctl.1",
                                      "share/man/man5/",
                                      "share/man/man5/sorvane.conf.5",
                                      "share/man/man7/",
                                      "share/man/man7/sorvane-protocol.7",
                                      "share/man/man8/",
                                      "share/man/man8/sorvinfo.8",
                                      "share/sorvinfo/",
                                      "share/sorvinfo/firewalld/",
                                      "share/sorvinfo/firewalld/sorvane.xml",
                                      "share/sorvinfo/launchd/",
                                      "share/sorvinfo/launchd/sorvane.sorvinfo.plist",
                                      "share/sorvinfo/sorvinfo-opt.conf",
                                      "share/sorvinfo/sorvinfo.logrotate",
                                      "share/sorvinfo/sorvinfo.service",
                                      "share/sorvinfo/sysusers.d/",
                                      "share/sorvinfo/sysusers.d/sorvane.conf",
                                      "share/sorvinfo/tmpfiles.d/",
                                      "share/sorvinfo/tmpfiles.d/sorvane.conf",
                                      "share/sorvinfo/wireshark/",
                                      "share/sorvinfo/wireshark/sorvane.lua",
                                      "share/zsh/",
                                      "share/zsh/site-functions/",
                                      "share/zsh/site-functions/_sorvctl"}));
}

/// The example of the settings file, as it stands and with every setting in force.
class SettingsExample : public testing::Test {
 protected:
  [[nodiscard]] Settings settingsOf(const std::string& text) const {
    test::writeFile(folder_ / "sorvane.conf", text);
    return Settings::read((folder_ / "sorvane.conf").c_str(), "/opt/sorvane/bin");
  }
  [[nodiscard]] static Settings defaults() { return Settings::read(nullptr, "/opt/sorvane/bin"); }

  test::TemporaryFolder folder_;
  std::string example_ =
      test::readFile(fs::path(SORVANE_SOURCE_DIR) / "packaging/sorvane.conf.example");
  /// The comment marks taken away wherever a setting stands behind them.
  std::string allInForce_ =
      std::regex_replace(example_, std::regex("(^|\n)// (\\w+ = [^\n]*;)(?=\n)"), "$1$2");
};

TEST_F(SettingsExample, UsedAsItIsChangesNothing) {
  EXPECT_EQ(everySetting(settingsOf(example_)), everySetting(defaults()));
}

TEST_F(SettingsExample, ShowsEverySettingWithItsDefault) {
  Settings expected = defaults();
  expected.lockDirectory = "/run/lock";
  expected.hostName = "dbhost";
  expected.address = "192.0.2.7";
  expected.ethernetAddress = "02:00:5e:10:00:07";
  expected.aliases = {{"192.0.2.7", "198.51.100.7"}};
  expected.allowedNetworks = {*IPNetwork::parse("192.0.2.0/24"),
                              *IPNetwork::parse("2001:db8::/32")};
  EXPECT_EQ(everySetting(settingsOf(allInForce_)), everySetting(expected));
}

TEST_F(SettingsExample, HasEachSettingOnceAndNothingElse) {
  const std::regex setting("\\n(\\w+) = ");
  std::multiset<std::string> keys;
  for (std::sregex_iterator match(allInForce_.begin(), allInForce_.end(), setting), end;
       match != end; ++match) {
    keys.insert((*match)[1]);
  }
  EXPECT_EQ(keys.size(), std::tuple_size_v<decltype(everySetting(defaults()))>);
  EXPECT_EQ(keys.size(), std::set<std::string>(keys.begin(), keys.end()).size());

  const test::ConsoleLines console;  // gets a line for each unknown key
  static_cast<void>(settingsOf(allInForce_));
  EXPECT_EQ(console.all(), std::vector<std::string>());
}

}  // namespace
}  // namespace sorvane
