#include "registry/ConnectionEnd.h"

namespace sorvane {
namespace {

std::optional<std::string> removeLauncherHost(Registry& registry, const PortDescriptor& record) {
  if (record.portName() != "sorvexec") {
    return std::nullopt;
  }
  std::string host =
      joinedKey(record.portHost().value_or(""), record.portHostAddress().value_or(""));
  const bool wasListed = registry.with([&](RegistryState& state) {
    bool isRemoved = false;
    state.changeHosts([&](HostLists& hosts) { isRemoved = hosts.remove(host); });
    return isRemoved;
  });
  return wasListed ? std::optional(std::move(host)) : std::nullopt;
}

}  // namespace

ConnectionEnd endConnection(Registry& registry, PortDescriptor* record, int connection) {
  if (record != nullptr) {
    registry.watchingPortsList().remove(*record);
    registry.keepWatching(connection, *record);
  }
  registry.stampTime();
  ConnectionEnd end;
  if (record != nullptr) {
    registry.endPort(*record, connection);
    end.removedHost = removeLauncherHost(registry, *record);
  }
  end.droppedPorts = registry.takeDroppedPorts();
  registry.setWatchToDirty();
  return end;
}

}  // namespace sorvane
