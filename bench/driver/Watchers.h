// Connections that wait for a change of a name server.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "driver/Load.h"

namespace sorvane::bench {

/// Connections that wait for a change, and one that makes changes. Loads use them one after the
/// other.
class Watchers {
 public:
  /// Connects so many, each of which waits when the constructor ends.
  Watchers(int port, int size);

 private:
  friend class WatchedLoad;
  std::vector<Socket> sockets_;
  Socket maker_;
};

/// The load of SteadyLoad. Meanwhile so many changes a second are made, and each watcher that is
/// told of one waits for the next.
class WatchedLoad final : public SteadyLoad {
 public:
  /// `watchers` must outlive the load.
  WatchedLoad(int port, std::vector<Exchange> exchanges, int connections, Watchers& watchers,
              int changesPerSecond);

 private:
  void begin() override;
  void proceed(Clock::time_point now, bool ending) override;
  void handle(std::uint32_t index, Clock::time_point now, bool ending) override;
  [[nodiscard]] int pending() const override { return SteadyLoad::pending() + changesUnderWay_; }

  const std::uint32_t firstWatcher_;  // the numbers below are those of the lookups' connections
  Watchers& watchers_;
  const std::chrono::nanoseconds interval_;  // between two changes; zero: there are none
  Clock::time_point next_;
  const Exchange change_;
  const std::string wait_;
  const std::string told_;
  int changesUnderWay_ = 0;
};

}  // namespace sorvane::bench
