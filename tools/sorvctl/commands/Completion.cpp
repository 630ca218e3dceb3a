#include "sorvctl/Completion.h"

#include <CLI/CLI.hpp>
#include <chrono>
#include <memory>
#include <nlohmann/json.hpp>

#include "sorvctl/Command.h"
#include "sorvctl/CompletionScripts.h"
#include "sorvctl/DatabaseList.h"
#include "sorvctl/Failure.h"
#include "sorvctl/Output.h"
#include "sorvctl/Session.h"
#include "sorvctl/ShellWords.h"

namespace sorvctl {

namespace {

// A shell that waits for longer seems to hang.
constexpr std::chrono::milliseconds kTimeForNames{500};

std::vector<std::string> databaseNames(const GivenOptions& given, NamesOf which) {
  Session session(optionsOf(given));
  useSettings(given);
  session.endBy(std::chrono::steady_clock::now() + kTimeForNames);
  std::vector<std::string> names;
  for (Database& each : readDatabases(session)) {
    if (which == NamesOf::all || each.left) {
      names.push_back(std::move(each.port.name));
    }
  }
  return names;
}

/// The candidates. Where the name server does not tell any names, there are none: an error line
/// would stand in the middle of what somebody types.
std::vector<Candidate> candidatesFor(const std::vector<std::string>& words) {
  try {
    return candidates(words, &databaseNames);
  } catch (const Failure&) {
    return {};
  }
}

/// For bash, which gives the line up to the cursor, and the characters that part words for it.
std::string forBash(const std::vector<std::string>& given) {
  OpenWord open;
  std::vector<std::string> words =
      splitLine(given.front(), given.size() > 1 ? given[1] : std::string(), open);
  words.push_back(open.text);
  words.erase(words.begin());
  std::string lines;
  for (const Candidate& each : candidatesFor(words)) {
    const std::string text = insertion(each.text, open);
    lines += text.empty() ? "" : text + "\n";
  }
  return lines;
}

/// For zsh and fish, which quote by themselves and show descriptions.
std::string forOthers(const std::vector<std::string>& words) {
  std::string lines;
  for (const Candidate& each : candidatesFor(words)) {
    lines += each.text + (each.description.empty() ? "" : "\t" + each.description) + "\n";
  }
  return lines;
}

std::string_view scriptOf(const std::string& shell) {
  if (shell == "bash") {
    return kBashCompletion;
  }
  return shell == "zsh" ? kZshCompletion : kFishCompletion;
}

int complete(const Session& session, const std::string& shell,
             const std::vector<std::string>& words) {
  std::string text(scriptOf(shell));
  if (!words.empty()) {
    text = shell == "bash" ? forBash(words) : forOthers(words);
  }
  printText(session, {{"shell", shell}, {"text", text}}, text);
  return 0;
}

Handler declareCompletion(CLI::App& command) {
  struct Arguments {
    std::string shell;
    std::vector<std::string> words;
  };
  auto arguments = std::make_shared<Arguments>();
  command.add_option("SHELL", arguments->shell, "Shell that the script is for")
      ->required()
      ->check(CLI::IsMember({"bash", "zsh", "fish"}));
  command.add_option("WORD", arguments->words,
                     "What has been typed, after \"--\": print what the last word can become. The "
                     "scripts ask so: for bash with the whole line and COMP_WORDBREAKS, for the "
                     "others with the words behind \"sorvctl\"");
  return [arguments](Session& session) {
    return complete(session, arguments->shell, arguments->words);
  };
}

}  // namespace

std::vector<Command> commands::completion() {
  return {
      {"completion", "Print a script that lets a shell complete the commands of sorvctl",
       "sorvctl completion bash > ~/.local/share/bash-completion/completions/sorvctl",
       &declareCompletion},
  };
}

}  // namespace sorvctl
