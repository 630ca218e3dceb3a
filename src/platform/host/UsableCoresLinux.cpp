#include <errno.h>
#include <sched.h>

#include <algorithm>
#include <thread>
#include <vector>

#include "platform/host/ControlGroupLinux.h"
#include "platform/host/UsableCores.h"

namespace sorvane {
namespace {

// More cores than any system has.
constexpr std::size_t kMostCores = std::size_t{1} << 20;

/// Returns 0 if the system does not tell.
int coresOfAffinity() {
  // sched_getaffinity(2) fails with EINVAL if the mask is smaller than that of the kernel.
  std::vector<cpu_set_t> mask(1);
  while (sched_getaffinity(0, mask.size() * sizeof(cpu_set_t), mask.data()) != 0) {
    if (errno != EINVAL || mask.size() * CPU_SETSIZE >= kMostCores) {
      return 0;
    }
    mask.resize(mask.size() * 2);
  }
  return CPU_COUNT_S(mask.size() * sizeof(cpu_set_t), mask.data());
}

}  // namespace

int usableCores() {
  int cores = coresOfAffinity();
  if (cores == 0) {
    cores = static_cast<int>(std::thread::hardware_concurrency());
  }
  cores = std::max(1, cores);
  return std::min(cores, coresOfControlGroup("").value_or(cores));
}

}  // namespace sorvane
