// The signals that end a command which runs until it is stopped.
#pragma once

#include <signal.h>

#include <chrono>
#include <initializer_list>
#include <optional>

namespace sorvctl {

/// A signal that arrived.
struct Signal {
  int number = 0;
  bool sentByProcess = false;  ///< by kill(2), not by the terminal or the system
};

/// Handles signals until the process ends. A process makes one object at most.
class StopSignals {
 public:
  explicit StopSignals(std::initializer_list<int> numbers = {SIGINT, SIGTERM, SIGCHLD});
  StopSignals(const StopSignals&) = delete;
  StopSignals& operator=(const StopSignals&) = delete;

  /// Waits for the next signal. Nothing when none came within the time.
  [[nodiscard]] std::optional<Signal> wait(std::chrono::milliseconds time);
  /// Can be read from when a signal has arrived. For poll(2) alone.
  [[nodiscard]] int descriptor() const { return reading_; }

 private:
  int reading_ = -1;
};

}  // namespace sorvctl
