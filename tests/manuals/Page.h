// A manual page, as it is written in mdoc(7).
#pragma once

#include <string>
#include <vector>

namespace sorvane::test {

/// An entry of a list: ".It" with its words, and the lines below it up to the next entry of the
/// same list or the end of the list. Lists inside the entry belong to it.
struct PageEntry {
  std::vector<std::string> words;  ///< without ".It"
  std::vector<std::string> lines;

  /// The words behind each "Cm" in front of other macros: the name of a command.
  [[nodiscard]] std::string command() const;
  /// The words of that macro in all lines, without those that are only punctuation.
  [[nodiscard]] std::vector<std::string> all(const std::string& macro) const;
};

/// The entries that stand directly in the lists of a section, such as "COMMANDS". Fails the running
/// test if there are none.
[[nodiscard]] std::vector<PageEntry> entriesOf(const std::string& page, const std::string& section);

/// The entries that stand directly in lists of these lines.
[[nodiscard]] std::vector<PageEntry> entriesIn(const std::vector<std::string>& lines);

/// The lines of a page of docs/man without the first level of anything: as they stand in the file.
[[nodiscard]] std::vector<std::string> pageLines(const std::string& page);

}  // namespace sorvane::test
