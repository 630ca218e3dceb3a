#include "platform/bonjour/avahi/AvahiRunLoop.h"

#include <avahi-common/error.h>
#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <thread>

#include "platform/Console.h"

namespace sorvane {
namespace {

void makeQuiet(int descriptor) {
  fcntl(descriptor, F_SETFD, FD_CLOEXEC);
  fcntl(descriptor, F_SETFL, fcntl(descriptor, F_GETFL) | O_NONBLOCK);
}

void swallow(AvahiWatch*, int descriptor, AvahiWatchEvent, void*) {
  char bytes[64];
  while (read(descriptor, bytes, sizeof bytes) > 0) {
  }
}

}  // namespace

AvahiRunLoop::AvahiRunLoop() {
  sigset_t all;
  sigset_t before;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &before);
  std::thread([this] { run(); }).detach();
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

void AvahiRunLoop::performAfterDelay(std::chrono::milliseconds delay, Call call) {
  calls_.add(Clock::now() + delay, std::move(call));
  wake();
}

// The loop has a pipe of its own. The library's wakeup may lose track of a byte that is written
// while another thread empties the library's pipe; the library's loop then spins.
void AvahiRunLoop::wake() {
  const int descriptor = wakeDescriptor_;
  if (descriptor >= 0) {
    // A full pipe wakes the loop, too.
    [[maybe_unused]] const ssize_t ignored = write(descriptor, "", 1);
  }
}

bool AvahiRunLoop::prepare() {
  int ends[2];
  poll_ = avahi_simple_poll_new();
  if (poll_ == nullptr) {
    return false;
  }
  if (pipe(ends) != 0) {
    avahi_simple_poll_free(poll_);
    return false;
  }
  makeQuiet(ends[0]);
  makeQuiet(ends[1]);
  poll()->watch_new(poll(), ends[0], AVAHI_WATCH_IN, swallow, nullptr);
  wakeDescriptor_ = ends[1];
  return true;
}

void AvahiRunLoop::run() {
  bool reported = false;
  while (!prepare()) {
    if (!reported) {
      consoleLine("Bonjour: no descriptor is free; waiting for one");
      reported = true;
    }
    std::this_thread::sleep_for(std::chrono::seconds(1));
  }
  int outcome = 0;
  while (outcome == 0) {
    calls_.makeDue(Clock::now());
    const std::optional<std::chrono::milliseconds> time = calls_.waitingTime(Clock::now());
    outcome =
        avahi_simple_poll_iterate(poll_, time.has_value() ? static_cast<int>(time->count()) : -1);
  }
  consoleLine("Bonjour: its run loop has failed; nothing is published or found any more");
}

}  // namespace sorvane
