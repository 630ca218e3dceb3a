// The guarantees of docs/testing.md name the tests that show them.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>
#include <set>
#include <string>

#include "support/Documents.h"

namespace sorvane::layout {
namespace {

namespace fs = std::filesystem;

const fs::path kSource = SORVANE_SOURCE_DIR;

/// All tests of the tree, as "Suite.Name".
std::set<std::string> allTests() {
  static const std::regex definition("\nTEST(?:_F|_P)?\\((\\w+),\\s*(\\w+)\\)");
  std::set<std::string> tests;
  for (const auto& file : fs::recursive_directory_iterator(kSource / "tests")) {
    if (file.path().extension() != ".cpp") {
      continue;
    }
    std::ifstream in(file.path());
    const std::string text(std::istreambuf_iterator<char>(in), {});
    for (auto each = std::sregex_iterator(text.begin(), text.end(), definition);
         each != std::sregex_iterator(); ++each) {
      tests.insert((*each)[1].str() + '.' + (*each)[2].str());
    }
  }
  return tests;
}

TEST(Guarantees, NameTestsThatExist) {
  static const std::regex test("`([A-Z]\\w+\\.[A-Z]\\w+)`");
  const std::set<std::string> tests = allTests();
  int guarantees = 0;
  for (const std::string& line :
       test::chapter(test::documentLines(kSource / "docs/testing.md"), "## Guarantees")) {
    const auto end = std::sregex_iterator();
    auto named = std::sregex_iterator(line.begin(), line.end(), test);
    const bool isHeading =
        line.starts_with("| Guarantee") || line.starts_with("| When") || line.starts_with("|---");
    if (line.starts_with("| ") && !isHeading) {
      EXPECT_NE(named, end) << "no test for: " << line;
      ++guarantees;
    }
    for (; named != end; ++named) {
      EXPECT_TRUE(tests.contains((*named)[1])) << "there is no test " << (*named)[1];
    }
  }
  EXPECT_GT(guarantees, 0);
}

}  // namespace
}  // namespace sorvane::layout
