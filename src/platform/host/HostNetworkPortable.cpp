#include <arpa/inet.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>
#include <memory>

#include "platform/Descriptor.h"
#include "platform/host/HostNetwork.h"
#include "platform/host/LinkAddress.h"

namespace sorvane {
namespace {

std::string dotted(const sockaddr& address) {
  char text[INET_ADDRSTRLEN] = {};
  inet_ntop(AF_INET, &reinterpret_cast<const sockaddr_in&>(address).sin_addr, text, sizeof text);
  return text;
}

/// Returns the address of the default route; empty if there is no such route, nullopt if the system
/// cannot tell now. It is the address from which a datagram to an outside host would be sent.
/// Nothing is sent: connecting a datagram socket only chooses the route.
std::optional<std::string> addressTowardsOutside() {
  sockaddr_in outside{};
  outside.sin_family = AF_INET;
  outside.sin_port = htons(9);
  inet_pton(AF_INET, "192.0.2.1", &outside.sin_addr);  // RFC 5737: no host has it
  const Descriptor datagrams = openSocket(AF_INET, SOCK_DGRAM);
  if (!datagrams.isOpen()) {
    return std::nullopt;
  }
  if (connect(datagrams.number(), reinterpret_cast<const sockaddr*>(&outside), sizeof outside) !=
      0) {
    return "";
  }
  sockaddr_in own{};
  socklen_t length = sizeof own;
  if (getsockname(datagrams.number(), reinterpret_cast<sockaddr*>(&own), &length) != 0) {
    return std::nullopt;
  }
  return dotted(reinterpret_cast<const sockaddr&>(own));
}

NetworkInterface& interfaceNamed(HostNetwork& network, const char* name) {
  const auto found = std::find_if(network.interfaces.begin(), network.interfaces.end(),
                                  [&](const NetworkInterface& each) { return each.name == name; });
  if (found != network.interfaces.end()) {
    return *found;
  }
  NetworkInterface& added = network.interfaces.emplace_back();
  added.name = name;
  return added;
}

}  // namespace

std::optional<HostNetwork> readHostNetwork() {
  ifaddrs* list = nullptr;
  if (getifaddrs(&list) != 0) {
    return std::nullopt;
  }
  const std::unique_ptr<ifaddrs, void (*)(ifaddrs*)> owner(list, freeifaddrs);
  std::optional<std::string> source = addressTowardsOutside();
  if (!source) {
    return std::nullopt;
  }
  HostNetwork network;
  network.defaultRouteSource = *std::move(source);
  for (const ifaddrs* each = list; each != nullptr; each = each->ifa_next) {
    NetworkInterface& interface = interfaceNamed(network, each->ifa_name);
    interface.up = (each->ifa_flags & IFF_UP) != 0;
    interface.loopback = (each->ifa_flags & IFF_LOOPBACK) != 0;
    if (each->ifa_addr == nullptr) {
      continue;
    }
    if (each->ifa_addr->sa_family != AF_INET) {
      interface.ethernetAddress += linkAddress(*each->ifa_addr);
      continue;
    }
    const std::string address = dotted(*each->ifa_addr);
    interface.addresses.push_back({address, std::nullopt});
    if (address == network.defaultRouteSource) {
      network.defaultRouteInterface = interface.name;
    }
  }
  return network;
}

}  // namespace sorvane
