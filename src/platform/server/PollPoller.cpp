// The Poller on poll(2), for systems whose own readiness call has no implementation here yet.
#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <map>
#include <mutex>
#include <system_error>
#include <vector>

#include "platform/Descriptor.h"
#include "platform/WithoutInterruption.h"
#include "platform/server/Poller.h"

namespace sorvane {
namespace {

struct Watched {
  Poller::Interest interest;
  void* owner;
};

short eventsFor(Poller::Interest interest) {
  switch (interest) {
    case Poller::Interest::readable:
      return POLLIN;
    case Poller::Interest::writable:
      return POLLOUT;
    case Poller::Interest::none:
      break;
  }
  return 0;
}

}  // namespace

struct Poller::State {
  /// Adds an event for the polled descriptor at `index`, if it is ready and there is room.
  void report(std::size_t index);
  /// Returns where in `polled` the next scan begins.
  [[nodiscard]] std::size_t firstAfterLastReported() const;

  Descriptor readEnd;   // of the pipe that wakes the waiting thread
  Descriptor writeEnd;  // of the same
  std::mutex mutex;
  std::map<int, Watched> watched;  // guarded by mutex
  // Used by the waiting thread alone:
  std::vector<pollfd> polled;
  std::vector<void*> owners;
  std::vector<Event> events;
  int lastReported = -1;  // after this descriptor the next scan begins
};

void Poller::State::report(std::size_t index) {
  const short bits = polled[index].revents;
  if (bits == 0 || events.size() == kEventsAtOnce) {
    return;
  }
  events.push_back({owners[index], (bits & (POLLIN | POLLHUP | POLLERR)) != 0,
                    (bits & (POLLOUT | POLLHUP | POLLERR)) != 0});
  if (index > 0) {
    lastReported = polled[index].fd;
  }
}

std::size_t Poller::State::firstAfterLastReported() const {
  const auto first =
      std::upper_bound(polled.begin() + 1, polled.end(), lastReported,
                       [](int descriptor, const pollfd& each) { return descriptor < each.fd; });
  return static_cast<std::size_t>(first - polled.begin());
}

Poller::Poller() : state_(std::make_unique<State>()) {
  int ends[2];
  if (pipe(ends) != 0) {
    throw std::system_error(errno, std::generic_category(), "pipe");
  }
  state_->readEnd = Descriptor(ends[0]);
  state_->writeEnd = Descriptor(ends[1]);
  for (const int end : ends) {
    fcntl(end, F_SETFD, FD_CLOEXEC);
    fcntl(end, F_SETFL, O_NONBLOCK);
  }
}

Poller::~Poller() = default;

bool Poller::add(int descriptor, Interest interest, void* owner) {
  return modify(descriptor, interest, owner);
}

bool Poller::modify(int descriptor, Interest interest, void* owner) {
  {
    const std::lock_guard<std::mutex> hold(state_->mutex);
    state_->watched[descriptor] = {interest, owner};
  }
  wake();
  return true;
}

void Poller::remove(int descriptor) {
  const std::lock_guard<std::mutex> hold(state_->mutex);
  state_->watched.erase(descriptor);
}

std::span<const Poller::Event> Poller::wait(int milliseconds) {
  state_->polled.assign(1, {state_->readEnd.number(), POLLIN, 0});
  state_->owners.assign(1, nullptr);
  {
    const std::lock_guard<std::mutex> hold(state_->mutex);
    for (const auto& [descriptor, watched] : state_->watched) {
      state_->polled.push_back({descriptor, eventsFor(watched.interest), 0});
      state_->owners.push_back(watched.owner);
    }
  }
  state_->events.clear();
  if (poll(state_->polled.data(), state_->polled.size(), milliseconds) <= 0) {
    return {};
  }
  if (state_->polled.front().revents != 0) {
    char taken[64];
    while (read(state_->readEnd.number(), taken, sizeof taken) > 0) {
    }
    state_->report(0);
  }
  // The watched descriptors stand behind the pipe in the order of their numbers. If more are ready
  // than are reported at once, the others come first the next time.
  const std::size_t end = state_->polled.size();
  const std::size_t begin = state_->firstAfterLastReported();
  for (std::size_t i = begin; i < end; ++i) {
    state_->report(i);
  }
  for (std::size_t i = 1; i < begin; ++i) {
    state_->report(i);
  }
  return state_->events;
}

void Poller::wake() {
  const char once = 1;
  [[maybe_unused]] const ssize_t written =
      withoutInterruption([&] { return write(state_->writeEnd.number(), &once, 1); });
}

}  // namespace sorvane
