// What outlives a serving process: the one that comes after it goes on with that.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "platform/SharedMemory.h"
#include "platform/SurvivingSockets.h"
#include "platform/WorkMarks.h"
#include "registry/Continuity.h"
#include "registry/Journal.h"

namespace sorvane {

/// Memory that the watching process makes, and that the serving processes use one after the other.
class Survival {
 public:
  /// For as many descriptors as this process may have now. Raises std::bad_alloc.
  Survival();

  /// Returns one for a process that starts anew: with the lock and the figures alone. Raises
  /// std::bad_alloc.
  [[nodiscard]] std::unique_ptr<Survival> anew() const;

  /// In a serving process that goes on: finds the sockets that it goes on with, and closes all
  /// other descriptors but those of the journal and `ownDescriptors`. Raises std::system_error.
  [[nodiscard]] SurvivingSockets takeSockets(const std::vector<int>& ownDescriptors);

  [[nodiscard]] JournalMemory& journal() { return journal_; }
  [[nodiscard]] WorkMarks& marks() { return marks_; }

  /// The descriptor by which the process lock is held; negative: it is not.
  [[nodiscard]] int lock() const { return block().lock.load() - 1; }
  void noteLock(int descriptor) { block().lock = descriptor + 1; }

  void noteListener(int descriptor) { block().listener = descriptor + 1; }

  /// The figures of the name server, as they were noted last; without the reason of a refusal.
  [[nodiscard]] Continuity::Figures figures() const {
    return {block().upgrades.load(), block().crashes.load(), block().attempts.load(), {}};
  }
  void noteDeath() { ++block().crashes; }
  void note(const Continuity::Figures& figures) {
    block().upgrades = figures.upgrades;
    block().crashes = figures.crashes;
    block().attempts = figures.attempts;
  }

 private:
  explicit Survival(std::size_t descriptors)
      : journal_(descriptors), marks_(descriptors), memory_(sizeof(Block)) {}

  // All zero at first.
  struct Block {
    std::atomic<int> lock;      // the descriptor and 1
    std::atomic<int> listener;  // the same
    std::atomic<std::uint64_t> upgrades;
    std::atomic<std::uint64_t> crashes;
    std::atomic<std::uint64_t> attempts;
  };
  [[nodiscard]] Block& block() const { return *reinterpret_cast<Block*>(memory_.bytes()); }

  JournalMemory journal_;
  WorkMarks marks_;
  SharedMemory memory_;
};

}  // namespace sorvane
