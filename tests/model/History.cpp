#include "model/History.h"

#include <algorithm>
#include <chrono>
#include <iomanip>
#include <set>
#include <sstream>

#include "model/Difference.h"
#include "platform/TimeSource.h"

namespace sorvane::model {
namespace {

// The clock of the host may be set a little at any time.
constexpr double kClockTolerance = 0.001;  // seconds

// What the model is told for a time. Nothing depends on it: no alert lapses within a history.
constexpr double kNoTime = 0.0;

/// What remains of a strand after its operations, if it was closed. The end of a connection is no
/// single moment: other requests may come between its parts. While a connection sets the watchers
/// dirty, a change on another one leaves that to it, and may be replied to earlier.
enum End : std::size_t { beginning, losingPorts, tellingWatchers, telling, ended };

class Search {
 public:
  explicit Search(const History& history) : history_(history) {}

  Explanation run(const std::vector<Situation>& before) {
    for (const Situation& situation : before) {
      Place start{std::vector<std::size_t>(history_.size()), situation, std::nullopt};
      for (const Strand& strand : history_) {
        if (!start.situation.registry.state().records.contains(strand.connection)) {
          start.situation.registry.connects(strand.connection);
        }
      }
      add(std::move(start));
    }
    std::set<Situation> after;
    while (!todo_.empty()) {
      const Place* const place = todo_.back();
      todo_.pop_back();
      note(*place);
      if (isDone(*place)) {
        after.insert(place->situation);
      } else {
        goOn(*place);
      }
    }
    explanation_.after.assign(after.begin(), after.end());
    explanation_.furthest = furthest_->next;
    if (after.empty()) {
      explanation_.next = shownNext(*furthest_);
    }
    explanation_.tried = tried_.size();
    return explanation_;
  }

 private:
  /// How far each strand is: the operations that have taken effect, then the parts of its end.
  struct Place {
    std::vector<std::size_t> next;
    Situation situation;
    std::optional<double> dueSince;  ///< a change that the watchers have not been told of yet

    auto operator<=>(const Place&) const = default;
  };

  void add(Place place) {
    const auto [position, isNew] = tried_.insert(std::move(place));
    if (isNew) {
      todo_.push_back(&*position);
    }
  }

  [[nodiscard]] std::size_t operations(std::size_t strand) const {
    return history_[strand].operations.size();
  }
  [[nodiscard]] bool hasOperation(const Place& place, std::size_t strand) const {
    return place.next[strand] < operations(strand);
  }
  [[nodiscard]] bool isOver(const Place& place, std::size_t strand) const {
    return place.next[strand] == operations(strand) + (history_[strand].closed ? ended : beginning);
  }
  [[nodiscard]] bool isDone(const Place& place) const {
    for (std::size_t strand = 0; strand < history_.size(); ++strand) {
      if (!isOver(place, strand)) {
        return false;
      }
    }
    return !place.dueSince;
  }
  /// Another strand than this one is about to set the watchers dirty, or at it.
  [[nodiscard]] bool anotherTells(const Place& place, std::size_t self) const {
    for (std::size_t strand = 0; strand < history_.size(); ++strand) {
      const std::size_t next = place.next[strand];
      if (strand != self &&
          (next == operations(strand) + tellingWatchers || next == operations(strand) + telling)) {
        return true;
      }
    }
    return false;
  }

  void note(const Place& place) {
    const auto sum = [](const std::vector<std::size_t>& numbers) {
      std::size_t all = 0;
      for (const std::size_t number : numbers) {
        all += number;
      }
      return all;
    };
    if (furthest_ == nullptr || sum(place.next) > sum(furthest_->next)) {
      furthest_ = &place;
    }
  }

  [[nodiscard]] std::string shownNext(const Place& place) const {
    std::ostringstream text;
    text << std::setprecision(17);
    for (std::size_t strand = 0; strand < history_.size(); ++strand) {
      if (hasOperation(place, strand)) {
        RegistryModel registry = place.situation.registry;
        const Reply reply = registry.asks(history_[strand].connection,
                                          requestOf(operation(place, strand).request), kNoTime);
        text << "  to connection " << history_[strand].connection << ": " << shown(reply) << "\n";
      }
    }
    text << "  after a change at " << place.situation.time.value_or("a time that was not told")
         << ", not before " << place.situation.notBefore << "\n"
         << shown(place.situation.registry.state());
    return text.str();
  }

  void goOn(const Place& place) {
    // Whatever takes effect next was sent before the first reply of what has not taken effect.
    double firstReply = kNever;
    for (std::size_t strand = 0; strand < history_.size(); ++strand) {
      if (hasOperation(place, strand)) {
        firstReply = std::min(firstReply, operation(place, strand).replied.steady);
      }
    }
    std::vector<Place> ways;
    for (std::size_t strand = 0; strand < history_.size(); ++strand) {
      if (hasOperation(place, strand)) {
        if (operation(place, strand).sent.steady <= firstReply && carryOut(place, strand, ways)) {
          // It has changed nothing, so it cannot be wrong to take it first.
          add(std::move(ways.back()));
          return;
        }
      } else if (!isOver(place, strand) && history_[strand].closed->steady <= firstReply) {
        goOnEnding(place, strand, ways);
      }
    }
    if (place.dueSince) {
      Place told = place;
      tell(told, *std::exchange(told.dueSince, std::nullopt));
      ways.push_back(std::move(told));
    }
    for (Place& way : ways) {
      add(std::move(way));
    }
  }

  [[nodiscard]] const Operation& operation(const Place& place, std::size_t strand) const {
    return history_[strand].operations[place.next[strand]];
  }

  /// Returns true if the last way is the only one worth trying.
  bool carryOut(const Place& place, std::size_t strand, std::vector<Place>& ways) const {
    const Operation& asked = operation(place, strand);
    const bool hasReply = asked.replied.steady < kNever;
    if (!hasReply) {
      // The server has perhaps not read it, nor what followed it.
      Place unread = place;
      unread.next[strand] = operations(strand);
      ways.push_back(std::move(unread));
    }
    Place done = place;
    ++done.next[strand];
    const Reply reply = done.situation.registry.asks(history_[strand].connection,
                                                     requestOf(asked.request), kNoTime);
    if (hasReply && !explains(reply, asked, done.situation)) {
      return false;
    }
    if (reply.isChange) {
      if (anotherTells(done, strand)) {
        Place late = done;
        late.dueSince = asked.sent.ofHost;
        ways.push_back(std::move(late));
      }
      tell(done, asked.sent.ofHost);
    }
    // A change, or a request that makes or drops a cached list, may change nothing now, and
    // something later.
    const bool mayMatterLater =
        reply.isChange || reply.hasLists || reply.texts == Texts{{"result", "failed"}};
    const bool isOnlyWay = hasReply && !mayMatterLater && done.situation == place.situation;
    ways.push_back(std::move(done));
    return isOnlyWay;
  }

  void goOnEnding(const Place& place, std::size_t strand, std::vector<Place>& ways) const {
    const Strand& closing = history_[strand];
    const std::size_t part = place.next[strand] - operations(strand);
    if (part == telling && place.dueSince && !anotherTells(place, strand)) {
      return;  // it has to tell them of that, too
    }
    Place further = place;
    ++further.next[strand];
    if (part == beginning) {
      further.situation.registry.beginsToEnd(closing.connection, kNoTime);
      changes(further, closing.closed->ofHost);
    } else if (part == losingPorts) {
      further.situation.registry.losesPorts(closing.connection);
    } else if (part == tellingWatchers) {
      if (anotherTells(place, strand)) {
        Place late = further;
        late.dueSince = closing.closed->ofHost;
        ways.push_back(std::move(late));
      }
      tell(further, closing.closed->ofHost);
    }
    ways.push_back(std::move(further));
  }

  static void tell(Place& place, double notBefore) {
    place.situation.registry.tellsWatchers(kNoTime);
    changes(place, notBefore);
  }

  static void changes(Place& place, double notBefore) {
    place.situation.notBefore = notBefore;
    place.situation.time.reset();
  }

  /// Whether that is the reply that came. What it tells of the time is noted.
  static bool explains(Reply reply, const Operation& asked, Situation& situation) {
    if (reply.kind == Reply::Kind::none || reply.kind == Reply::Kind::raised) {
      return asked.kind == 0;
    }
    if (asked.kind == 0) {
      return false;
    }
    if (reply.kind == Reply::Kind::request) {
      return asked.body == bodyOf(asked.request);
    }
    if (reply.kind == Reply::Kind::notRecognised) {
      return asked.body.empty();  // the reply to what nobody recognises
    }
    const Reply real = dictionaryOf(asked.body);
    if (reply.hasTime && !real.texts.empty()) {
      const std::string told = real.texts.front().second;
      const double time = std::strtod(told.c_str(), nullptr);
      if (situation.time.value_or(told) != told || time < situation.notBefore - kClockTolerance ||
          time > asked.replied.ofHost + kClockTolerance) {
        return false;
      }
      situation.time = told;
      reply.texts.front().second = told;
    }
    return fits(reply, real);
  }

  const History& history_;
  std::set<Place> tried_;
  std::vector<const Place*> todo_;
  const Place* furthest_ = nullptr;
  Explanation explanation_;
};

}  // namespace

Moment presentMoment() {
  const auto steady = std::chrono::steady_clock::now().time_since_epoch();
  return {std::chrono::duration<double>(steady).count(), timeIntervalSinceReferenceDate()};
}

Explanation explained(const std::vector<Situation>& before, const History& history) {
  return Search(history).run(before);
}

std::string shown(const History& history) {
  double start = kNever;
  for (const Strand& strand : history) {
    for (const Operation& operation : strand.operations) {
      start = std::min(start, operation.sent.steady);
    }
  }
  const auto milliseconds = [start](double time) { return (time - start) * 1000.0; };
  std::ostringstream text;
  text << std::fixed << std::setprecision(3);
  for (const Strand& strand : history) {
    text << "connection " << strand.connection << ", times in ms:\n";
    for (const Operation& operation : strand.operations) {
      text << "  " << milliseconds(operation.sent.steady) << " "
           << shown(requestOf(operation.request));
      if (operation.replied.steady == kNever) {
        text << " and the connection is cut\n";
      } else {
        text << "\n      " << milliseconds(operation.replied.steady) << " gets "
             << (operation.kind == 0 ? "no dictionary" : shown(dictionaryOf(operation.body)))
             << "\n";
      }
    }
    if (strand.closed) {
      text << "  " << milliseconds(strand.closed->steady) << " closes\n";
    }
  }
  return text.str();
}

}  // namespace sorvane::model
