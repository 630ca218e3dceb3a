#include "platform/TimeSource.h"

#include <atomic>
#include <chrono>

namespace sorvane {
namespace {

double systemTime() {
  const std::chrono::duration<double> sinceUnixEpoch =
      std::chrono::system_clock::now().time_since_epoch();
  return sinceUnixEpoch.count() - kReferenceDateUnixSeconds;
}

std::atomic<TimeSource> timeSource{systemTime};

}  // namespace

double timeIntervalSinceReferenceDate() { return timeSource.load(std::memory_order_relaxed)(); }

void setTimeSource(TimeSource source) {
  timeSource.store(source != nullptr ? source : systemTime, std::memory_order_relaxed);
}

}  // namespace sorvane
