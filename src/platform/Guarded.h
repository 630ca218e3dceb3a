// A value together with the mutex that guards it. The value can be used only while the mutex is
// held.
#pragma once

#include <atomic>
#include <mutex>
#include <utility>

namespace sorvane {

/// Example:
///
///     Guarded<std::vector<int>> numbers;
///     numbers.with([](std::vector<int>& all) { all.push_back(1); });
///     const bool none = numbers.with([](const std::vector<int>& all) { return all.empty(); });
///
/// `with` holds the mutex during the call and returns what the operation returns. The operation
/// must not wait for anything. A thread that has called `lock` holds the mutex until it calls
/// `unlock`, and its calls of `with` in between take no mutex.
template <typename Value>
class Guarded {
 public:
  template <typename... Arguments>
  explicit Guarded(Arguments&&... arguments) : value_(std::forward<Arguments>(arguments)...) {}

  template <typename Operation>
  decltype(auto) with(Operation&& operation) {
    const auto hold = holdUnlessLocked();
    return std::forward<Operation>(operation)(value_);
  }

  template <typename Operation>
  decltype(auto) with(Operation&& operation) const {
    const auto hold = holdUnlessLocked();
    return std::forward<Operation>(operation)(value_);
  }

  /// Takes the mutex for several calls of `with` on this thread. Not recursive.
  void lock() {
    mutex_.lock();
    owner_.store(thisThread(), std::memory_order_relaxed);
  }
  void unlock() {
    owner_.store(nullptr, std::memory_order_relaxed);
    mutex_.unlock();
  }

 private:
  /// Returns an address that no other living thread returns.
  static const void* thisThread() {
    static thread_local const char mark = 0;
    return &mark;
  }
  // Only the thread itself stores its own address, so it never sees it by mistake.
  [[nodiscard]] std::unique_lock<std::mutex> holdUnlessLocked() const {
    if (owner_.load(std::memory_order_relaxed) == thisThread()) {
      return {};
    }
    return std::unique_lock(mutex_);
  }

  mutable std::mutex mutex_;
  std::atomic<const void*> owner_ = nullptr;  // the thread that called `lock`
  Value value_;
};

}  // namespace sorvane
