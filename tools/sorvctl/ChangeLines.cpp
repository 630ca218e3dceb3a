#include "sorvctl/ChangeLines.h"

#include <nlohmann/json.hpp>
#include <utility>

#include "sorvctl/Output.h"

namespace sorvctl {

using nlohmann::ordered_json;

namespace {

/// A line, in both of its forms.
struct Line {
  ordered_json json;
  std::string text;
};

/// The beginning of a line. A line about one of several name servers begins with that.
Line begun(const std::string& server, const char* change) {
  Line line{ordered_json::object(), server.empty() ? "" : server + ": "};
  if (!server.empty()) {
    line.json["server"] = server;
  }
  line.json["change"] = change;
  line.text += change;
  return line;
}

Line begun(const std::string& server, const char* change, const std::string& name) {
  Line line = begun(server, change);
  line.json["name"] = name;
  line.text += " " + name;
  return line;
}

void add(Line& line, const char* name, const std::string& value) {
  line.json[name] = value;
  line.text += std::string(" ") + name + "=" + value;
}

void addLeft(Line& line, const Database& database) {
  line.json["left"] = database.left;
  line.text += database.left ? " left=yes" : " left=no";
}

Line came(const std::string& server, const Database& database) {
  Line line = begun(server, "came", database.port.name);
  for (const DatabaseField& field : kDatabaseFields) {
    const std::string& value = field.of(database);
    line.json[field.name] = value;
    if (!value.empty()) {
      add(line, field.name, value);
    }
  }
  if (database.left) {
    addLeft(line, database);
  } else {
    line.json["left"] = false;
  }
  return line;
}

Line changed(const std::string& server, const Database& before, const Database& after) {
  Line line = begun(server, "changed", after.port.name);
  for (const DatabaseField& field : kDatabaseFields) {
    if (field.of(after) != field.of(before)) {
      add(line, field.name, field.of(after));
    }
  }
  if (after.left != before.left) {
    addLeft(line, after);
  }
  return line;
}

bool isTold(const Database& before, const Database& after) {
  for (const DatabaseField& field : kDatabaseFields) {
    if (field.of(after) != field.of(before)) {
      return true;
    }
  }
  return before.left != after.left;
}

}  // namespace

DatabasesByName byName(std::vector<Database> databases) {
  DatabasesByName all;
  for (Database& each : databases) {
    std::string name = each.port.name;
    all.emplace(std::move(name), std::move(each));
  }
  return all;
}

void printChanges(const Session& session, const std::string& server, const DatabasesByName& before,
                  const DatabasesByName& after, std::size_t most) {
  std::size_t count = 0;
  const auto print = [&](auto makeLine) {
    if (count++ < most) {
      const Line line = makeLine();
      printLine(session, line.json, line.text);
    }
  };
  for (const auto& [name, database] : before) {
    if (!after.contains(name)) {
      print([&gone = name, &server] { return begun(server, "went", gone); });
    }
  }
  for (const auto& [name, database] : after) {
    const auto known = before.find(name);
    if (known == before.end()) {
      print([&now = database, &server] { return came(server, now); });
    } else if (isTold(known->second, database)) {
      print(
          [&now = database, &then = known->second, &server] { return changed(server, then, now); });
    }
  }
  if (count > most) {
    Line line = begun(server, "more");
    line.json["count"] = count - most;
    line.text += " " + std::to_string(count - most);
    printLine(session, line.json, line.text);
  }
}

void printServerChange(const Session& session, const std::string& server, const char* change,
                       const std::string& reason) {
  Line line = begun(server, change);
  if (!reason.empty()) {
    line.json["reason"] = reason;
    line.text += ": " + reason;
  }
  printLine(session, line.json, line.text);
}

}  // namespace sorvctl
