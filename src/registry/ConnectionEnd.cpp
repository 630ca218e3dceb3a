#include "registry/ConnectionEnd.h"

namespace sorvane {
namespace {

std::optional<std::string> removeLauncherHost(Registry& registry, const PortDescriptor& record) {
  if (record.portName() != "sorvexec") {
    return std::nullopt;
  }
  std::string host =
      joinedKey(record.portHost().value_or(""), record.portHostAddress().value_or(""));
  const bool wasListed =
      registry.with([&](RegistryState& state) { return state.hosts.remove(host); });
  return wasListed ? std::optional(std::move(host)) : std::nullopt;
}

}  // namespace

ConnectionEnd endConnection(Registry& registry, PortDescriptor* record) {
  if (record != nullptr) {
    registry.watchingPortsList().remove(*record);
  }
  registry.stampTime();
  ConnectionEnd end;
  if (record != nullptr) {
    registry.endPort(*record);
    end.removedHost = removeLauncherHost(registry, *record);
  }
  end.droppedPorts = registry.takeDroppedPorts();
  registry.setWatchToDirty();
  return end;
}

}  // namespace sorvane
