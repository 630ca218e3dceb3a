#include "driver/Watchers.h"

#include <array>
#include <stdexcept>

namespace sorvane::bench {
namespace {

std::chrono::nanoseconds intervalOf(int perSecond) {
  constexpr std::chrono::nanoseconds kSecond = std::chrono::seconds(1);
  return perSecond == 0 ? std::chrono::nanoseconds(0) : kSecond / perSecond;
}

}  // namespace

Watchers::Watchers(int port, int size) : maker_(connectTo(port)) {
  for (int i = 0; i < size; ++i) {
    Socket& each = sockets_.emplace_back(connectTo(port));
    each.sendAll(sorvane_requests::awaitPortChanges());
    if (each.receiveFrame() != sorvane_requests::result("YES")) {
      throw std::runtime_error("the server does not let watchers wait");
    }
    each.sendAll(sorvane_requests::awaitPortChanges());
  }
}

WatchedLoad::WatchedLoad(int port, std::vector<Exchange> exchanges, int connections,
                         Watchers& watchers, int changesPerSecond)
    : SteadyLoad(port, std::move(exchanges), connections),
      firstWatcher_(static_cast<std::uint32_t>(connections) + 1),
      watchers_(watchers),
      interval_(intervalOf(changesPerSecond)),
      change_(sorvane_requests::refresh()),
      wait_(sorvane_requests::awaitPortChanges()),
      told_(sorvane_requests::result("YES")) {
  watch(watchers_.maker_.descriptor(), firstWatcher_ - 1);
  for (std::size_t i = 0; i < watchers_.sockets_.size(); ++i) {
    watch(watchers_.sockets_[i].descriptor(), firstWatcher_ + static_cast<std::uint32_t>(i));
  }
}

void WatchedLoad::begin() {
  SteadyLoad::begin();
  next_ = Clock::now();
}

void WatchedLoad::proceed(Clock::time_point now, bool ending) {
  if (!ending && interval_.count() > 0 && now >= next_) {
    next_ += interval_;
    watchers_.maker_.sendAll(change_.request);
    ++changesUnderWay_;
  }
}

void WatchedLoad::handle(std::uint32_t index, Clock::time_point now, bool ending) {
  if (index + 1 < firstWatcher_) {
    SteadyLoad::handle(index, now, ending);
    return;
  }
  const bool isMaker = index < firstWatcher_;
  const Socket& socket = isMaker ? watchers_.maker_ : watchers_.sockets_[index - firstWatcher_];
  const std::string& due = isMaker ? change_.reply : told_;
  std::array<char, 256> bytes;
  const std::size_t got = take(socket, bytes.data(), due.size());
  if (std::string_view(bytes.data(), got) != due) {
    throw std::runtime_error("the server sent something else than a reply to a watcher");
  }
  if (isMaker) {
    --changesUnderWay_;
  } else {
    socket.sendAll(wait_);
  }
}

}  // namespace sorvane::bench
