#include "sorvctl/CommandLine.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/Settings.h"
#include "sorvctl/Command.h"
#include "sorvctl/Failure.h"
#include "sorvctl/Output.h"
#include "sorvctl/Session.h"

namespace sorvctl {

namespace {

constexpr const char* kStatuses =
    "Status: 0 done, 1 the server said no (not found, failed, no reply), 2 wrong usage, 3 server "
    "not reached.\n'sorvctl COMMAND --help' tells about a command.";

/// The application itself, or the group or command with this name in it. Groups and commands that
/// are not there yet are added.
CLI::App& place(CLI::App& application, std::string_view name) {
  CLI::App* at = &application;
  while (!name.empty()) {
    const std::size_t end = std::min(name.find(' '), name.size());
    const std::string part(name.substr(0, end));
    name.remove_prefix(std::min(end + 1, name.size()));
    const auto there =
        at->get_subcommands([&part](const CLI::App* each) { return each->get_name() == part; });
    at = there.empty() ? at->add_subcommand(part)->group("Commands") : there.front();
  }
  return *at;
}

/// Adds the options that may stand before or after the command, except those that the command has
/// declared itself.
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

/// Reads the settings. A base port on the command line replaces theirs.
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
  printError(line);
  return static_cast<int>(status);
}

/// A value such as -12.5 is not an option: no option begins like a number.
bool isNegativeNumber(std::string_view argument) {
  return argument.size() > 1 && argument[0] == '-' &&
         std::string_view(".0123456789").find(argument[1]) != std::string_view::npos;
}

/// The arguments without the program's name, in the reverse order that the parser wants. Negative
/// numbers come last, behind a "--".
std::vector<std::string> arranged(int count, const char* const* arguments) {
  std::vector<std::string> kept;
  std::vector<std::string> numbers;
  for (int index = 1; index < count; ++index) {
    const std::string argument = arguments[index];
    if (argument == "--") {
      kept.insert(kept.end(), arguments + index, arguments + count);
      break;
    }
    (isNegativeNumber(argument) ? numbers : kept).push_back(argument);
  }
  if (!numbers.empty()) {
    kept.push_back("--");
    kept.insert(kept.end(), numbers.begin(), numbers.end());
  }
  return {kept.rbegin(), kept.rend()};
}

/// The innermost group or command that was given.
CLI::App* chosen(CLI::App& application) {
  CLI::App* at = &application;
  while (!at->get_subcommands().empty()) {
    at = at->get_subcommands().front();
  }
  return at;
}

/// The help, the same with every version of the parser: from 2.6 on it leaves out "Usage:".
class HelpFormatter : public CLI::Formatter {
 public:
  std::string make_usage(const CLI::App* application, std::string name) const override {
    std::string usage = CLI::Formatter::make_usage(application, std::move(name));
    usage.erase(0, usage.find_first_not_of('\n'));
    return usage.starts_with("Usage:") ? usage : "Usage: " + usage;
  }
};

}  // namespace

int runCommandLine(int count, const char* const* arguments) {
  CLI::App application("Talks to a sorvinfo name server.", "sorvctl");
  Options options;
  std::map<const CLI::App*, Handler> handlers;
  application.require_subcommand(0, 1);
  application.footer(kStatuses);
  application.formatter(std::make_shared<HelpFormatter>());
  application.get_formatter()->label("SUBCOMMAND", "COMMAND");
  addCommonOptions(application, options);
  for (const Command& command : allCommands()) {
    CLI::App& at = place(application, command.name);
    at.description(command.help)->require_subcommand(0, 1);
    if (command.declare != nullptr) {
      at.footer(std::string("Example: ") + command.example);
      handlers[&at] = command.declare(at);
      addCommonOptions(at, options);
    }
  }
  try {
    application.parse(arranged(count, arguments));
    const auto handler = handlers.find(chosen(application));
    if (handler == handlers.end()) {
      throw Failure(Status::wrongUsage, "a command is missing; 'sorvctl --help' lists them");
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
