#include "platform/SignalsBlocked.h"

namespace sorvane {

SignalsBlocked::SignalsBlocked() {
  sigset_t all;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &before_);
}

SignalsBlocked::~SignalsBlocked() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }

}  // namespace sorvane
