#include "sorvctl/metrics/Metrics.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <charconv>
#include <chrono>
#include <cmath>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "sorvctl/Command.h"
#include "sorvctl/DatabaseList.h"
#include "sorvctl/Failure.h"
#include "sorvctl/HostInfo.h"
#include "sorvctl/Output.h"
#include "sorvctl/Session.h"

namespace sorvctl {

using metrics::Count;
using metrics::Numbers;
using nlohmann::ordered_json;

namespace {

// 1 January 2001 00:00:00 GMT, where the time stamps of the server begin, in seconds since 1970.
constexpr double kReferenceDate = 978307200;
// Some 30,000 years. What a server says beyond that is no time.
constexpr double kLongestTime = 1e12;

/// The time of the last change. Nothing when the reply is no time.
std::optional<double> lastChange(Session& session) {
  const std::string text = session.askForResult(action("changeTimestamp"));
  double seconds = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), seconds);
  if (error != std::errc() || end != text.data() + text.size() ||
      !(std::abs(seconds) < kLongestTime)) {
    return std::nullopt;
  }
  return seconds + kReferenceDate;
}

/// Empty when the server does not tell it to this host.
std::string versionOf(Session& session) {
  const std::optional<HostInfo> info = readHostInfo(session);
  return info ? info->version : "";
}

double secondsToAnswer(Session& session) {
  session.connection();
  const auto begin = std::chrono::steady_clock::now();
  if (!session.askForDictionary({{"ping", "ping"}}).entries().empty()) {
    throw Failure(Status::saidNo, "what listens there is no name server");
  }
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
}

Numbers ask(Session& session) {
  Numbers numbers;
  numbers.answerSeconds = secondsToAnswer(session);
  numbers.lastChange = lastChange(session);
  numbers.now =
      std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
  numbers.version = versionOf(session);
  numbers.continuity = readContinuity(session);
  const std::vector<Database> databases = readDatabases(session);
  numbers.counts = metrics::counted(databases);
  numbers.alerts = static_cast<std::size_t>(
      std::count_if(databases.begin(), databases.end(),
                    [](const Database& database) { return !database.alert.empty(); }));
  return numbers;
}

ordered_json jsonOf(const std::optional<Numbers>& numbers) {
  if (!numbers) {
    return {{"up", false}};
  }
  ordered_json counts = ordered_json::array();
  for (const Count& count : numbers->counts) {
    counts.push_back({{"type", count.type}, {"state", count.state}, {"count", count.databases}});
  }
  ordered_json object{{"up", true}, {"databases", counts}, {"alerts", numbers->alerts}};
  if (numbers->lastChange) {
    object["lastChange"] = *numbers->lastChange;
    object["lastChangeAge"] = std::max(numbers->now - *numbers->lastChange, 0.0);
  }
  object["answerSeconds"] = numbers->answerSeconds;
  object["version"] = numbers->version;
  if (numbers->continuity) {
    object["upgrades"] = numbers->continuity->upgrades;
    object["crashes"] = numbers->continuity->crashes;
  }
  return object;
}

/// A name server that does not answer is what monitoring wants to know: it is told as text, too,
/// and the command has done its work.
int tellMetrics(Session& session) {
  std::optional<Numbers> numbers;
  try {
    numbers = ask(session);
  } catch (const Failure& failure) {
    printError(failure.what());
  }
  printText(session, jsonOf(numbers), metrics::openMetrics(numbers));
  return 0;
}

Handler declareMetrics(CLI::App& /*command*/) { return &tellMetrics; }

}  // namespace

std::vector<Command> commands::metrics() {
  return {
      {"metrics", "Print numbers for monitoring, in the format OpenMetrics",
       "sorvctl --timeout 5 metrics", &declareMetrics},
  };
}

}  // namespace sorvctl
