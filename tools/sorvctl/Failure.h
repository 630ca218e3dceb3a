// How sorvctl ends.
#pragma once

#include <stdexcept>
#include <string>

namespace sorvctl {

/// Exit statuses, the same for every word.
enum class Status : int {
  done = 0,
  saidNo = 1,      ///< the server answered: not found, failed, no reply dictionary
  wrongUsage = 2,  ///< the command line makes no sense
  notReached = 3,  ///< no server, or it went away or fell silent before it answered
};

/// Ends the word that is being carried out, with one line on standard error.
class Failure : public std::runtime_error {
 public:
  Failure(Status status, const std::string& line) : std::runtime_error(line), status_(status) {}
  [[nodiscard]] Status status() const { return status_; }

 private:
  Status status_;
};

}  // namespace sorvctl
