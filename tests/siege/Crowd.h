// Clients that mean harm: one for each thing that a stranger could take from the others.
#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <span>
#include <string_view>

namespace sorvane::siege {

/// What the attackers share.
struct Field {
  int port;
  // What they caused and the console must account for, as a line or as one of those left out.
  std::atomic<long> refusedConnections = 0;  ///< closed for a frame that breaks the rules
  std::atomic<long> failedRequests = 0;      ///< commands that raised
};

struct Attack {
  std::string_view what;
  std::chrono::milliseconds pause;  ///< between two steps
  /// Begins the attack. The result makes one step of it. It keeps what the attack holds.
  std::function<void()> (*begin)(Field& field);
};

/// All attacks.
[[nodiscard]] std::span<const Attack> attacks();

}  // namespace sorvane::siege
