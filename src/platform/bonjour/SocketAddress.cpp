#include "platform/SocketAddress.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>
#include <cstring>

namespace sorvane {

Ipv4SocketAddress readAsIpv4SocketAddress(std::string_view bytes) {
  sockaddr_in address{};
  std::memcpy(&address, bytes.data(), std::min(bytes.size(), sizeof address));
  char text[INET_ADDRSTRLEN] = "";
  inet_ntop(AF_INET, &address.sin_addr, text, sizeof text);
  return {text, address.sin_port};
}

std::string socketAddress(const std::string& address, std::uint16_t port, std::uint32_t interface) {
  sockaddr_in ipv4{};
  if (inet_pton(AF_INET, address.c_str(), &ipv4.sin_addr) == 1) {
    ipv4.sin_family = AF_INET;
    ipv4.sin_port = htons(port);
    return {reinterpret_cast<const char*>(&ipv4), sizeof ipv4};
  }
  sockaddr_in6 ipv6{};
  if (inet_pton(AF_INET6, address.c_str(), &ipv6.sin6_addr) == 1) {
    ipv6.sin6_family = AF_INET6;
    ipv6.sin6_port = htons(port);
    ipv6.sin6_scope_id = interface;
    return {reinterpret_cast<const char*>(&ipv6), sizeof ipv6};
  }
  return {};
}

std::uint16_t portFromRaw(std::uint16_t rawPort) { return ntohs(rawPort); }

}  // namespace sorvane
