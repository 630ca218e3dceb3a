#include "driver/Setup.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>
#include <stdexcept>
#include <utility>

#include "driver/Exchange.h"
#include "driver/RivalRequests.h"

namespace sorvane::bench {

Cores Cores::choose() {
  const std::vector<int> all = availableCores();
  if (all.size() < 2) {
    throw std::runtime_error("two cores are needed: one for the servers, one for the generator");
  }
  return {{all[0]}, {all[1]}, all};
}

std::vector<Socket> openIdle(int port, int count) {
  std::vector<Socket> sockets;
  const std::string ping = sorvane_requests::ping();
  for (int i = 0; i < count; ++i) {
    sockets.push_back(connectTo(port));
    sockets.back().sendAll(ping);
    (void)sockets.back().receiveFrame();
  }
  return sockets;
}

Socket openRegistered(int port, std::string_view name) {
  Socket socket = connectTo(port);
  for (const std::string& request :
       {sorvane_requests::newPort(name), sorvane_requests::acceptPort()}) {
    socket.sendAll(request);
    (void)socket.receiveFrame();
  }
  return socket;
}

SetupBuilder::SetupBuilder(const Options& options, const Cores& cores, std::string title)
    : options_(options), cores_(cores) {
  setup_.row.title = std::move(title);
  setup_.row.subject = kSubject;
}

const Server& SetupBuilder::nameServer(const std::vector<int>& on, int threads) {
  return keep(std::make_unique<NameServer>(options_.daemon, on, threads));
}

const Server& SetupBuilder::nameServer(NameServer::AfterCrash afterCrash) {
  return keep(std::make_unique<NameServer>(options_.daemon, cores_.server, 1, true, afterCrash));
}

const Server& SetupBuilder::echo(const std::vector<EchoStep>& steps) {
  return keep(std::make_unique<Echo>(cores_.server, steps));
}

void SetupBuilder::registerName(const Server& server) {
  setup_.connections.push_back(openRegistered(server.port(), sorvane_requests::kName));
}

std::vector<Exchange> SetupBuilder::enterNames(const Server& server, std::size_t count) {
  const auto nameOf = [](std::size_t number) { return fmt::format("db{:07}", number); };
  const std::size_t connections =
      std::min(count, static_cast<std::size_t>(options_.idleConnections));
  std::vector<Exchange> lookups(count);
  for (std::size_t first = 0; first < connections; ++first) {
    Socket socket = connectTo(server.port());
    std::string latest;
    for (std::size_t number = first; number < count; number += connections) {
      latest = nameOf(number);
      socket.sendAll(sorvane_requests::reconnectPort(latest));
      (void)socket.receiveFrame();
    }
    for (std::size_t number = first; number < count; number += connections) {
      lookups[number] = sorvane_requests::findReconnected(nameOf(number), latest);
    }
    setup_.connections.push_back(std::move(socket));
  }
  return lookups;
}

void SetupBuilder::holdIdle(const Server& server, int count) {
  std::vector<Socket> idle = openIdle(server.port(), count);
  std::move(idle.begin(), idle.end(), std::back_inserter(setup_.connections));
}

void SetupBuilder::steady(const std::string& name, const Server& server,
                          std::vector<Exchange> exchanges, int connections) {
  setup_.row.contenders.push_back(
      {name, &server, [exchanges = std::move(exchanges), connections, port = server.port()] {
         return std::make_unique<SteadyLoad>(port, exchanges, connections);
       }});
}

// The reply is recorded, since it holds a port number that each server chooses by itself.
void SetupBuilder::lookups(const std::string& name, const Server& server) {
  steady(name, server, {recordExchange(server.port(), sorvane_requests::findPort())},
         kManyConnections);
}

void SetupBuilder::crowded(const std::string& name, const Server& server,
                           const std::shared_ptr<Crowd>& crowd, int changesPerSecond) {
  const Exchange lookup = recordExchange(server.port(), sorvane_requests::findPort());
  setup_.row.contenders.push_back(
      {name, &server, [lookup, crowd, changesPerSecond, port = server.port()] {
         return std::make_unique<CrowdLoad>(port, std::vector{lookup}, kManyConnections, *crowd,
                                            changesPerSecond);
       }});
}

void SetupBuilder::watched(const std::string& name, const Server& server,
                           const std::shared_ptr<Watchers>& watchers, int changesPerSecond) {
  constexpr int kDepth = 16;
  const Exchange lookups =
      pipelined(recordExchange(server.port(), sorvane_requests::findPort()), kDepth);
  setup_.row.contenders.push_back(
      {name, &server, [lookups, watchers, changesPerSecond, port = server.port()] {
         return std::make_unique<WatchedLoad>(port, std::vector{lookups}, 1, *watchers,
                                              changesPerSecond);
       }});
}

void SetupBuilder::cycles(const std::string& name, const Server& server,
                          const std::vector<Cycle>& cycles) {
  setup_.row.contenders.push_back({name, &server, [cycles, port = server.port()] {
                                     return std::make_unique<CycleLoad>(port, cycles);
                                   }});
}

void SetupBuilder::rival(Rival::Kind kind, int connections, int depth) {
  if (!options_.rivals) {
    return;
  }
  if (std::unique_ptr<Rival> rival = Rival::start(kind, cores_.server)) {
    const Server& server = keep(std::move(rival));
    rival_requests::store(kind, server.port());
    steady(rival_requests::name(kind, depth), server, {rival_requests::get(kind, depth)},
           connections);
  }
}

const Server& SetupBuilder::keep(std::unique_ptr<Server> server) {
  setup_.servers.push_back(std::move(server));
  return *setup_.servers.back();
}

}  // namespace sorvane::bench
