// Follows the databases of one name server for a command that shows them as they change.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "sorvctl/DatabaseList.h"
#include "sorvctl/Session.h"

namespace sorvctl {

/// What a follower has seen.
struct Sight {
  bool reached = false;
  std::vector<Database> databases;  ///< if `reached`
  std::string failure;              ///< otherwise why not, in words: no way leads there
  std::chrono::steady_clock::time_point at;
};

/// Has a thread of its own, which keeps a connection to the name server and asks it once in an
/// interval whether something has changed. Only then, and once a minute as long as there are
/// alerts, which lapse without a change, it reads the databases. After a reading it pauses for ten
/// times as long as that took, if that is longer than the interval and shorter than a minute. A
/// connection that is lost is made anew, by each of the ways to the server in turn.
class Follower {
 public:
  struct Plan {
    std::chrono::milliseconds interval;
    std::size_t mostDatabases = kMostDatabases;
    std::function<void()> wake;  ///< called on the follower's thread after each new sight
  };

  /// Begins to follow. `ways` are the options that lead to the server: several when it has several
  /// addresses, and one at least. Throws std::system_error when there is no thread for it.
  Follower(std::vector<Options> ways, Plan plan);
  /// Waits until the thread has ended, which may take as long as the server takes for a reply.
  ~Follower();
  Follower(const Follower&) = delete;
  Follower& operator=(const Follower&) = delete;

  /// The last sight that has not been taken yet. Any thread.
  [[nodiscard]] std::optional<Sight> take();
  /// Lets the thread end as soon as it can. Does not wait for it.
  void stop();
  /// Waits until the thread has ended, for that long at most. Returns whether it has.
  [[nodiscard]] bool endsWithin(std::chrono::milliseconds limit);

 private:
  struct State;

  std::unique_ptr<State> state_;
  std::thread thread_;
};

}  // namespace sorvctl
