// A program that this process started.
#pragma once

#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>

namespace sorvane {

/// A thread waits for the program and shares this object with the launcher. The launcher may drop
/// its share at any time: the thread still reaps the program, so no zombie process is left. Any
/// thread may call the methods.
class LaunchedTask {
 public:
  /// Starts the program at `path` without arguments. Raises NSException when the program, or the
  /// thread that waits for it, cannot be started; the program does not run then.
  [[nodiscard]] static std::shared_ptr<LaunchedTask> launch(const std::string& path);

  [[nodiscard]] int processIdentifier() const { return processIdentifier_; }
  [[nodiscard]] bool isRunning() const;
  /// Waits until the program has ended.
  void waitUntilExit() const;

 private:
  LaunchedTask() = default;
  void reap();

  int processIdentifier_ = 0;  ///< set before anybody else has the object

  mutable std::mutex mutex_;
  mutable std::condition_variable ended_;
  bool running_ = true;  ///< guarded by mutex_
};

}  // namespace sorvane
