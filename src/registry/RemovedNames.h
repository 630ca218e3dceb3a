// The names that were removed lately, for those who ask what has changed.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "registry/ChangeOrder.h"
#include "registry/PortName.h"

namespace sorvane {

/// Remembers each name once, with its last removal. When there are too many, the oldest removals
/// are forgotten: whoever last asked before those must begin anew. A name that was entered again
/// may still be here. Not synchronised.
class RemovedNames {
 public:
  using Index = ChangeOrder::Index;
  using Number = ChangeOrder::Number;

  struct Limits {
    std::size_t names = 65536;                 ///< not above 2^31
    std::size_t bytes = std::size_t{4} << 20;  ///< with all that it takes to keep them
  };
  explicit RemovedNames(const Limits& limits) : limits_(limits) {}

  /// Remembers a removal, whose number is higher than any before. Takes the text. If there is no
  /// memory, all are forgotten.
  void add(std::string&& name, PortName::Hash hash, Number number) noexcept;

  /// Returns the number of the last removal that was forgotten; 0: none was.
  [[nodiscard]] Number forgottenUpTo() const { return forgottenUpTo_; }

  [[nodiscard]] const ChangeOrder& order() const { return order_; }
  [[nodiscard]] std::string_view nameAt(Index index) const { return names_[index].text; }

  [[nodiscard]] std::size_t count() const { return count_; }
  /// Returns what the names take, bytes, without the room that is free.
  [[nodiscard]] std::size_t bytes() const { return bytes_; }
  /// What a name takes that needs no block of the heap.
  static constexpr std::size_t kNameBytes = 64;

  void keep(KeptWriter& writer) const;
  /// Makes this, which has no name, what was kept. `last` is the number of the last change, `key`
  /// that of the names' hashes. If that is more than the limits allow, the oldest removals are
  /// forgotten. Raises KeptFault.
  void restore(KeptReader& reader, Number last, const SipKey& key);

 private:
  static constexpr Index kNone = ChangeOrder::kNone;

  struct Name {
    std::string text;
    std::uint32_t hash = 0;
    Index next = kNone;  // of its chain, or of the free ones
  };
  static_assert(sizeof(Name) + ChangeOrder::kBytes + sizeof(Index) <= kNameBytes);

  [[nodiscard]] Index& chainOf(std::uint32_t hash) { return chains_[hash & (chains_.size() - 1)]; }
  [[nodiscard]] Index find(std::string_view name, std::uint32_t hash);
  // Returns an index that is free.
  [[nodiscard]] Index take();
  void growTo(std::size_t size);
  [[nodiscard]] bool isTooMuch() const;
  void forgetOldest();
  void forgetAll(Number number);

  Limits limits_;
  std::vector<Name> names_;
  std::vector<Index> chains_;  // the first name of each; a power of two of them, as many as names_
  ChangeOrder order_;
  Index free_ = kNone;
  std::size_t count_ = 0;
  std::size_t bytes_ = 0;
  Number forgottenUpTo_ = 0;
};

}  // namespace sorvane
