// A running name server in which somebody holds the lock under which all commands run.
#pragma once

#include <filesystem>
#include <functional>
#include <memory>

#include "integration/Daemon.h"

namespace sorvane::test {

/// See preload/HeldLock.cpp.
///
/// Example:
///   Daemon server;
///   HeldServerLock lock(server);  // starts it
///   lock.hold();
///   ...                           // every command waits
///   lock.release();
class HeldServerLock {
 public:
  /// Starts the server; `beforeStart` runs in its process.
  explicit HeldServerLock(
      Daemon& server, const std::function<void()>& beforeStart = [] {});
  HeldServerLock(const HeldServerLock&) = delete;
  HeldServerLock& operator=(const HeldServerLock&) = delete;

  /// Returns when the lock is held. Nobody else may ask the server for anything meanwhile.
  void hold();
  /// Releases the lock, and waits for the end of a command.
  void release();

 private:
  const TemporaryFolder folder_;
  const std::filesystem::path gate_ = folder_ / "gate";
  Daemon& server_;
  std::unique_ptr<RawConnection> command_;  // its command was the first to find the lock held
};

}  // namespace sorvane::test
