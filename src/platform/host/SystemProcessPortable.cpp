#include <errno.h>
#include <signal.h>

#include "platform/SystemProcess.h"

namespace sorvane {

std::optional<SystemProcess> systemProcess(int number) {
  // A process that this user may not signal is alive, too.
  if (number <= 0 || (kill(number, 0) != 0 && errno != EPERM)) {
    return std::nullopt;
  }
  SystemProcess process;
  process.number = number;
  return process;
}

Descriptor openRootOfProcess(int /*number*/) { return {}; }

}  // namespace sorvane
