#include "sorvctl/NetworkView.h"

#include "platform/SocketAddress.h"

namespace sorvctl {

using sorvane::ARendezvousController;
using sorvane::ServiceDiscovery;

namespace {

constexpr const char* kServiceType = "_sorvane._tcp";

// The address that stands for an IPv6 address. Nobody can connect to it.
constexpr const char* kNoAddress = "0.0.0.0";

}  // namespace

NetworkView& NetworkView::current() {
  // Never destroyed, because the run loop calls it until the process ends.
  static auto* const view = new NetworkView;
  return *view;
}

NetworkView::NetworkView() {
  ServiceDiscovery::current().runLoop().perform([this] {
    auto* const controller = new ARendezvousController("", kServiceType, 0);
    controller->setDelegate(this);
    controller->startBrowsing();
  });
}

std::set<NameServer> NetworkView::servers() const {
  return servers_.with([](const std::set<NameServer>& servers) { return servers; });
}

void NetworkView::discoveredServicesDidChange(ARendezvousController& sender) {
  std::set<NameServer> now;
  for (const auto& record : sender.discoveredServicesWithInfo()) {
    if (record->ip != kNoAddress) {
      now.insert({record->name, record->ip,
                  sorvane::portFromRaw(static_cast<std::uint16_t>(record->port))});
    }
  }
  servers_.with([&now](std::set<NameServer>& servers) { servers = std::move(now); });
}

}  // namespace sorvctl
