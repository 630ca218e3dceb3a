#include "registry/StateSummary.h"

#include <string_view>
#include <utility>

#include "platform/NSException.h"

namespace sorvane {
namespace {

struct Lengths {
  std::uint64_t states = 0;
  std::uint64_t alerts = 0;  // what they are at most
};

Lengths lengthsOf(Registry& registry) {
  return registry.with([](const RegistryState& state) {
    return Lengths{state.map.stateListBytes(), state.map.alertListBytes()};
  });
}

Lengths requireShorterThan(std::uint64_t mostBytes, Registry& registry) {
  Lengths lengths = lengthsOf(registry);
  if (lengths.states <= mostBytes && lengths.states + lengths.alerts > mostBytes) {
    // Alerts that have lapsed are counted until they are read.
    registry.forEachPort([](PortMap& map, PortDescriptor& record) { (void)map.alertOf(record); });
    lengths = lengthsOf(registry);
  }
  if (lengths.states + lengths.alerts > mostBytes) {
    throw NSException("the lists of states and alerts are too long");
  }
  return lengths;
}

void appendEntry(std::string& list, std::string_view name, std::string_view text) {
  if (!list.empty()) {
    list += '|';
  }
  list.append(name).append(1, ':').append(text);
}

}  // namespace

StateSummary StateSummary::current(Registry& registry, std::uint64_t mostBytes) {
  StateSummary cached = registry.with([](const RegistryState& state) {
    return StateSummary{state.databaseStateString, state.databaseAlertString};
  });
  if (cached.states != nullptr && cached.alerts != nullptr) {
    return cached;
  }
  const Lengths lengths = requireShorterThan(mostBytes, registry);
  const std::uint64_t version = registry.with([](RegistryState& state) {
    state.databaseStateString = nullptr;
    state.databaseAlertString = nullptr;
    return state.stateVersion;
  });
  cached = {};

  std::string states;
  std::string alerts;
  states.reserve(lengths.states);
  alerts.reserve(lengths.alerts);
  registry.forEachPort([&](PortMap& map, PortDescriptor& record) {
    const std::string_view name = PortMap::listedName(record);
    if (!PortMap::isListed(name)) {
      return;
    }
    appendEntry(states, name, PortMap::listedState(record));
    if (const auto alert = map.alertOf(record)) {
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

bool StateSummary::mustBuildMoreThan(const Work& work, Registry& registry) {
  return registry.with([&](const RegistryState& state) {
    const PortMap& map = state.map;
    const bool isCached =
        state.databaseStateString != nullptr && state.databaseAlertString != nullptr;
    return !isCached && (map.size() > work.ports || map.slotCount() > work.slots ||
                         map.stateListBytes() + map.alertListBytes() > work.bytes);
  });
}

}  // namespace sorvane
