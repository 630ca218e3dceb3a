// The server of this process, for a delegate that asks whether it really serves, and for the one
// who hands its connections on to another program.
#pragma once

#include <chrono>
#include <functional>

namespace sorvane {

class KeptWriter;

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

  /// Returns the descriptor of the listening socket.
  [[nodiscard]] virtual int listener() const = 0;

  /// Returns the number of open connections.
  [[nodiscard]] virtual int connections() const = 0;

  // ---- Handing on. Call these on one thread that serves nothing.

  /// Stops between two requests. After true, nothing is delivered, nothing is read or sent, and no
  /// waiting thread and no disk's thread has work, until `goOn`; rounds wait, too. Returns false if
  /// it does not come to that by `end`, because a disk hangs, for instance. Everything goes on
  /// then. Until then, requests that have to wait are put off now and then, half of the time at
  /// most; all others are served, but for 20 ms at a time.
  [[nodiscard]] virtual bool pause(std::chrono::steady_clock::time_point end) = 0;
  /// Writes, during a pause, what `NetConnection::continueServer` needs: the listening socket and
  /// all connections. Raises std::bad_alloc if there is no memory.
  virtual void keep(KeptWriter& writer) const = 0;
  /// Ends the pause. Nothing that came meanwhile is lost.
  virtual void goOn() = 0;
};

}  // namespace sorvane
