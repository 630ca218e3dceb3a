#include "sorvctl/doctor/Checks.h"

namespace sorvctl::doctor {

namespace {

/// What is known of the program that listens on the base port.
std::string listeningProgram(const Environment& environment) {
  if (environment.listener) {
    return nameOf(*environment.listener);
  }
  if (environment.portUse && !environment.portUse->listeners.empty()) {
    return "a program of the user " +
           sorvane::userName(environment.portUse->listeners.front().user);
  }
  return "a program that this system does not tell";
}

bool someoneListens(const Environment& environment) {
  return environment.portUse ? !environment.portUse->listeners.empty()
                             : environment.answer.connected;
}

/// Nothing is wrong if a name server listens and answers.
std::optional<Finding> lookAtListener(const Environment& environment) {
  const std::string port = std::to_string(environment.basePort);
  const sorvane::SystemProcess* const server = environment.server();
  const bool isStranger = environment.listener && !isNameServer(*environment.listener);
  if (!someoneListens(environment)) {
    return server != nullptr
               ? finding(kinds::serverOtherPort, {{"program", nameOf(*server)}, {"port", port}})
               : finding(kinds::serverNotRunning, {{"port", port}});
  }
  if (environment.answer.answered) {
    return isStranger ? std::optional(
                            finding(kinds::portForeign,
                                    {{"port", port}, {"program", listeningProgram(environment)}}))
                      : std::nullopt;
  }
  if (isStranger || server == nullptr) {
    return finding(kinds::portTaken, {{"port", port}, {"program", listeningProgram(environment)}});
  }
  return finding(
      kinds::serverSilent,
      {{"program", nameOf(*server)}, {"port", port}, {"reason", environment.answer.failure}});
}

void lookAtRange(int port, Report& report) {
  const auto range = sorvane::ephemeralPorts();
  if (!range) {
    report.unseen.push_back({"which ports any connection may get", "this system does not tell"});
  } else if (range->contain(port)) {
    report.findings.push_back(
        finding(kinds::portEphemeral, {{"port", std::to_string(port)},
                                       {"first", std::to_string(range->first)},
                                       {"last", std::to_string(range->last)}}));
  }
}

std::string seen(const Environment& environment) {
  return "port " + std::to_string(environment.basePort) + ": " +
         (someoneListens(environment) ? listeningProgram(environment) : "nothing") + " listens" +
         (environment.answer.answered ? " and answers" : "");
}

}  // namespace

Report checkPort(const Environment& environment) {
  Report report{seen(environment), {}, {}};
  if (auto found = lookAtListener(environment)) {
    report.findings.push_back(std::move(*found));
  }
  const std::string process =
      "which process listens on port " + std::to_string(environment.basePort);
  if (!environment.portUse) {
    report.unseen.push_back({process, "this system does not tell"});
  } else if (someoneListens(environment) && !environment.listener &&
             environment.server() == nullptr) {
    report.unseen.push_back({process, "only its user or root may know"});
  }
  lookAtRange(environment.basePort, report);
  return report;
}

}  // namespace sorvctl::doctor
