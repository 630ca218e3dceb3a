// The listening socket, and the address of a peer.
#include <arpa/inet.h>
#include <errno.h>
#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include "platform/Descriptor.h"
#include "platform/NetConnection.h"
#include "platform/VNHost.h"
#include "platform/server/SocketCalls.h"

namespace sorvane {
namespace {

constexpr int kListenQueue = 4096;  // connections that may wait to be accepted

int listenOn(int family, const sockaddr* address, socklen_t bytes) {
  Descriptor listener(socket(family, SOCK_STREAM, 0));
  if (!listener.isOpen()) {
    return -1;
  }
  const int descriptor = listener.number();
  const int on = 1;
  const int off = 0;
  const bool ready = fcntl(descriptor, F_SETFD, FD_CLOEXEC) == 0 &&
                     fcntl(descriptor, F_SETFL, O_NONBLOCK) == 0 &&
                     setsockopt(descriptor, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) == 0 &&
                     (family != AF_INET6 ||
                      setsockopt(descriptor, IPPROTO_IPV6, IPV6_V6ONLY, &off, sizeof off) == 0) &&
                     setConnectionOptions(descriptor) && bind(descriptor, address, bytes) == 0 &&
                     listen(descriptor, kListenQueue) == 0;
  return ready ? listener.release() : -1;
}

int listenOnAllIPv6(std::uint16_t port) {
  sockaddr_in6 address{};
  address.sin6_family = AF_INET6;
  address.sin6_addr = in6addr_any;
  address.sin6_port = htons(port);
  return listenOn(AF_INET6, reinterpret_cast<const sockaddr*>(&address), sizeof address);
}

int listenOnIPv4(in_addr_t host, std::uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(host);
  address.sin_port = htons(port);
  return listenOn(AF_INET, reinterpret_cast<const sockaddr*>(&address), sizeof address);
}

}  // namespace

int NetConnection::createServerSocketForPort(int port) {
  if (port < 1 || port > 65535) {
    errno = EINVAL;
    return -1;
  }
  const auto number = static_cast<std::uint16_t>(port);
  if (VNHost::currentHost().isLocalAccessOnly()) {
    return listenOnIPv4(INADDR_LOOPBACK, number);
  }
  const int descriptor = listenOnAllIPv6(number);
  // IPv4 alone is for systems without IPv6. It must not be tried for a port that is taken.
  return descriptor >= 0 || errno == EADDRINUSE ? descriptor : listenOnIPv4(INADDR_ANY, number);
}

std::optional<IPAddress> peerAddress(int descriptor) {
  sockaddr_storage address{};
  socklen_t bytes = sizeof address;
  if (getpeername(descriptor, reinterpret_cast<sockaddr*>(&address), &bytes) != 0) {
    return std::nullopt;
  }
  return IPAddress::of(reinterpret_cast<const sockaddr&>(address));
}

std::string peerName(int descriptor) {
  sockaddr_storage address{};
  socklen_t bytes = sizeof address;
  char host[NI_MAXHOST];
  char port[NI_MAXSERV];
  if (getpeername(descriptor, reinterpret_cast<sockaddr*>(&address), &bytes) != 0 ||
      getnameinfo(reinterpret_cast<sockaddr*>(&address), bytes, host, sizeof host, port,
                  sizeof port, NI_NUMERICHOST | NI_NUMERICSERV) != 0) {
    return "a peer that is gone";
  }
  constexpr std::string_view kMapped = "::ffff:";
  std::string_view name = host;
  if (name.starts_with(kMapped) && name.find('.') != std::string_view::npos) {
    name.remove_prefix(kMapped.size());
  }
  const bool isIPv6 = name.find(':') != std::string_view::npos;
  return (isIPv6 ? "[" + std::string(name) + "]" : std::string(name)) + ":" + port;
}

}  // namespace sorvane
