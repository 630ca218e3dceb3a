// Waits until something has changed at the name server.
#pragma once

#include <chrono>

#include "sorvctl/Session.h"

namespace sorvctl {

/// Asks the name server again and again. Its connection counts as a watcher until it closes.
class ChangeWait {
 public:
  explicit ChangeWait(Session& session) : session_(session) {}

  /// Returns true as soon as something has changed since the last time, and at once when this
  /// connection has asked for the first time. Returns false when nothing has changed for `limit`.
  /// Throws a Failure as the session does.
  [[nodiscard]] bool changed(std::chrono::milliseconds limit);

 private:
  Session& session_;
};

}  // namespace sorvctl
