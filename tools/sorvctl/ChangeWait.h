// Waits until something changes at a name server.
#pragma once

#include <chrono>
#include <optional>

#include "sorvctl/Session.h"

namespace sorvctl {

/// Waits on a connection of its own: the server holds the reply until something has changed. A
/// server of an earlier version is asked from time to time instead, on the connection of the
/// caller. The connection that asks counts as a watcher until it closes. One thread.
class ChangeWait {
 public:
  enum class End {
    changed,   ///< since the last time that this was returned; at first, always
    timeOver,  ///< nothing has changed
    woken,     ///< by the descriptor
  };

  /// The time between two pings.
  static constexpr std::chrono::milliseconds kBetweenPings{3000};

  /// `session` is the connection of the caller and must live longer. The server is pinged on it
  /// during a wait, so that one that hangs is noticed. `interval` is the time between two questions
  /// to a server of an earlier version.
  ChangeWait(Session& session, std::chrono::milliseconds interval,
             std::chrono::milliseconds betweenPings = kBetweenPings);

  /// Waits for `limit` at most, and until `wake`, if it is not negative, can be read from. Throws a
  /// Failure as the session does; the next call begins anew then.
  [[nodiscard]] End wait(std::chrono::milliseconds limit, int wake = -1);

 private:
  using Time = std::chrono::steady_clock::time_point;

  /// A step of waiting: nothing when it has to go on.
  [[nodiscard]] std::optional<End> await(Time end, int wake);
  [[nodiscard]] std::optional<End> askFromTimeToTime(Time end, int wake);
  [[nodiscard]] std::optional<End> takeReply();
  void begin();
  [[nodiscard]] std::chrono::milliseconds replyLimit() const;

  Session& session_;
  const std::chrono::milliseconds interval_;
  const std::chrono::milliseconds betweenPings_;
  Session waiting_;
  std::optional<Time> askedAt_;  // when the request was sent whose reply is waited for
  bool answered_ = false;        // the first of these requests, which is replied to at once
  bool lacking_ = false;         // the server cannot hold a reply
  Time nextPing_;
  Time nextQuestion_;  // if it is lacking
};

enum class Awaited { readable, woken, timeOver };

/// Waits until a descriptor, or else `wake`, can be read from; a negative one never can. May return
/// `timeOver` too early.
[[nodiscard]] Awaited awaitReadable(int descriptor, int wake,
                                    std::chrono::steady_clock::time_point end);

}  // namespace sorvctl
