// What the network of this host looks like right now, and what a host object makes of it.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace sorvane {

/// An IPv4 address of an interface.
struct InterfaceAddress {
  std::string address;       ///< dotted
  bool hasLifetime = false;  ///< assigned for a limited time; false where the system does not tell
};

struct NetworkInterface {
  std::string name;
  bool up = false;
  bool loopback = false;
  std::string ethernetAddress;              ///< as `formatEthernetAddress` gives it
  std::vector<InterfaceAddress> addresses;  ///< in the system's order of preference
};

struct HostNetwork {
  std::vector<NetworkInterface> interfaces;  ///< in the system's order
  std::string defaultRouteInterface;         ///< the name of one of them; empty: no default route
  std::string defaultRouteSource;            ///< the address that the route prefers, may be empty
};

inline constexpr const char* kLoopbackAddress = "127.0.0.1";
inline constexpr const char* kNoEthernetAddress = "00:00:00:00:00:00";

/// Asks the system; nothing when it cannot answer now, for instance for want of descriptors.
/// Implemented once for each operating system. Any thread.
[[nodiscard]] std::optional<HostNetwork> readHostNetwork();

/// The host's address: of the default route's interface, else the first that is up and not
/// loopback, else 127.0.0.1.
[[nodiscard]] InterfaceAddress addressOfHost(const HostNetwork& network);

/// The hardware address of the interface that holds `address`, else of the default route's, else
/// of the first that has one, else all zero.
[[nodiscard]] std::string ethernetAddressOfHost(const HostNetwork& network,
                                                const std::string& address);

/// Six lower-case two-digit hex groups joined by colons; empty unless it is six bytes that are not
/// all zero.
[[nodiscard]] std::string formatEthernetAddress(const unsigned char* bytes, std::size_t length);

/// The host name that the system answers; may be empty.
[[nodiscard]] std::string systemHostName();

/// True when `text` is a loopback address or the address of one of this host's interfaces now, IPv4
/// or IPv6 (without brackets; a zone after "%" does not count).
[[nodiscard]] bool isAddressOfThisHost(const std::string& text);

}  // namespace sorvane
