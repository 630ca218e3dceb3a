#include "platform/server/SocketCalls.h"

#include <errno.h>

#include "platform/server/SystemCalls.h"

namespace sorvane {
namespace {

/// Repeats `call` while it fails with EINTR.
template <typename Call>
auto withoutInterruption(Call&& call) {
  for (;;) {
    const auto result = call();
    if (result >= 0 || errno != EINTR) {
      return result;
    }
  }
}

}  // namespace

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
