// Where a server is that has registered with a name server.
#pragma once

#include <string>
#include <vector>

#include "platform/HostAddresses.h"

namespace sorvane {

/// A host and how to reach it.
struct HostPlace {
  std::string name;                    ///< as it was given
  std::vector<std::string> addresses;  ///< numeric, in the order to be tried
};

/// The host whose name server was asked.
struct AskedHost {
  HostPlace place;          ///< the first address is the one at which the name server was reached
  bool isThisHost = false;  ///< that address belongs to this machine
};

/// Returns where a server is that has registered `portHost`. It is at that host, unless
/// - `portHost` does not resolve. The resolver gets half of the time until `deadline`.
/// - `portHost` is the asked host under another name or address.
/// - `portHost` is a loopback name such as "localhost". It then means the host of the name server.
/// In these cases it is at the asked host. Any thread.
[[nodiscard]] HostPlace placeOfServer(const std::string& portHost, const AskedHost& asked,
                                      std::chrono::steady_clock::time_point deadline);

}  // namespace sorvane
