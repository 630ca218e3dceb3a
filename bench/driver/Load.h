// The load generator: it keeps connections of a server busy and records how long each reply took.
#pragma once

#include <chrono>
#include <cstdint>
#include <vector>

#include "driver/Exchange.h"
#include "driver/Histogram.h"
#include "driver/Socket.h"

namespace sorvane::bench {

/// What one run of a load measured. A latency is that of a whole exchange, or of a whole cycle.
struct LoadResult {
  std::uint64_t operations = 0;
  double seconds = 0.0;
  double generatorSeconds = 0.0;  ///< how much of that time the generator was on a core
  Histogram latency;
};

/// A load on one server. It never sleeps while it runs, so that no waking up of its own adds to the
/// latencies; `generatorSeconds` tells how much of the time it was on its core.
class Load {
 public:
  virtual ~Load() = default;
  Load(const Load&) = delete;
  Load& operator=(const Load&) = delete;

  /// Runs for that long, and until every outstanding reply has come.
  [[nodiscard]] LoadResult run(std::chrono::nanoseconds time);

 protected:
  Load();
  using Clock = std::chrono::steady_clock;

  [[nodiscard]] int poller() const { return poller_.descriptor(); }
  void watch(int descriptor, std::uint32_t index) const;

  /// Sends the first request of every connection.
  virtual void begin() = 0;
  /// Does what is due by the clock, and nothing more when `ending`.
  virtual void proceed(Clock::time_point /*now*/, bool /*ending*/) {}
  /// Reads what has come on a connection. Sends no more when `ending`.
  virtual void handle(std::uint32_t index, Clock::time_point now, bool ending) = 0;
  /// How many connections wait for a reply.
  [[nodiscard]] virtual int pending() const = 0;

  /// Receives what has come: at least a byte, since the poller told of it. Raises when the server
  /// has closed.
  [[nodiscard]] static std::size_t take(const Socket& socket, char* bytes, std::size_t room);

  LoadResult result_;

 private:
  Socket poller_;
};

/// Connections that stay open, each with one exchange in flight at any time. A connection that is
/// free takes the next exchange of the list; after the last comes the first again.
class SteadyLoad : public Load {
 public:
  SteadyLoad(int port, std::vector<Exchange> exchanges, int connections);

 protected:
  void begin() override;
  void handle(std::uint32_t index, Clock::time_point now, bool ending) override;
  [[nodiscard]] int pending() const override { return pending_; }

 private:
  struct Connection {
    Socket socket;
    const Exchange* exchange = nullptr;
    std::size_t received = 0;
    Clock::time_point sent;
  };

  void send(Connection& connection, Clock::time_point now);

  const std::vector<Exchange> exchanges_;
  std::size_t next_ = 0;
  std::vector<Connection> connections_;
  std::vector<char> input_;
  int pending_ = 0;
};

/// Connections that are opened, used for one cycle and closed, one for each given cycle at a time.
class CycleLoad final : public Load {
 public:
  CycleLoad(int port, const std::vector<Cycle>& cycles);

 private:
  struct Connection {
    const Cycle* cycle = nullptr;
    Socket socket;
    std::size_t step = 0;
    std::size_t received = 0;
    std::size_t due = 0;  // length of the reply, as its header tells
    Clock::time_point began;
  };

  void begin() override;
  void handle(std::uint32_t index, Clock::time_point now, bool ending) override;
  [[nodiscard]] int pending() const override { return pending_; }
  void open(std::uint32_t index, Clock::time_point now);
  /// Receives into the input, and compares with what the step wants.
  [[nodiscard]] std::size_t take(const Connection& connection);

  const int port_;
  const std::vector<Cycle> cycles_;
  std::vector<Connection> connections_;
  std::vector<char> input_;
  int pending_ = 0;
};

}  // namespace sorvane::bench
