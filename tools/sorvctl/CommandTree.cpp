#include "sorvctl/CommandTree.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <charconv>
#include <utility>

namespace sorvctl {

namespace {

constexpr const char* kStatuses =
    "Status: 0 done, 1 the server said no (not found, failed, no reply), 2 wrong usage, 3 server "
    "not reached, 4 the server must be restarted, as no upgrade in place is possible.\n"
    "'sorvctl COMMAND --help' tells about a command.";

/// Takes the first word off a command's name.
std::string_view takeWord(std::string_view& name) {
  const std::string_view word = name.substr(0, name.find(' '));
  name.remove_prefix(std::min(word.size() + 1, name.size()));
  return word;
}

/// The group or command with this whole name. Those that are not there yet are added.
CLI::App& place(CLI::App& application, std::string_view name) {
  CLI::App* at = &application;
  while (!name.empty()) {
    const std::string_view word = takeWord(name);
    CLI::App* const there = innerCommand(*at, word);
    at = there != nullptr ? there : at->add_subcommand(std::string(word))->group("Commands");
  }
  return *at;
}

/// Whether all words of a command's name are among the words.
bool isNamed(std::string_view name, const std::vector<std::string>& words) {
  while (!name.empty()) {
    if (std::find(words.begin(), words.end(), takeWord(name)) == words.end()) {
      return false;
    }
  }
  return true;
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

// Stands before a word that the parser would take for a list. No word of a command line needs it.
constexpr char kGuard = '\x01';

void takeGuard(std::string& word) {
  if (word.starts_with(kGuard)) {
    word.erase(0, 1);
  }
}

/// Lets the options and arguments take the guards off their values before all else.
void takeGuards(CLI::App& at) {
  for (CLI::Option* const each : at.get_options()) {
    if (each->get_items_expected_min() > 0) {
      each->transform(CLI::Validator(
          [](std::string& value) {
            takeGuard(value);
            return std::string();
          },
          ""));
    }
  }
}

void notePort(GivenOptions& options, const std::string& digits) {
  int port = 0;
  std::from_chars(digits.data(), digits.data() + digits.size(), port);
  options.port = port;
}

}  // namespace

std::string guarded(const std::string& word) {
  const bool needsIt = word.starts_with('[') || word.starts_with(kGuard);
  return needsIt ? kGuard + word : word;
}

std::string unguarded(std::string message) {
  std::erase(message, kGuard);
  return message;
}

CLI::App* innerCommand(CLI::App& at, std::string_view name) {
  const auto found =
      at.get_subcommands([name](const CLI::App* each) { return each->get_name() == name; });
  return found.empty() ? nullptr : found.front();
}

CommandTree::CommandTree(const std::vector<std::string>& words)
    : application_(std::make_unique<CLI::App>("Talks to a sorvinfo name server.", "sorvctl")) {
  application_->require_subcommand(0, 1);
  application_->footer(kStatuses);
  application_->formatter(std::make_shared<HelpFormatter>());
  application_->get_formatter()->label("SUBCOMMAND", "COMMAND");
  addCommonOptions(*application_);
  for (const Command& command : allCommands()) {
    CLI::App& at = place(*application_, command.name);
    at.description(command.help)->require_subcommand(0, 1);
    if (command.declare != nullptr && isNamed(command.name, words)) {
      at.footer(std::string("Example: ") + command.example);
      actions_[&at] = {command.declare(at), command.readsSettings};
      addCommonOptions(at);
    }
  }
}

CommandTree::~CommandTree() = default;

/// Adds the options that may stand before or after the command, except those that the command has
/// declared itself. Comes after what the command declares.
void CommandTree::addCommonOptions(CLI::App& at) {
  const auto isFree = [&at](const char* name) { return at.get_option_no_throw(name) == nullptr; };
  if (isFree("--host")) {
    const CLI::Option* const host = at.add_option(
        "--host", options_.host,
        "Host of the name server, perhaps with its port: db.example:20221, [::1] (default: this "
        "host)");
    notes_[host] = [](GivenOptions& options, const std::string& value) { options.host = value; };
  }
  const CLI::Option* const port =
      at.add_option("--port", options_.port, "Its base port (default: that of the settings)")
          ->check(CLI::Range(2, 65534));
  notes_[port] = &notePort;
  if (isFree("--timeout")) {
    at.add_option("--timeout", options_.timeoutSeconds,
                  "Seconds to wait for connecting, and for each reply (default: 5 and 30)")
        ->check(CLI::Range(0.001, 86400.0));
  }
  at.add_flag("--json", options_.json, "Print JSON");
  at.add_option(
        "--color", options_.colour,
        "Colours: on a terminal unless NO_COLOR is set (auto, the default), always or never")
      ->check(CLI::IsMember({"auto", "always", "never"}));
  takeGuards(at);
}

const CommandTree::Action* CommandTree::action() const {
  const CLI::App* at = application_.get();
  while (!at->get_subcommands().empty()) {
    at = at->get_subcommands().front();
  }
  const auto found = actions_.find(at);
  return found == actions_.end() ? nullptr : &found->second;
}

void CommandTree::note(const CLI::Option& option, const std::string& value) {
  if (const auto noted = notes_.find(&option); noted != notes_.end()) {
    noted->second(options_, value);
  }
}

}  // namespace sorvctl
