#include "platform/posix/Sockets.h"

#include <errno.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include "platform/linux/SystemCalls.h"

namespace sorvane {
namespace {

// A silent peer is probed after 10 s and then every 5 s. TCP_USER_TIMEOUT takes the place of the
// probe count (tcp(7)), and also ends the wait for data that a peer never acknowledges: 25 s, well
// below the promised 30.
constexpr int kProbeAfterSeconds = 10;
constexpr int kProbeEverySeconds = 5;
constexpr int kProbes = 3;
constexpr int kVanishedMilliseconds = 25000;

bool setOption(int descriptor, int level, int option, int value) {
  return setsockopt(descriptor, level, option, &value, sizeof value) == 0;
}

}  // namespace

int acceptConnection(int listener) {
  for (;;) {
    const int descriptor = systemcall::accept(listener);
    if (descriptor >= 0 || (errno != EINTR && errno != ECONNABORTED)) {
      return descriptor;
    }
  }
}

ssize_t sendBytes(int descriptor, std::string_view bytes) {
  for (;;) {
    const ssize_t sent = systemcall::send(descriptor, bytes);
    if (sent >= 0 || errno != EINTR) {
      return sent;
    }
  }
}

ssize_t receiveBytes(int descriptor, char* buffer, std::size_t bytes) {
  for (;;) {
    const ssize_t received = systemcall::receive(descriptor, buffer, bytes);
    if (received >= 0 || errno != EINTR) {
      return received;
    }
  }
}

void closeSocket(int descriptor) { systemcall::close(descriptor); }

// Accepted sockets inherit all of these from the listener: no call is needed for each connection.
bool setConnectionOptions(int listener) {
  return setOption(listener, IPPROTO_TCP, TCP_NODELAY, 1) &&
         setOption(listener, SOL_SOCKET, SO_KEEPALIVE, 1) &&
         setOption(listener, IPPROTO_TCP, TCP_KEEPIDLE, kProbeAfterSeconds) &&
         setOption(listener, IPPROTO_TCP, TCP_KEEPINTVL, kProbeEverySeconds) &&
         setOption(listener, IPPROTO_TCP, TCP_KEEPCNT, kProbes) &&
         setOption(listener, IPPROTO_TCP, TCP_USER_TIMEOUT, kVanishedMilliseconds);
}

}  // namespace sorvane
