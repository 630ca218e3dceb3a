// The hardware address in the list that getifaddrs gives.
#pragma once

#include <string>

struct sockaddr;

namespace sorvane {

/// As `formatEthernetAddress` gives it; empty when `address` is of another family. Implemented once
/// for each operating system.
[[nodiscard]] std::string linkAddress(const sockaddr& address);

}  // namespace sorvane
