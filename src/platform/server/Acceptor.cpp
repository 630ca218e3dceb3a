#include "platform/server/Acceptor.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>

#include <algorithm>
#include <string>

#include "platform/server/SocketCalls.h"

namespace sorvane {
namespace {

Descriptor openSpare() { return Descriptor(open("/dev/null", O_RDONLY | O_CLOEXEC)); }

}  // namespace

Acceptor::Acceptor(int listener, int maximumConnections, ServerContext& context,
                   const std::vector<std::unique_ptr<ServingLoop>>& loops)
    : listener_(listener),
      maximumConnections_(maximumConnections),
      context_(context),
      loops_(loops),
      spare_(openSpare()) {}

// One connection a call: a flood of them must not keep the loop's connections waiting. Asking for a
// second one would mostly be a system call in vain.
void Acceptor::acceptOne(Poller& poller) {
  const int descriptor = acceptConnection(listener_);
  if (descriptor < 0) {
    if (errno != EAGAIN && errno != EWOULDBLOCK) {
      console_.line("connections cannot be accepted for now: " + std::string(strerror(errno)));
      pause(poller);
    }
    return;
  }
  if (context_.connections.load(std::memory_order_relaxed) >= maximumConnections_) {
    console_.line(peerName(descriptor) + ": closed, " + std::to_string(maximumConnections_) +
                  " connections are open already");
    closeSocket(descriptor);
    return;
  }
  if (!mayConnect(descriptor)) {
    console_.line(peerName(descriptor) + ": closed, AllowedNetworks has no network for it");
    closeSocket(descriptor);
    return;
  }
  leastLoaded().adopt(descriptor);
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
  poller.modify(listener_, Poller::Interest::none, this);
}

void Acceptor::goOn(Poller& poller) {
  spare_ = openSpare();
  if (!spare_.isOpen()) {
    pausedUntil_ = DeadlineQueue::Clock::now() + kBackOff;
    return;
  }
  paused_ = false;
  poller.modify(listener_, Poller::Interest::readable, this);
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
