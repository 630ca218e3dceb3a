#include "discovery/ARendezvousController.h"

#include <algorithm>
#include <utility>

#include "platform/Console.h"
#include "platform/SocketAddress.h"

namespace sorvane {
namespace {

// The empty text means the default domains.
constexpr const char* kDefaultDomains = "";

}  // namespace

ARendezvousController::ARendezvousController(std::string name, std::string type, std::int32_t port,
                                             ServiceDiscovery& discovery)
    : discovery_(discovery), serviceType_(std::move(type)), portNumber_(port) {
  setName(std::move(name));
  createBrowser();
}

ARendezvousController::~ARendezvousController() {
  activatePublishing(false);
  if (service_ != nullptr) {
    service_->setDelegate(nullptr);
  }
  for (const std::shared_ptr<NetService>& service : stoppedServices_) {
    service->setDelegate(nullptr);
  }
  forgetServices();
  serviceBrowser_->stop();
  serviceBrowser_->setDelegate(nullptr);
}

void ARendezvousController::setDelegate(ARendezvousDelegate* delegate) {
  if (delegate == nullptr) {
    consoleLine("Delegate does not respond to 'discoveredServicesDidChange:'!");
  }
  delegate_ = delegate;
}

bool ARendezvousController::setName(std::string name) {
  if (publishing_) {
    consoleLine("Cannot change name while service is published!");
    return false;
  }
  serviceName_ = std::move(name);
  return true;
}

void ARendezvousController::activatePublishing(bool flag) {
  if (flag == publishing_) {
    return;
  }
  if (flag) {
    createService();
  } else {
    service_->stop();
    stoppedServices_.push_back(std::exchange(service_, nullptr));
  }
  publishing_ = flag;
}

void ARendezvousController::createService() {
  if (service_ != nullptr) {
    return;
  }
  service_ = discovery_.makeService(kDefaultDomains, serviceType_, serviceName_, portNumber_);
  service_->setDelegate(this);
  service_->publish();
}

void ARendezvousController::createBrowser() {
  if (serviceBrowser_ == nullptr) {
    serviceBrowser_ = discovery_.makeBrowser();
    serviceBrowser_->setDelegate(this);
  }
}

void ARendezvousController::createSocket() {
  if (socketPort_ != nullptr) {
    return;
  }
  do {
    socketPort_ = discovery_.makeSocketPort(static_cast<std::uint16_t>(portNumber_));
    ++portNumber_;
  } while (socketPort_ == nullptr);
  --portNumber_;
}

void ARendezvousController::search() {
  serviceBrowser_->searchForServicesOfType(serviceType_, kDefaultDomains);
}

void ARendezvousController::activateBrowsing(bool flag) {
  if (flag == browsing_) {
    return;
  }
  browsing_ = flag;
  if (flag) {
    search();
    return;
  }
  serviceBrowser_->stop();
  forgetServices();
  tellDelegate();
}

void ARendezvousController::startBrowsing() {
  if (browsing_) {
    consoleLine("Browing already started!");  // spelled so on purpose
    return;
  }
  browsing_ = true;
  search();
}

void ARendezvousController::refreshBrowsing() {
  if (!browsing_) {
    return;
  }
  activateBrowsing(false);
  discovery_.runLoop().perform(laterCalls_.cancellable([this] { startBrowsing(); }));
}

void ARendezvousController::forgetServices() {
  leaveFoundServices([](const NetService&) { return true; });
  discoveredServicesWithInfo_.clear();
}

template <typename IsGone>
void ARendezvousController::leaveFoundServices(IsGone isGone) {
  std::erase_if(foundServices_, [&](const std::shared_ptr<NetService>& service) {
    if (!isGone(*service)) {
      return false;
    }
    if (service->delegate() == this) {
      service->setDelegate(nullptr);
    }
    return true;
  });
}

void ARendezvousController::tellDelegate() {
  if (delegate_ != nullptr) {
    delegate_->discoveredServicesDidChange(*this);
  }
}

void ARendezvousController::netServiceDidNotPublish(NetService&, std::string_view) {
  publishing_ = false;
  tellDelegate();
}

void ARendezvousController::netServiceBrowserDidFindService(
    NetServiceBrowser&, const std::shared_ptr<NetService>& service, bool) {
  if (!browsing_) {
    return;
  }
  foundServices_.push_back(service);
  service->setDelegate(this);
  service->resolve();
}

void ARendezvousController::netServiceBrowserDidRemoveService(
    NetServiceBrowser&, const std::shared_ptr<NetService>& service, bool) {
  leaveFoundServices([&](const NetService& found) { return found.isEqual(*service); });
  removeInfoService(*service);
  tellDelegate();
}

void ARendezvousController::netServiceBrowserDidStopSearch(NetServiceBrowser& browser) {
  if (&browser == serviceBrowser_.get()) {
    forgetServices();
    tellDelegate();
  }
}

void ARendezvousController::netServiceBrowserDidNotSearch(NetServiceBrowser&, std::string_view) {
  consoleLine("Unable to search.");
}

void ARendezvousController::netServiceDidResolveAddress(
    const std::shared_ptr<NetService>& service) {
  // On purpose every address is read as an IPv4 address, whatever its family.
  for (const std::string& bytes : service->addresses()) {
    if (service->delegate() != this) {
      return;  // the delegate of this object has switched browsing off
    }
    const Ipv4SocketAddress address = readAsIpv4SocketAddress(bytes);
    if (address.dottedAddress == "127.0.0.1") {
      continue;
    }
    if (addInfoService(service, service->name(), address.dottedAddress, address.rawPort)) {
      tellDelegate();
    }
  }
}

// ---- The list of discovered services

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
