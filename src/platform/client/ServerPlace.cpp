#include "platform/client/ServerPlace.h"

#include <algorithm>

#include "platform/Ascii.h"
#include "platform/VNHost.h"

namespace sorvane {

namespace {

bool isLoopback(const std::string& address) {
  return address.starts_with("127.") || address == "::1" || address.starts_with("::ffff:127.");
}

/// Returns true if `place` is the host that was asked.
bool isAskedHost(const HostPlace& place, const AskedHost& asked) {
  const std::vector<std::string>& addresses = place.addresses;
  if (std::ranges::count(addresses, asked.place.addresses.front()) != 0) {
    return true;
  }
  if (asked.isThisHost) {
    return std::ranges::any_of(addresses, [](const std::string& address) {
      return VNHost::currentHost().isThisHost(address);
    });
  }
  // Many hosts resolve their own name to a loopback address. Any other loopback name was meant on
  // the host that registered it.
  return std::ranges::all_of(addresses, isLoopback) &&
         !equalIgnoringCase(place.name, VNHost::currentHost().name());
}

}  // namespace

HostPlace placeOfServer(const std::string& portHost, const AskedHost& asked,
                        std::chrono::steady_clock::time_point deadline) {
  if (portHost.empty() || equalIgnoringCase(portHost, asked.place.name)) {
    return asked.place;
  }
  const auto now = std::chrono::steady_clock::now();
  const HostPlace registered{portHost,
                             addressesOfHost(portHost, now + (deadline - now) / 2).addresses};
  return registered.addresses.empty() || isAskedHost(registered, asked) ? asked.place : registered;
}

}  // namespace sorvane
