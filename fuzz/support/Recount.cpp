#include "support/Recount.h"

#include <algorithm>
#include <map>

#include "registry/HeapBytes.h"
#include "support/Require.h"

namespace sorvane::fuzz {
namespace {

struct Counted {
  std::size_t entries = 0;
  std::size_t nameBytes = 0;
};

std::size_t bytesOfList(std::size_t entryBytes) { return entryBytes == 0 ? 0 : entryBytes - 1; }

void requireFit(const PortMap& map, const RegistryLimits& limits,
                const std::set<std::string>& names,
                const std::vector<const PortDescriptor*>& open) {
  std::map<const PortDescriptor*, Counted> records;
  for (const PortDescriptor* record : open) {
    records[record];
  }
  std::size_t entries = 0;
  std::size_t stateBytes = 0;
  std::size_t alertBytes = 0;
  for (const std::string& name : names) {
    const PortMap::Record* const found = map.find(name);
    if (found == nullptr) {
      continue;
    }
    ++entries;
    const PortDescriptor& record = **found;
    Counted& counted = records[&record];
    ++counted.entries;
    counted.nameBytes += name.size() <= std::string().capacity() ? 0 : heapBytes(name.size() + 1);
    const std::string listed(record.portName().value_or(""));
    if (listed != "sorvexec" && listed != "VN_nameserver" && listed != "VN_infoserver") {
      stateBytes += listed.size() + 2 + record.portStatus().value_or("running").size();
      alertBytes += record.alertAsSet() ? listed.size() + 2 + record.alertAsSet()->size() : 0;
    }
  }
  require(map.size() == entries, "the map has the names that were registered");
  require(map.stateListBytes() == bytesOfList(stateBytes), "the length of the state list");
  require(map.alertListBytes() == bytesOfList(alertBytes), "the length of the alert list");

  std::size_t all = map.slotCount() * PortTable::kSlotBytes;
  std::size_t leftBehind = 0;
  for (const auto& [record, counted] : records) {
    const std::size_t texts = record->registrationBytes() + record->stateBytes();
    const std::size_t held =
        texts + counted.nameBytes + 2 * PortTable::kSlotBytes * counted.entries;
    require(record->holdings().entries == counted.entries, "the entries of a record");
    require(record->holdings().nameBytes == counted.nameBytes, "the names of a record");
    require(PortMap::bytesOf(*record) == held, "what a connection holds");
    require(held <= limits.connection, "the bound of a connection");
    all += texts + counted.nameBytes;
    const bool isOpen = std::find(open.begin(), open.end(), record) != open.end();
    leftBehind += isOpen ? 0 : held;
  }
  require(map.bytes() == all, "what everything costs");
  require(all <= limits.all, "the bound of everything");
  require(map.leftBehindBytes() == leftBehind, "what was left behind");
  require(leftBehind <= limits.leftBehind, "the bound of what was left behind");
}

}  // namespace

void requireSumsFit(Registry& registry, const RegistryLimits& limits,
                    const std::set<std::string>& names,
                    const std::vector<const PortDescriptor*>& open) {
  registry.with([&](const RegistryState& state) { requireFit(state.map, limits, names, open); });
}

}  // namespace sorvane::fuzz
