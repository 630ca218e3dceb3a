#include "registry/ConnectionEnd.h"

namespace sorvane {
namespace {

void removePort(Registry& registry, const PortDescriptor& record) {
  if (record.portKey() && record.portName()) {
    registry.removePort(*record.portName());
  }
}

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

std::optional<std::string> endConnection(Registry& registry, PortDescriptor* record) {
  if (record != nullptr) {
    registry.watchingPortsList().remove(*record);
  }
  registry.stampTime();
  std::optional<std::string> removedHost;
  if (record != nullptr) {
    removePort(registry, *record);
    removedHost = removeLauncherHost(registry, *record);
  }
  registry.setWatchToDirty();
  return removedHost;
}

}  // namespace sorvane
