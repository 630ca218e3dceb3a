#include "platform/RunLoop.h"

#include <algorithm>
#include <utility>
#include <vector>

namespace sorvane {

void DelayedCalls::add(RunLoop::Clock::time_point due, RunLoop::Call call) {
  calls_.with([&](auto& calls) { calls.emplace(due, std::move(call)); });
}

void DelayedCalls::makeDue(RunLoop::Clock::time_point now) {
  std::vector<RunLoop::Call> due;
  calls_.with([&](auto& calls) {
    const auto end = calls.upper_bound(now);
    for (auto entry = calls.begin(); entry != end; ++entry) {
      due.push_back(std::move(entry->second));
    }
    calls.erase(calls.begin(), end);
  });
  for (const RunLoop::Call& call : due) {
    call();
  }
}

std::optional<RunLoop::Clock::time_point> DelayedCalls::nextDue() const {
  return calls_.with([](const auto& calls) {
    return calls.empty() ? std::nullopt : std::optional(calls.begin()->first);
  });
}

std::optional<std::chrono::milliseconds> DelayedCalls::waitingTime(
    RunLoop::Clock::time_point now) const {
  const std::optional<RunLoop::Clock::time_point> due = nextDue();
  if (!due.has_value()) {
    return std::nullopt;
  }
  return std::max(std::chrono::milliseconds(0),
                  std::chrono::ceil<std::chrono::milliseconds>(*due - now));
}

}  // namespace sorvane
