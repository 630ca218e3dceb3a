#include "sorvctl/top/Board.h"

#include <algorithm>
#include <array>
#include <utility>

#include "platform/Utf8.h"
#include "sorvctl/AgeText.h"
#include "sorvctl/TerminalText.h"
#include "sorvctl/top/Fitted.h"
#include "sorvctl/top/Layout.h"

namespace sorvctl::top {

namespace {

constexpr int kRowsAroundBody = 4;  // title, status and headings above, keys below
constexpr std::size_t kMostLinesOfValue = 8;
constexpr std::size_t kMostChangesShown = 100;
constexpr std::chrono::seconds kRecent{10};

constexpr std::array<const char*, kColumns> kColumnNames{"name", "state", "alert", "age",
                                                         "last change"};

constexpr const char* kHelp[] = {
    "up, down, page up, page down, home, end   select a row (also k, j, g, G)",
    "enter   show all that is known of it, and what has changed",
    "s       order by the next column: name, state, alert, age, last change",
    "r       reverse the order",
    "/       show only rows that hold a text; enter keeps it, escape drops it",
    "escape  back to the table; in the table: show all rows",
    "q       quit",
    "",
    "AGE is the time since the last change. \">\" stands before it when nothing has",
    "changed since this view began. A database that is gone is shown for 10 minutes.",
    "The state \"left\" is that of a name that stayed after its connection had closed.",
};

std::chrono::seconds ageOf(Time then, Time now) {
  return std::chrono::floor<std::chrono::seconds>(now - then);
}

std::string ageOfRow(const Row& row, Time now) {
  return (row.lastChange.empty() ? ">" : "") + ageText(ageOf(row.since, now));
}

std::size_t asCount(int number) { return static_cast<std::size_t>(std::max(number, 0)); }

Line lineOf(const std::string& text, int columns, Tone tone = Tone::plain) {
  return {{{0, columns, fitted(text, asCount(columns)), tone}}, false};
}

std::string counted(std::size_t count, const char* what) {
  return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

std::string textOf(const Row& row, Field field, Time now) {
  const Database& database = row.database;
  switch (field) {
    case Field::name:
      return database.port.name;
    case Field::state:
      return row.gone ? "gone" : database.shownState();
    case Field::alert:
      return database.alert;
    case Field::age:
      return ageOfRow(row, now);
    case Field::change:
      return row.lastChange;
    case Field::number:
      return database.port.number;
    case Field::host:
      return database.port.host;
    case Field::type:
      return database.port.type;
  }
  return "";
}

Tone toneOf(const Row& row, Field field, Time now) {
  if (row.gone) {
    return Tone::faint;
  }
  switch (field) {
    case Field::state:
      return row.database.shownState() == "running" ? Tone::good : Tone::doubtful;
    case Field::alert:
      return Tone::bad;
    case Field::change:
      return ageOf(row.since, now) < kRecent ? Tone::heading : Tone::plain;
    default:
      return Tone::plain;
  }
}

bool standsRight(Field field) { return field == Field::age || field == Field::number; }

Span spanAt(const Place& place, std::string_view text, Tone tone) {
  Span span{place.column, place.width, fitted(text, asCount(place.width)), tone};
  if (standsRight(place.field)) {
    const int blanks = place.width - static_cast<int>(displayWidth(span.text));
    span.column += blanks;
    span.width -= blanks;
  }
  return span;
}

}  // namespace

Board::Board(std::string server, Time now) : server_(std::move(server)), failingSince_(now) {}

void Board::take(Sight sight) {
  if (!sight.reached) {
    if (!failure_) {
      failingSince_ = sight.at;
    }
    failure_ = std::move(sight.failure);
    return;
  }
  failure_.reset();
  everReached_ = true;
  rows_.take(std::move(sight.databases), sight.at);
  stale_ = true;
}

// ---- Keys

void Board::press(const Press& press) {
  arrange();
  switch (mode_) {
    case Mode::table:
      return pressInTable(press);
    case Mode::filter:
      return pressInFilter(press);
    case Mode::detail:
    case Mode::help:
      return pressInText(press);
  }
}

void Board::pressInTable(const Press& press) {
  const auto page = static_cast<long>(bodyRows_);
  const auto all = static_cast<long>(shown_.size());
  const auto is = [&press](const char* text) { return press.text == text; };
  if (press.key == Key::up || is("k")) {
    move(-1);
  } else if (press.key == Key::down || is("j")) {
    move(1);
  } else if (press.key == Key::pageUp) {
    move(-page);
  } else if (press.key == Key::pageDown) {
    move(page);
  } else if (press.key == Key::first || is("g")) {
    move(-all);
  } else if (press.key == Key::last || is("G")) {
    move(all);
  } else if (press.key == Key::enter && !shown_.empty()) {
    mode_ = Mode::detail;
    scrolled_ = 0;
  } else if (press.key == Key::escape) {
    filter_.clear();
    stale_ = true;
  } else if (is("s")) {
    by_ = static_cast<Column>((static_cast<std::size_t>(by_) + 1) % kColumns);
    stale_ = true;
  } else if (is("r")) {
    reversed_ = !reversed_;
    stale_ = true;
  } else if (is("/")) {
    mode_ = Mode::filter;
  } else if (is("?") || is("h")) {
    mode_ = Mode::help;
    scrolled_ = 0;
  } else if (is("q")) {
    ended_ = true;
  }
}

void Board::pressInFilter(const Press& press) {
  if (press.key == Key::enter) {
    mode_ = Mode::table;
  } else if (press.key == Key::escape) {
    mode_ = Mode::table;
    filter_.clear();
  } else if (press.key == Key::backspace && !filter_.empty()) {
    std::size_t last = filter_.size() - 1;
    while (last > 0 && (static_cast<unsigned char>(filter_[last]) & 0xC0U) == 0x80) {
      --last;
    }
    filter_.resize(last);
  } else if (press.key == Key::text && filter_.size() + press.text.size() <= kLongestFilter) {
    filter_ += press.text;
  }
  stale_ = true;
}

void Board::pressInText(const Press& press) {
  if (press.text == "q") {
    ended_ = true;
  } else if (press.key == Key::escape || press.key == Key::enter || press.text == "?") {
    mode_ = Mode::table;
    stale_ = true;  // the row that was shown may be gone
  } else if (press.key == Key::up || press.text == "k") {
    scrolled_ -= std::min<std::size_t>(scrolled_, 1);
  } else if (press.key == Key::down || press.text == "j") {
    ++scrolled_;  // the picture sets it back when there is nothing below
  } else if (press.key == Key::pageUp) {
    scrolled_ -= std::min(scrolled_, bodyRows_);
  } else if (press.key == Key::pageDown) {
    scrolled_ += bodyRows_;
  } else if (press.key == Key::first || press.text == "g") {
    scrolled_ = 0;
  }
}

void Board::move(long steps) {
  if (!shown_.empty()) {
    const long last = static_cast<long>(shown_.size()) - 1;
    place_ = static_cast<std::size_t>(std::clamp(static_cast<long>(place_) + steps, 0L, last));
    selected_ = shown_[place_]->database.port.name;
  }
}

void Board::arrange() {
  if (!std::exchange(stale_, false)) {
    return;
  }
  shown_ = rows_.arranged(by_, reversed_, filter_);
  const bool follows = place_ > 0 || mode_ == Mode::detail;
  const auto same = std::find_if(shown_.begin(), shown_.end(), [this](const Row* row) {
    return row->database.port.name == selected_;
  });
  if (follows && same != shown_.end()) {
    place_ = static_cast<std::size_t>(same - shown_.begin());
  }
  place_ = std::min(place_, shown_.size() - std::min<std::size_t>(shown_.size(), 1));
  if (mode_ != Mode::detail) {
    move(0);
  }
}

// ---- The picture

Picture Board::picture(Size size, Time now) {
  if (rows_.forgetGone(now)) {
    stale_ = true;
  }
  arrange();
  bodyRows_ = asCount(size.rows - kRowsAroundBody);
  Picture picture{titleLine(size.columns), statusLine(size.columns, now)};
  switch (mode_) {
    case Mode::table:
    case Mode::filter:
      addTable(picture, size, now);
      break;
    case Mode::detail:
      addText(picture, size, detailLines(size.columns, now));
      break;
    case Mode::help: {
      std::vector<Line> lines;
      for (const char* text : kHelp) {
        lines.push_back(lineOf(text, size.columns));
      }
      addText(picture, size, std::move(lines));
      break;
    }
  }
  picture.resize(std::max<std::size_t>(picture.size(), asCount(size.rows - 1)));
  picture.push_back(keysLine(size.columns));
  picture.resize(asCount(size.rows));
  return picture;
}

Line Board::titleLine(int columns) const {
  const std::string counts =
      !everReached_ ? ""
                    : counted(rows_.listed(), "database") + ", " + counted(rows_.alerts(), "alert");
  const int width = static_cast<int>(counts.size());
  // The counts stand at the right end, unless the name of the server would have no room.
  const int room = columns - width - 2;
  if (room < 10) {
    return lineOf(counts.empty() ? server_ : counts, columns, Tone::heading);
  }
  return {{{0, room, fitted(server_, asCount(room)), Tone::heading},
           {columns - width, width, counts, Tone::plain}},
          false};
}

Line Board::statusLine(int columns, Time now) const {
  if (failure_) {
    return lineOf(
        "not reached for " + ageText(ageOf(failingSince_, now)) + ", trying again: " + *failure_,
        columns, Tone::bad);
  }
  if (!everReached_) {
    return lineOf("asking", columns, Tone::faint);
  }
  std::string text = std::string("by ") + kColumnNames[static_cast<std::size_t>(by_)] +
                     (reversed_ ? ", reversed" : "");
  if (!filter_.empty()) {
    text += ", " + std::to_string(shown_.size()) + " with \"" + filter_ + "\"";
  }
  return lineOf(text, columns, Tone::faint);
}

Line Board::keysLine(int columns) const {
  switch (mode_) {
    case Mode::filter:
      return lineOf("show rows with: " + filter_, columns, Tone::heading);
    case Mode::table:
      return lineOf("? help  q quit  / filter  s order  r reverse  enter details", columns,
                    Tone::faint);
    case Mode::detail:
    case Mode::help:
      break;
  }
  return lineOf("escape back  q quit", columns, Tone::faint);
}

void Board::addTable(Picture& picture, Size size, Time now) {
  const std::vector<Place> places = layout(size.columns);
  Line& headings = picture.emplace_back();
  for (const Place& place : places) {
    headings.spans.push_back(spanAt(place, headingOf(place.field), Tone::heading));
  }
  if (place_ >= top_ + bodyRows_) {
    top_ = place_ + 1 - bodyRows_;
  }
  top_ = std::min(top_, place_);
  // No rows stay empty while there are some above.
  top_ = std::min(top_, shown_.size() - std::min(shown_.size(), bodyRows_));
  for (std::size_t index = top_; index < std::min(shown_.size(), top_ + bodyRows_); ++index) {
    const Row& row = *shown_[index];
    Line& line = picture.emplace_back();
    line.selected = index == place_;
    for (const Place& place : places) {
      line.spans.push_back(
          spanAt(place, textOf(row, place.field, now), toneOf(row, place.field, now)));
    }
  }
}

void Board::addText(Picture& picture, Size size, std::vector<Line> text) {
  const std::size_t room = asCount(size.rows - kRowsAroundBody) + 1;  // there are no headings
  scrolled_ = std::min(scrolled_, text.size() - std::min(text.size(), room));
  for (std::size_t index = scrolled_; index < std::min(text.size(), scrolled_ + room); ++index) {
    picture.push_back(std::move(text[index]));
  }
}

std::vector<Line> Board::detailLines(int columns, Time now) const {
  const Row* const row = rows_.find(selected_);
  if (row == nullptr) {
    return {lineOf("It is no longer remembered.", columns)};
  }
  constexpr int kLabel = 9;
  const int room = std::max(columns - kLabel, 0);
  std::vector<Line> lines;
  const auto add = [&](const char* label, std::string_view text, Tone tone) {
    for (const std::string& part : wrapped(text, asCount(room), kMostLinesOfValue)) {
      Line& line = lines.emplace_back(lineOf(label, std::min(kLabel, columns), Tone::faint));
      if (room > 0) {
        line.spans.push_back({kLabel, room, part, tone});
      }
      label = "";
    }
  };
  const Database& database = row->database;
  add("name", database.port.name, Tone::heading);
  add("state", textOf(*row, Field::state, now), toneOf(*row, Field::state, now));
  if (database.left && !row->gone) {
    add("", "The name stayed after its connection had closed: \"sorvctl forget\" takes it out.",
        Tone::plain);
    add("", "The state was " + database.state + ".", Tone::plain);
  }
  add("alert", database.alert, toneOf(*row, Field::alert, now));
  add("age", ageOfRow(*row, now), Tone::plain);
  add("number", database.port.number, Tone::plain);
  add("host", database.port.host, Tone::plain);
  add("type", database.port.type, Tone::plain);
  lines.emplace_back();
  const std::vector<const Change*> changes = rows_.changesOf(selected_);
  lines.push_back(lineOf(changes.empty() ? "Nothing has changed since this view began."
                                         : "What has changed, the latest first:",
                         columns));
  for (std::size_t index = 0; index < std::min(changes.size(), kMostChangesShown); ++index) {
    const Change& change = *changes[index];
    add(ageText(ageOf(change.at, now)).c_str(), change.what, Tone::plain);
  }
  return lines;
}

}  // namespace sorvctl::top
