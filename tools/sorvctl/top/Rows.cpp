#include "sorvctl/top/Rows.h"

#include <algorithm>
#include <utility>

#include "platform/Ascii.h"
#include "sorvctl/TerminalText.h"

namespace sorvctl::top {

namespace {

/// What is compared of a database, the most telling first: the state and the alert.
constexpr auto kCompared = [] {
  auto fields = kDatabaseFields;
  std::rotate(fields.begin(), fields.end() - 2, fields.end());
  return fields;
}();

std::string shownText(const std::string& text) {
  return text.empty() ? "(none)" : shortened(text, Rows::kLongestText);
}

std::size_t bytesOf(const Change& change) { return change.name.size() + change.what.size(); }

std::size_t bytesOf(const Database& database) {
  const Port& port = database.port;
  return port.name.size() + port.number.size() + port.host.size() + port.address.size() +
         port.type.size() + database.state.size() + database.alert.size();
}

bool holds(const std::string& text, std::string_view part) {
  return std::search(text.begin(), text.end(), part.begin(), part.end(), [](char left, char right) {
           return sorvane::lowerCase(left) == sorvane::lowerCase(right);
         }) != text.end();
}

bool matches(const Row& row, std::string_view filter) {
  const Database& database = row.database;
  return filter.empty() || holds(database.port.name, filter) ||
         holds(database.shownState(), filter) || holds(database.alert, filter) ||
         holds(database.port.type, filter) || holds(database.port.host, filter) ||
         holds(row.lastChange, filter);
}

/// Whether one row stands before another. Rows without the text in question stand last.
bool textBefore(const std::string& left, const std::string& right) {
  return left.empty() != right.empty() ? right.empty() : left < right;
}

using Before = bool (*)(const Row* left, const Row* right);

Before orderOf(Column by) {
  switch (by) {
    case Column::state:
      return [](const Row* left, const Row* right) {
        return left->gone != right->gone
                   ? right->gone
                   : left->database.shownState() < right->database.shownState();
      };
    case Column::alert:
      return [](const Row* left, const Row* right) {
        return textBefore(left->database.alert, right->database.alert);
      };
    case Column::age:
      return [](const Row* left, const Row* right) { return left->since > right->since; };
    case Column::change:
      return [](const Row* left, const Row* right) {
        return textBefore(left->lastChange, right->lastChange);
      };
    case Column::name:
      break;
  }
  return [](const Row* left, const Row* right) {
    return left->database.port.name < right->database.port.name;
  };
}

}  // namespace

void Rows::note(Row& row, std::string what, Time now) {
  row.lastChange = std::move(what);
  row.since = now;
  changes_.push_back({row.database.port.name, row.lastChange, now});
  bytesOfChanges_ += bytesOf(changes_.back());
  while (changes_.size() > kMostChanges || bytesOfChanges_ > kMostBytesOfChanges) {
    bytesOfChanges_ -= bytesOf(changes_.front());
    changes_.pop_front();
  }
}

void Rows::compare(Row& row, Database now, Time time) {
  std::string what;
  if (row.database.left != now.left) {
    what = now.left ? "left behind" : "registered again";
  }
  for (const DatabaseField& field : kCompared) {
    const std::string& before = field.of(row.database);
    const std::string& after = field.of(now);
    if (before != after) {
      what += (what.empty() ? "" : ", ") + std::string(field.name) + ": " + shownText(before) +
              " -> " + shownText(after);
    }
  }
  row.database = std::move(now);
  if (row.gone) {
    row.gone = false;
    what = what.empty() ? "came back" : "came back, " + what;
  }
  if (!what.empty()) {
    note(row, std::move(what), time);
  }
}

void Rows::take(std::vector<Database> databases, Time now) {
  const bool first = reading_++ == 0;
  for (Database& database : databases) {
    const auto [place, isNew] = rows_.try_emplace(database.port.name);
    Kept& kept = place->second;
    if (kept.reading == reading_) {
      continue;
    }
    kept.reading = reading_;
    if (!isNew) {
      compare(kept, std::move(database), now);
      continue;
    }
    kept.database = std::move(database);
    kept.since = now;
    if (!first) {
      note(kept, "came", now);
    }
  }
  std::erase_if(gone_, [this](const std::string& name) { return !rows_.at(name).gone; });
  for (auto& [name, kept] : rows_) {
    if (kept.reading != reading_ && !kept.gone) {
      kept.gone = true;
      gone_.push_back(name);
      note(kept, "gone", now);
    }
  }
  forgetGone(now);
}

bool Rows::forgetGone(Time now) {
  std::size_t bytes = 0;
  for (const std::string& name : gone_) {
    bytes += bytesOf(rows_.at(name).database);
  }
  bool any = false;
  while (!gone_.empty()) {
    const Kept& first = rows_.at(gone_.front());
    if (gone_.size() <= kMostGone && bytes <= kMostBytesOfGone &&
        now - first.since <= kGoneAreShown) {
      break;
    }
    bytes -= bytesOf(first.database);
    rows_.erase(gone_.front());
    gone_.pop_front();
    any = true;
  }
  return any;
}

const Row* Rows::find(const std::string& name) const {
  const auto place = rows_.find(name);
  return place == rows_.end() ? nullptr : &place->second;
}

std::size_t Rows::alerts() const {
  return static_cast<std::size_t>(std::count_if(rows_.begin(), rows_.end(), [](const auto& each) {
    return !each.second.gone && !each.second.database.alert.empty();
  }));
}

std::vector<const Row*> Rows::arranged(Column by, bool reversed, std::string_view filter) const {
  std::vector<const Row*> rows;
  rows.reserve(rows_.size());
  for (const auto& [name, kept] : rows_) {
    if (matches(kept, filter)) {
      rows.push_back(&kept);
    }
  }
  const Before before = orderOf(by);
  std::stable_sort(rows.begin(), rows.end(), [&](const Row* left, const Row* right) {
    return reversed ? before(right, left) : before(left, right);
  });
  return rows;
}

std::vector<const Change*> Rows::changesOf(const std::string& name) const {
  std::vector<const Change*> changes;
  for (auto change = changes_.rbegin(); change != changes_.rend(); ++change) {
    if (change->name == name) {
      changes.push_back(&*change);
    }
  }
  return changes;
}

}  // namespace sorvctl::top
