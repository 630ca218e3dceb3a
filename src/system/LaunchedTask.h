// A program that this process started.
#pragma once

#include <condition_variable>
#include <memory>
#include <mutex>

namespace sorvane {

/// Shared by its launcher and by a thread that waits for the program, so that a program whose
/// handle was dropped leaves no dead entry behind. Any thread.
class LaunchedTask {
 public:
  /// Starts watching the child process `processIdentifier`; nobody else may wait for it.
  [[nodiscard]] static std::shared_ptr<LaunchedTask> watching(int processIdentifier);

  [[nodiscard]] int processIdentifier() const { return processIdentifier_; }
  [[nodiscard]] bool isRunning() const;
  /// Waits until the program has ended.
  void waitUntilExit() const;

 private:
  explicit LaunchedTask(int processIdentifier) : processIdentifier_(processIdentifier) {}
  void reap();

  const int processIdentifier_;

  mutable std::mutex mutex_;
  mutable std::condition_variable ended_;
  bool running_ = true;  ///< guarded by mutex_
};

}  // namespace sorvane
