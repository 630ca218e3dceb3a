// Threads that no signal handler runs on.
#pragma once

#include <signal.h>

namespace sorvane {

/// Blocks all signals on the thread that makes it until it is destroyed there. A thread that is
/// started meanwhile has them blocked to its end, so the handlers run on the others.
class SignalsBlocked {
 public:
  SignalsBlocked();
  ~SignalsBlocked();
  SignalsBlocked(const SignalsBlocked&) = delete;
  SignalsBlocked& operator=(const SignalsBlocked&) = delete;

 private:
  sigset_t before_{};
};

}  // namespace sorvane
