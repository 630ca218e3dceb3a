#include "sorvctl/top/Top.h"

#include <CLI/CLI.hpp>
#include <memory>

#include "sorvctl/Command.h"
#include "sorvctl/Seconds.h"
#include "sorvctl/Session.h"

namespace sorvctl {

namespace {

Handler declareTop(CLI::App& command) {
  auto seconds = std::make_shared<double>(1);
  command
      .add_option("--interval", *seconds,
                  "Seconds between two questions to a name server that does not tell of changes at "
                  "once (default: 1)")
      ->check(CLI::Range(0.01, 86400.0));
  return [seconds](Session& session) { return top::run(session, inMilliseconds(*seconds)); };
}

}  // namespace

std::vector<Command> commands::top() {
  return {
      {"top", "Show the databases as they change, until q is pressed", "sorvctl --host hostB top",
       &declareTop},
  };
}

}  // namespace sorvctl
