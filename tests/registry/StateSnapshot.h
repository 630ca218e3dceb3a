// The whole state of a registry and of some records, as text that can be compared.
#pragma once

#include <sstream>
#include <string>
#include <vector>

#include "registry/Registry.h"

namespace sorvane::test {

inline std::string shown(const std::optional<std::string_view>& text) {
  return text ? '"' + std::string(*text) + '"' : "nil";
}

inline std::string shown(const std::shared_ptr<const std::string>& list) {
  return list == nullptr ? "null" : shown(std::string_view(*list));
}

inline std::string shown(const std::optional<HostLists::List>& list) {
  if (!list) {
    return "nil";
  }
  std::string text;
  for (const std::string& element : *list) {
    text += element + ",";
  }
  return "[" + text + "]";
}

/// Every field of a record, and what its connection holds. Does not read the alert through the
/// getter that may drop it.
inline std::string shown(const PortDescriptor& record) {
  std::ostringstream text;
  for (const auto& field :
       {record.portKey(), record.portName(), record.portHostAddress(), record.portHost(),
        record.portNumber(), record.portType(), record.portStatus()}) {
    text << shown(field) << " ";
  }
  text << shown(record.alertAsSet()) << " " << record.alertStatusTimestamp() << " holds "
       << PortMap::bytesOf(record) << " dirty " << record.isDirty() << " watches "
       << record.timesOnWatchList();
  if (record.info() != nullptr) {
    text << " info";
    for (const auto& [key, value] : *record.info()) {
      text << " " << key << "=" << value;
    }
  }
  return text.str();
}

/// The state of the registry and of the records, those that it does not hold among them. The list
/// of names makes no statement about the order of the map.
inline std::string snapshot(Registry& registry, const std::vector<std::string>& names,
                            const std::vector<const PortDescriptor*>& records) {
  std::ostringstream text;
  registry.with([&](const RegistryState& state) {
    // A member that is added to the state and left out here does not compile.
    const auto& [map, hosts, maxport, timestampFlag, forceRefreshNumber, stateVersion,
                 databaseStateString, databaseAlertString] = state;
    text << "map of " << map.size() << ", bytes " << map.bytes() << ", left behind "
         << map.leftBehindBytes() << ", lists " << map.stateListBytes() << " "
         << map.alertListBytes() << ":";
    for (const std::string& name : names) {
      const PortMap::Record* const found = map.find(name);
      text << " " << name << " -> " << (found == nullptr ? nullptr : found->get());
    }
    const auto& [hostList, alternateHostList, hostNameString] = hosts;
    text << "\nhosts " << shown(hostList) << shown(alternateHostList) << shown(hostNameString)
         << "\nmaxport " << maxport << " stamp " << timestampFlag << " refresh "
         << forceRefreshNumber << " version " << stateVersion << "\nlists "
         << shown(databaseStateString) << " " << shown(databaseAlertString) << "\n";
  });
  text << "watchers " << registry.watchingPortsList().count() << "\n";
  for (const PortDescriptor* record : records) {
    text << record << ": " << shown(*record) << "\n";
  }
  return text.str();
}

}  // namespace sorvane::test
