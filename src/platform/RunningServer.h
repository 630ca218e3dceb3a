// The server of this process, for a delegate that asks whether it really serves.
#pragma once

#include <functional>

namespace sorvane {

/// Lives as long as the process. Any thread may call it.
class RunningServer {
 public:
  /// What is called on the way of a round. Neither function may raise.
  struct Round {
    std::function<void()> onWaitingThread;  ///< may wait for a lock
    std::function<void()> onServingThread;  ///< must not wait
  };

  RunningServer() = default;
  virtual ~RunningServer() = default;
  RunningServer(const RunningServer&) = delete;
  RunningServer& operator=(const RunningServer&) = delete;

  /// Goes once round all that serve: calls `onWaitingThread` on a waiting thread, then lets each
  /// serving loop take a turn, one after the other, and calls `onServingThread` on the thread of
  /// the last one. If one of them hangs, the round stops there. Returns at once. `round` belongs to
  /// the caller and stays as it is until the end of the round. There is one round at a time: the
  /// next may begin in `onServingThread`. Raises std::bad_alloc if there is no memory; there is no
  /// round then.
  virtual void goRound(const Round& round) = 0;

  /// Returns the number of open connections.
  [[nodiscard]] virtual int connections() const = 0;
};

}  // namespace sorvane
