#include "platform/server/RunningLoops.h"

#include <algorithm>
#include <thread>

#include "platform/server/Acceptor.h"
#include "platform/server/ContinuedConnections.h"

namespace sorvane {

RunningLoops::RunningLoops(ServerContext& context,
                           const std::vector<std::unique_ptr<ServingLoop>>& loops,
                           const Acceptor& acceptor)
    : context_(context),
      loops_(loops),
      acceptor_(acceptor),
      threads_{&context.deliveries, &threadOf(Disk::log), &threadOf(Disk::preferences)} {
  steps_.reserve(loops.size() + 1);
  for (const auto& loop : loops) {
    steps_.emplace_back(
        [this, &loop = *loop, next = steps_.size() + 1] { loop.perform(steps_[next]); });
  }
  steps_.emplace_back([this] { round_->onServingThread(); });
}

void RunningLoops::goRound(const Round& round) {
  // Before the requests that wait: however many these are, the server serves.
  context_.deliveries.runNext([this, &round] {
    round.onWaitingThread();
    round_ = &round;
    steps_.front()();
  });
}

int RunningLoops::listener() const { return acceptor_.listener(); }

int RunningLoops::connections() const {
  return context_.connections.load(std::memory_order_relaxed);
}

bool RunningLoops::pause(Clock::time_point end) {
  for (auto wait = kFirstWait;; wait = std::min(2 * wait, kLongestWait)) {
    if (tryToPause(wait, end)) {
      return true;
    }
    if (Clock::now() >= end) {
      return false;
    }
    // What was set aside has its turn.
    std::this_thread::sleep_until(std::min(Clock::now() + wait, end));
  }
}

// First the threads and disks work off what they have while the loops serve, so that the loops
// stand for a short time only. A disk that does not come to an end of it with that may do so
// without the loops, whose connections may cause work when they end.
bool RunningLoops::tryToPause(std::chrono::milliseconds wait, Clock::time_point end) {
  context_.pause.beginSettingAside();
  const auto endOfWait = std::min(Clock::now() + wait, end);
  static_cast<void>(std::all_of(threads_.begin(), threads_.end(),
                                [&](auto* each) { return each->waitUntilIdle(endOfWait); }));
  if (stand(std::min(Clock::now() + kStanding, end))) {
    return true;
  }
  goOn();
  return false;
}

// While the loops stand, they hand out no work. Another thread may begin a round: that waits then.
bool RunningLoops::stand(Clock::time_point end) {
  context_.pause.askToStand();
  wakeLoops();
  return context_.pause.waitForLoops(loops_.size(), end) &&
         std::all_of(threads_.begin(), threads_.end(),
                     [&](auto* each) { return each->waitUntilIdle(end); }) &&
         context_.pause.settle(loops_.size(), end) &&
         std::all_of(threads_.begin(), threads_.end(),
                     [&](auto* each) { return each->stopWhenIdle(end); });
}

void RunningLoops::keep(KeptWriter& writer) const {
  keepConnections(writer, acceptor_.listener(), loops_, context_);
}

void RunningLoops::goOn() {
  for (WaitingThreads* const each : threads_) {
    each->goOn();
  }
  context_.pause.goOn();
  wakeLoops();
}

void RunningLoops::wakeLoops() const {
  for (const auto& loop : loops_) {
    loop->wake();
  }
}

}  // namespace sorvane
