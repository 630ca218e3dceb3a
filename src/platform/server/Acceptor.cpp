#include "platform/server/Acceptor.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>

#include <algorithm>
#include <new>
#include <string>

namespace sorvane {
namespace {

Descriptor openSpare() { return Descriptor(open("/dev/null", O_RDONLY | O_CLOEXEC)); }

}  // namespace

Acceptor::Acceptor(int listener, int maximumConnections, ServerContext& context,
                   const std::vector<std::unique_ptr<ServingLoop>>& loops, AcceptCall accept)
    : listener_(listener),
      maximumConnections_(maximumConnections),
      context_(context),
      loops_(loops),
      accept_(accept),
      spare_(openSpare()) {}

// A structured binding names all members: a further one does not compile until somebody has decided
// what becomes of it.
int Acceptor::listener() const {
  const auto& [listener, maximumConnections, context, loops, accept, console, spare, fullTurn,
               accepted, paused, pausedUntil] = *this;
  return listener;
}

// The longer a turn, the more connections may have come meanwhile. In a short one, asking for a
// second connection would mostly be a system call in vain, unless the listening socket was ready in
// the turn before, too. A flood of them must not keep the loop's connections waiting: so there is a
// limit.
void Acceptor::acceptSome(std::uint64_t turn, std::size_t eventsOfTurn, Poller& poller) {
  if (paused_) {  // the poller has refused to stop watching
    stopWatching(poller);
    return;
  }
  const std::size_t twice = turn == fullTurn_ + 1 ? 2 * accepted_ : 1;
  const std::size_t most = std::clamp(std::max(twice, eventsOfTurn / kEventsForOne), std::size_t{1},
                                      std::size_t{kMostOfATurn});
  std::size_t left = most;
  while (left > 0 && acceptOne(poller)) {
    --left;
  }
  if (left == 0) {
    fullTurn_ = turn;
    accepted_ = most;
  }
}

bool Acceptor::acceptOne(Poller& poller) {
  const int descriptor = accept_(listener_);
  if (descriptor < 0) {
    if (isErrorOfOneConnection(errno)) {
      return true;
    }
    if (errno != EAGAIN && errno != EWOULDBLOCK) {
      console_.line("connections cannot be accepted for now: " + std::string(strerror(errno)));
      pause(poller);
    }
    return false;
  }
  if (context_.connections.load(std::memory_order_relaxed) >= maximumConnections_) {
    console_.line(peerName(descriptor) + ": closed, " + std::to_string(maximumConnections_) +
                  " connections are open already");
    closeSocket(descriptor);
    return true;
  }
  if (!mayConnect(descriptor)) {
    console_.line(peerName(descriptor) + ": closed, AllowedNetworks has no network for it");
    closeSocket(descriptor);
    return true;
  }
  try {
    leastLoaded().adopt(descriptor);
  } catch (const std::bad_alloc&) {
    console_.line(peerName(descriptor) + ": closed, there is no memory for it");
    closeSocket(descriptor);
  }
  return true;
}

bool Acceptor::mayConnect(int descriptor) const {
  const auto& allowed = context_.allowedNetworks;
  if (allowed.empty()) {
    return true;
  }
  const auto peer = peerAddress(descriptor);
  return peer && (std::any_of(allowed.begin(), allowed.end(),
                              [&](const IPNetwork& each) { return each.contains(*peer); }) ||
                  context_.ownAddresses.contains(*peer));
}

void Acceptor::pause(Poller& poller) {
  spare_.close();
  paused_ = true;
  pausedUntil_ = DeadlineQueue::Clock::now() + kBackOff;
  stopWatching(poller);
}

// While the poller refuses, the listening socket is reported as ready in each turn, and this is
// tried again.
void Acceptor::stopWatching(Poller& poller) {
  static_cast<void>(poller.modify(listener_, Poller::Interest::none, this));
}

void Acceptor::goOn(Poller& poller) {
  spare_ = openSpare();
  if (!spare_.isOpen() || !poller.modify(listener_, Poller::Interest::readable, this)) {
    pausedUntil_ = DeadlineQueue::Clock::now() + kBackOff;
    return;
  }
  paused_ = false;
}

ServingLoop& Acceptor::leastLoaded() const {
  ServingLoop* least = loops_.front().get();
  for (const auto& loop : loops_) {
    if (loop->load() < least->load()) {
      least = loop.get();
    }
  }
  return *least;
}

}  // namespace sorvane
