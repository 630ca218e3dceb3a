#include "integration/JsonDocument.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <nlohmann/json.hpp>
#include <sstream>

#include "support/Documents.h"
#include "support/Program.h"

namespace sorvane::test {

namespace {

const std::filesystem::path kSource = SORVANE_SOURCE_DIR;

Lines document() { return documentLines(kSource / "docs/json.md"); }

/// The schema of each command. A command whose section names another one's schema has that.
std::map<std::string, nlohmann::json> schemas() {
  const Lines lines = document();
  std::map<std::string, nlohmann::json> all;
  for (const std::string& heading : lines) {
    const std::string name = commandIn(heading, "## ");
    if (name.empty()) {
      continue;
    }
    EXPECT_FALSE(all.contains(name)) << name << " has two sections";
    const Lines section = chapter(lines, heading);
    const auto blocks = fencedBlocks(section, "json");
    if (!blocks.empty()) {
      all[name] = nlohmann::json::parse(blocks[0]);
      EXPECT_EQ(blocks.size(), 1U) << name;
      continue;
    }
    for (const std::string& line : section) {
      if (const std::string other = commandIn(line, "The schema of "); all.contains(other)) {
        all[name] = all[other];
      }
    }
    EXPECT_TRUE(all.contains(name)) << name << " has no schema";
  }
  return all;
}

}  // namespace

std::string commandIn(const std::string& line, const std::string& before) {
  if (line.rfind(before + "`", 0) != 0) {
    return "";
  }
  const std::size_t begin = before.size() + 1;
  std::istringstream words(line.substr(begin, line.find('`', begin) - begin));
  std::string name;
  for (std::string word; words >> word && word.front() >= 'a' && word.front() <= 'z';) {
    name += (name.empty() ? "" : " ") + word;
  }
  return name;
}

std::set<std::string> commandsWithSchemas() {
  std::set<std::string> names;
  for (const auto& [name, schema] : schemas()) {
    names.insert(name);
  }
  return names;
}

std::set<std::string> silentCommands() {
  std::set<std::string> names;
  bool listed = false;
  for (const std::string& line : document()) {
    listed = line.rfind("These commands print nothing", 0) == 0 || (listed && !line.empty());
    for (std::size_t at = line.find('`'); listed && at != std::string::npos;) {
      const std::size_t end = line.find('`', at + 1);
      names.insert(line.substr(at + 1, end - at - 1));
      at = line.find('`', end + 1);
    }
  }
  names.erase("--json");
  return names;
}

std::vector<std::string> printedLines(const std::string& output) {
  std::istringstream stream(output);
  std::vector<std::string> lines;
  for (std::string line; std::getline(stream, line);) {
    lines.push_back(line);
  }
  return lines;
}

void expectAsDocumented(const PrintedValues& values) {
  const auto all = schemas();
  nlohmann::json cases = nlohmann::json::array();
  for (const auto& [name, printed] : values) {
    EXPECT_FALSE(printed.empty()) << name;
    ASSERT_TRUE(all.contains(name)) << name << " has no schema";
    cases.push_back({{"command", name}, {"schema", all.at(name)}, {"values", printed}});
  }
  const auto judge = kSource / "tests/integration/programs/held_to_schemas.py";
  const Outcome outcome = run("/usr/bin/env", {"python3", judge.string()}, cases.dump());
  EXPECT_EQ(outcome.status, 0) << outcome.errors;
  EXPECT_EQ(outcome.output, "");
}

}  // namespace sorvane::test
