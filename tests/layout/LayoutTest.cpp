#include <gtest/gtest.h>

#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

#include "IncludeRules.h"
#include "support/TestFiles.h"

namespace sorvane::layout {
namespace {

using Texts = std::vector<std::string>;

std::string lines(const Texts& texts) {
  std::string all;
  for (const std::string& text : texts) all += text + "\n";
  return all;
}

/// The project's own tree and rules.
class Project : public testing::Test {
 protected:
  std::filesystem::path source_ = SORVANE_SOURCE_DIR;
  IncludeRules rules_ = IncludeRules::read(source_ / "tests/layout/allowed_includes.txt");
  SourceTree tree_ = readSourceTree({source_ / "src", source_ / "tools",
                                     source_ / "clients/cpp/include", source_ / "clients/cpp/src"});
};

TEST_F(Project, IncludesOnlyWhatTheRulesAllow) {
  ASSERT_GT(tree_.size(), 50U) << "the tree was not found";
  EXPECT_EQ(lines(forbiddenIncludes(tree_, rules_)), "");
}

TEST_F(Project, HasNoRuleThatNothingUses) { EXPECT_EQ(lines(unusedRules(tree_, rules_)), ""); }

TEST_F(Project, HasNoCycleBetweenFiles) { EXPECT_EQ(findCycle(graphOfFiles(tree_)), ""); }

TEST_F(Project, HasNoCycleBetweenFolders) {
  EXPECT_EQ(findCycle(graphOfFolders(tree_, rules_)), "");
}

TEST_F(Project, AllowsNoCycleBetweenFolders) {
  Graph allowed;
  for (const auto& [name, folder] : rules_.folders) {
    allowed[name] = folder.folders;
    allowed[name].erase(name);
  }
  EXPECT_EQ(findCycle(allowed), "");
}

TEST_F(Project, LetsNobodyAbovePlatformIncludeItsImplementations) {
  for (const auto& [name, folder] : rules_.folders) {
    if (name.starts_with("platform")) continue;
    for (const std::string& used : folder.folders) {
      EXPECT_FALSE(used.starts_with("platform/")) << name << " may include from " << used;
    }
  }
}

/// A small tree of the test's own, with two layers.
class Rules : public testing::Test {
 protected:
  void SetUp() override {
    test::writeFile(folder_ / "rules",
                    "# a comment\n\n"
                    "headers posix: unistd.h sys/\n"
                    "headers linux: linux/\n"
                    "system Linux: linux\n"
                    "folder low: | posix\n"
                    "folder low/inner: low\n"
                    "folder high: low\n"
                    "folder high/main.cpp: high low/inner\n");
    has("low/Low.h", "");
    has("low/inner/Inner.h", "");
  }

  void has(const std::string& file, const std::string& text) const {
    test::writeFile(folder_.path() / "src" / file, text);
  }

  [[nodiscard]] SourceTree tree() const { return readSourceTree({folder_.path() / "src"}); }
  [[nodiscard]] Texts forbidden() const {
    return forbiddenIncludes(tree(), IncludeRules::read(folder_ / "rules"));
  }

  [[nodiscard]] Texts unused() const {
    return unusedRules(tree(), IncludeRules::read(folder_ / "rules"));
  }

  test::TemporaryFolder folder_;
};

TEST_F(Rules, LetAFolderIncludeItselfWhatIsNamedAndTheStandardLibrary) {
  has("high/A.h", "#include <vector>\n#include <string.h>\n");
  has("high/A.cpp", "#include \"high/A.h\"\n#include \"low/Low.h\"\n");
  has("low/Low.cpp", "#include <unistd.h>\n#include <sys/types.h>\n");
  EXPECT_EQ(forbidden(), Texts());
}

TEST_F(Rules, ForbidTheOtherDirection) {
  has("high/A.h", "");
  has("low/Low.cpp", "  # include \"high/A.h\"  // comment\n");
  EXPECT_EQ(forbidden(), Texts{"low/Low.cpp includes \"high/A.h\", which low may not"});
}

TEST_F(Rules, ForbidAnInnerFolderThatIsNotNamed) {
  has("high/A.cpp", "#include \"low/inner/Inner.h\"\n");
  EXPECT_EQ(forbidden(), Texts{"high/A.cpp includes \"low/inner/Inner.h\", which high may not"});
}

TEST_F(Rules, HoldForOneFileWhereTheyNameIt) {
  has("high/main.cpp", "#include \"low/inner/Inner.h\"\n#include \"low/Low.h\"\n");
  EXPECT_EQ(forbidden(),
            Texts{"high/main.cpp includes \"low/Low.h\", which high/main.cpp may not"});
}

TEST_F(Rules, ForbidHeadersOfAKindThatIsNotNamed) {
  has("high/A.cpp", "#include <unistd.h>\n#include <other/thing.hpp>\n");
  EXPECT_EQ(forbidden(), (Texts{"high/A.cpp includes <unistd.h>, which high may not",
                                "high/A.cpp includes <other/thing.hpp>, which high may not"}));
}

TEST_F(Rules, LetAFileOfOneSystemIncludeWhatIsForThatSystemAlone) {
  has("low/ThingLinux.h", "#include <linux/thing.h>\n");
  has("low/ThingLinux.cpp", "#include <linux/thing.h>\n#include \"low/ThingLinux.h\"\n");
  EXPECT_EQ(forbidden(), Texts());
  has("low/Other.cpp", "#include <linux/thing.h>\n#include \"low/ThingLinux.h\"\n");
  EXPECT_EQ(forbidden(),
            (Texts{"low/Other.cpp includes <linux/thing.h>, which low may not",
                   "low/Other.cpp includes \"low/ThingLinux.h\", which is for Linux alone"}));
}

TEST_F(Rules, ThatNothingUsesAreFound) {
  has("high/A.cpp", "#include \"low/Low.h\"\n");
  has("low/inner/Inner.cpp", "#include \"low/Low.h\"\n");
  has("high/main.cpp", "#include \"high/B.h\"\n");
  has("high/B.h", "");
  has("low/ThingLinux.cpp", "#include <linux/thing.h>\n#include <unistd.h>\n");
  EXPECT_EQ(unused(),
            (Texts{"high/main.cpp includes nothing from low/inner", "no file includes sys/"}));
  has("low/ThingLinux.cpp", "");
  EXPECT_EQ(unused(),
            (Texts{"high/main.cpp includes nothing from low/inner",
                   "low includes no header of the kind posix",
                   "Linux includes no header of the kind linux", "no file includes linux/",
                   "no file includes sys/", "no file includes unistd.h"}));
}

TEST_F(Rules, ForbidWhatIsNoFileOfTheTreeAndFoldersWithoutARule) {
  has("low/Low.cpp", "#include \"Low.h\"\n");
  has("new/New.h", "");
  EXPECT_EQ(forbidden(), (Texts{"low/Low.cpp includes \"Low.h\", which is no file of the tree",
                                "new/New.h lies in a folder without a rule"}));
}

TEST_F(Rules, ThatAreNoneAreRefused) {
  test::writeFile(folder_ / "rules", "low high\n");
  EXPECT_THROW(static_cast<void>(IncludeRules::read(folder_ / "rules")), std::runtime_error);
}

TEST_F(Rules, FindCyclesOfFilesAndOfFolders) {
  has("high/A.h", "#include \"high/B.h\"\n");
  has("high/B.h", "#include \"high/C.h\"\n#include \"low/Low.h\"\n");
  has("high/C.h", "");
  EXPECT_EQ(findCycle(graphOfFiles(tree())), "");
  has("high/C.h", "#include \"high/A.h\"\n");
  EXPECT_EQ(findCycle(graphOfFiles(tree())), "high/A.h -> high/B.h -> high/C.h -> high/A.h");

  const IncludeRules rules = IncludeRules::read(folder_ / "rules");
  EXPECT_EQ(findCycle(graphOfFolders(tree(), rules)), "");
  has("low/Low.cpp", "#include \"high/B.h\"\n");
  EXPECT_EQ(findCycle(graphOfFolders(tree(), rules)), "high -> low -> high");
}

}  // namespace
}  // namespace sorvane::layout
