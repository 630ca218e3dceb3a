#include "sorvctl/OlderLists.h"

#include <algorithm>
#include <optional>
#include <unordered_map>
#include <utility>

#include "sorvctl/Failure.h"
#include "sorvctl/Progress.h"

namespace sorvctl {

using sorvane::Message;

namespace {

// The most ":" of one part at which a name is taken to end.
constexpr std::size_t kMostReadings = 8;
// The most parts without ":" that are taken to be the beginning of a name.
constexpr std::size_t kMostJoined = 4;
// A longer text is taken for no name: few servers accept a request with it.
constexpr std::size_t kLongestName = std::size_t{1} << 20;
// How many requests wait for their replies, and the bytes of the names in them.
constexpr std::size_t kMostAsked = 1024;
constexpr std::size_t kMostBytesAsked = std::size_t{1} << 20;

std::vector<std::string_view> split(std::string_view list, std::size_t most) {
  std::vector<std::string_view> parts;
  while (!list.empty()) {
    if (parts.size() == most) {
      throw Failure(Status::saidNo,
                    "the server lists more than " + std::to_string(most) + " databases");
    }
    const std::size_t end = std::min(list.find('|'), list.size());
    parts.push_back(list.substr(0, end));
    list.remove_prefix(std::min(end + 1, list.size()));
  }
  return parts;
}

/// One way to read a part of the list of states.
struct Reading {
  std::string name;
  std::size_t textBegin;  // where the text begins in the part
  std::size_t joined;     // how many of the loose parts before it belong to the name
};

/// A part of the state list that holds a ":".
struct Part {
  std::string_view text;
  std::vector<std::string_view> loose;  // the parts without ":" that stand before it
};

void addReadings(std::vector<Reading>& readings, std::string_view text, const std::string& begin,
                 std::size_t joined) {
  std::size_t colon = text.find(':');
  for (std::size_t count = 0; colon != std::string_view::npos && count < kMostReadings &&
                              begin.size() + colon <= kLongestName;
       ++count) {
    readings.push_back({begin + std::string(text.substr(0, colon)), colon + 1, joined});
    colon = text.find(':', colon + 1);
  }
}

/// The ways to read a part, the likeliest first. None when its name would be too long.
std::vector<Reading> readingsOf(const Part& part) {
  std::vector<Reading> readings;
  std::string begin;
  addReadings(readings, part.text, begin, 0);
  for (std::size_t joined = 1; joined <= std::min(part.loose.size(), kMostJoined); ++joined) {
    const std::string_view before = part.loose[part.loose.size() - joined];
    if (before.size() + begin.size() > kLongestName) {
      break;
    }
    begin.insert(0, std::string(before) + "|");
    addReadings(readings, part.text, begin, joined);
  }
  return readings;
}

/// Splits the list into its parts. `rest` gets the parts without ":" at the end of the list.
std::vector<Part> partsOf(std::string_view list, std::size_t most,
                          std::vector<std::string_view>& rest) {
  std::vector<Part> parts;
  for (const std::string_view text : split(list, most)) {
    if (text.find(':') == std::string_view::npos) {
      rest.push_back(text);
    } else {
      parts.push_back({text, std::exchange(rest, {})});
    }
  }
  return parts;
}

/// Adds the first `count` loose parts to the state before them. If there is none, the first
/// becomes a name.
void addLooseParts(std::vector<Database>& databases, const std::vector<std::string_view>& loose,
                   std::size_t count) {
  for (std::size_t index = 0; index < count; ++index) {
    if (databases.empty()) {
      databases.push_back({Port{std::string(loose[index]), {}, {}, {}, {}}, {}, {}});
    } else {
      databases.back().state += "|" + std::string(loose[index]);
    }
  }
}

/// Sends the requests for the parts from `next` on, as many as may wait for their replies, and at
/// least one part's. Returns the readings of those parts, and moves `next` behind them.
std::vector<std::vector<Reading>> askForPorts(Session& session, const std::vector<Part>& parts,
                                              std::size_t& next) {
  std::vector<std::vector<Reading>> asked;
  std::size_t requests = 0;
  std::size_t bytes = 0;
  for (; next < parts.size() && requests < kMostAsked && bytes < kMostBytesAsked; ++next) {
    for (const Reading& reading : asked.emplace_back(readingsOf(parts[next]))) {
      session.send(findRequest(session, reading.name));
      ++requests;
      bytes += reading.name.size();
    }
  }
  return asked;
}

/// The database of a part. Receives the replies for all readings of the part, and takes the first
/// reading that the server knows.
Database databaseOf(Session& session, const Part& part, const std::vector<Reading>& readings,
                    std::size_t& joined) {
  std::optional<Database> found;
  for (const Reading& reading : readings) {
    const std::optional<Message> reply = session.receive();
    const std::optional<Port> port = reply ? portOfReply(*reply) : std::nullopt;
    if (port && !found) {
      found = Database{*port, std::string(part.text.substr(reading.textBegin)), {}};
      joined = reading.joined;
    }
  }
  if (!found) {
    const std::size_t colon = part.text.find(':');
    found = Database{Port{std::string(part.text.substr(0, colon)), {}, {}, {}, {}},
                     std::string(part.text.substr(colon + 1)),
                     {}};
  }
  return *found;
}

/// A known name at the beginning of a text.
struct NamedPlace {
  std::size_t place;  // the index of its database
  std::size_t nameLength;
};

/// The names of databases, to find them at the beginning of a text.
class Names {
 public:
  explicit Names(const std::vector<Database>& databases) {
    for (std::size_t index = 0; index < databases.size(); ++index) {
      const std::string& name = databases[index].port.name;
      places_.emplace(name, index);
      longest_ = std::max(longest_, name.size());
    }
  }

  /// The known name that stands in front of a ":" at the beginning of the text.
  [[nodiscard]] std::optional<NamedPlace> atBeginOf(std::string_view text) const {
    text = text.substr(0, std::min(text.size(), longest_ + 1));
    std::size_t colon = text.find(':');
    for (std::size_t count = 0; colon != std::string_view::npos && count < kMostReadings; ++count) {
      const auto place = places_.find(std::string(text.substr(0, colon)));
      if (place != places_.end()) {
        return NamedPlace{place->second, colon};
      }
      colon = text.find(':', colon + 1);
    }
    return std::nullopt;
  }

 private:
  std::unordered_map<std::string, std::size_t> places_;
  std::size_t longest_ = 0;  // of the names: what is longer need not be looked up
};

/// Adds the alerts. An alert ends at a "|" that is followed by a known name.
void addAlerts(std::vector<Database>& databases, std::string_view alerts) {
  const Names names(databases);
  std::optional<NamedPlace> named = names.atBeginOf(alerts);
  while (!alerts.empty()) {
    std::size_t end = alerts.find('|', named ? named->nameLength : 0);
    std::optional<NamedPlace> next;
    while (end != std::string_view::npos && !(next = names.atBeginOf(alerts.substr(end + 1)))) {
      end = alerts.find('|', end + 1);
    }
    const std::string_view part = alerts.substr(0, end);
    if (named) {
      databases[named->place].alert = part.substr(named->nameLength + 1);
    } else {
      databases.push_back({{}, {}, std::string(part)});
    }
    named = next;
    alerts.remove_prefix(std::min(end, alerts.size() - 1) + 1);
  }
}

}  // namespace

std::vector<Database> readOlderLists(Session& session, std::size_t most) {
  const Message lists = session.askForDictionary(action("databaseStates"));
  const auto states = lists.text("result");
  if (!states) {
    throw Failure(Status::saidNo, "the server's reply holds no result");
  }
  std::vector<std::string_view> rest;
  const std::vector<Part> parts = partsOf(*states, most, rest);
  const Progress progress("asking about " + std::to_string(parts.size()) + " databases");
  std::vector<Database> databases;
  for (std::size_t next = 0; next < parts.size();) {
    std::size_t index = next;
    for (const std::vector<Reading>& readings : askForPorts(session, parts, next)) {
      const Part& part = parts[index++];
      std::size_t joined = 0;
      Database database = databaseOf(session, part, readings, joined);
      addLooseParts(databases, part.loose, part.loose.size() - joined);
      databases.push_back(std::move(database));
    }
  }
  addLooseParts(databases, rest, rest.size());
  addAlerts(databases, textOf(lists, "alerts"));
  return databases;
}

}  // namespace sorvctl
