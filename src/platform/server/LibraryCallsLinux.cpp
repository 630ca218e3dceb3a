#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include "platform/server/SystemCalls.h"

namespace sorvane::systemcall {

int accept(int listener) {
  return ::accept4(listener, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
}

ssize_t send(int descriptor, std::string_view bytes) {
  return ::send(descriptor, bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
}

ssize_t send(int descriptor, const msghdr& message) {
  return ::sendmsg(descriptor, &message, MSG_NOSIGNAL | MSG_DONTWAIT);
}

ssize_t receive(int descriptor, char* buffer, std::size_t bytes) {
  return ::recv(descriptor, buffer, bytes, 0);
}

int wait(int epoll, epoll_event* events, int maximum, int milliseconds) {
  return ::epoll_wait(epoll, events, maximum, milliseconds);
}

void close(int descriptor) { ::close(descriptor); }

}  // namespace sorvane::systemcall
