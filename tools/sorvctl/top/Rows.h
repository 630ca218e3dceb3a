// The databases that the live view has seen, and what has changed with them.
#pragma once

#include <chrono>
#include <cstddef>
#include <deque>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "sorvctl/DatabaseList.h"

namespace sorvctl::top {

using Time = std::chrono::steady_clock::time_point;

/// One database.
struct Row {
  Database database;
  bool gone = false;       ///< the server no longer lists it; the rest is what it was last
  std::string lastChange;  ///< "state: starting -> running"; empty: none since the view began
  Time since;              ///< when that was, or when the view began
};

/// Something that happened to a database.
struct Change {
  std::string name;
  std::string what;
  Time at;
};

/// What the rows are ordered by.
enum class Column { name, state, alert, age, change };
inline constexpr std::size_t kColumns = 5;

/// The rows, one for each name. Knows no clock: the caller tells the time.
class Rows {
 public:
  // Beyond these, the oldest changes and those that went first are forgotten.
  static constexpr std::size_t kMostChanges = 2000;
  static constexpr std::size_t kMostGone = 1000;
  static constexpr std::size_t kMostBytesOfChanges = std::size_t{16} << 20;
  static constexpr std::size_t kMostBytesOfGone = std::size_t{16} << 20;
  static constexpr std::chrono::minutes kGoneAreShown{10};
  static constexpr std::size_t kLongestText = 200;  ///< bytes of a text in a change

  /// Compares what the server lists now with what it listed before. The databases of the first call
  /// have not changed. Of several with the same name the first counts.
  void take(std::vector<Database> databases, Time now);
  /// Forgets those that went more than `kGoneAreShown` ago. Returns whether there were any.
  bool forgetGone(Time now);

  [[nodiscard]] bool empty() const { return rows_.empty(); }
  /// The row of a name; null if there is none. Valid until the rows are changed.
  [[nodiscard]] const Row* find(const std::string& name) const;
  /// How many are listed by the server, and how many of these have an alert.
  [[nodiscard]] std::size_t listed() const { return rows_.size() - gone_.size(); }
  [[nodiscard]] std::size_t alerts() const;

  /// The rows that hold `filter` in their name, state, alert, type, host or last change, in order.
  /// Upper and lower case of ASCII letters are the same. Those that are equal stand by name. An
  /// order by age begins with the latest change, one by alert with those that have one. Valid until
  /// the rows are changed.
  [[nodiscard]] std::vector<const Row*> arranged(Column by, bool reversed,
                                                 std::string_view filter) const;
  /// What is remembered of a name, the latest first.
  [[nodiscard]] std::vector<const Change*> changesOf(const std::string& name) const;

 private:
  struct Kept : Row {
    std::size_t reading = 0;  // the last one that listed it
  };

  void note(Row& row, std::string what, Time now);
  void compare(Row& row, Database now, Time time);

  std::map<std::string, Kept> rows_;
  std::deque<std::string> gone_;  // the names of those that are gone, in the order of their going
  std::deque<Change> changes_;    // the latest last
  std::size_t bytesOfChanges_ = 0;
  std::size_t reading_ = 0;
};

}  // namespace sorvctl::top
