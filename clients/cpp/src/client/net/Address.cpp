#include "client/net/Address.h"

#include <arpa/inet.h>

#include <cstring>
#include <string_view>

namespace sorvane::client::detail {
namespace {

sockaddr_in& v4(sockaddr_storage& storage) { return reinterpret_cast<sockaddr_in&>(storage); }
sockaddr_in6& v6(sockaddr_storage& storage) { return reinterpret_cast<sockaddr_in6&>(storage); }
const sockaddr_in& v4(const sockaddr_storage& storage) {
  return reinterpret_cast<const sockaddr_in&>(storage);
}
const sockaddr_in6& v6(const sockaddr_storage& storage) {
  return reinterpret_cast<const sockaddr_in6&>(storage);
}

/// The bytes of the address: 4 for IPv4, also within IPv6, or 16.
std::string_view bytesOf(const SocketAddress& address) {
  if (address.family() == AF_INET) {
    return {reinterpret_cast<const char*>(&v4(address.storage).sin_addr), 4};
  }
  const in6_addr& bytes = v6(address.storage).sin6_addr;
  const std::string_view all(reinterpret_cast<const char*>(&bytes), sizeof bytes);
  return IN6_IS_ADDR_V4MAPPED(&bytes) ? all.substr(12) : all;
}

}  // namespace

void SocketAddress::setPort(std::uint16_t port) {
  (family() == AF_INET ? v4(storage).sin_port : v6(storage).sin6_port) = htons(port);
}

std::uint16_t SocketAddress::port() const {
  return ntohs(family() == AF_INET ? v4(storage).sin_port : v6(storage).sin6_port);
}

bool SocketAddress::isLoopback() const {
  const std::string_view bytes = bytesOf(*this);
  return bytes.size() == 4
             ? bytes[0] == 127
             : bytes == std::string_view(reinterpret_cast<const char*>(&in6addr_loopback), 16);
}

bool SocketAddress::hasHostOf(const SocketAddress& other) const {
  return bytesOf(*this) == bytesOf(other);
}

std::string SocketAddress::text() const {
  const std::string_view bytes = bytesOf(*this);
  char text[INET6_ADDRSTRLEN];
  return inet_ntop(bytes.size() == 4 ? AF_INET : AF_INET6, bytes.data(), text, sizeof text);
}

std::optional<Ends> endsOf(int socket) {
  Ends ends;
  if (getsockname(socket, ends.own.get(), &ends.own.size) != 0 ||
      getpeername(socket, ends.peer.get(), &ends.peer.size) != 0) {
    return std::nullopt;
  }
  return ends;
}

}  // namespace sorvane::client::detail
