// The data of the registry that connections share.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>

#include "registry/HostLists.h"
#include "registry/PortDescriptor.h"

namespace sorvane {

/// Hash and equality that take a view, so that looking a name up makes no string.
struct NameHash {
  using is_transparent = void;
  std::size_t operator()(std::string_view name) const {
    return std::hash<std::string_view>{}(name);
  }
};

/// Port name, compared byte by byte, to record. One record may be there under two names.
using PortMap =
    std::unordered_map<std::string, std::shared_ptr<PortDescriptor>, NameHash, std::equal_to<>>;

/// Plain data; `Registry` holds it together with the lock that guards it.
struct RegistryState {
  PortMap map;
  HostLists hosts;
  std::int64_t maxport = 0;             ///< the next port number to hand out; 0 before the first
  double timestampFlag = 0.0;           ///< last change, seconds since the reference date
  std::int32_t forceRefreshNumber = 0;  ///< 0, then 1 to 10000 and round again
  std::uint64_t stateVersion = 0;       ///< counts how often the state list was dropped
  std::shared_ptr<const std::string> databaseStateString;  ///< the state list; null: rebuild
  std::shared_ptr<const std::string> databaseAlertString;  ///< the alert list; null: rebuild
};

}  // namespace sorvane
