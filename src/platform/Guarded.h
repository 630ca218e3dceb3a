// A value and the mutex that guards it, as one type: the value is reached only with the mutex held.
#pragma once

#include <mutex>
#include <utility>

namespace sorvane {

/// Example: `state_.with([&](RegistryState& state) { state.ports.insert(record); });`
/// The mutex is held for the length of the call. Never wait for anything inside it.
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
