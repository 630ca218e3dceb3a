#include "IncludeRules.h"

#include <algorithm>
#include <fstream>
#include <regex>
#include <sstream>
#include <stdexcept>

namespace sorvane::layout {
namespace {

namespace fs = std::filesystem;

std::vector<std::string> words(const std::string& text) {
  std::istringstream stream(text);
  return {std::istream_iterator<std::string>(stream), {}};
}

/// `name` is the header, or a folder that holds it.
bool covers(const std::string& name, const std::string& header) {
  return name == header || (name.ends_with('/') && header.starts_with(name));
}

bool coversOneOf(const std::string& name, const std::set<std::string>& headers) {
  return std::any_of(headers.begin(), headers.end(),
                     [&](const std::string& header) { return covers(name, header); });
}

bool isStandard(const std::string& header) {
  static const std::set<std::string> cHeaders = {
      "assert.h", "ctype.h", "errno.h",  "float.h",  "inttypes.h", "limits.h",
      "locale.h", "math.h",  "setjmp.h", "signal.h", "stdarg.h",   "stddef.h",
      "stdint.h", "stdio.h", "stdlib.h", "string.h", "time.h",     "wchar.h"};
  return header.find_first_of("./") == std::string::npos || cHeaders.contains(header);
}

std::vector<Include> includesOf(const fs::path& file) {
  static const std::regex pattern(R"re(^\s*#\s*include\s*([<"])([^>"]+)[>"].*)re");
  std::vector<Include> includes;
  std::ifstream stream(file);
  std::smatch match;
  for (std::string line; std::getline(stream, line);) {
    if (std::regex_match(line, match, pattern)) {
      includes.push_back({match[2], match[1] == "\""});
    }
  }
  return includes;
}

/// Follows the edges from `node`; `path` is the way to it, `done` what leads to no cycle.
std::string cycleFrom(const std::string& node, const Graph& graph, std::vector<std::string>& path,
                      std::set<std::string>& done) {
  if (done.contains(node)) {
    return "";
  }
  if (const auto seen = std::find(path.begin(), path.end(), node); seen != path.end()) {
    std::string cycle;
    for (auto step = seen; step != path.end(); ++step) {
      cycle += *step + " -> ";
    }
    return cycle + node;
  }
  path.push_back(node);
  if (const auto edges = graph.find(node); edges != graph.end()) {
    for (const std::string& next : edges->second) {
      if (std::string cycle = cycleFrom(next, graph, path, done); !cycle.empty()) {
        return cycle;
      }
    }
  }
  path.pop_back();
  done.insert(node);
  return "";
}

}  // namespace

IncludeRules IncludeRules::read(const fs::path& file) {
  static const std::regex rule(R"((headers|system|folder) ([^:]+):([^|]*)(?:\|(.*))?)");
  IncludeRules rules;
  std::ifstream stream(file);
  std::smatch match;
  for (std::string line; std::getline(stream, line);) {
    if (line.empty() || line[0] == '#') {
      continue;
    }
    if (!std::regex_match(line, match, rule)) {
      throw std::runtime_error(file.string() + " has a line that is no rule: " + line);
    }
    const std::string name = match[2];
    const std::vector<std::string> list = words(match[3]);
    if (match[1] == "headers") {
      rules.headersOfKind[name].insert(list.begin(), list.end());
    } else if (match[1] == "system") {
      rules.kindsOfSystem[name].insert(list.begin(), list.end());
    } else {
      const std::vector<std::string> kinds = words(match[4]);
      rules.folders[name] = {{list.begin(), list.end()}, {kinds.begin(), kinds.end()}};
      rules.folders[name].folders.insert(name);
    }
  }
  return rules;
}

std::string IncludeRules::folderOf(const std::string& file) const {
  for (std::string name : {file, fs::path(file).parent_path().string()}) {
    if (folders.contains(name)) {
      return name;
    }
  }
  return "";
}

std::string IncludeRules::systemOf(const std::string& file) const {
  for (const auto& [system, kinds] : kindsOfSystem) {
    if (fs::path(file).stem().string().ends_with(system)) {
      return system;
    }
  }
  return "";
}

bool IncludeRules::mayIncludeHeader(const std::string& file, const std::string& header) const {
  if (isStandard(header)) {
    return true;
  }
  std::set<std::string> kinds = folders.at(folderOf(file)).kinds;
  if (const std::string system = systemOf(file); !system.empty()) {
    kinds.insert(kindsOfSystem.at(system).begin(), kindsOfSystem.at(system).end());
  }
  return std::any_of(kinds.begin(), kinds.end(), [&](const std::string& kind) {
    const std::set<std::string>& names = headersOfKind.at(kind);
    return std::any_of(names.begin(), names.end(),
                       [&](const std::string& name) { return covers(name, header); });
  });
}

SourceTree readSourceTree(const std::vector<fs::path>& roots) {
  SourceTree tree;
  for (const fs::path& root : roots) {
    for (const auto& entry : fs::recursive_directory_iterator(root)) {
      const fs::path extension = entry.path().extension();
      if (extension == ".h" || extension == ".cpp" || extension == ".inc") {
        tree[entry.path().lexically_relative(root).string()] = includesOf(entry.path());
      }
    }
  }
  return tree;
}

std::vector<std::string> forbiddenIncludes(const SourceTree& tree, const IncludeRules& rules) {
  std::vector<std::string> found;
  for (const auto& [file, includes] : tree) {
    const std::string folder = rules.folderOf(file);
    if (folder.empty()) {
      found.push_back(file + " lies in a folder without a rule");
      continue;
    }
    for (const auto& [name, quoted] : includes) {
      if (!quoted && !rules.mayIncludeHeader(file, name)) {
        found.push_back(file + " includes <" + name + ">, which " + folder + " may not");
      } else if (quoted && !tree.contains(name)) {
        found.push_back(file + " includes \"" + name + "\", which is no file of the tree");
      } else if (quoted && !rules.folders.at(folder).folders.contains(rules.folderOf(name))) {
        found.push_back(file + " includes \"" + name + "\", which " + folder + " may not");
      } else if (const std::string system = rules.systemOf(name);
                 quoted && !system.empty() && system != rules.systemOf(file)) {
        found.push_back(file + " includes \"" + name + "\", which is for " + system + " alone");
      }
    }
  }
  return found;
}

std::vector<std::string> unusedRules(const SourceTree& tree, const IncludeRules& rules) {
  std::map<std::string, std::set<std::string>> foldersUsedBy;
  std::map<std::string, std::set<std::string>> headersUsedBy;  // by folder and by system
  std::set<std::string> headers;
  for (const auto& [file, includes] : tree) {
    const std::string folder = rules.folderOf(file);
    for (const auto& [name, quoted] : includes) {
      if (quoted) {
        foldersUsedBy[folder].insert(rules.folderOf(name));
      } else {
        headersUsedBy[folder].insert(name);
        headersUsedBy[rules.systemOf(file)].insert(name);
        headers.insert(name);
      }
    }
  }
  std::vector<std::string> unused;
  const auto checkKinds = [&](const std::string& user, const std::set<std::string>& kinds) {
    for (const std::string& kind : kinds) {
      const std::set<std::string>& names = rules.headersOfKind.at(kind);
      if (std::none_of(names.begin(), names.end(), [&](const std::string& name) {
            return coversOneOf(name, headersUsedBy[user]);
          })) {
        unused.push_back(user + " includes no header of the kind " + kind);
      }
    }
  };
  for (const auto& [name, folder] : rules.folders) {
    for (const std::string& allowed : folder.folders) {
      if (allowed != name && !foldersUsedBy[name].contains(allowed)) {
        unused.push_back(name + " includes nothing from " + allowed);
      }
    }
    checkKinds(name, folder.kinds);
  }
  for (const auto& [system, kinds] : rules.kindsOfSystem) {
    checkKinds(system, kinds);
  }
  for (const auto& [kind, names] : rules.headersOfKind) {
    for (const std::string& name : names) {
      if (!coversOneOf(name, headers)) {
        unused.push_back("no file includes " + name);
      }
    }
  }
  return unused;
}

std::string findCycle(const Graph& graph) {
  std::set<std::string> done;
  for (const auto& [node, edges] : graph) {
    std::vector<std::string> path;
    if (std::string cycle = cycleFrom(node, graph, path, done); !cycle.empty()) {
      return cycle;
    }
  }
  return "";
}

Graph graphOfFiles(const SourceTree& tree) {
  Graph graph;
  for (const auto& [file, includes] : tree) {
    for (const Include& include : includes) {
      if (include.quoted) {
        graph[file].insert(include.name);
      }
    }
  }
  return graph;
}

Graph graphOfFolders(const SourceTree& tree, const IncludeRules& rules) {
  Graph graph;
  for (const auto& [file, includes] : tree) {
    const std::string from = rules.folderOf(file);
    for (const Include& include : includes) {
      const std::string to = rules.folderOf(include.name);
      if (include.quoted && from != to) {
        graph[from].insert(to);
      }
    }
  }
  return graph;
}

}  // namespace sorvane::layout
