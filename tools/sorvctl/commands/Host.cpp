#include <CLI/CLI.hpp>
#include <array>
#include <nlohmann/json.hpp>

#include "sorvctl/Command.h"
#include "sorvctl/Failure.h"
#include "sorvctl/Output.h"
#include "sorvctl/Session.h"

namespace sorvctl {

using sorvane::Message;

namespace {

constexpr std::array kHostFields{"name", "ethernetAddress", "address", "version", "platform"};

/// The fields of "NAME|ETHERNET|ADDRESS|VERSION|PLATFORM". A further "|" belongs to the name.
std::vector<std::pair<std::string, std::string>> hostFields(std::string text) {
  std::vector<std::pair<std::string, std::string>> fields(kHostFields.size());
  for (std::size_t index = kHostFields.size(); index-- > 0;) {
    const std::size_t separator = index > 0 ? text.rfind('|') : std::string::npos;
    const std::size_t begin = separator == std::string::npos ? 0 : separator + 1;
    fields[index] = {kHostFields[index], text.substr(begin)};
    text.erase(begin == 0 ? 0 : separator);
  }
  return fields;
}

int hostInfo(Session& session) {
  const std::string result =
      session.askForResult({{"action", "hostInfo"}, {"hostAddress", session.hostName()}});
  if (result == "local only") {
    throw Failure(Status::saidNo, "the server tells about its host on that host only");
  }
  printFields(session, hostFields(result));
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
