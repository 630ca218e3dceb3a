#include "sorvctl/DatabaseList.h"

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

std::vector<std::string_view> split(std::string_view list) {
  std::vector<std::string_view> parts;
  while (!list.empty()) {
    const std::size_t end = std::min(list.find('|'), list.size());
    parts.push_back(list.substr(0, end));
    list.remove_prefix(std::min(end + 1, list.size()));
  }
  return parts;
}

/// One way to read a part of the list.
struct Reading {
  std::string name;
  std::size_t textBegin;  // where the text begins in the part
  std::size_t joined;     // how many of the loose parts before it belong to the name
};

/// A part of the state list that holds a ":", with the ways to read it, the likeliest first.
struct Part {
  std::string_view text;
  std::vector<std::string_view> loose;  // the parts without ":" that stand before it
  std::vector<Reading> readings;
};

void addReadings(Part& part, const std::string& begin, std::size_t joined) {
  std::size_t colon = part.text.find(':');
  for (std::size_t count = 0; colon != std::string_view::npos && count < kMostReadings; ++count) {
    part.readings.push_back({begin + std::string(part.text.substr(0, colon)), colon + 1, joined});
    colon = part.text.find(':', colon + 1);
  }
}

Part partOf(std::string_view text, std::vector<std::string_view> loose) {
  Part part{text, std::move(loose), {}};
  std::string begin;
  addReadings(part, begin, 0);
  for (std::size_t joined = 1; joined <= std::min(part.loose.size(), kMostJoined); ++joined) {
    begin.insert(0, std::string(part.loose[part.loose.size() - joined]) + "|");
    addReadings(part, begin, joined);
  }
  return part;
}

/// Splits the list into its parts. `rest` gets the parts without ":" at the end of the list.
std::vector<Part> partsOf(std::string_view list, std::vector<std::string_view>& rest) {
  std::vector<Part> parts;
  for (const std::string_view text : split(list)) {
    if (text.find(':') == std::string_view::npos) {
      rest.push_back(text);
    } else {
      parts.push_back(partOf(text, std::exchange(rest, {})));
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

void askForPorts(Session& session, const std::vector<Part>& parts) {
  for (const Part& part : parts) {
    for (const Reading& reading : part.readings) {
      session.send(findRequest(session, reading.name));
    }
  }
}

/// The database of a part. Receives the replies for all readings of the part, and takes the first
/// reading that the server knows.
Database databaseOf(Session& session, const Part& part, std::size_t& joined) {
  std::optional<Database> found;
  for (const Reading& reading : part.readings) {
    const std::optional<Message> reply = session.receive();
    const std::optional<Port> port = reply ? portOfReply(*reply) : std::nullopt;
    if (port && !found) {
      found = Database{*port, std::string(part.text.substr(reading.textBegin)), {}};
      joined = reading.joined;
    }
  }
  if (!found) {
    const Reading& shown = part.readings.front();
    found = Database{
        Port{shown.name, {}, {}, {}, {}}, std::string(part.text.substr(shown.textBegin)), {}};
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
      places_.emplace(databases[index].port.name, index);
    }
  }

  /// The known name that stands in front of a ":" at the beginning of the text.
  [[nodiscard]] std::optional<NamedPlace> atBeginOf(std::string_view text) const {
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

std::vector<Database> readDatabases(Session& session) {
  const Message lists = session.askForDictionary(action("databaseStates"));
  const auto states = lists.text("result");
  if (!states) {
    throw Failure(Status::saidNo, "the server's reply holds no result");
  }
  std::vector<std::string_view> rest;
  const std::vector<Part> parts = partsOf(*states, rest);
  const Progress progress("asking about " + std::to_string(parts.size()) + " databases");
  askForPorts(session, parts);
  std::vector<Database> databases;
  for (const Part& part : parts) {
    std::size_t joined = 0;
    Database database = databaseOf(session, part, joined);
    addLooseParts(databases, part.loose, part.loose.size() - joined);
    databases.push_back(std::move(database));
  }
  addLooseParts(databases, rest, rest.size());
  addAlerts(databases, textOf(lists, "alerts"));
  return databases;
}

}  // namespace sorvctl
