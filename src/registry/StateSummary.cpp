#include "registry/StateSummary.h"

#include <string_view>
#include <utility>

namespace sorvane {
namespace {

constexpr std::size_t kInitialCapacity = 4096;
constexpr std::size_t kRoomForOneEntry = 24;

bool isListed(std::string_view name) {
  return name != "sorvexec" && name != "VN_nameserver" && name != "VN_infoserver";
}

void appendEntry(std::string& list, std::string_view name, std::string_view text) {
  if (!list.empty()) {
    list += '|';
  }
  list.append(name).append(1, ':').append(text);
}

}  // namespace

StateSummary StateSummary::current(Registry& registry) {
  StateSummary cached;
  std::uint64_t version = 0;
  std::size_t ports = 0;
  const bool bothCached = registry.with([&](RegistryState& state) {
    cached = {state.databaseStateString, state.databaseAlertString};
    if (cached.states != nullptr && cached.alerts != nullptr) {
      return true;
    }
    state.databaseStateString = nullptr;
    state.databaseAlertString = nullptr;
    version = state.stateVersion;
    ports = state.map.size();
    return false;
  });
  if (bothCached) {
    return cached;
  }

  std::string states;
  std::string alerts;
  states.reserve(kInitialCapacity + ports * kRoomForOneEntry);
  alerts.reserve(kInitialCapacity);
  registry.forEachPort([&](PortDescriptor& record) {
    const std::string_view name = record.portName().value_or("");
    if (!isListed(name)) {
      return;
    }
    appendEntry(states, name, record.portStatus().value_or("running"));
    if (const auto alert = record.alertStatus()) {
      appendEntry(alerts, name, *alert);
    }
  });
  StateSummary built = {std::make_shared<const std::string>(std::move(states)),
                        std::make_shared<const std::string>(std::move(alerts))};
  built.cache(registry, version);
  return built;
}

void StateSummary::cache(Registry& registry, std::uint64_t version) const {
  registry.with([&](RegistryState& state) {
    if (state.stateVersion == version) {
      state.databaseStateString = states;
    }
    state.databaseAlertString = alerts;
  });
}

bool StateSummary::mustBuildFromMoreThan(std::size_t ports, std::size_t slots, Registry& registry) {
  return registry.with([&](const RegistryState& state) {
    return (state.map.size() > ports || state.map.slotCount() > slots) &&
           (state.databaseStateString == nullptr || state.databaseAlertString == nullptr);
  });
}

}  // namespace sorvane
