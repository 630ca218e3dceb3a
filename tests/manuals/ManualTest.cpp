// The manual pages say what the programs do: each word of the tables stands in them, and no other.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <map>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "daemon/CommandLine.h"
#include "daemon/ServiceManager.h"
#include "infoserver/PreferenceCommands.h"
#include "manuals/Page.h"
#include "platform/settings/SettingsTable.h"
#include "registry/Dispatch.h"
#include "support/Documents.h"
#include "support/Program.h"
#include "support/TestFiles.h"

namespace sorvane::test {
namespace {

namespace fs = std::filesystem;
using Words = std::set<std::string>;

const fs::path kSource = SORVANE_SOURCE_DIR;
const std::vector<std::string> kPages = {"sorvctl.1", "sorvane.conf.5", "sorvane-protocol.7",
                                         "sorvinfo.8"};

template <typename Container>
Words setOf(const Container& words) {
  return Words(std::begin(words), std::end(words));
}

// ---- All pages

TEST(ManualPages, AreThoseOfTheFolder) {
  std::vector<std::string> found;
  for (const auto& entry : fs::directory_iterator(kSource / "docs/man")) {
    found.push_back(entry.path().filename());
  }
  EXPECT_THAT(found, testing::UnorderedElementsAreArray(kPages));
}

TEST(ManualPages, AreWellFormed) {
  for (const std::string& page : kPages) {
    const Outcome judged =
        run("/usr/bin/mandoc", {"-T", "lint", "-W", "warning", kSource / "docs/man" / page});
    EXPECT_EQ(judged.status, 0) << page;
    EXPECT_EQ(judged.output + judged.errors, "") << page;
  }
}

TEST(ManualPages, ReferToPagesThatThereAre) {
  const std::regex reference("\\.Xr (sorv[a-z.-]+) ([0-9])");
  for (const std::string& page : kPages) {
    int references = 0;
    for (const std::string& line : pageLines(page)) {
      std::smatch match;
      if (std::regex_search(line, match, reference)) {
        EXPECT_THAT(kPages, testing::Contains(match.str(1) + "." + match.str(2))) << page;
        ++references;
      }
    }
    EXPECT_GT(references, 0) << page;
  }
}

// ---- sorvinfo(8)

TEST(PageOfSorvinfo, HasEveryFirstWord) {
  Words words;
  for (const PageEntry& entry : entriesOf("sorvinfo.8", "DESCRIPTION")) {
    if (!entry.words.empty() && entry.words.front() == "Cm") {
      words.merge(setOf(entry.all("Cm")));
    }
  }
  Words expected;
  for (const StartWord& row : startWords()) {
    expected.emplace(row.word);
  }
  EXPECT_EQ(words, expected);
}

TEST(PageOfSorvinfo, HasEveryVariableOfTheEnvironment) {
  Words variables;
  for (const PageEntry& entry : entriesOf("sorvinfo.8", "ENVIRONMENT")) {
    variables.merge(setOf(entry.all("Ev")));
  }
  EXPECT_EQ(variables, setOf(kServiceManagerVariables));
}

// ---- sorvane.conf(5)

std::map<std::string, PageEntry> settingsOfPage() {
  std::map<std::string, PageEntry> settings;
  for (const PageEntry& entry : entriesOf("sorvane.conf.5", "SETTINGS")) {
    EXPECT_GT(entry.words.size(), 1U);
    EXPECT_EQ(entry.words.front(), "Ic");
    EXPECT_TRUE(settings.emplace(entry.words.at(1), entry).second) << entry.words.at(1);
  }
  return settings;
}

TEST(PageOfTheSettings, HasEverySetting) {
  Words keys;
  for (const auto& [key, entry] : settingsOfPage()) {
    keys.insert(key);
  }
  Words expected;
  for (const std::string_view key : settingKeys()) {
    expected.emplace(key);
  }
  EXPECT_EQ(keys, expected);
}

// The example of the settings file is compared with the program elsewhere.
TEST(PageOfTheSettings, HasEachDefaultThatTheExampleHas) {
  const std::string example = readFile(kSource / "packaging/sorvane.conf.example");
  int literal = 0;
  for (const auto& [key, entry] : settingsOfPage()) {
    const std::vector<std::string>& lines = entry.lines;
    const auto told = std::find_if(lines.begin(), lines.end(), [](const std::string& line) {
      return line.starts_with("The default is");
    });
    ASSERT_NE(told, lines.end()) << key << " has no default";
    if (told + 1 != lines.end() && *told == "The default is" && (told + 1)->starts_with(".Li ")) {
      std::istringstream words(*(told + 1));
      std::string macro;
      std::string value;
      words >> macro >> value;
      EXPECT_THAT(example, testing::HasSubstr(key + " = " + value + ";\n"));
      ++literal;
    }
  }
  EXPECT_GE(literal, 14);
}

// ---- sorvctl(1)

/// What `sorvctl COMMAND --help` prints.
class Help {
 public:
  explicit Help(const std::string& command) {
    std::istringstream stream(command);
    std::vector<std::string> words{std::istream_iterator<std::string>(stream), {}};
    words.emplace_back("--help");
    const Outcome outcome = run(builtProgram("sorvctl"), words);
    EXPECT_EQ(outcome.status, 0) << command << outcome.errors;
    std::istringstream lines(outcome.output);
    const std::regex option("^ +(?:-\\w, *)?--([a-z][a-z-]*)(.*)");
    bool inCommands = false;
    std::string* explanation = nullptr;  // of the option that was the last one; may take some lines
    for (std::string line; std::getline(lines, line);) {
      std::smatch match;
      inCommands = line == "Commands:" || (inCommands && line.starts_with(' '));
      if (inCommands && line.size() > 2 && line.starts_with("  ") && line[2] != ' ') {
        inner_.push_back(line.substr(2, line.find(' ', 2) - 2));
      } else if (std::regex_match(line, match, option)) {
        explanation = &options_[match.str(1)];
        *explanation = match.str(2);
      } else if (explanation != nullptr && line.starts_with("    ")) {
        *explanation += line;
      } else {
        explanation = nullptr;
      }
      isCommand_ = isCommand_ || line.starts_with("Example: ");
      // Newer parsers of command lines break what follows the options.
      if (line.starts_with("Status: ") || !status_.empty()) {
        status_ += line + "\n";
      }
    }
  }

  /// False for a group of commands.
  [[nodiscard]] bool isCommand() const { return isCommand_; }
  [[nodiscard]] const std::vector<std::string>& inner() const { return inner_; }
  [[nodiscard]] const std::string& status() const { return status_; }
  /// The options, without those that `others` has with the same explanation.
  [[nodiscard]] Words options(const Help* others = nullptr) const {
    Words names;
    for (const auto& [name, text] : options_) {
      const bool isCommon =
          others != nullptr && others->options_.contains(name) && others->options_.at(name) == text;
      if (!isCommon) {
        names.insert(name);
      }
    }
    return names;
  }

 private:
  std::map<std::string, std::string> options_;
  std::vector<std::string> inner_;
  std::string status_;
  bool isCommand_ = false;
};

void collect(const std::string& name, std::map<std::string, Help>& commands) {
  const Help help(name);
  if (help.isCommand()) {
    commands.emplace(name, help);
  }
  for (const std::string& each : help.inner()) {
    collect(name + (name.empty() ? "" : " ") + each, commands);
  }
}

const std::map<std::string, Help>& commandsOfProgram() {
  static const std::map<std::string, Help> all = [] {
    std::map<std::string, Help> commands;
    collect("", commands);
    return commands;
  }();
  return all;
}

/// The long options of entries whose tag is an option.
Words optionsOf(const std::vector<PageEntry>& entries) {
  Words options;
  for (const PageEntry& entry : entries) {
    if (!entry.words.empty() && entry.words.front() == "Fl") {
      for (const std::string& word : PageEntry{entry.words, {}}.all("Fl")) {
        if (word.starts_with('-')) {
          options.insert(word.substr(1));
        }
      }
    }
  }
  return options;
}

TEST(PageOfSorvctl, HasEveryCommandAndNoOther) {
  std::vector<std::string> expected;
  for (const auto& [name, help] : commandsOfProgram()) {
    expected.push_back(name);
  }
  std::vector<std::string> found;
  for (const PageEntry& entry : entriesOf("sorvctl.1", "COMMANDS")) {
    found.push_back(entry.command());
  }
  EXPECT_THAT(found, testing::UnorderedElementsAreArray(expected));
}

TEST(PageOfSorvctl, HasEachOptionOfEachCommandAndNoOther) {
  const Help all("");
  EXPECT_EQ(optionsOf(entriesOf("sorvctl.1", "DESCRIPTION")), all.options());
  for (const PageEntry& entry : entriesOf("sorvctl.1", "COMMANDS")) {
    const auto command = commandsOfProgram().find(entry.command());
    ASSERT_NE(command, commandsOfProgram().end()) << entry.command();
    EXPECT_EQ(optionsOf(entriesIn(entry.lines)), command->second.options(&all)) << entry.command();
  }
}

TEST(PageOfSorvctl, HasEveryExitStatus) {
  const std::string status = Help("").status();
  const std::regex number("[:,]\\s+([0-9]+)\\s");
  Words expected;
  for (std::sregex_iterator match(status.begin(), status.end(), number), end; match != end;
       ++match) {
    expected.insert((*match)[1]);
  }
  Words found;
  for (const PageEntry& entry : entriesOf("sorvctl.1", "EXIT STATUS")) {
    found.merge(setOf(PageEntry{entry.words, {}}.all("Li")));
  }
  EXPECT_EQ(expected.size(), 5U);
  EXPECT_EQ(found, expected);
}

// ---- sorvane-protocol(7)

/// How the page names what a request of that rule has.
std::string tagOf(const DispatchRule& rule) {
  if (!rule.action.empty()) {
    return "action Li " + std::string(rule.action);
  }
  std::string tag;
  for (const std::string_view key : rule.keys) {
    tag += key.empty() ? "" : (tag.empty() ? "Li " : " , ") + std::string(key);
  }
  return (tag.find(" , ") == std::string::npos ? "key " : "keys ") + tag;
}

TEST(PageOfTheProtocol, HasEveryRequestInItsPlace) {
  std::vector<std::string> expected = {"key Li ping"};
  const auto rules = dispatchRules();
  for (const DispatchRule& rule : rules.first(rules.size() - 1)) {
    expected.push_back(tagOf(rule));
  }
  for (const PreferenceCommand& command : preferenceCommands()) {
    expected.push_back("action Li " + std::string(command.word));
  }
  std::vector<std::string> found;
  for (const PageEntry& entry : entriesOf("sorvane-protocol.7", "REQUESTS")) {
    std::string tag;
    for (const std::string& word : entry.words) {
      tag += (tag.empty() ? "" : " ") + word;
    }
    found.push_back(tag);
  }
  EXPECT_EQ(found, expected);
}

/// What stands in backquotes in the chapter about requests.
Words wordsOfDocument() {
  const std::regex quoted("`([^`]+)`");
  Words words;
  for (const std::string& line :
       chapter(documentLines(kSource / "docs/protocol.md"), "## Requests")) {
    for (std::sregex_iterator match(line.begin(), line.end(), quoted), end; match != end; ++match) {
      words.insert((*match)[1]);
    }
  }
  return words;
}

// In the document, keys and values look alike; in the page, a value stands between quotation marks.
TEST(PageOfTheProtocol, HasTheKeysAndValuesOfTheDocumentAndNoOthers) {
  const Words document = wordsOfDocument();
  EXPECT_GT(document.size(), 50U);
  const std::string page = readFile(kSource / "docs/man/sorvane-protocol.7");
  for (const std::string& word : document) {
    EXPECT_THAT(page, testing::HasSubstr(word));
  }
  for (const PageEntry& entry : entriesOf("sorvane-protocol.7", "REQUESTS")) {
    for (const std::string& word : entry.all("Li")) {
      EXPECT_TRUE(document.contains(word)) << word;
    }
  }
}

}  // namespace
}  // namespace sorvane::test
