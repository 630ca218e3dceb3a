// The addresses of this machine, asked again and again.
#pragma once

#include <chrono>
#include <mutex>
#include <optional>
#include <vector>

#include "platform/IPNetwork.h"

namespace sorvane {

/// Remembers the addresses of this machine's interfaces, so that a stranger who connects again and
/// again does not make the system list them each time. Any thread.
class OwnAddresses {
 public:
  using Clock = std::chrono::steady_clock;
  /// How long the addresses are remembered. An address that was added since may not be known yet.
  static constexpr std::chrono::seconds kRemembered{1};

  /// Returns true for a loopback address and for an address of one of this machine's interfaces.
  /// While the system cannot tell them, the addresses that it told last count. `now` is the present
  /// moment; tests pass their own.
  [[nodiscard]] bool contains(const IPAddress& address, Clock::time_point now = Clock::now());

 private:
  std::mutex mutex_;
  std::vector<IPAddress> addresses_;  // guarded by mutex_
  Clock::time_point askAgainAt_{};    // guarded by mutex_
};

/// Returns the addresses of this machine's interfaces now, or nothing if the system cannot tell.
/// Any thread.
[[nodiscard]] std::optional<std::vector<IPAddress>> interfaceAddresses();

}  // namespace sorvane
