#include "sorvctl/CommandLine.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

#include "sorvctl/CommandTree.h"
#include "sorvctl/Failure.h"
#include "sorvctl/Output.h"
#include "sorvctl/Session.h"

namespace sorvctl {

namespace {

int complain(Status status, std::string_view line) {
  printError(line);
  return static_cast<int>(status);
}

/// A value such as -12.5 is not an option: no option begins like a number.
bool isNegativeNumber(std::string_view argument) {
  return argument.size() > 1 && argument[0] == '-' &&
         std::string_view(".0123456789").find(argument[1]) != std::string_view::npos;
}

/// The arguments as the parser wants them: in reverse order, negative numbers last and behind a
/// "--".
std::vector<std::string> arranged(const std::vector<std::string>& arguments) {
  std::vector<std::string> kept;
  std::vector<std::string> numbers;
  for (auto argument = arguments.begin(); argument != arguments.end(); ++argument) {
    if (*argument == "--") {
      kept.insert(kept.end(), argument, arguments.end());
      break;
    }
    (isNegativeNumber(*argument) ? numbers : kept).push_back(*argument);
  }
  if (!numbers.empty()) {
    kept.push_back("--");
    kept.insert(kept.end(), numbers.begin(), numbers.end());
  }
  std::transform(kept.begin(), kept.end(), kept.begin(), &guarded);
  return {kept.rbegin(), kept.rend()};
}

}  // namespace

int runCommandLine(int count, const char* const* arguments) {
  const std::vector<std::string> words(arguments + std::min(count, 1), arguments + count);
  CommandTree tree(words);
  try {
    tree.application().parse(arranged(words));
    const CommandTree::Action* const action = tree.action();
    if (action == nullptr) {
      throw Failure(Status::wrongUsage, "a command is missing; 'sorvctl --help' lists them");
    }
    Session session(optionsOf(tree.options()));
    useColours(tree.options());
    if (!action->readsSettings) {
      useSettings(tree.options());
    }
    return action->handler(session);
  } catch (const CLI::Success& help) {
    return tree.application().exit(help);
  } catch (const CLI::ParseError& error) {
    return complain(Status::wrongUsage, unguarded(error.what()));
  } catch (const Failure& failure) {
    return complain(failure.status(), failure.what());
  }
}

}  // namespace sorvctl
