// What a name server has gone through without losing what is registered.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

#include "platform/Message.h"
#include "platform/SystemProcess.h"
#include "sorvctl/Session.h"

namespace sorvctl {

struct Continuity {
  std::string instance;        ///< names the registry, which upgrades keep
  std::uint64_t upgrades = 0;  ///< in place, that this name server has gone through
  std::uint64_t crashes = 0;   ///< serving processes that were replaced after their death
  std::uint64_t attempts = 0;  ///< upgrades that were tried
  std::string refused;         ///< why the last one was put off or refused; empty: it was not
  std::chrono::system_clock::time_point begun{};  ///< when the program that answers began
  int process = 0;                                ///< the number of the process that answers
};

/// Reads the reply to "continuity". Nothing when the server is of an earlier version, which does
/// not know the question.
[[nodiscard]] std::optional<Continuity> continuityOf(const sorvane::Message& reply);
/// Asks the server, as `continuityOf`.
[[nodiscard]] std::optional<Continuity> readContinuity(Session& session);

/// True if the answer came from this process, or from a child over which it keeps watch.
[[nodiscard]] bool isAnswerOf(const sorvane::SystemProcess& process, const Continuity& told);

}  // namespace sorvctl
