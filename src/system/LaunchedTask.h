// A program that this process started.
#pragma once

#include <condition_variable>
#include <memory>
#include <mutex>

namespace sorvane {

/// A thread waits for the program and shares this object with the launcher. The launcher may drop
/// its share at any time: the thread still reaps the program, so no zombie process is left. Any
/// thread may call the methods.
class LaunchedTask {
 public:
  /// Starts a thread that waits for the child process `processIdentifier`. Nothing else may wait
  /// for that process.
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
