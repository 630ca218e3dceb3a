// A run loop: one thread that makes the calls it is asked for, one after the other.
#pragma once

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <optional>

#include "platform/Guarded.h"

namespace sorvane {

class RunLoop {
 public:
  using Call = std::function<void()>;
  using Clock = std::chrono::steady_clock;

  virtual ~RunLoop() = default;

  /// Makes `call` on the loop's thread once `delay` has passed, on a later pass of the loop. The
  /// call is never made inside this function, not even on the loop's own thread with a delay of 0.
  /// Calls that are due at the same time are made in the order in which they were asked for. Any
  /// thread; never waits.
  virtual void performAfterDelay(std::chrono::milliseconds delay, Call call) = 0;

  /// Makes `call` on the loop's next pass. Any thread; never waits.
  void perform(Call call) { performAfterDelay(std::chrono::milliseconds(0), std::move(call)); }
};

/// The calls that a run loop still has to make. Any thread.
class DelayedCalls {
 public:
  void add(RunLoop::Clock::time_point due, RunLoop::Call call);

  /// Makes the calls that are due at `now`. Calls that are added meanwhile wait for the next pass.
  void makeDue(RunLoop::Clock::time_point now);

  /// Returns when the next call is due, or nullopt if there is none.
  [[nodiscard]] std::optional<RunLoop::Clock::time_point> nextDue() const;

  /// Returns how long a loop may wait from `now` on, or nullopt if it may wait for ever. The time
  /// is at least 0. It is rounded up, so that the next call is due when the wait is over.
  [[nodiscard]] std::optional<std::chrono::milliseconds> waitingTime(
      RunLoop::Clock::time_point now) const;

 private:
  Guarded<std::multimap<RunLoop::Clock::time_point, RunLoop::Call>> calls_;
};

/// Calls of a run loop that must not be made once the object that they use is gone. The object has
/// a member of this class and passes each call through `cancellable`. The object and its calls
/// belong to the loop's thread.
class CancellableCalls {
 public:
  /// Wraps `call`. The wrapped call does nothing after `cancelAll` or once this object is
  /// destroyed.
  [[nodiscard]] RunLoop::Call cancellable(RunLoop::Call call) const {
    return [token = std::weak_ptr<char>(token_), call = std::move(call)] {
      if (token.lock() != nullptr) {
        call();
      }
    };
  }

  /// Cancels all calls wrapped so far.
  void cancelAll() { token_ = std::make_shared<char>(); }

 private:
  std::shared_ptr<char> token_ = std::make_shared<char>();
};

}  // namespace sorvane
