#include <CLI/CLI.hpp>
#include <memory>
#include <nlohmann/json.hpp>

#include "defaults/SSDefaults.h"
#include "sorvctl/Command.h"
#include "sorvctl/Failure.h"
#include "sorvctl/HostAndPort.h"
#include "sorvctl/Output.h"
#include "sorvctl/Password.h"
#include "sorvctl/Progress.h"
#include "sorvctl/Session.h"

namespace sorvctl {

using sorvane::SSDefaults;

namespace {

struct Arguments {
  std::optional<std::string> host;
  std::string key;
  std::string value;
};

/// The host whose defaults are meant. Its launcher is at the port below that of the name server, so
/// a port is told by `--port` alone.
std::string hostOf(const Session& session, const Arguments& arguments) {
  if (!arguments.host || arguments.host->empty()) {
    return arguments.host.value_or(session.host());
  }
  HostAndPort where = readHostAndPort(*arguments.host);
  if (where.port) {
    throw Failure(Status::wrongUsage,
                  "\"" + *arguments.host + "\": --of takes no port; use --port");
  }
  return std::move(where.host);
}

SSDefaults defaultsOf(const Session& session, const std::string& host) {
  SSDefaults defaults(host);
  if (const auto limit = session.timeLimit()) {
    defaults.setTimeLimit(*limit);
  }
  return defaults;
}

/// Reads the defaults. Throws a Failure when the host cannot be reached or does not reply. Taking
/// its defaults for empty would lose them when they are written back.
SSDefaults::Dictionary read(const Session& session, const std::string& host) {
  SSDefaults store = defaultsOf(session, host);
  const Progress progress("waiting for the launcher of " + (host.empty() ? "this host" : host));
  auto defaults = store.readDefaultDictionary();
  if (!defaults || !store.lastError().empty()) {
    throw Failure(Status::notReached,
                  "the launcher of " + host + " cannot be reached, or does not answer");
  }
  return *defaults;
}

int get(Session& session, const Arguments& arguments) {
  const SSDefaults::Dictionary defaults = read(session, hostOf(session, arguments));
  const auto found = defaults.find(arguments.key);
  const std::string* text = found == defaults.end() ? nullptr : found->second.string();
  if (text == nullptr) {
    throw Failure(Status::saidNo, "there is no default \"" + arguments.key + "\"");
  }
  printLine(session, {{arguments.key, *text}}, *text);
  return 0;
}

int list(Session& session, const Arguments& arguments) {
  std::vector<std::pair<std::string, std::string>> fields;
  for (const auto& [key, value] : read(session, hostOf(session, arguments))) {
    if (const std::string* text = value.string()) {
      fields.emplace_back(key, *text);
    }
  }
  printFields(session, fields);
  return 0;
}

int set(Session& session, const Arguments& arguments) {
  const std::string host = hostOf(session, arguments);
  SSDefaults::Dictionary defaults = read(session, host);
  defaults.insert_or_assign(arguments.key, arguments.value);
  const std::string password = readPassword("Password of the launcher: ");
  if (defaultsOf(session, host).writeDefaultDictionary(&defaults, password) != 1) {
    throw Failure(Status::saidNo, "the launcher did not take the change");
  }
  return 0;
}

Handler declare(CLI::App& command, bool key, bool value,
                int (*handler)(Session&, const Arguments&)) {
  auto arguments = std::make_shared<Arguments>();
  command.add_option("--of", arguments->host, "Host whose defaults are meant (default: this one)");
  if (key) {
    command.add_option("KEY", arguments->key, "Name of the default")->required();
  }
  if (value) {
    command.add_option("VALUE", arguments->value, "Its new value")->required();
  }
  return [arguments, handler](Session& session) { return handler(session, *arguments); };
}

Handler declareDefaultsGet(CLI::App& command) { return declare(command, true, false, &get); }
Handler declareDefaultsSet(CLI::App& command) { return declare(command, true, true, &set); }
Handler declareDefaultsList(CLI::App& command) { return declare(command, false, false, &list); }

}  // namespace

std::vector<Command> commands::defaults() {
  return {
      {"defaults", "Defaults of a host, kept by its launcher"},
      {"defaults get", "Print a default", "sorvctl defaults get Date", &declareDefaultsGet},
      {"defaults set", "Change a default; the password is asked for, or read from standard input",
       "sorvctl defaults set --of hostB Date 3", &declareDefaultsSet},
      {"defaults list", "Print all defaults", "sorvctl defaults list --of hostB",
       &declareDefaultsList},
  };
}

}  // namespace sorvctl
