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

/// Has a thread of its own, which follows the databases as DatabaseWatch does. A connection that is
/// lost is made anew, by each of the ways to the server in turn.
class Follower {
 public:
  struct Plan {
    std::chrono::milliseconds interval;  ///< as that of DatabaseWatch
    PictureBounds bounds = {};
    std::function<void()> wake;  ///< called on the follower's thread after each new sight
  };

  /// Begins to follow. `ways` are the options that lead to the server: several when it has several
  /// addresses, and one at least. Throws std::system_error when there is no thread for it, and a
  /// Failure when there is no pipe.
  Follower(std::vector<Options> ways, Plan plan);
  /// Waits until the thread has ended: at once while it waits for a change; otherwise it may take
  /// as long as the server takes for a reply.
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
