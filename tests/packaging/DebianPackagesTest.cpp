// What packaging/debian says, compared with the rest of the tree. scripts/test builds and tries the
// packages themselves.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "packaging/EverySetting.h"
#include "platform/Settings.h"
#include "support/ConsoleLines.h"
#include "support/TestFiles.h"

namespace sorvane {
namespace {

namespace fs = std::filesystem;

const fs::path kTree = SORVANE_SOURCE_DIR;

/// What stands between the parentheses of the first match.
std::string firstMatch(const std::string& text, const std::string& pattern) {
  std::smatch match;
  EXPECT_TRUE(std::regex_search(text, match, std::regex(pattern))) << pattern;
  return match.empty() ? "" : match[1].str();
}

/// The names in a text, without the versions and alternatives behind them.
std::set<std::string> packageNames(const std::string& text) {
  std::set<std::string> names;
  const std::regex name("[a-z][a-z0-9.+-]+");
  for (std::sregex_iterator match(text.begin(), text.end(), name), end; match != end; ++match) {
    names.insert(match->str());
  }
  return names;
}

TEST(DebianPackages, HaveTheVersionOfTheTree) {
  const std::string tree =
      firstMatch(test::readFile(kTree / "CMakeLists.txt"), "project\\(sorvinfo VERSION ([0-9.]+)");
  const std::string packages = firstMatch(test::readFile(kTree / "packaging/debian/changelog"),
                                          "^sorvinfo \\(([0-9.]+)-[0-9]+\\)");
  EXPECT_EQ(packages, tree);
}

TEST(DebianPackages, AskForWhatTheScriptsInstallToBuild) {
  std::set<std::string> expected = packageNames(firstMatch(
      test::readFile(kTree / "scripts/lib/packages.sh"), "\nbuild_packages=\\(([^)]*)\\)"));
  expected.erase("g++");     // every building of packages has it
  expected.erase("psmisc");  // not for building: `sorvinfo kill` uses it
  const std::string control = test::readFile(kTree / "packaging/debian/control");
  std::set<std::string> asked =
      packageNames(firstMatch(control, "\nBuild-Depends:\n(( [^\n]*\n)*)"));
  for (const char* packaging :
       {"debhelper-compat", "dh-sequence-installsysusers", "dh-sequence-python3", "python3"}) {
    EXPECT_EQ(asked.erase(packaging), 1U) << packaging;
  }
  EXPECT_EQ(asked, expected);
  EXPECT_THAT(
      packageNames(firstMatch(control, "\nPackage: sorvinfo\n[^]*?\nDepends:\n(( [^\n]*\n)*)")),
      testing::Contains("psmisc"));
}

TEST(PackagedSettings, AreTheCarefulOnesAndOtherwiseTheDefaults) {
  const test::ConsoleLines console;  // gets a line for each unknown key
  const Settings settings = Settings::read((kTree / "packaging/sorvane.conf").c_str(), "/usr/sbin");
  EXPECT_EQ(console.all(), std::vector<std::string>());

  Settings expected = Settings::read(nullptr, "/var/lib/sorvane/bin");
  expected.nameServerHostFile = "/etc/sorvane/SorvNameServerHost";
  expected.remoteControl = false;
  expected.remoteRegistration = false;
  expected.surviveCrashes = true;
  EXPECT_EQ(everySetting(settings), everySetting(expected));
}

}  // namespace
}  // namespace sorvane
