// The name servers that Bonjour shows on the network just now.
#pragma once

#include <compare>
#include <cstdint>
#include <set>
#include <string>

#include "discovery/ARendezvousController.h"
#include "platform/Guarded.h"

namespace sorvctl {

/// A name server at one of its addresses.
struct NameServer {
  std::string name;
  std::string address;                                  ///< dotted decimal
  std::uint16_t port = 0;                               ///< in host byte order
  auto operator<=>(const NameServer&) const = default;  // NOLINT(modernize-use-nullptr): no null
};

/// Browses on the run loop of Bonjour from the first `current` to the end of the process.
class NetworkView : private sorvane::ARendezvousDelegate {
 public:
  [[nodiscard]] static NetworkView& current();

  /// What is known by now, in the order of the names. Any thread.
  [[nodiscard]] std::set<NameServer> servers() const;

 private:
  NetworkView();
  void discoveredServicesDidChange(sorvane::ARendezvousController& sender) override;

  sorvane::Guarded<std::set<NameServer>> servers_;
};

}  // namespace sorvctl
