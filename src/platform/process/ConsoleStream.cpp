#include "platform/process/ConsoleStream.h"

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

namespace sorvane {
namespace {

bool takesBytesNow(int descriptor) {
  pollfd question{descriptor, POLLOUT, 0};
  // A pipe without a reader reports an error instead: writing to it would raise SIGPIPE.
  return poll(&question, 1, 0) == 1 && question.revents == POLLOUT;
}

}  // namespace

StandardErrorStream::StandardErrorStream() : descriptor_(STDERR_FILENO) {
  struct stat what {};
  if (fstat(STDERR_FILENO, &what) != 0) {
    return;
  }
  if (S_ISSOCK(what.st_mode)) {
    kind_ = Kind::socket;
  } else if (S_ISFIFO(what.st_mode) || S_ISCHR(what.st_mode)) {
    kind_ = Kind::waiting;
    // Opened anew, a pipe or a terminal has flags of its own and can be told not to wait. Where
    // that is refused, asking before each write has to do.
    const int own = open("/dev/fd/2", O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    descriptor_ = own >= 0 ? own : STDERR_FILENO;
  }
}

StandardErrorStream::~StandardErrorStream() {
  if (descriptor_ != STDERR_FILENO) {
    close(descriptor_);
  }
}

std::size_t StandardErrorStream::write(std::string_view bytes) const {
  std::size_t done = 0;
  while (done < bytes.size()) {
    const char* next = bytes.data() + done;
    std::size_t length = bytes.size() - done;
    ssize_t taken = 0;
    if (kind_ == Kind::socket) {
      taken = send(descriptor_, next, length, MSG_DONTWAIT | MSG_NOSIGNAL);
    } else {
      if (kind_ == Kind::waiting) {
        if (!takesBytesNow(descriptor_)) {
          return done;
        }
        length = std::min<std::size_t>(length, PIPE_BUF);
      }
      taken = ::write(descriptor_, next, length);
    }
    if (taken > 0) {
      done += static_cast<std::size_t>(taken);
    } else if (taken == 0 || errno != EINTR) {
      return done;
    }
  }
  return done;
}

}  // namespace sorvane
