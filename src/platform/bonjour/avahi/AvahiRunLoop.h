// The run loop of Bonjour: a thread of its own, on which every call of the Avahi library is made.
#pragma once

#include <avahi-common/simple-watch.h>

#include <atomic>

#include "platform/RunLoop.h"

namespace sorvane {

/// Calls of the Avahi library may block for half a minute while its daemon hangs; nothing but this
/// thread then waits. Lives as long as the process.
class AvahiRunLoop : public RunLoop {
 public:
  /// Starts the thread, which takes no signals.
  AvahiRunLoop();

  void performAfterDelay(std::chrono::milliseconds delay, Call call) override;

  /// The loop as the Avahi library sees it. For the loop's thread.
  [[nodiscard]] const AvahiPoll* poll() const { return avahi_simple_poll_get(poll_); }

 private:
  void run();
  [[nodiscard]] bool prepare();
  void wake();

  DelayedCalls calls_;
  // Written to end the loop's wait; -1 until the loop waits for it.
  std::atomic<int> wakeDescriptor_ = -1;
  AvahiSimplePoll* poll_ = nullptr;
};

}  // namespace sorvane
