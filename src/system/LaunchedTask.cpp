#include "system/LaunchedTask.h"

#include <sys/wait.h>

#include <thread>

#include "platform/WithoutInterruption.h"

namespace sorvane {

std::shared_ptr<LaunchedTask> LaunchedTask::watching(int processIdentifier) {
  std::shared_ptr<LaunchedTask> task(new LaunchedTask(processIdentifier));
  std::thread([task] { task->reap(); }).detach();
  return task;
}

bool LaunchedTask::isRunning() const {
  const std::lock_guard lock(mutex_);
  return running_;
}

void LaunchedTask::waitUntilExit() const {
  std::unique_lock lock(mutex_);
  ended_.wait(lock, [this] { return !running_; });
}

void LaunchedTask::reap() {
  // When the system reaps ended children itself, waitpid waits just as long and then fails because
  // there is no such child.
  withoutInterruption([this] { return waitpid(processIdentifier_, nullptr, 0); });
  const std::lock_guard lock(mutex_);
  running_ = false;
  ended_.notify_all();
}

}  // namespace sorvane
