#include "platform/EndProcess.h"

#include <signal.h>
#include <stdio.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>

namespace sorvane {
namespace {

std::atomic<void (*)()> lastAct{nullptr};

}  // namespace

void setLastAct(void (*function)()) { lastAct = function; }

void endProcess() {
  if (void (*const function)() = lastAct.load()) {
    function();
  }
  fflush(stdout);
  _exit(0);
}

void endProcessAs(int status) {
  if (WIFSIGNALED(status)) {
    const int number = WTERMSIG(status);
    sigset_t only;
    sigemptyset(&only);
    sigaddset(&only, number);
    signal(number, SIG_DFL);
    pthread_sigmask(SIG_UNBLOCK, &only, nullptr);
    kill(getpid(), number);
  }
  _exit(WIFEXITED(status) ? WEXITSTATUS(status) : 0);
}

}  // namespace sorvane
