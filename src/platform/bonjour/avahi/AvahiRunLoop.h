// The run loop of Bonjour. All calls of the Avahi library are made on its thread.
#pragma once

#include <atomic>

#include "platform/Descriptor.h"
#include "platform/RunLoop.h"
#include "platform/bonjour/avahi/AvahiWatches.h"

namespace sorvane {

/// If the Avahi daemon hangs, a call of the library may block for half a minute. Only this thread
/// waits then. Lives as long as the process.
class AvahiRunLoop : public RunLoop {
 public:
  /// Starts the thread. It receives no signals.
  AvahiRunLoop();

  void performAfterDelay(std::chrono::milliseconds delay, Call call) override;

  /// The loop in the form that the Avahi library uses. Only for the loop's thread.
  [[nodiscard]] const AvahiPoll* poll() const { return watches_.functions(); }

 private:
  void run();
  [[nodiscard]] bool prepare();
  void wake();

  DelayedCalls calls_;
  // A byte that is written here ends the loop's wait. -1 until the loop watches it.
  std::atomic<int> wakeDescriptor_ = -1;
  PipeEnds pipe_;
  AvahiWatches watches_;
};

}  // namespace sorvane
