// IP addresses and networks, IPv4 and IPv6.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>

struct sockaddr;

namespace sorvane {

/// An IPv4 or IPv6 address. An IPv4 address that stands in an IPv6 address (::ffff:192.0.2.1,
/// RFC 4291) is that IPv4 address: a socket for both kinds tells the addresses of its IPv4 peers
/// like this.
class IPAddress {
 public:
  /// Reads "192.0.2.1" or "2001:db8::1", without a zone. Returns nothing for any other text.
  [[nodiscard]] static std::optional<IPAddress> parse(const std::string& text);
  /// Returns the address of a socket address, or nothing if that is neither IPv4 nor IPv6.
  [[nodiscard]] static std::optional<IPAddress> of(const sockaddr& address);

  [[nodiscard]] bool isIPv4() const;
  /// True for 127.0.0.0/8 and ::1.
  [[nodiscard]] bool isLoopback() const;
  /// The address in IPv6 form, in the order of the network.
  [[nodiscard]] const std::array<std::uint8_t, 16>& bytes() const { return bytes_; }

  bool operator==(const IPAddress&) const = default;

 private:
  IPAddress() = default;

  std::array<std::uint8_t, 16> bytes_{};
};

/// The addresses that begin with the same bits. An IPv6 network holds no IPv4 address, unless it is
/// the IPv6 form of an IPv4 network.
class IPNetwork {
 public:
  /// Reads "192.0.2.0/24", "2001:db8::/32", or an address, which is a network of one. Returns
  /// nothing for any other text, and when the address has bits behind the prefix: "192.0.2.1/24"
  /// may be a slip.
  [[nodiscard]] static std::optional<IPNetwork> parse(const std::string& text);

  [[nodiscard]] bool contains(const IPAddress& address) const;

  bool operator==(const IPNetwork&) const = default;

 private:
  IPNetwork(const IPAddress& first, unsigned prefixBits) : first_(first), prefixBits_(prefixBits) {}

  IPAddress first_;
  unsigned prefixBits_;  // of the IPv6 form
};

}  // namespace sorvane
