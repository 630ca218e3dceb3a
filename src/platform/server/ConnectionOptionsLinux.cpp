#include <netinet/in.h>
#include <netinet/tcp.h>

#include "platform/server/ConnectionOptions.h"
#include "platform/server/SocketCalls.h"

namespace sorvane {

// Accepted sockets inherit all of these from the listener: no call is needed for each connection.
// TCP_USER_TIMEOUT takes the place of the probe count (tcp(7)), and also ends the wait for data
// that a peer never acknowledges.
bool setConnectionOptions(int listener) {
  return setOption(listener, IPPROTO_TCP, TCP_NODELAY, 1) &&
         setOption(listener, SOL_SOCKET, SO_KEEPALIVE, 1) &&
         setOption(listener, IPPROTO_TCP, TCP_KEEPIDLE, kProbeAfterSeconds) &&
         setOption(listener, IPPROTO_TCP, TCP_KEEPINTVL, kProbeEverySeconds) &&
         setOption(listener, IPPROTO_TCP, TCP_KEEPCNT, kProbes) &&
         setOption(listener, IPPROTO_TCP, TCP_USER_TIMEOUT, kVanishedSeconds * 1000);
}

}  // namespace sorvane
