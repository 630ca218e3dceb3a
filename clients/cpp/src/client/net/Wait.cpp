#include "client/net/Wait.h"

#include <poll.h>

#include <algorithm>

namespace sorvane::client::detail {
namespace {

Woken waitFor(int descriptor, short events, const Limit& limit) {
  while (true) {
    const auto left =
        std::chrono::ceil<std::chrono::milliseconds>(limit.deadline - Clock::now()).count();
    pollfd polled[2] = {{descriptor, events, 0}, {limit.wake, POLLIN, 0}};
    // A signal interrupts the call; it is then made again.
    const int count = poll(polled, 2, static_cast<int>(std::clamp<long long>(left, 0, 60000)));
    if (count > 0) {
      return polled[1].revents != 0 ? Woken::wake : Woken::ready;
    }
    if (left <= 0) {
      return Woken::deadline;
    }
  }
}

}  // namespace

Clock::time_point after(std::chrono::milliseconds time) {
  constexpr std::chrono::milliseconds kYear = std::chrono::hours(24 * 365);
  return Clock::now() + std::clamp(time, std::chrono::milliseconds(0), kYear);
}

Woken waitForReading(int descriptor, const Limit& limit) {
  return waitFor(descriptor, POLLIN, limit);
}

Woken waitForWriting(int descriptor, const Limit& limit) {
  return waitFor(descriptor, POLLOUT, limit);
}

}  // namespace sorvane::client::detail
