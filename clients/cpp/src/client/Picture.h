// What is registered, as far as it is known.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "client/Page.h"
#include "sorvane/client.h"

namespace sorvane::client::detail {

/// The databases as pages, or whole lists, have told them. Tells what is different after each.
class Picture {
 public:
  using Told = std::function<void(const Change& change)>;

  /// The most that is kept: texts, and 512 bytes for what an entry costs besides.
  static constexpr std::size_t kMostBytes = std::size_t{512} << 20;

  explicit Picture(Told told, std::size_t mostBytes = kMostBytes)
      : told_(std::move(told)), mostBytes_(mostBytes) {}

  /// Takes over a page. What is gone because everything was told anew is told with the last page of
  /// that. The error is `protocol`: there is too much.
  Result<void> apply(Page page);
  /// Takes over a list of all that is there.
  Result<void> applyAll(std::vector<Entry> entries);

  /// The entries, ordered by name.
  [[nodiscard]] std::vector<Entry> entries() const;
  [[nodiscard]] std::size_t bytes() const { return bytes_; }

 private:
  struct Known {
    Entry entry;
    std::uint64_t round;  // in which it was told last
  };

  Result<void> enter(Entry entry);
  void remove(const std::string& name);
  void beginRound();
  void endRound();

  const Told told_;
  const std::size_t mostBytes_;
  std::map<std::string, Known, std::less<>> known_;
  std::size_t bytes_ = 0;
  std::uint64_t round_ = 0;
  bool inRound_ = false;  // what was told before the round may be gone
};

}  // namespace sorvane::client::detail
