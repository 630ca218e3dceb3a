// The current network of this host, and what VNHost takes from it.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace sorvane {

/// An IPv4 address of an interface.
struct InterfaceAddress {
  std::string address;  ///< dotted
  /// Whether it was assigned for a limited time; nullopt if the system does not tell.
  std::optional<bool> hasLifetime;
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
  std::string defaultRouteInterface;  ///< the name of one of `interfaces`; empty: no default route
  std::string defaultRouteSource;     ///< the address that the route prefers; may be empty
};

inline constexpr const char* kLoopbackAddress = "127.0.0.1";
inline constexpr const char* kNoEthernetAddress = "00:00:00:00:00:00";

// ---- HostNetworkLinux.cpp; on other systems HostNetworkPortable.cpp

/// Asks the system. Returns nullopt if it cannot answer now, for instance because no descriptor is
/// free. Any thread.
[[nodiscard]] std::optional<HostNetwork> readHostNetwork();

// ---- HostNetwork.cpp

/// Returns the host's address: that of the default route's interface; otherwise that of the first
/// interface that is up and not loopback; otherwise 127.0.0.1.
[[nodiscard]] InterfaceAddress addressOfHost(const HostNetwork& network);

/// Returns the hardware address of the interface that has `address`; otherwise that of the default
/// route's interface; otherwise that of the first interface that has one; otherwise all zero.
[[nodiscard]] std::string ethernetAddressOfHost(const HostNetwork& network,
                                                const std::string& address);

/// Returns six lower-case two-digit hex groups joined by colons; empty if the bytes are not six or
/// are all zero.
[[nodiscard]] std::string formatEthernetAddress(const unsigned char* bytes, std::size_t length);

// ---- OwnAddresses.cpp

/// Returns the host name that the system reports; may be empty.
[[nodiscard]] std::string systemHostName();

/// Returns true if `text` is a loopback address, or now the address of one of this host's
/// interfaces, IPv4 or IPv6. IPv6 is written without brackets. A zone after "%" is ignored.
[[nodiscard]] bool isAddressOfThisHost(const std::string& text);

}  // namespace sorvane
