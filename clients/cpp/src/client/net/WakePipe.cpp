#include "client/net/WakePipe.h"

#include <fcntl.h>
#include <unistd.h>

namespace sorvane::client::detail {

bool WakePipe::open() {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC | O_NONBLOCK) != 0) {
    return false;
  }
  reading_ = Descriptor(ends[0]);
  writing_ = Descriptor(ends[1]);
  return true;
}

void WakePipe::wake() const {
  const char byte = 0;
  // A pipe that is full is readable already.
  [[maybe_unused]] const ssize_t count = write(writing_.number(), &byte, 1);
}

void WakePipe::rest() const {
  char bytes[64];
  while (read(reading_.number(), bytes, sizeof bytes) == sizeof bytes) {
  }
}

}  // namespace sorvane::client::detail
