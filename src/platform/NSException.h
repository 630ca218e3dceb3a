// The one class of exception that a command may raise.
#pragma once

#include <stdexcept>

namespace sorvane {

/// Raised when a command cannot be carried out: a value that it needs is missing or is not text.
/// The delegate operation that received the request catches it once. An exception of any other
/// class is a defect of the program and ends the process.
class NSException : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace sorvane
