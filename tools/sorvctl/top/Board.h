// The live view without its terminal: it takes what the server tells and the keys that are pressed,
// and returns what is to be shown.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "sorvctl/Follower.h"
#include "sorvctl/top/Picture.h"
#include "sorvctl/top/Rows.h"

namespace sorvctl::top {

enum class Key { up, down, pageUp, pageDown, first, last, enter, escape, backspace, text };

struct Press {
  Key key = Key::text;
  std::string text;  ///< of Key::text: one UTF-8 character
};

/// Knows no clock: the caller tells the time.
class Board {
 public:
  static constexpr std::size_t kLongestFilter = 256;  ///< bytes

  /// `server` is what the view is headed with. The view begins `now`.
  Board(std::string server, Time now);

  void take(Sight sight);
  void press(const Press& press);
  /// Whether a key has asked for the end.
  [[nodiscard]] bool isEnded() const { return ended_; }
  /// Returns what a terminal of that size shows now.
  [[nodiscard]] Picture picture(Size size, Time now);

 private:
  enum class Mode { table, detail, filter, help };

  void pressInTable(const Press& press);
  void pressInFilter(const Press& press);
  void pressInText(const Press& press);
  void move(long steps);
  void arrange();
  [[nodiscard]] Line titleLine(int columns) const;
  [[nodiscard]] Line statusLine(int columns, Time now) const;
  [[nodiscard]] Line keysLine(int columns) const;
  void addTable(Picture& picture, Size size, Time now);
  /// Adds lines of text from the one on that was scrolled to.
  void addText(Picture& picture, Size size, std::vector<Line> text);
  [[nodiscard]] std::vector<Line> detailLines(int columns, Time now) const;

  const std::string server_;
  Rows rows_;
  bool everReached_ = false;
  std::optional<std::string> failure_;  // why the server is not reached now
  Time failingSince_;                   // if there is one; before the first sight, the begin
  Mode mode_ = Mode::table;
  bool ended_ = false;
  Column by_ = Column::name;
  bool reversed_ = false;
  std::string filter_;
  bool stale_ = true;              // `shown_` must be made anew
  std::vector<const Row*> shown_;  // pointers into `rows_`
  // The selection stays with its row when others come or the order changes. In the first place it
  // stays in that place.
  std::string selected_;      // the name of the selected row
  std::size_t place_ = 0;     // its index in `shown_`
  std::size_t top_ = 0;       // the index of the first row on the screen
  std::size_t scrolled_ = 0;  // lines above the screen, of a text
  std::size_t bodyRows_ = 1;  // of the last picture
};

}  // namespace sorvctl::top
