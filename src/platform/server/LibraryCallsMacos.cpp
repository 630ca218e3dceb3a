#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include "platform/server/SystemCalls.h"

namespace sorvane::systemcall {

int accept(int listener) {
  const int descriptor = ::accept(listener, nullptr, nullptr);
  if (descriptor >= 0) {
    fcntl(descriptor, F_SETFD, FD_CLOEXEC);
    fcntl(descriptor, F_SETFL, O_NONBLOCK);
  }
  return descriptor;
}

// These raise no SIGPIPE: the connection inherits SO_NOSIGPIPE from the listening socket.
ssize_t send(int descriptor, std::string_view bytes) {
  return ::send(descriptor, bytes.data(), bytes.size(), MSG_DONTWAIT);
}

ssize_t send(int descriptor, const msghdr& message) {
  return ::sendmsg(descriptor, &message, MSG_DONTWAIT);
}

ssize_t receive(int descriptor, char* buffer, std::size_t bytes) {
  return ::recv(descriptor, buffer, bytes, 0);
}

void close(int descriptor) { ::close(descriptor); }

}  // namespace sorvane::systemcall
