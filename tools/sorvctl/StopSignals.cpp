#include "sorvctl/StopSignals.h"

#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <array>
#include <cerrno>

#include "platform/Descriptor.h"
#include "sorvctl/Failure.h"

namespace sorvctl {

namespace {

int writing = -1;  // the end of the pipe that the signal handler writes to

void note(int number, siginfo_t* info, void* /*context*/) {
  const int error = errno;
  const std::array<char, 2> bytes{static_cast<char>(number),
                                  static_cast<char>(info->si_code == SI_USER)};
  // If the pipe is full, this signal is lost. Those in the pipe are enough to end the command.
  [[maybe_unused]] const ssize_t written = write(writing, bytes.data(), bytes.size());
  errno = error;
}

}  // namespace

StopSignals::StopSignals(std::initializer_list<int> numbers) {
  sorvane::PipeEnds ends = sorvane::openPipe();
  if (!ends.reading.isOpen()) {
    throw Failure(Status::saidNo, "signals cannot be waited for: no pipe");
  }
  // The handler may write until the process ends, and then somebody must be able to read.
  reading_ = ends.reading.release();
  writing = ends.writing.release();
  struct sigaction action {};
  action.sa_sigaction = &note;
  action.sa_flags = SA_SIGINFO | SA_RESTART;
  sigemptyset(&action.sa_mask);
  for (const int number : numbers) {
    sigaction(number, &action, nullptr);
  }
}

std::optional<Signal> StopSignals::wait(std::chrono::milliseconds time) {
  pollfd waiting{reading_, POLLIN, 0};
  const auto deadline = std::chrono::steady_clock::now() + time;
  while (true) {
    const auto left =
        std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
    const int ready = poll(&waiting, 1, left.count() > 0 ? static_cast<int>(left.count()) : 0);
    std::array<char, 2> bytes{};
    if (ready > 0 &&
        read(reading_, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size())) {
      return Signal{bytes[0], bytes[1] != 0};
    }
    if (ready == 0) {
      return std::nullopt;
    }
  }
}

}  // namespace sorvctl
