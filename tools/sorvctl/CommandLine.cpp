#include "sorvctl/CommandLine.h"

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <cstdio>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "platform/Settings.h"
#include "sorvctl/Failure.h"
#include "sorvctl/Output.h"
#include "sorvctl/Session.h"
#include "sorvctl/Words.h"

namespace sorvctl {

namespace {

struct Group {
  const char* name;
  const char* help;
};

constexpr std::array kGroups{
    Group{"prefs", "Preferences that the server keeps"},
    Group{"defaults", "Defaults of a host, kept by its launcher"},
    Group{"convert", "Convert values between their stored form and the host's display forms"},
};

constexpr std::array kWords{
    Word{"ping", "Ask whether the name server answers", "sorvctl --host hostB ping", &declarePing},
    Word{"find", "Find a port by its name", "sorvctl find db1", &declareFind},
    Word{"register", "Register a name, and hold it until ended or until COMMAND ends",
         "sorvctl register db1 --type database -- my-server --port {port}", &declareRegister},
    Word{"send", "Send any request, its values as texts, and print the reply",
         "sorvctl send action=hostInfo hostAddress=localhost", &declareSend},
    Word{"list", "List the databases with what is known of each", "sorvctl list", &declareList},
    Word{"states", "List the state of each database", "sorvctl states", &declareStates},
    Word{"alerts", "List the alerts of the last hour", "sorvctl --json alerts", &declareAlerts},
    Word{"set-state", "Set the state of a database", "sorvctl set-state db1 stopping",
         &declareSetState},
    Word{"set-alert", "Raise an alert for a database", "sorvctl set-alert db1 'disk full'",
         &declareSetAlert},
    Word{"watch", "Print a line for each change of the databases", "sorvctl watch --interval 5",
         &declareWatch},
    Word{"refresh", "Mark the registry as changed for all who watch it", "sorvctl refresh --force",
         &declareRefresh},
    Word{"host-info", "Tell about the server's host", "sorvctl host-info", &declareHostInfo},
    Word{"hosts", "List the hosts whose launcher has connected", "sorvctl hosts", &declareHosts},
    Word{"terminate", "End the name server", "sorvctl terminate", &declareTerminate},
    Word{"restart", "End the name server, for whoever restarts it", "sorvctl restart",
         &declareRestart},
    Word{"browse", "List the name servers on the network", "sorvctl browse --watch",
         &declareBrowse},
    Word{"prefs get", "Print the preferences kept under a key",
         "sorvctl prefs get mary --fallback default", &declarePrefsGet},
    Word{"prefs set", "Replace the preferences kept under a key",
         "sorvctl prefs set mary loginDisplay=list databases='db1 db2'", &declarePrefsSet},
    Word{"prefs key", "Print the preference key setting", "sorvctl prefs key", &declarePrefsKey},
    Word{"prefs key set", "Change the preference key setting",
         "sorvctl prefs key set user:application", &declarePrefsKeySet},
    Word{"defaults get", "Print a default", "sorvctl defaults get Date", &declareDefaultsGet},
    Word{"defaults set", "Change a default; the password is asked for, or read from standard input",
         "sorvctl defaults set --of hostB Date 3", &declareDefaultsSet},
    Word{"defaults list", "Print all defaults", "sorvctl defaults list --of hostB",
         &declareDefaultsList},
    Word{"convert date", "A date to its stored form, or back from \"@YYYY-MM-DD\"",
         "sorvctl convert date @2004-05-06", &declareConvertDate},
    Word{"convert time", "A time to its stored form, or back from \"#HH:MM\"",
         "sorvctl convert time '7:05 PM'", &declareConvertTime},
    Word{"convert money", "An amount of money to hundredths, or back",
         "sorvctl convert money --from-stored -123456", &declareConvertMoney},
    Word{"convert integer", "An integer with groups of digits to plain digits, or back",
         "sorvctl convert integer 1,234,567", &declareConvertInteger},
    Word{"convert hex", "A hexadecimal number to an integer, or back", "sorvctl convert hex ff",
         &declareConvertHex},
    Word{"convert instant", "A date and time to seconds since the reference date, or back",
         "sorvctl convert instant --from-stored 0", &declareConvertInstant},
};

constexpr const char* kStatuses =
    "Status: 0 done, 1 the server said no (not found, failed, no reply), 2 wrong usage, 3 server "
    "not "
    "reached.\n'sorvctl WORD --help' tells about a word.";

/// The application, or the group or word inside it, that this name stands for; made where it is not
/// there yet.
CLI::App& place(CLI::App& application, std::string_view name) {
  CLI::App* at = &application;
  while (!name.empty()) {
    const std::size_t end = std::min(name.find(' '), name.size());
    const std::string part(name.substr(0, end));
    name.remove_prefix(std::min(end + 1, name.size()));
    const auto there =
        at->get_subcommands([&part](const CLI::App* each) { return each->get_name() == part; });
    at = there.empty() ? at->add_subcommand(part) : there.front();
  }
  return *at;
}

/// Adds the options that come before or after the word, except one that the word has itself.
void addCommonOptions(CLI::App& at, Options& options) {
  const auto isFree = [&at](const char* name) { return at.get_option_no_throw(name) == nullptr; };
  if (isFree("--host")) {
    at.add_option("--host", options.host, "Host of the name server (default: this one)");
  }
  at.add_option("--port", options.port, "Its base port (default: that of the settings)")
      ->check(CLI::Range(2, 65534));
  if (isFree("--timeout")) {
    at.add_option("--timeout", options.timeoutSeconds,
                  "Seconds to wait for connecting, and for each reply (default: 5 and 30)")
        ->check(CLI::Range(0.001, 86400.0));
  }
  at.add_flag("--json", options.json, "Print JSON");
}

/// The settings in force, the base port that of the command line where it names one.
void useSettings(const Options& options) {
  try {
    sorvane::Settings settings = sorvane::Settings::readForThisProcess();
    if (options.port != 0) {
      settings.basePort = options.port;
    }
    sorvane::Settings::replace(std::move(settings));
  } catch (const sorvane::NSException& error) {
    throw Failure(Status::notReached, error.what());
  }
}

int complain(Status status, std::string_view line) {
  fmt::print(stderr, "sorvctl: {}\n", escaped(line));
  return static_cast<int>(status);
}

/// A value such as -12.5 is no option: no option begins like a number.
bool isNegativeNumber(std::string_view word) {
  return word.size() > 1 && word[0] == '-' &&
         std::string_view(".0123456789").find(word[1]) != std::string_view::npos;
}

/// The words after the program's name, in the reverse order that the parser wants, negative numbers
/// put behind a "--" at the end.
std::vector<std::string> arranged(int count, const char* const* words) {
  std::vector<std::string> kept;
  std::vector<std::string> numbers;
  for (int index = 1; index < count; ++index) {
    const std::string word = words[index];
    if (word == "--") {
      kept.insert(kept.end(), words + index, words + count);
      break;
    }
    (isNegativeNumber(word) ? numbers : kept).push_back(word);
  }
  if (!numbers.empty()) {
    kept.push_back("--");
    kept.insert(kept.end(), numbers.begin(), numbers.end());
  }
  return {kept.rbegin(), kept.rend()};
}

/// The innermost word that was given.
CLI::App* chosenWord(CLI::App& application) {
  CLI::App* at = &application;
  while (!at->get_subcommands().empty()) {
    at = at->get_subcommands().front();
  }
  return at;
}

}  // namespace

int runCommandLine(int count, const char* const* words) {
  CLI::App application("Talks to a sorvinfo name server.", "sorvctl");
  Options options;
  std::map<const CLI::App*, Handler> handlers;
  application.require_subcommand(0, 1);
  application.footer(kStatuses);
  addCommonOptions(application, options);
  for (const Group& group : kGroups) {
    place(application, group.name).require_subcommand(0, 1)->description(group.help);
  }
  for (const Word& word : kWords) {
    CLI::App& at = place(application, word.name);
    at.description(word.help)->footer(std::string("Example: ") + word.example);
    at.require_subcommand(0, 1);
    handlers[&at] = word.declare(at);
    addCommonOptions(at, options);
  }
  try {
    application.parse(arranged(count, words));
    const auto handler = handlers.find(chosenWord(application));
    if (handler == handlers.end()) {
      throw Failure(Status::wrongUsage, "a word is missing; 'sorvctl --help' lists them");
    }
    useSettings(options);
    Session session(options);
    return handler->second(session);
  } catch (const CLI::Success& help) {
    return application.exit(help);
  } catch (const CLI::ParseError& error) {
    return complain(Status::wrongUsage, error.what());
  } catch (const Failure& failure) {
    return complain(failure.status(), failure.what());
  }
}

}  // namespace sorvctl
