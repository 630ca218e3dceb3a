#include "sorvctl/net/Servers.h"

#include <algorithm>
#include <utility>

#include "sorvctl/Failure.h"
#include "sorvctl/HostAndPort.h"

namespace sorvctl::net {

std::vector<Server> serversOfList(std::string_view hosts, int port) {
  std::vector<Server> servers;
  while (true) {
    const std::size_t end = std::min(hosts.find(','), hosts.size());
    const std::string name(hosts.substr(0, end));
    const HostAndPort place = readHostAndPort(name);
    Server server{name, {place.host}, place.port.value_or(port)};
    const bool isKnown = std::any_of(servers.begin(), servers.end(), [&](const Server& each) {
      return each.hosts == server.hosts && each.port == server.port;
    });
    if (!isKnown) {
      servers.push_back(std::move(server));
    }
    if (servers.size() > kMostServers) {
      throw Failure(Status::wrongUsage,
                    "more than " + std::to_string(kMostServers) + " hosts are too many");
    }
    if (end == hosts.size()) {
      return servers;
    }
    hosts.remove_prefix(end + 1);
  }
}

std::vector<Server> serversOfNetwork(const std::set<NameServer>& found, int port) {
  std::vector<Server> servers;
  for (const NameServer& each : found) {  // the addresses of a name stand beside each other
    const int asked = port != 0 ? port : each.port;
    const auto known = std::find_if(servers.begin(), servers.end(), [&](const Server& server) {
      return server.name == each.name && server.port == asked;
    });
    if (known != servers.end()) {
      known->hosts.push_back(each.address);
    } else if (servers.size() < kMostServers) {
      servers.push_back({each.name, {each.address}, asked});
    }
  }
  return servers;
}

std::vector<Options> waysTo(const Server& server, const Options& common) {
  std::vector<Options> ways;
  for (const std::string& host : server.hosts) {
    Options& way = ways.emplace_back(common);
    way.host = host;
    way.port = server.port;
    way.maximumReplyBytes = kMostReplyBytes;
  }
  return ways;
}

}  // namespace sorvctl::net
