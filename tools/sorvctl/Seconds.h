// Times as the command line has them.
#pragma once

#include <chrono>
#include <cmath>

namespace sorvctl {

/// Rounds to the nearest. `seconds` is at most 86400, as all options have it.
[[nodiscard]] inline std::chrono::milliseconds inMilliseconds(double seconds) {
  return std::chrono::milliseconds(std::llround(seconds * 1000));
}

}  // namespace sorvctl
