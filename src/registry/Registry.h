// The registry: ports by name, watchers, launcher hosts, and what is derived from them.
#pragma once

#include <algorithm>
#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/Guarded.h"
#include "platform/VNThreadLock.h"
#include "registry/Journal.h"
#include "registry/KeptRecords.h"
#include "registry/RegistryState.h"
#include "registry/ReplayedRecords.h"
#include "registry/WatchList.h"

namespace sorvane {

/// The registry protects itself, because the end of a connection changes it without `serverLock`.
/// Each operation takes the inner lock, does memory work only, and calls nothing outside. Order of
/// locks: `serverLock`, then `setDirtyLock` (only ever tried), then the inner lock.
class Registry {
 public:
  explicit Registry(const RegistryLimits& limits = {});

  /// Names this registry: 32 hexadecimal digits, drawn at random.
  [[nodiscard]] const std::string& instance() const { return instance_; }

  // ---- Ports

  /// Enters the record under the name; an earlier record of that name is replaced. Raises
  /// NSException and changes nothing when that would pass a limit. `connection` is the descriptor
  /// of the record's connection: see PortMap.
  void enterPort(OwnedPortName name, std::shared_ptr<PortDescriptor> record,
                 int connection = PortMap::kNoConnection);
  /// Notes that the record's connection has ended: removes the port of its name, whichever record
  /// that is. Ports under further names are left behind. When these become too many, the oldest
  /// ones are dropped.
  void endPort(PortDescriptor& record, int connection = PortMap::kNoConnection);
  /// Returns the record under the name, or null.
  [[nodiscard]] std::shared_ptr<PortDescriptor> port(const PortName& name) const;
  /// Calls `use(const PortDescriptor&)` with the record under the name, inside the inner lock.
  /// Returns whether there is one.
  template <typename Use>
  [[nodiscard]] bool withPort(const PortName& name, Use&& use) const {
    return state_.with([&](const RegistryState& state) {
      const PortMap::Record* const found = state.map.find(name);
      if (found == nullptr) {
        return false;
      }
      use(static_cast<const PortDescriptor&>(**found));
      return true;
    });
  }
  /// Calls `use(PortMap&, PortDescriptor&)` with the record of each entry, inside the inner lock.
  /// The lock is taken for a slice of the map at a time, so that a long map delays no closing
  /// connection. `serverLock` must be held: nothing is entered meanwhile, but entries may be
  /// removed.
  template <typename Use>
  void forEachPort(Use&& use);
  [[nodiscard]] std::size_t portCount() const;

  /// Removes ports that ended connections have left behind, the oldest first, until those that
  /// remain take no more than they may. A slice of them at a time is removed inside the inner lock.
  void dropOldestLeftBehind();
  /// Returns how many ports `dropOldestLeftBehind` has removed since the last call.
  [[nodiscard]] std::uint64_t takeDroppedPorts() { return droppedPorts_.exchange(0); }

  // ---- Watchers

  [[nodiscard]] WatchList& watchingPortsList() { return watchingPortsList_; }
  [[nodiscard]] const WatchList& watchingPortsList() const { return watchingPortsList_; }

  /// Every change calls this: it sets all watchers dirty, notes the time and drops the state list.
  /// While another thread does that, this call does nothing: the other thread sets the same
  /// watchers dirty, and repeats it when this change came too late for the first time.
  void setWatchToDirty();
  /// Sets all watchers dirty without taking `setDirtyLock`, notes the time and drops the state
  /// list. The alert list deliberately stays, unless it is so long that it must not be held in
  /// vain: it is built again with the state list.
  void setWatchersDirty();
  /// Advances the forced-refresh number: 1 to 10000, then 1 again.
  void setForceRefreshToDirty();
  /// Notes the time of a change.
  void stampTime();

  struct ChangeStamp {
    double timestampFlag;
    std::int32_t forceRefreshNumber;
  };
  [[nodiscard]] ChangeStamp changeStamp() const;

  /// Held while watchers are set dirty; only ever tried.
  [[nodiscard]] VNThreadLock& setDirtyLock() { return setDirtyLock_; }

  // ---- Several commands at once

  /// Takes the inner lock for several operations on this thread. Not recursive. Any other operation
  /// waits meanwhile, also the end of a connection: release it soon.
  void lock() { state_.lock(); }
  void unlock() { state_.unlock(); }

  // ---- Host lists and the two cached lists

  /// Calls `operation(RegistryState&)` inside the inner lock and returns its result.
  template <typename Operation>
  decltype(auto) with(Operation&& operation) {
    return state_.with([&](RegistryState& state) -> decltype(auto) {
      const JournalTrim trim{*this, state};
      return std::forward<Operation>(operation)(state);
    });
  }
  template <typename Operation>
  decltype(auto) with(Operation&& operation) const {
    return state_.with(std::forward<Operation>(operation));
  }

  // ---- What is kept for a program that goes on

  /// Writes everything that the registry holds, also the key of the names' hashes. `records` then
  /// writes the records of the connections. `serverLock` must be held, and no connection may begin,
  /// end or be served until they are written, too.
  void keep(KeptWriter& writer, KeptRecords& records) const;
  /// Makes this registry, in which nothing was entered, the one that was kept: its replies are the
  /// same from now on. Its limits stay, and nothing is refused because of them. `records` then
  /// reads the records of the connections. Raises NSException, most often KeptFault, and then has
  /// changed nothing. Call it before this process has any other use for SipKey::ofThisProcess, and
  /// while no other thread uses the registry.
  void restore(KeptReader& reader, RestoredRecords& records);

  // ---- What is kept for a process that goes on after the death of this one

  /// Writes everything that the registry holds into the journal, and each change from now on, which
  /// must live as long as the registry. All connections that have a record must have been bound.
  /// Call it before anything is served. Returns false when there is no memory.
  bool beginJournal(Journal& journal);
  /// Notes what the record of that connection knows of the watch list. Whoever has changed that
  /// calls it before the connection gets its reply.
  void keepWatching(int connection, const PortDescriptor& record) {
    if (journal_ != nullptr) {
      journal_->keepWatching(connection, record);
    }
  }
  /// Makes this registry, in which nothing was entered, the one that the journal tells of. Watchers
  /// are told of changes that they may not have been told of. Raises and requires the same as
  /// `restore`. The journal stays as it is. See `ReplayedRecords` for the connections.
  void replay(const JournalMemory& memory, ReplayedRecords& records);
  /// Returns a base for a journal: all that these files of a journal tell, the one with the base
  /// first. Nobody may write to them. `descriptors` are those of the journal's memory, `limits`
  /// those of its registry. Takes as much memory as that registry, and gives it back. Raises
  /// NSException, most often KeptFault, and std::bad_alloc. Any thread.
  [[nodiscard]] static KeptWriter journalBase(const std::vector<std::string_view>& files,
                                              std::size_t descriptors,
                                              const RegistryLimits& limits);

 private:
  friend class JournalReader;
  static constexpr std::size_t kSlice = 256;  // slots

  // Has the base of the journal written anew after an operation that has made it long.
  struct JournalTrim {
    Registry& registry;
    const RegistryState& state;
    ~JournalTrim() {
      if (registry.journal_ != nullptr && registry.journal_->isLong()) {
        registry.trimJournal(state);
      }
    }
  };
  void trimJournal(const RegistryState& state) noexcept;
  void writeJournalBase(const RegistryState& state) noexcept;

  // What `keep` writes.
  struct Kept {
    explicit Kept(const RegistryLimits& limits) : state(limits) {}
    SipKey key;
    std::string instance;
    std::uint64_t timesSetDirty = 0;
    std::uint64_t droppedPorts = 0;
    bool dirtyIsDue = false;
    RegistryState state;
  };
  void keep(KeptWriter& writer, const RegistryState& state, KeptPart part) const;
  // Reads what was kept.
  [[nodiscard]] Kept readKept(KeptReader& reader) const;
  // Makes this what was kept. Nothing raises.
  void become(Kept&& kept);

  std::string instance_;  // as it was made or restored
  // Protect themselves.
  Guarded<RegistryState> state_;
  WatchList watchingPortsList_;
  VNThreadLock setDirtyLock_;
  std::atomic<std::uint64_t> droppedPorts_ = 0;
  // A change was made, and nobody has begun to set the watchers dirty since.
  std::atomic<bool> dirtyIsDue_ = false;
  // Set before anything is served.
  Journal* journal_ = nullptr;
};

template <typename Use>
void Registry::forEachPort(Use&& use) {
  std::size_t next = 0;
  bool more = true;
  while (more) {
    with([&](RegistryState& state) {
      PortMap& map = state.map;
      std::array<PortDescriptor*, kSlice> records;
      std::size_t count = 0;
      const std::size_t end = std::min(next + kSlice, map.slotCount());
      for (; next < end; ++next) {
        if (PortDescriptor* const record = map.inSlot(next).get()) {
          __builtin_prefetch(record);
          records[count++] = record;
        }
      }
      // The records of a long map are scattered over the memory. Fetching those of a slice at the
      // same time takes a fraction of fetching one after the other.
      for (std::size_t each = 0; each < count; ++each) {
        records[each]->prefetchTexts();
      }
      for (std::size_t each = 0; each < count; ++each) {
        use(map, *records[each]);
      }
      more = next < map.slotCount();
    });
  }
}

}  // namespace sorvane
