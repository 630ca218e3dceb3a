#include "platform/bonjour/avahi/AvahiFoundService.h"

#include <avahi-common/error.h>

#include "platform/SocketAddress.h"

namespace sorvane {

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
      if (place.second == protocol && !resolution.address.empty()) {
        known.push_back(resolution.address);
      }
    }
  }
  return known;
}

void AvahiFoundService::foundAt(const AvahiPlace& place) {
  const auto [entry, isNew] = places_.try_emplace(place, Resolution{this, place, nullptr, ""});
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
                                        const char*, const char*, const AvahiAddress* address,
                                        std::uint16_t port, AvahiStringList*,
                                        AvahiLookupResultFlags, void* resolution) {
  auto& reported = *static_cast<Resolution*>(resolution);
  if (event == AVAHI_RESOLVER_FOUND) {
    reported.service->resolved(reported, *address, port);
  } else {
    reported.service->retry(reported.place);
  }
}

void AvahiFoundService::resolved(Resolution& resolution, const AvahiAddress& address,
                                 std::uint16_t port) {
  char text[AVAHI_ADDRESS_STR_MAX] = "";
  avahi_address_snprint(text, sizeof text, &address);
  resolution.address =
      socketAddress(text, port, static_cast<std::uint32_t>(resolution.place.first));
  link_.runLoop().perform(calls_.cancellable([this] {
    if (delegate() != nullptr) {
      delegate()->netServiceDidResolveAddress(shared_from_this());
    }
  }));
}

}  // namespace sorvane
