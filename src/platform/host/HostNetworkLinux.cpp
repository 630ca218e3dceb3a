#include <arpa/inet.h>
#include <net/if.h>
#include <netinet/in.h>

#include <algorithm>
#include <cstring>
#include <limits>
#include <map>

#include "platform/host/HostNetwork.h"
#include "platform/host/NetlinkLinux.h"

namespace sorvane {
namespace {

template <typename Value>
Value readAs(const char* bytes, std::size_t length) {
  Value value{};
  std::memcpy(&value, bytes, std::min(length, sizeof value));
  return value;
}

std::string dotted(const char* bytes, std::size_t length) {
  const auto address = readAs<in_addr>(bytes, length);
  char text[INET_ADDRSTRLEN] = {};
  inet_ntop(AF_INET, &address, text, sizeof text);
  return text;
}

template <typename Fixed>
const Fixed& fixedPart(const nlmsghdr& entry) {
  return *reinterpret_cast<const Fixed*>(reinterpret_cast<const char*>(&entry) + NLMSG_HDRLEN);
}

NetworkInterface readInterface(const nlmsghdr& entry) {
  const auto& link = fixedPart<ifinfomsg>(entry);
  NetworkInterface result;
  result.up = (link.ifi_flags & IFF_UP) != 0;
  result.loopback = (link.ifi_flags & IFF_LOOPBACK) != 0;
  visitAttributes<ifinfomsg>(entry, [&](unsigned type, const char* bytes, std::size_t length) {
    if (type == IFLA_IFNAME) {
      result.name.assign(bytes, strnlen(bytes, length));
    } else if (type == IFLA_ADDRESS) {
      result.ethernetAddress =
          formatEthernetAddress(reinterpret_cast<const unsigned char*>(bytes), length);
    }
  });
  return result;
}

/// An address and its scope. The lower the scope, the farther the address reaches.
struct ScopedAddress {
  InterfaceAddress address;
  unsigned char scope;
};

ScopedAddress readAddress(const nlmsghdr& entry) {
  constexpr std::uint32_t kForEver = std::numeric_limits<std::uint32_t>::max();
  const auto& fixed = fixedPart<ifaddrmsg>(entry);
  ScopedAddress result{{"", false}, fixed.ifa_scope};
  visitAttributes<ifaddrmsg>(entry, [&](unsigned type, const char* bytes, std::size_t length) {
    if (type == IFA_LOCAL) {  // IFA_ADDRESS would be the other end of a point-to-point link
      result.address.address = dotted(bytes, length);
    } else if (type == IFA_CACHEINFO) {
      result.address.hasLifetime = readAs<ifa_cacheinfo>(bytes, length).ifa_valid != kForEver;
    }
  });
  return result;
}

/// A default route through one interface. The route with the lowest priority number counts.
struct DefaultRoute {
  std::uint32_t priority = std::numeric_limits<std::uint32_t>::max();
  int interface = 0;  // 0: none yet
  std::string source;
};

void considerRoute(const nlmsghdr& entry, DefaultRoute& best) {
  const auto& fixed = fixedPart<rtmsg>(entry);
  DefaultRoute route;
  route.priority = 0;
  std::uint32_t table = fixed.rtm_table;
  visitAttributes<rtmsg>(entry, [&](unsigned type, const char* bytes, std::size_t length) {
    if (type == RTA_OIF) {
      route.interface = readAs<int>(bytes, length);
    } else if (type == RTA_MULTIPATH) {
      route.interface = readAs<rtnexthop>(bytes, length).rtnh_ifindex;  // the first next hop
    } else if (type == RTA_PRIORITY) {
      route.priority = readAs<std::uint32_t>(bytes, length);
    } else if (type == RTA_PREFSRC) {
      route.source = dotted(bytes, length);
    } else if (type == RTA_TABLE) {
      table = readAs<std::uint32_t>(bytes, length);
    }
  });
  const bool isDefault = fixed.rtm_family == AF_INET && fixed.rtm_dst_len == 0 &&
                         fixed.rtm_type == RTN_UNICAST && table == RT_TABLE_MAIN;
  if (isDefault && route.interface != 0 &&
      (best.interface == 0 || route.priority < best.priority)) {
    best = std::move(route);
  }
}

}  // namespace

std::optional<HostNetwork> readHostNetwork() {
  std::map<int, NetworkInterface> interfaces;
  std::map<int, std::vector<ScopedAddress>> addresses;
  DefaultRoute route;
  const bool answered =
      visitNetlinkEntries(RTM_GETLINK, AF_UNSPEC,
                          [&](const nlmsghdr& entry) {
                            interfaces[fixedPart<ifinfomsg>(entry).ifi_index] =
                                readInterface(entry);
                          }) &&
      visitNetlinkEntries(
          RTM_GETADDR, AF_INET,
          [&](const nlmsghdr& entry) {
            addresses[static_cast<int>(fixedPart<ifaddrmsg>(entry).ifa_index)].push_back(
                readAddress(entry));
          }) &&
      visitNetlinkEntries(RTM_GETROUTE, AF_INET,
                          [&](const nlmsghdr& entry) { considerRoute(entry, route); });
  if (!answered) {
    return std::nullopt;
  }
  HostNetwork network;
  for (auto& [index, interface] : interfaces) {
    std::vector<ScopedAddress>& own = addresses[index];
    std::stable_sort(own.begin(), own.end(), [](const ScopedAddress& a, const ScopedAddress& b) {
      return a.scope < b.scope;
    });
    for (ScopedAddress& each : own) {
      interface.addresses.push_back(std::move(each.address));
    }
    if (index == route.interface) {
      network.defaultRouteInterface = interface.name;
      network.defaultRouteSource = route.source;
    }
    network.interfaces.push_back(std::move(interface));
  }
  return network;
}

}  // namespace sorvane
