// Whether other work on the machine disturbed a measurement.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <utility>
#include <vector>

#include "driver/Load.h"
#include "driver/ProcessFigures.h"

namespace sorvane::bench {

/// Watches the machine from its construction on.
class Disturbance {
 public:
  /// The largest share of the time that other work may take in an undisturbed sample.
  static constexpr double kTolerance = 0.01;

  /// `server`: all processes of it.
  explicit Disturbance(std::vector<pid_t> server)
      : server_(std::move(server)), before_(MachineSnapshot::now()) {}

  /// The share of the time since the construction that was lost, the greater of two: what other
  /// processes and other machines of the host took, and how long the generator, which never sleeps,
  /// was kept from its core. With `sharedCore`, when the server may use that core, too, only the
  /// first. 1 when a process was started meanwhile, since it may have ended unseen.
  [[nodiscard]] double share(const LoadResult& load, bool sharedCore) const;

 private:
  using Clock = std::chrono::steady_clock;
  const std::vector<pid_t> server_;
  const MachineSnapshot before_;
  const Clock::time_point start_ = Clock::now();
};

}  // namespace sorvane::bench
