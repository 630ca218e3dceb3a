#include "driver/Disturbance.h"

#include <unistd.h>

#include <algorithm>

namespace sorvane::bench {

double Disturbance::share(const LoadResult& load, bool sharedCore) const {
  const double elapsed = std::chrono::duration<double, std::nano>(Clock::now() - start_).count();
  const MachineSnapshot after = MachineSnapshot::now();
  if (after.started != before_.started) {
    return 1.0;
  }
  double others = static_cast<double>(after.stolen - before_.stolen);
  for (const auto& [process, time] : after.cpuTimes) {
    const auto earlier = before_.cpuTimes.find(process);
    if (process != ::getpid() && std::ranges::find(server_, process) == server_.end() &&
        earlier != before_.cpuTimes.end()) {
      others += static_cast<double>(time - earlier->second);
    }
  }
  const double keptOff = sharedCore ? 0.0 : 1.0 - load.generatorSeconds / load.seconds;
  return std::max(others / elapsed, keptOff);
}

}  // namespace sorvane::bench
