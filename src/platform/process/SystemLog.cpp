#include <poll.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <syslog.h>

#include <string>

#include "platform/Descriptor.h"
#include "platform/process/ConsoleStream.h"

namespace sorvane {
namespace {

/// A connection to the log's queue, on which its room is asked for; none if no log runs.
Descriptor connectedQueue() {
  Descriptor queue = openSocket(AF_UNIX, SOCK_DGRAM);
  sockaddr_un log{};
  log.sun_family = AF_UNIX;
  strncpy(log.sun_path, _PATH_LOG, sizeof log.sun_path - 1);
  if (queue.isOpen() &&
      connect(queue.number(), reinterpret_cast<const sockaddr*>(&log), sizeof log) != 0) {
    queue.close();
  }
  return queue;
}

/// Returns true if the queue has room. syslog() would wait for a full queue.
bool takesLine(const Descriptor& queue) {
  pollfd question{queue.number(), POLLOUT, 0};
  return poll(&question, 1, 0) == 1 && question.revents == POLLOUT;
}

}  // namespace

void writeToSystemLog(std::span<const std::string_view> lines) {
  const Descriptor queue = connectedQueue();
  if (!queue.isOpen()) {
    return;
  }
  for (const std::string_view line : lines) {
    if (!takesLine(queue)) {
      return;
    }
    // The line comes without name and process number: the log adds them. Without openlog the C
    // library takes the program's own name.
    syslog(LOG_DAEMON | LOG_NOTICE, "%s", std::string(line).c_str());
  }
}

}  // namespace sorvane
