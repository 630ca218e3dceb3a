#include "sorvctl/net/Watch.h"

#include <signal.h>

#include <algorithm>
#include <set>
#include <utility>

#include "platform/EndProcess.h"
#include "sorvctl/StopSignals.h"

namespace sorvctl::net {

namespace {

constexpr std::chrono::milliseconds kBetweenLooks{100};
constexpr std::chrono::milliseconds kTimeToEnd{100};
// The most lines for what has changed at a server from one look to the next.
constexpr std::size_t kMostLines = 1000;

}  // namespace

Watching::Watching(const Session& session, std::chrono::milliseconds interval)
    : session_(session), interval_(interval) {}

Watching::~Watching() = default;

void Watching::letGo(Followed& followed) {
  followed.follower->stop();
  leaving_.push_back(std::move(followed.follower));
}

void Watching::follow(const std::vector<Server>& servers) {
  std::erase_if(leaving_, [](const std::unique_ptr<Follower>& each) {
    return each->endsWithin(std::chrono::milliseconds(0));
  });
  std::set<Key> now;
  for (const Server& server : servers) {
    now.emplace(server.name, server.port);
  }
  for (auto each = followed_.begin(); each != followed_.end();) {
    if (now.contains(each->first)) {
      ++each;
      continue;
    }
    printServerChange(session_, each->first.first, "left");
    letGo(each->second);
    each = followed_.erase(each);
  }
  for (const Server& server : servers) {
    const Key key(server.name, server.port);
    const auto known = followed_.find(key);
    const bool isFollowed = known != followed_.end() && known->second.hosts == server.hosts;
    if (isFollowed || followed_.size() + leaving_.size() >= kMostServers) {
      continue;
    }
    Followed& followed = followed_[key];
    if (followed.follower) {
      letGo(followed);
    }
    followed.hosts = server.hosts;
    followed.follower = std::make_unique<Follower>(
        waysTo(server, session_.options()), Follower::Plan{interval_, kBoundsOfServer, [] {}});
  }
}

void Watching::tell() {
  for (auto& [key, followed] : followed_) {
    if (auto sight = followed.follower->take()) {
      tell(key.first, followed, std::move(*sight));
    }
  }
}

void Watching::tell(const std::string& name, Followed& followed, Sight sight) {
  if (std::exchange(followed.answered, sight.reached) != sight.reached) {
    printServerChange(session_, name, sight.reached ? "answers" : "noAnswer", sight.failure);
  }
  if (sight.reached) {
    DatabasesByName now = byName(std::move(sight.databases));
    printChanges(session_, name, followed.known, now, kMostLines);
    followed.known = std::move(now);
  }
}

bool Watching::end() {
  for (auto& [key, followed] : followed_) {
    letGo(followed);
  }
  followed_.clear();
  const auto deadline = std::chrono::steady_clock::now() + kTimeToEnd;
  return std::all_of(leaving_.begin(), leaving_.end(), [&](const auto& each) {
    return each->endsWithin(
        std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now()));
  });
}

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
