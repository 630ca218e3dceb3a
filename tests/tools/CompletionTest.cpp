#include <gtest/gtest.h>

#include <algorithm>

#include "sorvctl/Completion.h"

namespace sorvctl {
namespace {

using Words = std::vector<std::string>;

/// Databases of a name server that does not exist, and how it was asked.
class Completion : public testing::Test {
 protected:
  [[nodiscard]] Words completed(const Words& words) {
    Words texts;
    for (const Candidate& each : candidates(words, [this](const GivenOptions&given, NamesOf which) {
           asked = true;
           wanted = which;
           options = given;
           return names;
         })) {
      texts.push_back(each.text);
    }
    return texts;
  }

  Words names = {"db1", "db2", "other"};
  GivenOptions options;
  bool asked = false;
  NamesOf wanted = NamesOf::all;
};

bool holds(const Words& words, const std::string& word) {
  return std::find(words.begin(), words.end(), word) != words.end();
}

TEST_F(Completion, OffersCommandsAndTheirInnerOnes) {
  EXPECT_EQ(completed({"set-"}), (Words{"set-state", "set-alert"}));
  EXPECT_TRUE(holds(completed({""}), "prefs"));
  EXPECT_EQ(completed({"prefs", ""}), (Words{"get", "set", "key"}));
  EXPECT_EQ(completed({"prefs", "key", ""}), Words{"set"});
  EXPECT_EQ(completed({"bogus"}), Words());
  EXPECT_FALSE(asked);
}

TEST_F(Completion, OffersNamesThatWereLeftBehindToForget) {
  EXPECT_EQ(completed({"forget", "d"}), (Words{"db1", "db2"}));
  EXPECT_EQ(wanted, NamesOf::leftBehind);
  EXPECT_EQ(completed({"find", "d"}), (Words{"db1", "db2"}));
  EXPECT_EQ(wanted, NamesOf::all);
}

TEST_F(Completion, DescribesCommandsAsTheirHelpDoes) {
  const auto found = candidates({"set-state"}, {});
  ASSERT_EQ(found.size(), 1U);
  EXPECT_EQ(found[0].description, "Set the state of a database");
}

TEST_F(Completion, OffersTheOptionsOfTheCommand) {
  EXPECT_EQ(completed({"--ti"}), Words{"--timeout"});
  EXPECT_EQ(completed({"wait", "db1", "--"}), (Words{"--help", "--state", "--gone", "--timeout",
                                                     "--host", "--port", "--json", "--color"}));
  EXPECT_FALSE(holds(completed({"--"}), "--state"));
}

TEST_F(Completion, OffersTheValuesThatAnOptionAccepts) {
  EXPECT_EQ(completed({"--color", ""}), (Words{"auto", "always", "never"}));
  EXPECT_EQ(completed({"list", "--color=al"}), Words{"--color=always"});
  EXPECT_EQ(completed({"completion", ""}), (Words{"bash", "zsh", "fish"}));
  EXPECT_EQ(completed({"--host", ""}), Words());
  EXPECT_EQ(completed({"--bogus=", ""}).empty(), false) << "what follows may be a command";
}

TEST_F(Completion, OffersTheNamesOfDatabases) {
  for (const char* command : {"find", "set-state", "set-alert", "wait", "url", "exec"}) {
    EXPECT_EQ(completed({command, "db"}), (Words{"db1", "db2"})) << command;
  }
  EXPECT_EQ(completed({"find", "--json", ""}), names);
  EXPECT_EQ(completed({"--timeout", "3", "find", "--", "o"}), Words{"other"});
}

TEST_F(Completion, OffersNothingForOtherArguments) {
  EXPECT_EQ(completed({"find", "db1", ""}), Words());
  EXPECT_EQ(completed({"register", ""}), Words()) << "a new name";
  EXPECT_EQ(completed({"exec", "db1", "--", ""}), Words());
  EXPECT_EQ(completed({"exec", "db1", "--", "ls", "-"}), Words());
  EXPECT_FALSE(asked);
}

TEST_F(Completion, AsksTheNameServerThatTheLineNames) {
  (void)completed({"--host", "hostB", "find", "--port=30000", ""});
  EXPECT_EQ(options.host, "hostB");
  EXPECT_EQ(options.port, 30000);
  (void)completed({"--host", "hostB:30001", "find", ""});
  EXPECT_EQ(options.host, "hostB:30001");
}

TEST_F(Completion, LeavesOutNamesThatATerminalCannotShow) {
  names = {"a\nb", "a\x1b[31m", "a\u202eb", "a\xFF", "a\tb", "a b", "a\\b", "a数"};
  EXPECT_EQ(completed({"find", "a"}), (Words{"a b", "a\\b", "a数"}));
}

TEST_F(Completion, OffersAThousandAtMost) {
  names.clear();
  for (int number = 0; number < 1500; ++number) {
    names.push_back("db" + std::to_string(number));
  }
  EXPECT_EQ(completed({"find", ""}).size(), 1000U);
}

}  // namespace
}  // namespace sorvctl
