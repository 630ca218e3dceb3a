// A service that a browser has found through the Avahi daemon.
#pragma once

#include <avahi-client/lookup.h>

#include <chrono>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "platform/NetService.h"
#include "platform/bonjour/avahi/AvahiLink.h"

namespace sorvane {

/// Where a service was found: a network interface and an address family (`AvahiProtocol`). One
/// service is often found in several places.
using AvahiPlace = std::pair<AvahiIfIndex, AvahiProtocol>;

/// Belongs to the browser that found it, which tells it the places where it is found. Others may
/// keep it after the browser has lost it, but then it resolves no more.
///
/// In each place a resolver finds the service's host, its port and one address. All addresses of
/// the host in that place come from a search for its address records.
class AvahiFoundService : public NetService,
                          public std::enable_shared_from_this<AvahiFoundService> {
 public:
  /// How long to wait before a failed resolution is tried again.
  static constexpr std::chrono::seconds kRetry{5};

  AvahiFoundService(AvahiLink& link, AvahiClient& client, const std::string& domain,
                    const std::string& type, const std::string& name)
      : NetService(domain, type, name), link_(link), client_(&client) {}
  ~AvahiFoundService() override { lose(); }

  /// Reports that the service cannot be published, because it is somebody else's.
  void publish() override;
  void resolve() override;
  void stop() override;
  [[nodiscard]] std::vector<std::string> addresses() const override;

  void foundAt(const AvahiPlace& place);
  void goneFrom(const AvahiPlace& place);
  [[nodiscard]] bool isAnywhere() const { return !places_.empty(); }
  /// Called when the browser has lost the service. Frees everything that it has in the daemon. The
  /// service stays lost.
  void lose();

 private:
  struct Resolution {
    AvahiFoundService* service = nullptr;
    AvahiPlace place;
    AvahiServiceResolver* resolver = nullptr;  // null while not resolving
    AvahiRecordBrowser* records = nullptr;     // the address records of `host`; null without it
    std::string host;                          // empty until known
    std::uint16_t port = 0;
    std::set<std::string> addresses;  // numeric
  };

  void start(Resolution& resolution);
  static void end(Resolution& resolution);
  static void endRecords(Resolution& resolution);
  void resolved(Resolution& resolution, const std::string& host, const AvahiAddress& address,
                std::uint16_t port);
  void searchRecords(Resolution& resolution);
  void retry(const AvahiPlace& place);
  void tellAddresses();
  static void resolverReports(AvahiServiceResolver* resolver, AvahiIfIndex interface,
                              AvahiProtocol protocol, AvahiResolverEvent event, const char* name,
                              const char* type, const char* domain, const char* hostName,
                              const AvahiAddress* address, std::uint16_t port,
                              AvahiStringList* texts, AvahiLookupResultFlags flags,
                              void* resolution);
  static void recordsReport(AvahiRecordBrowser* records, AvahiIfIndex interface,
                            AvahiProtocol protocol, AvahiBrowserEvent event, const char* name,
                            std::uint16_t recordClass, std::uint16_t type, const void* data,
                            std::size_t bytes, AvahiLookupResultFlags flags, void* resolution);

  AvahiLink& link_;
  AvahiClient* client_;  // null once lost
  bool resolving_ = false;
  std::map<AvahiPlace, Resolution> places_;
  CancellableCalls calls_;
};

}  // namespace sorvane
