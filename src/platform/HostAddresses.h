// Finds the addresses of a host by its name, within a time limit. Implemented in
// client/HostAddresses.cpp.
#pragma once

#include <chrono>
#include <string>
#include <vector>

namespace sorvane {

/// What the system's resolver knows about a host.
struct HostAddresses {
  std::vector<std::string> addresses;  ///< numeric, IPv6 and IPv4, in the order to be tried
  std::string failure;                 ///< why there are none, in words
  bool outOfTime = false;              ///< the resolver did not return before the deadline
};

/// Asks the resolver on a thread of its own, and stops waiting at `deadline`. If the resolver
/// hangs, the thread ends when the resolver does. A numeric address needs no thread.
[[nodiscard]] HostAddresses addressesOfHost(const std::string& host,
                                            std::chrono::steady_clock::time_point deadline);

}  // namespace sorvane
