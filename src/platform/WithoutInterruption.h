// System calls that a signal may interrupt.
#pragma once

#include <errno.h>

namespace sorvane {

/// Makes a system call, and again as long as it fails with EINTR. Returns the result of the last
/// one: negative, with `errno`, on failure. Not for `close`: after an interruption the number may
/// be another file's.
template <typename Call>
auto withoutInterruption(Call&& call) {
  for (;;) {
    const auto result = call();
    if (result >= 0 || errno != EINTR) {
      return result;
    }
  }
}

}  // namespace sorvane
