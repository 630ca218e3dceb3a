// What has to be there while a row is measured: servers, their names, connections that stay open.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "driver/Comparison.h"

namespace sorvane::bench {

/// The contender whom the aims concern, unless it goes by another name in its row.
inline const std::string kSubject = "sorvinfo";
inline constexpr int kManyConnections = 50;

/// The cores of a run: the servers on one, the generator on another.
struct Cores {
  std::vector<int> server;
  std::vector<int> generator;
  std::vector<int> all;
  /// The first core for the servers and the second for the generator; raises where there is one.
  [[nodiscard]] static Cores choose();
};

/// A row and what has to live while it is measured.
struct Scene {
  std::vector<std::unique_ptr<Server>> servers;
  std::vector<Socket> connections;
  Row row;
};

/// Opens connections to the name server that stay open, each with one ping answered.
[[nodiscard]] std::vector<Socket> openIdle(int port, int count);

/// Makes the scene of a row, a contender at a time. The servers that it answers live as long as the
/// scene. Keeps references to what it is made with.
class SceneBuilder {
 public:
  SceneBuilder(const Options& options, const Cores& cores, std::string title);

  const Server& nameServer() { return nameServer(cores_.server, 1); }
  const Server& nameServer(const std::vector<int>& on, int threads);
  const Server& echo(const std::vector<EchoStep>& steps);

  /// Registers the name that the lookups find, on a connection that stays open.
  void registerName(const Server& server);
  /// Enters so many names, on connections that stay open, each of its own as long as there may be
  /// one more. Answers the lookup of each name.
  [[nodiscard]] std::vector<Exchange> enterNames(const Server& server, std::size_t count);
  void holdIdle(const Server& server, int count);

  /// A contender whose connections stay open.
  void steady(const std::string& name, const Server& server, std::vector<Exchange> exchanges,
              int connections);
  /// The same with lookups of the registered name on many connections.
  void lookups(const std::string& name, const Server& server);
  /// A contender whose connections are opened and closed.
  void cycles(const std::string& name, const Server& server, const std::vector<Cycle>& cycles);
  /// Starts a rival and makes it a contender, unless it is not installed or not wanted.
  void rival(Rival::Kind kind, int connections, int depth);

  [[nodiscard]] Row& row() { return scene_.row; }
  [[nodiscard]] Scene take() { return std::move(scene_); }

 private:
  const Server& keep(std::unique_ptr<Server> server);

  const Options& options_;
  const Cores& cores_;
  Scene scene_;
};

}  // namespace sorvane::bench
