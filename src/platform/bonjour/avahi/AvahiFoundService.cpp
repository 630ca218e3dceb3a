#include "platform/bonjour/avahi/AvahiFoundService.h"

#include <avahi-common/address.h>
#include <avahi-common/defs.h>

#include <cstring>

#include "platform/SocketAddress.h"

namespace sorvane {
namespace {

std::string textOf(const AvahiAddress& address) {
  char text[AVAHI_ADDRESS_STR_MAX] = "";
  avahi_address_snprint(text, sizeof text, &address);
  return text;
}

}  // namespace

void AvahiFoundService::publish() {
  link_.runLoop().perform(calls_.cancellable([this] {
    if (delegate() != nullptr) {
      delegate()->netServiceDidNotPublish(*this, "the service is somebody else's");
    }
  }));
}

void AvahiFoundService::resolve() {
  if (resolving_ || client_ == nullptr) {
    return;
  }
  resolving_ = true;
  link_.runLoop().perform(calls_.cancellable([this] {
    if (delegate() != nullptr) {
      delegate()->netServiceWillResolve(*this);
    }
  }));
  for (auto& [place, resolution] : places_) {
    start(resolution);
  }
}

void AvahiFoundService::stop() {
  calls_.cancelAll();
  if (!resolving_) {
    return;
  }
  resolving_ = false;
  for (auto& [place, resolution] : places_) {
    end(resolution);
  }
  link_.runLoop().perform(calls_.cancellable([this] {
    if (delegate() != nullptr) {
      delegate()->netServiceDidStop(*this);
    }
  }));
}

std::vector<std::string> AvahiFoundService::addresses() const {
  std::vector<std::string> known;
  for (const AvahiProtocol protocol : {AVAHI_PROTO_INET, AVAHI_PROTO_INET6}) {
    for (const auto& [place, resolution] : places_) {
      for (const std::string& address : resolution.addresses) {
        if (place.second == protocol) {
          known.push_back(
              socketAddress(address, resolution.port, static_cast<std::uint32_t>(place.first)));
        }
      }
    }
  }
  return known;
}

void AvahiFoundService::foundAt(const AvahiPlace& place) {
  const auto [entry, isNew] = places_.try_emplace(place);
  entry->second.service = this;
  entry->second.place = place;
  if (isNew && resolving_) {
    start(entry->second);
  }
}

void AvahiFoundService::goneFrom(const AvahiPlace& place) {
  const auto entry = places_.find(place);
  if (entry != places_.end()) {
    end(entry->second);
    places_.erase(entry);
  }
}

void AvahiFoundService::lose() {
  calls_.cancelAll();
  resolving_ = false;
  client_ = nullptr;
  for (auto& [place, resolution] : places_) {
    end(resolution);
  }
}

// Asks each place only for addresses of its own family.
void AvahiFoundService::start(Resolution& resolution) {
  const auto& [interface, protocol] = resolution.place;
  resolution.resolver = avahi_service_resolver_new(
      client_, interface, protocol, name().c_str(), type().c_str(), domain().c_str(), protocol,
      AvahiLookupFlags{}, &AvahiFoundService::resolverReports, &resolution);
  if (resolution.resolver == nullptr) {
    retry(resolution.place);
  }
}

void AvahiFoundService::end(Resolution& resolution) {
  if (resolution.resolver != nullptr) {
    avahi_service_resolver_free(resolution.resolver);
    resolution.resolver = nullptr;
  }
  endRecords(resolution);
}

void AvahiFoundService::endRecords(Resolution& resolution) {
  if (resolution.records != nullptr) {
    avahi_record_browser_free(resolution.records);
    resolution.records = nullptr;
  }
}

void AvahiFoundService::retry(const AvahiPlace& place) {
  link_.runLoop().performAfterDelay(kRetry, calls_.cancellable([this, place] {
    const auto entry = places_.find(place);
    if (resolving_ && entry != places_.end()) {
      end(entry->second);
      start(entry->second);
    }
  }));
}

void AvahiFoundService::resolverReports(AvahiServiceResolver*, AvahiIfIndex, AvahiProtocol,
                                        AvahiResolverEvent event, const char*, const char*,
                                        const char*, const char* host, const AvahiAddress* address,
                                        std::uint16_t port, AvahiStringList*,
                                        AvahiLookupResultFlags, void* resolution) {
  auto& reported = *static_cast<Resolution*>(resolution);
  if (event == AVAHI_RESOLVER_FOUND) {
    reported.service->resolved(reported, host, *address, port);
  } else {
    reported.service->retry(reported.place);
  }
}

void AvahiFoundService::resolved(Resolution& resolution, const std::string& host,
                                 const AvahiAddress& address, std::uint16_t port) {
  if (resolution.host != host) {
    endRecords(resolution);
    resolution.addresses.clear();
    resolution.host = host;
  }
  resolution.port = port;
  if (resolution.records == nullptr) {
    searchRecords(resolution);
  }
  resolution.addresses.insert(textOf(address));
  tellAddresses();
}

void AvahiFoundService::searchRecords(Resolution& resolution) {
  const auto& [interface, protocol] = resolution.place;
  resolution.records = avahi_record_browser_new(
      client_, interface, protocol, resolution.host.c_str(), AVAHI_DNS_CLASS_IN,
      protocol == AVAHI_PROTO_INET ? AVAHI_DNS_TYPE_A : AVAHI_DNS_TYPE_AAAA, AvahiLookupFlags{},
      &AvahiFoundService::recordsReport, &resolution);
  if (resolution.records == nullptr) {
    retry(resolution.place);
  }
}

void AvahiFoundService::recordsReport(AvahiRecordBrowser*, AvahiIfIndex, AvahiProtocol,
                                      AvahiBrowserEvent event, const char*, std::uint16_t,
                                      std::uint16_t, const void* data, std::size_t bytes,
                                      AvahiLookupResultFlags, void* resolution) {
  auto& reported = *static_cast<Resolution*>(resolution);
  if (event == AVAHI_BROWSER_FAILURE) {
    reported.service->retry(reported.place);
    return;
  }
  AvahiAddress address{};
  address.proto = reported.place.second;
  if (bytes !=
      (address.proto == AVAHI_PROTO_INET ? sizeof(AvahiIPv4Address) : sizeof(AvahiIPv6Address))) {
    return;
  }
  std::memcpy(&address.data, data, bytes);
  if (event == AVAHI_BROWSER_NEW && reported.addresses.insert(textOf(address)).second) {
    reported.service->tellAddresses();
  } else if (event == AVAHI_BROWSER_REMOVE) {
    reported.addresses.erase(textOf(address));
  }
}

void AvahiFoundService::tellAddresses() {
  link_.runLoop().perform(calls_.cancellable([this] {
    if (delegate() != nullptr) {
      delegate()->netServiceDidResolveAddress(shared_from_this());
    }
  }));
}

}  // namespace sorvane
