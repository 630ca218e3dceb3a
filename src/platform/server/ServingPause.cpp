#include "platform/server/ServingPause.h"

namespace sorvane {

// A loop that settles late, for a call that was given up, does not count for the next one.
void ServingPause::stand(const std::function<void()>& settle) {
  std::unique_lock<std::mutex> hold(mutex_);
  std::uint64_t done = settling_;
  ++standing_;
  changed_.notify_all();
  while (isAskedFor()) {
    if (done == settling_) {
      changed_.wait(hold);
      continue;
    }
    done = settling_;
    hold.unlock();
    settle();
    hold.lock();
    if (done == settling_) {
      ++settled_;
      changed_.notify_all();
    }
  }
  --standing_;
}

void ServingPause::askToStand() {
  const std::lock_guard<std::mutex> hold(mutex_);
  wish_.store(Wish::standing);
}

bool ServingPause::waitForLoops(std::size_t loops, Clock::time_point end) {
  std::unique_lock<std::mutex> hold(mutex_);
  return changed_.wait_until(hold, end, [&] { return standing_ == loops; });
}

bool ServingPause::settle(std::size_t loops, Clock::time_point end) {
  std::unique_lock<std::mutex> hold(mutex_);
  ++settling_;
  settled_ = 0;
  changed_.notify_all();
  return changed_.wait_until(hold, end, [&] { return settled_ == loops; });
}

void ServingPause::goOn() {
  const std::lock_guard<std::mutex> hold(mutex_);
  wish_.store(Wish::none);
  changed_.notify_all();
}

}  // namespace sorvane
