#include <arpa/inet.h>
#include <ifaddrs.h>
#include <netinet/in.h>
#include <string.h>
#include <unistd.h>

#include <memory>
#include <optional>

#include "platform/host/HostNetwork.h"

namespace sorvane {
namespace {

std::optional<in_addr> readIPv4(const std::string& text) {
  in_addr address{};
  if (inet_pton(AF_INET, text.c_str(), &address) == 1) {
    return address;
  }
  return std::nullopt;
}

std::optional<in6_addr> readIPv6(const std::string& text) {
  in6_addr address{};
  if (inet_pton(AF_INET6, text.substr(0, text.find('%')).c_str(), &address) == 1) {
    return address;
  }
  return std::nullopt;
}

bool isLoopback(const in_addr& address) { return (ntohl(address.s_addr) >> 24) == 127; }

/// Returns true if an interface has this address.
bool isOfAnInterface(int family, const void* address, std::size_t length) {
  ifaddrs* list = nullptr;
  if (getifaddrs(&list) != 0) {
    return false;
  }
  const std::unique_ptr<ifaddrs, void (*)(ifaddrs*)> owner(list, freeifaddrs);
  for (const ifaddrs* each = list; each != nullptr; each = each->ifa_next) {
    if (each->ifa_addr == nullptr || each->ifa_addr->sa_family != family) {
      continue;
    }
    const void* theirs = family == AF_INET
                             ? static_cast<const void*>(
                                   &reinterpret_cast<const sockaddr_in*>(each->ifa_addr)->sin_addr)
                             : &reinterpret_cast<const sockaddr_in6*>(each->ifa_addr)->sin6_addr;
    if (memcmp(theirs, address, length) == 0) {
      return true;
    }
  }
  return false;
}

bool isOfThisHost(const in_addr& address) {
  return isLoopback(address) || isOfAnInterface(AF_INET, &address, sizeof address);
}

}  // namespace

bool isAddressOfThisHost(const std::string& text) {
  if (const auto address = readIPv4(text)) {
    return isOfThisHost(*address);
  }
  const auto address = readIPv6(text);
  if (!address) {
    return false;
  }
  if (IN6_IS_ADDR_V4MAPPED(&*address)) {
    in_addr mapped{};
    memcpy(&mapped, &address->s6_addr[12], sizeof mapped);
    return isOfThisHost(mapped);
  }
  return IN6_IS_ADDR_LOOPBACK(&*address) || isOfAnInterface(AF_INET6, &*address, sizeof *address);
}

std::string systemHostName() {
  char name[256] = {};  // POSIX allows 255 bytes
  return gethostname(name, sizeof name - 1) == 0 ? name : "";
}

}  // namespace sorvane
