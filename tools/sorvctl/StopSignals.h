// The signals that end a word which goes on until it is told to stop.
#pragma once

#include <chrono>
#include <optional>

namespace sorvctl {

/// A signal that arrived.
struct Signal {
  int number = 0;
  bool sentByProcess = false;  ///< by `kill`, rather than by the terminal or the system
};

/// Takes SIGINT, SIGTERM and SIGCHLD for the rest of the process's life. One object a process.
class StopSignals {
 public:
  StopSignals();
  StopSignals(const StopSignals&) = delete;
  StopSignals& operator=(const StopSignals&) = delete;

  /// The next signal; nothing when none came within the time.
  [[nodiscard]] std::optional<Signal> wait(std::chrono::milliseconds time);

 private:
  int reading_ = -1;
};

}  // namespace sorvctl
