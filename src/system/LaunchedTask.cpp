#include "system/LaunchedTask.h"

#include <sys/wait.h>

#include <future>
#include <system_error>
#include <thread>
#include <utility>

#include "platform/NSException.h"
#include "platform/SpawnProgram.h"
#include "platform/WithoutInterruption.h"

namespace sorvane {
namespace {

/// The thread comes before the program, so that no program is left unwatched.
template <typename Work>
std::thread startWatcher(const std::string& path, Work work) {
  try {
    return std::thread(std::move(work));
  } catch (const std::system_error& error) {
    throw NSException(path +
                      " cannot be launched: there is no thread for it: " + error.code().message());
  }
}

}  // namespace

std::shared_ptr<LaunchedTask> LaunchedTask::launch(const std::string& path) {
  std::shared_ptr<LaunchedTask> task(new LaunchedTask);
  std::promise<bool> outcome;
  std::thread watcher = startWatcher(path, [task, started = outcome.get_future()]() mutable {
    if (started.get()) {
      task->reap();
    }
  });
  try {
    task->processIdentifier_ = spawnProgram(path);
  } catch (...) {
    outcome.set_value(false);
    watcher.join();
    throw;
  }
  outcome.set_value(true);
  watcher.detach();
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
