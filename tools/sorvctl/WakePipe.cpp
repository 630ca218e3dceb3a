#include "sorvctl/WakePipe.h"

#include <fcntl.h>
#include <unistd.h>

#include "sorvctl/Failure.h"

namespace sorvctl {

WakePipe::WakePipe() {
  if (pipe(ends_.data()) != 0) {
    throw Failure(Status::saidNo, "there is no pipe for this process");
  }
  for (const int end : ends_) {
    fcntl(end, F_SETFD, FD_CLOEXEC);
    fcntl(end, F_SETFL, O_NONBLOCK);
  }
}

WakePipe::~WakePipe() {
  for (const int end : ends_) {
    close(end);
  }
}

void WakePipe::wake() const {
  // A full pipe wakes, too.
  [[maybe_unused]] const ssize_t written = write(ends_[1], "", 1);
}

void WakePipe::clear() const {
  std::array<char, 64> bytes{};
  while (read(ends_[0], bytes.data(), bytes.size()) > 0) {
  }
}

}  // namespace sorvctl
