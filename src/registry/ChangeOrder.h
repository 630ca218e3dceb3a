// The order in which things have changed last.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "platform/KeptForm.h"

namespace sorvane {

/// Things that have an index below a size, such as slots of a table, in the order of their last
/// changes. Each change has a number, and a later change a higher one. Noting a change takes the
/// same time however many things there are. Not synchronised.
class ChangeOrder {
 public:
  using Index = std::uint32_t;
  using Number = std::uint64_t;  ///< 0: no change
  static constexpr Index kNone = ~Index{0};

  explicit ChangeOrder(std::size_t size = 0) : things_(size) {}

  /// What one index takes, bytes.
  static constexpr std::size_t kBytes = 16;

  [[nodiscard]] std::size_t size() const { return things_.size(); }
  /// Allows indices up to a larger size.
  void growTo(std::size_t size) { things_.resize(size); }

  [[nodiscard]] bool contains(Index index) const { return things_[index].number != 0; }
  /// Has the processor fetch what is asked about this thing next.
  void prefetch(Index index) const { __builtin_prefetch(&things_[index]); }
  /// Returns the number of the last change; 0 for what is not here.
  [[nodiscard]] Number numberOf(Index index) const { return things_[index].number; }
  // These return kNone if there is none.
  [[nodiscard]] Index newest() const { return newest_; }
  [[nodiscard]] Index oldest() const { return oldest_; }
  [[nodiscard]] Index newerThan(Index index) const { return things_[index].newer; }
  [[nodiscard]] Index olderThan(Index index) const { return things_[index].older; }

  /// Enters the thing, or notes another change of it. No number may be higher than this one.
  void makeNewest(Index index, Number number);
  /// Takes the thing out, which must be here.
  void remove(Index index);
  /// Puts a thing that is not here in the place of one that is.
  void replace(Index index, Index by);
  /// Makes this, which is empty, the same order, with index i being `places[i]`.
  void takeOver(const ChangeOrder& before, const std::vector<Index>& places);

  /// A search that may be interrupted, for the first thing that has changed after a number.
  struct Search {
    Index at = kNone;  ///< the result; kNone: nothing has changed since
    Number seen = 0;   ///< the number of `at` when the search was interrupted
  };
  /// Goes on with a search for `steps` steps at most, and takes off those that it has needed.
  /// Returns false if these were not enough. Costs a step for each thing that has changed since.
  [[nodiscard]] bool find(Number after, Search& search, std::size_t& steps) const;
  /// Returns true if this thing is the result of a search for that number.
  [[nodiscard]] bool isFirstAfter(Number after, Index index) const {
    const Index older = olderThan(index);
    return numberOf(index) > after && (older == kNone || numberOf(older) <= after);
  }

  /// Writes the things, the oldest first, each by its index and number. All numbers must be higher
  /// than `after`.
  void keep(KeptWriter& writer, Number after) const;
  /// Makes this, which is empty, what was kept. Raises KeptFault unless the indices differ and are
  /// below the size, and the numbers rise and are above `after` and not above `last`.
  void restore(KeptReader& reader, Number after, Number last);

 private:
  struct Thing {
    Number number = 0;
    Index newer = kNone;
    Index older = kNone;
  };
  static_assert(sizeof(Thing) == kBytes);

  void append(Index index, Number number);
  // Makes `newer` and `older` neighbours. Either may be kNone.
  void link(Index older, Index newer);

  std::vector<Thing> things_;
  Index newest_ = kNone;
  Index oldest_ = kNone;
};

}  // namespace sorvane
