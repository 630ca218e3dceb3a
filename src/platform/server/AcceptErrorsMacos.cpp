#include <errno.h>

#include "platform/server/SocketCalls.h"

namespace sorvane {

bool isErrorOfOneConnection(int error) { return error == ECONNABORTED; }

}  // namespace sorvane
