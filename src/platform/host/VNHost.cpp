#include "platform/VNHost.h"

#include <mutex>
#include <string_view>

#include "platform/Ascii.h"
#include "platform/Settings.h"
#include "platform/host/HostNetwork.h"

namespace sorvane {
namespace {

std::mutex creationMutex;

std::string_view shortName(std::string_view name) { return name.substr(0, name.find('.')); }

}  // namespace

VNHost& VNHost::makeCurrentHost() {
  const std::lock_guard<std::mutex> hold(creationMutex);
  if (current_.load(std::memory_order_relaxed) == nullptr) {
    current_.store(new VNHost, std::memory_order_release);
  }
  return *current_.load(std::memory_order_relaxed);
}

void VNHost::resetForTest() {
  const std::lock_guard<std::mutex> hold(creationMutex);
  delete current_.exchange(nullptr);
}

VNHost::VNHost() {
  const Settings& settings = Settings::current();
  const std::optional<HostNetwork> network = readHostNetwork();
  const HostNetwork known = network.value_or(HostNetwork{});
  const InterfaceAddress systemAddress = addressOfHost(known);
  if (network) {
    systemAddress_ = systemAddress.address;
  }
  systemName_ = systemHostName();
  localAccessOnly_ = settings.localAccessOnly;
  bonjourDisabled_ = settings.bonjourDisabled;
  name_ = settings.hostName.value_or(systemName_);
  address_ = localAccessOnly_ ? kLoopbackAddress : settings.address.value_or(systemAddress.address);
  ethernetAddress_ =
      settings.ethernetAddress ? *settings.ethernetAddress : ethernetAddressOfHost(known, address_);
  // The system's time limit counts only for the address that the system assigned. An address of
  // which the system does not tell it may have one.
  dynamic_ = settings.dynamicAddress.value_or(systemAddress.hasLifetime.value_or(true) &&
                                              systemAddress.address == address_);
}

bool VNHost::validateCurrentHost() {
  const std::optional<std::string>& then = currentHost().systemAddress_;
  const std::optional<HostNetwork> now = readHostNetwork();
  // If the system cannot be asked, the address counts as unchanged.
  return !then || !now || addressOfHost(*now).address == *then;
}

bool VNHost::isThisHost(const std::string& nameOrAddress) const {
  std::string_view given = nameOrAddress;
  if (given.ends_with('.')) {
    given.remove_suffix(1);  // the dot of the root domain
  }
  if (given.empty()) {
    return false;
  }
  for (const std::string_view own : {std::string_view(name_), std::string_view(systemName_)}) {
    if (equalIgnoringCase(given, own) || equalIgnoringCase(given, shortName(own))) {
      return true;
    }
  }
  return equalIgnoringCase(given, "localhost") || given == address_ ||
         isAddressOfThisHost(nameOrAddress);
}

}  // namespace sorvane
