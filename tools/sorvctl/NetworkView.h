// The name servers that Bonjour finds on the network.
#pragma once

#include <compare>
#include <cstdint>
#include <set>
#include <string>

#include "discovery/ARendezvousController.h"
#include "platform/Guarded.h"

namespace sorvctl {

/// One address of a name server.
struct NameServer {
  std::string name;
  std::string address;                                  ///< dotted decimal
  std::uint16_t port = 0;                               ///< in host byte order
  auto operator<=>(const NameServer&) const = default;  // NOLINT(modernize-use-nullptr): no null
};

/// Browses on Bonjour's run loop. The first call of `current` begins the browsing, which lasts
/// until the process ends.
class NetworkView : private sorvane::ARendezvousDelegate {
 public:
  [[nodiscard]] static NetworkView& current();

  /// The name servers that are known now, ordered by name. May be called from any thread.
  [[nodiscard]] std::set<NameServer> servers() const;

 private:
  NetworkView();
  void discoveredServicesDidChange(sorvane::ARendezvousController& sender) override;

  sorvane::Guarded<std::set<NameServer>> servers_;
};

}  // namespace sorvctl
