#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include "platform/Descriptor.h"

namespace sorvane {

Descriptor openSocket(int family, int type) {
  Descriptor opened(socket(family, type, 0));
  fcntl(opened.number(), F_SETFD, FD_CLOEXEC);
  // Sending to a peer that is gone must not end the process. Linux is told so at each call.
  const int on = 1;
  setsockopt(opened.number(), SOL_SOCKET, SO_NOSIGPIPE, &on, sizeof on);
  return opened;
}

PipeEnds openPipe() {
  int ends[2];
  if (pipe(ends) != 0) {
    return {};
  }
  for (const int end : ends) {
    fcntl(end, F_SETFD, FD_CLOEXEC);
    fcntl(end, F_SETFL, O_NONBLOCK);
  }
  return {Descriptor(ends[0]), Descriptor(ends[1])};
}

}  // namespace sorvane
