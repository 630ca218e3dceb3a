// The hardware address in an entry of the list that getifaddrs returns.
#pragma once

#include <string>

struct sockaddr;

namespace sorvane {

/// Returns the address as `formatEthernetAddress` does; empty if `address` is of another family.
/// Implemented in LinkAddressLinux.cpp and LinkAddressMacos.cpp.
[[nodiscard]] std::string linkAddress(const sockaddr& address);

}  // namespace sorvane
