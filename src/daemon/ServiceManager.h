// The service manager that has started this process, if one has: systemd, or what speaks its
// protocol (sd_notify(3), systemd.service(5) "Type=notify").
//
// It gives three variables of the environment to the process:
//
//   NOTIFY_SOCKET  the datagram socket on which it listens: a path, or "@" and an abstract name
//   WATCHDOG_USEC  it ends the process if it hears nothing for so many microseconds
//   WATCHDOG_PID   the process that is meant by that; this one if it is absent
//
// They are no settings, and nothing else reads the environment. `takeServiceManager` takes them
// out, so that programs that this process starts do not speak for it.
#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "platform/Descriptor.h"

namespace sorvane {

inline constexpr const char* kNotifySocket = "NOTIFY_SOCKET";
inline constexpr const char* kWatchdogTime = "WATCHDOG_USEC";
inline constexpr const char* kWatchdogProcess = "WATCHDOG_PID";
/// All of them.
inline constexpr const char* kServiceManagerVariables[] = {kNotifySocket, kWatchdogTime,
                                                           kWatchdogProcess};

/// Tells the service manager how the process is. Never waits: what the manager does not take at
/// once is told again later, or not at all. One thread at a time, but for `tellStopping`.
class ServiceManager {
 public:
  using Clock = std::chrono::steady_clock;
  /// The shortest time between two texts about the status.
  static constexpr std::chrono::seconds kStatusInterval{5};
  /// The longest time between two reports.
  static constexpr std::chrono::seconds kLongestInterval{10};

  /// What the name server has to do at the time.
  struct Counts {
    std::size_t names = 0;
    int connections = 0;
    bool operator==(const Counts&) const = default;
  };

  /// The values of the three variables; null for one that is absent. If a text is not what the
  /// protocol has, a console line says so, and nothing is told.
  ServiceManager(const char* socket, const char* watchdog, const char* watchdogProcess);

  /// How often `tellServing` should be called: three times as often as the manager wants to hear
  /// something, and every `kLongestInterval` at least.
  [[nodiscard]] std::chrono::microseconds interval() const;

  /// The process serves now: this is to be called only after every part of it has shown that. The
  /// first call that reaches the manager tells that the start is over. `now` is the present moment.
  void tellServing(const Counts& counts, Clock::time_point now);

  /// The process is about to end. Does nothing before the manager can know that the start is over.
  /// Any thread.
  void tellStopping() const;

 private:
  [[nodiscard]] bool tell(const std::string& lines) const;

  // Constant after construction.
  std::string address_;  // a sockaddr_un's path; empty: nothing is told
  Descriptor socket_;
  std::optional<std::chrono::microseconds> watchdog_;
  // Used by `tellServing` alone.
  std::optional<Counts> toldCounts_;  // nothing before the first report that was taken
  Clock::time_point countsTold_{};
  // Set by `tellServing` before it tells: the manager may act upon that before the call returns.
  std::atomic<bool> mayBeReady_{false};
};

/// Takes the three variables out of the environment. Call it once, before other threads exist.
void takeServiceManager();

/// Returns the variables as they were (NAME=VALUE), for a program that takes the place of this one.
/// Any thread.
[[nodiscard]] std::vector<std::string> serviceManagerVariables();

/// The manager of this process, which lives as long as the process; null if there is none.
[[nodiscard]] ServiceManager* serviceManager();

}  // namespace sorvane
