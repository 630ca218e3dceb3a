#include "sorvctl/Follower.h"

#include <algorithm>
#include <condition_variable>
#include <exception>
#include <mutex>
#include <utility>

#include "platform/SignalsBlocked.h"
#include "sorvctl/ChangeWait.h"

namespace sorvctl {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds kLongestPause{60};
constexpr std::chrono::seconds kAlertsMayHaveLapsed{60};
constexpr int kPausesOfReading = 10;

}  // namespace

struct Follower::State {
  std::vector<Options> ways;
  Plan plan;
  std::mutex mutex;
  std::condition_variable changed;  // when `stopping` or `ended` has changed
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

  /// Follows on one connection. The first question on a connection is always replied with "YES", so
  /// there is a sight for each connection.
  void followConnection(const Options& way) {
    Session session(way);
    bool haveAlerts = false;
    Clock::time_point read;
    while (!isStopping()) {
      auto wait = plan.interval;
      if (hasChanged(session) || (haveAlerts && Clock::now() - read >= kAlertsMayHaveLapsed)) {
        const Clock::time_point begin = Clock::now();
        Sight seen{true, readDatabases(session, plan.mostDatabases), {}, {}};
        haveAlerts = std::any_of(seen.databases.begin(), seen.databases.end(),
                                 [](const Database& database) { return !database.alert.empty(); });
        put(std::move(seen));
        failures_ -= failures_ % ways.size();  // all ways are tried before the next failure is told
        read = Clock::now();
        wait = std::max(wait, std::min<std::chrono::milliseconds>(
                                  kLongestPause, std::chrono::ceil<std::chrono::milliseconds>(
                                                     (read - begin) * kPausesOfReading)));
      }
      pause(wait);
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
  state_->changed.notify_all();
}

bool Follower::endsWithin(std::chrono::milliseconds limit) {
  std::unique_lock hold(state_->mutex);
  return state_->changed.wait_for(hold, limit, [this] { return state_->ended; });
}

}  // namespace sorvctl
