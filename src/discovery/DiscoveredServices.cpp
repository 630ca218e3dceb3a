// The list of discovered services of the ARendezvousController.
#include <algorithm>

#include "discovery/ARendezvousController.h"

namespace sorvane {

bool ARendezvousController::addInfoService(const std::shared_ptr<NetService>& service,
                                           const std::string& name, const std::string& ip,
                                           std::int32_t port) {
  const bool known = std::ranges::any_of(discoveredServicesWithInfo_, [&](const auto& record) {
    return record->ip == ip && record->port == port;
  });
  if (known) {
    return false;
  }
  discoveredServicesWithInfo_.push_back(
      std::make_shared<DiscoveredService>(DiscoveredService{ip, port, name, service}));
  return true;
}

void ARendezvousController::removeInfoService(const NetService& service) {
  std::erase_if(discoveredServicesWithInfo_,
                [&](const auto& record) { return record->service->isEqual(service); });
}

const DiscoveredService* ARendezvousController::firstRecordOf(const std::string& name) const {
  const auto found = std::ranges::find_if(discoveredServicesWithInfo_,
                                          [&](const auto& record) { return record->name == name; });
  return found != discoveredServicesWithInfo_.end() ? found->get() : nullptr;
}

std::optional<std::string> ARendezvousController::ipForName(const std::string& name) const {
  const DiscoveredService* const record = firstRecordOf(name);
  return record != nullptr ? std::optional(record->ip) : std::nullopt;
}

std::int32_t ARendezvousController::portForName(const std::string& name) const {
  const DiscoveredService* const record = firstRecordOf(name);
  return record != nullptr ? record->port : 0;
}

}  // namespace sorvane
