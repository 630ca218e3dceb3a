#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>

#include "platform/VNHost.h"
#include "sorvctl/Colours.h"
#include "sorvctl/Command.h"
#include "sorvctl/Failure.h"
#include "sorvctl/Output.h"
#include "sorvctl/Progress.h"
#include "sorvctl/Seconds.h"
#include "sorvctl/Session.h"
#include "sorvctl/TerminalText.h"
#include "sorvctl/doctor/Checks.h"

namespace sorvctl {

using doctor::Environment;
using doctor::Finding;
using doctor::Result;
using doctor::Severity;
using nlohmann::ordered_json;

namespace {

constexpr double kSeconds = 4.5;

struct DoctorOptions {
  double seconds = kSeconds;
  bool verbose = false;
};

bool isSomethingWrong(const std::vector<Result>& results) {
  return std::any_of(results.begin(), results.end(), [](const Result& result) {
    const auto& findings = result.report.findings;
    return std::any_of(findings.begin(), findings.end(),
                       [](const Finding& each) { return each.severity == Severity::wrong; });
  });
}

std::string namesOf(const std::vector<Result>& results) {
  std::string names;
  for (const Result& result : results) {
    names += (names.empty() ? "" : ", ") + result.check;
  }
  return names;
}

ordered_json asJson(const std::vector<Result>& results) {
  auto checks = ordered_json::array();
  auto findings = ordered_json::array();
  auto unseen = ordered_json::array();
  for (const auto& [check, report] : results) {
    checks.push_back({{"name", check}, {"seen", report.seen}});
    for (const Finding& each : report.findings) {
      findings.push_back({{"severity", doctor::severityName(each.severity)},
                          {"id", each.id},
                          {"check", check},
                          {"what", each.what},
                          {"remedy", each.remedy}});
    }
    for (const doctor::Unseen& each : report.unseen) {
      unseen.push_back({{"check", check}, {"what", each.what}, {"reason", each.reason}});
    }
  }
  return {{"well", !isSomethingWrong(results)},
          {"findings", std::move(findings)},
          {"notLookedAt", std::move(unseen)},
          {"checks", std::move(checks)}};
}

/// Lines for a terminal: a coloured word, and an escaped text.
class Lines {
 public:
  void add(std::string_view word, Tone tone, const std::string& text) {
    text_ += toned(word, tone) + ": " + escaped(text) + "\n";
  }
  [[nodiscard]] const std::string& text() const { return text_; }

 private:
  std::string text_;
};

void addFindings(const std::vector<Result>& results, Lines& lines) {
  for (const Severity severity : {Severity::wrong, Severity::doubtful}) {
    for (const Result& result : results) {
      for (const Finding& each : result.report.findings) {
        if (each.severity == severity) {
          lines.add(doctor::severityName(severity),
                    severity == Severity::wrong ? Tone::bad : Tone::doubtful,
                    each.what + ". " + each.remedy + ". [" + each.id + "]");
        }
      }
    }
  }
}

/// What could not be looked at: whole checks in one line for each reason, then the rest.
void addUnseen(const std::vector<Result>& results, Lines& lines) {
  std::map<std::string, std::string> checksOfReason;
  for (const auto& [check, report] : results) {
    for (const doctor::Unseen& each : report.unseen) {
      if (each.what.empty()) {
        std::string& checks = checksOfReason[each.reason];
        checks += (checks.empty() ? "" : ", ") + check;
      } else {
        lines.add("not looked at", Tone::faint, each.what + ": " + each.reason);
      }
    }
  }
  for (const auto& [reason, checks] : checksOfReason) {
    lines.add("not looked at", Tone::faint, checks + ": " + reason);
  }
}

std::string asText(const std::vector<Result>& results, bool verbose) {
  Lines lines;
  if (verbose) {
    for (const auto& [check, report] : results) {
      if (!report.seen.empty()) {
        lines.add(check, Tone::faint, report.seen);
      }
    }
  }
  addFindings(results, lines);
  const bool nothingFound = std::all_of(results.begin(), results.end(), [](const Result& result) {
    return result.report.findings.empty();
  });
  if (nothingFound) {
    lines.add("all is well", Tone::good, namesOf(results));
  }
  addUnseen(results, lines);
  return lines.text();
}

std::vector<Result> resultsOf(const Session& session, const DoctorOptions& options) {
  const Progress progress("looking at this host");
  const auto deadline = Environment::Clock::now() + inMilliseconds(options.seconds);
  const auto environment =
      std::make_shared<const Environment>(doctor::lookAtThisHost(session.givenPort(), deadline));
  if (!session.host().empty() && !sorvane::VNHost::currentHost().isThisHost(session.host())) {
    throw Failure(Status::wrongUsage,
                  "the doctor looks at the host on which it runs: run it on " + session.host());
  }
  return doctor::runChecks(environment);
}

int examine(const Session& session, const DoctorOptions& options) {
  const auto results = resultsOf(session, options);
  printText(session, asJson(results), asText(results, options.verbose));
  return static_cast<int>(isSomethingWrong(results) ? Status::saidNo : Status::done);
}

Handler declareDoctor(CLI::App& command) {
  auto options = std::make_shared<DoctorOptions>();
  command
      .add_option("--timeout", options->seconds,
                  "Seconds that the whole examination may take (default: 4.5)")
      ->check(CLI::Range(0.5, 86400.0));
  command.add_flag("--verbose", options->verbose, "Tell what each check has seen");
  return [options](Session& session) { return examine(session, *options); };
}

}  // namespace

std::vector<Command> commands::doctor() {
  Command row{"doctor", "Tell why nothing can be found on this host, and what helps",
              "sorvctl doctor --verbose", &declareDoctor};
  row.readsSettings = true;
  return {row};
}

}  // namespace sorvctl
