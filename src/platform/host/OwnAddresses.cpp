#include "platform/OwnAddresses.h"

#include <ifaddrs.h>
#include <unistd.h>

#include <algorithm>
#include <memory>
#include <utility>

#include "platform/host/HostNetwork.h"

namespace sorvane {
namespace {

bool isOneOf(const std::vector<IPAddress>& addresses, const IPAddress& address) {
  return std::find(addresses.begin(), addresses.end(), address) != addresses.end();
}

}  // namespace

std::optional<std::vector<IPAddress>> interfaceAddresses() {
  ifaddrs* list = nullptr;
  if (getifaddrs(&list) != 0) {
    return std::nullopt;
  }
  const std::unique_ptr<ifaddrs, void (*)(ifaddrs*)> owner(list, freeifaddrs);
  std::vector<IPAddress> addresses;
  for (const ifaddrs* each = list; each != nullptr; each = each->ifa_next) {
    if (each->ifa_addr == nullptr) {
      continue;
    }
    if (const auto address = IPAddress::of(*each->ifa_addr)) {
      addresses.push_back(*address);
    }
  }
  return addresses;
}

bool OwnAddresses::contains(const IPAddress& address, Clock::time_point now) {
  if (address.isLoopback()) {
    return true;
  }
  const std::lock_guard<std::mutex> hold(mutex_);
  if (now >= askAgainAt_) {
    if (auto addresses = interfaceAddresses()) {
      addresses_ = std::move(*addresses);
    }
    askAgainAt_ = now + kRemembered;
  }
  return isOneOf(addresses_, address);
}

bool isAddressOfThisHost(const std::string& text) {
  const bool isIPv6 = text.find(':') != std::string::npos;
  const auto address = IPAddress::parse(isIPv6 ? text.substr(0, text.find('%')) : text);
  if (!address || address->isLoopback()) {
    return address.has_value();
  }
  const auto own = interfaceAddresses();
  return own && isOneOf(*own, *address);
}

std::string systemHostName() {
  char name[256] = {};  // POSIX allows 255 bytes
  return gethostname(name, sizeof name - 1) == 0 ? name : "";
}

}  // namespace sorvane
