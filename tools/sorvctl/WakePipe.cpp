#include "sorvctl/WakePipe.h"

#include <unistd.h>

#include <array>

#include "sorvctl/Failure.h"

namespace sorvctl {

WakePipe::WakePipe() : ends_(sorvane::openPipe()) {
  if (!ends_.reading.isOpen()) {
    throw Failure(Status::saidNo, "there is no pipe for this process");
  }
}

void WakePipe::wake() const {
  // A full pipe wakes, too.
  [[maybe_unused]] const ssize_t written = write(ends_.writing.number(), "", 1);
}

void WakePipe::clear() const {
  std::array<char, 64> bytes{};
  while (read(ends_.reading.number(), bytes.data(), bytes.size()) > 0) {
  }
}

}  // namespace sorvctl
