#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "platform/server/SystemCalls.h"

namespace sorvane::systemcall {

int accept(int listener) {
  return static_cast<int>(
      syscall(SYS_accept4, listener, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
}

ssize_t send(int descriptor, std::string_view bytes) {
  return syscall(SYS_sendto, descriptor, bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT,
                 nullptr, 0);
}

ssize_t send(int descriptor, const msghdr& message) {
  return syscall(SYS_sendmsg, descriptor, &message, MSG_NOSIGNAL | MSG_DONTWAIT);
}

ssize_t receive(int descriptor, char* buffer, std::size_t bytes) {
  return syscall(SYS_recvfrom, descriptor, buffer, bytes, 0, nullptr, nullptr);
}

int wait(int epoll, epoll_event* events, int maximum, int milliseconds) {
  return static_cast<int>(
      syscall(SYS_epoll_pwait, epoll, events, maximum, milliseconds, nullptr, 0));
}

void close(int descriptor) { syscall(SYS_close, descriptor); }

}  // namespace sorvane::systemcall
