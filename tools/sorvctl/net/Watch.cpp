#include "sorvctl/net/Watch.h"

#include <signal.h>

#include <algorithm>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <utility>

#include "platform/EndProcess.h"
#include "sorvctl/ChangeLines.h"
#include "sorvctl/Follower.h"
#include "sorvctl/StopSignals.h"

namespace sorvctl::net {

namespace {

constexpr std::chrono::milliseconds kBetweenLooks{100};
constexpr std::chrono::milliseconds kTimeToEnd{100};
// The most lines for what has changed at a server from one look to the next.
constexpr std::size_t kMostLines = 1000;

/// A server that is followed, and what has been told of it.
struct Followed {
  std::unique_ptr<Follower> follower;
  std::optional<bool> answered;
  DatabasesByName known;
};

class Watching {
 public:
  Watching(const Session& session, std::chrono::milliseconds interval)
      : session_(session), interval_(interval) {}

  /// Begins to follow those that are new, and lets go of those that are no longer there.
  void follow(const std::vector<Server>& servers) {
    std::erase_if(leaving_, [](const std::unique_ptr<Follower>& each) {
      return each->endsWithin(std::chrono::milliseconds(0));
    });
    const std::set<Server> now(servers.begin(), servers.end());
    for (auto each = followed_.begin(); each != followed_.end();) {
      if (now.contains(each->first)) {
        ++each;
        continue;
      }
      printServerChange(session_, each->first.name, "left");
      each->second.follower->stop();
      leaving_.push_back(std::move(each->second.follower));
      each = followed_.erase(each);
    }
    for (const Server& server : servers) {
      if (!followed_.contains(server) && followed_.size() + leaving_.size() < kMostServers) {
        followed_[server].follower =
            std::make_unique<Follower>(waysTo(server, session_.options()),
                                       Follower::Plan{interval_, kMostDatabasesOfServer, [] {}});
      }
    }
  }

  void tell() {
    for (auto& [server, followed] : followed_) {
      if (auto sight = followed.follower->take()) {
        tell(server.name, followed, std::move(*sight));
      }
    }
  }

  /// Returns whether all threads have ended within the time.
  [[nodiscard]] bool end() {
    for (auto& [server, followed] : followed_) {
      followed.follower->stop();
      leaving_.push_back(std::move(followed.follower));
    }
    followed_.clear();
    const auto deadline = std::chrono::steady_clock::now() + kTimeToEnd;
    return std::all_of(leaving_.begin(), leaving_.end(), [&](const auto& each) {
      return each->endsWithin(std::chrono::ceil<std::chrono::milliseconds>(
          deadline - std::chrono::steady_clock::now()));
    });
  }

 private:
  void tell(const std::string& name, Followed& followed, Sight sight) {
    if (std::exchange(followed.answered, sight.reached) != sight.reached) {
      printServerChange(session_, name, sight.reached ? "answers" : "noAnswer", sight.failure);
    }
    if (sight.reached) {
      DatabasesByName now = byName(std::move(sight.databases));
      printChanges(session_, name, followed.known, now, kMostLines);
      followed.known = std::move(now);
    }
  }

  const Session& session_;
  const std::chrono::milliseconds interval_;
  std::map<Server, Followed> followed_;
  std::vector<std::unique_ptr<Follower>> leaving_;  // whose threads have not ended yet
};

}  // namespace

void watch(const Session& session, std::chrono::milliseconds interval,
           const std::function<std::vector<Server>()>& current) {
  StopSignals signals;
  Watching watching(session, interval);
  std::optional<Signal> signal;
  while (!signal || signal->number == SIGCHLD) {
    watching.follow(current());
    watching.tell();
    signal = signals.wait(kBetweenLooks);
  }
  if (!watching.end()) {
    sorvane::endProcess();  // rather than wait for servers that are slow
  }
}

}  // namespace sorvctl::net
