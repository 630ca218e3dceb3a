// Reading a journal: Registry::replay. Believes nothing of what it reads.
#include <bit>
#include <cmath>
#include <cstring>
#include <limits>
#include <memory>
#include <optional>
#include <string_view>
#include <utility>

#include "platform/HandOver.h"
#include "registry/Registry.h"
#include "registry/RetiredTexts.h"

namespace sorvane {
namespace {

using journal::Entry;

std::uint64_t wordAt(std::string_view bytes, std::size_t place) {
  std::uint64_t value = 0;
  std::memcpy(&value, bytes.data() + place, sizeof value);
  return value;
}

struct ReplacedTexts {
  ReplacedTexts() = default;
  ReplacedTexts(const ReplacedTexts&) = delete;
  ReplacedTexts& operator=(const ReplacedTexts&) = delete;
  ~ReplacedTexts() { releaseRetiredTexts(); }
};

}  // namespace

/// Reads one journal.
class JournalReader {
 public:
  /// Raises KeptFault when there is none.
  explicit JournalReader(const JournalMemory& memory) : memory_(memory), file_(memory.file()) {
    const std::string_view bytes = file_.bytes();
    if (memory.file() < 0 || !bytes.starts_with(journal::kMark) ||
        bytes.size() < journal::kAtBase ||
        wordAt(bytes, journal::kAtBaseBytes) > bytes.size() - journal::kAtBase) {
      throw KeptFault("there is no journal");
    }
    baseBytes_ = wordAt(bytes, journal::kAtBaseBytes);
  }

  void readBase(const Registry& registry) {
    KeptReader reader(file_.bytes().substr(journal::kAtBase, baseBytes_));
    changes_ = reader.number();
    kept_.emplace(registry.readKept(reader));
    if (!SipKey::setOfThisProcess(kept_->key)) {
      throw KeptFault("what was kept has another key of hashes than this process");
    }
    PortMap& map = kept_->state.map;
    std::vector<bool> isClaimed(map.slotCount());
    for (std::size_t left = reader.count(2); left > 0; --left) {
      ReplayedRecords::Record& record = recordOf(reader);
      if (record != nullptr) {
        throw KeptFault("the journal has a connection twice");
      }
      const std::uint64_t next = reader.number(isClaimed.size());
      if (next == 0) {
        record = std::make_shared<PortDescriptor>();
        record->restore(reader, listOf(registry));
        map.countRestored(*record);
        continue;
      }
      const auto slot = static_cast<ChangeOrder::Index>(next - 1);
      if (!map.table().changes().contains(slot) || map.inSlot(slot)->holdings().hasLeft != 0 ||
          isClaimed[slot]) {
        throw KeptFault("the journal has a connection with a record that cannot be its own");
      }
      isClaimed[slot] = true;
      record = map.inSlot(slot);
    }
    reader.end();
  }

  /// Carries out all entries that are whole.
  void readEntries() {
    const std::string_view bytes = file_.bytes();
    const ReplacedTexts releasedAtTheEnd;
    const std::uint64_t end = wordAt(bytes, journal::kAtEnd);
    std::size_t at = journal::roundedUp(journal::kAtBase + baseBytes_);
    while (at <= bytes.size() && bytes.size() - at >= journal::kEntryHeader) {
      const std::uint64_t length = wordAt(bytes, at);
      if (length == 0 || length > bytes.size() - at - journal::kEntryHeader) {
        break;
      }
      const std::string_view body = bytes.substr(at + journal::kEntryHeader, length);
      if (wordAt(bytes, at + sizeof length) != journal::checkSum(at, body)) {
        break;
      }
      KeptReader reader = KeptReader::ofBody(body);
      kept_->state.map.withoutLimits([&] { carryOut(reader); });
      reader.end();
      at += journal::roundedUp(journal::kEntryHeader + length);
    }
    if (at < end) {
      throw KeptFault("the journal is damaged");
    }
  }

  /// Takes what lies beside the entries.
  void readValues(const Registry& registry) {
    const JournalMemory::Block& block = *memory_.block_;
    RegistryState& state = kept_->state;
    state.maxport = block.nextPortNumber;
    state.timestampFlag = std::bit_cast<double>(block.changeTime.load());
    state.forceRefreshNumber = block.refreshNumber;
    if (!state.hasPossibleNumbers()) {
      throw KeptFault("the journal has numbers that cannot be");
    }
    kept_->timesSetDirty = block.timesSetDirty;
    kept_->dirtyIsDue = false;
    const std::size_t marks = block.marks;
    if (marks > memory_.descriptors()) {
      throw KeptFault("the journal has a connection that cannot be");
    }
    for (std::size_t connection = 0; connection < marks; ++connection) {
      const JournalMemory::Mark& mark = memory_.markOf(connection);
      if (mark.times == 0) {
        continue;
      }
      ReplayedRecords::Record& record = placeOf(connection);
      if (record == nullptr) {
        record = std::make_shared<PortDescriptor>();
      }
      record->restoreWatching({mark.clearedAt, mark.times, mark.isDirty != 0},
                              registry.watchingPortsList().timesSetDirty());
    }
  }

  /// Returns true when watchers may not have been told of all changes.
  [[nodiscard]] bool hasUntoldChanges() const { return memory_.block_->changesTold < changes_; }
  [[nodiscard]] Registry::Kept takeKept() { return std::move(*kept_); }
  [[nodiscard]] std::vector<ReplayedRecords::Record> takeRecords() { return std::move(records_); }

 private:
  static PortDescriptor::Watched listOf(const Registry& registry) {
    return {registry.watchingPortsList().timesSetDirty(), 0};
  }

  [[nodiscard]] ReplayedRecords::Record& placeOf(std::size_t connection) {
    if (connection >= records_.size()) {
      records_.resize(connection + 1);
    }
    return records_[connection];
  }
  [[nodiscard]] ReplayedRecords::Record& recordOf(KeptReader& reader) {
    return placeOf(static_cast<std::size_t>(reader.number(memory_.descriptors() - 1)));
  }
  // The record of a connection, which may do something for the first time.
  [[nodiscard]] const ReplayedRecords::Record& anyRecord(KeptReader& reader) {
    ReplayedRecords::Record& record = recordOf(reader);
    if (record == nullptr) {
      record = std::make_shared<PortDescriptor>();
    }
    return record;
  }

  static PortDescriptor::Registration registration(KeptReader& reader) {
    PortDescriptor::Registration texts;
    auto& [key, name, address, host, number, type] = texts;
    for (auto* const text : {&key, &name, &address, &host, &number, &type}) {
      *text = reader.optionalText();
    }
    return texts;
  }

  void carryOut(KeptReader& reader) {
    RegistryState& state = kept_->state;
    PortMap& map = state.map;
    const auto kind = static_cast<Entry>(reader.number(static_cast<int>(Entry::hosts)));
    changes_ += journal::isTold(kind) ? 1 : 0;
    switch (kind) {
      case Entry::registration: {
        const ReplayedRecords::Record& record = anyRecord(reader);
        (void)map.replaceRegistration(*record, registration(reader));
        return;
      }
      case Entry::entry: {
        const ReplayedRecords::Record& record = anyRecord(reader);
        (void)map.enter(OwnedPortName(reader.text()), record);
        return;
      }
      case Entry::entryWith: {
        const ReplayedRecords::Record& record = anyRecord(reader);
        const PortDescriptor::Registration texts = registration(reader);
        if (!texts.portName) {
          throw KeptFault("the journal enters a record without a name");
        }
        (void)map.enterWith(texts, record);
        return;
      }
      case Entry::end: {
        ReplayedRecords::Record& record = recordOf(reader);
        if (record == nullptr) {
          throw KeptFault("the journal ends a connection that it does not have");
        }
        const auto name = reader.optionalText();
        (void)map.end(*record, name ? std::optional<PortName>(*name) : std::nullopt);
        record.reset();
        return;
      }
      case Entry::removal:
        if (map.remove(PortName(reader.text())) == nullptr) {
          break;
        }
        return;
      case Entry::oldestRemoval:
        if (!map.table().hasLeftBehind()) {
          break;
        }
        (void)map.removeOldestLeftBehind();
        return;
      case Entry::status: {
        const PortName name = existing(reader.text());
        map.setStatus(name, reader.text());
        return;
      }
      case Entry::alert: {
        const PortName name = existing(reader.text());
        const std::string_view text = reader.text();
        const double time = reader.real();
        if (!std::isfinite(time)) {
          break;
        }
        map.setAlert(name, text, time);
        return;
      }
      case Entry::alertDrop: {
        const std::uint64_t slot = reader.number();
        if (slot >= map.slotCount() || map.inSlot(slot) == nullptr) {
          break;
        }
        map.dropAlert(*map.inSlot(slot));
        return;
      }
      case Entry::hosts: {
        HostLists hosts;
        hosts.restore(reader);
        state.hosts = std::move(hosts);
        return;
      }
    }
    throw KeptFault("the journal has an entry that cannot be");
  }

  [[nodiscard]] PortName existing(std::string_view text) const {
    const PortName name(text);
    if (kept_->state.map.find(name) == nullptr) {
      throw KeptFault("the journal changes a port that it does not have");
    }
    return name;
  }

  const JournalMemory& memory_;
  const MappedFile file_;
  std::size_t baseBytes_ = 0;
  std::uint64_t changes_ = 0;
  std::optional<Registry::Kept> kept_;
  std::vector<ReplayedRecords::Record> records_;  // by the descriptors of the connections
};

void Registry::replay(const JournalMemory& memory, ReplayedRecords& records) {
  JournalReader reader(memory);
  reader.readBase(*this);
  reader.readEntries();
  reader.readValues(*this);
  std::vector<ReplayedRecords::Record> connections = reader.takeRecords();
  // Nothing raises from here on.
  become(reader.takeKept());
  for (const ReplayedRecords::Record& record : connections) {
    if (record != nullptr && record->holdings().entries == 0) {
      watchingPortsList_.addRestored(*record);
    }
  }
  records.records_ = std::move(connections);
  if (reader.hasUntoldChanges()) {
    setWatchersDirty();
  }
}

ReplayedRecords::Record ReplayedRecords::take(int connection) {
  const auto index = static_cast<std::size_t>(connection);
  Record record = index < records_.size() ? std::exchange(records_[index], nullptr) : nullptr;
  return record != nullptr ? record : std::make_shared<PortDescriptor>();
}

std::vector<std::pair<int, ReplayedRecords::Record>> ReplayedRecords::rest() const {
  std::vector<std::pair<int, Record>> rest;
  for (std::size_t index = 0; index < records_.size(); ++index) {
    if (records_[index] != nullptr) {
      rest.emplace_back(static_cast<int>(index), records_[index]);
    }
  }
  return rest;
}

}  // namespace sorvane
