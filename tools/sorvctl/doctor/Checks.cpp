#include "sorvctl/doctor/Checks.h"

#include <algorithm>
#include <exception>
#include <future>
#include <string_view>
#include <system_error>
#include <thread>
#include <utility>

namespace sorvctl::doctor {

namespace {

Report notLooked(const std::string& reason) { return {"", {}, {{"", reason}}}; }

std::future<Report> begin(const Check& check, std::shared_ptr<const Environment> environment) {
  std::packaged_task<Report()> task(
      [look = check.look, environment = std::move(environment)] { return look(*environment); });
  std::future<Report> report = task.get_future();
  std::thread(std::move(task)).detach();
  return report;
}

Report end(std::future<Report>& report, Environment::Clock::time_point deadline) {
  if (report.wait_until(deadline) != std::future_status::ready) {
    return notLooked("it took too long");
  }
  try {
    return report.get();
  } catch (const std::exception& failure) {
    return notLooked(failure.what());
  }
}

bool found(const std::vector<Result>& results, std::string_view id) {
  return std::any_of(results.begin(), results.end(), [id](const Result& result) {
    return std::any_of(result.report.findings.begin(), result.report.findings.end(),
                       [id](const Finding& each) { return each.id == id; });
  });
}

/// Something that is found only because something else is the case.
struct Consequence {
  const FindingKind& cause;
  const FindingKind& effect;
};

constexpr Consequence kConsequences[] = {
    // A name server that gives way to another host does not run, and must not be started.
    {kinds::hostFileElsewhere, kinds::serverNotRunning},
    // The doctor is one of those who are refused.
    {kinds::connectionsUsedUp, kinds::serverSilent},
    // What is reckoned from a wrong clock means nothing.
    {kinds::clockBeforeBuild, kinds::settingsNewer},
};

void leaveOutConsequences(std::vector<Result>& results) {
  for (const auto& [cause, effect] : kConsequences) {
    if (!found(results, cause.id)) {
      continue;
    }
    for (Result& result : results) {
      std::erase_if(result.report.findings, [id = std::string_view(effect.id)](
                                                const Finding& each) { return each.id == id; });
    }
  }
}

}  // namespace

const std::vector<Check>& allChecks() {
  static const auto* const checks = new std::vector<Check>{
      {"settings", &checkSettings, false},
      {"lock", &checkLock},
      {"port", &checkPort},
      {"addresses", &checkAddresses},
      {"host name", &checkHostName},
      {"host file", &checkHostFile},
      {"Bonjour", &checkBonjour},
      {"connections", &checkConnections},
      {"names", &checkNames},
      {"files", &checkFiles},
      {"clock", &checkClock, false},
      {"version", &checkVersion},
  };
  return *checks;
}

std::vector<Result> runChecks(std::shared_ptr<const Environment> environment,
                              const std::vector<Check>& checks) {
  const bool usable = !environment->settings.reading.fault;
  std::vector<std::future<Report>> reports(checks.size());
  std::vector<Result> results;
  for (std::size_t index = 0; index < checks.size(); ++index) {
    results.push_back({checks[index].name, {}});
    if (checks[index].needsSettings && !usable) {
      results.back().report = notLooked("the settings come first");
      continue;
    }
    try {
      reports[index] = begin(checks[index], environment);
    } catch (const std::system_error& failure) {
      results.back().report = notLooked(failure.what());
    }
  }
  for (std::size_t index = 0; index < checks.size(); ++index) {
    if (reports[index].valid()) {
      results[index].report = end(reports[index], environment->deadline);
    }
  }
  leaveOutConsequences(results);
  return results;
}

}  // namespace sorvctl::doctor
