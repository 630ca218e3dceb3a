#include "platform/bonjour/avahi/AvahiBrowser.h"

#include <avahi-common/error.h>

#include "platform/bonjour/avahi/AvahiErrors.h"

namespace sorvane {

AvahiBrowser::~AvahiBrowser() {
  setDelegate(nullptr);
  end();
}

void AvahiBrowser::searchForServicesOfType(const std::string& type, const std::string& domain) {
  end();
  searching_ = true;
  type_ = type;
  domain_ = domain;
  link_.runLoop().perform(calls_.cancellable([this] {
    if (delegate() != nullptr) {
      delegate()->netServiceBrowserWillSearch(*this);
    }
  }));
  link_.join(*this);
}

void AvahiBrowser::stop() {
  if (!searching_) {
    return;
  }
  end();
  link_.runLoop().perform(calls_.cancellable([this] {
    if (delegate() != nullptr) {
      delegate()->netServiceBrowserDidStopSearch(*this);
    }
  }));
}

void AvahiBrowser::end() {
  calls_.cancelAll();
  if (searching_) {
    searching_ = false;
    link_.leave(*this);
  }
  loseAll();
  services_.clear();
}

void AvahiBrowser::loseAll() {
  for (const auto& [key, service] : services_) {
    service->lose();
  }
  if (browser_ != nullptr) {
    avahi_service_browser_free(browser_);
    browser_ = nullptr;
  }
  client_ = nullptr;
}

void AvahiBrowser::avahiIsRunning(AvahiClient& client) {
  if (browser_ != nullptr) {
    return;
  }
  client_ = &client;
  browser_ = avahi_service_browser_new(&client, AVAHI_IF_UNSPEC, AVAHI_PROTO_UNSPEC, type_.c_str(),
                                       domain_.empty() ? nullptr : domain_.c_str(),
                                       AvahiLookupFlags{}, &AvahiBrowser::browserReports, this);
  if (browser_ == nullptr) {
    failed(avahi_client_errno(&client));
  } else {
    link_.worked();
  }
}

void AvahiBrowser::avahiIsGone() {
  loseAll();
  for (const auto& [key, service] : std::exchange(services_, {})) {
    tell(&NetServiceBrowserDelegate::netServiceBrowserDidRemoveService, service);
  }
}

void AvahiBrowser::browserReports(AvahiServiceBrowser*, AvahiIfIndex interface,
                                  AvahiProtocol protocol, AvahiBrowserEvent event, const char* name,
                                  const char*, const char* domain, AvahiLookupResultFlags,
                                  void* self) {
  auto& browser = *static_cast<AvahiBrowser*>(self);
  switch (event) {
    case AVAHI_BROWSER_NEW:
      browser.found(name, domain, {interface, protocol});
      break;
    case AVAHI_BROWSER_REMOVE:
      browser.removed(name, domain, {interface, protocol});
      break;
    case AVAHI_BROWSER_FAILURE:
      browser.failed(avahi_client_errno(browser.client_));
      break;
    case AVAHI_BROWSER_CACHE_EXHAUSTED:
    case AVAHI_BROWSER_ALL_FOR_NOW:
      break;
  }
}

void AvahiBrowser::found(const std::string& name, const std::string& domain,
                         const AvahiPlace& place) {
  std::shared_ptr<AvahiFoundService>& service = services_[{name, domain}];
  if (service != nullptr) {
    service->foundAt(place);
    return;
  }
  service = std::make_shared<AvahiFoundService>(link_, *client_, domain, type_, name);
  service->foundAt(place);
  tell(&NetServiceBrowserDelegate::netServiceBrowserDidFindService, service);
}

void AvahiBrowser::removed(const std::string& name, const std::string& domain,
                           const AvahiPlace& place) {
  const auto entry = services_.find({name, domain});
  if (entry == services_.end()) {
    return;
  }
  const std::shared_ptr<AvahiFoundService> service = entry->second;
  service->goneFrom(place);
  if (!service->isAnywhere()) {
    services_.erase(entry);
    service->lose();
    tell(&NetServiceBrowserDelegate::netServiceBrowserDidRemoveService, service);
  }
}

void AvahiBrowser::tell(void (NetServiceBrowserDelegate::*report)(
                            NetServiceBrowser&, const std::shared_ptr<NetService>&, bool),
                        const std::shared_ptr<NetService>& service) {
  link_.runLoop().perform(calls_.cancellable([this, report, service] {
    if (delegate() != nullptr) {
      (delegate()->*report)(*this, service, false);
    }
  }));
}

void AvahiBrowser::failed(int error) {
  if (!isFaultOfArguments(error)) {
    link_.failed();
    return;
  }
  link_.runLoop().perform(calls_.cancellable([this, reason = std::string(avahi_strerror(error))] {
    end();
    if (delegate() != nullptr) {
      delegate()->netServiceBrowserDidNotSearch(*this, reason);
    }
  }));
}

}  // namespace sorvane
