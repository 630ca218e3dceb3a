#include "platform/server/WaitingThreads.h"

#include <exception>
#include <thread>

namespace sorvane {

WaitingThreads::WaitingThreads(std::size_t maximum) : maximum_(maximum) {
  const std::lock_guard<std::mutex> hold(mutex_);
  startThread();
}

void WaitingThreads::startThread() {
  std::thread(&WaitingThreads::workForever, this).detach();
  ++threads_;
}

void WaitingThreads::run(std::function<void()> work) {
  const std::lock_guard<std::mutex> hold(mutex_);
  queue_.push_back(std::move(work));
  provideForWork();
}

void WaitingThreads::runNext(std::function<void()> work) {
  const std::lock_guard<std::mutex> hold(mutex_);
  queue_.push_front(std::move(work));
  provideForWork();
}

void WaitingThreads::provideForWork() {
  if (idle_ < queue_.size() && threads_ < maximum_) {
    try {
      startThread();
    } catch (const std::exception&) {
      // The system has no further thread, or no memory for one: the running ones take the work.
    }
  }
  workCame_.notify_one();
}

void WaitingThreads::workForever() {
  std::unique_lock<std::mutex> hold(mutex_);
  for (;;) {
    ++idle_;
    workEnded_.notify_all();
    workCame_.wait(hold, [this] { return !queue_.empty() && !isStopped_; });
    --idle_;
    const std::function<void()> work = std::move(queue_.front());
    queue_.pop_front();
    hold.unlock();
    work();
    hold.lock();
  }
}

bool WaitingThreads::becomesIdle(std::unique_lock<std::mutex>& hold,
                                 std::chrono::steady_clock::time_point end) {
  return workEnded_.wait_until(hold, end, [this] { return queue_.empty() && idle_ == threads_; });
}

bool WaitingThreads::waitUntilIdle(std::chrono::steady_clock::time_point end) {
  std::unique_lock<std::mutex> hold(mutex_);
  return becomesIdle(hold, end);
}

bool WaitingThreads::stopWhenIdle(std::chrono::steady_clock::time_point end) {
  std::unique_lock<std::mutex> hold(mutex_);
  if (!becomesIdle(hold, end)) {
    return false;
  }
  isStopped_ = true;
  return true;
}

void WaitingThreads::goOn() {
  const std::lock_guard<std::mutex> hold(mutex_);
  isStopped_ = false;
  workCame_.notify_all();
}

WaitingThreads& threadOf(Disk disk) {
  static auto* const log = new WaitingThreads(1);
  static auto* const preferences = new WaitingThreads(1);
  return disk == Disk::log ? *log : *preferences;
}

}  // namespace sorvane
