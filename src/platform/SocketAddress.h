// Reads and makes the bytes of socket addresses, for code without headers of an operating system.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace sorvane {

/// The fields of a `sockaddr_in`.
struct Ipv4SocketAddress {
  std::string dottedAddress;  ///< as `inet_ntoa` writes it
  /// The 16-bit port field as it lies in memory, in network byte order. Port 20221 (0x4EFD) reads
  /// as 64846 (0xFD4E) on a little-endian host.
  std::uint16_t rawPort = 0;
};

/// Reads the bytes as a `sockaddr_in`, whatever family they name. Missing bytes count as 0.
[[nodiscard]] Ipv4SocketAddress readAsIpv4SocketAddress(std::string_view bytes);

/// Returns the bytes of a `sockaddr_in` for an IPv4 address, or of a `sockaddr_in6` for an IPv6
/// address; empty if `address` is not numeric. `port` is in host byte order. `interface` is the
/// number of the network interface of a link-local IPv6 address, otherwise 0.
[[nodiscard]] std::string socketAddress(const std::string& address, std::uint16_t port,
                                        std::uint32_t interface = 0);

/// Converts a raw port field to the number that people use, or that number to a raw port field.
[[nodiscard]] std::uint16_t portFromRaw(std::uint16_t rawPort);

}  // namespace sorvane
