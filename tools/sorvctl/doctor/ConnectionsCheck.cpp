#include "platform/ConnectionLimit.h"
#include "sorvctl/doctor/Checks.h"

namespace sorvctl::doctor {

namespace {

struct Limit {
  std::int64_t connections = 0;
  std::optional<Finding> finding;
};

Limit limitOf(const sorvane::Settings& settings, std::uint64_t openFiles) {
  const std::int64_t allowed = sorvane::connectionsWithin(openFiles, settings.threads);
  const std::int64_t wanted = settings.maxConnections;
  if (wanted == 0) {
    return {allowed, std::nullopt};
  }
  if (wanted <= allowed) {
    return {wanted, std::nullopt};
  }
  return {allowed, finding(kinds::connectionsUnreachable, {{"wanted", std::to_string(wanted)},
                                                           {"files", std::to_string(openFiles)},
                                                           {"limit", std::to_string(allowed)}})};
}

}  // namespace

Report checkConnections(const Environment& environment) {
  const sorvane::SystemProcess* const server = environment.server();
  if (server == nullptr && !environment.answer.answered) {
    return {"there is no name server", {}, {}};
  }
  if (server == nullptr || !server->openFileLimit || !environment.portUse) {
    return {"",
            {},
            {{"the limit of open files of the name server", "nobody tells which process it is"}}};
  }
  Limit limit = limitOf(environment.settings.reading.settings, *server->openFileLimit);
  const auto count = static_cast<std::int64_t>(environment.portUse->connections);
  Report report{
      std::to_string(count) + " of " + std::to_string(limit.connections) + " are taken", {}, {}};
  if (limit.finding) {
    report.findings.push_back(std::move(*limit.finding));
  }
  const bool usedUp = count >= limit.connections;
  if (usedUp || count * 10 >= limit.connections * 9) {
    report.findings.push_back(
        finding(usedUp ? kinds::connectionsUsedUp : kinds::connectionsScarce,
                {{"count", std::to_string(count)}, {"limit", std::to_string(limit.connections)}}));
  }
  return report;
}

}  // namespace sorvctl::doctor
