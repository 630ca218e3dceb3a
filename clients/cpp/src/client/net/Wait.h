// Waiting for a descriptor, for no longer than wanted.
#pragma once

#include <chrono>
#include <cstdint>

namespace sorvane::client::detail {

using Clock = std::chrono::steady_clock;

/// What ends a wait besides what is waited for.
struct Limit {
  Clock::time_point deadline;
  int wake = -1;  ///< a descriptor that becomes readable; -1: none
};

/// The time point so much after now. Durations that no clock can hold become a year.
[[nodiscard]] Clock::time_point after(std::chrono::milliseconds time);

enum class Woken : std::uint8_t { ready, deadline, wake };

/// Waits until the descriptor can be read or written, or has an error. `descriptor` may be -1: then
/// it waits for the limit.
[[nodiscard]] Woken waitForReading(int descriptor, const Limit& limit);
[[nodiscard]] Woken waitForWriting(int descriptor, const Limit& limit);

}  // namespace sorvane::client::detail
