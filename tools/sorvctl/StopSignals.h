// The signals that end a command which runs until it is stopped.
#pragma once

#include <chrono>
#include <optional>

namespace sorvctl {

/// A signal that arrived.
struct Signal {
  int number = 0;
  bool sentByProcess = false;  ///< by kill(2), not by the terminal or the system
};

/// Handles SIGINT, SIGTERM and SIGCHLD until the process ends. A process makes one object at most.
class StopSignals {
 public:
  StopSignals();
  StopSignals(const StopSignals&) = delete;
  StopSignals& operator=(const StopSignals&) = delete;

  /// Waits for the next signal. Nothing when none came within the time.
  [[nodiscard]] std::optional<Signal> wait(std::chrono::milliseconds time);

 private:
  int reading_ = -1;
};

}  // namespace sorvctl
