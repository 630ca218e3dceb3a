// The parser of the command line, made from the table of commands.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "sorvctl/Command.h"
#include "sorvctl/GivenOptions.h"

namespace CLI {
class App;
class Option;
}  // namespace CLI

namespace sorvctl {

class CommandTree {
 public:
  /// Makes the parser for a command line of these words. It has all commands with their help, and
  /// the arguments of those alone whose names stand among the words: declaring all of them is most
  /// of what a start costs, the loading of libraries aside.
  explicit CommandTree(const std::vector<std::string>& words);
  ~CommandTree();
  CommandTree(const CommandTree&) = delete;
  CommandTree& operator=(const CommandTree&) = delete;

  [[nodiscard]] CLI::App& application() { return *application_; }
  [[nodiscard]] const GivenOptions& options() const { return options_; }

  struct Action {
    Handler handler;
    bool readsSettings;  ///< see Command
  };
  /// Returns what carries out the innermost command that the parser has found. Null when that is a
  /// group.
  [[nodiscard]] const Action* action() const;

  /// Notes the value of an option that says which name server is meant; any other is ignored. For
  /// command lines that are not complete, which the parser refuses.
  void note(const CLI::Option& option, const std::string& value);

 private:
  void addCommonOptions(CLI::App& at);

  std::unique_ptr<CLI::App> application_;
  GivenOptions options_;
  std::map<const CLI::App*, Action> actions_;
  /// Where the values of `--host` and `--port` go, wherever these are declared.
  std::map<const CLI::Option*, void (*)(GivenOptions&, const std::string&)> notes_;
};

/// Returns a word of the command line as the parser must get it. It would take "[a,b]" for two
/// words. The commands get the word as it was.
[[nodiscard]] std::string guarded(const std::string& word);
/// Returns a message of the parser with the words as they were.
[[nodiscard]] std::string unguarded(std::string message);

/// Returns the group or command with this name in another one. Null when there is none.
[[nodiscard]] CLI::App* innerCommand(CLI::App& at, std::string_view name);

}  // namespace sorvctl
