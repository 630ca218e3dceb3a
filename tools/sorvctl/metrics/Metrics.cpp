#include "sorvctl/metrics/Metrics.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <string_view>
#include <utility>

#include "platform/Utf8.h"
#include "sorvctl/TerminalText.h"

namespace sorvctl::metrics {

namespace {

constexpr const char* kOther = "other";

/// A text of a stranger as the value of a label, before the format's own escapes.
std::string labelOf(std::string_view text) {
  return sorvane::escapeControls(shortened(text, kLongestText));
}

/// Escapes what the format cannot have in the value of a label.
std::string inQuotes(std::string_view label) {
  std::string text = "\"";
  for (const char letter : label) {
    if (letter == '\n') {
      text += "\\n";
      continue;
    }
    if (letter == '\\' || letter == '"') {
      text += '\\';
    }
    text += letter;
  }
  return text + '"';
}

void addFamily(std::string& text, const std::string& name, const char* type, const char* help,
               const char* unit = "") {
  text += fmt::format("# HELP {} {}\n# TYPE {} {}\n", name, help, name, type);
  if (*unit != '\0') {
    text += fmt::format("# UNIT {} {}\n", name, unit);
  }
}

/// A family with one sample without labels.
template <typename Value>
void addGauge(std::string& text, const char* name, const char* help, Value value,
              const char* unit = "") {
  addFamily(text, name, "gauge", help, unit);
  text += fmt::format("{} {}\n", name, value);
}

/// A family with one sample, which only goes up.
void addCounter(std::string& text, const std::string& name, const char* help, std::uint64_t value) {
  addFamily(text, name, "counter", help);
  text += fmt::format("{}_total {}\n", name, value);
}

}  // namespace

std::vector<Count> counted(const std::vector<Database>& databases) {
  std::map<std::pair<std::string, std::string>, std::size_t> sums;
  for (const Database& database : databases) {
    ++sums[{labelOf(database.port.type), labelOf(database.state)}];
  }
  std::vector<Count> counts;
  for (const auto& [key, count] : sums) {
    counts.push_back({key.first, key.second, count});
  }
  if (counts.size() <= kMostCounts) {
    return counts;
  }
  std::stable_sort(counts.begin(), counts.end(), [](const Count& left, const Count& right) {
    return left.databases > right.databases;
  });
  // The last of them stands for the others. One that is called so already is added to it.
  std::map<std::pair<std::string, std::string>, std::size_t> kept;
  for (std::size_t index = 0; index < counts.size(); ++index) {
    const Count& count = counts[index];
    const bool isKept = index + 1 < kMostCounts;
    kept[{isKept ? count.type : kOther, isKept ? count.state : kOther}] += count.databases;
  }
  counts.clear();
  for (const auto& [key, count] : kept) {
    counts.push_back({key.first, key.second, count});
  }
  return counts;
}

std::string openMetrics(const std::optional<Numbers>& numbers) {
  std::string text;
  addGauge(text, "sorvane_up", "1 if the name server answers, otherwise 0.", numbers ? 1 : 0);
  if (numbers) {
    addFamily(text, "sorvane_databases", "gauge", "Registered databases by type and state.");
    for (const Count& count : numbers->counts) {
      text += fmt::format("sorvane_databases{{type={},state={}}} {}\n", inQuotes(count.type),
                          inQuotes(count.state), count.databases);
    }
    addGauge(text, "sorvane_alerts", "Databases with an alert of the last hour.", numbers->alerts);
    if (numbers->lastChange) {
      addGauge(text, "sorvane_last_change_timestamp_seconds",
               "When something has changed last, by the clock of the server, since 1970.",
               fmt::format("{:.6f}", *numbers->lastChange), "seconds");
      addGauge(text, "sorvane_last_change_age_seconds",
               "Time since the last change, by the clock of the host that asks.",
               fmt::format("{:.6f}", std::max(numbers->now - *numbers->lastChange, 0.0)),
               "seconds");
    }
    addGauge(text, "sorvane_answer_seconds", "Time from a question to its answer.",
             fmt::format("{:.6f}", numbers->answerSeconds), "seconds");
    if (!numbers->version.empty()) {
      addFamily(text, "sorvane_build_info", "gauge", "1, with the version of the name server.");
      text +=
          fmt::format("sorvane_build_info{{version={}}} 1\n", inQuotes(labelOf(numbers->version)));
    }
    if (numbers->continuity) {
      addCounter(text, "sorvane_upgrades", "Upgrades in place since the name server was started.",
                 numbers->continuity->upgrades);
      addCounter(text, "sorvane_crashes", "Serving processes that were replaced after their death.",
                 numbers->continuity->crashes);
    }
  }
  return text + "# EOF\n";
}

}  // namespace sorvctl::metrics
