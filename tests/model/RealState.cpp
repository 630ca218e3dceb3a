#include "model/RealState.h"

#include <memory>

namespace sorvane::model {
namespace {

std::optional<std::string> ownText(std::optional<std::string_view> text) {
  return text ? std::optional<std::string>(*text) : std::nullopt;
}

std::optional<List> cachedList(const std::shared_ptr<const std::string>& list) {
  return list == nullptr ? std::nullopt : std::optional(sortedList(*list));
}

}  // namespace

Record recordOf(const PortDescriptor& record) {
  return {.key = ownText(record.portKey()),
          .name = ownText(record.portName()),
          .address = ownText(record.portHostAddress()),
          .host = ownText(record.portHost()),
          .number = ownText(record.portNumber()),
          .type = ownText(record.portType()),
          .status = ownText(record.portStatus()),
          .alert = ownText(record.alertAsSet()),
          .alertTime = record.alertStatusTimestamp(),
          .isDirty = record.isDirty(),
          .watches = record.timesOnWatchList(),
          .isConnected = record.holdings().hasLeft == 0};
}

State stateOf(Registry& registry, const std::set<std::string>& names,
              const std::map<const PortDescriptor*, int>& numbers,
              const std::vector<const PortDescriptor*>& open) {
  State real;
  for (const PortDescriptor* const record : open) {
    real.records[numbers.at(record)] = recordOf(*record);
  }
  registry.with([&](const RegistryState& state) {
    for (const std::string& name : names) {
      if (const PortMap::Record* const found = state.map.find(name)) {
        const int number = numbers.at(found->get());
        real.ports[name] = number;
        real.records.try_emplace(number, recordOf(**found));
      }
    }
    real.nextNumber = state.maxport;
    real.lastChange = state.timestampFlag;
    real.refreshNumber = state.forceRefreshNumber;
    real.hosts = state.hosts.hostList;
    real.alternateHosts = state.hosts.alternateHostList;
    real.lastHost = state.hosts.hostNameString;
    real.cachedStates = cachedList(state.databaseStateString);
    real.cachedAlerts = cachedList(state.databaseAlertString);
  });
  return real;
}

}  // namespace sorvane::model
