#include <netinet/in.h>
#include <netinet/tcp.h>

#include "platform/server/ConnectionOptions.h"
#include "platform/server/SocketCalls.h"

namespace sorvane {

bool setConnectionOptions(int listener) {
  return setOption(listener, SOL_SOCKET, SO_NOSIGPIPE, 1) &&
         setOption(listener, IPPROTO_TCP, TCP_NODELAY, 1) &&
         setOption(listener, SOL_SOCKET, SO_KEEPALIVE, 1) &&
         setOption(listener, IPPROTO_TCP, TCP_KEEPALIVE, kProbeAfterSeconds) &&
         setOption(listener, IPPROTO_TCP, TCP_KEEPINTVL, kProbeEverySeconds) &&
         setOption(listener, IPPROTO_TCP, TCP_KEEPCNT, kProbes) &&
         setOption(listener, IPPROTO_TCP, TCP_RXT_CONNDROPTIME, kVanishedSeconds);
}

// The time for data does not shorten that of the probes here.
void noticeWaitingPeerThatVanishes(int socket) {
  static_cast<void>(setOption(socket, IPPROTO_TCP, TCP_KEEPCNT, 1));
  static_cast<void>(setOption(socket, IPPROTO_TCP, TCP_RXT_CONNDROPTIME, kWaitingVanishedSeconds));
}

}  // namespace sorvane
