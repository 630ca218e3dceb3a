#include <errno.h>

#include "platform/server/SocketCalls.h"

namespace sorvane {

// accept(2): Linux passes on errors that the network has already reported for the new connection.
bool isErrorOfOneConnection(int error) {
  switch (error) {
    case ECONNABORTED:
    case EHOSTDOWN:
    case EHOSTUNREACH:
    case ENETDOWN:
    case ENETUNREACH:
    case ENONET:
    case ENOPROTOOPT:
    case EOPNOTSUPP:
    case EPERM:
    case EPROTO:
      return true;
    default:
      return false;
  }
}

}  // namespace sorvane
