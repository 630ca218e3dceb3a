// The journal of the registry: what another process goes on with when this one dies of a signal.
//
// docs/continuity.md tells what it has, and what is not kept over a crash. JournalForm.h tells how
// it lies in memory, and Registry::replay reads it.
#pragma once

#include <array>
#include <atomic>
#include <bit>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string_view>
#include <thread>
#include <vector>

#include "platform/KeptForm.h"
#include "platform/SharedMemory.h"
#include "registry/HostLists.h"
#include "registry/JournalForm.h"
#include "registry/PortDescriptor.h"

namespace sorvane {

class PortTable;
struct RegistryLimits;

/// Where a journal is found after the death of the process that has written it: the descriptors of
/// its files, the few values that change too often for entries, and what each connection knows of
/// the watch list. Make it before that process is forked. All processes that use it must share
/// their descriptors. One of them at a time may write.
class JournalMemory {
 public:
  /// For connections whose descriptors are below `descriptors`. Raises std::bad_alloc.
  explicit JournalMemory(std::size_t descriptors);

  [[nodiscard]] std::size_t descriptors() const { return descriptors_; }
  /// Returns the descriptors of the journal's files, the one with the base first. None: there is no
  /// journal.
  [[nodiscard]] std::vector<int> files() const;
  /// Returns the first of them; negative: there is no journal.
  [[nodiscard]] int file() const;

 private:
  friend class Journal;
  friend class JournalReader;

  // With a base, with the entries up to the next base, and with those since that one was begun.
  static constexpr std::size_t kMostFiles = 3;
  using Files = std::array<std::atomic<std::int32_t>, kMostFiles>;  // descriptor and 1; 0: none

  // All zero at first.
  struct Block {
    std::atomic<std::uint32_t> current;  // which of the two next ones counts
    std::array<Files, 2> files;
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
  // Makes these the journal by one store. Not synchronised.
  void setFiles(const std::vector<std::shared_ptr<MemoryFile>>& files);
  [[nodiscard]] Mark& markOf(std::size_t connection) const { return marks_[connection]; }

  const std::size_t descriptors_;
  SharedMemory memory_;
  Block* const block_;
  Mark* const marks_;  // by the descriptors of the connections
};

/// Writes the journal of a registry. The registry's inner lock guards it, except where noted. If
/// there is no memory for it, or if something cannot be told, journalling ends: the memory has no
/// journal then, and the console is told once. Nothing raises.
///
/// A base is written anew when the entries have become too many: at once by the thread that has
/// written the last entry if the registry is small, otherwise by a thread of the journal's own.
/// That one reads the files as the next process would after a death. Meanwhile the entries go to
/// another file.
class Journal {
 public:
  /// When the base is written anew, and how.
  struct Sizes {
    /// Base and entries take at least that then, bytes, and the entries more than the base.
    std::size_t least = std::size_t{5} << 19;
    /// The journal's own thread writes the base of a registry that takes more, bytes.
    std::size_t quick = std::size_t{1} << 20;
    /// The entries that are written while that thread is at work take less, bytes: when they become
    /// more, the base is written at once.
    std::size_t meanwhile = std::size_t{1} << 26;
  };

  explicit Journal(JournalMemory& memory) : Journal(memory, Sizes()) {}
  Journal(JournalMemory& memory, const Sizes& sizes);
  /// The memory has no journal then. A process that dies or exits destroys nothing.
  ~Journal();
  Journal(const Journal&) = delete;
  Journal& operator=(const Journal&) = delete;

  /// Tells the record of a connection that was there before the journal. Call it for each of them
  /// before `Registry::beginJournal`. The record must live until its connection has ended.
  void bind(int connection, const PortDescriptor& record);
  /// The same for one of them that has ended meanwhile.
  void unbind(int connection);

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
  [[nodiscard]] bool isLong() const {
    return end_ >= longAt_.load(std::memory_order_relaxed) && !hasEnded_;
  }
  /// Writes what comes before the registry.
  void keepChanges(KeptWriter& writer) const {
    const std::size_t before = baseBytes_.load(std::memory_order_relaxed);
    writer.reserve(before + before / 8);
    writer.number(changes_);
  }
  /// Writes the connections that have registered something, with their records.
  void keepConnections(KeptWriter& writer, const PortTable& table) const {
    keepConnections(writer, bound_, table);
  }
  using Bound = std::vector<const PortDescriptor*>;  ///< by the descriptors of the connections
  static void keepConnections(KeptWriter& writer, const Bound& bound, const PortTable& table);
  /// Begins a new file with that base, and lets the files before go. A process that dies meanwhile
  /// leaves one or the other whole.
  void begin(const KeptWriter& base);
  /// Goes on with the file before, if there is one.
  void cannotBegin();

  /// Starts the thread that writes the bases of a registry with these limits. Without it, all bases
  /// are written at once.
  void startThread(const RegistryLimits& limits);
  /// Lets that thread write the base of a registry that takes so many bytes. Returns false if the
  /// caller should write it: the registry is small, or the thread has failed or is too slow.
  [[nodiscard]] bool beginOnThread(std::uint64_t bytes);
  /// True from `beginOnThread` until the thread has done that, or has failed. Any thread.
  [[nodiscard]] bool isWritingBase() const;

 private:
  using Entry = journal::Entry;
  using Files = std::vector<std::shared_ptr<MemoryFile>>;

  [[nodiscard]] bool isBound(int connection, const PortDescriptor& record);
  template <typename Fill>
  void prepare(Entry kind, Fill&& fill);
  template <typename Fill>
  void write(Entry kind, Fill&& fill);
  void writeRegistration(Entry kind, int connection, const PortDescriptor& record);
  void forgetOtherConnections();
  [[nodiscard]] bool hasRoomFor(std::size_t bytes);
  // Returns how many bytes of entries may follow a base.
  [[nodiscard]] std::size_t roomBehind(std::size_t baseBytes) const;
  void writeBases(const RegistryLimits& limits);
  void endBecause(const char* reason);

  JournalMemory& memory_;
  const Sizes sizes_;
  std::shared_ptr<MemoryFile> file_;  // to which the entries go
  std::size_t end_ = 0;               // of the last entry, in the file
  std::uint64_t changes_ = 0;
  KeptWriter entry_;
  Entry prepared_ = Entry::removal;
  bool isPrepared_ = false;
  bool hasEnded_ = false;
  Bound bound_;

  // Guards what follows. Taken for some stores only, after the inner lock if that is held, too.
  mutable std::mutex filesLock_;
  Files files_;             // all that the journal consists of; the last one is file_
  Files toRead_;            // of these, the thread is to write the base
  bool isWriting_ = false;  // the thread has not finished that
  bool isEnding_ = false;
  std::condition_variable changed_;  // toRead_ or isEnding_ was set
  // Stored with that lock held.
  std::atomic<std::size_t> baseBytes_ = 0;
  std::atomic<std::size_t> longAt_ = 0;  // at which end the base should be written anew
  std::thread thread_;
};

}  // namespace sorvane
