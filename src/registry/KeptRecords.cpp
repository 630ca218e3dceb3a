#include "registry/KeptRecords.h"

#include "registry/Registry.h"

namespace sorvane {

void KeptRecords::keepRecord(KeptWriter& writer, const PortDescriptor& record) const {
  if (record.holdings().entries > 0) {
    registry_->with([&](const RegistryState& state) {
      writer.number(std::uint64_t{state.map.table().oldestOf(record)} + 1);
    });
    return;
  }
  writer.number(0);
  record.keep(writer);
}

std::shared_ptr<PortDescriptor> RestoredRecords::restoreRecord(KeptReader& reader) {
  return registry_->with([&](RegistryState& state) {
    PortMap& map = state.map;
    if (const std::uint64_t next = reader.number(isClaimed_.size()); next > 0) {
      const auto slot = static_cast<ChangeOrder::Index>(next - 1);
      if (!map.table().changes().contains(slot) || map.inSlot(slot)->holdings().hasLeft != 0 ||
          isClaimed_[slot]) {
        throw KeptFault("what was kept has a connection with a record that cannot be its own");
      }
      isClaimed_[slot] = true;
      return map.inSlot(slot);
    }
    WatchList& watchers = registry_->watchingPortsList();
    auto record = std::make_shared<PortDescriptor>();
    record->restore(reader, {watchers.timesSetDirty(), watchers.timesSetDirty()});
    map.countRestored(*record);
    watchers.addRestored(*record);
    return record;
  });
}

std::vector<std::shared_ptr<PortDescriptor>> RestoredRecords::unclaimed() const {
  std::vector<std::shared_ptr<PortDescriptor>> records;
  registry_->with([&](const RegistryState& state) {
    const ChangeOrder& changes = state.map.table().changes();
    for (auto slot = changes.oldest(); slot != ChangeOrder::kNone; slot = changes.newerThan(slot)) {
      const PortMap::Record& record = state.map.inSlot(slot);
      if (record->holdings().hasLeft == 0 && !isClaimed_[slot]) {
        records.push_back(record);
      }
    }
  });
  return records;
}

}  // namespace sorvane
