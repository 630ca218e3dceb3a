#include <CLI/CLI.hpp>
#include <memory>
#include <nlohmann/json.hpp>

#include "sorvctl/Command.h"
#include "sorvctl/DatabaseList.h"
#include "sorvctl/Failure.h"
#include "sorvctl/Output.h"
#include "sorvctl/Session.h"

namespace sorvctl {

using sorvane::Message;

namespace {

int list(Session& session) {
  const std::vector<Database> databases = readDatabases(session);
  if (session.json()) {
    auto array = nlohmann::ordered_json::array();
    for (const Database& each : databases) {
      array.push_back({{"name", each.port.name},
                       {"number", each.port.number},
                       {"host", each.port.host},
                       {"address", each.port.address},
                       {"type", each.port.type},
                       {"state", each.state},
                       {"alert", each.alert}});
    }
    printJson(array);
    return 0;
  }
  Table table({"NAME", "NUMBER", "HOST", "ADDRESS", "TYPE", "STATE", "ALERT"});
  for (const Database& each : databases) {
    table.row({each.port.name, each.port.number, each.port.host, each.port.address, each.port.type,
               each.state, each.alert});
  }
  print(table.text());
  return 0;
}

/// Prints one text of each database that has one.
int texts(Session& session, const char* what, std::string Database::*text) {
  auto array = nlohmann::ordered_json::array();
  std::vector<std::pair<std::string, std::string>> lines;
  for (const Database& each : readDatabases(session)) {
    if (!(each.*text).empty()) {
      array.push_back({{"name", each.port.name}, {what, each.*text}});
      lines.emplace_back(each.port.name, each.*text);
    }
  }
  if (session.json()) {
    printJson(array);
  } else {
    print(pairLines(lines));
  }
  return 0;
}

/// The server stores nothing for a name that is not registered, and says success all the same.
int set(Session& session, const char* action, const std::string& name, const std::string& text) {
  session.askForSuccess({{"action", action}, {"databaseName", name}, {"state", text}}, "success");
  if (!portOfReply(session.askForDictionary(findRequest(session, name)))) {
    throw Failure(Status::saidNo, "nothing was stored: no port is registered as \"" + name + "\"");
  }
  return 0;
}

Handler declareSet(CLI::App& command, const char* action, const char* what, const char* help) {
  struct Arguments {
    std::string name;
    std::string text;
  };
  auto arguments = std::make_shared<Arguments>();
  command.add_option("NAME", arguments->name, "Name of the database")->required();
  command.add_option(what, arguments->text, help)->required();
  return [arguments, action](Session& session) {
    return set(session, action, arguments->name, arguments->text);
  };
}

Handler declareList(CLI::App& /*command*/) { return &list; }

Handler declareStates(CLI::App& /*command*/) {
  return [](Session& session) { return texts(session, "state", &Database::state); };
}

Handler declareAlerts(CLI::App& /*command*/) {
  return [](Session& session) { return texts(session, "alert", &Database::alert); };
}

Handler declareSetState(CLI::App& command) {
  return declareSet(command, "setDatabaseState", "STATE", "Its new state");
}

Handler declareSetAlert(CLI::App& command) {
  return declareSet(command, "setAlertState", "TEXT", "Text of the alert; it lapses after an hour");
}

}  // namespace

std::vector<Command> commands::databases() {
  return {
      {"list", "List the databases with what is known of each", "sorvctl list", &declareList},
      {"states", "List the state of each database", "sorvctl states", &declareStates},
      {"alerts", "List the alerts of the last hour", "sorvctl --json alerts", &declareAlerts},
      {"set-state", "Set the state of a database", "sorvctl set-state db1 stopping",
       &declareSetState},
      {"set-alert", "Raise an alert for a database", "sorvctl set-alert db1 'disk full'",
       &declareSetAlert},
  };
}

}  // namespace sorvctl
