#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "sorvctl/Command.h"
#include "sorvctl/Continuity.h"
#include "sorvctl/Failure.h"
#include "sorvctl/HostInfo.h"
#include "sorvctl/Output.h"
#include "sorvctl/Session.h"

namespace sorvctl {

using sorvane::Message;

namespace {

int hostInfo(Session& session) {
  const std::optional<HostInfo> info = readHostInfo(session);
  if (!info) {
    throw Failure(Status::saidNo, "the server tells about its host on that host only");
  }
  std::vector<std::pair<std::string, std::string>> fields{
      {"name", info->name},
      {"ethernetAddress", info->ethernetAddress},
      {"address", info->address},
      {"version", info->version},
      {"platform", info->platform}};
  const std::optional<Continuity> continuity = readContinuity(session);
  if (continuity && continuity->upgrades > 0) {
    fields.emplace_back("upgrades", std::to_string(continuity->upgrades));
  }
  printFields(session, fields);
  return 0;
}

int hosts(Session& session) {
  std::string list = session.askForResult(action("hostList"));
  std::vector<std::vector<nlohmann::ordered_json>> rows;
  while (!list.empty()) {
    const std::string key = list.substr(0, list.find('|'));
    list.erase(0, key.size() + 1);
    const std::size_t at = std::min(key.rfind('@'), key.size());
    const std::string host = key.substr(0, at);
    const std::string address = key.substr(std::min(at + 1, key.size()));
    rows.push_back({host, address});
  }
  printTable(session, {{"host"}, {"address"}}, rows);
  return 0;
}

/// Sends a request that ends the server. The server does not reply: it closes the connection.
int end(Session& session, const Message& request) {
  sorvane::NetConnection& connection = session.connection();
  const bool answered = connection.sendDictionary(request).has_value() || connection.isConnected();
  if (answered) {
    throw Failure(Status::saidNo, "the server goes on");
  }
  if (!connection.wasClosedByPeer()) {
    throw Failure(Status::notReached, connection.lastError());
  }
  return 0;
}

Handler declareHostInfo(CLI::App& /*command*/) { return &hostInfo; }
Handler declareHosts(CLI::App& /*command*/) { return &hosts; }

Handler declareTerminate(CLI::App& /*command*/) {
  return [](Session& session) { return end(session, {{"terminate", ""}}); };
}

Handler declareRestart(CLI::App& /*command*/) {
  return [](Session& session) { return end(session, action("restart")); };
}

}  // namespace

std::vector<Command> commands::host() {
  return {
      {"host-info", "Tell about the server's host", "sorvctl host-info", &declareHostInfo},
      {"hosts", "List the hosts whose launcher has connected", "sorvctl hosts", &declareHosts},
      {"terminate", "End the name server", "sorvctl terminate", &declareTerminate},
      {"restart", "End the name server, for whoever restarts it", "sorvctl restart",
       &declareRestart},
  };
}

}  // namespace sorvctl
