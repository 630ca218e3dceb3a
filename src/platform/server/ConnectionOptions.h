// How a vanished peer is noticed: the times, the same on every system, and how an option is set.
#pragma once

#include <sys/socket.h>

namespace sorvane {

/// A silent peer is probed after this many seconds, and then again and again, this often at most.
inline constexpr int kProbeAfterSeconds = 10;
inline constexpr int kProbeEverySeconds = 5;
inline constexpr int kProbes = 3;
/// How long data may stay unacknowledged before the connection fails: well below the promised 30 s.
inline constexpr int kVanishedSeconds = 25;

/// Sets an integer option of a socket. False when the system refuses; `errno` tells why.
[[nodiscard]] inline bool setOption(int descriptor, int level, int option, int value) {
  return setsockopt(descriptor, level, option, &value, sizeof value) == 0;
}

}  // namespace sorvane
