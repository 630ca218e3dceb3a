#include "sorvctl/Follower.h"

#include <condition_variable>
#include <exception>
#include <mutex>
#include <utility>

#include "platform/SignalsBlocked.h"
#include "sorvctl/DatabaseWatch.h"
#include "sorvctl/WakePipe.h"

namespace sorvctl {

namespace {

using Clock = std::chrono::steady_clock;

}  // namespace

struct Follower::State {
  std::vector<Options> ways;
  Plan plan;
  std::mutex mutex;
  std::condition_variable changed;  // when `stopping` or `ended` has changed
  WakePipe stop;                    // can be read from when `stopping`
  // Guarded by the mutex.
  bool stopping = false;
  bool ended = false;
  std::optional<Sight> sight;

  void follow() {
    while (!isStopping()) {
      try {
        followConnection(ways[failures_ % ways.size()]);
      } catch (const std::exception& error) {
        if (++failures_ % ways.size() == 0) {
          Sight lost;
          lost.failure = error.what();
          put(std::move(lost));
          pause(plan.interval);
        }
      }
    }
    {
      const std::lock_guard hold(mutex);
      ended = true;
    }
    changed.notify_all();
  }

 private:
  bool isStopping() {
    const std::lock_guard hold(mutex);
    return stopping;
  }

  void put(Sight seen) {
    seen.at = Clock::now();
    {
      const std::lock_guard hold(mutex);
      sight = std::move(seen);
    }
    plan.wake();
  }

  void pause(std::chrono::milliseconds time) {
    std::unique_lock hold(mutex);
    changed.wait_for(hold, time, [this] { return stopping; });
  }

  /// Follows from one connecting to the next. There is a sight for each: the first question is
  /// always replied with "YES".
  void followConnection(const Options& way) {
    Session session(way);
    DatabaseWatch watch(session, plan.interval, plan.bounds);
    while (!isStopping()) {
      if (auto databases = watch.next(stop.descriptor())) {
        put({true, std::move(*databases), {}, {}});
        failures_ -= failures_ % ways.size();  // all ways are tried before the next failure is told
      }
    }
  }

  std::size_t failures_ = 0;  // the follower's thread alone uses it
};

Follower::Follower(std::vector<Options> ways, Plan plan) : state_(std::make_unique<State>()) {
  state_->ways = std::move(ways);
  state_->plan = std::move(plan);
  // A command that stops and goes on looks at its signals at once, on its own thread.
  const sorvane::SignalsBlocked blocked;
  thread_ = std::thread([state = state_.get()] { state->follow(); });
}

Follower::~Follower() {
  stop();
  thread_.join();
}

std::optional<Sight> Follower::take() {
  const std::lock_guard hold(state_->mutex);
  return std::exchange(state_->sight, std::nullopt);
}

void Follower::stop() {
  {
    const std::lock_guard hold(state_->mutex);
    state_->stopping = true;
  }
  state_->stop.wake();
  state_->changed.notify_all();
}

bool Follower::endsWithin(std::chrono::milliseconds limit) {
  std::unique_lock hold(state_->mutex);
  return state_->changed.wait_for(hold, limit, [this] { return state_->ended; });
}

}  // namespace sorvctl
