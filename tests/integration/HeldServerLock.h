// A command of a running name server that does not come to its end.
#pragma once

#include <memory>
#include <string>

#include "integration/Daemon.h"

namespace sorvane::test {

/// Its log is a pipe: a verbose server's search is written there with `serverLock` held, and is
/// longer than the pipe takes before somebody reads it.
///
/// Example:
///   Daemon server;
///   HeldServerLock lock(server);  // starts it
///   lock.hold();
///   ...                           // every other command waits
///   lock.release();
class HeldServerLock {
 public:
  /// Starts the server, with "-verbose".
  explicit HeldServerLock(Daemon& server);
  ~HeldServerLock();
  HeldServerLock(const HeldServerLock&) = delete;
  HeldServerLock& operator=(const HeldServerLock&) = delete;

  /// Returns when the lock is held.
  void hold();
  /// Lets the command go on, and waits for its end. Nothing blocks in the log from then on.
  void release();

 private:
  void readLog() const;

  Daemon& server_;
  int log_ = -1;
  std::unique_ptr<RawConnection> holder_;
};

}  // namespace sorvane::test
