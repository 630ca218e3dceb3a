// The help of sorvctl, and the table of its commands in README.md.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include "support/Documents.h"
#include "support/Program.h"

namespace sorvane::test {
namespace {

using Texts = std::vector<std::string>;

Texts linesOf(const std::string& text) {
  std::istringstream stream(text);
  Texts lines;
  for (std::string line; std::getline(stream, line);) {
    lines.push_back(line);
  }
  return lines;
}

Texts wordsOf(const std::string& text) {
  std::istringstream stream(text);
  return {std::istream_iterator<std::string>(stream), {}};
}

std::string joined(const Texts& words) {
  std::string text;
  for (const std::string& word : words) {
    text += (text.empty() ? "" : " ") + word;
  }
  return text;
}

/// What `sorvctl NAME --help` prints. Where a version of the parser breaks its lines is left open.
class Help {
 public:
  explicit Help(const std::string& name) {
    Texts arguments = wordsOf(name);
    arguments.emplace_back("--help");
    const Outcome outcome = run(builtProgram("sorvctl"), arguments);
    EXPECT_EQ(outcome.status, 0) << name << ": " << outcome.errors;
    text_ = "\n" + outcome.output;
  }

  /// What stands above the usage.
  [[nodiscard]] std::string description() const {
    return joined(wordsOf(text_.substr(0, text_.find("\nUsage:"))));
  }
  [[nodiscard]] std::string usage() const { return lineThatBegins("Usage: "); }
  [[nodiscard]] std::string example() const { return lineThatBegins("Example: "); }

  /// The arguments of the usage. One with a form of its own is shown by that: [KEY=VALUE...].
  [[nodiscard]] std::string arguments() const {
    constexpr const char* kOptions = "[OPTIONS]";
    Texts words = wordsOf(usage().substr(usage().find(kOptions) + std::string(kOptions).size()));
    std::erase(words, "[COMMAND]");
    for (std::string& word : words) {
      const std::size_t begin = word.find_first_not_of('[');
      const std::string name = word.substr(begin, word.find_first_of(".]") - begin);
      const Texts line = wordsOf(lineThatBegins("  " + name + " "));
      EXPECT_FALSE(line.empty()) << name << " is not described: " << text_;
      // "TEXT:{a,b}" names the texts that are accepted; the name of the argument tells more.
      if (!line.empty() && line.front().substr(0, line.front().find(':')) != "TEXT") {
        word.replace(begin, name.size(), line.front());
      }
    }
    return joined(words);
  }

  /// The names of the commands and groups that stand in this one.
  [[nodiscard]] Texts inner() const {
    const Texts lines = linesOf(text_);
    Texts names;
    auto line = std::find(lines.begin(), lines.end(), "Commands:");
    for (; line != lines.end() && !line->empty(); ++line) {
      if (line->rfind("  ", 0) == 0 && line->at(2) != ' ') {
        names.push_back(wordsOf(*line).front());
      }
    }
    return names;
  }

 private:
  /// The rest of the first line that begins so.
  [[nodiscard]] std::string lineThatBegins(const std::string& begin) const {
    const std::size_t at = text_.find("\n" + begin);
    if (at == std::string::npos) {
      return "";
    }
    const std::size_t rest = at + 1 + begin.size();
    return text_.substr(rest, text_.find('\n', rest) - rest);
  }

  std::string text_;  // with a line feed before the first line, too
};

struct Command {
  std::string name;  ///< with its groups: "prefs get"
  Help help;
};

/// Adds the commands in this group to `commands`. A command may be a group, too: only a group that
/// is no command has no example.
void addCommands(const std::string& group, std::vector<Command>& commands) {
  for (const std::string& inner : Help(group).inner()) {
    const std::string name = group.empty() ? inner : group + " " + inner;
    Help help(name);
    EXPECT_NE(help.description(), "") << name;
    const bool isGroup = !help.inner().empty();
    if (!isGroup || !help.example().empty()) {
      commands.push_back({name, std::move(help)});
    }
    if (isGroup) {
      addCommands(name, commands);
    }
  }
}

/// The commands that `sorvctl --help` leads to. The program is asked once.
const std::vector<Command>& commands() {
  static const std::vector<Command> all = [] {
    std::vector<Command> commands;
    addCommands("", commands);
    return commands;
  }();
  return all;
}

/// The rows of the tables below this heading of README.md.
Texts tableBelow(const std::string& heading) {
  Texts lines =
      chapter(documentLines(std::filesystem::path(SORVANE_SOURCE_DIR) / "README.md"), heading);
  std::erase_if(lines, [](const std::string& line) { return line.rfind('|', 0) != 0; });
  return lines;
}

TEST(SorvctlHelp, OfEachCommandHasAnExampleOfIt) {
  ASSERT_FALSE(commands().empty());
  for (const Command& command : commands()) {
    EXPECT_EQ(command.help.example().find("sorvctl "), 0U) << command.name;
    EXPECT_NE((command.help.example() + " ").find(" " + command.name + " "), std::string::npos)
        << command.name;
  }
}

// Later versions of the parser refuse other names at every start.
TEST(SorvctlHelp, NamesArgumentsWithoutSignsThatTheParserRefuses) {
  ASSERT_FALSE(commands().empty());
  for (const Command& command : commands()) {
    const std::string usage = command.help.usage();
    EXPECT_EQ(usage.find("sorvctl " + command.name), 0U) << usage;
    EXPECT_EQ(usage.find_first_of("=:{}"), std::string::npos) << usage;
  }
}

TEST(SorvctlHelp, ShowsTheFormOfAnArgument) {
  EXPECT_EQ(Help("send").arguments(), "[KEY=VALUE...]");
  EXPECT_EQ(Help("prefs set").arguments(), "KEY [NAME=VALUE...]");
}

TEST(Readme, HasATableOfTheCommandsOfSorvctlWithTheTextsOfTheHelp) {
  Texts rows = tableBelow("## The commands of sorvctl");
  Texts expected = {"| Command | What it does |", "|---|---|"};
  for (const Command& command : commands()) {
    const std::string arguments = command.help.arguments();
    expected.push_back("| `" + command.name + (arguments.empty() ? "" : " ") + arguments + "` | " +
                       command.help.description() + " |");
  }
  std::sort(rows.begin(), rows.end());
  std::sort(expected.begin(), expected.end());
  std::string missing;
  std::string wrong;
  for (const std::string& row : expected) {
    missing += std::binary_search(rows.begin(), rows.end(), row) ? "" : row + "\n";
  }
  for (const std::string& row : rows) {
    wrong += std::binary_search(expected.begin(), expected.end(), row) ? "" : row + "\n";
  }
  EXPECT_EQ(missing, "");
  EXPECT_EQ(wrong, "");
  EXPECT_EQ(rows.size(), expected.size()) << "a row comes twice";
}

}  // namespace
}  // namespace sorvane::test
