#include "platform/posix/Sockets.h"

#include <errno.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

namespace sorvane {
namespace {

// The same times as on Linux; the wait for data that a peer never acknowledges is given in seconds
// here.
constexpr int kProbeAfterSeconds = 10;
constexpr int kProbeEverySeconds = 5;
constexpr int kProbes = 3;
constexpr int kVanishedSeconds = 25;

bool setOption(int descriptor, int level, int option, int value) {
  return setsockopt(descriptor, level, option, &value, sizeof value) == 0;
}

}  // namespace

int acceptConnection(int listener) {
  for (;;) {
    const int descriptor = accept(listener, nullptr, nullptr);
    if (descriptor >= 0) {
      fcntl(descriptor, F_SETFD, FD_CLOEXEC);
      fcntl(descriptor, F_SETFL, O_NONBLOCK);
      return descriptor;
    }
    if (errno != EINTR && errno != ECONNABORTED) {
      return -1;
    }
  }
}

// No signal: SO_NOSIGPIPE is inherited from the listener.
ssize_t sendBytes(int descriptor, std::string_view bytes) {
  for (;;) {
    const ssize_t sent = send(descriptor, bytes.data(), bytes.size(), MSG_DONTWAIT);
    if (sent >= 0 || errno != EINTR) {
      return sent;
    }
  }
}

ssize_t receiveBytes(int descriptor, char* buffer, std::size_t bytes) {
  for (;;) {
    const ssize_t received = recv(descriptor, buffer, bytes, 0);
    if (received >= 0 || errno != EINTR) {
      return received;
    }
  }
}

void closeSocket(int descriptor) { close(descriptor); }

bool setConnectionOptions(int listener) {
  return setOption(listener, SOL_SOCKET, SO_NOSIGPIPE, 1) &&
         setOption(listener, IPPROTO_TCP, TCP_NODELAY, 1) &&
         setOption(listener, SOL_SOCKET, SO_KEEPALIVE, 1) &&
         setOption(listener, IPPROTO_TCP, TCP_KEEPALIVE, kProbeAfterSeconds) &&
         setOption(listener, IPPROTO_TCP, TCP_KEEPINTVL, kProbeEverySeconds) &&
         setOption(listener, IPPROTO_TCP, TCP_KEEPCNT, kProbes) &&
         setOption(listener, IPPROTO_TCP, TCP_RXT_CONNDROPTIME, kVanishedSeconds);
}

}  // namespace sorvane
