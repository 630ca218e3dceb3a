// The addresses of a host's name, found within a time limit.
#pragma once

#include <chrono>
#include <string>
#include <vector>

namespace sorvane {

/// What the system's resolver knows about a host.
struct HostAddresses {
  std::vector<std::string> addresses;  ///< numeric, IPv6 and IPv4, in the order to be tried
  std::string failure;                 ///< why there are none, in words
};

/// Asks the resolver, and stops waiting for it at `deadline`. A resolver that hangs goes on in a
/// thread of its own, which ends when it does; an address given as such never costs a thread.
[[nodiscard]] HostAddresses addressesOfHost(const std::string& host,
                                            std::chrono::steady_clock::time_point deadline);

}  // namespace sorvane
