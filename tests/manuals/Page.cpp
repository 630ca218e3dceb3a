#include "manuals/Page.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <sstream>

#include "support/Documents.h"

namespace sorvane::test {
namespace {

std::vector<std::string> wordsOf(const std::string& line) {
  std::istringstream stream(line);
  return {std::istream_iterator<std::string>(stream), {}};
}

/// Macros begin with an upper-case letter and have two; other words of that form do not occur.
bool isMacro(const std::string& word) {
  return word.size() == 2 && std::isupper(static_cast<unsigned char>(word[0])) != 0 &&
         std::islower(static_cast<unsigned char>(word[1])) != 0;
}

bool isPunctuation(const std::string& word) {
  return word.find_first_not_of(".,:;()|") == std::string::npos;
}

}  // namespace

std::string PageEntry::command() const {
  std::string name;
  for (const std::string& word : words) {
    if (word == "Cm") {
      continue;
    }
    if (isMacro(word)) {
      break;
    }
    name += (name.empty() ? "" : " ") + word;
  }
  return name;
}

std::vector<std::string> PageEntry::all(const std::string& macro) const {
  std::vector<std::string> found;
  std::vector<std::string> text = lines;
  std::string head = ".It";
  for (const std::string& word : words) {
    head += " " + word;
  }
  text.insert(text.begin(), head);
  for (const std::string& line : text) {
    if (!line.starts_with('.')) {
      continue;
    }
    std::string current;
    for (const std::string& word : wordsOf(line.substr(1))) {
      if (isMacro(word)) {
        current = word;
      } else if (current == macro && !isPunctuation(word)) {
        found.push_back(word);
      }
    }
  }
  return found;
}

std::vector<std::string> pageLines(const std::string& page) {
  return documentLines(std::filesystem::path(SORVANE_SOURCE_DIR) / "docs/man" / page);
}

std::vector<PageEntry> entriesIn(const std::vector<std::string>& lines) {
  std::vector<PageEntry> entries;
  int depth = 0;
  for (const std::string& line : lines) {
    const bool begins = line.starts_with(".Bl ");
    const bool ends = line == ".El";
    if (depth == 1 && line.starts_with(".It")) {
      entries.push_back({wordsOf(line.substr(3)), {}});
    } else if (depth > 1 || (depth == 1 && !begins && !ends)) {
      entries.back().lines.push_back(line);
    } else if (depth == 1 && begins) {
      entries.back().lines.push_back(line);
    }
    depth += (begins ? 1 : 0) - (ends ? 1 : 0);
  }
  return entries;
}

std::vector<PageEntry> entriesOf(const std::string& page, const std::string& section) {
  const std::vector<std::string> lines = pageLines(page);
  const auto begin = std::find(lines.begin(), lines.end(), ".Sh " + section);
  const auto end = begin == lines.end()
                       ? begin
                       : std::find_if(begin + 1, lines.end(), [](const std::string& line) {
                           return line.starts_with(".Sh ");
                         });
  const std::vector<PageEntry> entries = entriesIn({begin, end});
  EXPECT_FALSE(entries.empty()) << page << " has no list in " << section;
  return entries;
}

}  // namespace sorvane::test
