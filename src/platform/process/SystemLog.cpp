#include <poll.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <syslog.h>
#include <unistd.h>

#include "platform/process/ConsoleStream.h"

namespace sorvane {
namespace {

/// syslog() waits while the log's queue is full, so the queue is asked first.
bool systemLogTakesLine() {
  const int descriptor = socket(AF_UNIX, SOCK_DGRAM, 0);
  if (descriptor < 0) {
    return false;
  }
  sockaddr_un log{};
  log.sun_family = AF_UNIX;
  strncpy(log.sun_path, _PATH_LOG, sizeof log.sun_path - 1);
  bool takes = false;
  if (connect(descriptor, reinterpret_cast<const sockaddr*>(&log), sizeof log) == 0) {
    pollfd question{descriptor, POLLOUT, 0};
    takes = poll(&question, 1, 0) == 1 && question.revents == POLLOUT;
  }
  close(descriptor);
  return takes;
}

}  // namespace

void writeToSystemLog(const char* line) {
  if (systemLogTakesLine()) {
    // The name and the process number are added here; without openlog the C library takes the
    // program's own.
    syslog(LOG_DAEMON | LOG_NOTICE, "%s", line);
  }
}

}  // namespace sorvane
