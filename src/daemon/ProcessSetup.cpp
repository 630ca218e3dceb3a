#include "daemon/ProcessSetup.h"

#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/EndProcess.h"

namespace sorvane {
namespace {

void raiseLimit(decltype(RLIMIT_NOFILE) resource) {
  rlimit limit{};
  if (getrlimit(resource, &limit) == 0) {
    limit.rlim_cur = limit.rlim_max;
    setrlimit(resource, &limit);
  }
}

}  // namespace

void stopAllNameServers() {
  signal(SIGTERM, SIG_IGN);
  [[maybe_unused]] const int status = system(kStopCommand);
  endProcess();
}

void detach() {
  signal(SIGHUP, SIG_IGN);
  signal(SIGCHLD, SIG_IGN);
  fflush(stdout);  // otherwise both processes would write what is buffered
  if (fork() > 0) {
    endProcess();
  }
}

void ignoreSignalsOfFailedWrites() {
  signal(SIGXFSZ, SIG_IGN);
  signal(SIGPIPE, SIG_IGN);
}

void keepFilesFromOthers() {
  constexpr mode_t kNotForOthers = S_IWGRP | S_IRWXO;
  umask(umask(kNotForOthers) | kNotForOthers);
}

void raiseResourceLimits() {
  raiseLimit(RLIMIT_NOFILE);
  raiseLimit(RLIMIT_NPROC);
}

void ignoreHangupAndInterrupt() {
  signal(SIGHUP, SIG_IGN);
  signal(SIGINT, SIG_IGN);
}

}  // namespace sorvane
