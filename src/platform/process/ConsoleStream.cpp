#include "platform/process/ConsoleStream.h"

#include <fcntl.h>
#include <limits.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/WithoutInterruption.h"

namespace sorvane {
namespace {

bool takesBytesNow(int descriptor) {
  pollfd question{descriptor, POLLOUT, 0};
  // A pipe without a reader also reports an error: writing to it would raise SIGPIPE.
  return poll(&question, 1, 0) == 1 && question.revents == POLLOUT;
}

/// The first lines of `bytes` that fit in `most` bytes; when the first line does not, that many
/// bytes of it.
std::string_view firstLines(std::string_view bytes, std::size_t most) {
  if (bytes.size() <= most) {
    return bytes;
  }
  const std::size_t end = bytes.substr(0, most).rfind('\n');
  return bytes.substr(0, end == std::string_view::npos ? most : end + 1);
}

}  // namespace

StandardErrorStream::StandardErrorStream() {
  struct stat what {};
  if (fstat(STDERR_FILENO, &what) != 0) {
    return;
  }
  if (S_ISSOCK(what.st_mode)) {
    kind_ = Kind::socket;
  } else if (S_ISFIFO(what.st_mode) || S_ISCHR(what.st_mode)) {
    kind_ = Kind::waiting;
    // A pipe or terminal that is opened anew has flags of its own, so it can be told not to wait.
    // If it cannot be opened, asking before each write has to be enough.
    own_ = Descriptor(open("/dev/fd/2", O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  }
}

int StandardErrorStream::descriptor() const {
  return own_.isOpen() ? own_.number() : STDERR_FILENO;
}

std::size_t StandardErrorStream::write(std::string_view bytes) const {
  std::size_t done = 0;
  while (done < bytes.size()) {
    const ssize_t taken = withoutInterruption([&] { return writeSome(bytes.substr(done)); });
    if (taken <= 0) {
      return done;
    }
    done += static_cast<std::size_t>(taken);
  }
  return done;
}

ssize_t StandardErrorStream::writeSome(std::string_view bytes) const {
  if (kind_ == Kind::socket) {
    return send(descriptor(), bytes.data(), bytes.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
  }
  if (kind_ == Kind::waiting) {
    if (!takesBytesNow(descriptor())) {
      return 0;
    }
    bytes = firstLines(bytes, PIPE_BUF);
  }
  return ::write(descriptor(), bytes.data(), bytes.size());
}

}  // namespace sorvane
