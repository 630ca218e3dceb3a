#include "platform/RunningProgram.h"

#include <unistd.h>

#include <chrono>

#include "platform/TimeSource.h"

namespace sorvane {
namespace {

// Constants get their values before main() is called.
const auto kBegun = std::chrono::system_clock::now();

}  // namespace

int processNumber() { return getpid(); }

double programBegun() {
  return std::chrono::duration<double>(kBegun.time_since_epoch()).count() -
         kReferenceDateUnixSeconds;
}

}  // namespace sorvane
