// docs/operations.md, compared with what the doctor says and with the commands that there are.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <regex>
#include <set>
#include <string>

#include "sorvctl/doctor/Findings.h"
#include "support/Documents.h"

namespace sorvctl::doctor {
namespace {

namespace fs = std::filesystem;
using sorvane::test::chapter;
using sorvane::test::documentLines;
using sorvane::test::Lines;

Lines operations() { return documentLines(fs::path(SORVANE_SOURCE_DIR) / "docs/operations.md"); }

std::string escaped(const std::string& text) {
  return std::regex_replace(text, std::regex(R"([.*+?^${}()|[\]\\])"), R"(\$&)");
}

/// The line that the doctor prints for that kind of finding, with any values.
std::regex lineOf(const FindingKind& kind) {
  const std::string line = std::string(severityName(kind.severity)) + ": " + kind.what + ". " +
                           kind.remedy + ". [" + kind.id + "]";
  return std::regex(" {4}" + std::regex_replace(escaped(line), std::regex(R"(\\\{\w+\\\})"), ".+"));
}

TEST(OperationsDocument, QuotesTheDoctorAboutTenThingsThatGoWrong) {
  std::set<std::string> quoted;
  int headings = 0;
  for (const std::string& line : chapter(operations(), "## Ten things that go wrong")) {
    headings += line.starts_with("### ") ? 1 : 0;
    std::smatch match;
    if (!std::regex_match(line, match, std::regex(R"( {4}.*\[([a-z-]+)\])"))) {
      EXPECT_FALSE(line.starts_with("    ")) << "no line of the doctor: " << line;
      continue;
    }
    const auto* const kind =
        std::find_if(std::begin(kAllKinds), std::end(kAllKinds),
                     [&match](const FindingKind& each) { return match[1] == each.id; });
    ASSERT_NE(kind, std::end(kAllKinds)) << line;
    EXPECT_TRUE(std::regex_match(line, lineOf(*kind))) << line;
    EXPECT_TRUE(quoted.insert(kind->id).second) << line;
  }
  EXPECT_EQ(headings, 10);
  EXPECT_EQ(quoted.size(), 10U);
}

TEST(OperationsDocument, NamesCommandsThatThereAre) {
  std::set<std::string> commands;
  for (const std::string& line : chapter(documentLines(fs::path(SORVANE_SOURCE_DIR) / "README.md"),
                                         "## The commands of sorvctl")) {
    std::smatch match;
    if (std::regex_search(line, match, std::regex("^\\| `([a-z-]+)"))) {
      commands.insert(match[1]);
    }
  }
  std::set<std::string> named;
  const std::regex use("(?:`| {4})sorvctl (?:--[a-z]+ [^ `]+ )*([a-z-]+)");
  for (const std::string& line : operations()) {
    for (std::sregex_iterator match(line.begin(), line.end(), use), end; match != end; ++match) {
      EXPECT_EQ(commands.count((*match)[1]), 1U) << line;
      named.insert((*match)[1]);
    }
  }
  EXPECT_TRUE(named.count("doctor") == 1 && named.count("register") == 1) << named.size();
}

}  // namespace
}  // namespace sorvctl::doctor
