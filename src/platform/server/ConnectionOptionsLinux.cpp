#include <netinet/in.h>
#include <netinet/tcp.h>

#include "platform/server/ConnectionOptions.h"
#include "platform/server/SocketCalls.h"

namespace sorvane {

// Accepted sockets inherit all of these from the listening socket: a connection costs no call for
// them. TCP_USER_TIMEOUT takes the place of the probe count (tcp(7)). It also ends a connection
// whose peer never acknowledges data.
bool setConnectionOptions(int listener) {
  return setOption(listener, IPPROTO_TCP, TCP_NODELAY, 1) &&
         setOption(listener, SOL_SOCKET, SO_KEEPALIVE, 1) &&
         setOption(listener, IPPROTO_TCP, TCP_KEEPIDLE, kProbeAfterSeconds) &&
         setOption(listener, IPPROTO_TCP, TCP_KEEPINTVL, kProbeEverySeconds) &&
         setOption(listener, IPPROTO_TCP, TCP_KEEPCNT, kProbes) &&
         setOption(listener, IPPROTO_TCP, TCP_USER_TIMEOUT, kVanishedSeconds * 1000);
}

void noticeWaitingPeerThatVanishes(int socket) {
  static_cast<void>(
      setOption(socket, IPPROTO_TCP, TCP_USER_TIMEOUT, kWaitingVanishedSeconds * 1000));
}

}  // namespace sorvane
