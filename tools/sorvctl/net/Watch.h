// Follows many name servers at the same time.
#pragma once

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "sorvctl/ChangeLines.h"
#include "sorvctl/Follower.h"
#include "sorvctl/Session.h"
#include "sorvctl/net/Servers.h"

namespace sorvctl::net {

/// Follows name servers, and prints what changes at them. One thread.
class Watching {
 public:
  /// `session` has the options of the command line, and must live longer. `interval` is the time
  /// between two questions to a server.
  Watching(const Session& session, std::chrono::milliseconds interval);
  ~Watching();
  Watching(const Watching&) = delete;
  Watching& operator=(const Watching&) = delete;

  /// Follows these servers, and no others, from now on. A server is the one with that name and
  /// port: if its addresses have changed, it is followed by the new ones, and nothing is printed.
  /// At most `kMostServers` are followed, those that have left but not ended yet included.
  void follow(const std::vector<Server>& servers);
  /// Prints what was seen since the last time.
  void tell();
  /// Follows no server any more. Returns whether all threads have ended within a moment.
  [[nodiscard]] bool end();

 private:
  using Key = std::pair<std::string, int>;  // name and port
  /// A server that is followed, and what has been told of it.
  struct Followed {
    std::vector<std::string> hosts;  // by which it is followed
    std::unique_ptr<Follower> follower;
    std::optional<bool> answered;
    DatabasesByName known;
  };

  void letGo(Followed& followed);
  void tell(const std::string& name, Followed& followed, Sight sight);

  const Session& session_;
  const std::chrono::milliseconds interval_;
  std::map<Key, Followed> followed_;
  std::vector<std::unique_ptr<Follower>> leaving_;  // whose threads have not ended yet
};

/// Prints a line for each change at the servers that `current` returns, and for each server that
/// answers, does not, or is no longer among them, until a signal ends it. `current` is called again
/// and again, on the caller's thread. `session` has the options of the command line.
void watch(const Session& session, std::chrono::milliseconds interval,
           const std::function<std::vector<Server>()>& current);

}  // namespace sorvctl::net
