#include "platform/server/SocketCalls.h"

#include <errno.h>

#include "platform/WithoutInterruption.h"
#include "platform/server/SystemCalls.h"

namespace sorvane {

int acceptConnection(int listener) {
  for (;;) {
    const int descriptor = withoutInterruption([&] { return systemcall::accept(listener); });
    if (descriptor >= 0 || errno != ECONNABORTED) {
      return descriptor;
    }
  }
}

ssize_t sendBytes(int descriptor, std::string_view bytes) {
  return withoutInterruption([&] { return systemcall::send(descriptor, bytes); });
}

ssize_t receiveBytes(int descriptor, char* buffer, std::size_t bytes) {
  return withoutInterruption([&] { return systemcall::receive(descriptor, buffer, bytes); });
}

void closeSocket(int descriptor) { systemcall::close(descriptor); }

}  // namespace sorvane
