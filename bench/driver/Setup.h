// What has to run while a row is measured: servers, their names, connections that stay open.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "driver/Comparison.h"
#include "driver/Crowd.h"
#include "driver/Watchers.h"

namespace sorvane::bench {

/// The contender that the aims are for, unless its row names another.
inline const std::string kSubject = "sorvinfo";
inline constexpr int kManyConnections = 50;

/// The cores of a run: the servers on one, the generator on another.
struct Cores {
  std::vector<int> server;
  std::vector<int> generator;
  std::vector<int> all;
  /// The first core for the servers, the second for the generator; raises when there is only one.
  [[nodiscard]] static Cores choose();
};

/// A row, and what has to run while it is measured.
struct Setup {
  std::vector<std::unique_ptr<Server>> servers;
  std::vector<Socket> connections;
  Row row;
};

/// Opens connections to the name server; each has had one ping answered.
[[nodiscard]] std::vector<Socket> openIdle(int port, int count);

/// Opens a connection that registers a name, in the two steps in which databases do it.
[[nodiscard]] Socket openRegistered(int port, std::string_view name);

/// Makes the setup of a row, a contender at a time. The servers that it returns live as long as the
/// setup. Keeps references to its arguments.
class SetupBuilder {
 public:
  SetupBuilder(const Options& options, const Cores& cores, std::string title);

  const Server& nameServer() { return nameServer(cores_.server, 1); }
  const Server& nameServer(const std::vector<int>& on, int threads);
  const Server& nameServer(NameServer::AfterCrash afterCrash);
  const Server& echo(const std::vector<EchoStep>& steps);

  /// Registers the name that the lookups find, on a connection that stays open.
  void registerName(const Server& server);
  /// Registers so many names, on connections that stay open. Each name has a connection of its own
  /// as long as the options allow another connection. Returns the lookup of each name.
  [[nodiscard]] std::vector<Exchange> enterNames(const Server& server, std::size_t count);
  void holdIdle(const Server& server, int count);

  /// A contender whose connections stay open.
  void steady(const std::string& name, const Server& server, std::vector<Exchange> exchanges,
              int connections);
  /// The same, with lookups of the registered name on `kManyConnections` connections.
  void lookups(const std::string& name, const Server& server);
  /// The same, beside a crowd, of whose databases so many a second come anew.
  void crowded(const std::string& name, const Server& server, const std::shared_ptr<Crowd>& crowd,
               int changesPerSecond);
  /// A connection that looks the registered name up, sixteen times at once, beside watchers who are
  /// told of so many changes a second.
  void watched(const std::string& name, const Server& server,
               const std::shared_ptr<Watchers>& watchers, int changesPerSecond);
  /// A contender whose connections are opened and closed.
  void cycles(const std::string& name, const Server& server, const std::vector<Cycle>& cycles);
  /// Starts a rival and makes it a contender, unless it is not installed or not wanted.
  void rival(Rival::Kind kind, int connections, int depth);

  [[nodiscard]] Row& row() { return setup_.row; }
  [[nodiscard]] Setup take() { return std::move(setup_); }

 private:
  const Server& keep(std::unique_ptr<Server> server);

  const Options& options_;
  const Cores& cores_;
  Setup setup_;
};

}  // namespace sorvane::bench
