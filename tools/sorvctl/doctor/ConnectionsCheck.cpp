#include <algorithm>
#include <thread>

#include "sorvctl/doctor/Checks.h"

namespace sorvctl::doctor {

namespace {

/// What the name server leaves aside of the descriptors when MaxConnections is 0.
std::int64_t reservedFiles(const sorvane::Settings& settings) {
  const auto cores = static_cast<int>(std::thread::hardware_concurrency());
  return 32 + 2 * static_cast<std::int64_t>(settings.threads != 0 ? settings.threads : cores);
}

struct Limit {
  std::int64_t connections = 0;
  std::optional<Finding> finding;
};

Limit limitOf(const sorvane::Settings& settings, std::uint64_t openFiles) {
  constexpr std::uint64_t kMostFiles = 1U << 30;  // as good as no limit
  const auto files = static_cast<std::int64_t>(std::min(openFiles, kMostFiles));
  const std::int64_t allowed = std::max<std::int64_t>(files - reservedFiles(settings), 1);
  const std::int64_t wanted = settings.maxConnections;
  if (wanted == 0) {
    return {allowed, std::nullopt};
  }
  if (wanted <= allowed) {
    return {wanted, std::nullopt};
  }
  return {allowed, finding(kinds::connectionsUnreachable, {{"wanted", std::to_string(wanted)},
                                                           {"files", std::to_string(files)},
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
