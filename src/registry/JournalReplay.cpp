// Reading a journal: Registry::replay, Registry::journalBase. Believes nothing of what it
// reads.
#include <bit>
#include <cmath>
#include <cstring>
#include <limits>
#include <list>
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
  /// `files` are the bytes of its files, the one with the base first. Raises KeptFault when there
  /// is none.
  JournalReader(const std::vector<std::string_view>& files, std::size_t descriptors)
      : files_(files), descriptors_(descriptors) {
    if (files.empty()) {
      throw KeptFault("there is no journal");
    }
    for (const std::string_view file : files) {
      if (!file.starts_with(journal::kMark) || file.size() < journal::kAtBase ||
          baseBytes(file) > file.size() - journal::kAtBase ||
          (baseBytes(file) > 0) != (file.data() == files.front().data())) {
        throw KeptFault("there is no journal");
      }
    }
  }

  void readBase(const Registry& registry) {
    KeptReader reader(files_.front().substr(journal::kAtBase, baseBytes(files_.front())));
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
    const ReplacedTexts releasedAtTheEnd;
    for (const std::string_view file : files_) {
      readEntriesOf(file);
    }
  }

  /// Takes what lies beside the entries.
  void readValues(const JournalMemory& memory, const Registry& registry) {
    const JournalMemory::Block& block = *memory.block_;
    RegistryState& state = kept_->state;
    state.maxport = block.nextPortNumber;
    state.timestampFlag = std::bit_cast<double>(block.changeTime.load());
    state.forceRefreshNumber = block.refreshNumber;
    if (!state.hasPossibleNumbers()) {
      throw KeptFault("the journal has numbers that cannot be");
    }
    kept_->timesSetDirty = block.timesSetDirty;
    kept_->dirtyIsDue = false;
    hasUntoldChanges_ = block.changesTold < changes_;
    const std::size_t marks = block.marks;
    if (marks > descriptors_) {
      throw KeptFault("the journal has a connection that cannot be");
    }
    for (std::size_t connection = 0; connection < marks; ++connection) {
      const JournalMemory::Mark& mark = memory.markOf(connection);
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
  [[nodiscard]] bool hasUntoldChanges() const { return hasUntoldChanges_; }
  /// Returns how many changes watchers are told of there were.
  [[nodiscard]] std::uint64_t changes() const { return changes_; }
  [[nodiscard]] Registry::Kept takeKept() { return std::move(*kept_); }
  [[nodiscard]] std::vector<ReplayedRecords::Record> takeRecords() { return std::move(records_); }

 private:
  [[nodiscard]] static std::size_t baseBytes(std::string_view file) {
    return wordAt(file, journal::kAtBaseBytes);
  }

  void readEntriesOf(std::string_view bytes) {
    const std::uint64_t end = wordAt(bytes, journal::kAtEnd);
    std::size_t at = journal::roundedUp(journal::kAtBase + baseBytes(bytes));
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
    return placeOf(static_cast<std::size_t>(reader.number(descriptors_ - 1)));
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
        const auto name = reader.optionalText();
        if (record == nullptr) {
          return;  // there was no memory for what it was to enter
        }
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

  const std::vector<std::string_view> files_;
  const std::size_t descriptors_;
  std::uint64_t changes_ = 0;
  bool hasUntoldChanges_ = false;
  std::optional<Registry::Kept> kept_;
  std::vector<ReplayedRecords::Record> records_;  // by the descriptors of the connections
};

void Registry::replay(const JournalMemory& memory, ReplayedRecords& records) {
  std::list<MappedFile> files;
  std::vector<std::string_view> bytes;
  for (const int file : memory.files()) {
    bytes.push_back(files.emplace_back(file).bytes());
  }
  JournalReader reader(bytes, memory.descriptors());
  reader.readBase(*this);
  reader.readEntries();
  reader.readValues(memory, *this);
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

KeptWriter Registry::journalBase(const std::vector<std::string_view>& files,
                                 std::size_t descriptors, const RegistryLimits& limits) {
  Registry registry(limits);
  JournalReader reader(files, descriptors);
  reader.readBase(registry);
  reader.readEntries();
  const std::vector<ReplayedRecords::Record> records = reader.takeRecords();
  Journal::Bound bound;
  bound.reserve(records.size());
  for (const ReplayedRecords::Record& record : records) {
    bound.push_back(record.get());
  }
  Kept kept = reader.takeKept();
  kept.droppedPorts = 0;  // they were told of long ago
  registry.become(std::move(kept));
  KeptWriter base;
  base.number(reader.changes());
  registry.with([&](const RegistryState& state) {
    registry.keep(base, state, KeptPart::inJournal);
    Journal::keepConnections(base, bound, state.map.table());
  });
  return base;
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
