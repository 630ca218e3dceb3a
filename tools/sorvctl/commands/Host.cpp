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

/// The five fields of "NAME|ETHERNET|ADDRESS|VERSION|PLATFORM"; a "|" too many is the name's.
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
  const auto fields = hostFields(result);
  if (session.json()) {
    auto object = nlohmann::ordered_json::object();
    for (const auto& [name, value] : fields) {
      object[name] = value;
    }
    printJson(object);
  } else {
    print(pairLines(fields));
  }
  return 0;
}

int hosts(Session& session) {
  std::string list = session.askForResult(action("hostList"));
  auto array = nlohmann::ordered_json::array();
  Table table({"HOST", "ADDRESS"});
  while (!list.empty()) {
    const std::string key = list.substr(0, list.find('|'));
    list.erase(0, key.size() + 1);
    const std::size_t at = std::min(key.rfind('@'), key.size());
    const std::string host = key.substr(0, at);
    const std::string address = key.substr(std::min(at + 1, key.size()));
    array.push_back({{"host", host}, {"address", address}});
    table.row({host, address});
  }
  if (session.json()) {
    printJson(array);
  } else {
    print(table.text());
  }
  return 0;
}

/// The server ends without a reply: the end of the connection is the answer.
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
