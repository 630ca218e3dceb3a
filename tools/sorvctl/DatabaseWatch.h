// Follows the databases of a name server.
#pragma once

#include <chrono>
#include <optional>
#include <vector>

#include "sorvctl/ChangeWait.h"
#include "sorvctl/DatabaseList.h"
#include "sorvctl/Session.h"

namespace sorvctl {

/// How long until one of the alerts may have lapsed: from `soonest` to an hour. Nothing when there
/// is none. `now` is this host's clock, in seconds since 1970; the server's may differ, and
/// decides.
[[nodiscard]] std::optional<std::chrono::milliseconds> timeToLapse(
    const std::vector<Database>& databases, double now, std::chrono::milliseconds soonest);

/// Waits until something changes, and reads the databases then. Alerts lapse without a change: the
/// databases are read anew when one may have, but not again within a minute for that. After a
/// reading the next one comes ten times as long later as that took, or a minute if that is shorter:
/// much that changes at once is told at once. One thread.
class DatabaseWatch {
 public:
  static constexpr std::chrono::milliseconds kSoonestLook{60'000};  ///< for lapsed alerts

  /// `session` must live longer. `interval` is the time between two questions to a server of an
  /// earlier version, which cannot tell at once that something has changed.
  DatabaseWatch(Session& session, std::chrono::milliseconds interval, PictureBounds bounds = {},
                std::chrono::milliseconds soonestLook = kSoonestLook);

  /// Returns all databases: at once for the first time, and after a change from then on. Nothing
  /// when `wake` can be read from before. Throws a Failure as the session and the reading do.
  [[nodiscard]] std::optional<std::vector<Database>> next(int wake);

 private:
  using Time = std::chrono::steady_clock::time_point;

  Session& session_;
  ChangeWait changes_;
  DatabaseReader reader_;
  const std::chrono::milliseconds soonestLook_;
  Time pauseEnd_{};
  std::optional<Time> alertLapses_;  // when the first one may, at the earliest
};

}  // namespace sorvctl
