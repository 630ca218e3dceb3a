// The journal of the registry: what another process goes on with when this one dies of a signal.
//
// docs/continuity.md tells what it has, and what is not kept over a crash. JournalForm.h tells how
// it lies in memory, and Registry::replay reads it.
#pragma once

#include <atomic>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

#include "platform/KeptForm.h"
#include "platform/SharedMemory.h"
#include "registry/HostLists.h"
#include "registry/JournalForm.h"
#include "registry/PortDescriptor.h"

namespace sorvane {

class PortTable;

/// Where a journal is found after the death of the process that has written it: the descriptor of
/// its file, the few values that change too often for entries, and what each connection knows of
/// the watch list. Make it before that process is forked. All processes that use it must share
/// their descriptors. One of them at a time may write.
class JournalMemory {
 public:
  /// For connections whose descriptors are below `descriptors`. Raises std::bad_alloc.
  explicit JournalMemory(std::size_t descriptors);

  [[nodiscard]] std::size_t descriptors() const { return descriptors_; }
  /// Returns the descriptor of the journal's file; negative: there is no journal.
  [[nodiscard]] int file() const { return block_->file.load(std::memory_order_acquire) - 1; }

 private:
  friend class Journal;
  friend class JournalReader;

  // All zero at first.
  struct Block {
    std::atomic<std::int32_t> file;            // the descriptor and 1; 0: there is no journal
    std::atomic<std::uint32_t> marks;          // how many of the marks were ever used
    std::atomic<std::uint64_t> timesSetDirty;  // of the watch list
    std::atomic<std::uint64_t> changesTold;    // how many changes watchers were told of
    std::atomic<std::uint64_t> changeTime;     // the time of the last change, bit by bit
    std::atomic<std::int64_t> nextPortNumber;
    std::atomic<std::int32_t> refreshNumber;
  };
  struct Mark {
    std::atomic<std::uint64_t> clearedAt;
    std::atomic<std::uint32_t> times;
    std::atomic<std::uint32_t> isDirty;
  };
  [[nodiscard]] Mark& markOf(std::size_t connection) const { return marks_[connection]; }

  const std::size_t descriptors_;
  SharedMemory memory_;
  Block* const block_;
  Mark* const marks_;  // by the descriptors of the connections
};

/// Writes the journal of a registry. The registry's inner lock guards it, except where noted. If
/// there is no memory for it, or if something cannot be told, journalling ends: the memory has no
/// journal then, and the console is told once. Nothing raises.
class Journal {
 public:
  /// The entries become a part of the base when they take more than that and more than the base.
  static constexpr std::size_t kLeastBytes = std::size_t{1} << 20;

  explicit Journal(JournalMemory& memory, std::size_t leastBytes = kLeastBytes);
  /// The memory has no journal then. A process that dies destroys nothing.
  ~Journal();
  Journal(const Journal&) = delete;
  Journal& operator=(const Journal&) = delete;

  /// Tells the record of a connection that was there before the journal. Call it for each of them
  /// before `Registry::beginJournal`. The record must live until its connection has ended.
  void bind(int connection, const PortDescriptor& record);

  [[nodiscard]] bool hasEnded() const { return hasEnded_; }

  // ---- Entries. Called when the change was made, but those that begin with `will`.

  void registrationReplaced(int connection, const PortDescriptor& record);
  void willEnter(int connection, const PortDescriptor& record, std::string_view name);
  void enteredWith(int connection, const PortDescriptor& record);
  void ended(int connection, const PortDescriptor& record, std::optional<std::string_view> name);
  void willRemove(std::string_view name);
  /// What was last announced was done.
  void didAsPrepared();
  void oldestLeftBehindRemoved();
  void statusSet(std::string_view name, std::string_view text);
  void alertSet(std::string_view name, std::string_view text, double time);
  void alertDropped(std::uint32_t oldestSlot);
  void hostsChanged(const HostLists& hosts);

  // ---- Values that are stored

  void setNextPortNumber(std::int64_t number) {
    memory_.block_->nextPortNumber.store(number, std::memory_order_relaxed);
  }
  void setRefreshNumber(std::int32_t number) {
    memory_.block_->refreshNumber.store(number, std::memory_order_relaxed);
  }
  void setChangeTime(double time) {
    memory_.block_->changeTime.store(std::bit_cast<std::uint64_t>(time), std::memory_order_relaxed);
  }
  /// Call this before the watch list counts the same.
  void setTimesSetDirty(std::uint64_t times) {
    memory_.block_->timesSetDirty.store(times, std::memory_order_release);
  }
  /// The watchers were told of all changes.
  void changesAreTold() { memory_.block_->changesTold.store(changes_, std::memory_order_release); }
  /// Stores what the record knows of its watch list. Called by whoever may change that, without the
  /// inner lock.
  void keepWatching(int connection, const PortDescriptor& record);

  // ---- The base: see Registry::beginJournal

  /// Returns true when the base should be written anew.
  [[nodiscard]] bool isLong() const { return end_ >= longAt_ && !hasEnded_; }
  /// Writes what comes before the registry.
  void keepChanges(KeptWriter& writer) const {
    writer.reserve(baseBytes_ + baseBytes_ / 8);
    writer.number(changes_);
  }
  /// Writes the connections that have registered something, with their records.
  void keepConnections(KeptWriter& writer, const PortTable& table) const;
  /// Begins a new file with that base, and lets the file before go. A process that dies meanwhile
  /// leaves one of them whole.
  void begin(const KeptWriter& base);
  /// Goes on with the file before, if there is one.
  void cannotBegin();

 private:
  using Entry = journal::Entry;

  [[nodiscard]] bool isBound(int connection, const PortDescriptor& record);
  template <typename Fill>
  void prepare(Entry kind, Fill&& fill);
  template <typename Fill>
  void write(Entry kind, Fill&& fill);
  void writeRegistration(Entry kind, int connection, const PortDescriptor& record);
  void keepConnection(KeptWriter& writer, std::size_t connection, const PortTable& table) const;
  void forgetOtherConnections();
  [[nodiscard]] bool hasRoomFor(std::size_t bytes);
  void endBecause(const char* reason);

  JournalMemory& memory_;
  const std::size_t leastBytes_;
  std::unique_ptr<MemoryFile> file_;
  std::size_t baseBytes_ = 0;
  std::size_t end_ = 0;     // of the last entry, in the file
  std::size_t longAt_ = 0;  // at which end the base should be written anew
  std::uint64_t changes_ = 0;
  KeptWriter entry_;
  Entry prepared_ = Entry::removal;
  bool isPrepared_ = false;
  bool hasEnded_ = false;
  std::vector<const PortDescriptor*> bound_;  // by the descriptors of the connections
};

}  // namespace sorvane
