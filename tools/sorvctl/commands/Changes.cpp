#include <signal.h>

#include <CLI/CLI.hpp>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>

#include "sorvctl/Command.h"
#include "sorvctl/DatabaseList.h"
#include "sorvctl/Output.h"
#include "sorvctl/Session.h"
#include "sorvctl/StopSignals.h"

namespace sorvctl {

using sorvane::Message;

namespace {

using Databases = std::map<std::string, Database>;

/// What is told of a database, in the order of a line.
struct Field {
  const char* name;
  std::string (*of)(const Database& database);
};

constexpr Field kFields[] = {
    {"number", [](const Database& database) { return database.port.number; }},
    {"host", [](const Database& database) { return database.port.host; }},
    {"type", [](const Database& database) { return database.port.type; }},
    {"state", [](const Database& database) { return database.state; }},
    {"alert", [](const Database& database) { return database.alert; }},
};

Databases snapshot(Session& session) {
  Databases databases;
  for (Database& each : readDatabases(session)) {
    std::string name = each.port.name;
    databases.emplace(std::move(name), std::move(each));
  }
  return databases;
}

void tell(const Session& session, const char* change, const std::string& name,
          const nlohmann::ordered_json& fields, const std::string& text) {
  nlohmann::ordered_json line{{"change", change}, {"name", name}};
  line.update(fields);
  printLine(session, line, std::string(change) + " " + name + text);
}

void tellCame(const Session& session, const Database& database) {
  nlohmann::ordered_json fields = nlohmann::ordered_json::object();
  std::string text;
  for (const Field& field : kFields) {
    const std::string value = field.of(database);
    fields[field.name] = value;
    text += value.empty() ? "" : std::string(" ") + field.name + "=" + value;
  }
  tell(session, "came", database.port.name, fields, text);
}

void tellChanged(const Session& session, const Database& before, const Database& after) {
  nlohmann::ordered_json fields = nlohmann::ordered_json::object();
  std::string text;
  for (const Field& field : kFields) {
    const std::string value = field.of(after);
    if (value != field.of(before)) {
      fields[field.name] = value;
      text += std::string(" ") + field.name + "=" + value;
    }
  }
  if (!text.empty()) {
    tell(session, "changed", after.port.name, fields, text);
  }
}

void tellChanges(const Session& session, const Databases& before, const Databases& after) {
  for (const auto& [name, database] : before) {
    if (!after.contains(name)) {
      tell(session, "went", name, nlohmann::ordered_json::object(), "");
    }
  }
  for (const auto& [name, database] : after) {
    const auto known = before.find(name);
    if (known == before.end()) {
      tellCame(session, database);
    } else {
      tellChanged(session, known->second, database);
    }
  }
}

/// Prints a line for each change until a signal. The databases of the start are told as new ones.
int watch(Session& session, std::chrono::milliseconds interval) {
  StopSignals signals;
  Databases known;
  while (true) {
    if (session.askForResult(action("didPortsChange")) == "YES") {
      Databases now = snapshot(session);
      tellChanges(session, known, now);
      known = std::move(now);
    }
    const std::optional<Signal> signal = signals.wait(interval);
    if (signal && signal->number != SIGCHLD) {
      return 0;
    }
  }
}

int refresh(Session& session, bool force) {
  Message request = action("needsRefresh");
  if (force) {
    request.setText("force", "YES");
  }
  session.askForSuccess(request, "success");
  return 0;
}

Handler declareWatch(CLI::App& command) {
  auto seconds = std::make_shared<double>(1);
  command.add_option("--interval", *seconds, "Seconds between two polls (default: 1)")
      ->check(CLI::Range(0.01, 86400.0));
  return [seconds](Session& session) {
    return watch(session, std::chrono::milliseconds(static_cast<long long>(*seconds * 1000)));
  };
}

Handler declareRefresh(CLI::App& command) {
  auto force = std::make_shared<bool>(false);
  command.add_flag("--force", *force, "Tell all who watch to reload everything");
  return [force](Session& session) { return refresh(session, *force); };
}

}  // namespace

std::vector<Command> commands::changes() {
  return {
      {"watch", "Print a line for each change of the databases", "sorvctl watch --interval 5",
       &declareWatch},
      {"refresh", "Mark the registry as changed for all who watch it", "sorvctl refresh --force",
       &declareRefresh},
  };
}

}  // namespace sorvctl
