#include <sys/resource.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "sorvctl/Command.h"
#include "sorvctl/Failure.h"
#include "sorvctl/NetworkView.h"
#include "sorvctl/Output.h"
#include "sorvctl/Progress.h"
#include "sorvctl/Seconds.h"
#include "sorvctl/Session.h"
#include "sorvctl/net/Answers.h"
#include "sorvctl/net/Servers.h"
#include "sorvctl/net/Watch.h"

namespace sorvctl {

using net::Answer;
using net::Server;
using nlohmann::ordered_json;
using std::chrono::milliseconds;

namespace {

struct NetOptions {
  std::optional<std::string> hosts;
  double secondsToBrowse = 3;
  std::optional<double> timeout;
  double interval = 1;
  bool watch = false;
};

constexpr double kSecondsToAnswer = 5;

std::vector<Server> serversToAsk(const Session& session, const NetOptions& options) {
  if (options.hosts) {
    return net::serversOfList(*options.hosts, session.basePort());
  }
  NetworkView& network = NetworkView::current();
  const Progress progress("looking for name servers");
  std::this_thread::sleep_for(inMilliseconds(options.secondsToBrowse));
  return net::serversOfNetwork(network.servers(), session.options().port);
}

ordered_json jsonOf(const Answer& answer) {
  ordered_json object{
      {"server", answer.server.name}, {"port", answer.server.port}, {"answered", answer.answered}};
  if (!answer.answered) {
    object["failure"] = answer.failure;
    return object;
  }
  object["databases"] = ordered_json::array();
  for (const Database& each : answer.databases) {
    ordered_json& database = object["databases"].emplace_back();
    database["name"] = each.port.name;
    for (const DatabaseField& field : kDatabaseFields) {
      database[field.name] = field.of(each);
    }
    database["left"] = each.left;
  }
  return object;
}

/// The rows of the table for a server: one for each database, or one that tells that there is none.
void addRows(std::vector<std::vector<ordered_json>>& rows, const Answer& answer) {
  const std::string& server = answer.server.name;
  for (const Database& each : answer.databases) {
    auto& row = rows.emplace_back(std::vector<ordered_json>{server, each.port.name});
    for (const DatabaseField& field : kDatabaseFields) {
      row.emplace_back(field.name == std::string_view("state") ? each.shownState()
                                                               : field.of(each));
    }
  }
  if (!answer.answered) {
    rows.push_back({server, "-", "-", "-", "-", "no answer", answer.failure});
  } else if (answer.databases.empty()) {
    rows.push_back({server, "-", "-", "-", "-", "answers", "no databases"});
  }
}

void print(const Session& session, const std::vector<Answer>& answers) {
  if (session.json()) {
    ordered_json all = ordered_json::array();
    for (const Answer& answer : answers) {
      all.push_back(jsonOf(answer));
    }
    printLine(session, all, "");
    return;
  }
  std::vector<std::vector<ordered_json>> rows;
  for (const Answer& answer : answers) {
    addRows(rows, answer);
  }
  printTable(
      session,
      {{"server"}, {"name"}, {"number"}, {"host"}, {"type"}, {"state"}, {"alert", Tone::bad}},
      rows);
}

/// The options that hold for each server.
Options commonOptions(const Session& session, const NetOptions& options) {
  Options common = session.options();
  common.timeoutSeconds = options.timeout         ? options.timeout
                          : common.timeoutSeconds ? common.timeoutSeconds
                                                  : kSecondsToAnswer;
  return common;
}

std::vector<Answer> answersOf(const std::vector<Server>& servers, const Options& common) {
  const Progress progress("waiting for the name servers");
  return net::askAll(servers, common, inMilliseconds(*common.timeoutSeconds));
}

int list(const Session& session, const Options& common, const NetOptions& options) {
  const std::vector<Answer> answers = answersOf(serversToAsk(session, options), common);
  print(session, answers);
  if (std::none_of(answers.begin(), answers.end(),
                   [](const Answer& answer) { return answer.answered; })) {
    throw Failure(Status::notReached, answers.empty() ? "no name server was found on the network"
                                                      : "none of the name servers answers");
  }
  return 0;
}

/// Lets this process open as many descriptors as it may: each server that is followed takes ten.
void allowManyDescriptors() {
  rlimit limit{};
  if (getrlimit(RLIMIT_NOFILE, &limit) == 0) {
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
  }
}

int watch(const Options& common, const NetOptions& options) {
  allowManyDescriptors();
  const Session session(common);
  if (options.hosts) {
    const std::vector<Server> servers = net::serversOfList(*options.hosts, session.basePort());
    net::watch(session, inMilliseconds(options.interval), [&servers] { return servers; });
  } else {
    NetworkView& network = NetworkView::current();
    net::watch(session, inMilliseconds(options.interval),
               [&] { return net::serversOfNetwork(network.servers(), common.port); });
  }
  return 0;
}

int tellNet(const Session& session, const NetOptions& options) {
  if (!session.host().empty()) {
    throw Failure(Status::wrongUsage, "\"net\" asks several hosts: name them by --hosts");
  }
  const Options common = commonOptions(session, options);
  return options.watch ? watch(common, options) : list(session, common, options);
}

Handler declareNet(CLI::App& command) {
  auto options = std::make_shared<NetOptions>();
  command.add_option("--hosts", options->hosts,
                     "Hosts to ask, joined by commas, each with or without a port (default: the "
                     "name servers that Bonjour finds)");
  command
      .add_option("--browse", options->secondsToBrowse,
                  "Seconds to look for name servers by Bonjour (default: 3)")
      ->check(CLI::Range(0.001, 86400.0));
  command
      .add_option("--timeout", options->timeout,
                  "Seconds that each has to answer, all at the same time (default: 5)")
      ->check(CLI::Range(0.001, 86400.0));
  command.add_flag("--watch", options->watch, "Print a line for each change until ended");
  command
      .add_option(
          "--interval", options->interval,
          "With --watch: seconds between two questions to each name server that does not tell "
          "of changes at once (default: 1)")
      ->check(CLI::Range(0.01, 86400.0));
  return [options](Session& session) { return tellNet(session, *options); };
}

}  // namespace

std::vector<Command> commands::net() {
  return {
      {"net", "List the databases of many name servers", "sorvctl net --hosts hostA,hostB:20300",
       &declareNet},
  };
}

}  // namespace sorvctl
