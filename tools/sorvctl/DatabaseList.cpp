#include "sorvctl/DatabaseList.h"

#include <algorithm>
#include <optional>
#include <unordered_map>

#include "sorvctl/Failure.h"

namespace sorvctl {

using sorvane::Message;

namespace {

// Names with more ":" in them than this are shown by their first part.
constexpr std::size_t kMostReadings = 8;

std::vector<std::string_view> split(std::string_view list) {
  std::vector<std::string_view> parts;
  while (!list.empty()) {
    const std::size_t end = std::min(list.find('|'), list.size());
    parts.push_back(list.substr(0, end));
    list.remove_prefix(std::min(end + 1, list.size()));
  }
  return parts;
}

/// One way to read a part of the list: where its name ends, and whether the part without ":" before
/// it is the beginning of the name.
struct Reading {
  std::string name;
  std::size_t textBegin;  // in the part
  bool joined;
};

/// The ways to read a part, the likeliest first.
std::vector<Reading> readingsOf(std::string_view part, const std::string& before) {
  std::vector<Reading> readings;
  for (const bool joined : {false, true}) {
    if (joined && before.empty()) {
      continue;
    }
    std::size_t colon = part.find(':');
    for (std::size_t count = 0; colon != std::string_view::npos && count < kMostReadings; ++count) {
      std::string name(part.substr(0, colon));
      readings.push_back({joined ? before + "|" + name : name, colon + 1, joined});
      colon = part.find(':', colon + 1);
    }
  }
  return readings;
}

/// A part of the state list with the ways to read it.
struct Part {
  std::string_view text;
  std::string before;  // the parts without ":" that stand before it
  std::vector<Reading> readings;
};

std::vector<Part> partsOf(std::string_view list, std::string& rest) {
  std::vector<Part> parts;
  for (const std::string_view text : split(list)) {
    if (text.find(':') == std::string_view::npos) {
      rest += rest.empty() ? std::string(text) : "|" + std::string(text);
      continue;
    }
    parts.push_back({text, rest, readingsOf(text, rest)});
    rest.clear();
  }
  return parts;
}

/// What stands between two entries belongs to the state before it, where there is one.
void addLoosePart(std::vector<Database>& databases, const std::string& loose) {
  if (loose.empty()) {
    return;
  }
  if (databases.empty()) {
    databases.push_back({Port{loose, {}, {}, {}, {}}, {}, {}});
  } else {
    databases.back().state += "|" + loose;
  }
}

void askForPorts(Session& session, const std::vector<Part>& parts) {
  for (const Part& part : parts) {
    for (const Reading& reading : part.readings) {
      session.send(findRequest(session, reading.name));
    }
  }
}

/// The database of a part, from the first of its readings that the server knows.
Database databaseOf(Session& session, const Part& part, bool& joined) {
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

/// Where in `databases` that one is whose name, and a ":", begin the text; and how long that name
/// is.
struct NamedPlace {
  std::size_t place;
  std::size_t nameLength;
};

class Names {
 public:
  explicit Names(const std::vector<Database>& databases) {
    for (std::size_t index = 0; index < databases.size(); ++index) {
      places_.emplace(databases[index].port.name, index);
    }
  }

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

/// An alert goes on until a "|" behind which a known name stands.
void addAlerts(std::vector<Database>& databases, std::string_view alerts) {
  const Names names(databases);
  std::optional<NamedPlace> named = names.atBeginOf(alerts);
  while (!alerts.empty()) {
    std::size_t end = alerts.find('|');
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
  std::string rest;
  const std::vector<Part> parts = partsOf(*states, rest);
  askForPorts(session, parts);
  std::vector<Database> databases;
  for (const Part& part : parts) {
    bool joined = false;
    Database database = databaseOf(session, part, joined);
    if (!joined) {
      addLoosePart(databases, part.before);
    }
    databases.push_back(std::move(database));
  }
  addLoosePart(databases, rest);
  addAlerts(databases, textOf(lists, "alerts"));
  return databases;
}

}  // namespace sorvctl
