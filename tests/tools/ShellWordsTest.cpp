#include <gtest/gtest.h>

#include "sorvctl/ShellWords.h"

namespace sorvctl {
namespace {

using Words = std::vector<std::string>;

// What bash has at first.
constexpr std::string_view kBreaks = " \t\n\"'@><=;|&(:";

struct Split {
  Words words;
  OpenWord open;
};

Split split(std::string_view line) {
  Split result;
  result.words = splitLine(line, kBreaks, result.open);
  return result;
}

TEST(ShellWords, AreSplitAtBlanksThatAreNotQuoted) {
  EXPECT_EQ(split("sorvctl find my").words, (Words{"sorvctl", "find"}));
  EXPECT_EQ(split("sorvctl find my").open.text, "my");
  EXPECT_EQ(split("sorvctl  find\t").words, (Words{"sorvctl", "find"}));
  EXPECT_EQ(split("sorvctl find ").open.text, "");
  EXPECT_EQ(split("a 'b c' \"d e\" f\\ g '' h").words, (Words{"a", "b c", "d e", "f g", ""}));
  EXPECT_EQ(split("").words, Words());
}

TEST(ShellWords, TellTheQuotesThatAreOpen) {
  EXPECT_EQ(split("a 'my d").open.text, "my d");
  EXPECT_EQ(split("a 'my d").open.quote, '\'');
  EXPECT_EQ(split("a \"my \\\"d").open.text, "my \"d");
  EXPECT_EQ(split("a \"my d").open.quote, '"');
  EXPECT_EQ(split("a 'my'd").open.quote, '\0');
  EXPECT_EQ(split("a 'my\\").open.text, "my\\");
  EXPECT_EQ(split("a \"my\\d").open.text, "my\\d");
}

TEST(ShellWords, TellWhatTheShellKeeps) {
  EXPECT_EQ(split("a --color=al").open.kept, 8U);
  EXPECT_EQ(split("a x:y:z").open.kept, 4U);
  EXPECT_EQ(split("a 'x:y").open.kept, 0U);
  EXPECT_EQ(split("a x\\:y").open.kept, 0U);
  EXPECT_EQ(split("a x@y").open.kept, 1U) << "what bash completes begins with that sign";
  EXPECT_EQ(split("a plain").open.kept, 0U);
  OpenWord open;
  (void)splitLine("a x:y", "", open);
  EXPECT_EQ(open.kept, 0U);
}

/// What is inserted for a name behind what has been typed.
std::string inserted(std::string_view name, std::string_view typed) {
  OpenWord open;
  (void)splitLine(typed, kBreaks, open);
  return insertion(name, open);
}

TEST(Insertion, MeansNothingToTheShell) {
  EXPECT_EQ(inserted("db1", "d"), "db1");
  EXPECT_EQ(inserted("my db", "my"), "my\\ db");
  EXPECT_EQ(inserted("$(id)`id`;|&<>*?[]{}~#!\"'\\", ""),
            "\\$\\(id\\)\\`id\\`\\;\\|\\&\\<\\>\\*\\?\\[\\]\\{\\}\\~\\#\\!\\\"\\'\\\\");
  EXPECT_EQ(inserted("数据 库", "数"), "数据\\ 库");
}

TEST(Insertion, StaysInTheQuotesThatAreOpen) {
  EXPECT_EQ(inserted("my $db", "'my"), "my $db");
  EXPECT_EQ(inserted("it's", "'it"), "");
  EXPECT_EQ(inserted("my $db \"x\"", "\"my"), "my \\$db \\\"x\\\"");
  EXPECT_EQ(inserted("my!db", "\"my"), "");
}

TEST(Insertion, LeavesOutWhatTheShellKeeps) {
  EXPECT_EQ(inserted("--color=always", "--color=al"), "always");
  EXPECT_EQ(inserted("a:b c", "a:b"), "b\\ c");
  EXPECT_EQ(inserted("a:b", "a"), "a:b");
}

}  // namespace
}  // namespace sorvctl
