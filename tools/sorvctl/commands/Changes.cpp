#include <signal.h>

#include <CLI/CLI.hpp>
#include <memory>

#include "sorvctl/ChangeLines.h"
#include "sorvctl/Command.h"
#include "sorvctl/DatabaseWatch.h"
#include "sorvctl/Seconds.h"
#include "sorvctl/Session.h"
#include "sorvctl/StopSignals.h"

namespace sorvctl {

using sorvane::Message;

namespace {

/// Prints a line for each change until a signal. The databases of the start are told as new ones.
int watch(Session& session, std::chrono::milliseconds interval) {
  StopSignals signals;
  DatabaseWatch databases(session, interval);
  DatabasesByName known;
  while (true) {
    if (auto seen = databases.next(signals.descriptor())) {
      DatabasesByName now = byName(std::move(*seen));
      printChanges(session, "", known, now, kMostDatabases);
      known = std::move(now);
    }
    const std::optional<Signal> signal = signals.wait(std::chrono::milliseconds(0));
    if (signal && signal->number != SIGCHLD) {
      return 0;
    }
  }
}

int refresh(Session& session, bool force) {
  Message request = action("needsRefresh");
  if (force) {
    request.setText("force", "YES");
  }
  session.askForSuccess(request, "success");
  return 0;
}

Handler declareWatch(CLI::App& command) {
  auto seconds = std::make_shared<double>(1);
  command
      .add_option("--interval", *seconds,
                  "Seconds between two questions to a name server that does not tell of changes "
                  "at once (default: 1)")
      ->check(CLI::Range(0.01, 86400.0));
  return [seconds](Session& session) { return watch(session, inMilliseconds(*seconds)); };
}

Handler declareRefresh(CLI::App& command) {
  auto force = std::make_shared<bool>(false);
  command.add_flag("--force", *force, "Tell all who watch to reload everything");
  return [force](Session& session) { return refresh(session, *force); };
}

}  // namespace

std::vector<Command> commands::changes() {
  return {
      {"watch", "Print a line for each change of the databases", "sorvctl watch --interval 5",
       &declareWatch},
      {"refresh", "Mark the registry as changed for all who watch it", "sorvctl refresh --force",
       &declareRefresh},
  };
}

}  // namespace sorvctl
