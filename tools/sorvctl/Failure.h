// How sorvctl ends.
#pragma once

#include <stdexcept>
#include <string>

namespace sorvctl {

/// Exit statuses, the same for every command.
enum class Status : int {
  done = 0,
  saidNo = 1,        ///< the server replied: not found, failed, or no dictionary
  wrongUsage = 2,    ///< the command line is wrong
  notReached = 3,    ///< no server, or it closed the connection or did not reply in time
  needsRestart = 4,  ///< the server is of a release that cannot be upgraded in place
};

/// Ends the command with this status and one line on standard error.
class Failure : public std::runtime_error {
 public:
  Failure(Status status, const std::string& line) : std::runtime_error(line), status_(status) {}
  [[nodiscard]] Status status() const { return status_; }

 private:
  Status status_;
};

}  // namespace sorvctl
