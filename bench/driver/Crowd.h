// A name server in full use: databases come and go and watchers ask, while lookups are measured.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "driver/Load.h"

namespace sorvane::bench {

/// Connections of databases and of watchers to one name server. Loads use them one after the other.
class Crowd {
 public:
  /// Registers so many databases and makes as many watchers.
  Crowd(int port, int size);

 private:
  friend class CrowdLoad;
  struct Member {
    Socket socket;
    int repliesDue = 0;
    std::string input;  // a part of a reply
  };
  /// Connects a database, and sends its registration under a name of its own.
  [[nodiscard]] Member newDatabase();

  const int port_;
  std::uint32_t databases_ = 0;  // that were registered so far
  std::vector<Member> members_;  // the databases, then the watchers
};

/// Lookups as those of SteadyLoad. Meanwhile each watcher of the crowd asks whether anything has
/// changed, once a second, and so many databases a second go and come anew.
class CrowdLoad final : public SteadyLoad {
 public:
  /// `crowd` must outlive the load.
  CrowdLoad(int port, std::vector<Exchange> exchanges, int connections, Crowd& crowd,
            int changesPerSecond);

 private:
  using Member = Crowd::Member;

  /// Something that is done so many times a second, by the clock.
  struct Pace {
    std::chrono::nanoseconds interval;  // zero: never
    Clock::time_point next;
    std::size_t member;  // whose turn it is
    [[nodiscard]] bool isDue(Clock::time_point now);
  };

  void begin() override;
  void proceed(Clock::time_point now, bool ending) override;
  void handle(std::uint32_t index, Clock::time_point now, bool ending) override;
  [[nodiscard]] int pending() const override { return SteadyLoad::pending() + repliesDue_; }
  void replaceDatabase(std::size_t member);
  void ask(std::size_t member);

  const std::uint32_t firstMember_;  // the numbers below are those of the lookups' connections
  Crowd& crowd_;
  Pace changes_;
  Pace questions_;
  const std::string question_;
  int repliesDue_ = 0;
};

}  // namespace sorvane::bench
