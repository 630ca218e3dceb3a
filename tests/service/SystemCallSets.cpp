#include "service/SystemCallSets.h"

#include <map>
#include <sstream>
#include <stdexcept>

#include "support/Program.h"

namespace sorvane::test {
namespace {

using Sets = std::map<std::string, std::vector<std::string>>;

/// Each set begins with its name, a line that explains it follows, and the members are indented.
Sets allSets() {
  const Outcome told = run("/usr/bin/systemd-analyze", {"syscall-filter"});
  Sets sets;
  std::istringstream lines(told.output);
  std::string set;
  for (std::string line; std::getline(lines, line);) {
    if (line.starts_with('@')) {
      set = line;
    } else if (line.starts_with("    ") && line[4] != '#' && !set.empty()) {
      sets[set].push_back(line.substr(4));
    } else if (!line.starts_with(' ')) {
      set.clear();
    }
  }
  return sets;
}

void collect(const Sets& sets, const std::string& word, std::set<std::string>& calls) {
  if (!word.starts_with('@')) {
    calls.insert(word);
    return;
  }
  const auto set = sets.find(word);
  if (set == sets.end()) {
    throw std::runtime_error("systemd-analyze does not tell the set " + word);
  }
  for (const std::string& each : set->second) {
    collect(sets, each, calls);
  }
}

}  // namespace

std::set<std::string> allowedSystemCalls(const std::vector<std::string>& lines) {
  const Sets sets = allSets();
  std::set<std::string> allowed;
  collect(sets, "@default", allowed);  // always
  for (const std::string& line : lines) {
    const bool takesAway = line.starts_with('~');
    std::istringstream words(line.substr(takesAway ? 1 : 0));
    std::set<std::string> calls;
    for (std::string word; words >> word;) {
      collect(sets, word, calls);
    }
    for (const std::string& call : calls) {
      if (takesAway) {
        allowed.erase(call);
      } else {
        allowed.insert(call);
      }
    }
  }
  return allowed;
}

}  // namespace sorvane::test
