// Whether other work on the machine got into a measurement.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <vector>

#include "driver/Load.h"
#include "driver/ProcessFigures.h"

namespace sorvane::bench {

/// Watches the machine from its construction on.
class Disturbance {
 public:
  /// The largest share of the time that may go astray in a sample that counts.
  static constexpr double kTolerance = 0.01;

  explicit Disturbance(pid_t server) : server_(server), before_(MachineLook::now()) {}

  /// The share of the time since the construction that something else took: processes other than
  /// the server and the driver, or another machine of the host; or the share of the load's time
  /// for which the generator, which never sleeps, was kept from its core. The last does not count
  /// where the server may use that core, too. A process that was started meanwhile counts as
  /// everything: it may have ended before it was seen.
  [[nodiscard]] double share(const LoadResult& load, bool sharedCore) const;

 private:
  using Clock = std::chrono::steady_clock;
  const pid_t server_;
  const MachineLook before_;
  const Clock::time_point start_ = Clock::now();
};

}  // namespace sorvane::bench
