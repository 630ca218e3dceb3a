#include "platform/host/HostNetwork.h"

#include <algorithm>

#include "platform/Ascii.h"

namespace sorvane {
namespace {

const NetworkInterface* defaultRouteInterface(const HostNetwork& network) {
  const auto found = std::find_if(
      network.interfaces.begin(), network.interfaces.end(),
      [&](const NetworkInterface& each) { return each.name == network.defaultRouteInterface; });
  return found != network.interfaces.end() ? &*found : nullptr;
}

const NetworkInterface* interfaceOfAddress(const HostNetwork& network, const std::string& address) {
  for (const NetworkInterface& interface : network.interfaces) {
    for (const InterfaceAddress& each : interface.addresses) {
      if (each.address == address) {
        return &interface;
      }
    }
  }
  return nullptr;
}

}  // namespace

InterfaceAddress addressOfHost(const HostNetwork& network) {
  const NetworkInterface* route = defaultRouteInterface(network);
  if (route != nullptr && !route->addresses.empty()) {
    for (const InterfaceAddress& each : route->addresses) {
      if (each.address == network.defaultRouteSource) {
        return each;
      }
    }
    return route->addresses.front();
  }
  for (const NetworkInterface& interface : network.interfaces) {
    if (interface.up && !interface.loopback && !interface.addresses.empty()) {
      return interface.addresses.front();
    }
  }
  return {kLoopbackAddress, false};
}

std::string ethernetAddressOfHost(const HostNetwork& network, const std::string& address) {
  for (const NetworkInterface* interface :
       {interfaceOfAddress(network, address), defaultRouteInterface(network)}) {
    if (interface != nullptr && !interface->ethernetAddress.empty()) {
      return interface->ethernetAddress;
    }
  }
  for (const NetworkInterface& interface : network.interfaces) {
    if (!interface.ethernetAddress.empty()) {
      return interface.ethernetAddress;
    }
  }
  return kNoEthernetAddress;
}

std::string formatEthernetAddress(const unsigned char* bytes, std::size_t length) {
  constexpr std::size_t kBytes = 6;
  if (length != kBytes ||
      std::all_of(bytes, bytes + length, [](unsigned char byte) { return byte == 0; })) {
    return "";
  }
  std::string result;
  for (std::size_t i = 0; i < length; ++i) {
    if (i > 0) {
      result += ':';
    }
    appendHex(result, bytes[i]);
  }
  return result;
}

}  // namespace sorvane
