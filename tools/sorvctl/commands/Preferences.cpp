#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <memory>
#include <nlohmann/json.hpp>

#include "sorvctl/Command.h"
#include "sorvctl/Failure.h"
#include "sorvctl/Output.h"
#include "sorvctl/Session.h"

namespace sorvctl {

using sorvane::Message;

namespace {

constexpr std::array kNames{"changePreferences", "startDatabases", "loginDisplay", "databases"};

int get(Session& session, const std::string& key, const std::optional<std::string>& fallback) {
  // The server's replies for a missing entry and an empty one are the same when the request names
  // no fallback. They differ when it names one, and so the key is its own fallback.
  const Message reply = session.askForDictionary(
      {{"action", "get_userpreferences"}, {"key", key}, {"*", fallback.value_or(key)}});
  if (reply.contains("result")) {
    throw Failure(Status::saidNo, "no preferences are kept under \"" + key + "\"");
  }
  printMessage(session, reply);
  return 0;
}

int set(Session& session, const std::string& key, const std::vector<std::string>& preferences) {
  Message request{{"action", "set_userpreferences"}, {"key", key}};
  for (const std::string& preference : preferences) {
    const std::size_t end = preference.find('=');
    const std::string name = preference.substr(0, end);
    if (end == std::string::npos || std::find(kNames.begin(), kNames.end(), name) == kNames.end()) {
      throw Failure(Status::wrongUsage,
                    "\"" + preference +
                        "\" is not NAME=VALUE with one of the names changePreferences, "
                        "startDatabases, loginDisplay, databases");
    }
    request.setText(name, preference.substr(end + 1));
  }
  session.askForSuccess(request, "succeed");
  return 0;
}

int getKey(Session& session) {
  const Message reply =
      session.askForDictionary({{"action", "get_userpreferences_key"}, {"key", ""}});
  const auto result = reply.text("result");
  if (!result) {
    throw Failure(Status::saidNo, "a preference key is set, but the server does not tell which");
  }
  printLine(session, {{"key", std::string(*result)}}, *result);
  return 0;
}

Handler declarePrefsGet(CLI::App& command) {
  struct Arguments {
    std::string key;
    std::optional<std::string> fallback;
  };
  auto arguments = std::make_shared<Arguments>();
  command.add_option("KEY", arguments->key, "Key of the entry, such as a user or a group")
      ->required();
  command.add_option("--fallback", arguments->fallback,
                     "Key of the entry to take when there is none");
  return
      [arguments](Session& session) { return get(session, arguments->key, arguments->fallback); };
}

Handler declarePrefsSet(CLI::App& command) {
  struct Arguments {
    std::string key;
    std::vector<std::string> preferences;
  };
  auto arguments = std::make_shared<Arguments>();
  command.add_option("KEY", arguments->key, "Key of the entry; it is replaced as a whole")
      ->required();
  command
      .add_option(
          "PREFERENCE", arguments->preferences,
          "NAME is changePreferences, startDatabases, loginDisplay or databases; one that is not "
          "given is no longer set")
      ->type_name("NAME=VALUE");
  return [arguments](Session& session) {
    return set(session, arguments->key, arguments->preferences);
  };
}

Handler declarePrefsKey(CLI::App& /*command*/) { return &getKey; }

Handler declarePrefsKeySet(CLI::App& command) {
  auto value = std::make_shared<std::string>();
  command.add_option("VALUE", *value, "The new setting")->required();
  return [value](Session& session) {
    session.askForSuccess({{"action", "set_userpreferences_key"}, {"key", *value}}, "succeed");
    return 0;
  };
}

}  // namespace

std::vector<Command> commands::preferences() {
  return {
      {"prefs", "Preferences that the server keeps"},
      {"prefs get", "Print the preferences kept under a key",
       "sorvctl prefs get mary --fallback default", &declarePrefsGet},
      {"prefs set", "Replace the preferences kept under a key",
       "sorvctl prefs set mary loginDisplay=list databases='db1 db2'", &declarePrefsSet},
      {"prefs key", "Print the preference key setting", "sorvctl prefs key", &declarePrefsKey},
      {"prefs key set", "Change the preference key setting",
       "sorvctl prefs key set user:application", &declarePrefsKeySet},
  };
}

}  // namespace sorvctl
