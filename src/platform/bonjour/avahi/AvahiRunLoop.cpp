#include "platform/bonjour/avahi/AvahiRunLoop.h"

#include <unistd.h>

#include <thread>

#include "platform/Console.h"
#include "platform/SignalsBlocked.h"

namespace sorvane {
namespace {

void swallow(AvahiWatch*, int descriptor, AvahiWatchEvent, void*) {
  char bytes[64];
  while (read(descriptor, bytes, sizeof bytes) > 0) {
  }
}

}  // namespace

AvahiRunLoop::AvahiRunLoop() {
  const SignalsBlocked blocked;
  std::thread([this] { run(); }).detach();
}

void AvahiRunLoop::performAfterDelay(std::chrono::milliseconds delay, Call call) {
  calls_.add(Clock::now() + delay, std::move(call));
  wake();
}

void AvahiRunLoop::wake() {
  const int descriptor = wakeDescriptor_;
  if (descriptor >= 0) {
    // A full pipe wakes the loop, too.
    [[maybe_unused]] const ssize_t ignored = write(descriptor, "", 1);
  }
}

bool AvahiRunLoop::prepare() {
  pipe_ = openPipe();
  if (!pipe_.reading.isOpen()) {
    return false;
  }
  poll()->watch_new(poll(), pipe_.reading.number(), AVAHI_WATCH_IN, swallow, nullptr);
  wakeDescriptor_ = pipe_.writing.number();
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
  do {
    calls_.makeDue(Clock::now());
  } while (watches_.wait(calls_.waitingTime(Clock::now())));
  consoleLine("Bonjour: its run loop has failed; nothing is published or found any more");
}

}  // namespace sorvane
