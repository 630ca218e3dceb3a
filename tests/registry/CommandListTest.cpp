// The list of commands in docs/protocol.md.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "registry/Dispatch.h"
#include "support/Documents.h"

namespace sorvane::test {
namespace {

/// How the list names what a request of that rule has: "key `a`", "keys `a` and `b`", "action `a`".
std::string recognisedBy(const DispatchRule& rule) {
  if (!rule.action.empty()) {
    return "action `" + std::string(rule.action) + "`";
  }
  std::vector<std::string> keys;
  for (const std::string_view key : rule.keys) {
    if (!key.empty()) {
      keys.push_back("`" + std::string(key) + "`");
    }
  }
  std::string text = keys.size() == 1 ? "key " : "keys ";
  for (std::size_t index = 0; index < keys.size(); ++index) {
    const bool last = index + 1 == keys.size();
    text += (index == 0 ? "" : last ? " and " : ", ") + keys[index];
  }
  return text;
}

/// The second cells of the numbered rows of the list, in their order.
std::vector<std::string> listed() {
  std::vector<std::string> cells;
  for (const std::string& line :
       chapter(documentLines(std::filesystem::path(SORVANE_SOURCE_DIR) / "docs/protocol.md"),
               "## Requests")) {
    const std::string begin = "| " + std::to_string(cells.size() + 1) + " | ";
    if (line.rfind(begin, 0) == 0) {
      cells.push_back(line.substr(begin.size(), line.find(" | ", begin.size()) - begin.size()));
    }
  }
  return cells;
}

// The first row is the ping, which no rule sees; the last rows are the info server's.
TEST(CommandList, OfTheProtocolHasTheRulesInTheirOrder) {
  const std::vector<std::string> cells = listed();
  const auto rules = dispatchRules();
  ASSERT_GE(cells.size(), rules.size());
  for (std::size_t index = 0; index + 1 < rules.size(); ++index) {
    EXPECT_EQ(cells[index + 1], recognisedBy(rules[index]));
  }
  for (std::size_t index = rules.size(); index < cells.size(); ++index) {
    EXPECT_NE(cells[index].find("_userpreferences"), std::string::npos) << cells[index];
  }
}

/// What docs/security.md says of the setting that reserves commands for this machine.
std::string reservedBy(const std::string& setting) {
  std::string text;
  for (const std::string& line :
       chapter(documentLines(std::filesystem::path(SORVANE_SOURCE_DIR) / "docs/security.md"),
               "## What to set")) {
    const bool isItsRow = line.find("`" + setting + " = NO` | ") != std::string::npos;
    const bool isListed =
        setting == "RemoteRegistration" && line.find("RemoteControl") == std::string::npos;
    if (isItsRow || isListed) {
      text += line + "\n";
    }
  }
  return text;
}

TEST(CommandList, OfTheSecurityPageHasEachCommandUnderTheSettingThatReservesIt) {
  const std::string control = reservedBy("RemoteControl");
  const std::string registration = reservedBy("RemoteRegistration");
  for (const DispatchRule& rule : dispatchRules().first(dispatchRules().size() - 1)) {
    const std::string command = recognisedBy(rule);
    EXPECT_EQ(control.find(command) != std::string::npos, rule.effect == Effect::endsProcess)
        << command;
    EXPECT_EQ(registration.find(command) != std::string::npos, rule.effect == Effect::registers)
        << command;
  }
}

}  // namespace
}  // namespace sorvane::test
