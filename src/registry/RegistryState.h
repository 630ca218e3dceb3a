// The data of the registry that connections share.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "registry/HostLists.h"
#include "registry/Journal.h"
#include "registry/PortMap.h"

namespace sorvane {

/// Plain data. `Registry` holds it together with the lock that guards it.
struct RegistryState {
  explicit RegistryState(const RegistryLimits& limits) : map(limits) {}

  /// Changes the lists of hosts by `change(HostLists&)`.
  template <typename Change>
  void changeHosts(Change&& change) {
    if (map.journal() == nullptr) {
      change(hosts);
      return;
    }
    const HostLists before = hosts;
    change(hosts);
    if (hosts != before) {
      map.journal()->hostsChanged(hosts);
    }
  }
  void setNextPortNumber(std::int64_t number) {
    maxport = number;
    if (map.journal() != nullptr) {
      map.journal()->setNextPortNumber(number);
    }
  }

  void keep(KeptWriter& writer, KeptPart part = KeptPart::all) const;
  /// Makes this, which is new, what was kept. Raises NSException, most often KeptFault, and then is
  /// of no use.
  void restore(KeptReader& reader, const SipKey& key, const PortDescriptor::Watched& list);

  /// Returns false when a number or a time is none that can be.
  [[nodiscard]] bool hasPossibleNumbers() const;

  PortMap map;
  HostLists hosts;
  std::int64_t maxport = 0;             ///< the next port number to hand out; 0 before the first
  double timestampFlag = 0.0;           ///< last change, seconds since the reference date
  std::int32_t forceRefreshNumber = 0;  ///< 0, then 1 to 10000 and round again
  std::uint64_t stateVersion = 0;       ///< counts how often the state list was dropped
  std::shared_ptr<const std::string> databaseStateString;  ///< cached state list; null: rebuild it
  std::shared_ptr<const std::string> databaseAlertString;  ///< cached alert list; null: rebuild it
};

}  // namespace sorvane
