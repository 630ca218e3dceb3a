// Internet addresses, without ports.
#pragma once

#include <netinet/in.h>
#include <sys/socket.h>

#include <cstdint>
#include <optional>
#include <string>

namespace sorvane::client::detail {

/// An address and port of IPv4 or IPv6.
struct SocketAddress {
  sockaddr_storage storage{};
  socklen_t size = sizeof(sockaddr_storage);

  [[nodiscard]] const sockaddr* get() const { return reinterpret_cast<const sockaddr*>(&storage); }
  [[nodiscard]] sockaddr* get() { return reinterpret_cast<sockaddr*>(&storage); }
  [[nodiscard]] int family() const { return storage.ss_family; }

  void setPort(std::uint16_t port);
  [[nodiscard]] std::uint16_t port() const;
  [[nodiscard]] bool isLoopback() const;
  /// True when both are the same host, whatever their ports.
  [[nodiscard]] bool hasHostOf(const SocketAddress& other) const;
  /// In digits, without the port; an IPv4 address in IPv6 as IPv4.
  [[nodiscard]] std::string text() const;
};

/// The two ends of a connected socket.
struct Ends {
  SocketAddress own;
  SocketAddress peer;
};
/// Nothing when the connection has ended already.
[[nodiscard]] std::optional<Ends> endsOf(int socket);

}  // namespace sorvane::client::detail
