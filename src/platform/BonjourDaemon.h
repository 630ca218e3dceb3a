// The system's Bonjour daemon, asked once. Implemented in bonjour/avahi/AvahiDaemon.cpp, and in
// bonjour/absent/AbsentDaemon.cpp for builds without Bonjour.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace sorvane {

/// What is known of the daemon.
struct BonjourDaemon {
  enum class State : std::uint8_t {
    notBuiltIn,  ///< this program was built without Bonjour
    noBus,       ///< the system's D-Bus, through which the daemon is reached, cannot be reached
    notRunning,  ///< D-Bus runs, the daemon does not
    silent,      ///< it did not reply in time
    running,
  };
  State state = State::notBuiltIn;
  std::string reason;    ///< why it is silent, in words
  std::string hostName;  ///< the host's name in Bonjour, without a domain; services are named so
  std::string version;   ///< such as "avahi 0.8"
};

/// Asks on a thread of its own, and stops waiting at `deadline`. If the daemon hangs, the thread
/// ends when the library gives up. Publishes nothing.
[[nodiscard]] BonjourDaemon askBonjourDaemon(std::chrono::steady_clock::time_point deadline);

}  // namespace sorvane
