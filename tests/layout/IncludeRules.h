// Which file may include which: the rules, and what a source tree has against them.
#pragma once

#include <filesystem>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace sorvane::layout {

/// The rules that a file in the form of allowed_includes.txt holds.
struct IncludeRules {
  struct Folder {
    std::set<std::string> folders;  ///< from which it may include, itself among them
    std::set<std::string> kinds;    ///< of headers beyond the standard library
  };
  std::map<std::string, Folder> folders;
  std::map<std::string, std::set<std::string>> headersOfKind;
  std::map<std::string, std::set<std::string>> kindsOfSystem;

  /// Throws std::runtime_error for a line that is no rule.
  [[nodiscard]] static IncludeRules read(const std::filesystem::path& file);

  /// Returns the folder of the rules to which a source file belongs; "" when there is none.
  [[nodiscard]] std::string folderOf(const std::string& file) const;
  /// Returns the system that the end of a file's name tells; "" for a file of every system.
  [[nodiscard]] std::string systemOf(const std::string& file) const;
  /// True when the file's folder or its system allows a kind that has this header.
  [[nodiscard]] bool mayIncludeHeader(const std::string& file, const std::string& header) const;
};

/// One `#include` of a file.
struct Include {
  std::string name;
  bool quoted = false;  ///< "name", not <name>
};

/// The source files below the include roots, by their path from there, with what they include.
using SourceTree = std::map<std::string, std::vector<Include>>;
[[nodiscard]] SourceTree readSourceTree(const std::vector<std::filesystem::path>& roots);

/// Each include that the rules do not allow, in words.
[[nodiscard]] std::vector<std::string> forbiddenIncludes(const SourceTree& tree,
                                                         const IncludeRules& rules);

/// Each folder, kind, system and header that the rules allow and no file of the tree uses, in
/// words.
[[nodiscard]] std::vector<std::string> unusedRules(const SourceTree& tree,
                                                   const IncludeRules& rules);

/// A way back to where it began, "a -> b -> a", or "" when there is none.
using Graph = std::map<std::string, std::set<std::string>>;
[[nodiscard]] std::string findCycle(const Graph& graph);

[[nodiscard]] Graph graphOfFiles(const SourceTree& tree);
[[nodiscard]] Graph graphOfFolders(const SourceTree& tree, const IncludeRules& rules);

}  // namespace sorvane::layout
