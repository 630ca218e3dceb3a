#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include "platform/Descriptor.h"

namespace sorvane {

Descriptor openSocket(int family, int type) {
  return Descriptor(socket(family, type | SOCK_CLOEXEC, 0));
}

PipeEnds openPipe() {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC | O_NONBLOCK) != 0) {
    return {};
  }
  return {Descriptor(ends[0]), Descriptor(ends[1])};
}

}  // namespace sorvane
