// A value together with the mutex that guards it. The value can be used only while the mutex is
// held.
#pragma once

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
/// must not wait for anything.
template <typename Value>
class Guarded {
 public:
  template <typename... Arguments>
  explicit Guarded(Arguments&&... arguments) : value_(std::forward<Arguments>(arguments)...) {}

  template <typename Operation>
  decltype(auto) with(Operation&& operation) {
    const std::lock_guard<std::mutex> hold(mutex_);
    return std::forward<Operation>(operation)(value_);
  }

  template <typename Operation>
  decltype(auto) with(Operation&& operation) const {
    const std::lock_guard<std::mutex> hold(mutex_);
    return std::forward<Operation>(operation)(value_);
  }

 private:
  mutable std::mutex mutex_;
  Value value_;
};

}  // namespace sorvane
