// The bytes of a socket address, read and made without an operating system's header.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace sorvane {

/// The fields of a `sockaddr_in`.
struct Ipv4SocketAddress {
  std::string dottedAddress;  ///< as `inet_ntoa` writes it
  /// The 16-bit port field as it lies in memory, in network byte order: port 20221 (0x4EFD) reads
  /// as 64846 (0xFD4E) on a little-endian host.
  std::uint16_t rawPort = 0;
};

/// Reads the bytes as a `sockaddr_in`, whatever family they name. Bytes that are missing count as
/// 0.
[[nodiscard]] Ipv4SocketAddress readAsIpv4SocketAddress(std::string_view bytes);

/// The bytes of a `sockaddr_in` or, for an address with a colon, of a `sockaddr_in6`; empty when
/// `address` is not a numeric address. `port` is in host byte order; `interface` is the number of
/// the network interface to which a link-local IPv6 address belongs, else 0.
[[nodiscard]] std::string socketAddress(const std::string& address, std::uint16_t port,
                                        std::uint32_t interface = 0);

/// A port number in the other byte order than the host's: turns a raw port field into the number
/// that people use, and back.
[[nodiscard]] std::uint16_t portFromRaw(std::uint16_t rawPort);

}  // namespace sorvane
