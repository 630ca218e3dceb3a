#include <poll.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <syslog.h>

#include "platform/Descriptor.h"
#include "platform/process/ConsoleStream.h"

namespace sorvane {
namespace {

/// Returns true if the log's queue has room. syslog() would wait for a full queue.
bool systemLogTakesLine() {
  const Descriptor queue = openSocket(AF_UNIX, SOCK_DGRAM);
  if (!queue.isOpen()) {
    return false;
  }
  sockaddr_un log{};
  log.sun_family = AF_UNIX;
  strncpy(log.sun_path, _PATH_LOG, sizeof log.sun_path - 1);
  if (connect(queue.number(), reinterpret_cast<const sockaddr*>(&log), sizeof log) != 0) {
    return false;
  }
  pollfd question{queue.number(), POLLOUT, 0};
  return poll(&question, 1, 0) == 1 && question.revents == POLLOUT;
}

}  // namespace

void writeToSystemLog(const char* line) {
  if (systemLogTakesLine()) {
    // The line comes without name and process number: the log adds them. Without openlog the C
    // library takes the program's own name.
    syslog(LOG_DAEMON | LOG_NOTICE, "%s", line);
  }
}

}  // namespace sorvane
