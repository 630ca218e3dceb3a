#include "client/net/Thread.h"

#include <pthread.h>
#include <signal.h>

#include <system_error>
#include <utility>

namespace sorvane::client::detail {

std::thread startThread(std::function<void()> body) {
  sigset_t all;
  sigset_t former;
  sigfillset(&all);
  // The new thread has the mask of the one that starts it.
  pthread_sigmask(SIG_SETMASK, &all, &former);
  std::thread thread;
  try {
    thread = std::thread([body = std::move(body)]() noexcept { body(); });
  } catch (const std::system_error&) {
  }
  pthread_sigmask(SIG_SETMASK, &former, nullptr);
  return thread;
}

}  // namespace sorvane::client::detail
