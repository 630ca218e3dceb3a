#include <signal.h>

#include <CLI/CLI.hpp>
#include <chrono>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <set>

#include "sorvctl/Command.h"
#include "sorvctl/NetworkView.h"
#include "sorvctl/Output.h"
#include "sorvctl/Progress.h"
#include "sorvctl/Seconds.h"
#include "sorvctl/Session.h"
#include "sorvctl/StopSignals.h"

namespace sorvctl {

namespace {

using Clock = std::chrono::steady_clock;

constexpr double kSecondsToBrowse = 3;
constexpr std::chrono::milliseconds kBetweenLooks{100};

struct BrowseOptions {
  std::optional<double> seconds;
  bool watch = false;
};

/// When the browsing ends. Nothing for a watch that lasts until a signal.
std::optional<Clock::time_point> endOf(const BrowseOptions& options) {
  if (options.watch && !options.seconds) {
    return std::nullopt;
  }
  return Clock::now() + inMilliseconds(options.seconds.value_or(kSecondsToBrowse));
}

/// Calls `look` again and again until the end or a signal, and then once more.
template <typename Look>
void lookUntil(std::optional<Clock::time_point> end, Look look) {
  StopSignals signals;
  while (!end || Clock::now() < *end) {
    look();
    std::chrono::milliseconds time = kBetweenLooks;
    if (end) {
      time = std::min(time, std::chrono::ceil<std::chrono::milliseconds>(*end - Clock::now()));
    }
    const std::optional<Signal> signal = signals.wait(time);
    if (signal && signal->number != SIGCHLD) {
      break;
    }
  }
  look();
}

void tell(const Session& session, const char* change, const NameServer& server) {
  printLine(session,
            {{"change", change},
             {"name", server.name},
             {"address", server.address},
             {"port", server.port}},
            std::string(change) + " " + server.name + " " + server.address + " " +
                std::to_string(server.port));
}

int watch(const Session& session, const BrowseOptions& options) {
  NetworkView& network = NetworkView::current();
  std::set<NameServer> known;
  lookUntil(endOf(options), [&] {
    const std::set<NameServer> now = network.servers();
    for (const NameServer& server : known) {
      if (!now.contains(server)) {
        tell(session, "went", server);
      }
    }
    for (const NameServer& server : now) {
      if (!known.contains(server)) {
        tell(session, "came", server);
      }
    }
    known = now;
  });
  return 0;
}

int list(const Session& session, const BrowseOptions& options) {
  NetworkView& network = NetworkView::current();
  std::set<NameServer> servers;
  {
    const Progress progress("looking for name servers");
    lookUntil(endOf(options), [&] { servers = network.servers(); });
  }
  std::vector<std::vector<nlohmann::ordered_json>> rows;
  for (const NameServer& server : servers) {
    rows.push_back({server.name, server.address, server.port});
  }
  printTable(session, {{"name"}, {"address"}, {"port"}}, rows);
  return 0;
}

Handler declareBrowse(CLI::App& command) {
  auto options = std::make_shared<BrowseOptions>();
  command
      .add_option("--timeout", options->seconds,
                  "Seconds to look (default: 3; with --watch, until ended)")
      ->check(CLI::Range(0.001, 86400.0));
  command.add_flag("--watch", options->watch, "Print a line for each that comes or goes");
  return [options](Session& session) {
    return options->watch ? watch(session, *options) : list(session, *options);
  };
}

}  // namespace

std::vector<Command> commands::network() {
  return {
      {"browse", "List the name servers on the network", "sorvctl browse --watch", &declareBrowse},
  };
}

}  // namespace sorvctl
