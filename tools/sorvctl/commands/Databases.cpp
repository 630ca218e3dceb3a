#include <CLI/CLI.hpp>
#include <memory>
#include <nlohmann/json.hpp>

#include "sorvctl/Arguments.h"
#include "sorvctl/Command.h"
#include "sorvctl/DatabaseList.h"
#include "sorvctl/Failure.h"
#include "sorvctl/Output.h"
#include "sorvctl/Session.h"

namespace sorvctl {

using sorvane::Message;

namespace {

int list(Session& session) {
  std::vector<Column> columns{{"name"},  {"number"},          {"host"}, {"address"}, {"type"},
                              {"state"}, {"alert", Tone::bad}};
  const bool json = session.json();
  if (json) {
    columns.push_back({"left"});
  }
  std::vector<std::vector<nlohmann::ordered_json>> rows;
  for (const Database& each : readDatabases(session)) {
    const Port& port = each.port;
    auto& row = rows.emplace_back(std::vector<nlohmann::ordered_json>{
        port.name, port.number, port.host, port.address, port.type,
        json ? each.state : each.shownState(), each.alert});
    if (json) {
      row.emplace_back(each.left);
    }
  }
  printTable(session, columns, rows);
  return 0;
}

/// Prints one text of each database, without those whose text is empty.
int texts(Session& session, const char* what, std::string Database::*text) {
  std::vector<std::vector<nlohmann::ordered_json>> rows;
  for (const Database& each : readDatabases(session)) {
    if (!(each.*text).empty()) {
      rows.push_back({each.port.name, each.*text});
    }
  }
  printTable(session, {{"name"}, {what}}, rows, Headings::leftOut);
  return 0;
}

/// Sets a state or an alert. For a name that is not registered the server stores nothing and yet
/// replies "success", so the name is looked up afterwards.
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
  addDatabaseName(command, arguments->name);
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
