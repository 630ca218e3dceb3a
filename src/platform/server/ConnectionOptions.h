// The times after which a vanished peer is noticed, the same on every system; setting an option.
#pragma once

#include <sys/socket.h>

namespace sorvane {

/// A peer that is silent for `kProbeAfterSeconds` is probed up to `kProbes` times, one probe every
/// `kProbeEverySeconds`.
inline constexpr int kProbeAfterSeconds = 10;
inline constexpr int kProbeEverySeconds = 5;
inline constexpr int kProbes = 3;
/// How long data may stay unacknowledged before the connection fails. Well below the promised 30 s.
inline constexpr int kVanishedSeconds = 25;

/// The same for a connection that waits. It may be told of a change just before its silence is
/// noticed, and the time of that data begins then: both together are below 30 s, too.
inline constexpr int kWaitingVanishedSeconds = 14;

/// Lets a connection fail after that. What cannot be set stays as it is.
void noticeWaitingPeerThatVanishes(int socket);

/// Sets an integer option of a socket. Returns false if the system refuses; `errno` has the reason.
[[nodiscard]] inline bool setOption(int descriptor, int level, int option, int value) {
  return setsockopt(descriptor, level, option, &value, sizeof value) == 0;
}

}  // namespace sorvane
